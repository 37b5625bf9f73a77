// The resolver task: construction, configuration, thread entry and exit, and
// synchronous resolution through the operating system.
#include "net/HostNameServer.h"

#include <pthread.h>

#include "net/HostNameServerLog.h"
#include "net/HostNameServerWork.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Tarvik {

Logger& hostNameServerLogger() {
    static Logger& s_logger = getLogger("corvane.net.HostNameServer");
    return s_logger;
}

long long toLogMilliseconds(const ACE_Time_Value& in_tv) {
    return static_cast<long long>(static_cast<unsigned long long>(in_tv.sec()) * 1000ULL +
                                  static_cast<unsigned long long>(in_tv.usec() / 1000));
}

namespace {

Logger& serverLogger() { return hostNameServerLogger(); }

const char* const kNumThreadParamName = "corvane.net.HostNameServer.numThread";

}  // namespace

HostNameServer::HostNameServer(size_t in_uiNumThread)
    : AddTimeoutToBlockingOpTask("HostNameServer"),
      m_cache(100),
      m_cacheFlushTimeout(10, 0),
      m_bCacheSuccess(false),
      m_bCacheFailures(false),
      m_aresChannel(nullptr),
      m_bAresStarted(false) {
    if (!setNumThread(in_uiNumThread)) Assertion::report(serverLogger(), "setNumThread(in_uiNumThread)", __FILE__, __LINE__);
}

HostNameServer::~HostNameServer() {
    AddTimeoutToBlockingOpTask::stop();
    AddTimeoutToBlockingOpTask::waitUntilDone();
    releaseAresChannel();
}

const char* HostNameServer::getCacheFailuresParamName() { return "corvane.net.HostNameServer.cacheFailures"; }
const char* HostNameServer::getCacheSuccessParamName() { return "corvane.net.HostNameServer.cacheSuccess"; }
const char* HostNameServer::getCacheFlushTimeoutMsParamName() {
    return "corvane.net.HostNameServer.cacheFlushTimeoutMs";
}

bool HostNameServer::start() { return AddTimeoutToBlockingOpTask::start(); }
bool HostNameServer::kill() { return AddTimeoutToBlockingOpTask::kill(); }
bool HostNameServer::stop() { return AddTimeoutToBlockingOpTask::stop(); }
bool HostNameServer::waitUntilDone() { return AddTimeoutToBlockingOpTask::waitUntilDone(); }
Task::State HostNameServer::getTaskState() const { return AddTimeoutToBlockingOpTask::getTaskState(); }

bool HostNameServer::configure(const TSHandle<ROConfiguration>& in_hConfig) {
    CORVANE_TRACE_SCOPE(serverLogger(), "HostNameServer::configure");
    if (!CORVANE_ASSERT(serverLogger(), ! in_hConfig.isNull())) return false;
    if (!ManageableTaskImplBase::configure(in_hConfig)) return false;

    long value = 0;
    {
        // Answers of an earlier run may still reach the cache (the DNS task, a late work).
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_cacheLock);
        bool flag = false;
        if (in_hConfig->getBoolean(getCacheSuccessParamName(), flag)) m_bCacheSuccess = flag;
        if (in_hConfig->getBoolean(getCacheFailuresParamName(), flag)) m_bCacheFailures = flag;

        if (in_hConfig->getInteger(getCacheFlushTimeoutMsParamName(), value)) {
            if (value < 1) {
                CORVANE_WARN(serverLogger(),
                             getCacheFlushTimeoutMsParamName() << " parameter must have a value > 0. Ignoring");
            } else {
                m_cacheFlushTimeout.set(static_cast<time_t>(value / 1000),
                                        static_cast<suseconds_t>((value % 1000) * 1000));
            }
        }
    }

    long numThread = 1;
    if (in_hConfig->getInteger(kNumThreadParamName, value)) {
        if (value < 1) {
            CORVANE_ERROR(serverLogger(), kNumThreadParamName << " must be >= 1");
            return false;
        }
        numThread = value;
    }
    if (!configureCAres(in_hConfig)) return false;
    return setNumThread(static_cast<size_t>(numThread));
}

void HostNameServer::onSvcEntry() {
    CORVANE_TRACE_SCOPE(serverLogger(), "HostNameServer::onSvcEntry");
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_cacheLock);
        flushCache();
    }
    if (isDnsMode() && !startAresTask()) {
        // Never RUNNING: the run ends at once, and the library's start says so.
        HostNameServer::stop();
        return;
    }
    setTaskState(Task::RUNNING);
}

void HostNameServer::onSvcExit() {
    CORVANE_TRACE_SCOPE(serverLogger(), "HostNameServer::onSvcExit");
    if (m_bAresStarted) stopAresTask();
}

