// The DNS records the SIP server locator works with: record sets of one name
// and type as an answer gives them, shared read-only between the cache and
// the requests that use them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tarvik {
namespace Net {
namespace SipDns {

constexpr uint16_t kTypeA = 1;
constexpr uint16_t kTypeCname = 5;
constexpr uint16_t kTypeSoa = 6;
constexpr uint16_t kTypeAaaa = 28;
constexpr uint16_t kTypeSrv = 33;
constexpr uint16_t kTypeNaptr = 35;
constexpr uint16_t kClassIn = 1;

// Longest time a negative answer is kept, in seconds.
constexpr uint32_t kMaxNegativeTtl = 300;

struct SrvRecord {
    uint16_t priority = 0;  // lower first
    uint16_t weight = 0;    // share within a priority
    uint16_t port = 0;      // the service's port
    std::string target;     // lower case, no trailing dot; "" for "." (service not offered)
};

struct NaptrRecord {
    uint16_t order = 0;       // lower first
    uint16_t preference = 0;  // lower first within an order
    std::string flags;        // e.g. "S"
    std::string service;      // e.g. "SIP+D2U"
    std::string regexp;       // empty for the records a SIP client uses
    std::string replacement;  // lower case, no trailing dot; "" for "."
};

// What an answer says about one name and type.
struct RecordSet {
    enum Kind : uint8_t {
        RECORDS,   // records of the type
        NXDOMAIN,  // the name does not exist
        NODATA     // the name exists without records of the type
    };
    Kind kind = NODATA;
    // Seconds the set may be kept: the smallest TTL of the records and of the
    // CNAMEs that led to them; for a negative answer the smaller of its SOA's
    // TTL and MINIMUM, at most kMaxNegativeTtl, and 0 without an SOA. 0: use
    // once, never keep.
    uint32_t ttl = 0;
    std::vector<std::string> addresses;  // A or AAAA: address texts, in answer order
    std::vector<SrvRecord> srv;          // SRV, in answer order
    std::vector<NaptrRecord> naptr;      // NAPTR, in answer order

    size_t size() const { return addresses.size() + srv.size() + naptr.size(); }
};

using RecordSetPtr = std::shared_ptr<const RecordSet>;

}  // namespace SipDns
}  // namespace Net
}  // namespace Tarvik
