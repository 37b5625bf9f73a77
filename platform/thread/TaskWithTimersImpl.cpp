#include "platform/TaskWithTimersImpl.h"

#include <vector>

#include "platform/Logger.h"
#include "platform/Thread.h"

namespace Tarvik {

TaskWithTimersImpl::TaskWithTimersImpl(const std::string& in_strName)
    : StaticReactorTaskImpl(in_strName) {}

TaskWithTimersImpl::~TaskWithTimersImpl() {
    TaskWithTimersImpl::stopServices();
    TaskWithTimersImpl::joinServices();
}

bool TaskWithTimersImpl::startServices() {
    joinServices();
    std::lock_guard<std::mutex> guard(m_timerMutex);
    m_bTimersRunning = true;
    std::string strError;
    if (!startThread(m_timerThread, [this] { timerLoop(); }, strError)) {
        m_bTimersRunning = false;
        CORVANE_ERROR(getLogger("corvane.thread.TaskWithTimersImpl"),
                      "TaskWithTimersImpl::startServices : " << getTaskName() << " : cannot make the timer thread : "
                                                             << strError);
        return false;
    }
    return true;
}

void TaskWithTimersImpl::stopServices() {
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        m_bTimersRunning = false;
    }
    m_timerCond.notify_all();
}

void TaskWithTimersImpl::joinServices() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        thread.swap(m_timerThread);
    }
    if (thread.joinable()) thread.join();
}

long TaskWithTimersImpl::scheduleTimerImpl(TimeoutProcessor* in_pProcessor, const TimeoutData* in_pData,
                                           const ACE_Time_Value& in_delay,
                                           const ACE_Time_Value& in_interval,
                                           unsigned long long /*in_ullReserved*/, bool /*in_bReserved*/) {
    if (in_pProcessor == nullptr) return -1;
    const auto toDuration = [](const ACE_Time_Value& tv) {
        // Saturated at about a century: the clock's nanoseconds would overflow
        // near ACE_Time_Value::max_time.
        const time_t kMaxSeconds = 100LL * 365 * 24 * 3600;
        if (tv.sec() >= kMaxSeconds) return Clock::duration(std::chrono::seconds(kMaxSeconds));
        return Clock::duration(std::chrono::seconds(tv.sec()) + std::chrono::microseconds(tv.usec()));
    };
    long id = -1;
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        if (m_bTimersRunning) {
            id = m_lNextId++;
            m_timers.emplace(Clock::now() + toDuration(in_delay),
                             Timer{in_pProcessor, in_pData, toDuration(in_interval), id});
        }
    }
    if (id < 0) {
        delete in_pProcessor;
        return -1;
    }
    m_timerCond.notify_all();
    return id;
}

bool TaskWithTimersImpl::cancelTimer(long in_lTimerId) {
    Timer cancelled{nullptr, nullptr, {}, 0};
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        for (auto it = m_timers.begin(); it != m_timers.end(); ++it) {
            if (it->second.id == in_lTimerId) {
                cancelled = it->second;
                m_timers.erase(it);
                break;
            }
        }
    }
    if (cancelled.processor == nullptr) return false;
    cancelled.processor->handleCancel(cancelled.data);
    delete cancelled.processor;
    return true;
}

size_t TaskWithTimersImpl::getNumPendingTimers() const {
    std::lock_guard<std::mutex> guard(m_timerMutex);
    return m_timers.size();
}

void TaskWithTimersImpl::timerLoop() {
    markServiceThread();
    std::unique_lock<std::mutex> lock(m_timerMutex);
    while (m_bTimersRunning) {
        if (m_timers.empty()) {
            m_timerCond.wait(lock);
            continue;
        }
        auto first = m_timers.begin();
        if (first->first > Clock::now()) {
            // A copy: the wait reads its deadline again on waking, when a
            // cancel may have freed the entry.
            const Clock::time_point wakeUp = first->first;
            m_timerCond.wait_until(lock, wakeUp);
            continue;
        }
        Timer timer = first->second;
        const Clock::time_point expiry = first->first;
        m_timers.erase(first);
        lock.unlock();
        timer.processor->handleTimeout(timer.data);
        lock.lock();
        if (timer.interval != Clock::duration::zero() && m_bTimersRunning) {
            m_timers.emplace(expiry + timer.interval, timer);
        } else {
            lock.unlock();
            delete timer.processor;
            lock.lock();
        }
    }
    // Timers still armed are dropped; destroying each processor is its last event.
    std::vector<TimeoutProcessor*> dropped;
    for (auto& entry : m_timers) dropped.push_back(entry.second.processor);
    m_timers.clear();
    lock.unlock();
    for (TimeoutProcessor* pProcessor : dropped) delete pProcessor;
}

}  // namespace Tarvik
