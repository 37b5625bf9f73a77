// The SIP server locator: its life (start, stop), its channels, and the
// requests that run the RFC 3263 procedure over the cache and the queries.
//
// A request first runs the procedure on the caller's thread over the cache;
// when that completes it, no other thread takes part. Otherwise it becomes a
// resolution: registered with the locator, its queries sent through the
// current channel's DNS task, the procedure run again on the task's thread as
// answers come, and its one notification delivered by SipLocatorResolution::finish.
#include "net/SipServerLocator.h"

#include <ares.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

#include "net/SipAnswerParser.h"
#include "net/SipLocatorConfig.h"
#include "net/SipLocatorProcedure.h"
#include "net/SipRecordCache.h"
#include "platform/AresReactorTask.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"
#include "platform/MemAccount.h"
#include "platform/Thread.h"
#include "vocal/SipUrl.h"
#include "vocal/VException.h"

namespace Tarvik {
namespace Net {

namespace {

using Locator = SipServerLocator;
using Lookup = SipLocatorProcedure::Lookup;

Logger& locatorLogger() {
    static Logger& s_logger = getLogger("corvane.net.SipServerLocator");
    return s_logger;
}

// How often, at most, the configuration and the hosts file are read again.
const int64_t kCheckIntervalUs = 5 * 1000000LL;
// Failure marks kept at most.
const size_t kMaxMarks = 10000;
// Per-try time-out of a query and tries per server.
const int kQueryTimeoutMs = 1000;
const int kQueryTries = 3;

std::atomic<int64_t (*)()> s_pClock{nullptr};

int64_t steadyMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The clock of expiry (records, marks, configuration checks).
int64_t expiryClock() {
    int64_t (*pClock)() = s_pClock.load(std::memory_order_acquire);
    return pClock != nullptr ? pClock() : steadyMicroseconds();
}

int64_t toMicroseconds(const ACE_Time_Value& in_tv) {
    return static_cast<int64_t>(in_tv.sec()) * 1000000 + in_tv.usec();
}

// The locator whose own thread this is (timer thread, or DNS task thread
// during an answer); null elsewhere.
thread_local const void* t_pOwnThread = nullptr;

class OwnThreadScope {
public:
    explicit OwnThreadScope(const void* in_pLocator) : m_pPrevious(t_pOwnThread) { t_pOwnThread = in_pLocator; }
    ~OwnThreadScope() { t_pOwnThread = m_pPrevious; }

private:
    const void* m_pPrevious;  // restored when the scope ends
};

std::string markKey(const Locator::Target& in_target) {
    return std::string(Locator::getTransportName(in_target.transport)) + " " + in_target.address + " " +
           std::to_string(in_target.port);
}

// A channel with the DNS task that drives it. Made and destroyed only on
// threads that are not its task's.
class LocatorChannel {
    CORVANE_STATIC_ALLOCATOR("SipServerLocator::Channel")

public:
    LocatorChannel(std::string in_strSource, const SipLocatorServers& in_servers)
        : m_strSource(std::move(in_strSource)), m_servers(in_servers.texts) {}
    ~LocatorChannel() {
        m_task.stop();
        m_task.waitUntilDone();
        if (m_channel != nullptr) ares_destroy(m_channel);
    }
    LocatorChannel(const LocatorChannel&) = delete;
    LocatorChannel& operator=(const LocatorChannel&) = delete;

    bool open(const SipLocatorServers& in_servers, std::string& out_strError) {
        ares_options options{};
        options.flags = 0;
        options.timeout = kQueryTimeoutMs;
        options.tries = kQueryTries;
        std::vector<in_addr> addresses = in_servers.addresses;
        options.servers = addresses.data();
        options.nservers = static_cast<int>(addresses.size());
        options.domains = nullptr;  // names are asked as they are, fully qualified
        options.ndomains = 0;
        const int mask = ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SERVERS | ARES_OPT_DOMAINS;
        const int rc = ares_init_options(&m_channel, &options, mask);
        if (rc != ARES_SUCCESS) {
            m_channel = nullptr;
            out_strError = std::string("failed to initialize the C-Ares library to perform DNS resolution : ") +
                           ares_strerror(rc);
            return false;
        }
        if (!m_task.setChannel(m_channel) || !m_task.start()) {
            out_strError = "cannot start the DNS task (see its messages)";
            return false;
        }
        return true;
    }

    AresReactorTask& task() { return m_task; }
    const std::string& source() const { return m_strSource; }
    const StringVector& servers() const { return m_servers; }

    std::atomic<long> inFlight{0};  // searches whose callback has not returned

private:
    const std::string m_strSource;    // what the configuration said (see sipLocatorServerSource)
    const StringVector m_servers;     // the servers, primary first
    ares_channel m_channel = nullptr; // made by open; destroyed after the task ended
    AresReactorTask m_task;           // drives m_channel
};

// The caller's side of a synchronous request: the one notification, kept.
struct SyncWait {
    std::mutex mutex;               // guards the members below
    std::condition_variable told;   // signalled when bTold is set
    bool bTold = false;             // the notification came
    Locator::Result result;         // what it said
};

class WaiterCallback : public Locator::Callback {
    CORVANE_STATIC_ALLOCATOR("SipServerLocator::WaiterCallback")

public:
    explicit WaiterCallback(std::shared_ptr<SyncWait> in_pWait) : m_pWait(std::move(in_pWait)) {}
    void onLocated(const Locator::Result& in_result) override {
        {
            std::lock_guard<std::mutex> guard(m_pWait->mutex);
            m_pWait->result = in_result;
            m_pWait->bTold = true;
        }
        m_pWait->told.notify_all();
    }

private:
    std::shared_ptr<SyncWait> m_pWait;  // shared with the waiting caller, who may have left
};

}  // namespace

class SipLocatorResolution;

class SipServerLocator::Impl {
public:
    // The statistics, counted without a lock; each as its Statistics field says.
    struct Counters {
        std::atomic<uint64_t> queriesNaptr{0}, queriesSrv{0}, queriesA{0}, queriesAaaa{0};
        std::atomic<uint64_t> answers{0}, timeouts{0}, errors{0}, requestTimeouts{0};
        std::atomic<uint64_t> cacheHits{0}, cacheMisses{0}, cacheNegativeHits{0}, cacheEvictions{0};
        std::atomic<uint64_t> targetsMarkedFailed{0}, reloads{0};
    };
    // A query sent for a resolution; the argument c-ares hands back.
    struct Query {
        CORVANE_STATIC_ALLOCATOR("SipServerLocator::Query")
    public:
        std::shared_ptr<SipLocatorResolution> resolution;  // the request it serves
        LocatorChannel* pChannel;                // counted in its inFlight until the callback returns
        std::string name;                        // asked name
        uint16_t type;                           // asked type
        int64_t sentAt;                          // steady microseconds
    };
    enum Finish { COMPLETE, EXPIRED, STOPPED };

