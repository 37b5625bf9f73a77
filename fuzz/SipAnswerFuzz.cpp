// The SIP server locator's parsing of any DNS message, asked for its own question's name and type: it fails
// with a reason, or gives lower-case names without dots at the ends, TTLs in range, sets as their kind says.
#include <cstdint>
#include <string>

#include "net/SipAnswerParser.h"

namespace SipDns = Tarvik::Net::SipDns;

static bool plainName(const std::string& in_name) {
    return in_name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos &&
           (in_name.empty() || (in_name.front() != '.' && in_name.back() != '.'));
}

static bool keepsPromises(const SipDns::RecordSet& in_set, bool in_bAdditional) {
    bool ok = in_set.kind == SipDns::RecordSet::RECORDS
                  ? in_set.size() != 0 && in_set.ttl <= 7 * 24 * 3600
                  : !in_bAdditional && in_set.size() == 0 && in_set.ttl <= SipDns::kMaxNegativeTtl;
    for (const SipDns::SrvRecord& srv : in_set.srv) ok = ok && plainName(srv.target);
    for (const SipDns::NaptrRecord& naptr : in_set.naptr) ok = ok && plainName(naptr.replacement);
    return ok;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string name;
    size_t end = 0;
    uint16_t type = SipDns::kTypeA;
    if (size >= 12 && SipDns::readName(data, size, 12, name, end)) {
        if (end + 2 <= size) type = static_cast<uint16_t>((data[end] << 8) | data[end + 1]);
    }
    SipDns::ParsedAnswer answer;
    std::string error;
    const bool parsed = SipDns::parseAnswer(data, size, name, type, answer, error);
    if (parsed != static_cast<bool>(answer.records) || (!parsed && error.empty())) __builtin_trap();
    if (parsed && !keepsPromises(*answer.records, false)) __builtin_trap();
    for (const SipDns::AdditionalSet& set : answer.additional) {
        if (!set.records || !plainName(set.name) || !keepsPromises(*set.records, true)) __builtin_trap();
    }
    return 0;
}
