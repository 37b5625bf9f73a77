// Runs blocking work on a task's thread pool while the submitter waits with a
// time-out. The result is shared between the waiter and the work under a
// counted, locked state, so either may finish last.
#pragma once

#include <atomic>
#include <cerrno>
#include <utility>

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Guard_T.h>
#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Thread_Mutex.h>

#include "platform/Assertion.h"
#include "platform/CountedObjPtr.h"
#include "platform/Logger.h"
#include "platform/TaskWithTimersImpl.h"

namespace Tarvik {

// The state one waiter and its producers share.
template <class R>
class SharedResult {
public:
    SharedResult() : m_cond(m_mutex) {}

    // Stores the result once (later deliveries are ignored) and wakes the waiter.
    void deliver(const R& in_result, bool in_bValid) {
        deliverWith([&in_result](R& io_result) { io_result = in_result; }, in_bValid);
    }
    // The same, building the result in place with in_fill(R&), under the lock
    // (so in_fill must not block): no intermediate copy of the result is made.
    // The waiter is woken after the lock is released, so that it does not wake
    // only to wait for the lock (the producer's hold keeps this object alive).
    template <class Fill>
    void deliverWith(Fill&& in_fill, bool in_bValid) {
        {
            ACE_Guard<ACE_Thread_Mutex> guard(m_mutex);
            if (m_bDelivered) return;
            in_fill(m_result);
            m_bValid = in_bValid;
            m_bDelivered = true;
        }
        m_cond.broadcast();
    }
    // A producer's own time-out: no result will come, and the waiter is left
    // to its deadline rather than woken with none (a waiter without a
    // deadline is told at once that time ran out).
    void expire() {
        {
            ACE_Guard<ACE_Thread_Mutex> guard(m_mutex);
            if (m_bDelivered) return;
            m_bExpired = true;
        }
        m_cond.broadcast();
    }
    void addProducer() { m_producers.fetch_add(1, std::memory_order_relaxed); }
    // The last producer gone without a result wakes the waiter with none,
    // unless a producer expired the result.
    void releaseProducer() {
        if (m_producers.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        {
            ACE_Guard<ACE_Thread_Mutex> guard(m_mutex);
            if (m_bDelivered || m_bExpired) return;
            m_bDelivered = true;
            m_bValid = false;
        }
        m_cond.broadcast();
    }

private:
    template <class>
    friend class BlockingWait;
    ACE_Thread_Mutex m_mutex;            // guards the four members below
    ACE_Condition_Thread_Mutex m_cond;   // signalled when m_bDelivered or m_bExpired becomes true
    bool m_bDelivered = false;           // a result (valid or not) is there
    bool m_bExpired = false;             // a producer timed out: no result will come
    bool m_bValid = false;               // m_result holds a valid result
    R m_result{};                        // meaningful when m_bValid
    std::atomic<long> m_producers{0};    // holders that may still deliver
};

// A producer's counted hold on a shared result: copies are further producers.
template <class R>
class ResultProducer {
public:
    explicit ResultProducer(CountedObjPtr<SharedResult<R>> in_pShared) : m_pShared(std::move(in_pShared)) {
        m_pShared->addProducer();
    }
    ResultProducer(const ResultProducer& in_other) : m_pShared(in_other.m_pShared) { m_pShared->addProducer(); }
    ResultProducer& operator=(const ResultProducer&) = delete;
    ~ResultProducer() { m_pShared->releaseProducer(); }

