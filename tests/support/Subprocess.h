// Runs a program to its end with a time limit and collects what it wrote, for
// tests that drive the command, system tools, or their own binary elsewhere.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

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

// Starts in_argv (found as findProgram finds it) with the current environment
// plus in_extraEnv, standard input read from in_inPath and standard output and
// error written to in_outPath and in_errPath (one file when they are the same
// path). The child's pid, or -1 with the reason in out_strError.
pid_t spawnProcess(const std::vector<std::string>& in_argv, const std::string& in_inPath,
                   const std::string& in_outPath, const std::string& in_errPath, std::string& out_strError,
                   const std::vector<std::pair<std::string, std::string>>& in_extraEnv = {});

// Waits at most in_limit for the child to end; true once reaped (its wait
// status in *out_pStatus when given).
bool reapWithin(pid_t in_pid, std::chrono::milliseconds in_limit, int* out_pStatus = nullptr);

// Runs the corvane-net command with these arguments.
SubprocessResult runTool(const std::vector<std::string>& in_args, const std::string& in_stdin = "");

// The full path of a program found in PATH or the system folders, or empty.
std::string findProgram(const std::string& in_strName);

// The path of the running test binary.
std::string selfExecutable();

}  // namespace corvane_test
