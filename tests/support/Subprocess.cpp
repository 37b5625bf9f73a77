#include "support/Subprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace corvane_test {

namespace {

std::string slurp(const std::string& in_path) {
    std::ifstream in(in_path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

std::string findProgram(const std::string& in_strName) {
    if (in_strName.find('/') != std::string::npos) return in_strName;
    std::istringstream path(std::string(std::getenv("PATH") ? std::getenv("PATH") : "") +
                            ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
    for (std::string dir; std::getline(path, dir, ':');) {
        const std::string candidate = dir + "/" + in_strName;
        if (!dir.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return "";
}

std::string selfExecutable() {
    char buffer[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    return length > 0 ? std::string(buffer, static_cast<size_t>(length)) : std::string();
}

pid_t spawnProcess(const std::vector<std::string>& in_argv, const std::string& in_inPath,
                   const std::string& in_outPath, const std::string& in_errPath, std::string& out_strError,
                   const std::vector<std::pair<std::string, std::string>>& in_extraEnv) {
    const std::string program = in_argv.empty() ? "" : findProgram(in_argv[0]);
    if (program.empty()) {
        out_strError = (in_argv.empty() ? "" : in_argv[0]) + ": not found";
        return -1;
    }
    std::vector<std::string> env;
    for (char** p = environ; *p != nullptr; ++p) {
        const std::string entry = *p;
        bool replaced = false;
        for (const auto& extra : in_extraEnv) replaced = replaced || entry.rfind(extra.first + "=", 0) == 0;
        if (!replaced) env.push_back(entry);
    }
    for (const auto& extra : in_extraEnv) env.push_back(extra.first + "=" + extra.second);
    std::vector<char*> argv, envp;
    for (const std::string& arg : in_argv) argv.push_back(const_cast<char*>(arg.c_str()));
    for (const std::string& entry : env) envp.push_back(const_cast<char*>(entry.c_str()));
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in_inPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, in_outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in_errPath == in_outPath) {
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    } else {
        posix_spawn_file_actions_addopen(&actions, 2, in_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    pid_t pid = -1;
    const int spawnError = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawnError == 0) return pid;
    out_strError = program + ": " + std::strerror(spawnError);
    return -1;
}

bool reapWithin(pid_t in_pid, std::chrono::milliseconds in_limit, int* out_pStatus) {
    const auto deadline = std::chrono::steady_clock::now() + in_limit;
    for (;;) {
        const pid_t done = waitpid(in_pid, out_pStatus, WNOHANG);
        if (done == in_pid || (done < 0 && errno != EINTR)) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

SubprocessResult runSubprocess(const std::vector<std::string>& in_argv,
                               const std::vector<std::pair<std::string, std::string>>& in_extraEnv,
                               int in_iTimeoutMs, const std::string& in_stdin) {
    SubprocessResult result;
    char dir[] = "/tmp/corvane-run-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        result.err = std::string("mkdtemp: ") + std::strerror(errno);
        return result;
    }
    const std::string in = std::string(dir) + "/in", out = std::string(dir) + "/out", err = std::string(dir) + "/err";
    std::ofstream(in) << in_stdin;
    const pid_t pid = spawnProcess(in_argv, in, out, err, result.err, in_extraEnv);
    if (pid > 0) {
        result.started = true;
        int status = 0;
        if (!reapWithin(pid, std::chrono::milliseconds(in_iTimeoutMs), &status)) {
            kill(pid, SIGKILL);
            reapWithin(pid, std::chrono::seconds(10), &status);
        }
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        result.out = slurp(out);
        result.err = slurp(err);
    }
    for (const std::string& file : {in, out, err}) unlink(file.c_str());
    rmdir(dir);
    return result;
}

SubprocessResult runTool(const std::vector<std::string>& in_args, const std::string& in_stdin) {
    std::vector<std::string> argv = {CORVANE_TOOL};
    argv.insert(argv.end(), in_args.begin(), in_args.end());
    return runSubprocess(argv, {}, 60000, in_stdin);
}

}  // namespace corvane_test
