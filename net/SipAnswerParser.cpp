// DNS answers for the SIP server locator, parsed with a bounds check before
// every read. c-ares has matched the answer to its query (id and question)
// before it gets here; the question is checked again all the same, so that
// the parser stands on its own.
#include "net/SipAnswerParser.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <map>
#include <utility>

namespace Tarvik {
namespace Net {
namespace SipDns {

namespace {

const size_t kHeaderSize = 12;
const size_t kRecordFixedSize = 10;  // type, class, TTL, data length
const size_t kMaxNameWireLength = 255;
// TTLs are kept at most a week, as caching servers commonly bound them.
const uint32_t kMaxTtl = 7 * 24 * 3600;

unsigned read16(const unsigned char* p) { return (static_cast<unsigned>(p[0]) << 8) | p[1]; }

uint32_t read32(const unsigned char* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

// A TTL with its top bit set counts as 0 (RFC 2181, 8).
uint32_t usableTtl(uint32_t in_ttl) {
    if (in_ttl & 0x80000000U) return 0;
    return std::min(in_ttl, kMaxTtl);
}

const char* rcodeName(unsigned in_rcode) {
    static const char* const s_names[] = {"NOERROR", "FORMERR", "SERVFAIL", "NXDOMAIN", "NOTIMP", "REFUSED"};
    return in_rcode < sizeof s_names / sizeof s_names[0] ? s_names[in_rcode] : "an unknown rcode";
}

// One resource record, its data left in place.
struct RawRecord {
    std::string owner;   // lower case
    unsigned type;       // record type
    unsigned dnsClass;   // record class
    uint32_t ttl;        // usable TTL
    size_t data;         // offset of the data
    size_t dataLength;   // its length
};

class Reader {
public:
    Reader(const unsigned char* in_p, size_t in_len) : m_p(in_p), m_len(in_len) {}

    bool record(size_t& io_pos, RawRecord& out, std::string& out_error) const {
        size_t end = 0;
        if (!readName(m_p, m_len, io_pos, out.owner, end)) return fail("a record's owner name is malformed", out_error);
        if (m_len - end < kRecordFixedSize) return fail("a record is cut short", out_error);
        const unsigned char* p = m_p + end;
        out.type = read16(p);
        out.dnsClass = read16(p + 2);
        out.ttl = usableTtl(read32(p + 4));
        out.dataLength = read16(p + 8);
        out.data = end + kRecordFixedSize;
        if (m_len - out.data < out.dataLength) return fail("a record's data runs past the message", out_error);
        io_pos = out.data + out.dataLength;
        return true;
    }

    // A name that fills the rest of a record's data from in_uiOffset.
    bool nameToEnd(const RawRecord& in_record, size_t in_uiOffset, std::string& out_name) const {
        size_t end = 0;
        return in_uiOffset <= in_record.data + in_record.dataLength &&
               readName(m_p, in_record.data + in_record.dataLength, in_uiOffset, out_name, end) &&
               end == in_record.data + in_record.dataLength;
    }

    bool address(const RawRecord& in_record, std::string& out_text) const {
        const int family = in_record.type == kTypeA ? AF_INET : AF_INET6;
        const size_t size = family == AF_INET ? 4 : 16;
        if (in_record.dataLength != size) return false;
        char text[INET6_ADDRSTRLEN] = {};
        if (inet_ntop(family, m_p + in_record.data, text, sizeof text) == nullptr) return false;
        out_text = text;
        return true;
    }

    bool srv(const RawRecord& in_record, SrvRecord& out) const {
        if (in_record.dataLength < 7) return false;
        const unsigned char* p = m_p + in_record.data;
        out.priority = static_cast<uint16_t>(read16(p));
        out.weight = static_cast<uint16_t>(read16(p + 2));
        out.port = static_cast<uint16_t>(read16(p + 4));
        return nameToEnd(in_record, in_record.data + 6, out.target);
    }

    bool naptr(const RawRecord& in_record, NaptrRecord& out) const {
        const size_t end = in_record.data + in_record.dataLength;
        size_t pos = in_record.data;
        if (end - pos < 4) return false;
        out.order = static_cast<uint16_t>(read16(m_p + pos));
        out.preference = static_cast<uint16_t>(read16(m_p + pos + 2));
        pos += 4;
        std::string* const fields[] = {&out.flags, &out.service, &out.regexp};
        for (std::string* field : fields) {
            if (pos >= end) return false;
            const size_t length = m_p[pos++];
            if (end - pos < length) return false;
            field->assign(reinterpret_cast<const char*>(m_p + pos), length);
            pos += length;
        }
        return nameToEnd(in_record, pos, out.replacement);
    }

    // The smaller of an SOA's TTL and its MINIMUM field.
    bool soaTtl(const RawRecord& in_record, uint32_t& out_ttl) const {
        const size_t end = in_record.data + in_record.dataLength;
        std::string name;
        size_t pos = 0;
        if (!readName(m_p, end, in_record.data, name, pos) || !readName(m_p, end, pos, name, pos)) return false;
        if (end - pos != 20) return false;  // serial, refresh, retry, expire, minimum
        out_ttl = std::min(in_record.ttl, usableTtl(read32(m_p + pos + 16)));
        return true;
    }

    static bool fail(const char* in_szWhy, std::string& out_error) {
        out_error = in_szWhy;
        return false;
    }

private:
    const unsigned char* m_p;  // the message
    size_t m_len;              // its length
};

}  // namespace

bool readName(const unsigned char* in_pMessage, size_t in_uiLength, size_t in_uiOffset, std::string& out_strName,
              size_t& out_uiEnd) {
    std::string name;
    size_t pos = in_uiOffset;
    size_t wireLength = 1;  // the root label
    bool bJumped = false;
    for (;;) {
        if (pos >= in_uiLength) return false;
        const unsigned char length = in_pMessage[pos];
        if (length == 0) {
            if (!bJumped) out_uiEnd = pos + 1;
            break;
        }
        if ((length & 0xC0) == 0xC0) {
            if (in_uiLength - pos < 2) return false;
            const size_t target = (static_cast<size_t>(length & 0x3F) << 8) | in_pMessage[pos + 1];
            // Only backwards: every pointer lands before the last, so no chain loops.
            if (target >= pos) return false;
            if (!bJumped) out_uiEnd = pos + 2;
            bJumped = true;
            pos = target;
            continue;
        }
        if ((length & 0xC0) != 0) return false;  // extended label types are not used
        if (in_uiLength - pos - 1 < length) return false;
        wireLength += 1 + length;
        if (wireLength > kMaxNameWireLength) return false;
        if (!name.empty()) name += '.';
        for (size_t i = pos + 1; i <= pos + length; ++i) {
            unsigned char c = in_pMessage[i];
            // Host names only: a dot or a control byte inside a label would
            // make another name of the text.
            if (c == '.' || c <= ' ' || c >= 0x7F) return false;
            if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c - 'A' + 'a');
            name += static_cast<char>(c);
        }
        pos += 1 + length;
    }
    out_strName.swap(name);
    return true;
}

bool parseAnswer(const unsigned char* in_pMessage, size_t in_uiLength, std::string_view in_name,
                 uint16_t in_uiType, ParsedAnswer& out_answer, std::string& out_strError) {
    out_answer = ParsedAnswer();
    if (in_pMessage == nullptr || in_uiLength < kHeaderSize) return Reader::fail("the answer is shorter than a header", out_strError);
    const unsigned char* const p = in_pMessage;
    if ((p[2] & 0x80) == 0) return Reader::fail("the message is not a response", out_strError);
    if (((p[2] >> 3) & 0x0F) != 0) return Reader::fail("the response is not to a standard query", out_strError);
    const unsigned rcode = p[3] & 0x0F;
    const unsigned questions = read16(p + 4);
    const unsigned answers = read16(p + 6);
    const unsigned authority = read16(p + 8);
    const unsigned additional = read16(p + 10);
    if (questions != 1) return Reader::fail("the response does not hold exactly one question", out_strError);

    std::string questionName;
    size_t pos = 0;
    if (!readName(p, in_uiLength, kHeaderSize, questionName, pos)) {
        return Reader::fail("the question's name is malformed", out_strError);
    }
    if (in_uiLength - pos < 4) return Reader::fail("the question is cut short", out_strError);
    if (questionName != in_name || read16(p + pos) != in_uiType || read16(p + pos + 2) != kClassIn) {
        return Reader::fail("the response answers another question", out_strError);
    }
    pos += 4;
    if (rcode != 0 && rcode != 3) {
        out_strError = std::string("the server answered ") + rcodeName(rcode);
        return false;
    }

    const Reader reader(p, in_uiLength);
    auto set = std::make_shared<RecordSet>();
    std::string current(in_name);  // the name the CNAMEs seen so far lead to
    uint32_t ttl = UINT32_MAX;     // smallest TTL of the chain and the records
    uint32_t negativeTtl = 0;      // from the authority section's SOA
    bool bSoa = false;
    // The additional section's sets, in order of first appearance.
    std::vector<std::pair<AdditionalSet, std::shared_ptr<RecordSet>>> extra;
    std::map<std::pair<std::string, unsigned>, size_t> extraIndex;

    const unsigned total = answers + authority + additional;
    for (unsigned i = 0; i < total; ++i) {
        RawRecord record;
        if (!reader.record(pos, record, out_strError)) return false;
        if (record.dnsClass != kClassIn) continue;
        const bool bAnswer = i < answers;
        const bool bAuthority = !bAnswer && i < answers + authority;
        if (bAuthority) {
            if (record.type == kTypeSoa && !bSoa) {
                if (!reader.soaTtl(record, negativeTtl)) return Reader::fail("an SOA record is malformed", out_strError);
                bSoa = true;
            }
            continue;
        }
        if (bAnswer && record.type == kTypeCname) {
            std::string target;
            if (!reader.nameToEnd(record, record.data, target)) return Reader::fail("a CNAME record is malformed", out_strError);
            if (record.owner == current) {
                current.swap(target);
                ttl = std::min(ttl, record.ttl);
            }
            continue;
        }
        const unsigned type = record.type;
        if (type != kTypeA && type != kTypeAaaa && type != kTypeSrv && type != kTypeNaptr) continue;
        RecordSet* pTarget = nullptr;
        if (bAnswer) {
            if (type != in_uiType || record.owner != current) continue;
            pTarget = set.get();
            ttl = std::min(ttl, record.ttl);
        } else {
            if (type == kTypeNaptr) continue;
            const auto key = std::make_pair(record.owner, type);
            auto found = extraIndex.find(key);
            if (found == extraIndex.end()) {
                found = extraIndex.emplace(key, extra.size()).first;
                auto extraSet = std::make_shared<RecordSet>();
                extraSet->kind = RecordSet::RECORDS;
                extraSet->ttl = record.ttl;
                extra.emplace_back(AdditionalSet{record.owner, static_cast<uint16_t>(type), nullptr}, extraSet);
            }
            RecordSet& extraSet = *extra[found->second].second;
            extraSet.ttl = std::min(extraSet.ttl, record.ttl);
            pTarget = &extraSet;
        }
        bool bOk = false;
        if (type == kTypeA || type == kTypeAaaa) {
            std::string text;
            bOk = reader.address(record, text);
            if (bOk) pTarget->addresses.push_back(std::move(text));
        } else if (type == kTypeSrv) {
            SrvRecord srv;
            bOk = reader.srv(record, srv);
            if (bOk) pTarget->srv.push_back(std::move(srv));
        } else {
            NaptrRecord naptr;
            bOk = reader.naptr(record, naptr);
            if (bOk) pTarget->naptr.push_back(std::move(naptr));
        }
        if (!bOk) {
            return Reader::fail(type == kTypeA      ? "an A record is malformed"
                                : type == kTypeAaaa ? "an AAAA record is malformed"
                                : type == kTypeSrv  ? "an SRV record is malformed"
                                                    : "a NAPTR record is malformed",
                                out_strError);
        }
    }
    if (pos != in_uiLength) return Reader::fail("bytes follow the last record", out_strError);

    if (rcode == 3) {
        // The name does not exist: records that came along are not believed.
        set->kind = RecordSet::NXDOMAIN;
        set->addresses.clear();
        set->srv.clear();
        set->naptr.clear();
    } else {
        set->kind = set->size() > 0 ? RecordSet::RECORDS : RecordSet::NODATA;
    }
    if (set->kind == RecordSet::RECORDS) {
        set->ttl = ttl;
    } else {
        set->ttl = bSoa ? std::min(negativeTtl, kMaxNegativeTtl) : 0;
    }
    out_answer.records = std::move(set);
    for (auto& entry : extra) {
        entry.first.records = std::move(entry.second);
        out_answer.additional.push_back(std::move(entry.first));
    }
    return true;
}

}  // namespace SipDns
}  // namespace Net
}  // namespace Tarvik
