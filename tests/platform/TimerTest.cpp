#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/TaskWithTimersImpl.h"
#include "support/BoundedWait.h"

using namespace Tarvik;
using corvane_test::waitFor;

namespace {

struct TimerLog {
    std::atomic<int> created{0}, timeouts{0}, cancels{0}, destroyed{0};
    std::mutex mutex;
    std::vector<int> order;  // tags in firing order; under mutex

    std::vector<int> firingOrder() {
        std::lock_guard<std::mutex> guard(mutex);
        return order;
    }
};

class RecordingProcessor : public TimeoutProcessor {
public:
    RecordingProcessor(TimerLog& io_log, int in_iTag, std::function<void()> in_onTimeout = {})
        : m_log(io_log), m_iTag(in_iTag), m_onTimeout(std::move(in_onTimeout)) {
        ++m_log.created;
    }
    ~RecordingProcessor() override { ++m_log.destroyed; }
    bool handleTimeout(const TimeoutData*) override {
        {
            std::lock_guard<std::mutex> guard(m_log.mutex);
            m_log.order.push_back(m_iTag);
        }
        if (m_onTimeout) m_onTimeout();
        ++m_log.timeouts;
        return true;
    }
    bool handleCancel(const TimeoutData*) override {
        ++m_log.cancels;
        return true;
    }
    bool handleReschedule(const TimeoutData*) override { return true; }

private:
    TimerLog& m_log;
    const int m_iTag;
    std::function<void()> m_onTimeout;
};

class TimerTask : public TaskWithTimersImpl {
public:
    TimerTask() : TaskWithTimersImpl("test.TimerTask") {}
    ~TimerTask() override {
        stop();
        waitUntilDone();
    }
    bool startAndWaitRunning() {
        return start() && waitFor([this] { return getTaskState() == Task::RUNNING; });
    }
    long after(TimeoutProcessor* in_pProcessor, long in_lMs, long in_lIntervalMs = 0) {
        ACE_Time_Value delay, interval;
        delay.msec(in_lMs);
        interval.msec(in_lIntervalMs);
        return scheduleTimerImpl(in_pProcessor, nullptr, delay, interval, 0, false);
    }
};

const long kHour = 3600L * 1000;

}  // namespace

TEST(Timers, PendingTimerIsDroppedAndItsProcessorDestroyedWithoutFiring) {
    enum End { STOP_ONLY, STOP_AND_WAIT, DESTROY_RUNNING_TASK };
    for (End end : {STOP_ONLY, STOP_AND_WAIT, DESTROY_RUNNING_TASK}) {
        SCOPED_TRACE(end);
        TimerLog log;
        {
            TimerTask task;
            ASSERT_TRUE(task.startAndWaitRunning());
            ASSERT_GT(task.after(new RecordingProcessor(log, 1), kHour), 0);
            ASSERT_GT(task.after(new RecordingProcessor(log, 2), kHour, kHour), 0);  // periodic
            EXPECT_EQ(task.getNumPendingTimers(), 2u);
            if (end != DESTROY_RUNNING_TASK) task.stop();
            if (end == STOP_AND_WAIT) {
                ASSERT_TRUE(task.waitUntilDone());
                EXPECT_EQ(log.destroyed, 2);
            }
            if (end == STOP_ONLY) {
                EXPECT_TRUE(waitFor([&] { return log.destroyed == 2; }));
            }
        }
        EXPECT_EQ(log.destroyed, 2);
        EXPECT_EQ(log.timeouts, 0);
    }
}

TEST(Timers, RefusedSchedulingDestroysTheProcessorAtOnce) {
    enum When { NEVER_STARTED, STOPPED, STOPPED_AND_JOINED };
    for (When when : {NEVER_STARTED, STOPPED, STOPPED_AND_JOINED}) {
        SCOPED_TRACE(when);
        TimerTask task;
        TimerLog log;
        if (when != NEVER_STARTED) {
            ASSERT_TRUE(task.startAndWaitRunning());
            task.stop();
            if (when == STOPPED_AND_JOINED) task.waitUntilDone();
        }
        EXPECT_EQ(task.after(new RecordingProcessor(log, 1), 0), -1);
        EXPECT_EQ(log.destroyed, 1);
        EXPECT_EQ(log.timeouts, 0);
        EXPECT_EQ(task.after(nullptr, 0), -1);
    }
}

TEST(Timers, TimersFireInOrderOfExpiryNotOfScheduling) {
    TimerTask task;
    TimerLog log;
    ASSERT_TRUE(task.startAndWaitRunning());
    const int delaysMs[] = {250, 50, 150, 0, 100, 200};
    for (int delay : delaysMs) ASSERT_GT(task.after(new RecordingProcessor(log, delay), delay), 0);
    ASSERT_TRUE(waitFor([&] { return log.destroyed == 6; }));
    EXPECT_EQ(log.firingOrder(), (std::vector<int>{0, 50, 100, 150, 200, 250}));
}

