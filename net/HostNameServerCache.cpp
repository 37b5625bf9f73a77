// The resolver's cache: successes live for their time-to-live, failures are
// recorded but never served. Expired entries are swept at every lookup; an
// index ordered by expiry finds them without walking the whole map.
#include <ace/Guard_T.h>
#include <ace/OS_NS_sys_time.h>

#include <atomic>
#include <cstdint>
#include <new>

#include "net/HostNameServer.h"
#include "net/HostNameServerLog.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Tarvik {

namespace {

Logger& cacheLogger() { return hostNameServerLogger(); }

// Milliseconds as the cache's logs print them: signed 32 bits, truncated.
int32_t ttlMilliseconds(const ACE_Time_Value& in_tv) {
    return static_cast<int32_t>(static_cast<uint64_t>(in_tv.sec()) * 1000U + static_cast<uint64_t>(in_tv.usec() / 1000));
}

std::atomic<ACE_Time_Value (*)()> s_pClock{nullptr};

}  // namespace

ACE_Time_Value HostNameServer::now() {
    ACE_Time_Value (*pClock)() = s_pClock.load(std::memory_order_acquire);
    return pClock ? pClock() : ACE_OS::gettimeofday();
}

void HostNameServer::setClockForTest(ACE_Time_Value (*in_pClock)()) { s_pClock.store(in_pClock, std::memory_order_release); }

bool HostNameServer::getHostentInCache(const char* in_szHostname, Hostent& out_hostent,
                                       Hostent::GetHostByNameStatus& out_status, bool& out_bUsable) {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::getHostentInCache");
    out_bUsable = false;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_cacheLock);
    flushCacheIfRequired();
    m_strScratchKey.assign(in_szHostname ? in_szHostname : "");
    auto it = m_cache.find(m_strScratchKey);
    if (it == m_cache.end()) {
        CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "cache miss");
        return false;
    }
    CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "cache hit");
    if (&out_hostent != &it->second.m_hostent) out_hostent = it->second.m_hostent;
    out_status = it->second.m_status;
    out_bUsable = out_status == Hostent::GHBN_SUCCESS && out_hostent.isValid();
    return true;
}

void HostNameServer::updateCache(const std::string& in_strHostname, const Hostent& in_hostent,
                                 Hostent::GetHostByNameStatus in_ghbnStatus, ACE_Time_Value in_ttl) {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::updateCache");
    if (in_hostent.isValid() && in_ghbnStatus == Hostent::GHBN_SUCCESS) {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_cacheLock);
        try {
            cacheSuccess(in_strHostname, in_hostent, in_ttl);
        } catch (const std::bad_alloc&) {
            // The cache is as it was; the result still reaches its caller.
            CORVANE_ERROR(cacheLogger(), traceScope.getName() << " : out of memory, " << in_strHostname << " not cached");
        }
        return;
    }
    updateCache(in_strHostname, in_ghbnStatus);
}

void HostNameServer::updateCache(const std::string& in_strHostname, Hostent::GetHostByNameStatus in_ghbnStatus) {
    if (!CORVANE_ASSERT(cacheLogger(), in_ghbnStatus != Hostent::GHBN_SUCCESS)) return;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_cacheLock);
    try {
        cacheFailure(in_strHostname, in_ghbnStatus);
    } catch (const std::bad_alloc&) {
        CORVANE_ERROR(cacheLogger(), "HostNameServer::updateCache : out of memory, " << in_strHostname << " not cached");
    }
}

void HostNameServer::cacheSuccess(const std::string& in_strHostname, const Hostent& in_hostent, ACE_Time_Value in_ttl) {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::cacheSuccess");
    if (!m_bCacheSuccess) return;
    const ACE_Time_Value current = now();
    ACE_Time_Value ttl;
    if (in_ttl != ACE_Time_Value::zero) {
        ttl = in_ttl;
        CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "using specified TTL " << ttlMilliseconds(ttl) << "ms");
    } else {
        ttl = m_cacheFlushTimeout;
        CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "no TTL specified -> using default value "
                                         << ttlMilliseconds(ttl) << "ms");
    }
    CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "cached " << in_hostent << " for host " << in_strHostname
                                     << " (will expired in " << ttlMilliseconds(ttl) << "ms)");
    storeEntry(in_strHostname, in_hostent, Hostent::GHBN_SUCCESS, current + ttl);
}

void HostNameServer::cacheFailure(const std::string& in_strHostname, Hostent::GetHostByNameStatus in_status) {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::cacheFailure");
    if (!m_bCacheFailures) return;
    CORVANE_DEBUG(cacheLogger(), traceScope.getName() << " : " << "cached failure of " << in_strHostname);
    if (!CORVANE_ASSERT(cacheLogger(), in_status != Hostent::GHBN_SUCCESS)) return;
    storeEntry(in_strHostname, Hostent(), in_status, ACE_Time_Value::zero);
}

void HostNameServer::storeEntry(const std::string& in_strHostname, const Hostent& in_hostent,
                                Hostent::GetHostByNameStatus in_status, const ACE_Time_Value& in_expiry) {
    // Strong guarantee: everything that may throw (the copy, the map node, the
    // index node) is done before anything already cached is changed, and a new
    // entry that cannot be indexed is taken out again.
    Hostent copy(in_hostent);
    auto inserted = m_cache.try_emplace(in_strHostname);
    CacheEntry& entry = inserted.first->second;
    const std::string* pKey = &inserted.first->first;
    const bool bSameExpiry = !inserted.second && entry.m_expiry == in_expiry;
    if (!bSameExpiry) {
        try {
            m_expiryIndex.insert({in_expiry, pKey});
        } catch (...) {
            if (inserted.second) m_cache.erase(inserted.first);
            throw;
        }
        if (!inserted.second) m_expiryIndex.erase({entry.m_expiry, pKey});
    }
    entry.m_hostent.swap(copy);
    entry.m_status = in_status;
    entry.m_expiry = in_expiry;
}

void HostNameServer::flushCacheIfRequired() {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::flushCacheIfRequired");
    if (m_expiryIndex.empty()) return;
    const ACE_Time_Value current = now();
    // An entry is stale once now is past its expiry; one at exactly its expiry is still served.
    while (!m_expiryIndex.empty() && current > m_expiryIndex.begin()->first) {
        const std::string* pKey = m_expiryIndex.begin()->second;
        CORVANE_DEBUG(cacheLogger(), "flushing \"" << *pKey << "\" from cache");
        auto stale = m_cache.find(*pKey);
        m_expiryIndex.erase(m_expiryIndex.begin());
        m_cache.erase(stale);
    }
}

void HostNameServer::flushCache() {
    CORVANE_TRACE_SCOPE(cacheLogger(), "HostNameServer::flushCache");
    m_expiryIndex.clear();
    m_cache.clear();
    CORVANE_DEBUG(cacheLogger(), "HostNameServer cache flushed");
}

}  // namespace Tarvik
