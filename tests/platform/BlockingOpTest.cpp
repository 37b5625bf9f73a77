#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "platform/AddTimeoutToBlockingOpTask.h"
#include "platform/MemAccount.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using corvane_test::Gate;
using corvane_test::waitFor;
using Op = AddTimeoutToBlockingOpTask;

namespace {

class BlockingTask : public AddTimeoutToBlockingOpTask {
public:
    explicit BlockingTask(size_t in_uiThreads = 1) : AddTimeoutToBlockingOpTask("test.BlockingTask") {
        setNumThread(in_uiThreads);
    }
    ~BlockingTask() override {
        stop();
        waitUntilDone();
    }
    bool startAndWaitRunning() {
        return start() && waitFor([this] { return getTaskState() == Task::RUNNING; });
    }
    bool enqueue(ACE_Method_Request* in_pRequest, const char* in_szLabel) override {
        const bool bAccepted = AddTimeoutToBlockingOpTask::enqueue(in_pRequest, in_szLabel);
        if (bAccepted) ++accepted;
        return bAccepted;
    }
    std::atomic<int> accepted{0};
};

// A counted work (a leaked or early-freed one shows in the account): runs in_body, then delivers.
class ScriptedWork : public Op::Work<int> {
    CORVANE_STATIC_ALLOCATOR("test.BlockingOp.ScriptedWork")

public:
    enum Action { DELIVER_VALID, DELIVER_NOT_VALID, DELIVER_NOTHING, EXPIRE };
    ScriptedWork(Action in_action, int in_iValue, std::function<void()> in_body = {})
        : m_action(in_action), m_iValue(in_iValue), m_body(std::move(in_body)) {}
    bool doWork() override {
        if (m_body) m_body();
        if (m_action == EXPIRE) {
            getProducer().expire();
        } else if (m_action != DELIVER_NOTHING) {
            getProducer().deliver(m_iValue, m_action == DELIVER_VALID);
        }
        return true;
    }

private:
    const Action m_action;
    const int m_iValue;
    std::function<void()> m_body;
};

long liveWorks() { return ScriptedWork::getMemAccount().getLiveObjects(); }

ACE_Time_Value ms(long in_lMs) {
    ACE_Time_Value tv;
    tv.msec(in_lMs);
    return tv;
}

}  // namespace

TEST(BlockingOp, EachOutcomeOfAQueuedWork) {
    const struct {
        const char* what;
        ScriptedWork::Action action;
        bool blocked;  // waits for a gate opened after the call
        int sleepMs;
        long timeoutMs;  // -1: no limit; -2: a second less than the largest time value
        int expectedCode;
    } cases[] = {
        {"valid result", ScriptedWork::DELIVER_VALID, false, 0, 5000, Op::DOWORK_RESULT},
        {"no limit waits for a late result", ScriptedWork::DELIVER_VALID, false, 50, -1, Op::DOWORK_RESULT},
        {"result marked not valid", ScriptedWork::DELIVER_NOT_VALID, false, 0, 5000, Op::DOWORK_NO_RESULT},
        {"work ended without a result", ScriptedWork::DELIVER_NOTHING, false, 0, 5000, Op::DOWORK_NO_RESULT},
        {"deadline", ScriptedWork::DELIVER_VALID, true, 0, 30, Op::DOWORK_TIMEOUT},
        {"zero time-out and no result yet", ScriptedWork::DELIVER_VALID, true, 0, 0, Op::DOWORK_TIMEOUT},
        {"time-out near the largest time value", ScriptedWork::DELIVER_VALID, false, 20, -2, Op::DOWORK_RESULT},
        {"expired: the waiter waits out its deadline", ScriptedWork::EXPIRE, false, 0, 30, Op::DOWORK_TIMEOUT},
        {"expired without a deadline", ScriptedWork::EXPIRE, false, 0, -1, Op::DOWORK_TIMEOUT},
    };
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (bool bTake : {false, true}) {  // the result copied out, or handed to a function
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (bTake ? " (take)" : " (copy)"));
            Gate gate;
            int out = -1, takes = 0;
            const ACE_Time_Value timeout = c.timeoutMs == -1   ? ACE_Time_Value::max_time
                                           : c.timeoutMs == -2 ? ACE_Time_Value::max_time - ACE_Time_Value(1)
                                                               : ms(c.timeoutMs);
            auto* pWork = new ScriptedWork(c.action, 42, [&gate, c] {
                if (c.blocked) gate.wait(std::chrono::seconds(10));
                std::this_thread::sleep_for(std::chrono::milliseconds(c.sleepMs));
            });
            const int code =
                bTake ? task.doWorkAndTake<int>(pWork, [&](const int& in_value) { ++takes, out = in_value; }, timeout)
                      : task.doWork<int>(pWork, out, timeout);
            EXPECT_EQ(code, c.expectedCode);
            EXPECT_EQ(out, code == Op::DOWORK_RESULT ? 42 : -1);  // written only with a valid result
            if (bTake) {
                EXPECT_EQ(takes, code == Op::DOWORK_RESULT ? 1 : 0);
            }
            gate.open();
            EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
        }
    }
}

