#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/AddTimeoutToBlockingOpTask.h"
#include "platform/MemAccount.h"
#include "platform/SharedTaskImpl.h"
#include "platform/Thread.h"
#include "support/LogCapture.h"
#include "support/BoundedWait.h"

using namespace Tarvik;
using namespace std::chrono_literals;
using corvane_test::Gate;
using corvane_test::waitFor;
using Op = AddTimeoutToBlockingOpTask;

namespace {

struct Counts {
    std::atomic<int> ran{0}, cancelled{0}, destroyed{0};
};

// A request, or a timer's processor, that counts itself and runs a body.
class Job : public ACE_Method_Request, public TimeoutProcessor {
public:
    explicit Job(Counts& io_counts, std::function<void()> in_body = {}) : m_counts(io_counts), m_body(in_body) {}
    ~Job() override { ++m_counts.destroyed; }
    int call() override {
        if (m_body) m_body();
        ++m_counts.ran;
        return 0;
    }
    bool handleTimeout(const TimeoutData*) override { return call() == 0; }
    bool handleCancel(const TimeoutData*) override { return ++m_counts.cancelled > 0; }
    bool handleReschedule(const TimeoutData*) override { return true; }

private:
    Counts& m_counts;
    std::function<void()> m_body;
};

// A pool with a timer thread and blocking work that counts its hooks; stopped and joined before its parts go.
class TestTask : public AddTimeoutToBlockingOpTask {
public:
    explicit TestTask(size_t in_uiThreads = 1) : AddTimeoutToBlockingOpTask("test.Task") {
        setNumThread(in_uiThreads);
    }
    ~TestTask() override {
        stop();
        waitUntilDone();
    }
    bool startAndWaitRunning() { return start() && waitFor([this] { return getTaskState() == Task::RUNNING; }); }
    using AddTimeoutToBlockingOpTask::waitForEndOfRun;
    long after(Job* in_pJob, long in_lMs, long in_lIntervalMs = 0) {
        return scheduleTimerImpl(in_pJob, nullptr, ACE_Time_Value(0, in_lMs * 1000),
                                 ACE_Time_Value(0, in_lIntervalMs * 1000), 0, false);
    }

    std::atomic<int> entries{0}, exits{0};
    std::function<void()> entryBody, exitBody;  // run inside the hooks

protected:
    void onSvcEntry() override {
        ++entries;
        if (entryBody) entryBody();
        AddTimeoutToBlockingOpTask::onSvcEntry();
    }
    void onSvcExit() override {
        ++exits;
        if (exitBody) exitBody();
    }
};

const long kHour = 3600L * 1000;

TEST(Task, StartThatCannotMakeAThreadIsUndoneAndARestartWithoutWaitingJoinsTheRunBeforeAsStopRacesWork) {
    Counts requests, timers;
    TestTask task(4);
    EXPECT_FALSE(task.setNumThread(0));
    EXPECT_FALSE(task.configure(TSHandle<ROConfiguration>()));
    // Threads made before the refusal (the timer thread first) -> the error logged.
    const std::pair<int, std::string> faults[] = {
        {0, "TaskWithTimersImpl::startServices : test.Task : cannot make the timer thread : "},
        {2, "StaticReactorTaskImpl::start : test.Task : cannot make a thread (3 missing) : "}};
    for (const auto& fault : faults) {
        corvane_test::LogCapture capture;
        std::atomic<int> attempts{0};
        setThreadCreationFaultForTest([&] { return attempts++ >= fault.first; });
        const bool bStarted = task.start();
        setThreadCreationFaultForTest({});
        ASSERT_FALSE(bStarted);  // else the wait below would not end
        ASSERT_TRUE(task.waitUntilDone());
        EXPECT_EQ(task.getTaskState(), Task::STOPPED_STATE);
        EXPECT_TRUE(capture.contains(ERROR_LOG_LEVEL, fault.second + std::strerror(EAGAIN))) << fault.second;
    }
    EXPECT_EQ(task.exits, 1);  // the last thread out of a partial start runs the exit hook
    for (int run = 1; run <= 3; ++run) {
        ASSERT_TRUE(task.startAndWaitRunning());
        EXPECT_FALSE(task.start());  // already running
        EXPECT_FALSE(task.setNumThread(2));
        EXPECT_EQ(task.exits, run);  // the run before ended before this one began
        // Producers race the stop that ends the run; some timers are periodic, refiring until then.
        const int requestsBefore = requests.ran, timersBefore = timers.ran;
        std::vector<std::thread> producers;
        for (int p = 0; p < 4; ++p) {
            producers.emplace_back([&, p] {
                for (int i = 0; i < 300; ++i) {
                    if (p % 2 == 0) task.enqueue(new Job(requests), "race");
                    if (p % 2 == 1) task.after(new Job(timers), i % 3, i % 7 == 0 ? 1 : 0);
                }
            });
        }
        ASSERT_TRUE(waitFor([&] { return requests.ran > requestsBefore && timers.ran > timersBefore; }));
        task.stop();  // the next start comes without a wait
        for (std::thread& t : producers) t.join();
    }
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(task.exits, 4);
    EXPECT_EQ(task.getTaskState(), Task::STOPPED_STATE);
    EXPECT_EQ(requests.destroyed + timers.destroyed, 3600);  // each exactly once
}

TEST(Task, StopDuringTheEntryHookIsNotUndoneByIt) {
    Gate entryGate, exitGate;
    TestTask task(2);
    task.entryBody = [&] { entryGate.wait(); };
    task.exitBody = [&] { exitGate.wait(); };
    ASSERT_TRUE(task.start());
    ASSERT_TRUE(waitFor([&] { return task.entries == 1; }));
    task.stop();
    entryGate.open();  // the entry hook now declares the task ready
    ASSERT_TRUE(waitFor([&] { return task.exits == 1; }));  // in the exit hook
    EXPECT_EQ(task.getTaskState(), Task::STOPPING_STATE);
    exitGate.open();
    ASSERT_TRUE(task.waitUntilDone());
}

// A work that waits for its gate, if any, then delivers or not; counted, so that a leaked one shows.
struct ScriptedWork : Op::Work<int> {
    CORVANE_STATIC_ALLOCATOR("test.BlockingOp.ScriptedWork")

