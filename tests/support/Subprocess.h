// Runs a program to its end with a time limit and collects what it writes
// (standard output and standard error together), for tests that drive tools
// or re-run their own binary elsewhere.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace corvane_test {

struct SubprocessResult {
    bool started = false;  // false: the program could not be started (output says why)
    bool timedOut = false; // killed at the time limit
    int exitStatus = -1;   // exit status, or -1 when it did not exit normally
    std::string output;    // standard output and standard error, interleaved
};

// Runs in_argv (in_argv[0] is a path, or a name looked up in PATH), with the
// current environment plus in_extraEnv, and standard input empty. Kills it
// after in_iTimeoutMs.
SubprocessResult runSubprocess(const std::vector<std::string>& in_argv,
                               const std::vector<std::pair<std::string, std::string>>& in_extraEnv = {},
                               int in_iTimeoutMs = 60000);

// The full path of a program found in PATH or the system folders, or empty.
std::string findProgram(const std::string& in_strName);

// The path of the running test binary.
std::string selfExecutable();

}  // namespace corvane_test
