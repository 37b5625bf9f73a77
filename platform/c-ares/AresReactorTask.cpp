#include "platform/AresReactorTask.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <ace/Guard_T.h>

#include "platform/Assertion.h"
#include "platform/Logger.h"
#include "platform/SingletonRegistry.h"
#include "platform/Thread.h"

namespace Tarvik {

namespace {

Logger& logger() {
    static Logger& s_logger = getLogger("corvane.c-ares.AresReactorTask");
    return s_logger;
}

// The task whose loop runs on this thread, null on every other thread.
thread_local const AresReactorTask* t_pLoopTask = nullptr;

// The process-wide task; null until first use and again once torn down.
std::atomic<AresReactorTask*> s_pInstance{nullptr};

int toPollTimeout(const timeval* in_pTimeout) {
    if (in_pTimeout == nullptr) return -1;  // nothing in flight: sleep until woken
    // Rounded up: waking a little early would only spin until the deadline.
    const long ms = static_cast<long>(in_pTimeout->tv_sec) * 1000 + (in_pTimeout->tv_usec + 999) / 1000;
    return ms > 0x7fffffffL ? 0x7fffffff : static_cast<int>(ms);
}

}  // namespace

AresReactorTask& AresReactorTask::getInstance() {
    AresReactorTask* pTask = s_pInstance.load(std::memory_order_acquire);
    if (pTask != nullptr) return *pTask;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(OnDemandSingletonNoT::sGetMutex());
    pTask = s_pInstance.load(std::memory_order_relaxed);
    if (pTask == nullptr) {
        pTask = new AresReactorTask;
        SingletonRegistry::getInstance().registerObject("Tarvik::AresReactorTask", pTask,
                                                        &AresReactorTask::destroyInstance);
        s_pInstance.store(pTask, std::memory_order_release);
    }
    return *pTask;
}

void AresReactorTask::destroyInstance(void* in_pTask) {
    AresReactorTask* pTask = static_cast<AresReactorTask*>(in_pTask);
    s_pInstance.store(nullptr, std::memory_order_release);
    // The process ends from one of the task's own callbacks: its thread still
    // uses the object, so it is left alone.
    if (pTask->isLoopThread()) return;
    delete pTask;
}

AresReactorTask::AresReactorTask()
    : m_wakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), m_channel(nullptr), m_state(STOPPED_STATE),
      m_bStopRequested(false), m_loopChannel(nullptr), m_bLoopAccepting(false) {
    if (m_wakeFd < 0) {
        CORVANE_ERROR(logger(), "AresReactorTask::AresReactorTask : eventfd failed, the task cannot start : "
                                    << std::strerror(errno));
    }
}

AresReactorTask::~AresReactorTask() {
    stop();
    waitUntilDone();
    if (m_wakeFd >= 0) close(m_wakeFd);
}

bool AresReactorTask::setChannel(ares_channel in_channel) {
    CORVANE_TRACE_SCOPE(logger(), "AresReactorTask::setChannel");
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!CORVANE_ASSERT(logger(), m_state == STOPPED_STATE)) return false;
    m_channel = in_channel;
    CORVANE_DEBUG(logger(), traceScope.getName() << " : channel=" << static_cast<const void*>(in_channel));
    return true;
}

void AresReactorTask::releaseChannel(ares_channel in_channel) {
    AresReactorTask* pTask = s_pInstance.load(std::memory_order_acquire);
    if (pTask == nullptr || in_channel == nullptr) return;
    {
        std::lock_guard<std::mutex> guard(pTask->m_mutex);
        if (pTask->m_channel != in_channel) return;
    }
    pTask->stop();
    pTask->waitUntilDone();
    std::lock_guard<std::mutex> guard(pTask->m_mutex);
    if (pTask->m_channel == in_channel && pTask->m_state == STOPPED_STATE) pTask->m_channel = nullptr;
}