    void deliver(const R& in_result, bool in_bValid) const { m_pShared->deliver(in_result, in_bValid); }
    void expire() const { m_pShared->expire(); }
    template <class Fill>
    void deliverWith(Fill&& in_fill, bool in_bValid) const {
        m_pShared->deliverWith(std::forward<Fill>(in_fill), in_bValid);
    }
    const CountedObjPtr<SharedResult<R>>& getShared() const { return m_pShared; }

private:
    CountedObjPtr<SharedResult<R>> m_pShared;  // never null
};

// The waiting side of a shared result.
template <class R>
class BlockingWait {
public:
    // Waits until a result is there or the absolute deadline passes (null:
    // no deadline). Returns 0 with a valid result copied into out_result, 1
    // for a result marked not valid, 2 at the deadline (at once when there is
    // none and the result expired), 3 when the wait failed.
    static int wait(SharedResult<R>& io_shared, const ACE_Time_Value* in_pDeadline, R& out_result,
                    const Logger& in_logger) {
        return waitAndTake(io_shared, in_pDeadline, [&out_result](const R& in_result) { out_result = in_result; },
                           in_logger);
    }
    // The same, handing a valid result to in_take(const R&) under the lock (so
    // in_take must not block) instead of copying the whole result out.
    template <class Take>
    static int waitAndTake(SharedResult<R>& io_shared, const ACE_Time_Value* in_pDeadline, Take&& in_take,
                           const Logger& in_logger) {
        ACE_Guard<ACE_Thread_Mutex> guard(io_shared.m_mutex);
        while (!io_shared.m_bDelivered) {
            // Expired: a waiter with a deadline waits it out; one without would wait for ever.
            if (io_shared.m_bExpired && in_pDeadline == nullptr) return 2;
            if (io_shared.m_cond.wait(in_pDeadline) == -1) {
                const int error = errno;
                if (io_shared.m_bDelivered) break;
                CORVANE_DEBUG(in_logger, "AddTimeoutToBlockingOpTask::doWork : " << ACE_OS::strerror(error));
                return (error == ETIME || error == ETIMEDOUT) ? 2 : 3;
            }
        }
        if (!io_shared.m_bValid) return 1;
        in_take(static_cast<const R&>(io_shared.m_result));
        return 0;
    }
};

class AddTimeoutToBlockingOpTask : public TaskWithTimersImpl {
public:
    // Outcomes of doWork.
    enum DoWorkResult {
        DOWORK_RESULT = 0,     // the work delivered a valid result
        DOWORK_NO_RESULT = 1,  // the work delivered a result marked not valid, or none
        DOWORK_TIMEOUT = 2,    // the deadline passed first
        DOWORK_FAILED = 3      // the work could not be queued, or the wait failed
    };

    // One unit of blocking work over a result type. It is a producer of its
    // shared result; so is every copy of getProducer() it hands on.
    template <class R>
    class Work : public ACE_Method_Request {
    public:
        Work() : m_producer(CountedObjPtr<SharedResult<R>>(new SharedResult<R>)) {}
        int call() override { return doWork() ? 0 : -1; }
        // Runs on a pool thread.
        virtual bool doWork() = 0;
        const ResultProducer<R>& getProducer() const { return m_producer; }

    private:
        ResultProducer<R> m_producer;  // this work's hold on the shared result
    };

    explicit AddTimeoutToBlockingOpTask(const std::string& in_strName)
        : TaskWithTimersImpl(in_strName) {}

    // Queues the work (the task owns it) and waits up to in_timeout
    // (ACE_Time_Value::max_time: no limit) for its result.
    template <class R>
    int doWork(Work<R>* in_pNewWork, R& out_result, const ACE_Time_Value& in_timeout) {
        return doWorkAndTake<R>(in_pNewWork, [&out_result](const R& in_result) { out_result = in_result; },
                                in_timeout);
    }
    // The same, handing a valid result to in_take(const R&) (run under the
    // result's lock, so it must not block) rather than copying it whole.
    template <class R, class Take>
    int doWorkAndTake(Work<R>* in_pNewWork, Take&& in_take, const ACE_Time_Value& in_timeout) {
        if (!CORVANE_ASSERT(blockingOpLogger(), in_pNewWork != 0)) return DOWORK_FAILED;
        CountedObjPtr<SharedResult<R>> pShared = in_pNewWork->getProducer().getShared();
        const ACE_Time_Value now = ACE_OS::gettimeofday();
        // A deadline past the largest time value is none: now + in_timeout would overflow.
        const bool bNoLimit = in_timeout == ACE_Time_Value::max_time || in_timeout > ACE_Time_Value::max_time - now;
        const ACE_Time_Value deadline = bNoLimit ? ACE_Time_Value::zero : now + in_timeout;
        if (!enqueue(in_pNewWork, "AddTimeoutToBlockingOpTask::doWork")) return DOWORK_FAILED;
        return BlockingWait<R>::waitAndTake(*pShared, bNoLimit ? nullptr : &deadline, std::forward<Take>(in_take),
                                            blockingOpLogger());
    }

private:
    static const Logger& blockingOpLogger();
};

}  // namespace Tarvik
