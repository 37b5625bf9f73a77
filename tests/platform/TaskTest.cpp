#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/AddTimeoutToBlockingOpTask.h"
#include "platform/MemAccount.h"
#include "platform/SharedTaskImpl.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using namespace std::chrono_literals;
using corvane_test::Gate;
using corvane_test::waitFor;
using Op = AddTimeoutToBlockingOpTask;

namespace {

struct Counts {
    std::atomic<int> created{0}, ran{0}, cancelled{0}, destroyed{0};
};

// A request, or a timer's processor, that counts itself and runs a body.
class Job : public ACE_Method_Request, public TimeoutProcessor {
public:
    explicit Job(Counts& io_counts, std::function<void()> in_body = {}) : m_counts(io_counts), m_body(in_body) {
        ++m_counts.created;
    }
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
    bool startAndWaitRunning() {
        return start() && waitFor([this] { return getTaskState() == Task::RUNNING; });
    }
    using AddTimeoutToBlockingOpTask::waitForEndOfRun;
    long after(Job* in_pJob, long in_lMs, long in_lIntervalMs = 0) {
        ACE_Time_Value delay, interval;
        delay.msec(in_lMs);
        interval.msec(in_lIntervalMs);
        return scheduleTimerImpl(in_pJob, nullptr, delay, interval, 0, false);
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

TEST(Task, HooksRunOncePerRunAndARestartWithoutWaitingJoinsTheRunBefore) {
    for (size_t threads : {1u, 4u}) {
        SCOPED_TRACE(threads);
        Counts requests, timers;
        std::mutex hookLock;  // start takes no lock the hooks run under (TSan reports any lock-order cycle)
        TestTask task(threads);
        task.entryBody = [&hookLock] { std::lock_guard<std::mutex> guard(hookLock); };
        EXPECT_FALSE(task.setNumThread(0));
        EXPECT_FALSE(task.configure(TSHandle<ROConfiguration>()));
        for (int run = 1; run <= 3; ++run) {
            {
                std::lock_guard<std::mutex> guard(hookLock);
                ASSERT_TRUE(task.start());
            }
            ASSERT_TRUE(waitFor([&] { return task.getTaskState() == Task::RUNNING; }));
            const int timeoutsBefore = timers.ran;
            EXPECT_FALSE(task.start());  // already running
            EXPECT_FALSE(task.setNumThread(2));
            EXPECT_EQ(task.exits, run - 1);  // the run before ended before this one began
            for (int i = 0; i < 20; ++i) ASSERT_TRUE(task.enqueue(new Job(requests), "test"));
            ASSERT_GT(task.after(new Job(timers), 1, 2), 0);  // periodic: refires until stopped
            ASSERT_TRUE(waitFor([&] { return requests.ran == 20 * run && timers.ran >= timeoutsBefore + 3; }));
            EXPECT_EQ(timers.destroyed, run - 1);
            task.stop();  // the next start comes without a wait
        }
        ASSERT_TRUE(task.waitUntilDone());
        EXPECT_EQ(task.entries, 3);
        EXPECT_EQ(task.exits, 3);
        EXPECT_EQ(task.getTaskState(), Task::STOPPED_STATE);
        EXPECT_EQ(requests.destroyed + timers.destroyed, 63);
        EXPECT_TRUE(task.setNumThread(5));
        EXPECT_EQ(task.getNumThread(), 5u);
    }
}

TEST(Task, NoRequestRunsBeforeTheEntryHookAndTheExitHookRunsInTheLastThreadOut) {
    std::atomic<bool> entryDone{false};
    std::atomic<int> early{0}, started{0}, finished{0}, finishedAtExit{-1};
    Gate gate;
    Counts counts;
    TestTask task(4);  // declared last, so destroyed first: its hooks and requests use the above
    task.entryBody = [&] {
        std::this_thread::sleep_for(30ms);  // time for another thread to take work
        entryDone = true;
    };
    task.exitBody = [&] { finishedAtExit = finished.load(); };
    ASSERT_TRUE(task.start());
    for (int i = 0; i < 4; ++i) {
        task.enqueue(new Job(counts,
                             [&, i] {  // later threads finish later: a first-out exit hook shows
                                 early += !entryDone;
                                 ++started;
                                 gate.wait();
                                 std::this_thread::sleep_for(std::chrono::milliseconds(5 * i));
                                 ++finished;
                             }),
                     "test");
    }
    ASSERT_TRUE(waitFor([&] { return started == 4; }));
    task.stop();
    gate.open();
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(early, 0);
    EXPECT_EQ(task.entries, 1);
    EXPECT_EQ(task.exits, 1);
    EXPECT_EQ(finishedAtExit, 4);
}

TEST(Task, StopDropsQueuedRequestsAndPendingTimersAndLaterOnesAreDestroyedAtOnce) {
    for (bool bDestroyRunning : {false, true}) {
        Counts blocker, queued, refused;
        Gate gate;
        {
            TestTask task(1);
            EXPECT_TRUE(task.waitForEndOfRun(5s));  // nothing to wait for
            EXPECT_FALSE(task.enqueue(new Job(refused), "never started"));
            EXPECT_EQ(task.after(new Job(refused), 0), -1);
            ASSERT_TRUE(task.startAndWaitRunning());
            std::atomic<bool> running{false};
            ASSERT_TRUE(task.enqueue(new Job(blocker, [&] {
                running = true;
                gate.wait();
            }), "blocker"));
            ASSERT_TRUE(waitFor([&] { return running.load(); }));
            ASSERT_GT(task.after(new Job(queued), kHour), 0);
            ASSERT_GT(task.after(new Job(queued), kHour, kHour), 0);
            for (int i = 0; i < 3; ++i) ASSERT_TRUE(task.enqueue(new Job(queued), "queued"));
            EXPECT_EQ(task.getNumPendingTimers(), 2u);
            if (!bDestroyRunning) {
                task.stop();
                EXPECT_EQ(task.getTaskState(), Task::STOPPING_STATE);
                EXPECT_GE(queued.destroyed, 3);  // requests by stop itself, before the running one ends
                EXPECT_FALSE(task.enqueue(new Job(refused), "stopping"));
                EXPECT_FALSE(task.enqueue(nullptr, "null"));
                EXPECT_EQ(task.after(nullptr, 0), -1);
                corvane_test::LogCapture capture;
                EXPECT_FALSE(task.waitForEndOfRun(20ms));
                EXPECT_TRUE(capture.contains(ERROR_LOG_LEVEL,
                                             "StaticReactorTaskImpl::waitForEndOfRun : test.Task : the threads of "
                                             "the previous run have not ended after 20 ms"));
                gate.open();
                ASSERT_TRUE(task.waitForEndOfRun(5s));
                EXPECT_FALSE(task.enqueue(new Job(refused), "stopped"));
                EXPECT_EQ(task.after(new Job(refused), 0), -1);
                EXPECT_EQ(refused.destroyed, 5);
                EXPECT_EQ(queued.ran + queued.cancelled, 0);
            }
            gate.open();  // destroyed running: the destructor joins the threads and frees what is left
        }
        EXPECT_EQ(blocker.ran, 1);
        EXPECT_EQ(refused.ran, 0);
        EXPECT_EQ(queued.destroyed, 5);
    }
}

TEST(Task, ItsOwnThreadsCannotWaitForNorRestartItButTimersMayScheduleAndCancel) {
    // Joining a thread from itself would throw and end the process.
    Counts counts;
    std::atomic<int> refused{0};
    TestTask task(2);
    ASSERT_TRUE(task.startAndWaitRunning());
    EXPECT_FALSE(task.isPoolThread());
    const auto tryWaitAndStart = [&] {
        refused += !task.waitUntilDone();
        refused += !task.start();
    };
    task.enqueue(new Job(counts, [&] { refused += task.isPoolThread() ? 0 : 10; }), "test");
    task.enqueue(new Job(counts, tryWaitAndStart), "test");
    const long victim = task.after(new Job(counts), kHour);
    task.after(new Job(counts,
                       [&] {
                           tryWaitAndStart();
                           refused += task.after(new Job(counts), 1) > 0 && task.cancelTimer(victim);
                       }),
               1);
    ASSERT_TRUE(waitFor([&] { return counts.ran == 4; }));
    EXPECT_EQ(refused, 5);
    EXPECT_EQ(counts.cancelled, 1);
    EXPECT_EQ(task.entries, 1);
    EXPECT_EQ(task.getTaskState(), Task::RUNNING);
}

TEST(Task, EveryRequestAndTimerIsDestroyedExactlyOnceWhenStopRacesThem) {
    for (int round = 0; round < 3; ++round) {
        Counts counts;
        {
            TestTask task(3);
            ASSERT_TRUE(task.startAndWaitRunning());
            std::vector<std::thread> producers;
            for (int p = 0; p < 4; ++p) {
                producers.emplace_back([&, p] {
                    for (int i = 0; i < 300; ++i) {
                        if (p % 2 == 0) task.enqueue(new Job(counts), "race");
                        if (p % 2 == 1) task.after(new Job(counts), i % 3, i % 7 == 0 ? 1 : 0);
                    }
                });
            }
            waitFor([&] { return counts.created >= 300; });
            task.stop();
            for (std::thread& t : producers) t.join();
            ASSERT_TRUE(task.waitUntilDone());
            EXPECT_EQ(counts.destroyed, 1200);
        }
        EXPECT_EQ(counts.created, 1200);
        EXPECT_EQ(counts.cancelled, 0);
    }
}

TEST(Task, StopDuringTheEntryHookIsNotUndoneByIt) {
    Gate entryGate, exitGate;
    std::atomic<bool> inExit{false};
    TestTask task(2);
    task.entryBody = [&] { entryGate.wait(); };
    task.exitBody = [&] {
        inExit = true;
        exitGate.wait();
    };
    ASSERT_TRUE(task.start());
    ASSERT_TRUE(waitFor([&] { return task.entries == 1; }));
    task.stop();
    entryGate.open();  // the entry hook now declares the task ready
    ASSERT_TRUE(waitFor([&] { return inExit.load(); }));
    EXPECT_EQ(task.getTaskState(), Task::STOPPING_STATE);
    exitGate.open();
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(task.getTaskState(), Task::STOPPED_STATE);
}

TEST(Task, StartThatCannotMakeAThreadIsUndoneAndTheNextStartWorks) {
    // Threads made before the refusal (the timer thread first) -> the error logged.
    const std::pair<int, std::string> cases[] = {
        {0, "TaskWithTimersImpl::startServices : test.Task : cannot make the timer thread : "},
        {2, "StaticReactorTaskImpl::start : test.Task : cannot make a thread (3 missing) : "}};
    for (const auto& c : cases) {
        corvane_test::LogCapture capture;
        Counts counts;
        TestTask task(4);
        std::atomic<int> attempts{0};
        setThreadCreationFaultForTest([&] { return attempts++ >= c.first; });
        const bool bStarted = task.start();
        setThreadCreationFaultForTest({});
        ASSERT_FALSE(bStarted);  // else the wait below would not end
        ASSERT_TRUE(task.waitUntilDone());
        EXPECT_EQ(task.getTaskState(), Task::STOPPED_STATE);
        EXPECT_EQ(task.exits, c.first == 0 ? 0 : 1);  // the last thread out of a partial start runs the exit hook
        EXPECT_TRUE(capture.contains(40000, c.second + std::strerror(EAGAIN))) << c.second;
        EXPECT_FALSE(task.enqueue(new Job(counts), "refused"));
        ASSERT_TRUE(task.startAndWaitRunning());
        ASSERT_TRUE(task.enqueue(new Job(counts), "test"));
        ASSERT_TRUE(waitFor([&] { return counts.ran == 1; }));
    }
}

TEST(Timers, FireInOrderOfExpiryAndCancelReachesOnlyThePendingTimerAsked) {
    Counts counts;
    std::mutex mutex;
    std::vector<int> order;
    TestTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (int delay : {250, 50, 150, 0, 100}) {
        ASSERT_GT(task.after(new Job(counts,
                                     [&, delay] {
                                         std::lock_guard<std::mutex> guard(mutex);
                                         order.push_back(delay);
                                     }),
                             delay),
                  0);
    }
    ASSERT_TRUE(waitFor([&] { return counts.destroyed == 5; }));  // a fired timer is destroyed
    EXPECT_EQ(order, (std::vector<int>{0, 50, 100, 150, 250}));
    EXPECT_EQ(task.getNumPendingTimers(), 0u);
    EXPECT_FALSE(task.cancelTimer(1));
    const long id = task.after(new Job(counts), kHour);
    ASSERT_GT(task.after(new Job(counts), kHour), id);
    EXPECT_TRUE(task.cancelTimer(id));
    EXPECT_FALSE(task.cancelTimer(id));
    EXPECT_FALSE(task.cancelTimer(12345));
    EXPECT_EQ(counts.cancelled, 1);
    EXPECT_EQ(counts.destroyed, 6);
    EXPECT_EQ(task.getNumPendingTimers(), 1u);
    // Cancelling the earliest timer frees its entry while the timer thread still waits for its time.
    for (int round = 1; round <= 3; ++round) {
        const long awaited = task.after(new Job(counts), kHour / 2);
        std::this_thread::sleep_for(10ms);  // lets the thread start waiting for it
        ASSERT_TRUE(task.cancelTimer(awaited));
        ASSERT_GT(task.after(new Job(counts), 1), 0);  // wakes the thread
        ASSERT_TRUE(waitFor([&] { return counts.ran == 5 + round; }));
    }
}

// A work that runs its body, then delivers, or not; counted, so that a leaked or early-freed one shows.
class ScriptedWork : public Op::Work<int> {
    CORVANE_STATIC_ALLOCATOR("test.BlockingOp.ScriptedWork")

public:
    enum Action { DELIVER_VALID, DELIVER_NOT_VALID, DELIVER_NOTHING, EXPIRE };
    ScriptedWork(Action in_action, int in_iValue, std::function<void()> in_body = {})
        : m_action(in_action), m_iValue(in_iValue), m_body(std::move(in_body)) {}
    bool doWork() override {
        if (m_body) m_body();
        if (m_action == EXPIRE) getProducer().expire();
        if (m_action == DELIVER_VALID || m_action == DELIVER_NOT_VALID) {
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
    TestTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (bool bTake : {false, true}) {  // the result copied out, or handed to a function
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (bTake ? " (take)" : " (copy)"));
            corvane_test::LogCapture capture;
            Gate gate;
            int out = -1, takes = 0;
            const ACE_Time_Value timeout = c.timeoutMs == -1   ? ACE_Time_Value::max_time
                                           : c.timeoutMs == -2 ? ACE_Time_Value::max_time - ACE_Time_Value(1)
                                                               : ms(c.timeoutMs);
            auto* pWork = new ScriptedWork(c.action, 42, [&gate, c] {
                if (c.blocked) gate.wait(10s);
                std::this_thread::sleep_for(std::chrono::milliseconds(c.sleepMs));
            });
            const auto take = [&](const int& in_value) {
                ++takes;
                out = in_value;
            };
            const int code =
                bTake ? task.doWorkAndTake<int>(pWork, take, timeout) : task.doWork<int>(pWork, out, timeout);
            EXPECT_EQ(code, c.expectedCode);
            EXPECT_EQ(out, code == Op::DOWORK_RESULT ? 42 : -1);  // written only with a valid result
            EXPECT_EQ(takes, bTake && code == Op::DOWORK_RESULT ? 1 : 0);
            // A wait ended by its deadline fails with ETIME, whose text says nothing of a time-out.
            const std::string etime = std::string("AddTimeoutToBlockingOpTask::doWork : ") + std::strerror(ETIME);
            const auto lines = capture.messages("corvane.thread.AddTimeoutToBlockingOpTask");
            EXPECT_EQ(std::count(lines.begin(), lines.end(), etime), code == Op::DOWORK_TIMEOUT && c.timeoutMs >= 0);
            EXPECT_EQ(capture.contains(DEBUG_LOG_LEVEL, etime), code == Op::DOWORK_TIMEOUT && c.timeoutMs >= 0);
            gate.open();  // a blocked work still finishes, delivering to a waiter that is gone
            EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
        }
    }
}

TEST(BlockingOp, ResultThereBeforeOrAfterTheWorkEndsIsTaken) {
    class EarlyWork : public ScriptedWork {
    public:
        EarlyWork() : ScriptedWork(DELIVER_NOTHING, 0) { getProducer().deliver(5, true); }
    };
    // A producer handed on keeps the waiter waiting after the work ends.
    class HandingWork : public ScriptedWork {
    public:
        explicit HandingWork(std::thread& io_helper) : ScriptedWork(DELIVER_NOTHING, 0), m_helper(io_helper) {}
        bool doWork() override {
            m_helper = std::thread([copy = getProducer()] {
                std::this_thread::sleep_for(30ms);
                copy.deliver(9, true);
            });
            return true;
        }
        std::thread& m_helper;
    };
    TestTask task;
    ASSERT_TRUE(task.startAndWaitRunning());
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new EarlyWork, out, ms(0)), Op::DOWORK_RESULT);  // no time to wait
    EXPECT_EQ(out, 5);
    std::thread helper;
    EXPECT_EQ(task.doWork<int>(new HandingWork(helper), out, ms(5000)), Op::DOWORK_RESULT);
    EXPECT_EQ(out, 9);
    helper.join();
    EXPECT_TRUE(waitFor([] { return liveWorks() == 0; }));
}

TEST(BlockingOp, NullOrRefusedWorkFailsAndStopWakesAWaiterWhoseWorkWasDropped) {
    corvane_test::AssertCapture asserts;
    TestTask task(1);
    int out = -1;
    EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1), out, ms(5000)), Op::DOWORK_FAILED);
    ASSERT_TRUE(task.startAndWaitRunning());
    EXPECT_EQ(task.doWork<int>(nullptr, out, ms(5000)), Op::DOWORK_FAILED);
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"in_pNewWork != 0"});
    Gate gate;
    std::atomic<bool> blockerRunning{false};
    std::thread first([&] {
        int ignored = -1;
        task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1, [&] {
            blockerRunning = true;
            gate.wait();
        }),
                         ignored, ms(10000));
    });
    ASSERT_TRUE(waitFor([&] { return blockerRunning.load(); }));
    std::atomic<int> code{-1};
    std::thread second([&] {
        code = task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 2), out, ms(10000));
    });
    ASSERT_TRUE(waitFor([] { return liveWorks() == 2; }));
    std::this_thread::sleep_for(10ms);  // lets the second work reach the queue
    task.stop();
    second.join();
    EXPECT_EQ(code, Op::DOWORK_NO_RESULT);  // learnt at once, not at the deadline
    gate.open();
    first.join();
    ASSERT_TRUE(task.waitUntilDone());
    EXPECT_EQ(task.doWork<int>(new ScriptedWork(ScriptedWork::DELIVER_VALID, 1), out, ms(5000)), Op::DOWORK_FAILED);
    EXPECT_EQ(liveWorks(), 0);  // a refused work is destroyed at once
    EXPECT_EQ(out, -1);
}

