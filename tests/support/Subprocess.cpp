#include "support/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace corvane_test {

std::string findProgram(const std::string& in_strName) {
    if (in_strName.find('/') != std::string::npos) return in_strName;
    std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    // ip and friends live in sbin, which a test runner's PATH may lack.
    path += ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        const std::string candidate = path.substr(start, end - start) + "/" + in_strName;
        if (end > start && access(candidate.c_str(), X_OK) == 0) return candidate;
        start = end + 1;
    }
    return "";
}

std::string selfExecutable() {
    char buffer[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    return length > 0 ? std::string(buffer, static_cast<size_t>(length)) : std::string();
}

SubprocessResult runSubprocess(const std::vector<std::string>& in_argv,
                               const std::vector<std::pair<std::string, std::string>>& in_extraEnv,
                               int in_iTimeoutMs) {
    SubprocessResult result;
    if (in_argv.empty()) return result;
    const std::string program = findProgram(in_argv[0]);
    if (program.empty()) {
        result.output = in_argv[0] + ": not found";
        return result;
    }

    // Everything the child needs is built before it exists.
    std::vector<char*> argv;
    for (const std::string& arg : in_argv) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (char** p = environ; *p != nullptr; ++p) {
        const std::string entry = *p;
        bool replaced = false;
        for (const auto& extra : in_extraEnv) {
            if (entry.compare(0, extra.first.size() + 1, extra.first + "=") == 0) replaced = true;
        }
        if (!replaced) envStrings.push_back(entry);
    }
    for (const auto& extra : in_extraEnv) envStrings.push_back(extra.first + "=" + extra.second);
    std::vector<char*> envp;
    for (const std::string& entry : envStrings) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        result.output = std::string("pipe: ") + std::strerror(errno);
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 2);
    pid_t pid = -1;
    const int spawnError = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    if (spawnError != 0) {
        close(pipeFds[0]);
        result.output = program + ": " + std::strerror(spawnError);
        return result;
    }
    result.started = true;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(in_iTimeoutMs);
    char buffer[4096];
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        pollfd fd = {pipeFds[0], POLLIN, 0};
        const int ready = poll(&fd, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) continue;  // time is checked at the top
        const ssize_t n = read(pipeFds[0], buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // every writer has closed its end
        result.output.append(buffer, static_cast<size_t>(n));
    }
    close(pipeFds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    return result;
}

}  // namespace corvane_test
