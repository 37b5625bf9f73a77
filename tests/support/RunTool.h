// Runs the corvane-net command and collects what it printed.
#pragma once

#include <string>
#include <vector>

namespace corvane_test {

struct ToolRun {
    int status = -1;                 // exit status
    std::string out;                 // standard output
    std::string err;                 // standard error
    std::vector<std::string> lines;  // standard output, line by line
};

// in_args are passed as they are (no shell); in_stdin is fed to its standard input.
ToolRun runTool(const std::vector<std::string>& in_args, const std::string& in_stdin = "");

}  // namespace corvane_test
