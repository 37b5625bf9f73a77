#include <gtest/gtest.h>

#include <log4cplus/logger.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/Logger.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using corvane_test::LogCapture;
using corvane_test::LogRecord;

namespace {

int g_iBuilt = 0;  // times a message expression was evaluated

const char* built() {
    ++g_iBuilt;
    return "built";
}

// Logs one message at the level through the macro of that level.
void logAt(const Logger& in_logger, int in_iLevel) {
    switch (in_iLevel) {
        case TRACE_LOG_LEVEL: CORVANE_TRACE(in_logger, built() << " " << in_iLevel); break;
        case DEBUG_LOG_LEVEL: CORVANE_DEBUG(in_logger, built() << " " << in_iLevel); break;
        case INFO_LOG_LEVEL: CORVANE_INFO(in_logger, built() << " " << in_iLevel); break;
        case WARN_LOG_LEVEL: CORVANE_WARN(in_logger, built() << " " << in_iLevel); break;
        case ERROR_LOG_LEVEL: CORVANE_ERROR(in_logger, built() << " " << in_iLevel); break;
        case FATAL_LOG_LEVEL: CORVANE_FATAL(in_logger, built() << " " << in_iLevel); break;
    }
}

std::vector<LogRecord> recordsOf(const LogCapture& in_capture, const std::string& in_logger) {
    std::vector<LogRecord> out;
    for (const LogRecord& record : in_capture.records())
        if (record.logger == in_logger) out.push_back(record);
    return out;
}

const int kMessageLevels[] = {TRACE_LOG_LEVEL, DEBUG_LOG_LEVEL, INFO_LOG_LEVEL,
                              WARN_LOG_LEVEL,  ERROR_LOG_LEVEL, FATAL_LOG_LEVEL};

}  // namespace

TEST(Logging, AncestorMadeWhileAChildLogsIsNoRace) {
    static int s_iRun = 0;  // names no earlier run in this process used
    const std::string base = "test.logging.Ancestor" + std::to_string(++s_iRun);
    EXPECT_FALSE(log4cplus::Logger::exists(base));
    const Logger& child = getLogger((base + ".inner.leaf").c_str());
    EXPECT_EQ(&getLogger((base + ".inner.leaf").c_str()), &child);  // one logger per name
    EXPECT_TRUE(log4cplus::Logger::exists(base));
    EXPECT_TRUE(log4cplus::Logger::exists(base + ".inner"));
    // Each level check walks the child's ancestors: asking for one of them
    // meanwhile must not re-link the child under the writer (ThreadSanitizer).
    std::atomic<bool> bAsked{false};
    std::thread writer([&child, &bAsked] {
        for (int i = 0; i < 100000 && !bAsked; ++i) CORVANE_DEBUG(child, "unseen");
    });
    EXPECT_EQ(getLogger((base + ".inner").c_str()).getName(), base + ".inner");
    bAsked = true;
    writer.join();
}

TEST(Logging, MessageIsBuiltOnlyWhenItsLevelIsEnabled) {
    const Logger& logger = getLogger("test.logging.Levels");
    for (int enabled : {TRACE_LOG_LEVEL, DEBUG_LOG_LEVEL, INFO_LOG_LEVEL, WARN_LOG_LEVEL, ERROR_LOG_LEVEL,
                        FATAL_LOG_LEVEL, OFF_LOG_LEVEL}) {
        LogCapture capture(enabled);
        for (int level : kMessageLevels) {
            SCOPED_TRACE(std::to_string(enabled) + " enabled, message at " + std::to_string(level));
            capture.clear();
            g_iBuilt = 0;
            logAt(logger, level);
            const bool bShown = level >= enabled;
            EXPECT_EQ(g_iBuilt, bShown ? 1 : 0);
            EXPECT_EQ(logger.isEnabledFor(level), bShown);
            const std::vector<LogRecord> records = recordsOf(capture, "test.logging.Levels");
            ASSERT_EQ(records.size(), bShown ? 1u : 0u);
            if (bShown) {
                EXPECT_EQ(records[0].level, level);
                EXPECT_EQ(records[0].message, "built " + std::to_string(level));
                EXPECT_EQ(records[0].file, __FILE__);
            }
        }
    }
}

TEST(Logging, TraceScopeLogsEnterAndExitAtTraceAroundItsMessages) {
    const Logger& logger = getLogger("test.logging.Scope");
    // Level in force when the scope opens and when it closes -> records of the logger.
    const struct {
        int atEntry;
        int atExit;
        std::vector<std::pair<int, std::string>> expected;
    } cases[] = {
        {TRACE_LOG_LEVEL, TRACE_LOG_LEVEL,
         {{TRACE_LOG_LEVEL, "ENTER Scoped::op"}, {DEBUG_LOG_LEVEL, "Scoped::op : inside"},
          {TRACE_LOG_LEVEL, "EXIT Scoped::op"}}},
        {DEBUG_LOG_LEVEL, DEBUG_LOG_LEVEL, {{DEBUG_LOG_LEVEL, "Scoped::op : inside"}}},
        // An EXIT always follows its ENTER, and never comes without one.
        {TRACE_LOG_LEVEL, INFO_LOG_LEVEL,
         {{TRACE_LOG_LEVEL, "ENTER Scoped::op"}, {DEBUG_LOG_LEVEL, "Scoped::op : inside"},
          {TRACE_LOG_LEVEL, "EXIT Scoped::op"}}},
        {INFO_LOG_LEVEL, TRACE_LOG_LEVEL, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.atEntry) + " -> " + std::to_string(c.atExit));
        LogCapture capture(c.atEntry);
        {
            CORVANE_TRACE_SCOPE(logger, "Scoped::op");
            EXPECT_STREQ(traceScope.getName(), "Scoped::op");
            CORVANE_DEBUG(logger, traceScope.getName() << " : inside");
            setRootLogLevel(c.atExit);
        }
        std::vector<std::pair<int, std::string>> got;
        for (const LogRecord& record : recordsOf(capture, "test.logging.Scope")) {
            got.emplace_back(record.level, record.message);
            EXPECT_EQ(record.file, __FILE__);
        }
        EXPECT_EQ(got, c.expected);
    }
}

TEST(Logging, LevelNamesParseToTheBackEndValues) {
    const struct {
        const char* text;
        bool ok;
        int level;
    } cases[] = {
        {"TRACE", true, 0},     {"DEBUG", true, 10000}, {"INFO", true, 20000},  {"WARN", true, 30000},
        {"ERROR", true, 40000}, {"FATAL", true, 50000}, {"OFF", true, 60000},   {"debug", false, 0},
        {"", false, 0},         {"WARNING", false, 0},  {" INFO", false, 0},    {"ALL", false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        int level = -1;
        EXPECT_EQ(parseLogLevel(c.text, level), c.ok);
        EXPECT_EQ(level, c.ok ? c.level : -1);
    }
}
