// corvane-net: the library's command-line front end.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Command.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/MemAccount.h"
#include "platform/SingletonRegistry.h"

namespace corvane {

namespace {
std::vector<Command>& registry() {
    static std::vector<Command> s_commands;
    return s_commands;
}
}  // namespace

CommandRegistrar::CommandRegistrar(const Command& in_command) {
    registry().push_back(in_command);
    std::sort(registry().begin(), registry().end(),
              [](const Command& a, const Command& b) { return a.order < b.order; });
}

const std::vector<Command>& commands() { return registry(); }

void CommandContext::emit(const Json& in_item) const {
    if (json) {
        *out << in_item.dump() << '\n';
    } else {
        *out << in_item.pretty() << '\n';
    }
    out->flush();
}

std::vector<std::string> expandItems(const std::vector<std::string>& in_args) {
    std::vector<std::string> items;
    for (const std::string& arg : in_args) {
        if (arg != "-") {
            items.push_back(arg);
            continue;
        }
        std::string line;
        while (std::getline(std::cin, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            items.push_back(line);
        }
    }
    return items;
}

long parseNumberOption(const std::string& in_option, const std::string& in_value) {
    errno = 0;
    char* pEnd = nullptr;
    const long value = std::strtol(in_value.c_str(), &pEnd, 10);
    if (in_value.empty() || *pEnd != '\0' || errno == ERANGE) {
        throw UsageError(in_option + " takes a whole number, not \"" + in_value + "\"");
    }
    return value;
}

}  // namespace corvane

namespace {

const char* const kGlobalUsage =
    "usage: corvane-net [--set NAME=VALUE]... [--log LEVEL] [--json] [--stats] COMMAND [ARG]...\n"
    "\n"
    "global options:\n"
    "  --set NAME=VALUE  set a configuration parameter (repeatable)\n"
    "  --log LEVEL       log to standard error at LEVEL and above\n"
    "                    (TRACE, DEBUG, INFO, WARN, ERROR, FATAL, OFF; default WARN)\n"
    "  --json            one JSON object per line on standard output\n"
    "  --stats           at exit, print the live objects of every memory account\n"
    "                    (and the server locator's statistics when it was used)\n"
    "  --help, -h        this text; COMMAND --help tells about one command\n"
    "\n"
    "exit status: 0 every item succeeded, 1 at least one item failed, 2 usage error\n"
    "\n"
    "commands:\n";

void printUsage(std::ostream& os) {
    os << kGlobalUsage;
    for (const corvane::Command& command : corvane::commands()) {
        os << "  " << command.synopsis << "\n";
    }
}

void printStats(std::ostream& os) {
    corvane::Json stats = corvane::Json::object();
    for (const Tarvik::MemAccount::Snapshot& account : Tarvik::MemAccount::snapshot()) {
        stats.set(account.name, account.objects);
    }
    os << "stats " << stats.dump() << std::endl;
}

int usageError(const std::string& in_message) {
    std::cerr << "corvane-net: " << in_message << "\n"
              << "Try 'corvane-net --help'.\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    Tarvik::initializeLogging();
    corvane::CommandContext ctx;
    ctx.out = &std::cout;
    ctx.err = &std::cerr;
    bool stats = false;

    std::vector<std::string> args(argv + 1, argv + argc);
    size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            printUsage(std::cout);
            return 0;
        } else if (arg == "--json") {
            ctx.json = true;
        } else if (arg == "--stats") {
            stats = true;
        } else if (arg == "--log" || arg.rfind("--log=", 0) == 0) {
            std::string level;
            if (arg == "--log") {
                if (i + 1 >= args.size()) return usageError("--log needs a LEVEL");
                level = args[++i];
            } else {
                level = arg.substr(6);
            }
            int value = 0;
            if (!Tarvik::parseLogLevel(level, value)) {
                return usageError("unknown log level \"" + level +
                                  "\" (TRACE, DEBUG, INFO, WARN, ERROR, FATAL or OFF)");
            }
            Tarvik::setRootLogLevel(value);
        } else if (arg == "--set" || arg.rfind("--set=", 0) == 0) {
            std::string assignment;
            if (arg == "--set") {
                if (i + 1 >= args.size()) return usageError("--set needs NAME=VALUE");
                assignment = args[++i];
            } else {
                assignment = arg.substr(6);
            }
            const size_t eq = assignment.find('=');
            if (eq == std::string::npos || eq == 0) {
                return usageError("--set needs NAME=VALUE, not \"" + assignment + "\"");
            }
            std::string error;
            if (!Tarvik::GlobalConfig::getInstance().setValue(assignment.substr(0, eq),
                                                              assignment.substr(eq + 1), error)) {
                return usageError(error);
            }
        } else if (!arg.empty() && arg[0] == '-') {
            return usageError("unknown option " + arg);
        } else {
            break;
        }
    }
    if (i >= args.size()) {
        printUsage(std::cerr);
        return 2;
    }

    const std::string name = args[i];
    const std::vector<std::string> commandArgs(args.begin() + static_cast<long>(i) + 1, args.end());
    for (const corvane::Command& command : corvane::commands()) {
        if (name != command.name) continue;
        if (std::find(commandArgs.begin(), commandArgs.end(), "--help") != commandArgs.end() ||
            std::find(commandArgs.begin(), commandArgs.end(), "-h") != commandArgs.end()) {
            std::cout << "usage: corvane-net [GLOBAL OPTIONS] " << command.synopsis << "\n\n"
                      << command.help << "\n";
            return 0;
        }
        int status = 2;
        try {
            status = command.run(commandArgs, ctx);
        } catch (const corvane::UsageError& e) {
            std::cerr << "corvane-net " << command.name << ": " << e.what() << "\n"
                      << "usage: corvane-net [GLOBAL OPTIONS] " << command.synopsis << "\n";
            status = 2;
        }
        std::cout.flush();
        // Singletons go first, so the figures show what outlived them.
        Tarvik::SingletonRegistry::getInstance().teardown();
        if (stats) {
            printStats(std::cerr);
            if (!ctx.locatorStats.isNull()) std::cerr << "locator-stats " << ctx.locatorStats.dump() << std::endl;
        }
        return status;
    }
    return usageError("unknown command \"" + name + "\"");
}
