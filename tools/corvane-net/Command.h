// The commands of corvane-net: each lives in its own file and registers itself
// with a CommandRegistrar; main.cpp declares the global options and one CLI11
// subcommand per registered command, parses, and runs the command chosen.
#pragma once

#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace corvane {

// Objects keep their keys in the order they were set, so every line reads the
// same way each time.
using Json = nlohmann::ordered_json;

// A usage error found after parsing: printed with the command's usage, exit status 2.
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

// Runs a command whose options have been parsed; returns the exit status (0 or
// 1) or throws UsageError.
using CommandRun = std::function<int(CommandContext& io_ctx)>;

struct Command {
    const char* name;         // e.g. "params"
    int order;                // place in the usage listing
    const char* summary;      // one line, for the listing of commands
    const char* help;         // what it does, for its --help
    // Declares the command's options and arguments on its own subcommand (which
    // makes its --help) and returns what runs it once they are parsed.
    CommandRun (*declare)(CLI::App& io_app);
};

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& in_command);
};

const std::vector<Command>& commands();

// Text of a JSON value as the command writes it: valid UTF-8 as its
// characters, every other byte as U+FFFD.
std::string dumpJson(const Json& in_value);

// Items given on the command line, with "-" replaced by the lines of standard input.
std::vector<std::string> expandItems(const std::vector<std::string>& in_args);

// Declares an option or argument taking a whole decimal number (no octal or
// hexadecimal reading of leading 0 or 0x); a bad value is a usage error naming it.
CLI::Option* addNumberOption(CLI::App& io_app, const std::string& in_name, long& out_value,
                             const std::string& in_description);

// Refuses a negative number (after addNumberOption's reading) with in_message.
CLI::Validator notNegative(const std::string& in_message);

}  // namespace corvane
