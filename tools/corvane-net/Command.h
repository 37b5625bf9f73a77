// The commands of corvane-net: each lives in its own file and registers itself
// with a CommandRegistrar; main.cpp parses the global options and dispatches.
#pragma once

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "Json.h"

namespace corvane {

// A usage error: printed with the command's usage, exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What every command gets: the output mode and where to write.
struct CommandContext {
    bool json = false;        // --json: one JSON object per line
    std::ostream* out;        // standard output
    std::ostream* err;        // standard error
    Json locatorStats;        // a server locator's statistics, for --stats; null when none was used

    // Writes one item: a JSON line, or the object's form for people.
    void emit(const Json& in_item) const;
};

struct Command {
    const char* name;      // e.g. "params"
    int order;             // place in the usage listing
    const char* synopsis;  // e.g. "resolve [--timeout MS] NAME..."
    const char* help;      // what it does, for --help
    // Runs the command on its own arguments; returns the exit status (0 or 1)
    // or throws UsageError.
    int (*run)(const std::vector<std::string>& in_args, CommandContext& io_ctx);
};

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& in_command);
};

const std::vector<Command>& commands();

// Items given on the command line, with "-" replaced by the lines of standard input.
std::vector<std::string> expandItems(const std::vector<std::string>& in_args);

// Parses a whole decimal number for an option; throws UsageError naming the option.
long parseNumberOption(const std::string& in_option, const std::string& in_value);

}  // namespace corvane
