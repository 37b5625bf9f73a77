// The RFC 3263 procedure of the SIP server locator, written as if every
// lookup were answered at once: each run asks for the lookups it needs; those
// not known yet are left pending, and the run goes on with every branch that
// does not depend on them. The caller sends their queries and runs it again
// when answers come, until nothing is pending. A run with the same lookups
// and seed gives the same targets, so the final run decides the order.
// Not thread-safe: a request's procedure is used under its request's lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "net/SipRecords.h"
#include "net/SipServerLocator.h"

namespace Tarvik {
namespace Net {

// The addresses of the hosts file, by lower-case name.
struct SipHostsEntry {
    std::vector<std::string> ipv4;  // dotted texts, in file order
    std::vector<std::string> ipv6;  // IPv6 texts, in file order
};
using SipHostsTable = std::unordered_map<std::string, SipHostsEntry>;

// A small, fast, seedable source for the RFC 2782 weighted choice (splitmix64).
class SipRandom {
public:
    explicit SipRandom(uint64_t in_ullSeed = 0) : m_ullState(in_ullSeed) {}
    uint64_t next();
    // Uniform in [0, in_ullMax], both ends included.
    uint64_t upTo(uint64_t in_ullMax);

private:
    uint64_t m_ullState;  // advanced on every draw
};

// Orders SRV records as RFC 2782 says: priority ascending; within a
// priority, a weighted random choice after another, records of weight 0
// first in the running sums. out_order gets indices into in_records.
void orderSrvRecords(const std::vector<SipDns::SrvRecord>& in_records, SipRandom& io_random,
                     std::vector<size_t>& out_order);

class SipLocatorProcedure {
public:
    using Locator = SipServerLocator;

    struct Lookup {
        std::string name;                                 // lower case, no trailing dot
        uint16_t type = 0;                                // record type
        bool done = false;                                // the outcome is known
        bool sent = false;                                // a query went out (while not done)
        Locator::Outcome outcome = Locator::OUTCOME_ERROR;  // valid when done
        Locator::CacheUse cache = Locator::CACHE_MISS;    // where the outcome came from
        SipDns::RecordSetPtr records;                     // the set, when the outcome is an answer or negative
        uint32_t ttl = 0;                                 // seconds the set stays valid
        std::string error;                                // why, for OUTCOME_ERROR and OUTCOME_TIMEOUT
        int64_t sentAt = 0;                               // when the query went out (microseconds, steady clock)
    };

    // Answers lookups without a query when it can.
    class Source {
    public:
        virtual ~Source() = default;
        // Fills done, outcome, cache, records and ttl and returns true when
        // the lookup's records are known (cache, additional records).
        virtual bool find(Lookup& io_lookup) = 0;
    };

    // Checks and normalises a request: the host in lower case, without a
    // trailing dot or IPv6 brackets; out_bNumeric tells whether it is an IP
    // address. False, saying why, when it cannot be located.
    static bool normalise(const Locator::Request& in_request, Locator::Request& out_request, bool& out_bNumeric,
                          std::string& out_strError);

    // in_request as normalise() made it.
    SipLocatorProcedure(Locator::Request&& in_request, bool in_bNumeric, uint64_t in_ullSeed);

    // Runs the procedure over what is known (in_pHosts: the hosts file, may
    // be null). True when it is complete: no lookup pending, or in_bExpired,
    // when pending lookups end as time-outs and none is added.
    bool run(Source& io_source, const SipHostsTable* in_pHosts, bool in_bExpired);

    // Every lookup made, in the order first needed; pending ones have done false.
    std::vector<Lookup>& lookups() { return m_lookups; }
    Lookup* findLookup(const std::string& in_name, uint16_t in_uiType);

    // Results of the last run.
    const std::vector<Locator::Target>& targets() const { return m_targets; }
    std::vector<Locator::Target>& targets() { return m_targets; }
    // The lookups the last run needed, in its order.
    void steps(std::vector<Locator::Step>& out_steps) const;
    // Why there is no target ("" when there is one).
    std::string error() const;
    // The last run ended some lookup as a time-out of the request.
    bool expired() const { return m_bExpiredLookup; }

private:
    enum SrvUse { SRV_NONE, SRV_RECORDS, SRV_NOT_OFFERED };
    // What a known lookup found. The set stays where it is while lookups are
    // added, unlike the lookup itself.
    struct Found {
        Locator::Outcome outcome = Locator::OUTCOME_TIMEOUT;  // how it ended
        const SipDns::RecordSet* records = nullptr;          // its set; null without one
        uint32_t ttl = 0;                                    // seconds the set stays valid
    };
    // A NAPTR record a SIP client can follow: terminal ("S"), no regular
    // expression, a service it supports.
    struct Service {
        uint16_t order;                  // NAPTR order
        uint16_t preference;             // NAPTR preference
        Locator::Transport transport;    // from the service field
        const std::string* replacement;  // the SRV name; points into the record set
    };

    // Fills out_found and returns true when the lookup is known; else adds it
    // pending (when new) and returns false. An expired run always returns true.
    bool need(const std::string& in_name, uint16_t in_uiType, Found& out_found);
    // Targets for the addresses of a host name; false while pending.
    bool addHost(const std::string& in_name, Locator::Transport in_transport, unsigned in_uiPort, Locator::Via in_via,
                 const SipDns::SrvRecord* in_pSrv, uint32_t in_uiTtl);
    SrvUse addSrv(const Found& in_srv, Locator::Transport in_transport, Locator::Via in_via, uint32_t in_uiTtl);
    void usableServices(const Found& in_naptr);
    void addTarget(Locator::Transport in_transport, const std::string& in_host, const std::string& in_address,
                   unsigned in_uiPort, const SipDns::SrvRecord* in_pSrv, uint32_t in_uiTtl, Locator::Via in_via);
    void addAddresses(const std::vector<std::string>* in_pIpv4, const std::vector<std::string>* in_pIpv6,
                      Locator::Transport in_transport, const std::string& in_host, unsigned in_uiPort,
                      const SipDns::SrvRecord* in_pSrv, uint32_t in_uiTtl4, uint32_t in_uiTtl6, Locator::Via in_via4,
                      Locator::Via in_via6);

    const Locator::Request m_request;  // normalised
    const bool m_bNumeric;             // the host is an IP address
    const uint64_t m_ullSeed;          // each run draws the same numbers from it
    std::vector<Lookup> m_lookups;     // every lookup made, in the order first needed

    // State of the current or last run.
    Source* m_pSource = nullptr;               // valid during a run
    const SipHostsTable* m_pHosts = nullptr;   // valid during a run
    bool m_bExpired = false;                   // the run ends pending lookups as time-outs
    bool m_bPending = false;                   // some lookup the run needed is pending
    bool m_bNotOffered = false;                // an SRV set said the service is not offered
    bool m_bExpiredLookup = false;             // some lookup ended as a time-out of the request
    SipRandom m_random;                        // reseeded at every run
    std::vector<size_t> m_order;               // indices into m_lookups, in the run's order of need
    std::vector<Locator::Target> m_targets;    // targets in order
    std::vector<size_t> m_srvOrder;            // scratch of addSrv, kept to spare allocations
    std::vector<Service> m_services;           // scratch of run: the usable NAPTR records in order
};

}  // namespace Net
}  // namespace Tarvik
