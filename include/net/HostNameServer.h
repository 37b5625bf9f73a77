// The library's resolver: a task with a pool of its own threads on which
// blocking host-name resolutions run, so that a caller can wait with a
// time-out and give up without being blocked by the operating system's
// resolver. Results may be cached; in DNS mode names are resolved by A-record
// queries through c-ares.
#pragma once

#include <ares.h>

#include <cstddef>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Time_Value.h>

#include "net/Hostent.h"
#include "platform/AddTimeoutToBlockingOpTask.h"
#include "platform/GlobalConfig.h"
#include "platform/Task.h"

namespace Tarvik {

class HostNameServerPeer;

class HostNameServer : public virtual ManageableTask, private AddTimeoutToBlockingOpTask {
public:
    // The asynchronous result interface: exactly one of the two operations is
    // called per request, after which the server destroys the object.
    class GetHostByNameCallback : public virtual Object {
    public:
        // The resolution did not finish within the time-out.
        virtual bool onGhbnTimeout(const char* in_szHostname) = 0;
        // The resolution finished with the given status; the record holds the
        // addresses on success. in_ttl is zero when no time-to-live is known.
        virtual bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent,
                                  Hostent::GetHostByNameStatus in_status, ACE_Time_Value in_ttl) = 0;
    };

    // What a resolution work hands back to its waiter.
    struct GHBNResult {
        Hostent m_hostent;                                           // the record; empty on failure
        Hostent::GetHostByNameStatus m_status = Hostent::GHBN_SUCCESS;  // outcome
        ACE_Time_Value m_ttl = ACE_Time_Value::zero;                 // time-to-live; zero when unknown
        bool m_bSet = false;                                         // a result was stored
    };

    class GetHostByNameWork;
    class DNSARecordWork;
    class GHBNFutureCallback;

    explicit HostNameServer(size_t in_uiNumThread = 1);
    ~HostNameServer() override;

    // The process-wide resolver, created on first use.
    static HostNameServer& getInstance();

    static const char* getCacheFailuresParamName();
    static const char* getCacheSuccessParamName();
    static const char* getCacheFlushTimeoutMsParamName();

    // Reads the cache flags, the default time-to-live, the thread count and
    // the DNS servers from the configuration. Call before start.
    bool configure(const TSHandle<ROConfiguration>& in_hConfig) override;

    // Resolves through the operating system on a pool thread and waits up to
    // in_timeout (ACE_Time_Value::max_time: no limit). True exactly when the
    // record has an address and the status is GHBN_SUCCESS.
    bool getHostByName(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                       ACE_Time_Value in_timeout, bool in_bUseCache);
    // Starts an asynchronous resolution; the server owns in_pNewCallback from
    // here on and tells it exactly once.
    bool getHostByName(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback,
                       ACE_Time_Value in_timeout, bool in_bUseCache);
    // Resolves by a DNS A-record query (DNS mode).
    bool getDNSARecords(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                        ACE_Time_Value in_timeout, bool in_bUseCache);

    virtual bool resolve(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback,
                         ACE_Time_Value in_timeout, bool in_bUseCache);
    virtual bool resolve(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                         ACE_Time_Value in_timeout, bool in_bUseCache);

    // Task operations.
    bool start() override;
    bool kill() override;
    bool stop() override;
    bool waitUntilDone() override;
    State getTaskState() const override;

    // True when DNS servers are configured (a c-ares channel exists).
    bool isDnsMode() const { return m_aresChannel != nullptr; }

    // The cache lock; re-entrant, also held around every asynchronous delivery.
    ACE_Recursive_Thread_Mutex& getCacheLock() { return m_cacheLock; }

    // Replaces the wall clock that decides cache expiry (null restores it).
    static void setClockForTest(ACE_Time_Value (*in_pClock)());

protected:
    void onSvcEntry() override;
    void onSvcExit() override;
    // The task base's own operations, for the process-wide subclass.
    bool startTask() { return AddTimeoutToBlockingOpTask::start(); }
    bool stopTask() { return AddTimeoutToBlockingOpTask::stop(); }
    bool killTask() { return AddTimeoutToBlockingOpTask::kill(); }
    bool waitTask() { return AddTimeoutToBlockingOpTask::waitUntilDone(); }
    bool waitForEndOfRun(std::chrono::milliseconds in_bound) {
        return AddTimeoutToBlockingOpTask::waitForEndOfRun(in_bound);
    }
    void setName(const std::string& in_strName) { setTaskName(in_strName); }

private:
    friend class HostNameServerPeer;
    friend class AsynchGHBNCallbackContainer;

