#include <memory>

#include "platform/ManageableTaskImplBase.h"

namespace Tarvik {

namespace {
thread_local const StaticReactorTaskImpl* t_pPool = nullptr;  // task the calling thread belongs to
}

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
    if (m_uiActive != 0) return false;
    m_uiNumThread = in_uiNumThread;
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
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        if (m_uiActive != 0) return false;
        m_bStopping = false;
        m_uiActive = m_uiNumThread;
    }
    // Every thread of an earlier run is past its entry (m_uiActive is 0, read
    // under m_queueMutex) and none of this run exists yet, so no lock is needed;
    // taking the service lock here would order it after whatever the caller holds.
    m_bEntered = false;
    setTaskState(Task::STARTING_STATE);
    if (!startServices()) {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        m_uiActive = 0;
        setTaskState(Task::STOPPED_STATE);
        return false;
    }
    const size_t count = getNumThread();
    for (size_t i = 0; i < count; ++i) m_threads.emplace_back([this] { svc(); });
    return true;
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
}

}  // namespace Tarvik