    Impl();
    ~Impl();

    bool start();
    bool stop();
    bool isRunning() const { return m_bAccepting.load(std::memory_order_acquire); }
    bool locate(const Request& in_request, Result& out_result, const ACE_Time_Value& in_timeout);
    bool locate(const Request& in_request, Callback* in_pCallback, const ACE_Time_Value& in_timeout);
    void reportFailure(const Target& in_target, const ACE_Time_Value& in_duration);
    void reportSuccess(const Target& in_target);
    Statistics getStatistics() const;
    void setCacheBound(size_t in_uiEntries) { m_counters.cacheEvictions += m_cache.setMaxEntries(in_uiEntries); }
    size_t getCacheBound() const { return m_cache.getMaxEntries(); }
    void setRandomSeed(uint64_t in_ullSeed) {
        m_seedCounter.store(0);
        m_seedBase.store(in_ullSeed);
    }

    // For resolutions and queries.
    bool findInCache(Lookup& io_lookup, int64_t in_now);
    std::shared_ptr<const SipHostsTable> hosts() const { return std::atomic_load(&m_pHosts); }
    void send(const std::shared_ptr<SipLocatorResolution>& in_pResolution, const std::string& in_name, uint16_t in_uiType);
    void unregister(SipLocatorResolution& io_resolution);
    void buildResult(SipLocatorProcedure& in_procedure, Finish in_finish, Result& out_result);
    void deliver(Callback* in_pCallback, const Result& in_result);
    static void aresCallback(void* in_pArg, int in_iStatus, int in_iTimeouts, unsigned char* in_pAnswer, int in_iLength);

private:
    friend class SipLocatorResolution;

    void timerLoop();
    void reapRetired(bool in_bAll);
    void destroyChannel(LocatorChannel* in_pChannel);
    void notifyTimer();
    void checkConfiguration(int64_t in_now);
    bool openChannel(const std::string& in_strSource, std::unique_ptr<LocatorChannel>& out_pChannel,
                     std::string& out_strError);
    bool launch(const std::shared_ptr<SipLocatorResolution>& in_pResolution, const ACE_Time_Value& in_timeout);
    void applyMarks(std::vector<Target>& io_targets);
    uint64_t nextSeed();

    mutable std::mutex m_mutex;                      // guards the members below it up to m_timerMutex
    bool m_bRunning = false;                         // requests are accepted
    std::atomic<bool> m_bAccepting{false};           // m_bRunning, read without the lock
    bool m_bStarting = false;                        // start() is under way
    std::unique_ptr<LocatorChannel> m_pChannel;      // where queries go; null while stopped
    std::vector<std::unique_ptr<LocatorChannel>> m_retired;  // replaced channels finishing their queries
    std::unordered_map<uint64_t, std::shared_ptr<SipLocatorResolution>> m_resolutions;  // requests in flight, by id
    uint64_t m_ullNextId = 1;                        // id of the next registered resolution

    std::mutex m_timerMutex;                         // guards the members below it up to m_cache; taken after m_mutex
    std::condition_variable m_timerCond;             // new timers, stop, a channel drained
    std::multimap<int64_t, std::shared_ptr<SipLocatorResolution>> m_timers;  // time-outs by steady deadline
    bool m_bTimerRunning = false;                    // the timer thread goes on
    std::thread m_timerThread;                       // fires time-outs and reaps retired channels

    SipRecordCache m_cache;                          // the records; locks itself
    std::shared_ptr<const SipHostsTable> m_pHosts;   // the hosts file; read and replaced atomically
    std::atomic<int64_t> m_nextCheck{0};             // when the configuration may be checked again (expiry clock)
    std::atomic<uint64_t> m_seedBase{0};             // the seed of request n is derived from base + n
    std::atomic<uint64_t> m_seedCounter{0};          // requests seeded so far
    mutable std::mutex m_marksMutex;                 // guards m_marks
    std::unordered_map<std::string, int64_t> m_marks;  // failed targets -> end of their mark (expiry clock)
    std::atomic<size_t> m_uiMarks{0};                // m_marks.size(), read without the lock
    Counters m_counters;                             // statistics
};

// One request that needs queries. Its procedure and state are guarded by its
// own mutex; the notification goes out through finish() alone.
class SipLocatorResolution : public SipLocatorProcedure::Source, public std::enable_shared_from_this<SipLocatorResolution> {
    CORVANE_STATIC_ALLOCATOR("SipServerLocator::Resolution")

public:
    using Impl = SipServerLocator::Impl;

    SipLocatorResolution(Impl& in_locator, SipLocatorProcedure&& in_procedure, Locator::Callback* in_pCallback)
        : m_locator(in_locator), m_procedure(std::move(in_procedure)), m_pCallback(in_pCallback) {}
    ~SipLocatorResolution() override {
        // Never reached with a callback in hand: finish() comes first. Should it
        // not, the caller still hears once.
        if (m_pCallback != nullptr) {
            Locator::Result result;
            result.status = Locator::LOCATE_STOPPED;
            result.error = "the request was dropped";
            m_locator.deliver(m_pCallback, result);
        }
    }

