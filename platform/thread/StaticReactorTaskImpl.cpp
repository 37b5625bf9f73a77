#include <memory>

#include "platform/Logger.h"
#include "platform/ManageableTaskImplBase.h"
#include "platform/Thread.h"

namespace Tarvik {

namespace {
thread_local const StaticReactorTaskImpl* t_pPool = nullptr;  // task the calling thread belongs to

Logger& poolLogger() {
    static Logger& s_logger = getLogger("corvane.thread.StaticReactorTaskImpl");
    return s_logger;
}
}  // namespace

ManageableTaskImplBase::ManageableTaskImplBase(const std::string& in_strName)
    : m_strName(in_strName), m_state(Task::STOPPED_STATE) {}

bool ManageableTaskImplBase::configure(const TSHandle<ROConfiguration>& in_hConfig) {
    if (in_hConfig.isNull()) return false;
    std::lock_guard<std::mutex> guard(m_stateMutex);
    m_hConfig = in_hConfig;
    return true;
}

Task::State ManageableTaskImplBase::getTaskState() const {
    std::lock_guard<std::mutex> guard(m_stateMutex);
    return m_state;
}

void ManageableTaskImplBase::setTaskState(Task::State in_state) {
    std::lock_guard<std::mutex> guard(m_stateMutex);
    // An entry hook that finishes after a stop must not make the task look ready.
    if (in_state == Task::RUNNING && m_state == Task::STOPPING_STATE) return;
    m_state = in_state;
}

TSHandle<ROConfiguration> ManageableTaskImplBase::getConfiguration() const {
    std::lock_guard<std::mutex> guard(m_stateMutex);
    return m_hConfig;
}

StaticReactorTaskImpl::StaticReactorTaskImpl(const std::string& in_strName)
    : ManageableTaskImplBase(in_strName) {}

StaticReactorTaskImpl::~StaticReactorTaskImpl() {
    // A task destroyed while running stops and waits; its derived parts are
    // gone already, so the exit hook of the derived class does not run here.
    StaticReactorTaskImpl::stop();
    if (!isPoolThread()) joinThreads();
}

bool StaticReactorTaskImpl::setNumThread(size_t in_uiNumThread) {
    if (in_uiNumThread == 0) return false;
    std::lock_guard<std::mutex> guard(m_queueMutex);
    if (m_uiAlive != 0) {
        CORVANE_ERROR(poolLogger(), "StaticReactorTaskImpl::setNumThread : " << getTaskName()
                                        << " : refused, the threads of a run are still alive");
        return false;
    }
    m_uiNumThread = in_uiNumThread;
    return true;
}

bool StaticReactorTaskImpl::waitForEndOfRun(std::chrono::milliseconds in_bound) {
    if (isPoolThread()) return false;
    {
        std::unique_lock<std::mutex> lock(m_queueMutex);
        if (m_uiAlive != 0 && !m_bStopping) return true;  // running: nothing to wait for
        if (!m_endCond.wait_for(lock, in_bound, [this] { return m_uiAlive == 0; })) {
            CORVANE_ERROR(poolLogger(), "StaticReactorTaskImpl::waitForEndOfRun : " << getTaskName()
                                            << " : the threads of the previous run have not ended after "
                                            << in_bound.count() << " ms");
            return false;
        }
    }
    joinThreads();
    return true;
}

size_t StaticReactorTaskImpl::getNumThread() const {
    std::lock_guard<std::mutex> guard(m_queueMutex);
    return m_uiNumThread;
}

bool StaticReactorTaskImpl::isPoolThread() const { return t_pPool == this; }

void StaticReactorTaskImpl::markServiceThread() const { t_pPool = this; }

bool StaticReactorTaskImpl::start() {
    if (isPoolThread()) return false;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (m_uiActive != 0 && !m_bStopping) return false;  // already running
    }
    joinThreads();  // the end of an earlier run
    std::lock_guard<std::mutex> joinGuard(m_joinMutex);
    size_t count = 0;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (m_uiAlive != 0) return false;
        m_bStopping = false;
        count = m_uiNumThread;
        m_uiActive = count;
        m_uiAlive = count;
    }
    // Every thread of an earlier run is past its exit (m_uiAlive is 0, read
    // under m_queueMutex) and none of this run exists yet, so no lock is needed;
    // taking the service lock here would order it after whatever the caller holds.
    m_bEntered = false;
    setTaskState(Task::STARTING_STATE);
    if (!startServices()) {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        m_uiActive = 0;
        m_uiAlive = 0;
        setTaskState(Task::STOPPED_STATE);
        return false;
    }
    size_t made = 0;
    std::string strError;
    try {
        m_threads.reserve(count);
        for (; made < count; ++made) {
            std::thread thread;
            if (!startThread(thread, [this] { svc(); }, strError)) break;
            m_threads.push_back(std::move(thread));  // cannot throw: room was reserved
        }
    } catch (const std::exception& e) {  // the reservation
        strError = e.what();
    }
    if (made == count) return true;
    undoStart(count - made, strError);
    return false;
}

