// The SIP server locator (RFC 3263): which servers to try for a SIP or SIPS
// URI, on which transports and ports, in which order. It asks NAPTR, SRV,
// AAAA and A records through a c-ares channel and DNS task of its own, keeps
// the records in a cache of its own (TTLs honoured, negative answers kept as
// RFC 2308 says), and remembers targets that callers found failed.
//
// DNS servers: those of "corvane.net.HostNameServer.DNSServerIPAddrList" when
// it is set (a comma-separated list, or "use-host-dns-list"), else those of
// the host's resolver configuration. The configuration is checked again on
// use, at most every 5 seconds; when the servers changed, later queries go to
// a new channel while the old one finishes the queries it holds.
//
// Threads: any thread may call any function, except that stop() and the
// destructor must not be called from a callback of this locator. A callback
// runs on the caller's thread (answers from the cache, refusals), on the DNS
// task's thread (answers), on the locator's timer thread (time-outs) or on
// the thread that calls stop().
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ace/Time_Value.h>

namespace Tarvik {
namespace Net {

class SipServerLocator {
public:
    enum Transport { TRANSPORT_UDP, TRANSPORT_TCP, TRANSPORT_TLS };
    // How a target was found.
    enum Via { VIA_NUMERIC, VIA_HOSTS, VIA_A, VIA_AAAA, VIA_SRV, VIA_NAPTR };
    // Which addresses, in which order: IPv4 only, IPv6 only, all IPv4 then
    // all IPv6, or IPv6 and IPv4 interleaved starting with IPv6 (RFC 8305).
    enum Family { FAMILY_IPV4, FAMILY_IPV6, FAMILY_IPV4_FIRST, FAMILY_IPV6_FIRST };
    // Record types asked.
    enum RecordType { TYPE_A = 1, TYPE_AAAA = 28, TYPE_SRV = 33, TYPE_NAPTR = 35 };
    // What a lookup found.
    enum Outcome { OUTCOME_ANSWER, OUTCOME_NXDOMAIN, OUTCOME_NODATA, OUTCOME_TIMEOUT, OUTCOME_ERROR };
    // Where a lookup's records came from: the cache (or the additional
    // section of an earlier answer), a query, or a remembered negative answer.
    enum CacheUse { CACHE_HIT, CACHE_MISS, CACHE_NEGATIVE_HIT };
    enum Status {
        LOCATE_OK,           // at least one target
        LOCATE_NOT_FOUND,    // the names exist in no usable form
        LOCATE_TIMEOUT,      // the time-out came before any target
        LOCATE_REFUSED,      // the locator is not running
        LOCATE_STOPPED,      // the locator stopped before the request finished
        LOCATE_BAD_REQUEST   // the URI or host cannot be located
    };

    struct Target {
        Transport transport = TRANSPORT_UDP;  // the transport to use
        std::string host;                     // the target host name (or the numeric host)
        std::string address;                  // IPv4 or IPv6 text
        unsigned port = 0;                    // the port to use
        int priority = -1;                    // SRV priority; -1 when not from SRV
        int weight = -1;                      // SRV weight; -1 when not from SRV
        unsigned ttl = 0;                     // seconds the target stays valid (0: numeric, hosts, or use once)
        Via via = VIA_NUMERIC;                // how it was found
    };

    struct Step {
        std::string name;            // the name asked
        RecordType type = TYPE_A;    // the record type asked
        Outcome outcome = OUTCOME_ERROR;
        unsigned records = 0;        // records of the type found for the name
        long ttl = -1;               // seconds the records (or the negative answer) stay valid; -1: none
        CacheUse cache = CACHE_MISS;
    };

    // What to locate. A host is a domain name, a dotted IPv4 address or an
    // IPv6 address (with or without brackets).
    struct Request {
        std::string host;                    // the target host
        unsigned port = 0;                   // 0: none given
        bool hasTransport = false;           // a transport was given
        Transport transport = TRANSPORT_UDP; // the given transport, when hasTransport
        bool secure = false;                 // a SIPS URI: TLS only
        Family family = FAMILY_IPV4_FIRST;   // which addresses, in which order
    };

    struct Result {
        Status status = LOCATE_REFUSED;
        std::vector<Target> targets;  // in the order to try them
        std::vector<Step> steps;      // the lookups, in the procedure's order
        std::string error;            // why there is no target, in words; empty on success
    };

    // The asynchronous result: told exactly once, after which the locator
    // destroys it.
    class Callback {
    public:
        virtual ~Callback() = default;
        virtual void onLocated(const Result& in_result) = 0;
    };

