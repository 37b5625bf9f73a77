// corvane-net: the library's command-line front end.
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include "Command.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/MemAccount.h"
#include "platform/SingletonRegistry.h"

namespace {

const char* const kDescription =
    "corvane-net asks the corvane-net library what it knows: it decodes SIP, TEL, IM and\n"
    "presence URLs, fills and canonicalises URIs, resolves names through the library's\n"
    "resolver, locates SIP servers (RFC 3263), and shows this host's names, addresses,\n"
    "routes, free ports, DNS servers and configuration parameters. Global options go\n"
    "before the COMMAND; --json makes its output one JSON object per line, for scripts.";

const char* const kFooter =
    "Exit status: 0 when every item succeeded, 1 when at least one item failed, 2 for a\n"
    "usage error. An item given as - is read from standard input, one a line.\n"
    "'corvane-net COMMAND --help' tells about one command.";

// The global options, as parsed.
struct GlobalOptions {
    std::vector<std::string> settings;  // --set NAME=VALUE, in the order given
    std::string logLevel;               // --log LEVEL; empty when not given
    std::string logConfig;              // --log-config FILE; empty when not given
    bool json = false;                  // --json
    bool stats = false;                 // --stats
};

void declareGlobalOptions(CLI::App& io_app, GlobalOptions& out_options) {
    io_app.set_help_flag("-h,--help", "this text");
    io_app.set_version_flag("--version", std::string("corvane-net ") + CORVANE_VERSION, "the project's version");
    io_app.add_option("--set", out_options.settings,
                      "set a configuration parameter (repeatable), e.g.\n"
                      "corvane.net.HostNameServer.cacheSuccess=true")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false)
        ->check(CLI::Validator(
            [](std::string& io_text) -> std::string {
                const size_t eq = io_text.find('=');
                return eq == std::string::npos || eq == 0 ? "needs NAME=VALUE, not \"" + io_text + "\"" : "";
            },
            "", "assignment"));
    io_app.add_option("--log", out_options.logLevel,
                      "log to standard error at LEVEL and above (TRACE, DEBUG,\n"
                      "INFO, WARN, ERROR, FATAL, OFF; default WARN)")
        ->type_name("LEVEL")
        ->check(CLI::Validator(
            [](std::string& io_text) -> std::string {
                int level = 0;
                return Tarvik::parseLogLevel(io_text, level)
                           ? ""
                           : "unknown log level \"" + io_text + "\" (TRACE, DEBUG, INFO, WARN, ERROR, FATAL or OFF)";
            },
            "", "level"));
    io_app.add_option("--log-config", out_options.logConfig,
                      "configure logging from a log4cplus properties file;\n"
                      "--log, when also given, sets the level and wins")
        ->type_name("FILE")
        ->check(CLI::Validator(CLI::ExistingFile).description(""));
    io_app.add_flag("--json", out_options.json, "one JSON object per line on standard output");
    io_app.add_flag("--stats", out_options.stats,
                    "at exit, print the live objects of every memory account,\n"
                    "and the server locator's statistics when it was used");
}

// Applies the logging options: the file first, then the level, which wins over
// every level the file set.
void applyLogging(const GlobalOptions& in_options) {
    if (!in_options.logConfig.empty()) {
        log4cplus::PropertyConfigurator::doConfigure(LOG4CPLUS_STRING_TO_TSTRING(in_options.logConfig));
    }
    if (in_options.logLevel.empty()) return;
    int level = 0;
    Tarvik::parseLogLevel(in_options.logLevel, level);
    if (!in_options.logConfig.empty()) {
        for (log4cplus::Logger& logger : log4cplus::Logger::getCurrentLoggers()) {
            logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
        }
    }
    Tarvik::setRootLogLevel(level);
}

// True when a parse error is about one of the global options (CLI11 names the
// option first), which a command's usage would not explain.
bool isAboutGlobalOption(const CLI::App& in_app, const std::string& in_message) {
    for (const CLI::Option* pOption : in_app.get_options()) {
        if (in_message.rfind(pOption->get_name() + ":", 0) == 0) return true;
    }
    return false;
}

int usageError(const std::string& in_where, const std::string& in_message) {
    std::cerr << in_where << ": " << in_message << "\n"
              << "Try '" << in_where << " --help'.\n";
    return 2;
}

void printStats(std::ostream& os) {
    corvane::Json stats = corvane::Json::object();
    for (const Tarvik::MemAccount::Snapshot& account : Tarvik::MemAccount::snapshot()) {
        stats[account.name] = account.objects;
    }
    os << "stats " << corvane::dumpJson(stats) << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    Tarvik::initializeLogging();
    CLI::App app(kDescription, "corvane-net");
    auto formatter = std::make_shared<CLI::Formatter>();
    formatter->label("SUBCOMMAND", "COMMAND");
    formatter->column_width(26);
    app.formatter(formatter);
    app.footer(kFooter);
    app.require_subcommand(1);

    GlobalOptions options;
    declareGlobalOptions(app, options);
    std::vector<std::pair<CLI::App*, corvane::CommandRun>> declared;
    for (const corvane::Command& command : corvane::commands()) {
        CLI::App* pSub = app.add_subcommand(command.name, command.summary);
        pSub->group("Commands");
        pSub->set_help_flag("-h,--help", "this text");
        pSub->footer(command.help);
        declared.emplace_back(pSub, command.declare(*pSub));
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::CallForVersion& e) {
        std::cout << e.what() << "\n";
        return 0;
    } catch (const CLI::ParseError& e) {
        if (argc == 1) {
            std::cerr << app.help();
            return 2;
        }
        const std::string message = e.what();
        const std::vector<CLI::App*> chosen = app.get_subcommands();
        if (!chosen.empty() && !isAboutGlobalOption(app, message)) {
            return usageError("corvane-net " + chosen[0]->get_name(), message);
        }
        if (chosen.empty() && !app.remaining().empty()) {
            const std::string first = app.remaining()[0];
            return usageError("corvane-net", first[0] == '-' ? "unknown option " + first
                                                             : "unknown command \"" + first + "\"");
        }
        if (chosen.empty() && dynamic_cast<const CLI::RequiredError*>(&e) != nullptr) {
            return usageError("corvane-net", "a COMMAND is required");
        }
        return usageError("corvane-net", message);
    }

    applyLogging(options);
    for (const std::string& setting : options.settings) {
        const size_t eq = setting.find('=');
        std::string error;
        if (!Tarvik::GlobalConfig::getInstance().setValue(setting.substr(0, eq), setting.substr(eq + 1), error)) {
            return usageError("corvane-net", error);
        }
    }

    corvane::CommandContext ctx;
    ctx.json = options.json;
    ctx.out = &std::cout;
    ctx.err = &std::cerr;
    int status = 2;
    for (const auto& entry : declared) {
        if (!entry.first->parsed()) continue;
        try {
            status = entry.second(ctx);
        } catch (const corvane::UsageError& e) {
            status = usageError("corvane-net " + entry.first->get_name(), e.what());
        }
    }
    std::cout.flush();
    // Singletons go first, so the figures show what outlived them.
    Tarvik::SingletonRegistry::getInstance().teardown();
    if (options.stats) {
        printStats(std::cerr);
        if (!ctx.locatorStats.is_null()) std::cerr << "locator-stats " << corvane::dumpJson(ctx.locatorStats) << std::endl;
    }
    return status;
}