    bool find(Lookup& io_lookup) override {
        for (const SipDns::AdditionalSet& set : m_additional) {
            if (set.type == io_lookup.type && set.name == io_lookup.name) {
                io_lookup.done = true;
                io_lookup.outcome = Locator::OUTCOME_ANSWER;
                io_lookup.cache = Locator::CACHE_HIT;
                io_lookup.records = set.records;
                io_lookup.ttl = set.records->ttl;
                m_locator.m_counters.cacheHits++;
                return true;
            }
        }
        return m_locator.findInCache(io_lookup, expiryClock());
    }

    // The lookups the last run left pending and not yet asked; marks them asked.
    void takeUnsent(std::vector<std::pair<std::string, uint16_t>>& out_queries) {
        for (Lookup& lookup : m_procedure.lookups()) {
            if (lookup.done || lookup.sent) continue;
            lookup.sent = true;
            out_queries.emplace_back(lookup.name, lookup.type);
        }
    }

    // An answer (or failure) for one of the resolution's lookups.
    void onLookup(const std::string& in_name, uint16_t in_uiType, Locator::Outcome in_outcome,
                  const SipDns::RecordSetPtr& in_pRecords, std::vector<SipDns::AdditionalSet>&& in_additional,
                  const std::string& in_strError) {
        std::vector<std::pair<std::string, uint16_t>> queries;
        bool bComplete = false;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            if (m_bDone) return;
            Lookup* pLookup = m_procedure.findLookup(in_name, in_uiType);
            if (pLookup == nullptr || pLookup->done) return;
            pLookup->done = true;
            pLookup->outcome = in_outcome;
            pLookup->cache = Locator::CACHE_MISS;
            pLookup->records = in_pRecords;
            pLookup->ttl = in_pRecords ? in_pRecords->ttl : 0;
            pLookup->error = in_strError;
            for (SipDns::AdditionalSet& set : in_additional) m_additional.push_back(std::move(set));
            const std::shared_ptr<const SipHostsTable> pHosts = m_locator.hosts();
            bComplete = m_procedure.run(*this, pHosts.get(), false);
            if (!bComplete) takeUnsent(queries);
        }
        if (bComplete) {
            finish(Impl::COMPLETE);
            return;
        }
        const std::shared_ptr<SipLocatorResolution> self = shared_from_this();
        for (const auto& query : queries) {
            if (isDone()) break;
            m_locator.send(self, query.first, query.second);
        }
    }

    // The funnel: the one notification, then nothing more.
    void finish(Impl::Finish in_finish) {
        Locator::Callback* pCallback = nullptr;
        Locator::Result result;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            if (m_bDone) return;
            if (in_finish == Impl::EXPIRED) {
                const std::shared_ptr<const SipHostsTable> pHosts = m_locator.hosts();
                m_procedure.run(*this, pHosts.get(), true);
            }
            m_bDone = true;
            pCallback = m_pCallback;
            m_pCallback = nullptr;
            m_locator.buildResult(m_procedure, in_finish, result);
        }
        m_locator.unregister(*this);
        m_locator.deliver(pCallback, result);
    }

    bool isDone() {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_bDone;
    }

    // takeUnsent() with the lock taken; nothing once told.
    void takeUnsentLocked(std::vector<std::pair<std::string, uint16_t>>& out_queries) {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_bDone) takeUnsent(out_queries);
    }

    Impl& locator() { return m_locator; }

    // Registration with the locator; guarded by the locator's m_mutex.
    uint64_t m_ullId = 0;  // in the locator's registry; 0 when not registered
    // The time-out; guarded by the locator's m_timerMutex.
    bool m_bTimer = false;                                                    // m_timer is valid
    std::multimap<int64_t, std::shared_ptr<SipLocatorResolution>>::iterator m_timer;  // its entry in the locator's timers

private:
    Impl& m_locator;                                  // outlives every resolution (stop waits for them)
    std::mutex m_mutex;                               // guards the members below
    SipLocatorProcedure m_procedure;                  // lookups and targets
    std::vector<SipDns::AdditionalSet> m_additional;  // additional records of the answers so far
    Locator::Callback* m_pCallback;                   // owned until told; null after
    bool m_bDone = false;                             // told (or being told)
};

// ---------------------------------------------------------------------------

SipServerLocator::Impl::Impl() : m_cache(kDefaultCacheBound), m_pHosts(std::make_shared<SipHostsTable>()) {}

SipServerLocator::Impl::~Impl() { stop(); }

bool SipServerLocator::Impl::openChannel(const std::string& in_strSource, std::unique_ptr<LocatorChannel>& out_pChannel,
                                         std::string& out_strError) {
    SipLocatorServers servers;
    if (!readSipLocatorServers(GlobalConfig::getInstance().getConfig(), servers, out_strError)) return false;
    std::unique_ptr<LocatorChannel> pChannel(new LocatorChannel(in_strSource, servers));
    if (!pChannel->open(servers, out_strError)) return false;
    out_pChannel = std::move(pChannel);
    return true;
}

bool SipServerLocator::Impl::start() {
    static Logger& s_logger = locatorLogger();
    CORVANE_TRACE_SCOPE(s_logger, "SipServerLocator::start");
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_bRunning || m_bStarting) {
            CORVANE_DEBUG(s_logger, traceScope.getName() << " : refused, already running");
            return false;
        }
        m_bStarting = true;
    }
    const auto fail = [&](const std::string& in_strWhy) {
        CORVANE_ERROR(s_logger, "SipServerLocator::start : " << in_strWhy);
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bStarting = false;
        return false;
    };
    // What the first steps made is undone by the destructors of these locals.
    std::string error;
    std::string source;
    if (!sipLocatorServerSource(GlobalConfig::getInstance().getConfig(), source, error)) return fail(error);
    std::unique_ptr<LocatorChannel> pChannel;
    if (!openChannel(source, pChannel, error)) return fail(error);
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        m_bTimerRunning = true;
    }
    if (!startThread(m_timerThread, [this] { timerLoop(); }, error)) {
        {
            std::lock_guard<std::mutex> guard(m_timerMutex);
            m_bTimerRunning = false;
        }
        return fail("cannot make the timer thread : " + error);
    }
    auto pHosts = std::make_shared<SipHostsTable>();
    readSipHostsFile(sipHostsPath(), *pHosts);
    std::atomic_store(&m_pHosts, std::shared_ptr<const SipHostsTable>(std::move(pHosts)));
    m_nextCheck.store(expiryClock() + kCheckIntervalUs);
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        CORVANE_INFO(s_logger, "SipServerLocator::start : DNS servers, primary first : " << [&] {
            std::string text;
            for (const std::string& server : pChannel->servers()) text += (text.empty() ? "" : " ") + server;
            return text;
        }());
        m_pChannel = std::move(pChannel);
        m_bRunning = true;
        m_bAccepting = true;
        m_bStarting = false;
    }
    return true;
}