bool AresReactorTask::start() {
    CORVANE_TRACE_SCOPE(logger(), "AresReactorTask::start");
    // The loop thread runs, so the task is not stopped; and m_joinMutex may be
    // held by a thread that waits for this one.
    if (isLoopThread()) {
        CORVANE_DEBUG(logger(), traceScope.getName() << " : refused, called on the loop thread");
        return false;
    }
    std::lock_guard<std::mutex> joinGuard(m_joinMutex);
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_state != STOPPED_STATE) {
            CORVANE_DEBUG(logger(), traceScope.getName() << " : refused, the task is not stopped");
            return false;
        }
    }
    // Stopped: the last thread, if any, has done its last step, and only
    // start (under m_joinMutex, held here) leaves the stopped state.
    if (m_thread.joinable()) m_thread.join();
    ares_channel channel = nullptr;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_channel == nullptr || m_wakeFd < 0) {
            CORVANE_DEBUG(logger(), traceScope.getName()
                                        << " : refused, " << (m_wakeFd < 0 ? "no wake-up descriptor" : "no channel"));
            return false;
        }
        channel = m_channel;
        // Searches are queued from here on, before the thread runs.
        m_state = RUNNING;
        m_bStopRequested = false;
    }
    std::string strError;
    if (!startThread(m_thread, [this, channel] { run(channel); }, strError)) {
        CORVANE_ERROR(logger(), traceScope.getName() << " : cannot make the loop thread : " << strError);
        std::vector<Request> queued;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_state = STOPPED_STATE;
            queued.swap(m_requests);
        }
        for (const Request& request : queued) request.callback(request.arg, ARES_ECANCELLED, 0, nullptr, 0);
        return false;
    }
    CORVANE_DEBUG(logger(), traceScope.getName() << " : loop thread started");
    return true;
}

bool AresReactorTask::stop() {
    CORVANE_TRACE_SCOPE(logger(), "AresReactorTask::stop");
    bool bWake = false;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_state == RUNNING) {
            m_state = STOPPING_STATE;
            m_bStopRequested = true;
            bWake = true;
        }
    }
    if (bWake) {
        CORVANE_DEBUG(logger(), traceScope.getName() << " : stop requested");
        wake();
    }
    return true;
}

bool AresReactorTask::kill() { return stop(); }

bool AresReactorTask::waitUntilDone() {
    CORVANE_TRACE_SCOPE(logger(), "AresReactorTask::waitUntilDone");
    // The loop thread would wait for itself.
    if (!CORVANE_ASSERT(logger(), !isLoopThread())) return false;
    std::lock_guard<std::mutex> joinGuard(m_joinMutex);
    if (m_thread.joinable()) {
        m_thread.join();
        CORVANE_DEBUG(logger(), traceScope.getName() << " : loop thread joined");
    }
    return true;
}

Task::State AresReactorTask::getTaskState() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_state;
}

void AresReactorTask::search(const char* in_szName, int in_iDnsClass, int in_iType, ares_callback in_callback,
                             void* in_pArg) {
    if (!CORVANE_ASSERT(logger(), in_callback != 0)) return;
    if (!CORVANE_ASSERT(logger(), in_szName != 0)) {
        in_callback(in_pArg, ARES_EBADNAME, 0, nullptr, 0);
        return;
    }
    if (isLoopThread()) {
        // A callback searching again: the channel is this thread's, send at once.
        if (m_bLoopAccepting) {
            ares_search(m_loopChannel, in_szName, in_iDnsClass, in_iType, in_callback, in_pArg);
        } else {
            in_callback(in_pArg, ARES_ECANCELLED, 0, nullptr, 0);
        }
        return;
    }
    Request request{in_szName, in_iDnsClass, in_iType, in_callback, in_pArg};
    bool bQueued = false;
    bool bWasEmpty = false;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_state == RUNNING) {
            bWasEmpty = m_requests.empty();
            m_requests.push_back(std::move(request));
            bQueued = true;
        }
    }
    if (!bQueued) {
        CORVANE_DEBUG(logger(), "AresReactorTask::search : the task is not running, cancelled : " << in_szName);
        in_callback(in_pArg, ARES_ECANCELLED, 0, nullptr, 0);
        return;
    }
    // Only the request that finds the queue empty wakes the loop: the loop
    // takes the whole queue per wake-up.
    if (bWasEmpty) wake();
}

