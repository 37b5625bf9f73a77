// The blocking call with a time-out: each outcome code, the deadline told
// from a failure, and a work that outlives its waiter still finishing and
// being freed.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
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

namespace {

using Op = AddTimeoutToBlockingOpTask;

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

    std::atomic<int> accepted{0};  // requests the queue took
};

// A work whose behaviour the test chooses; its objects are counted, so a
// leaked or early-freed work shows in the account.
class ScriptedWork : public Op::Work<int> {
    CORVANE_STATIC_ALLOCATOR("test.BlockingOp.ScriptedWork")

public:
    enum Action { DELIVER_VALID, DELIVER_NOT_VALID, DELIVER_NOTHING };

    ScriptedWork(Action in_action, int in_iValue, Gate* in_pGate = nullptr, int in_iSleepMs = 0)
        : m_action(in_action), m_iValue(in_iValue), m_pGate(in_pGate), m_iSleepMs(in_iSleepMs) {}

    bool doWork() override {
        if (m_pGate) m_pGate->wait(std::chrono::seconds(10));
        if (m_iSleepMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(m_iSleepMs));
        if (m_action == DELIVER_VALID) getProducer().deliver(m_iValue, true);
        if (m_action == DELIVER_NOT_VALID) getProducer().deliver(m_iValue, false);
        return true;
    }

private:
    const Action m_action;
    const int m_iValue;
    Gate* const m_pGate;   // waited for before acting, when set
    const int m_iSleepMs;  // slept before acting
};

long liveWorks() { return ScriptedWork::getMemAccount().getLiveObjects(); }

ACE_Time_Value ms(long in_lMs) {
    ACE_Time_Value tv;
    tv.msec(in_lMs);
    return tv;
}

const char* const kOpLogger = "corvane.thread.AddTimeoutToBlockingOpTask";

}  // namespace

TEST(BlockingOp, EachOutcomeOfAQueuedWork) {
    const struct {
        const char* what;
        ScriptedWork::Action action;
        bool blocked;      // the work waits for a gate the test opens afterwards
        int sleepMs;       // the work sleeps before acting
        long timeoutMs;    // negative: ACE_Time_Value::max_time
        int expectedCode;
    } cases[] = {
        {"valid result", ScriptedWork::DELIVER_VALID, false, 0, 5000, Op::DOWORK_RESULT},
        {"no limit waits for a late result", ScriptedWork::DELIVER_VALID, false, 50, -1, Op::DOWORK_RESULT},
        {"result marked not valid", ScriptedWork::DELIVER_NOT_VALID, false, 0, 5000, Op::DOWORK_NO_RESULT},
        {"work ended without a result", ScriptedWork::DELIVER_NOTHING, false, 0, 5000, Op::DOWORK_NO_RESULT},
        {"deadline", ScriptedWork::DELIVER_VALID, true, 0, 30, Op::DOWORK_TIMEOUT},
        {"zero time-out and no result yet", ScriptedWork::DELIVER_VALID, true, 0, 0, Op::DOWORK_TIMEOUT},
    };
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    // Both forms: the result copied out, and the result handed to a function.
    for (bool bTake : {false, true}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (bTake ? " (take)" : " (copy)"));
            Gate gate;
            int out = -1;
            int takes = 0;
            const ACE_Time_Value timeout = c.timeoutMs < 0 ? ACE_Time_Value::max_time : ms(c.timeoutMs);
            ScriptedWork* pWork = new ScriptedWork(c.action, 42, c.blocked ? &gate : nullptr, c.sleepMs);
            const int code = bTake ? task.doWorkAndTake<int>(pWork,
                                                             [&](const int& in_value) {
                                                                 ++takes;
                                                                 out = in_value;
                                                             },
                                                             timeout)
                                   : task.doWork<int>(pWork, out, timeout);
            EXPECT_EQ(code, c.expectedCode);
            // The caller's variable is written only with a valid result.
            EXPECT_EQ(out, code == Op::DOWORK_RESULT ? 42 : -1);
            if (bTake) {
                EXPECT_EQ(takes, code == Op::DOWORK_RESULT ? 1 : 0);
            }
            gate.open();
            EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
        }
    }
}

TEST(BlockingOp, DeadlineIsReportedAsATimeoutWithTheSystemTextAtDebug) {
    corvane_test::LogCapture capture(DEBUG_LOG_LEVEL);
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    Gate gate;
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1, &gate), out, ms(20)),
              Op::DOWORK_TIMEOUT);
    gate.open();
    ASSERT_TRUE(waitFor([] { return liveWorks() == 0; }));
    // The condition wait fails with ETIME, whose text says nothing of a time-out.
    const std::string expected = std::string("AddTimeoutToBlockingOpTask::doWork : ") + std::strerror(ETIME);
    size_t found = 0;
    for (const corvane_test::LogRecord& record : capture.records()) {
        if (record.logger == kOpLogger && record.message == expected) {
            ++found;
            EXPECT_EQ(record.level, DEBUG_LOG_LEVEL);
        }
    }
    EXPECT_EQ(found, 1u);
}

