#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/Assertion.h"
#include "platform/Exception.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/ParameterInfoDB.h"
#include "platform/SingletonRegistry.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using corvane_test::LogCapture;

namespace {

// Records of one logger as "LEVEL message" lines.
std::vector<std::string> linesOf(const LogCapture& in_capture, const std::string& in_logger) {
    std::vector<std::string> lines;
    for (const corvane_test::LogRecord& record : in_capture.records()) {
        if (record.logger != in_logger) continue;
        lines.push_back(std::to_string(record.level) + " " + record.message);
        EXPECT_EQ(record.file, __FILE__);
    }
    return lines;
}

TEST(Assertion, DefaultReportIsOneErrorOnTheCallersLoggerUnlessAHandlerTakesIt) {
    const Logger& logger = getLogger("test.Assertion");
    LogCapture capture(DEBUG_LOG_LEVEL);
    int evaluations = 0;
    EXPECT_TRUE(CORVANE_ASSERT(logger, (++evaluations, true)));
    EXPECT_FALSE(CORVANE_ASSERT(logger, (++evaluations, false)));
    CORVANE_NOT_IMPLEMENTED(logger, "x");
    EXPECT_EQ(evaluations, 2);
    std::vector<std::string> seen;
    Assertion::Handler previous = Assertion::setHandler([&](const AssertionReport& in_report) {
        seen.push_back(in_report.text + " " + in_report.logger + " " + in_report.file + ":" +
                       std::to_string(in_report.line));
    });
    const int line = __LINE__ + 1;
    CORVANE_ASSERT(logger, 1 + 1 == 3);
    EXPECT_TRUE(static_cast<bool>(Assertion::setHandler(Assertion::Handler())));  // an empty one restores the default
    CORVANE_ASSERT(logger, 2 < 1);
    Assertion::setHandler(previous);
    EXPECT_EQ(linesOf(capture, "test.Assertion"),
              (std::vector<std::string>{"40000 ASSERTION FAILED: (++evaluations, false)",
                                        "40000 ASSERTION FAILED: Not implemented : x",
                                        "40000 ASSERTION FAILED: 2 < 1"}));
    EXPECT_EQ(seen, std::vector<std::string>{"1 + 1 == 3 test.Assertion " __FILE__ ":" + std::to_string(line)});
}

TEST(Logging, LevelNamesParseAndMessagesAndTraceScopesAreBuiltAndWrittenOnlyWhenTheirLevelIsEnabled) {
    const Logger& logger = getLogger("test.logging.Levels");
    EXPECT_EQ(&getLogger("test.logging.Levels"), &logger);  // one logger per name
    const std::pair<const char*, int> names[] = {{"TRACE", 0},     {"DEBUG", 10000}, {"INFO", 20000}, {"WARN", 30000},
                                                 {"ERROR", 40000}, {"FATAL", 50000}, {"OFF", 60000}};
    for (const auto& name : names) {
        SCOPED_TRACE(name.first);
        int enabled = -1, built = 0;
        EXPECT_TRUE(parseLogLevel(name.first, enabled));
        EXPECT_EQ(enabled, name.second);
        LogCapture capture(enabled);
        const auto build = [&built] { return ++built > 0 ? "built " : ""; };
        std::vector<std::string> written;
        {
            CORVANE_TRACE_SCOPE(logger, "Scoped::op");
            for (int level = TRACE_LOG_LEVEL; level <= FATAL_LOG_LEVEL; level += 10000) {
                CORVANE_LOG(logger, level, build() << level);
                if (level >= enabled) written.push_back(std::to_string(level) + " built " + std::to_string(level));
            }
            // An EXIT follows its ENTER whatever the level has become, and never comes without one.
            setRootLogLevel(enabled == TRACE_LOG_LEVEL ? OFF_LOG_LEVEL : TRACE_LOG_LEVEL);
        }
        EXPECT_EQ(built, static_cast<int>(written.size()));
        if (enabled == TRACE_LOG_LEVEL) {
            written.insert(written.begin(), "0 ENTER Scoped::op");
            written.push_back("0 EXIT Scoped::op");
        }
        EXPECT_EQ(linesOf(capture, "test.logging.Levels"), written);
    }
    int level = -1;
    for (const char* bad : {"debug", "", "WARNING", " INFO", "ALL"}) EXPECT_FALSE(parseLogLevel(bad, level)) << bad;
    EXPECT_EQ(level, -1);
    const Logger& child = getLogger("test.logging.Ancestor.inner.leaf");
    // An ancestor made while a child logs is no race: each level check walks the child's ancestors,
    // and asking for one of them meanwhile must not re-link the child under the writer (ThreadSanitizer).
    std::atomic<bool> bAsked{false};
    std::thread writer([&child, &bAsked] {
        for (int i = 0; i < 100000 && !bAsked; ++i) CORVANE_DEBUG(child, "unseen");
    });
    EXPECT_EQ(getLogger("test.logging.Ancestor.inner").getName(), "test.logging.Ancestor.inner");
    bAsked = true;
    writer.join();
}

TEST(GlobalConfig, ExplicitValuesOverDefaultsHeldHandlesAreSnapshotsAndBadValuesAreRefused) {
    ParameterInfoDB& db = ParameterInfoDB::getNonConstInstance();
    ParameterInfo info;
    if (!db.find("test.int", info)) {
        db.registerParameter("test.int", PARAM_TYPE_INTEGER, "3", false, false, false, "d");
        db.registerParameter("test.bool", PARAM_TYPE_BOOLEAN, nullptr, false, false, false, "d");
    }
    EXPECT_THROW(db.registerParameter("test.int", PARAM_TYPE_TEXT, nullptr, false, false, false, "again"),
                 Tarvik::Exception);
    GlobalConfig& config = GlobalConfig::getInstance();
    long value = -1;
    bool flag = true;
    std::string error;
    EXPECT_TRUE(config.getConfig()->getInteger("test.int", value) && value == 3);
    EXPECT_FALSE(config.getConfig()->getBoolean("test.bool", flag));  // no default
    ASSERT_TRUE(config.setValue("test.int", "-7", error) && config.setValue("test.bool", "false", error));
    TSHandle<ROConfiguration> held = config.getConfig();  // a snapshot
    ASSERT_TRUE(config.setValue("test.int", "9", error));
    EXPECT_TRUE(held->getInteger("test.int", value) && value == -7 && held->getBoolean("test.bool", flag) && !flag);
    EXPECT_TRUE(config.getConfig()->getInteger("test.int", value) && value == 9);
    for (const auto& bad : {std::pair<const char*, const char*>{"test.nope", "1"}, {"test.int", "abc"},
                            {"test.int", ""}, {"test.int", "12x"}, {"test.bool", "yes"}, {"test.bool", "TRUE"}}) {
        EXPECT_FALSE(config.setValue(bad.first, bad.second, error)) << bad.first << "=" << bad.second;
        EXPECT_NE(error.find(bad.first), std::string::npos) << error;
    }
    config.clearValue("test.int");
    EXPECT_TRUE(config.getConfig()->getInteger("test.int", value) && value == 3);
    config.clear();
}

// Deleters that say what they tear down, in the child process of the exit test.
template <char N>
void announce(void* in_p) {
    const bool bOlderThere = SingletonRegistry::getInstance().find("test.exit.A") != nullptr;
    std::fprintf(stderr, "deleted %c%s\n", N, N == 'C' && bOlderThere ? ", A still there" : "");
    delete static_cast<int*>(in_p);
}

TEST(SingletonRegistryDeathTest, TeardownRunsNewestFirstOnceEachAndAgainAtExit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SingletonRegistry& registry = SingletonRegistry::getInstance();
            registry.registerObject("test.exit.A", new int(1), announce<'A'>);
            registry.registerObject("test.exit.B", new int(2), announce<'B'>);
            registry.registerObject("test.exit.C", new int(3), announce<'C'>);
            registry.teardown();
            std::fprintf(stderr, "%s\n", registry.find("test.exit.A") == nullptr ? "empty" : "not empty");
            registry.teardown();  // nothing left to delete twice
            registry.registerObject("test.exit.D", new int(4), announce<'D'>);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^deleted C, A still there\ndeleted B\ndeleted A\nempty\ndeleted D\n$");
}

}  // namespace