void AresReactorTask::wake() {
    const uint64_t one = 1;
    while (write(m_wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

bool AresReactorTask::isLoopThread() const { return t_pLoopTask == this; }

void AresReactorTask::run(ares_channel in_channel) {
    t_pLoopTask = this;
    m_loopChannel = in_channel;
    m_bLoopAccepting = true;
    CORVANE_DEBUG(logger(), "AresReactorTask::run : loop thread running");

    pollfd fds[1 + ARES_GETSOCK_MAXNUM];
    ares_socket_t sockets[ARES_GETSOCK_MAXNUM];
    bool bStopping = false;
    while (!bStopping) {
        const int bits = ares_getsock(m_loopChannel, sockets, ARES_GETSOCK_MAXNUM);
        nfds_t count = 0;
        fds[count++] = pollfd{m_wakeFd, POLLIN, 0};
        for (int i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
            short events = 0;
            if (ARES_GETSOCK_READABLE(bits, i)) events |= POLLIN;
            if (ARES_GETSOCK_WRITABLE(bits, i)) events |= POLLOUT;
            if (events != 0) fds[count++] = pollfd{sockets[i], events, 0};
        }
        timeval maxWait;
        const int ready = poll(fds, count, toPollTimeout(ares_timeout(m_loopChannel, nullptr, &maxWait)));
        if (ready < 0) {
            if (errno == EINTR) continue;
            CORVANE_ERROR(logger(), "AresReactorTask::run : poll failed, the task stops : " << std::strerror(errno));
            break;
        }
        bool bSocketReady = false;
        for (nfds_t i = 1; i < count; ++i) {
            const short revents = fds[i].revents;
            if (revents == 0) continue;
            bSocketReady = true;
            const ares_socket_t readFd = (revents & (POLLIN | POLLERR | POLLHUP | POLLNVAL)) ? fds[i].fd : ARES_SOCKET_BAD;
            const ares_socket_t writeFd = (revents & (POLLOUT | POLLERR | POLLHUP)) ? fds[i].fd : ARES_SOCKET_BAD;
            ares_process_fd(m_loopChannel, readFd, writeFd);
        }
        // Time-outs are handled on every processing call; without a ready
        // socket, one call with no descriptor does it.
        if (!bSocketReady) ares_process_fd(m_loopChannel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
        if (fds[0].revents & POLLIN) {
            // Cleared before the queue is taken: a request queued after this
            // point wakes the loop again.
            uint64_t wakeups = 0;
            while (read(m_wakeFd, &wakeups, sizeof wakeups) < 0 && errno == EINTR) {
            }
            bStopping = takeRequests();
        }
    }
    finish();
}

bool AresReactorTask::takeRequests() {
    bool bStop = false;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_taken.swap(m_requests);
        bStop = m_bStopRequested;
    }
    // Requests taken together with the stop are cancelled by finish().
    if (bStop) return true;
    for (const Request& request : m_taken) {
        ares_search(m_loopChannel, request.name.c_str(), request.dnsClass, request.type, request.callback,
                    request.arg);
    }
    m_taken.clear();
    return false;
}

void AresReactorTask::finish() {
    {
        // Also when the loop ends on an error: no request is queued after this.
        std::lock_guard<std::mutex> guard(m_mutex);
        m_state = STOPPING_STATE;
        m_bStopRequested = true;
    }
    // From here a callback that searches again is cancelled at once.
    m_bLoopAccepting = false;
    // Queries in flight first, in the order they were sent, then the requests
    // that never reached the channel.
    ares_cancel(m_loopChannel);
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        for (Request& request : m_requests) m_taken.push_back(std::move(request));
        m_requests.clear();
    }
    const size_t queued = m_taken.size();
    for (const Request& request : m_taken) request.callback(request.arg, ARES_ECANCELLED, 0, nullptr, 0);
    m_taken.clear();
    m_loopChannel = nullptr;
    CORVANE_DEBUG(logger(), "AresReactorTask::run : loop thread ends, queries in flight cancelled, "
                                << queued << " queued requests cancelled");
    std::lock_guard<std::mutex> guard(m_mutex);
    m_state = STOPPED_STATE;
    m_bStopRequested = false;
}

}  // namespace Tarvik