bool SipServerLocator::Impl::stop() {
    static Logger& s_logger = locatorLogger();
    CORVANE_TRACE_SCOPE(s_logger, "SipServerLocator::stop");
    // Joining the thread it runs on would never end.
    if (!CORVANE_ASSERT(s_logger, t_pOwnThread != this)) return false;
    std::vector<std::shared_ptr<SipLocatorResolution>> inFlight;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bRunning = false;
        m_bAccepting = false;
        for (auto& entry : m_resolutions) inFlight.push_back(entry.second);
    }
    for (const std::shared_ptr<SipLocatorResolution>& pResolution : inFlight) pResolution->finish(STOPPED);
    inFlight.clear();

    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        m_bTimerRunning = false;
    }
    m_timerCond.notify_all();
    if (m_timerThread.joinable()) m_timerThread.join();
    std::multimap<int64_t, std::shared_ptr<SipLocatorResolution>> timers;
    {
        std::lock_guard<std::mutex> guard(m_timerMutex);
        timers.swap(m_timers);
        for (auto& entry : timers) entry.second->m_bTimer = false;
    }
    timers.clear();
    reapRetired(true);
    return true;
}

void SipServerLocator::Impl::reapRetired(bool in_bAll) {
    std::vector<std::unique_ptr<LocatorChannel>> channels;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        for (auto it = m_retired.begin(); it != m_retired.end();) {
            if (in_bAll || (*it)->inFlight.load() == 0) {
                channels.push_back(std::move(*it));
                it = m_retired.erase(it);
            } else {
                ++it;
            }
        }
        if (in_bAll && m_pChannel) channels.push_back(std::move(m_pChannel));
    }
    for (std::unique_ptr<LocatorChannel>& pChannel : channels) destroyChannel(pChannel.release());
}

void SipServerLocator::Impl::destroyChannel(LocatorChannel* in_pChannel) {
    // Queries in flight hear ARES_ECANCELLED on the task's thread before it ends;
    // a sender that took the channel just before it left still calls search
    // and hears it at once.
    in_pChannel->task().stop();
    in_pChannel->task().waitUntilDone();
    {
        std::unique_lock<std::mutex> lock(m_timerMutex);
        m_timerCond.wait(lock, [&] { return in_pChannel->inFlight.load() == 0; });
    }
    delete in_pChannel;
}

void SipServerLocator::Impl::notifyTimer() {
    { std::lock_guard<std::mutex> guard(m_timerMutex); }
    m_timerCond.notify_all();
}

void SipServerLocator::Impl::timerLoop() {
    const OwnThreadScope ownThread(this);
    std::vector<std::shared_ptr<SipLocatorResolution>> due;
    std::unique_lock<std::mutex> lock(m_timerMutex);
    while (m_bTimerRunning) {
        const int64_t now = steadyMicroseconds();
        while (!m_timers.empty() && m_timers.begin()->first <= now) {
            m_timers.begin()->second->m_bTimer = false;
            due.push_back(std::move(m_timers.begin()->second));
            m_timers.erase(m_timers.begin());
        }
        lock.unlock();
        for (const std::shared_ptr<SipLocatorResolution>& pResolution : due) pResolution->finish(EXPIRED);
        due.clear();
        reapRetired(false);
        bool bRetired = false;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            bRetired = !m_retired.empty();
        }
        lock.lock();
        if (!m_bTimerRunning) break;
        // Retired channels are looked at again at least every 100 ms.
        int64_t wakeAt = bRetired ? steadyMicroseconds() + 100000 : INT64_MAX;
        if (!m_timers.empty()) wakeAt = std::min(wakeAt, m_timers.begin()->first);
        if (wakeAt == INT64_MAX) {
            m_timerCond.wait(lock);
        } else {
            m_timerCond.wait_until(lock, std::chrono::steady_clock::time_point(std::chrono::microseconds(wakeAt)));
        }
    }
}

void SipServerLocator::Impl::checkConfiguration(int64_t in_now) {
    static Logger& s_logger = locatorLogger();
    int64_t next = m_nextCheck.load();
    // One caller checks; the others go on at once.
    if (in_now < next || !m_nextCheck.compare_exchange_strong(next, in_now + kCheckIntervalUs)) return;

    auto pHosts = std::make_shared<SipHostsTable>();
    readSipHostsFile(sipHostsPath(), *pHosts);
    std::atomic_store(&m_pHosts, std::shared_ptr<const SipHostsTable>(std::move(pHosts)));

    std::string source;
    std::string error;
    if (!sipLocatorServerSource(GlobalConfig::getInstance().getConfig(), source, error)) {
        CORVANE_ERROR(s_logger, "SipServerLocator::checkConfiguration : " << error << "; the DNS servers stay");
        return;
    }
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_bRunning || (m_pChannel && m_pChannel->source() == source)) return;
    }
    std::unique_ptr<LocatorChannel> pChannel;
    if (!openChannel(source, pChannel, error)) {
        CORVANE_ERROR(s_logger, "SipServerLocator::checkConfiguration : " << error << "; the DNS servers stay");
        return;
    }
    std::string servers;
    for (const std::string& server : pChannel->servers()) servers += (servers.empty() ? "" : " ") + server;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_bRunning) {
            m_retired.push_back(std::move(m_pChannel));
            m_pChannel = std::move(pChannel);
        }
    }
    if (pChannel) return;  // stopped meanwhile: the new channel goes
    m_counters.reloads++;
    CORVANE_INFO(s_logger, "SipServerLocator::checkConfiguration : DNS servers changed, primary first : " << servers);
    notifyTimer();
}

