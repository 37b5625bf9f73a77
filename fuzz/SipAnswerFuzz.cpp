// The SIP server locator's parsing of any DNS message, asked for its own question's name and type
// (or the first byte's type). It fails with a reason, or gives records that keep the parser's promises:
// lower-case names without dots at the ends, TTLs in range, sets that hold what their kind says.
#include <algorithm>
#include <cstdint>
#include <string>

#include "net/SipAnswerParser.h"

namespace SipDns = Tarvik::Net::SipDns;

static bool plainName(const std::string& in_name) {
    return std::none_of(in_name.begin(), in_name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }) &&
           (in_name.empty() || (in_name.front() != '.' && in_name.back() != '.'));
}

static bool keepsPromises(const SipDns::RecordSet& in_set, bool in_bAdditional) {
    bool ok = in_set.kind == SipDns::RecordSet::RECORDS
                  ? in_set.size() != 0 && in_set.ttl <= 7 * 24 * 3600
                  : !in_bAdditional && in_set.size() == 0 && in_set.ttl <= SipDns::kMaxNegativeTtl;
    for (const SipDns::SrvRecord& srv : in_set.srv) ok = ok && plainName(srv.target);
    for (const SipDns::NaptrRecord& naptr : in_set.naptr) ok = ok && plainName(naptr.replacement);
    for (const std::string& address : in_set.addresses) ok = ok && !address.empty();
    return ok;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const uint16_t s_types[4] = {SipDns::kTypeNaptr, SipDns::kTypeSrv, SipDns::kTypeA, SipDns::kTypeAaaa};
    if (size > 65535) return 0;
    std::string name;
    size_t end = 0;
    uint16_t type = size > 0 ? s_types[data[0] & 3] : SipDns::kTypeA;
    if (size >= 12 && SipDns::readName(data, size, 12, name, end)) {
        if (end > size || !plainName(name)) __builtin_trap();
        if (size - end >= 2) type = static_cast<uint16_t>((data[end] << 8) | data[end + 1]);
    }
    SipDns::ParsedAnswer answer;
    std::string error;
    if (!SipDns::parseAnswer(data, size, name, type, answer, error)) {
        if (error.empty() || answer.records) __builtin_trap();
        return 0;
    }
    if (!answer.records || !keepsPromises(*answer.records, false)) __builtin_trap();
    for (const SipDns::AdditionalSet& set : answer.additional) {
        const bool typeOk = set.type == SipDns::kTypeA || set.type == SipDns::kTypeAaaa || set.type == SipDns::kTypeSrv;
        if (!typeOk || !set.records || !plainName(set.name) || !keepsPromises(*set.records, true)) __builtin_trap();
    }
    return 0;
}