    enum Action { DELIVER_VALID, DELIVER_NOT_VALID, DELIVER_NOTHING, EXPIRE, DELIVERED_BEFORE };
    explicit ScriptedWork(Action in_action, Gate* in_pGate = nullptr) : action(in_action), pGate(in_pGate) {}
    bool doWork() override {
        if (pGate != nullptr) pGate->wait(10s);
        if (action == EXPIRE) getProducer().expire();
        if (action <= DELIVER_NOT_VALID) getProducer().deliver(42, action == DELIVER_VALID);
        return true;
    }
    const Action action;
    Gate* const pGate;
};

long liveWorks() { return ScriptedWork::getMemAccount().getLiveObjects(); }

TEST(BlockingOp, EachOutcomeOfAQueuedWork) {
    const ACE_Time_Value kNoLimit = ACE_Time_Value::max_time, k30ms(0, 30000), k5s(5);
    const struct {
        const char* what;
        ScriptedWork::Action action;
        bool blocked;  // waits for a gate opened after the call
        ACE_Time_Value timeout;
        int expectedCode;
    } cases[] = {
        {"valid result", ScriptedWork::DELIVER_VALID, false, k5s, Op::DOWORK_RESULT},
        {"no limit", ScriptedWork::DELIVER_VALID, false, kNoLimit, Op::DOWORK_RESULT},
        {"result marked not valid", ScriptedWork::DELIVER_NOT_VALID, false, k5s, Op::DOWORK_NO_RESULT},
        {"work ended without a result", ScriptedWork::DELIVER_NOTHING, false, k5s, Op::DOWORK_NO_RESULT},
        {"deadline", ScriptedWork::DELIVER_VALID, true, k30ms, Op::DOWORK_TIMEOUT},
        {"near the largest time value", ScriptedWork::DELIVER_VALID, false, kNoLimit - k5s, Op::DOWORK_RESULT},
        {"expired: the waiter waits out its deadline", ScriptedWork::EXPIRE, false, k30ms, Op::DOWORK_TIMEOUT},
        {"expired without a deadline", ScriptedWork::EXPIRE, false, kNoLimit, Op::DOWORK_TIMEOUT},
        {"result there before the wait", ScriptedWork::DELIVERED_BEFORE, false, ACE_Time_Value(), Op::DOWORK_RESULT},
    };
    TestTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        corvane_test::LogCapture capture;
        Gate gate;
        int out = -1;
        auto* pWork = new ScriptedWork(c.action, c.blocked ? &gate : nullptr);
        if (c.action == ScriptedWork::DELIVERED_BEFORE) pWork->getProducer().deliver(42, true);
        const int code = task.doWork<int>(pWork, out, c.timeout);
        EXPECT_EQ(code, c.expectedCode);
        EXPECT_EQ(out, code == Op::DOWORK_RESULT ? 42 : -1);  // written only with a valid result
        // A wait ended by its deadline fails with ETIME, whose text says nothing of a time-out.
        const std::string etime = std::string("AddTimeoutToBlockingOpTask::doWork : ") + std::strerror(ETIME);
        EXPECT_EQ(capture.contains(DEBUG_LOG_LEVEL, etime), code == Op::DOWORK_TIMEOUT && c.timeout != kNoLimit);
        gate.open();  // a blocked work still finishes, delivering to a waiter that is gone
        EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
    }
}

