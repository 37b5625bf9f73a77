// One-shot (and periodic) timers of a task, fired on one timer thread that
// runs while the task runs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include <ace/Time_Value.h>

#include "platform/ManageableTaskImplBase.h"

namespace Tarvik {

// Opaque data handed back to a processor; the library passes none.
class TimeoutData {
public:
    virtual ~TimeoutData() = default;
};

// The handler of a timer. The task owns it once scheduled: it is destroyed
// after a one-shot timer fired, when its timer is dropped (task stopped), or
// at once when scheduling is refused.
class TimeoutProcessor : public virtual Object {
public:
    // The timer expired; runs on the timer thread.
    virtual bool handleTimeout(const TimeoutData* in_pData) = 0;
    // The timer was cancelled before it expired.
    virtual bool handleCancel(const TimeoutData* in_pData) = 0;
    // A periodic timer was rescheduled.
    virtual bool handleReschedule(const TimeoutData* in_pData) = 0;
};

class TaskWithTimersImpl : public StaticReactorTaskImpl {
public:
    explicit TaskWithTimersImpl(const std::string& in_strName);
    ~TaskWithTimersImpl() override;

    // Arms a timer that expires after in_delay and then every in_interval
    // (zero: once). Returns its id, or -1 when refused (task not running; the
    // processor is then destroyed at once). The last two arguments are kept
    // for callers that pass them and have no effect.
    long scheduleTimerImpl(TimeoutProcessor* in_pProcessor, const TimeoutData* in_pData,
                           const ACE_Time_Value& in_delay, const ACE_Time_Value& in_interval,
                           unsigned long long in_ullReserved, bool in_bReserved);
    // Cancels a pending timer: its processor hears handleCancel and is destroyed.
    bool cancelTimer(long in_lTimerId);
    // Timers armed and not yet fired or dropped.
    size_t getNumPendingTimers() const;

protected:
    bool startServices() override;
    void stopServices() override;
    void joinServices() override;

private:
    using Clock = std::chrono::steady_clock;
    struct Timer {
        TimeoutProcessor* processor;  // owned
        const TimeoutData* data;      // not owned
        Clock::duration interval;     // zero for a one-shot timer
        long id;
    };
    void timerLoop();

    mutable std::mutex m_timerMutex;                // guards the members below
    std::condition_variable m_timerCond;            // signalled on new timers and on stop
    std::multimap<Clock::time_point, Timer> m_timers;  // armed timers by expiry
    long m_lNextId = 1;                             // id of the next timer
    bool m_bTimersRunning = false;                  // the timer thread accepts timers
    std::thread m_timerThread;                      // fires the timers; joinable until joined
};

}  // namespace Tarvik
