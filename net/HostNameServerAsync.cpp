// Asynchronous resolution: the client hears exactly one of onGhbnResult and
// onGhbnTimeout, and the server destroys its callback afterwards.
#include <ace/Guard_T.h>

#include "net/AsynchGHBN.h"
#include "net/HostNameServerLog.h"
#include "net/HostNameServerWork.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Tarvik {

namespace {

Logger& asyncLogger() { return hostNameServerLogger(); }

}  // namespace

bool HostNameServer::getHostByName(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback,
                                   ACE_Time_Value in_timeout, bool in_bUseCache) {
    CORVANE_TRACE_SCOPE(asyncLogger(), "HostNameServer::getHostByName");
    if (!CORVANE_ASSERT(asyncLogger(), in_pNewCallback != 0)) return false;
    const char* szHostname = in_szHostname ? in_szHostname : "";
    CORVANE_DEBUG(asyncLogger(), traceScope.getName() << " : " << "hostname=" << szHostname
                                     << " timeout=" << toLogMilliseconds(in_timeout) << "ms");
    if (in_bUseCache) {
        Hostent cached;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        bool bUsable = false;
        if (getHostentInCache(szHostname, cached, status, bUsable)) {
            in_pNewCallback->onGhbnResult(szHostname, cached, status, ACE_Time_Value::zero);
            delete in_pNewCallback;
            return bUsable;
        }
    }
    const bool bTimerPending = in_timeout != ACE_Time_Value::max_time;
    AsynchGHBNCallbackContainer* pContainer = new AsynchGHBNCallbackContainer(*this, bTimerPending, in_pNewCallback);
    if (bTimerPending) {
        scheduleTimerImpl(new AsynchGHBNTimeoutProcessor(pContainer, szHostname), nullptr, in_timeout,
                          ACE_Time_Value::zero, 0, false);
    }
    GetHostByNameCallbackProxy* pProxy = new GetHostByNameCallbackProxy(pContainer, szHostname);
    return enqueue(new GetHostByNameWork(*this, szHostname, pProxy, in_bUseCache), "HostNameServer::getHostByName");
}

AsynchGHBNCallbackContainer::AsynchGHBNCallbackContainer(HostNameServer& in_server, bool in_bTimerPending,
                                                         HostNameServer::GetHostByNameCallback* in_pCallback)
    : m_pLock(&in_server.getCacheLock()),
      m_bTimerPending(in_bTimerPending),
      m_pCallback(in_pCallback),
      m_iEventsLeft(in_bTimerPending ? 2 : 1) {}

AsynchGHBNCallbackContainer::~AsynchGHBNCallbackContainer() { delete m_pCallback; }

bool AsynchGHBNCallbackContainer::lastEvent() { return --m_iEventsLeft == 0; }

bool AsynchGHBNCallbackContainer::onGhbnResult(const char* in_szHostname, const Hostent& in_hostent,
                                               Hostent::GetHostByNameStatus in_status, ACE_Time_Value in_ttl) {
    ACE_Recursive_Thread_Mutex* pLock = m_pLock;  // this may be gone before the lock is released
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*pLock);
    bool bResult = true;
    if (m_pCallback != nullptr) {
        bResult = m_pCallback->onGhbnResult(in_szHostname, in_hostent, in_status, in_ttl);
        delete m_pCallback;
        m_pCallback = nullptr;
    }
    if (lastEvent()) delete this;
    return bResult;
}

bool AsynchGHBNCallbackContainer::onGhbnTimeout(const char* in_szHostname) {
    ACE_Recursive_Thread_Mutex* pLock = m_pLock;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*pLock);
    bool bResult = true;
    m_bTimerPending = false;
    if (m_pCallback != nullptr) {
        bResult = m_pCallback->onGhbnTimeout(in_szHostname);
        delete m_pCallback;
        m_pCallback = nullptr;
    }
    if (lastEvent()) delete this;
    return bResult;
}

void AsynchGHBNCallbackContainer::onWorkDropped(const char* in_szHostname) {
    ACE_Recursive_Thread_Mutex* pLock = m_pLock;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*pLock);
    if (m_bTimerPending) {
        if (lastEvent()) delete this;  // the client was told of its time-out already
        return;
    }
    onGhbnResult(in_szHostname, Hostent(), Hostent::GHBN_OTHER_ERROR, ACE_Time_Value::zero);
}

AsynchGHBNTimeoutProcessor::AsynchGHBNTimeoutProcessor(AsynchGHBNCallbackContainer* in_pContainer,
                                                       const char* in_szHostname)
    : m_pContainer(in_pContainer), m_strHostname(in_szHostname), m_bFired(false) {}

AsynchGHBNTimeoutProcessor::~AsynchGHBNTimeoutProcessor() {
    if (!m_bFired) m_pContainer->onGhbnTimeout(m_strHostname.c_str());
}

bool AsynchGHBNTimeoutProcessor::handleTimeout(const TimeoutData*) {
    m_bFired = true;
    return m_pContainer->onGhbnTimeout(m_strHostname.c_str());
}

GetHostByNameCallbackProxy::GetHostByNameCallbackProxy(AsynchGHBNCallbackContainer* in_pContainer,
                                                       const char* in_szHostname)
    : m_pContainer(in_pContainer), m_strHostname(in_szHostname) {}

GetHostByNameCallbackProxy::~GetHostByNameCallbackProxy() {
    if (m_pContainer != nullptr) m_pContainer->onWorkDropped(m_strHostname.c_str());
}

bool GetHostByNameCallbackProxy::onGhbnTimeout(const char*) {
    CORVANE_NOT_IMPLEMENTED(asyncLogger(), "GetHostByNameCallbackProxy::onGhbnTimeout");
    return false;
}

bool GetHostByNameCallbackProxy::onGhbnResult(const char* in_szHostname, const Hostent& in_hostent,
                                              Hostent::GetHostByNameStatus in_status, ACE_Time_Value in_ttl) {
    AsynchGHBNCallbackContainer* pContainer = m_pContainer;
    m_pContainer = nullptr;
    if (pContainer == nullptr) return false;
    return pContainer->onGhbnResult(in_szHostname, in_hostent, in_status, in_ttl);
}

}  // namespace Tarvik
