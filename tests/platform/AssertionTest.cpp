#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/Assertion.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using corvane_test::LogCapture;
using corvane_test::LogRecord;

namespace {

const char* const kLogger = "test.assertion.Caller";

std::vector<LogRecord> errorsOf(const LogCapture& in_capture) {
    std::vector<LogRecord> out;
    for (const LogRecord& record : in_capture.records())
        if (record.logger == kLogger && record.level == ERROR_LOG_LEVEL) out.push_back(record);
    return out;
}

}  // namespace

TEST(Assertion, DefaultReportIsOneErrorOnTheCallersLoggerAndTheCheckIsItsCondition) {
    const Logger& logger = getLogger(kLogger);
    for (bool cond : {true, false}) {
        SCOPED_TRACE(cond);
        LogCapture capture(DEBUG_LOG_LEVEL);
        int evaluations = 0;
        EXPECT_EQ(CORVANE_ASSERT(logger, (++evaluations, cond)), cond);
        EXPECT_EQ(evaluations, 1);
        const std::vector<LogRecord> errors = errorsOf(capture);
        ASSERT_EQ(errors.size(), cond ? 0u : 1u);
        if (!cond) {
            EXPECT_EQ(errors[0].message, "ASSERTION FAILED: (++evaluations, cond)");
            EXPECT_EQ(errors[0].file, __FILE__);
        }
    }
    LogCapture capture(DEBUG_LOG_LEVEL);
    CORVANE_NOT_IMPLEMENTED(logger, "x");
    const std::vector<LogRecord> errors = errorsOf(capture);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].message, "ASSERTION FAILED: Not implemented : x");
}

TEST(Assertion, HandlerReplacesTheDefaultReportAndCanBeRestored) {
    LogCapture capture(DEBUG_LOG_LEVEL);
    std::vector<AssertionReport> seen;
    Assertion::Handler previous = Assertion::setHandler([&](const AssertionReport& report) { seen.push_back(report); });
    const int line = __LINE__ + 1;
    CORVANE_ASSERT(getLogger(kLogger), 1 + 1 == 3);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].text, "1 + 1 == 3");
    EXPECT_EQ(seen[0].logger, kLogger);
    EXPECT_EQ(seen[0].file, __FILE__);
    EXPECT_EQ(seen[0].line, line);
    EXPECT_TRUE(errorsOf(capture).empty());

    // Swapping hands back the handler in force; an empty one restores the default.
    EXPECT_TRUE(static_cast<bool>(Assertion::setHandler(Assertion::Handler())));
    CORVANE_ASSERT(getLogger(kLogger), 2 < 1);
    EXPECT_EQ(seen.size(), 1u);
    ASSERT_EQ(errorsOf(capture).size(), 1u);
    EXPECT_EQ(errorsOf(capture)[0].message, "ASSERTION FAILED: 2 < 1");
    Assertion::setHandler(previous);
}

TEST(Assertion, ReportsFromManyThreadsWhileTheHandlerIsSwappedAreNeitherLostNorTorn) {
    std::atomic<int> counted{0};
    const auto counter = [&](const AssertionReport& report) {
        if (report.text == "false") ++counted;
    };
    Assertion::Handler previous = Assertion::setHandler(counter);
    LogCapture capture(OFF_LOG_LEVEL);
    std::atomic<bool> done{false};
    std::thread swapper([&] {
        while (!done) Assertion::setHandler(Assertion::setHandler(counter));
    });
    std::vector<std::thread> reporters;
    for (int t = 0; t < 4; ++t) {
        reporters.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) CORVANE_ASSERT(getLogger(kLogger), false);
        });
    }
    for (std::thread& r : reporters) r.join();
    done = true;
    swapper.join();
    Assertion::setHandler(previous);
    EXPECT_EQ(counted, 8000);
}