    // Expiry index: (expiry, name) of every cache entry, soonest first.
    using ExpiryIndex = std::set<std::pair<ACE_Time_Value, const std::string*>>;  // names point at m_cache keys
    struct CacheEntry {
        Hostent m_hostent;                    // deep copy of the result; empty for a failure
        Hostent::GetHostByNameStatus m_status;  // GHBN_SUCCESS or the failure's status
        ACE_Time_Value m_expiry;              // stale once now is past it; zero for a failure
    };

    // Cache operations (cache.cpp). "Caller holds the lock" means getCacheLock().
    bool getHostentInCache(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                           bool& out_bUsable);
    void updateCache(const std::string& in_strHostname, const Hostent& in_hostent,
                     Hostent::GetHostByNameStatus in_ghbnStatus, ACE_Time_Value in_ttl);
    void updateCache(const std::string& in_strHostname, Hostent::GetHostByNameStatus in_ghbnStatus);
    void cacheSuccess(const std::string& in_strHostname, const Hostent& in_hostent, ACE_Time_Value in_ttl);  // lock held
    void cacheFailure(const std::string& in_strHostname, Hostent::GetHostByNameStatus in_status);  // lock held
    void flushCacheIfRequired();  // lock held
    void flushCache();            // lock held
    void storeEntry(const std::string& in_strHostname, const Hostent& in_hostent,
                    Hostent::GetHostByNameStatus in_status, const ACE_Time_Value& in_expiry);  // lock held
    static ACE_Time_Value now();

    // Runs a resolution work on the pool and waits for it; true exactly when
    // the outcome is GHBN_SUCCESS with an address.
    bool waitForResult(AddTimeoutToBlockingOpTask::Work<GHBNResult>* in_pWork, Hostent& out_hostent,
                       Hostent::GetHostByNameStatus& out_status, const ACE_Time_Value& in_timeout);

    // DNS mode (dns.cpp).
    bool configureCAres(const TSHandle<ROConfiguration>& in_hConfig);
    // Test hook (HostNameServerPeer): hands answer bytes and a c-ares status to
    // the DNS answer callback as c-ares would, for a query of in_szHostname
    // whose outcome in_pNewCallback hears (owned from here on).
    static void deliverDnsAnswerForTest(HostNameServer& in_server, const char* in_szHostname,
                                        GetHostByNameCallback* in_pNewCallback, bool in_bUseCache, int in_iStatus,
                                        const unsigned char* in_pAnswer, int in_iLength);
    // Test hook (HostNameServerPeer): a synchronous resolution on the running
    // pool whose work hands the given answer and c-ares status to the DNS
    // answer callback, as the DNS task would, and waits up to in_timeout.
    static bool resolveWithDnsAnswerForTest(HostNameServer& in_server, const char* in_szHostname, int in_iStatus,
                                            const unsigned char* in_pAnswer, int in_iLength, Hostent& out_hostent,
                                            Hostent::GetHostByNameStatus& out_status, ACE_Time_Value in_timeout);
    bool startAresTask();
    void stopAresTask();
    void releaseAresChannel();

    ACE_Recursive_Thread_Mutex m_cacheLock;               // guards m_cache, m_expiryIndex, m_strScratchKey
    std::unordered_map<std::string, CacheEntry> m_cache;  // name -> entry, exactly as spelled
    ExpiryIndex m_expiryIndex;                            // one element per entry of m_cache
    std::string m_strScratchKey;                          // the looked-up name; under the lock
    ACE_Time_Value m_cacheFlushTimeout;                   // default time-to-live of a cached success
    bool m_bCacheSuccess;                                 // store successes; set by configure
    bool m_bCacheFailures;                                // store failures; set by configure
    ares_channel m_aresChannel;                           // the DNS channel; null while DNS mode is off
    bool m_bAresStarted;  // this run's entry started the DNS task, so its exit stops it; under the service lock
};

}  // namespace Tarvik