uint64_t SipServerLocator::Impl::nextSeed() {
    SipRandom random(m_seedBase.load(std::memory_order_relaxed) + m_seedCounter.fetch_add(1) * 0x9E3779B97F4A7C15ULL);
    return random.next();
}

bool SipServerLocator::Impl::findInCache(Lookup& io_lookup, int64_t in_now) {
    SipDns::RecordSetPtr pRecords;
    uint32_t secondsLeft = 0;
    switch (m_cache.lookup(io_lookup.name, io_lookup.type, in_now, pRecords, secondsLeft)) {
        case SipRecordCache::MISS:
            m_counters.cacheMisses++;
            io_lookup.cache = Locator::CACHE_MISS;
            return false;
        case SipRecordCache::HIT:
            m_counters.cacheHits++;
            io_lookup.cache = Locator::CACHE_HIT;
            io_lookup.outcome = Locator::OUTCOME_ANSWER;
            break;
        case SipRecordCache::NEGATIVE_HIT:
            m_counters.cacheNegativeHits++;
            io_lookup.cache = Locator::CACHE_NEGATIVE_HIT;
            io_lookup.outcome = pRecords->kind == SipDns::RecordSet::NXDOMAIN ? Locator::OUTCOME_NXDOMAIN
                                                                              : Locator::OUTCOME_NODATA;
            break;
    }
    io_lookup.done = true;
    io_lookup.records = std::move(pRecords);
    io_lookup.ttl = secondsLeft;
    return true;
}

namespace {

// The source of a request's first run, on the caller's thread: the cache only.
class CacheSource : public SipLocatorProcedure::Source {
public:
    CacheSource(SipServerLocator::Impl& in_locator, int64_t in_now) : m_locator(in_locator), m_now(in_now) {}
    bool find(Lookup& io_lookup) override { return m_locator.findInCache(io_lookup, m_now); }

private:
    SipServerLocator::Impl& m_locator;  // whose cache
    const int64_t m_now;                // the request's time: one clock read for all its look-ups
};

}  // namespace

void SipServerLocator::Impl::applyMarks(std::vector<Target>& io_targets) {
    if (m_uiMarks.load(std::memory_order_relaxed) == 0) return;
    const int64_t now = expiryClock();
    std::lock_guard<std::mutex> guard(m_marksMutex);
    std::stable_partition(io_targets.begin(), io_targets.end(), [&](const Target& in_target) {
        const auto found = m_marks.find(markKey(in_target));
        if (found == m_marks.end()) return true;
        if (found->second > now) return false;
        m_marks.erase(found);
        m_uiMarks.store(m_marks.size());
        return true;
    });
}

void SipServerLocator::Impl::buildResult(SipLocatorProcedure& in_procedure, Finish in_finish, Result& out_result) {
    in_procedure.steps(out_result.steps);
    if (in_finish == STOPPED) {
        out_result.status = LOCATE_STOPPED;
        out_result.targets.clear();
        out_result.error = "the locator stopped";
        return;
    }
    out_result.error = in_procedure.error();
    // The procedure is not run again: its targets move.
    out_result.targets = std::move(in_procedure.targets());
    applyMarks(out_result.targets);
    if (!out_result.targets.empty()) {
        out_result.status = LOCATE_OK;
    } else if (in_procedure.expired()) {
        out_result.status = LOCATE_TIMEOUT;
    } else {
        out_result.status = LOCATE_NOT_FOUND;
    }
}

void SipServerLocator::Impl::deliver(Callback* in_pCallback, const Result& in_result) {
    if (in_pCallback == nullptr) return;
    if (in_result.status == LOCATE_TIMEOUT) m_counters.requestTimeouts++;
    in_pCallback->onLocated(in_result);
    delete in_pCallback;
}

void SipServerLocator::Impl::unregister(SipLocatorResolution& io_resolution) {
    std::shared_ptr<SipLocatorResolution> pRegistered;  // released after the locks
    std::shared_ptr<SipLocatorResolution> pTimer;
    std::lock_guard<std::mutex> guard(m_mutex);
    if (io_resolution.m_ullId != 0) {
        const auto found = m_resolutions.find(io_resolution.m_ullId);
        if (found != m_resolutions.end()) {
            pRegistered = std::move(found->second);
            m_resolutions.erase(found);
        }
        io_resolution.m_ullId = 0;
    }
    std::lock_guard<std::mutex> timerGuard(m_timerMutex);
    if (io_resolution.m_bTimer) {
        pTimer = std::move(io_resolution.m_timer->second);
        m_timers.erase(io_resolution.m_timer);
        io_resolution.m_bTimer = false;
    }
}

bool SipServerLocator::Impl::launch(const std::shared_ptr<SipLocatorResolution>& in_pResolution,
                                    const ACE_Time_Value& in_timeout) {
    std::vector<std::pair<std::string, uint16_t>> queries;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_bRunning) {
            // Stopped since the request came in; finish() takes the lock itself.
            lock.unlock();
            in_pResolution->finish(STOPPED);
            return true;
        }
        in_pResolution->m_ullId = m_ullNextId++;
        m_resolutions.emplace(in_pResolution->m_ullId, in_pResolution);
        if (in_timeout != ACE_Time_Value::max_time) {
            std::lock_guard<std::mutex> timerGuard(m_timerMutex);
            const int64_t deadline = steadyMicroseconds() + std::max<int64_t>(0, toMicroseconds(in_timeout));
            const bool bFirst = m_timers.empty() || deadline < m_timers.begin()->first;
            in_pResolution->m_timer = m_timers.emplace(deadline, in_pResolution);
            in_pResolution->m_bTimer = true;
            if (bFirst) m_timerCond.notify_all();
        }
    }
    in_pResolution->takeUnsentLocked(queries);
    for (const auto& query : queries) {
        if (in_pResolution->isDone()) break;
        send(in_pResolution, query.first, query.second);
    }
    return true;
}