bool HostNameServer::resolve(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                             ACE_Time_Value in_timeout, bool in_bUseCache) {
    if (isDnsMode()) return getDNSARecords(in_szHostname, out_hostent, out_status, in_timeout, in_bUseCache);
    return getHostByName(in_szHostname, out_hostent, out_status, in_timeout, in_bUseCache);
}

bool HostNameServer::resolve(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback,
                             ACE_Time_Value in_timeout, bool in_bUseCache) {
    if (isDnsMode()) {
        CORVANE_NOT_IMPLEMENTED(serverLogger(), "asynchronous DNS resolution using a callback");
        return false;
    }
    return getHostByName(in_szHostname, in_pNewCallback, in_timeout, in_bUseCache);
}

bool HostNameServer::getHostByName(const char* in_szHostname, Hostent& out_hostent,
                                   Hostent::GetHostByNameStatus& out_status, ACE_Time_Value in_timeout,
                                   bool in_bUseCache) {
    CORVANE_TRACE_SCOPE(serverLogger(), "HostNameServer::getHostByName");
    const char* szHostname = in_szHostname ? in_szHostname : "";
    CORVANE_DEBUG(serverLogger(), traceScope.getName() << " : " << "HostNameServer::getHostByName hostname="
                                      << szHostname << " timeout=" << toLogMilliseconds(in_timeout) << "ms");
    bool bUsable = false;
    if (in_bUseCache && getHostentInCache(szHostname, out_hostent, out_status, bUsable)) return bUsable;

    return waitForResult(new GetHostByNameWork(*this, szHostname, nullptr, in_bUseCache), out_hostent, out_status,
                         in_timeout);
}

bool HostNameServer::waitForResult(AddTimeoutToBlockingOpTask::Work<GHBNResult>* in_pWork, Hostent& out_hostent,
                                   Hostent::GetHostByNameStatus& out_status, const ACE_Time_Value& in_timeout) {
    // The record is copied once, from the shared result straight into the caller's.
    const auto take = [&out_hostent, &out_status](const GHBNResult& in_result) {
        if (&out_hostent != &in_result.m_hostent) out_hostent = in_result.m_hostent;
        out_status = in_result.m_status;
    };
    switch (doWorkAndTake<GHBNResult>(in_pWork, take, in_timeout)) {
        case DOWORK_RESULT: break;
        case DOWORK_TIMEOUT: out_status = Hostent::GHBN_TIMEOUT; break;
        default: out_status = Hostent::GHBN_OTHER_ERROR; break;  // no result, or the work could not run
    }
    return out_hostent.isValid() && out_status == Hostent::GHBN_SUCCESS;
}

bool HostNameServer::GHBNFutureCallback::onGhbnResult(const char*, const Hostent& in_hostent,
                                                     Hostent::GetHostByNameStatus in_status, ACE_Time_Value in_ttl) {
    // Built in place in the shared result: the record is copied once.
    m_producer.deliverWith(
        [&](GHBNResult& io_result) {
            io_result.m_hostent = in_hostent;
            io_result.m_status = in_status;
            io_result.m_ttl = in_ttl;
            io_result.m_bSet = true;
        },
        true);
    return true;
}

HostNameServer::GetHostByNameWork::GetHostByNameWork(HostNameServer& in_server, const char* in_szHostname,
                                                     GetHostByNameCallback* in_pCallback, bool in_bUseCache)
    : m_server(in_server),
      m_strHostname(in_szHostname ? in_szHostname : ""),
      m_pCallback(in_pCallback ? in_pCallback : new FutureCallback(getProducer())),
      m_bUseCache(in_bUseCache) {}

bool HostNameServer::GetHostByNameWork::doWork() {
    CORVANE_TRACE_SCOPE(serverLogger(), "GetHostByNameWork::doWork");
    CORVANE_DEBUG(serverLogger(), traceScope.getName() << " : " << "thread-id = " << pthread_self());
    CORVANE_DEBUG(serverLogger(), traceScope.getName() << " : " << "hostname = " << m_strHostname);
    m_result.m_hostent.getHostByName(m_strHostname.c_str(), m_result.m_status);
    CORVANE_DEBUG(serverLogger(), traceScope.getName() << " : " << "Hostent = " << m_result.m_hostent);
    if (m_bUseCache) m_server.updateCache(m_strHostname, m_result.m_hostent, m_result.m_status, ACE_Time_Value::zero);
    if (!CORVANE_ASSERT(serverLogger(), ! m_pCallback.isNull())) return false;
    m_pCallback->onGhbnResult(m_strHostname.c_str(), m_result.m_hostent, m_result.m_status, ACE_Time_Value::zero);
    return true;
}

}  // namespace Tarvik