TEST(BlockingOp, DeadlineIsATimeoutWithTheSystemTextAtDebugAndTheWorkStillFinishes) {
    corvane_test::LogCapture capture(DEBUG_LOG_LEVEL);
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    Gate gate;
    std::atomic<int> finished{0};
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1, [&] { gate.wait(); ++finished; }),
                               out, ms(20)),
              Op::DOWORK_TIMEOUT);
    EXPECT_EQ(liveWorks(), 1);
    gate.open();  // delivers to a waiter that is gone
    ASSERT_TRUE(waitFor([] { return liveWorks() == 0; }));
    EXPECT_EQ(finished, 1);
    // The condition wait fails with ETIME, whose text says nothing of a time-out.
    const std::string expected = std::string("AddTimeoutToBlockingOpTask::doWork : ") + std::strerror(ETIME);
    size_t found = 0;
    for (const corvane_test::LogRecord& record : capture.records()) {
        if (record.logger == "corvane.thread.AddTimeoutToBlockingOpTask" && record.message == expected) {
            ++found;
            EXPECT_EQ(record.level, DEBUG_LOG_LEVEL);
        }
    }
    EXPECT_EQ(found, 1u);
}

TEST(BlockingOp, ResultThereBeforeOrAfterTheWorkEndsIsTaken) {
    class EarlyWork : public ScriptedWork {
    public:
        EarlyWork() : ScriptedWork(DELIVER_NOTHING, 0) { getProducer().deliver(5, true); }
    };
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (long timeoutMs : {0L, 20000L}) {  // no time to wait; a long wait nobody will signal again
        SCOPED_TRACE(timeoutMs);
        std::atomic<int> code{-1};
        int out = -1;
        std::thread waiter([&] { code = task.doWork<int>(new EarlyWork, out, ms(timeoutMs)); });
        EXPECT_TRUE(waitFor([&] { return code != -1; }));
        waiter.join();
        EXPECT_EQ(code, Op::DOWORK_RESULT);
        EXPECT_EQ(out, 5);
    }
    // A producer handed on keeps the waiter waiting after the work ends.
    class HandingWork : public ScriptedWork {
    public:
        explicit HandingWork(std::thread& io_helper) : ScriptedWork(DELIVER_NOTHING, 0), m_helper(io_helper) {}
        bool doWork() override {
            ResultProducer<int> copy(getProducer());
            m_helper = std::thread([copy] {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                copy.deliver(9, true);
            });
            return true;
        }
        std::thread& m_helper;
    };
    std::thread helper;
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new HandingWork(helper), out, ms(5000)), Op::DOWORK_RESULT);
    EXPECT_EQ(out, 9);
    if (helper.joinable()) helper.join();
    EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
}

TEST(BlockingOp, NullWorkAndRefusedQueueFail) {
    corvane_test::AssertCapture asserts;
    enum When { RUNNING, NEVER_STARTED, STOPPED };
    for (When when : {RUNNING, NEVER_STARTED, STOPPED}) {
        SCOPED_TRACE(when);
        BlockingTask task;
        if (when != NEVER_STARTED) {
            ASSERT_TRUE(task.startAndWaitRunning());
        }
        if (when == STOPPED) task.stop();
        int out = -1;
        ScriptedWork* pWork = when == RUNNING ? nullptr : new ScriptedWork(ScriptedWork::DELIVER_VALID, 1);
        EXPECT_EQ(task.doWork<int>(pWork, out, ms(5000)), Op::DOWORK_FAILED);
        EXPECT_EQ(liveWorks(), 0);  // a refused work is destroyed at once
        EXPECT_EQ(out, -1);
    }
    EXPECT_TRUE(asserts.contains("in_pNewWork != 0"));
}

TEST(BlockingOp, StopWakesAWaiterWhoseWorkWasDroppedWithNoResult) {
    BlockingTask task(1);
    ASSERT_TRUE(task.startAndWaitRunning());
    Gate gate;
    std::atomic<bool> blockerRunning{false};
    std::thread first([&] {
        int out = -1;
        task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1, [&] { blockerRunning = true, gate.wait(); }),
                         out, ms(10000));
    });
    ASSERT_TRUE(waitFor([&] { return blockerRunning.load(); }));
    std::atomic<int> code{-1};
    std::thread second([&] {
        int out = -1;
        code = task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 2), out, ms(10000));
    });
    ASSERT_TRUE(waitFor([&] { return task.accepted == 2; }));
    task.stop();
    second.join();
    EXPECT_EQ(code, Op::DOWORK_NO_RESULT);  // learnt at once, not at the deadline
    gate.open();
    first.join();
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(liveWorks(), 0);
}

TEST(BlockingOp, ManyWaitersWithMixedDeadlinesEachGetTheirOwnOutcome) {
    {
        BlockingTask task(2);
        ASSERT_TRUE(task.startAndWaitRunning());
        std::atomic<int> wrong{0}, results{0};
        std::vector<std::thread> callers;
        for (int t = 0; t < 6; ++t) {
            callers.emplace_back([&, t] {
                for (int i = 0; i < 60; ++i) {
                    const int value = t * 1000 + i;
                    int out = -1;
                    const int code = task.doWork<int>(
                        new ScriptedWork(ScriptedWork::DELIVER_VALID, value,
                                         [i] { std::this_thread::sleep_for(std::chrono::milliseconds(i % 3)); }),
                        out, ms(i % 2 ? 1 : 2000));
                    if (code == Op::DOWORK_RESULT) {
                        ++results;
                        if (out != value) ++wrong;
                    } else if (code != Op::DOWORK_TIMEOUT || out != -1) {
                        ++wrong;
                    }
                }
            });
        }
        for (std::thread& c : callers) c.join();
        EXPECT_EQ(wrong, 0);
        EXPECT_GE(results, 180);  // every caller with no real deadline got its result
    }
    EXPECT_EQ(liveWorks(), 0);
}