TEST(BlockingOp, WorkThatOutlivesItsWaiterStillFinishesAndIsFreed) {
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    Gate gate;
    std::atomic<int> finished{0};
    class NotingWork : public ScriptedWork {
    public:
        NotingWork(Gate& in_gate, std::atomic<int>& io_finished)
            : ScriptedWork(DELIVER_VALID, 7, &in_gate), m_finished(io_finished) {}
        bool doWork() override {
            const bool bDone = ScriptedWork::doWork();  // delivers to a waiter that is gone
            ++m_finished;
            return bDone;
        }

    private:
        std::atomic<int>& m_finished;
    };
    {
        int out = -1;
        EXPECT_EQ(task.doWork<int>(new NotingWork(gate, finished), out, ms(10)), Op::DOWORK_TIMEOUT);
    }
    EXPECT_EQ(liveWorks(), 1);
    gate.open();
    ASSERT_TRUE(waitFor([] { return liveWorks() == 0; }));
    EXPECT_EQ(finished, 1);
}

TEST(BlockingOp, ResultAlreadyThereIsTakenWithoutWaiting) {
    class EarlyWork : public ScriptedWork {
    public:
        EarlyWork() : ScriptedWork(DELIVER_NOTHING, 0) { getProducer().deliver(5, true); }
    };
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    int out = -1;
    // Even with no time to wait at all, a result that is there is a result.
    EXPECT_EQ(task.doWork<int>(new EarlyWork, out, ACE_Time_Value::zero), Op::DOWORK_RESULT);
    EXPECT_EQ(out, 5);

    // With a long time-out the call must not sit on a condition nobody will signal again.
    std::atomic<int> code{-1};
    std::thread waiter([&] {
        int late = -1;
        code = task.doWork<int>(new EarlyWork, late, ms(20000));
    });
    EXPECT_TRUE(waitFor([&] { return code != -1; }, std::chrono::seconds(5)));
    waiter.join();
    EXPECT_EQ(code, Op::DOWORK_RESULT);
    EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
}

TEST(BlockingOp, ProducerHandedOnKeepsTheWaiterWaitingAfterTheWorkEnds) {
    std::thread helper;
    class HandingWork : public ScriptedWork {
    public:
        explicit HandingWork(std::thread& io_helper) : ScriptedWork(DELIVER_NOTHING, 0), m_helper(io_helper) {}
        bool doWork() override {
            ResultProducer<int> copy(getProducer());
            m_helper = std::thread([copy] {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                copy.deliver(9, true);
            });
            return true;  // ends without delivering; the copy delivers later
        }

    private:
        std::thread& m_helper;
    };
    BlockingTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new HandingWork(helper), out, ms(5000)), Op::DOWORK_RESULT);
    EXPECT_EQ(out, 9);
    if (helper.joinable()) helper.join();
}

TEST(BlockingOp, NullWorkAndRefusedQueueFail) {
    corvane_test::AssertCapture asserts;
    {
        BlockingTask task;
        ASSERT_TRUE(task.startAndWaitRunning());
        int out = -1;
        EXPECT_EQ(task.doWork<int>(nullptr, out, ms(1000)), Op::DOWORK_FAILED);
        EXPECT_TRUE(asserts.contains("in_pNewWork != 0"));
        EXPECT_EQ(out, -1);
    }
    enum When { NEVER_STARTED, STOPPED };
    for (When when : {NEVER_STARTED, STOPPED}) {
        SCOPED_TRACE(when);
        BlockingTask task;
        if (when == STOPPED) {
            ASSERT_TRUE(task.startAndWaitRunning());
            task.stop();
        }
        int out = -1;
        EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1), out, ms(5000)),
                  Op::DOWORK_FAILED);
        EXPECT_EQ(liveWorks(), 0);  // the refused work was destroyed at once
        EXPECT_EQ(out, -1);
    }
}

TEST(BlockingOp, StopWakesAWaiterWhoseWorkWasDroppedWithNoResult) {
    BlockingTask task(1);
    ASSERT_TRUE(task.startAndWaitRunning());
    Gate gate;
    std::atomic<bool> blockerRunning{false};
    class RunningWork : public ScriptedWork {
    public:
        RunningWork(Gate& in_gate, std::atomic<bool>& io_running)
            : ScriptedWork(DELIVER_VALID, 1, &in_gate), m_running(io_running) {}
        bool doWork() override {
            m_running = true;
            return ScriptedWork::doWork();
        }

    private:
        std::atomic<bool>& m_running;
    };
    std::thread first([&] {
        int out = -1;
        task.doWork<int>(new RunningWork(gate, blockerRunning), out, ms(10000));
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
    // The queued work was destroyed, so its waiter learns at once that no result will come.
    EXPECT_EQ(code, Op::DOWORK_NO_RESULT);
    gate.open();
    first.join();
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(liveWorks(), 0);
}

TEST(BlockingOp, ManyWaitersWithMixedDeadlinesEachGetTheirOwnOutcome) {
    {
        BlockingTask task(2);
        ASSERT_TRUE(task.startAndWaitRunning());
        std::atomic<int> wrong{0};
        std::atomic<int> results{0};
        std::vector<std::thread> callers;
        for (int t = 0; t < 6; ++t) {
            callers.emplace_back([&, t] {
                for (int i = 0; i < 60; ++i) {
                    const int value = t * 1000 + i;
                    int out = -1;
                    const int code = task.doWork<int>(
                        new ScriptedWork(ScriptedWork::DELIVER_VALID, value, nullptr, i % 3), out,
                        ms(i % 2 ? 1 : 2000));
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
        EXPECT_GE(results, 180);  // every caller that had no real deadline got its result
    }
    EXPECT_EQ(liveWorks(), 0);
}