void StaticReactorTaskImpl::undoStart(size_t in_uiMissing, const std::string& in_strError) {
    CORVANE_ERROR(poolLogger(), "StaticReactorTaskImpl::start : " << getTaskName() << " : cannot make a thread ("
                                    << in_uiMissing << " missing) : " << in_strError);
    bool bNoneMade = false;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        m_uiActive -= in_uiMissing;
        m_uiAlive -= in_uiMissing;
        bNoneMade = m_uiAlive == 0;
    }
    // The threads that were made end their run as after any stop: the last one
    // out runs the exit hook. This class's own stop: a derived one may be the
    // caller's, which is still starting.
    StaticReactorTaskImpl::stop();
    if (bNoneMade) setTaskState(Task::STOPPED_STATE);
    joinThreadsLocked();  // start holds m_joinMutex
}

bool StaticReactorTaskImpl::stop() {
    std::deque<ACE_Method_Request*> dropped;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (m_uiActive != 0 && !m_bStopping) {
            m_bStopping = true;
            setTaskState(Task::STOPPING_STATE);
        }
        dropped.swap(m_queue);
    }
    m_queueCond.notify_all();
    stopServices();
    // Destroyed outside the lock: a request's destructor may deliver a notification.
    for (ACE_Method_Request* pRequest : dropped) delete pRequest;
    return true;
}

bool StaticReactorTaskImpl::waitUntilDone() {
    if (isPoolThread()) return false;
    joinThreads();
    return true;
}

void StaticReactorTaskImpl::joinThreads() {
    std::lock_guard<std::mutex> joinGuard(m_joinMutex);
    joinThreadsLocked();
}

void StaticReactorTaskImpl::joinThreadsLocked() {
    for (std::thread& thread : m_threads) {
        if (thread.joinable()) thread.join();
    }
    m_threads.clear();
    joinServices();
}

bool StaticReactorTaskImpl::enqueue(ACE_Method_Request* in_pRequest, const char* /*in_szLabel*/) {
    if (in_pRequest == nullptr) return false;
    bool bQueued = false;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (m_uiActive != 0 && !m_bStopping) {
            m_queue.push_back(in_pRequest);
            bQueued = true;
        }
    }
    if (bQueued) {
        // Outside the lock: the woken thread finds it free instead of waiting for it.
        m_queueCond.notify_one();
        return true;
    }
    delete in_pRequest;
    return false;
}

void StaticReactorTaskImpl::svc() {
    t_pPool = this;
    {
        std::lock_guard<std::recursive_mutex> svcGuard(m_svcMutex);
        if (!m_bEntered) {
            m_bEntered = true;
            onSvcEntry();
        }
    }
    for (;;) {
        std::unique_ptr<ACE_Method_Request> request;
        {
            std::unique_lock<std::mutex> lock(m_queueMutex);
            m_queueCond.wait(lock, [this] { return m_bStopping || !m_queue.empty(); });
            if (m_bStopping) break;
            request.reset(m_queue.front());
            m_queue.pop_front();
        }
        request->call();
    }
    std::lock_guard<std::recursive_mutex> svcGuard(m_svcMutex);
    bool bLast = false;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        bLast = --m_uiActive == 0;
    }
    if (bLast) {
        onSvcExit();
        setTaskState(Task::STOPPED_STATE);
    }
    t_pPool = nullptr;
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (--m_uiAlive != 0) return;
    }
    m_endCond.notify_all();
}

}  // namespace Tarvik