TEST(Task, StopDropsQueuedWorkWakesItsWaiterAndRefusesLaterWork) {
    corvane_test::LogCapture capture;
    Counts blocker, queued, refused;
    Gate gate;
    TestTask task(1);
    const ACE_Time_Value limit(10);
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID), out, limit), Op::DOWORK_FAILED);
    ASSERT_TRUE(task.startAndWaitRunning());
    EXPECT_EQ(task.doWork<int>(nullptr, out, limit), Op::DOWORK_FAILED);
    EXPECT_EQ(capture.assertions(), std::vector<std::string>{"in_pNewWork != 0"});
    ASSERT_TRUE(task.enqueue(new Job(blocker, [&] { gate.wait(); }), "blocker"));
    ASSERT_GT(task.after(new Job(queued), kHour, kHour), 0);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(task.enqueue(new Job(queued), "queued"));
    std::atomic<int> code{-1};
    std::thread waiter([&] {
        code = task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID), out, limit);
    });
    ASSERT_TRUE(waitFor([] { return liveWorks() == 1; }));
    std::this_thread::sleep_for(10ms);  // lets the work reach the queue
    task.stop();
    waiter.join();
    EXPECT_EQ(code, Op::DOWORK_NO_RESULT);  // learnt at once, not at the deadline
    EXPECT_GE(queued.destroyed, 3);  // requests by stop itself, before the running one ends
    EXPECT_FALSE(task.enqueue(new Job(refused), "stopping"));
    EXPECT_EQ(task.after(new Job(refused), 0), -1);
    EXPECT_FALSE(task.waitForEndOfRun(20ms));
    EXPECT_TRUE(capture.contains(ERROR_LOG_LEVEL, "StaticReactorTaskImpl::waitForEndOfRun : test.Task : the threads "
                                                  "of the previous run have not ended after 20 ms"));
    gate.open();
    ASSERT_TRUE(task.waitForEndOfRun(5s));
    EXPECT_EQ(refused.destroyed, 2);
    EXPECT_EQ(queued.destroyed, 4);
    EXPECT_EQ(queued.ran + queued.cancelled + refused.ran, 0);
    EXPECT_EQ(liveWorks(), 0);  // a refused or dropped work is destroyed at once
}

TEST(Timers, ItsOwnThreadsCannotWaitForNorRestartTheTaskButMayScheduleAndCancel) {
    // Joining a thread from itself would throw and end the process.
    Counts counts;
    std::atomic<int> refused{0};
    TestTask task(2);
    ASSERT_TRUE(task.startAndWaitRunning());
    const auto tryWaitAndStart = [&] { refused += !task.waitUntilDone() + !task.start(); };
    task.enqueue(new Job(counts, tryWaitAndStart), "test");
    const long victim = task.after(new Job(counts), kHour);
    ASSERT_GT(task.after(new Job(counts), kHour), victim);
    task.after(new Job(counts, [&] {
        tryWaitAndStart();
        refused += task.after(new Job(counts), 1) > 0 && task.cancelTimer(victim) && !task.cancelTimer(victim);
    }), 1);
    ASSERT_TRUE(waitFor([&] { return counts.ran == 3; }));
    EXPECT_EQ(refused, 5);
    EXPECT_EQ(counts.cancelled, 1);
    EXPECT_EQ(task.getNumPendingTimers(), 1u);
    // The earliest timer's entry is freed while the timer thread still waits for its time.
    for (int round = 1; round <= 3; ++round) {
        const long awaited = task.after(new Job(counts), kHour / 2);
        std::this_thread::sleep_for(10ms);  // lets the thread start waiting for it
        ASSERT_TRUE(task.cancelTimer(awaited));
        ASSERT_GT(task.after(new Job(counts), 1), 0);  // wakes the thread
        ASSERT_TRUE(waitFor([&] { return counts.ran == 3 + round; }));
    }
}

TEST(SharedTask, OnlyTheFirstStartAndTheStopThatBalancesTheLastReachTheHooks) {
    struct Counted : SharedTaskImpl {
        using SharedTaskImpl::SharedTaskImpl;
        bool sharedStart() override { return ++starts > 1; }  // the first start fails
        bool sharedStop() override { return ++stops > 0; }
        bool sharedKill() override { return ++kills > 0; }
        bool sharedWaitUntilDone() override { return true; }
        int starts = 0, stops = 0, kills = 0;
    };
    for (const bool bStopOnLastUser : {true, false}) {
        Counted task(bStopOnLastUser);
        EXPECT_FALSE(task.start());
        EXPECT_TRUE(task.start() && task.start());
        EXPECT_EQ(task.getUserCount(), 2);
        EXPECT_TRUE(task.stop());
        EXPECT_EQ(task.waitUntilDone(), !bStopOnLastUser);  // no wait while another user holds it
        EXPECT_TRUE(task.stop());
        EXPECT_TRUE(task.start() && task.kill() && task.waitUntilDone());
        EXPECT_EQ(std::vector<int>({task.starts, task.stops, task.kills, task.getUserCount()}),
                  std::vector<int>({3, bStopOnLastUser ? 1 : 2, 1, 0}));
    }
}

}  // namespace
