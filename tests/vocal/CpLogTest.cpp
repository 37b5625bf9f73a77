#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/LogCapture.h"
#include "vocal/cpLog.h"

using corvane_test::LogCapture;

namespace {

const int kTrace = 0;

TEST(CpLog, EachPriorityLogsAtItsLevelOnTheVocalLoggerAsCpLogCpp) {
    const int levels[] = {50000, 50000, 50000, 40000, 30000, 20000, 20000, 10000, 10000, 10000, 10000};
    for (int priority = 0; priority <= LOG_DEBUG_HB; ++priority) {
        LogCapture capture(kTrace);
        cpLog(priority, "Caller.cpp", 77, "priority %d of %s", priority, "eleven");
        const auto records = capture.records();
        ASSERT_EQ(records.size(), 1u) << priority;
        EXPECT_EQ(records[0].level, levels[priority]) << priority;
        EXPECT_EQ(records[0].logger, "corvane.media.vocal");
        EXPECT_EQ(records[0].message, "priority " + std::to_string(priority) + " of eleven");
        EXPECT_EQ(records[0].file, "cpLog.cpp");  // the caller's file is not reported
    }
}

TEST(CpLog, PrioritiesOutsideTheTableAreDropped) {
    LogCapture capture(kTrace);
    cpLog(11, "f", 1, "eleven");
    cpLog(-1, "f", 1, "negative");
    EXPECT_FALSE(cpLogIsEnabled(11));
    EXPECT_TRUE(capture.records().empty());
}

TEST(CpLog, LongMessagesAreCutTo4095Bytes) {
    LogCapture capture(kTrace);
    const std::string longText(5000, 'x');
    cpLog(LOG_INFO, "f", 1, "%s", longText.c_str());
    const auto messages = capture.messages("corvane.media.vocal");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], std::string(4095, 'x'));
}

TEST(CpLog, FollowsTheLoggerLevel) {
    LogCapture capture(20000);  // INFO and above
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG));
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG_STACK));
    EXPECT_TRUE(cpLogIsEnabled(LOG_NOTICE));
    cpLog(LOG_DEBUG, "f", 1, "hidden");
    cpLog(LOG_NOTICE, "f", 1, "shown");
    EXPECT_EQ(capture.messages("corvane.media.vocal"), std::vector<std::string>{"shown"});
}

TEST(CpLog, PriorityNameTablesAreIndexedByPriorityAndNullTerminated) {
    const char* const longNames[] = {"EMERG",  "ALERT", "CRIT",        "ERR",        "WARNING", "NOTICE",
                                     "INFO",   "DEBUG", "DEBUG_STACK", "DEBUG_OPER", "DEBUG_HB"};
    const char* const shortNames[] = {"EMRG", "ALRT", "CRIT", "ERR ", "WARN", "NOTC",
                                      "INFO", "DBUG", "DSTK", "DOP ", "DHB "};
    for (int i = 0; i <= LOG_DEBUG_HB; ++i) {
        EXPECT_STREQ(cpLogPriorityNames[i], longNames[i]);
        EXPECT_STREQ(cpLogPriorityShortNames[i], shortNames[i]);
        EXPECT_EQ(std::strlen(cpLogPriorityShortNames[i]), 4u);
    }
    EXPECT_EQ(cpLogPriorityNames[LOG_DEBUG_HB + 1], nullptr);
    EXPECT_EQ(cpLogPriorityShortNames[LOG_DEBUG_HB + 1], nullptr);
}

}  // namespace