class CountingSharedTask : public SharedTaskImpl {
public:
    explicit CountingSharedTask(bool in_bStopOnLastUser) : SharedTaskImpl(in_bStopOnLastUser) {}
    std::atomic<int> starts{0}, stops{0}, kills{0}, waits{0};
    std::atomic<int> running{0};  // hook starts minus hook stops; never above 1
    std::atomic<bool> startSucceeds{true};

protected:
    bool sharedStart() override {
        ++starts;
        return startSucceeds && ++running > 0;
    }
    bool sharedStop() override {
        ++stops;
        running = 0;
        return true;
    }
    bool sharedKill() override {
        running = 0;
        return ++kills > 0;
    }
    bool sharedWaitUntilDone() override { return ++waits > 0; }
};

TEST(SharedTask, CallSequencesReachTheHooksOnlyWhenTheyShould) {
    // Steps: 's'tart, 'f' (start whose hook fails), sto'p', 'k'ill, 'w'ait; after each, "result users:hooks"
    // with the hooks' counts as start, stop, kill, wait.
    const struct {
        bool stopOnLastUser;
        const char* steps;
        std::vector<std::string> after;
    } cases[] = {
        {true, "sspwpw", {"1 1:1000", "1 2:1000", "1 1:1000", "0 1:1000", "1 0:1100", "1 0:1101"}},  // the last stop
        {true, "spsp", {"1 1:1000", "1 0:1100", "1 1:2100", "1 0:2200"}},  // a restart after the last stop
        {false, "sspws", {"1 1:1000", "1 2:1000", "1 0:1100", "1 0:1101", "1 1:2101"}},  // every stop
        {true, "sskws", {"1 1:1000", "1 2:1000", "1 0:1010", "1 0:1011", "1 1:2011"}},  // kill forgets every user
        {true, "ffs", {"0 0:1000", "0 0:2000", "1 1:3000"}},  // a failed start leaves no user
    };
    for (const auto& c : cases) {
        CountingSharedTask task(c.stopOnLastUser);
        std::vector<std::string> after;
        for (const char* step = c.steps; *step != '\0'; ++step) {
            task.startSucceeds = *step != 'f';
            const bool result = *step == 's' || *step == 'f' ? task.start()
                                : *step == 'p'               ? task.stop()
                                : *step == 'k'               ? task.kill()
                                                             : task.waitUntilDone();
            after.push_back(std::to_string(result) + " " + std::to_string(task.getUserCount()) + ":" +
                            std::to_string(task.starts * 1000 + task.stops * 100 + task.kills * 10 + task.waits));
        }
        EXPECT_EQ(after, c.after) << c.steps;
    }
    // Concurrent users balance starts and stops: while a user holds the task, it is started once.
    CountingSharedTask task(true);
    std::atomic<int> overlap{0};
    std::vector<std::thread> users;
    for (int t = 0; t < 6; ++t) {
        users.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                if (!task.start()) continue;
                overlap += task.running != 1;
                task.stop();
            }
        });
    }
    for (std::thread& u : users) u.join();
    EXPECT_EQ(overlap, 0);
    EXPECT_EQ(task.getUserCount(), 0);
    EXPECT_EQ(task.starts, task.stops);
}

}  // namespace