void SipServerLocator::Impl::send(const std::shared_ptr<SipLocatorResolution>& in_pResolution, const std::string& in_name,
                                  uint16_t in_uiType) {
    LocatorChannel* pChannel = nullptr;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_bRunning && m_pChannel) {
            pChannel = m_pChannel.get();
            pChannel->inFlight++;
        }
    }
    if (pChannel == nullptr) {
        // Stopping: the request is told so, whether or not stop() got to it yet.
        in_pResolution->finish(STOPPED);
        return;
    }
    switch (in_uiType) {
        case SipDns::kTypeNaptr: m_counters.queriesNaptr++; break;
        case SipDns::kTypeSrv: m_counters.queriesSrv++; break;
        case SipDns::kTypeA: m_counters.queriesA++; break;
        default: m_counters.queriesAaaa++; break;
    }
    Query* pQuery = new Query{in_pResolution, pChannel, in_name, in_uiType, steadyMicroseconds()};
    // The trailing dot: the name is asked as it is, and a negative answer
    // comes back with its bytes (and so its SOA).
    pChannel->task().search((in_name + ".").c_str(), SipDns::kClassIn, in_uiType, &Impl::aresCallback, pQuery);
}

void SipServerLocator::Impl::aresCallback(void* in_pArg, int in_iStatus, int /*in_iTimeouts*/,
                                          unsigned char* in_pAnswer, int in_iLength) {
    static Logger& s_logger = locatorLogger();
    Query* pQuery = static_cast<Query*>(in_pArg);
    Impl& locator = pQuery->resolution->locator();
    const OwnThreadScope ownThread(&locator);
    Outcome outcome = OUTCOME_ERROR;
    SipDns::ParsedAnswer answer;
    std::string error;
    if (in_pAnswer != nullptr && in_iLength > 0 &&
        (in_iStatus == ARES_SUCCESS || in_iStatus == ARES_ENODATA || in_iStatus == ARES_ENOTFOUND)) {
        if (SipDns::parseAnswer(in_pAnswer, static_cast<size_t>(in_iLength), pQuery->name, pQuery->type, answer,
                                error)) {
            switch (answer.records->kind) {
                case SipDns::RecordSet::RECORDS: outcome = OUTCOME_ANSWER; break;
                case SipDns::RecordSet::NXDOMAIN: outcome = OUTCOME_NXDOMAIN; break;
                case SipDns::RecordSet::NODATA: outcome = OUTCOME_NODATA; break;
            }
        }
    } else if (in_iStatus == ARES_ETIMEOUT) {
        outcome = OUTCOME_TIMEOUT;
        error = "no DNS server answered";
    } else {
        error = in_iStatus == ARES_ECANCELLED ? std::string("the query was cancelled") : ares_strerror(in_iStatus);
    }
    switch (outcome) {
        case OUTCOME_TIMEOUT: locator.m_counters.timeouts++; break;
        case OUTCOME_ERROR: locator.m_counters.errors++; break;
        default: locator.m_counters.answers++; break;
    }
    CORVANE_DEBUG(s_logger, "SipServerLocator::onAnswer : " << pQuery->name << " "
                                << getRecordTypeName(static_cast<RecordType>(pQuery->type)) << " "
                                << getOutcomeName(outcome) << " records="
                                << (answer.records ? answer.records->size() : 0) << " in "
                                << (steadyMicroseconds() - pQuery->sentAt) / 1000.0 << " ms"
                                << (error.empty() ? "" : " : ") << error);

    std::vector<SipDns::AdditionalSet> additional;
    if (answer.records) {
        // Only additional records of the names this answer leads to are taken.
        std::set<std::string> srvNames;
        std::set<std::string> hostNames;
        for (const SipDns::NaptrRecord& naptr : answer.records->naptr) srvNames.insert(naptr.replacement);
        for (const SipDns::SrvRecord& srv : answer.records->srv) hostNames.insert(srv.target);
        for (const SipDns::AdditionalSet& set : answer.additional) {
            if (set.type == SipDns::kTypeSrv && srvNames.count(set.name)) {
                for (const SipDns::SrvRecord& srv : set.records->srv) hostNames.insert(srv.target);
            }
        }
        const int64_t now = expiryClock();
        for (SipDns::AdditionalSet& set : answer.additional) {
            const bool bTaken = set.type == SipDns::kTypeSrv ? srvNames.count(set.name) != 0
                                                             : hostNames.count(set.name) != 0;
            if (!bTaken) continue;
            locator.m_counters.cacheEvictions += locator.m_cache.store(set.name, set.type, set.records, now);
            additional.push_back(std::move(set));
        }
        locator.m_counters.cacheEvictions += locator.m_cache.store(pQuery->name, pQuery->type, answer.records, now);
    }
    pQuery->resolution->onLookup(pQuery->name, pQuery->type, outcome, answer.records, std::move(additional), error);

    LocatorChannel* pChannel = pQuery->pChannel;
    delete pQuery;
    // The last thing done with the channel: it may go once the count is 0.
    if (pChannel->inFlight.fetch_sub(1) == 1) locator.notifyTimer();
}

bool SipServerLocator::Impl::locate(const Request& in_request, Callback* in_pCallback,
                                    const ACE_Time_Value& in_timeout) {
    Result result;
    if (in_pCallback == nullptr) {
        Assertion::report(locatorLogger(), "in_pCallback != 0", __FILE__, __LINE__);
        return false;
    }
    Request request;
    bool bNumeric = false;
    if (!isRunning()) {
        result.status = LOCATE_REFUSED;
        result.error = "the locator is not running";
    } else if (!SipLocatorProcedure::normalise(in_request, request, bNumeric, result.error)) {
        result.status = LOCATE_BAD_REQUEST;
    } else {
        const int64_t now = expiryClock();
        checkConfiguration(now);
        SipLocatorProcedure procedure(std::move(request), bNumeric, nextSeed());
        CacheSource source(*this, now);
        const std::shared_ptr<const SipHostsTable> pHosts = hosts();
        if (!procedure.run(source, pHosts.get(), false)) {
            std::shared_ptr<SipLocatorResolution> pResolution(new SipLocatorResolution(*this, std::move(procedure), in_pCallback));
            return launch(pResolution, in_timeout);
        }
        buildResult(procedure, COMPLETE, result);
        deliver(in_pCallback, result);
        return true;
    }
    deliver(in_pCallback, result);
    return false;
}

