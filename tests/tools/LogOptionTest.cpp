// The command's --log option: records on standard error as
// "LEVEL logger - message", at the chosen level and above only.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/RunTool.h"

using corvane_test::runTool;

namespace {

std::vector<std::string> linesOf(const std::string& in_text) {
    std::vector<std::string> lines;
    std::istringstream in(in_text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool hasLine(const std::string& in_text, const std::string& in_line) {
    for (const std::string& line : linesOf(in_text)) {
        if (line == in_line) return true;
    }
    return false;
}

const std::regex kRecordStart("^(TRACE|DEBUG|INFO|WARN|ERROR|FATAL)( |$).*");
const std::regex kRecord("^(TRACE|DEBUG|INFO|WARN|ERROR|FATAL) [A-Za-z0-9_.:]+ - .*");

}  // namespace

TEST(LogOption, RecordsGoToStandardErrorAsLevelLoggerMessage) {
    const auto run = runTool({"--log", "DEBUG", "resolve", "127.0.0.1"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(hasLine(run.err, "DEBUG corvane.net.HostNameServer - HostNameServer::getHostByName : "
                                 "HostNameServer::getHostByName hostname=127.0.0.1 timeout=2000ms"))
        << run.err;
    int records = 0;
    for (const std::string& line : linesOf(run.err)) {
        if (!std::regex_match(line, kRecordStart)) continue;  // a continuation of a multi-line message
        ++records;
        EXPECT_TRUE(std::regex_match(line, kRecord)) << line;
        EXPECT_NE(line.rfind("TRACE ", 0), 0u) << "below the chosen level: " << line;
    }
    EXPECT_GT(records, 2);
    EXPECT_EQ(run.out.find("DEBUG "), std::string::npos) << "records on standard output: " << run.out;
}

TEST(LogOption, LevelChoosesWhichRecordsAppear) {
    const struct {
        std::vector<std::string> options;  // none: the default
        bool debug;          // DEBUG records expected
        bool trace;          // TRACE records expected
    } cases[] = {
        {{}, false, false},
        {{"--log", "WARN"}, false, false},
        {{"--log", "OFF"}, false, false},
        {{"--log", "DEBUG"}, true, false},
        {{"--log", "TRACE"}, true, true},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = c.options;
        SCOPED_TRACE(args.empty() ? "default" : args[1]);
        args.insert(args.end(), {"resolve", "127.0.0.1"});
        const auto run = runTool(args);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err.find("DEBUG corvane.net.HostNameServer - ") != std::string::npos, c.debug) << run.err;
        EXPECT_EQ(hasLine(run.err, "TRACE corvane.net.HostNameServer - ENTER HostNameServer::getHostByName"), c.trace);
        EXPECT_EQ(hasLine(run.err, "TRACE corvane.net.HostNameServer - EXIT HostNameServer::getHostByName"), c.trace);
    }
}

// A log4cplus properties file replaces the output (its own appender and layout)
// and sets levels per logger; --log, in either order, sets one level for all.
TEST(LogOption, ConfigFileSetsTheOutputAndLogLevelWins) {
    const std::string path = testing::TempDir() + "corvane-log-" + std::to_string(getpid()) + ".properties";
    std::ofstream(path) << "log4cplus.rootLogger=DEBUG, E\n"
                           "log4cplus.logger.corvane.net.HostNameServer=TRACE\n"
                           "log4cplus.appender.E=log4cplus::ConsoleAppender\n"
                           "log4cplus.appender.E.logToStdErr=true\n"
                           "log4cplus.appender.E.layout=log4cplus::PatternLayout\n"
                           "log4cplus.appender.E.layout.ConversionPattern=cfg %p %c - %m%n\n";
    const struct {
        std::vector<std::string> options;
        bool trace;  // the file's TRACE level of corvane.net.HostNameServer holds
    } cases[] = {
        {{"--log-config", path}, true},
        {{"--log-config", path, "--log", "DEBUG"}, false},
        {{"--log", "DEBUG", "--log-config", path}, false},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = c.options;
        SCOPED_TRACE(args.front());
        args.insert(args.end(), {"resolve", "127.0.0.1"});
        const auto run = runTool(args);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_TRUE(hasLine(run.err, "cfg DEBUG corvane.net - Succesfully initialized Net library")) << run.err;
        EXPECT_EQ(hasLine(run.err, "cfg TRACE corvane.net.HostNameServer - ENTER HostNameServer::getHostByName"),
                  c.trace)
            << run.err;
        EXPECT_FALSE(hasLine(run.err, "DEBUG corvane.net - Succesfully initialized Net library")) << "default output";
    }
    std::remove(path.c_str());
}
