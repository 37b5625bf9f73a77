#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/LogCapture.h"
#include "vocal/VException.h"
#include "vocal/cpLog.h"

using corvane_test::LogCapture;

namespace {

TEST(CpLog, EachPriorityLogsAtItsLevelOnTheVocalLoggerAndOthersAreDropped) {
    // priority, long and short name, level (-1: dropped)
    const struct {
        int priority;
        const char* name;
        const char* shortName;
        int level;
    } rows[] = {
        {0, "EMERG", "EMRG", 50000},       {1, "ALERT", "ALRT", 50000},       {2, "CRIT", "CRIT", 50000},
        {3, "ERR", "ERR ", 40000},         {4, "WARNING", "WARN", 30000},     {5, "NOTICE", "NOTC", 20000},
        {6, "INFO", "INFO", 20000},        {7, "DEBUG", "DBUG", 10000},       {8, "DEBUG_STACK", "DSTK", 10000},
        {9, "DEBUG_OPER", "DOP ", 10000},  {10, "DEBUG_HB", "DHB ", 10000},   {11, nullptr, nullptr, -1},
        {-1, nullptr, nullptr, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.priority);
        LogCapture capture(0);
        cpLog(row.priority, "Caller.cpp", 77, "priority %d of %s", row.priority, "eleven");
        const auto records = capture.records();
        if (row.priority >= 0) {
            EXPECT_STREQ(cpLogPriorityNames[row.priority], row.name);
            EXPECT_STREQ(cpLogPriorityShortNames[row.priority], row.shortName);
        }
        EXPECT_EQ(cpLogIsEnabled(row.priority), row.level >= 0);
        if (row.level < 0) {
            EXPECT_TRUE(records.empty());
            continue;
        }
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].level, row.level);
        EXPECT_EQ(records[0].logger, "corvane.media.vocal");
        EXPECT_EQ(records[0].message, "priority " + std::to_string(row.priority) + " of eleven");
        EXPECT_EQ(records[0].file, "cpLog.cpp");  // the caller's file is not reported
    }
}

TEST(CpLog, FollowsTheLoggerLevelAndCutsLongMessagesTo4095Bytes) {
    LogCapture capture(20000);  // INFO and above
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG_STACK));
    EXPECT_TRUE(cpLogIsEnabled(LOG_NOTICE));
    cpLog(LOG_DEBUG, "f", 1, "hidden");
    cpLog(LOG_NOTICE, "f", 1, "shown");
    cpLog(LOG_INFO, "f", 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(capture.messages("corvane.media.vocal"), (std::vector<std::string>{"shown", std::string(4095, 'x')}));
}

TEST(VException, ParserExceptionsNameTheirClassCarryTheCodeAndAreLogged) {
    LogCapture capture;
    const Vocal::SipUrlParserException sip("m1", "SipUrl.cpp", 10, 8);
    const Vocal::TelUrlParserException tel("m2", "TelUrl.cpp", 20, 8);
    const Vocal::ImpBaseUrlParserException imp("m3", "ImpBaseUrl.cpp", 30, 3);
    const Vocal::SipTelSubscriberUserParserException user("m4", "SipTelSubscriberUser.cpp", 40, 0);
    const std::pair<const VException*, const char*> rows[] = {{&sip, "SipUrlParserException"},
                                                              {&tel, "TelUrlParserException"},
                                                              {&imp, "ImpBaseUrlParserException"},
                                                              {&user, "SipTelSubscriberUserParserException"}};
    for (const auto& row : rows) EXPECT_EQ(row.first->getName(), row.second);
    EXPECT_EQ(imp.getDescription(), "m3");
    EXPECT_EQ(imp.getFileName(), "ImpBaseUrl.cpp");
    EXPECT_EQ(imp.getLine(), 30);
    EXPECT_EQ(imp.getError(), 3u);
    EXPECT_EQ(imp.getParserError(), 3u);
    EXPECT_TRUE(capture.contains(10000, "Exception at SipUrl.cpp:10 m1"));
    EXPECT_TRUE(capture.contains(10000, "Exception at SipTelSubscriberUser.cpp:40 m4"));
}

}  // namespace