bool SipServerLocator::Impl::locate(const Request& in_request, Result& out_result, const ACE_Time_Value& in_timeout) {
    out_result = Result();
    Request request;
    if (!isRunning()) {
        out_result.status = LOCATE_REFUSED;
        out_result.error = "the locator is not running";
        return false;
    }
    bool bNumeric = false;
    if (!SipLocatorProcedure::normalise(in_request, request, bNumeric, out_result.error)) {
        out_result.status = LOCATE_BAD_REQUEST;
        return false;
    }
    const int64_t now = expiryClock();
    checkConfiguration(now);
    SipLocatorProcedure procedure(std::move(request), bNumeric, nextSeed());
    {
        CacheSource source(*this, now);
        const std::shared_ptr<const SipHostsTable> pHosts = hosts();
        if (procedure.run(source, pHosts.get(), false)) {
            buildResult(procedure, COMPLETE, out_result);
            return out_result.status == LOCATE_OK;
        }
    }
    // The waiter keeps its deadline itself: no timer is armed.
    const auto pWait = std::make_shared<SyncWait>();
    std::shared_ptr<SipLocatorResolution> pResolution(new SipLocatorResolution(*this, std::move(procedure), new WaiterCallback(pWait)));
    const bool bForever = in_timeout == ACE_Time_Value::max_time;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::microseconds(bForever ? 0 : toMicroseconds(in_timeout));
    launch(pResolution, ACE_Time_Value::max_time);
    {
        std::unique_lock<std::mutex> lock(pWait->mutex);
        if (bForever) {
            pWait->told.wait(lock, [&] { return pWait->bTold; });
        } else {
            pWait->told.wait_until(lock, deadline, [&] { return pWait->bTold; });
        }
    }
    // The deadline passed: the time-out is told here, on the caller's thread,
    // unless another thread is telling something else right now.
    pResolution->finish(EXPIRED);
    {
        std::unique_lock<std::mutex> lock(pWait->mutex);
        pWait->told.wait(lock, [&] { return pWait->bTold; });
        out_result = std::move(pWait->result);
    }
    return out_result.status == LOCATE_OK;
}

void SipServerLocator::Impl::reportFailure(const Target& in_target, const ACE_Time_Value& in_duration) {
    const int64_t now = expiryClock();
    const int64_t until = now + std::max<int64_t>(0, toMicroseconds(in_duration));
    m_counters.targetsMarkedFailed++;
    std::lock_guard<std::mutex> guard(m_marksMutex);
    if (m_marks.size() >= kMaxMarks) {
        for (auto it = m_marks.begin(); it != m_marks.end();) it = it->second <= now ? m_marks.erase(it) : std::next(it);
        if (m_marks.size() >= kMaxMarks) m_marks.erase(m_marks.begin());
    }
    m_marks[markKey(in_target)] = until;
    m_uiMarks.store(m_marks.size());
}

void SipServerLocator::Impl::reportSuccess(const Target& in_target) {
    std::lock_guard<std::mutex> guard(m_marksMutex);
    m_marks.erase(markKey(in_target));
    m_uiMarks.store(m_marks.size());
}

SipServerLocator::Statistics SipServerLocator::Impl::getStatistics() const {
    Statistics out;
    out.queriesNaptr = m_counters.queriesNaptr;
    out.queriesSrv = m_counters.queriesSrv;
    out.queriesA = m_counters.queriesA;
    out.queriesAaaa = m_counters.queriesAaaa;
    out.answers = m_counters.answers;
    out.timeouts = m_counters.timeouts;
    out.errors = m_counters.errors;
    out.requestTimeouts = m_counters.requestTimeouts;
    out.cacheHits = m_counters.cacheHits;
    out.cacheMisses = m_counters.cacheMisses;
    out.cacheNegativeHits = m_counters.cacheNegativeHits;
    out.cacheEvictions = m_counters.cacheEvictions;
    out.targetsMarkedFailed = m_counters.targetsMarkedFailed;
    out.reloads = m_counters.reloads;
    return out;
}

// ---------------------------------------------------------------------------

SipServerLocator::SipServerLocator() : m_pImpl(new Impl) { ares_library_init(ARES_LIB_INIT_ALL); }

SipServerLocator::~SipServerLocator() {
    m_pImpl.reset();
    ares_library_cleanup();
}

bool SipServerLocator::start() { return m_pImpl->start(); }
bool SipServerLocator::stop() { return m_pImpl->stop(); }
bool SipServerLocator::isRunning() const { return m_pImpl->isRunning(); }