    struct Statistics {
        uint64_t queriesNaptr = 0;         // NAPTR queries sent
        uint64_t queriesSrv = 0;           // SRV queries sent
        uint64_t queriesA = 0;             // A queries sent
        uint64_t queriesAaaa = 0;          // AAAA queries sent
        uint64_t answers = 0;              // answers received (records or negative)
        uint64_t timeouts = 0;             // queries no server answered in time
        uint64_t errors = 0;               // queries that failed otherwise (malformed, refused, cancelled)
        uint64_t requestTimeouts = 0;      // requests told of their time-out
        uint64_t cacheHits = 0;            // lookups answered with records without a query
        uint64_t cacheMisses = 0;          // lookups that needed a query
        uint64_t cacheNegativeHits = 0;    // lookups answered by a remembered negative answer
        uint64_t cacheEvictions = 0;       // records dropped from the full cache
        uint64_t targetsMarkedFailed = 0;  // reportFailure calls
        uint64_t reloads = 0;              // channels replaced after a configuration change
    };

    // Records kept at most, by default.
    static constexpr size_t kDefaultCacheBound = 10000;

    SipServerLocator();
    // Stops the locator (see stop()).
    ~SipServerLocator();
    SipServerLocator(const SipServerLocator&) = delete;
    SipServerLocator& operator=(const SipServerLocator&) = delete;

    // Reads the configuration, makes the channel and starts the DNS task and
    // the timer thread. False, said why at ERROR, when the configuration names
    // no DNS server or a thread cannot be made; whatever was made is undone.
    // False also when already running.
    bool start();
    // Refuses new requests, tells every request in flight LOCATE_STOPPED,
    // and ends the threads and channels. The cache and the failure marks
    // stay. True also when already stopped; false, reported, from a
    // callback running on one of the locator's own threads.
    bool stop();
    bool isRunning() const;

    // Decodes a "sip:" or "sips:" URI with the URL model: its host (or maddr
    // parameter), port and transport parameter. False, saying why, for any
    // other text.
    static bool requestFromUri(const std::string& in_strUri, Request& out_request, std::string& out_strError);

    // Locates and waits, at most in_timeout (ACE_Time_Value::max_time: until
    // the lookups end). True when out_result holds at least one target.
    bool locate(const Request& in_request, Result& out_result, const ACE_Time_Value& in_timeout);
    bool locate(const std::string& in_strUri, Result& out_result, const ACE_Time_Value& in_timeout,
                Family in_family = FAMILY_IPV4_FIRST);
    // Locates in the background: in_pCallback (owned from the call on) is told
    // once, when the lookups end, when in_timeout passes, or when the locator
    // stops; also before this returns, when the answer comes from the cache or
    // the request is refused. False when refused (not running, bad request).
    bool locate(const Request& in_request, Callback* in_pCallback, const ACE_Time_Value& in_timeout);
    bool locate(const std::string& in_strUri, Callback* in_pCallback, const ACE_Time_Value& in_timeout,
                Family in_family = FAMILY_IPV4_FIRST);

    // A target (address, port, transport) that failed goes after all others
    // in later results until in_duration has passed; success clears the mark.
    // The records themselves are left alone.
    void reportFailure(const Target& in_target, const ACE_Time_Value& in_duration);
    void reportSuccess(const Target& in_target);

    Statistics getStatistics() const;

    // Records kept at most (0: none); a smaller bound evicts at once.
    void setCacheBound(size_t in_uiEntries);
    size_t getCacheBound() const;
    // Makes the SRV weighted order of later requests reproducible.
    void setRandomSeed(uint64_t in_ullSeed);

    static const char* getTransportName(Transport in_transport);  // "UDP", "TCP", "TLS"
    static const char* getViaName(Via in_via);                    // "numeric", "hosts", "A", "AAAA", "SRV", "NAPTR"
    static const char* getRecordTypeName(RecordType in_type);     // "A", "AAAA", "SRV", "NAPTR"
    static const char* getOutcomeName(Outcome in_outcome);        // "answer", "NXDOMAIN", "NODATA", "timeout", "error"
    static const char* getCacheUseName(CacheUse in_cache);        // "hit", "miss", "negative-hit"
    static const char* getStatusName(Status in_status);           // "LOCATE_OK", ...

    // Test hooks. The clock that decides expiry of records and failure marks
    // and the 5-second configuration check, in microseconds (null: the
    // steady clock); and the hosts file to read instead of /etc/hosts ("":
    // the system's).
    static void setClockForTest(int64_t (*in_pClock)());
    static void setHostsPathForTest(const std::string& in_strPath);

    class Impl;

private:
    std::unique_ptr<Impl> m_pImpl;  // everything; lives as long as the locator
};

}  // namespace Net
}  // namespace Tarvik
