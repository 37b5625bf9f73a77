// The SIP server locator's record cache: record sets per (name, type), kept
// for their TTL, at most a settable number of them, the least recently used
// dropped first. A lookup is one hash look-up and one list splice, whatever
// the number of entries. Thread-safe; time is passed in by the caller.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "net/SipRecords.h"

namespace Tarvik {
namespace Net {

class SipRecordCache {
public:
    // Microseconds of a monotonic clock.
    using Time = int64_t;

    enum Found {
        MISS,         // nothing kept, or it expired
        HIT,          // records
        NEGATIVE_HIT  // a negative answer (NXDOMAIN or NODATA)
    };

    explicit SipRecordCache(size_t in_uiMaxEntries);
    SipRecordCache(const SipRecordCache&) = delete;
    SipRecordCache& operator=(const SipRecordCache&) = delete;

    // The set kept for the name (lower case, no trailing dot) and type at
    // in_now, with the whole seconds it has left. An expired set is dropped.
    Found lookup(std::string_view in_name, uint16_t in_uiType, Time in_now, SipDns::RecordSetPtr& out_records,
                 uint32_t& out_uiSecondsLeft);
    // Keeps the set for its TTL from in_now, replacing what was kept; a set
    // with TTL 0 is not kept, and what was kept goes. Returns the number of
    // entries dropped to make room.
    size_t store(std::string_view in_name, uint16_t in_uiType, const SipDns::RecordSetPtr& in_records, Time in_now);

    // Returns the number of entries dropped to fit the new bound.
    size_t setMaxEntries(size_t in_uiMaxEntries);
    size_t getMaxEntries() const;
    size_t size() const;
    void clear();

private:
    struct Entry {
        std::string name;              // owner name; the index's key points into it
        uint16_t type;                 // record type
        Time expiry;                   // kept until this time (exclusive)
        SipDns::RecordSetPtr records;  // the set
    };
    using Lru = std::list<Entry>;
    struct Key {
        std::string_view name;  // points into an Entry's name (or the caller's text for a look-up)
        uint16_t type;
        bool operator==(const Key& in_other) const { return type == in_other.type && name == in_other.name; }
    };
    struct KeyHash {
        size_t operator()(const Key& in_key) const {
            return std::hash<std::string_view>()(in_key.name) * 31 + in_key.type;
        }
    };

    // Drops least recently used entries until at most in_uiLimit are left;
    // returns how many went. Called with m_mutex held.
    size_t evictTo(size_t in_uiLimit);

    mutable std::mutex m_mutex;                            // guards every member below
    size_t m_uiMaxEntries;                                 // entries kept at most
    Lru m_lru;                                             // entries, most recently used first
    std::unordered_map<Key, Lru::iterator, KeyHash> m_index;  // (name, type) -> its entry in m_lru
};

}  // namespace Net
}  // namespace Tarvik
