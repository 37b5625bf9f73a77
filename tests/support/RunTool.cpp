#include "support/RunTool.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvane_test {

namespace {
std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}
}  // namespace

ToolRun runTool(const std::vector<std::string>& in_args, const std::string& in_stdin) {
    char dir[] = "/tmp/corvane-tool-XXXXXX";
    ToolRun run;
    if (mkdtemp(dir) == nullptr) return run;
    const std::string inPath = std::string(dir) + "/in", outPath = std::string(dir) + "/out",
                      errPath = std::string(dir) + "/err";
    std::ofstream(inPath) << in_stdin;
    const pid_t pid = fork();
    if (pid == 0) {
        const int in = open(inPath.c_str(), O_RDONLY);
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        std::vector<char*> argv;
        std::string tool = CORVANE_TOOL;
        argv.push_back(&tool[0]);
        std::vector<std::string> args = in_args;
        for (auto& arg : args) argv.push_back(&arg[0]);
        argv.push_back(nullptr);
        execv(tool.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.out = slurp(outPath);
    run.err = slurp(errPath);
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) run.lines.push_back(line);
    std::remove(inPath.c_str());
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
    rmdir(dir);
    return run;
}

}  // namespace corvane_test
