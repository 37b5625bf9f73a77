// A scripted DNS server for tests: UDP on one loopback address (port 53 by
// default), on a thread of its own, answering each question name as the test
// says: given bytes, late, never, or with a wrong id. Counts the queries it
// received per name. Builders make answers as byte vectors.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace corvane_test {

namespace dns {

using Bytes = std::vector<uint8_t>;

constexpr uint16_t TYPE_A = 1;
constexpr uint16_t TYPE_CNAME = 5;
constexpr uint16_t TYPE_SOA = 6;
constexpr uint16_t TYPE_TXT = 16;
constexpr uint16_t TYPE_AAAA = 28;
constexpr uint16_t TYPE_SRV = 33;
constexpr uint16_t TYPE_NAPTR = 35;
constexpr uint16_t CLASS_IN = 1;

constexpr uint16_t RCODE_NOERROR = 0;
constexpr uint16_t RCODE_SERVFAIL = 2;
constexpr uint16_t RCODE_NXDOMAIN = 3;

// Header flags of an answer: QR (response), RD (recursion desired, echoed),
// RA (recursion available), opcode QUERY; OR an rcode in.
constexpr uint16_t RESPONSE_FLAGS = 0x8180;

Bytes u16(uint16_t in_value);  // big-endian
Bytes u32(uint32_t in_value);  // big-endian
Bytes cat(std::initializer_list<Bytes> in_parts);

// The 12-byte header.
Bytes header(uint16_t in_id, uint16_t in_flags, uint16_t in_qdcount, uint16_t in_ancount,
             uint16_t in_nscount = 0, uint16_t in_arcount = 0);
// A name as uncompressed labels ("a.test" -> 01 'a' 04 't' 'e' 's' 't' 00; "" is the root).
Bytes name(const std::string& in_dotted);
// A compression pointer to the name at the given message offset (0xC000 | offset).
Bytes pointer(uint16_t in_offset);
// A question entry: name, type, class.
Bytes question(const std::string& in_name, uint16_t in_type = TYPE_A, uint16_t in_class = CLASS_IN);
// A resource record: owner (already encoded: name() or pointer()), type,
// class, TTL, data length, data.
Bytes record(const Bytes& in_owner, uint16_t in_type, uint32_t in_ttl, const Bytes& in_rdata,
             uint16_t in_class = CLASS_IN);
// An A record for a dotted IPv4 address ("10.0.0.1").
Bytes a(const Bytes& in_owner, const std::string& in_address, uint32_t in_ttl);
// A CNAME record pointing to an uncompressed target name.
Bytes cname(const Bytes& in_owner, const std::string& in_target, uint32_t in_ttl);
// An AAAA record for an IPv6 text ("fd00::1").
Bytes aaaa(const Bytes& in_owner, const std::string& in_address, uint32_t in_ttl);
// An SRV record: priority, weight, port, uncompressed target ("" is ".").
Bytes srv(const Bytes& in_owner, uint16_t in_priority, uint16_t in_weight, uint16_t in_port,
          const std::string& in_target, uint32_t in_ttl);
// A NAPTR record: order, preference, flags, service, regexp (character
// strings), uncompressed replacement.
Bytes naptr(const Bytes& in_owner, uint16_t in_order, uint16_t in_preference, const std::string& in_flags,
            const std::string& in_service, const std::string& in_regexp, const std::string& in_replacement,
            uint32_t in_ttl);
// An SOA record (ns.test, hostmaster.test, serial 1, refresh 3600, retry
// 600, expire 86400) with its TTL and MINIMUM field.
Bytes soa(const Bytes& in_owner, uint32_t in_ttl, uint32_t in_minimum);
// A whole answer to an IN query of the name: header (id 0, patched in when
// sent; RESPONSE_FLAGS | rcode; one question; one answer count per record),
// the question, the records. Records may point at the question's name with
// pointer(12).
Bytes response(const std::string& in_qname, const std::vector<Bytes>& in_answers,
               uint16_t in_rcode = RCODE_NOERROR, uint16_t in_qtype = TYPE_A);

// Sends one query datagram to a server (UDP port 53) and returns the first
// reply's bytes, or nothing when none comes within in_iTimeoutMs.
Bytes exchange(const std::string& in_server, const Bytes& in_query, int in_iTimeoutMs);

}  // namespace dns

class DnsResponder {
public:
    // What happens to the id of a reply's bytes when sent.
    enum class Id {
        PATCH,  // the query's id is written into bytes 0-1
        KEEP,   // sent as given
        WRONG   // the query's id + 1 is written in: the client must ignore it
    };
    struct Reply {
        dns::Bytes bytes;                     // the datagram (at least 2 bytes unless Id::KEEP)
        std::chrono::milliseconds delay{0};   // sent this long after the query arrived
        Id id = Id::PATCH;
        bool copyQuestion = false;            // the query's question is appended to bytes
    };
    // An answer with that rcode and no records to whatever was asked: a
    // header (one question) followed by the query's own question.
    static Reply rcodeReply(uint16_t in_rcode);
    // Everything one query gets; empty: never answered.
    using Script = std::vector<Reply>;

    explicit DnsResponder(std::string in_address, uint16_t in_port = 53);
    ~DnsResponder();
    DnsResponder(const DnsResponder&) = delete;
    DnsResponder& operator=(const DnsResponder&) = delete;

    // Binds the socket and starts the thread; false with a reason on failure.
    bool start(std::string* out_error = nullptr);
    // Ends the thread (bounded); replies still waiting for their delay are dropped.
    void stop();

    // Scripts per question name, compared without case and without a
    // trailing dot; a later script of a name replaces the earlier one.
    void answer(const std::string& in_name, dns::Bytes in_bytes);
    void answerLate(const std::string& in_name, dns::Bytes in_bytes, std::chrono::milliseconds in_delay);
    void never(const std::string& in_name);
    void script(const std::string& in_name, Script in_script);
    // The n-th query of the name gets the n-th script; the last one repeats.
    void scriptPerQuery(const std::string& in_name, std::vector<Script> in_scripts);
    // What names without a script get (never answered unless set).
    void setDefault(Script in_script);

    int queryCount(const std::string& in_name) const;
    int totalQueries() const;
    // Waits until the name has had at least in_count queries, at most in_limit.
    bool waitForQueries(const std::string& in_name, int in_count, std::chrono::milliseconds in_limit) const;

    const std::string& address() const { return m_strAddress; }

private:
    using Clock = std::chrono::steady_clock;
    struct Pending {
        Clock::time_point due;  // when to send
        dns::Bytes bytes;       // the datagram, id already set
        std::vector<uint8_t> peer;  // the client's sockaddr_in, as bytes
    };

    void run();
    void onQuery(const uint8_t* in_data, size_t in_len, const std::vector<uint8_t>& in_peer);
    void sendDue();

    const std::string m_strAddress;  // the loopback address served
    const uint16_t m_port;           // the UDP port served
    int m_socket = -1;               // the bound UDP socket; valid between start and stop
    int m_stopFd = -1;               // eventfd that wakes the thread to end
    std::thread m_thread;            // the serving thread; joinable between start and stop
    std::vector<Pending> m_pending;  // delayed replies, earliest first; serving thread only

    mutable std::mutex m_mutex;                           // guards the members below
    mutable std::condition_variable m_queryArrived;       // signalled on every query
    std::map<std::string, std::vector<Script>> m_scripts; // per name, per query (last repeats)
    Script m_default;                                     // for names without a script
    std::map<std::string, int> m_counts;                  // queries received per name
    int m_iTotal = 0;                                     // queries received in all
};

}  // namespace corvane_test