TEST(Timers, FiredTimerIsDestroyedAndCancelledOneHearsCancelOnce) {
    TimerTask task;
    TimerLog log;
    ASSERT_TRUE(task.startAndWaitRunning());
    const long fired = task.after(new RecordingProcessor(log, 0), 10);
    EXPECT_GT(fired, 0);
    ASSERT_TRUE(waitFor([&] { return log.destroyed == 1; }));
    EXPECT_EQ(log.timeouts, 1);
    EXPECT_EQ(task.getNumPendingTimers(), 0u);
    EXPECT_FALSE(task.cancelTimer(fired));
    const long id = task.after(new RecordingProcessor(log, 1), kHour);
    const long other = task.after(new RecordingProcessor(log, 2), kHour);
    ASSERT_NE(id, other);
    EXPECT_TRUE(task.cancelTimer(id));
    EXPECT_EQ(log.cancels, 1);
    EXPECT_EQ(log.destroyed, 2);
    EXPECT_FALSE(task.cancelTimer(id));
    EXPECT_FALSE(task.cancelTimer(12345));
    EXPECT_EQ(task.getNumPendingTimers(), 1u);
    EXPECT_EQ(log.cancels, 1);
    EXPECT_EQ(log.timeouts, 1);
}

TEST(Timers, PeriodicTimerRefiresUntilStoppedAndTimersWorkAgainAfterRestart) {
    TimerTask task;
    for (int run = 1; run <= 3; ++run) {
        SCOPED_TRACE(run);
        TimerLog log;
        ASSERT_TRUE(task.startAndWaitRunning());
        ASSERT_GT(task.after(new RecordingProcessor(log, 1), 1, 2), 0);
        ASSERT_TRUE(waitFor([&] { return log.timeouts >= 3; }));
        EXPECT_EQ(log.destroyed, 0);
        task.stop();
        ASSERT_TRUE(task.waitUntilDone());
        EXPECT_EQ(log.destroyed, 1);
    }
}

TEST(Timers, ProcessorMayScheduleAndCancelTimersButNotWaitForNorRestartItsTask) {
    // Joining the timer thread from itself would throw and end the process.
    TimerTask task;
    TimerLog log;
    ASSERT_TRUE(task.startAndWaitRunning());
    std::atomic<long> inner{0};
    std::atomic<int> cancelled{-1}, waitResult{-1}, startResult{-1};
    const long victim = task.after(new RecordingProcessor(log, 3), kHour);
    task.after(new RecordingProcessor(log, 1,
                                      [&] {
                                          inner = task.after(new RecordingProcessor(log, 2), 1);
                                          cancelled = task.cancelTimer(victim);
                                          waitResult = task.waitUntilDone();
                                          startResult = task.start();
                                      }),
               1);
    ASSERT_TRUE(waitFor([&] { return log.destroyed == 3; }));
    EXPECT_GT(inner, 0);
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(waitResult, 0);
    EXPECT_EQ(startResult, 0);
    EXPECT_EQ(task.getTaskState(), Task::RUNNING);
    EXPECT_EQ(log.firingOrder(), (std::vector<int>{1, 2}));
}

TEST(Timers, EveryProcessorIsDestroyedExactlyOnceWhenStopRacesScheduling) {
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        TimerLog log;
        {
            TimerTask task;
            ASSERT_TRUE(task.startAndWaitRunning());
            std::vector<std::thread> schedulers;
            for (int t = 0; t < 3; ++t) {
                schedulers.emplace_back([&, t] {
                    for (int i = 0; i < 300; ++i) {
                        task.after(new RecordingProcessor(log, t), i % 3, (i % 7 == 0) ? 1 : 0);
                    }
                });
            }
            waitFor([&] { return log.created >= 300; });
            task.stop();
            for (std::thread& s : schedulers) s.join();
            ASSERT_TRUE(task.waitUntilDone());
            EXPECT_EQ(log.destroyed, 900);
        }
        EXPECT_EQ(log.created, 900);
        EXPECT_EQ(log.destroyed, 900);
        EXPECT_EQ(log.cancels, 0);
    }
}

TEST(Timers, CancellingTheTimerBeingWaitedForLeavesTheTimerThreadSound) {
    // Cancelling the earliest timer frees its entry while the timer thread still waits for its time.
    TimerTask task;
    TimerLog log;
    ASSERT_TRUE(task.startAndWaitRunning());
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        const long awaited = task.after(new RecordingProcessor(log, 0), kHour);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // lets the thread start waiting for it
        ASSERT_TRUE(task.cancelTimer(awaited));
        ASSERT_GT(task.after(new RecordingProcessor(log, round + 1), 1), 0);  // wakes the thread
        ASSERT_TRUE(waitFor([&] { return log.timeouts == round + 1; }));
    }
    EXPECT_EQ(log.cancels, 5);
    EXPECT_TRUE(waitFor([&] { return log.destroyed == 10; }));
}
