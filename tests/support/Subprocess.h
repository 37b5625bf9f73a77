// Runs a program to its end with a time limit and collects what it wrote, for
// tests that drive the command, system tools, or their own binary elsewhere.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace corvane_test {

struct SubprocessResult {
    bool started = false;  // false: it could not be started (err says why)
    int status = -1;       // exit status, or 128 + the signal that ended it (SIGKILL at the time limit)
    std::string out;       // standard output
    std::string err;       // standard error
};

// Runs in_argv (in_argv[0] is a path, or a name looked up in PATH and the
// system folders) with the current environment plus in_extraEnv, in_stdin as
// its standard input; kills it after in_iTimeoutMs.
SubprocessResult runSubprocess(const std::vector<std::string>& in_argv,
                               const std::vector<std::pair<std::string, std::string>>& in_extraEnv = {},
                               int in_iTimeoutMs = 60000, const std::string& in_stdin = "");

// Runs the corvane-net command with these arguments.
SubprocessResult runTool(const std::vector<std::string>& in_args, const std::string& in_stdin = "");

// The full path of a program found in PATH or the system folders, or empty.
std::string findProgram(const std::string& in_strName);

// The path of the running test binary.
std::string selfExecutable();

}  // namespace corvane_test
