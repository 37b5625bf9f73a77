// Assertion reports: the condition's text on the caller's logger, the call
// going on, and a handler that tests can swap.
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

// A guarded operation as the library writes them: it reports and goes on.
int guardedLength(const char* in_szText, int& io_iEvaluations) {
    static Logger& s_logger = getLogger(kLogger);
    if (!CORVANE_ASSERT(s_logger, (++io_iEvaluations, in_szText != 0))) return -1;
    return static_cast<int>(std::string(in_szText).size());
}

std::vector<LogRecord> errorsOf(const LogCapture& in_capture) {
    std::vector<LogRecord> out;
    for (const LogRecord& record : in_capture.records()) {
        if (record.logger == kLogger && record.level == ERROR_LOG_LEVEL) out.push_back(record);
    }
    return out;
}

}  // namespace

TEST(Assertion, FailedCheckIsAnErrorOnTheCallersLoggerAndTheCallGoesOn) {
    LogCapture capture(DEBUG_LOG_LEVEL);
    int evaluations = 0;
    EXPECT_EQ(guardedLength(nullptr, evaluations), -1);
    EXPECT_EQ(evaluations, 1);  // the condition is evaluated once
    const std::vector<LogRecord> errors = errorsOf(capture);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].message, "ASSERTION FAILED: (++io_iEvaluations, in_szText != 0)");
    EXPECT_EQ(errors[0].file, __FILE__);

    capture.clear();
    evaluations = 0;
    EXPECT_EQ(guardedLength("abc", evaluations), 3);
    EXPECT_EQ(evaluations, 1);
    EXPECT_TRUE(errorsOf(capture).empty());
}

TEST(Assertion, CheckEvaluatesToItsCondition) {
    corvane_test::AssertCapture asserts;
    const Logger& logger = getLogger(kLogger);
    const struct {
        bool cond;
        size_t reports;
    } cases[] = {{true, 0}, {false, 1}};
    for (const auto& c : cases) {
        asserts.clear();
        const bool flag = c.cond;
        EXPECT_EQ(CORVANE_ASSERT(logger, flag), c.cond);
        EXPECT_EQ(asserts.size(), c.reports);
    }
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"flag"});
}

TEST(Assertion, NotImplementedReportsItsText) {
    {
        corvane_test::AssertCapture asserts;
        CORVANE_NOT_IMPLEMENTED(getLogger(kLogger), "asynchronous frobnication");
        EXPECT_EQ(asserts.texts(), std::vector<std::string>{"Not implemented : asynchronous frobnication"});
    }
    LogCapture capture(DEBUG_LOG_LEVEL);
    CORVANE_NOT_IMPLEMENTED(getLogger(kLogger), "x");
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
    EXPECT_TRUE(errorsOf(capture).empty());  // the handler took the report instead of the log

    // Swapping hands back the handler in force; an empty one restores the default.
    Assertion::Handler mine = Assertion::setHandler(Assertion::Handler());
    EXPECT_TRUE(static_cast<bool>(mine));
    CORVANE_ASSERT(getLogger(kLogger), 2 < 1);
    EXPECT_EQ(seen.size(), 1u);
    ASSERT_EQ(errorsOf(capture).size(), 1u);
    EXPECT_EQ(errorsOf(capture)[0].message, "ASSERTION FAILED: 2 < 1");
    Assertion::setHandler(previous);
}

TEST(Assertion, ReportsFromManyThreadsWhileTheHandlerIsSwappedAreNeitherLostNorTorn) {
    std::atomic<int> counted{0};
    Assertion::Handler previous = Assertion::setHandler([&](const AssertionReport& report) {
        if (report.text == "false") ++counted;
    });
    LogCapture capture(OFF_LOG_LEVEL);  // reports that reach the default handler stay quiet
    std::atomic<bool> done{false};
    std::thread swapper([&] {
        // Swap back and forth between two handlers that count the same way.
        while (!done) {
            Assertion::Handler h = Assertion::setHandler([&](const AssertionReport& report) {
                if (report.text == "false") ++counted;
            });
            Assertion::setHandler(std::move(h));
        }
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