bool SipServerLocator::requestFromUri(const std::string& in_strUri, Request& out_request, std::string& out_strError) {
    out_request = Request();
    const size_t colon = in_strUri.find(':');
    const std::string scheme = colon == std::string::npos ? std::string() : in_strUri.substr(0, colon);
    const bool bSecure = strcasecmp(scheme.c_str(), "sips") == 0;
    if (!bSecure && strcasecmp(scheme.c_str(), "sip") != 0) {
        out_strError = "not a SIP or SIPS URI: " + in_strUri;
        return false;
    }
    try {
        // The URL model knows the "sip" scheme; a SIPS URI has the same syntax.
        const Vocal::SipUrl url(Vocal::TextBuffer("sip" + in_strUri.substr(colon)));
        const std::string host = url.getMaddrParam().empty() ? url.getHost().toString() : url.getMaddrParam().toString();
        const std::string port = url.getPort().toString();
        const std::string transport = url.getTransportParam().toString();
        if (host.empty()) {
            out_strError = "no host in " + in_strUri;
            return false;
        }
        out_request.host = host;
        out_request.secure = bSecure;
        if (!port.empty()) {
            unsigned long value = 0;
            for (char c : port) value = value * 10 + static_cast<unsigned long>(c - '0');
            if (port.size() > 5 || value == 0 || value > 65535) {
                out_strError = "not a port: " + port;
                return false;
            }
            out_request.port = static_cast<unsigned>(value);
        }
        if (!transport.empty()) {
            out_request.hasTransport = true;
            if (strcasecmp(transport.c_str(), "udp") == 0) {
                out_request.transport = TRANSPORT_UDP;
            } else if (strcasecmp(transport.c_str(), "tcp") == 0) {
                out_request.transport = TRANSPORT_TCP;
            } else if (strcasecmp(transport.c_str(), "tls") == 0) {
                out_request.transport = TRANSPORT_TLS;
            } else {
                out_strError = "unsupported transport: " + transport;
                return false;
            }
        }
        return true;
    } catch (const VException& e) {
        out_strError = "cannot decode " + in_strUri + " : " + e.getDescription();
    } catch (...) {
        out_strError = "cannot decode " + in_strUri;
    }
    return false;
}

bool SipServerLocator::locate(const Request& in_request, Result& out_result, const ACE_Time_Value& in_timeout) {
    return m_pImpl->locate(in_request, out_result, in_timeout);
}

bool SipServerLocator::locate(const std::string& in_strUri, Result& out_result, const ACE_Time_Value& in_timeout,
                              Family in_family) {
    Request request;
    out_result = Result();
    if (!requestFromUri(in_strUri, request, out_result.error)) {
        out_result.status = LOCATE_BAD_REQUEST;
        return false;
    }
    request.family = in_family;
    return m_pImpl->locate(request, out_result, in_timeout);
}

bool SipServerLocator::locate(const Request& in_request, Callback* in_pCallback, const ACE_Time_Value& in_timeout) {
    return m_pImpl->locate(in_request, in_pCallback, in_timeout);
}

bool SipServerLocator::locate(const std::string& in_strUri, Callback* in_pCallback, const ACE_Time_Value& in_timeout,
                              Family in_family) {
    Request request;
    Result result;
    if (!requestFromUri(in_strUri, request, result.error)) {
        if (in_pCallback != nullptr) {
            result.status = LOCATE_BAD_REQUEST;
            m_pImpl->deliver(in_pCallback, result);
        }
        return false;
    }
    request.family = in_family;
    return m_pImpl->locate(request, in_pCallback, in_timeout);
}

void SipServerLocator::reportFailure(const Target& in_target, const ACE_Time_Value& in_duration) {
    m_pImpl->reportFailure(in_target, in_duration);
}
void SipServerLocator::reportSuccess(const Target& in_target) { m_pImpl->reportSuccess(in_target); }
SipServerLocator::Statistics SipServerLocator::getStatistics() const { return m_pImpl->getStatistics(); }
void SipServerLocator::setCacheBound(size_t in_uiEntries) { m_pImpl->setCacheBound(in_uiEntries); }
size_t SipServerLocator::getCacheBound() const { return m_pImpl->getCacheBound(); }
void SipServerLocator::setRandomSeed(uint64_t in_ullSeed) { m_pImpl->setRandomSeed(in_ullSeed); }

const char* SipServerLocator::getTransportName(Transport in_transport) {
    switch (in_transport) {
        case TRANSPORT_UDP: return "UDP";
        case TRANSPORT_TCP: return "TCP";
        case TRANSPORT_TLS: return "TLS";
    }
    return "";
}

const char* SipServerLocator::getViaName(Via in_via) {
    switch (in_via) {
        case VIA_NUMERIC: return "numeric";
        case VIA_HOSTS: return "hosts";
        case VIA_A: return "A";
        case VIA_AAAA: return "AAAA";
        case VIA_SRV: return "SRV";
        case VIA_NAPTR: return "NAPTR";
    }
    return "";
}

const char* SipServerLocator::getRecordTypeName(RecordType in_type) {
    switch (in_type) {
        case TYPE_A: return "A";
        case TYPE_AAAA: return "AAAA";
        case TYPE_SRV: return "SRV";
        case TYPE_NAPTR: return "NAPTR";
    }
    return "";
}

const char* SipServerLocator::getOutcomeName(Outcome in_outcome) {
    switch (in_outcome) {
        case OUTCOME_ANSWER: return "answer";
        case OUTCOME_NXDOMAIN: return "NXDOMAIN";
        case OUTCOME_NODATA: return "NODATA";
        case OUTCOME_TIMEOUT: return "timeout";
        case OUTCOME_ERROR: return "error";
    }
    return "";
}

const char* SipServerLocator::getCacheUseName(CacheUse in_cache) {
    switch (in_cache) {
        case CACHE_HIT: return "hit";
        case CACHE_MISS: return "miss";
        case CACHE_NEGATIVE_HIT: return "negative-hit";
    }
    return "";
}

const char* SipServerLocator::getStatusName(Status in_status) {
    switch (in_status) {
        case LOCATE_OK: return "LOCATE_OK";
        case LOCATE_NOT_FOUND: return "LOCATE_NOT_FOUND";
        case LOCATE_TIMEOUT: return "LOCATE_TIMEOUT";
        case LOCATE_REFUSED: return "LOCATE_REFUSED";
        case LOCATE_STOPPED: return "LOCATE_STOPPED";
        case LOCATE_BAD_REQUEST: return "LOCATE_BAD_REQUEST";
    }
    return "";
}

void SipServerLocator::setClockForTest(int64_t (*in_pClock)()) { s_pClock.store(in_pClock, std::memory_order_release); }

void SipServerLocator::setHostsPathForTest(const std::string& in_strPath) { setSipHostsPath(in_strPath); }

}  // namespace Net
}  // namespace Tarvik
