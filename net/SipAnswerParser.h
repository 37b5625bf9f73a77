// Parsing of the DNS answers the SIP server locator gets: NAPTR, SRV, A and
// AAAA records with the CNAMEs that lead to them, the SOA of a negative
// answer, and the records of the additional section. Every read is checked
// against the message's length: a malformed message is a failure with a
// reason, never a read outside it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/SipRecords.h"

namespace Tarvik {
namespace Net {
namespace SipDns {

// A record set of the additional section.
struct AdditionalSet {
    std::string name;      // its owner, lower case, no trailing dot
    uint16_t type = 0;     // kTypeA, kTypeAaaa or kTypeSrv
    RecordSetPtr records;  // kind RECORDS
};

struct ParsedAnswer {
    RecordSetPtr records;                   // what the answer says about the name and type asked
    std::vector<AdditionalSet> additional;  // A, AAAA and SRV sets of the additional section
};

// Parses the answer in in_pMessage (in_uiLength bytes) to a query of
// in_name (lower case, no trailing dot) and in_uiType. False, with the reason
// in out_strError, when the message is malformed, answers another question,
// or carries an rcode other than NOERROR and NXDOMAIN.
bool parseAnswer(const unsigned char* in_pMessage, size_t in_uiLength, std::string_view in_name,
                 uint16_t in_uiType, ParsedAnswer& out_answer, std::string& out_strError);

// Reads the domain name at in_uiOffset: labels, compression pointers
// followed (each must point before the label that holds it, so that no
// chain loops), at most 255 bytes in all. The text is lower case, labels
// joined by dots, "" for the root. out_uiEnd is the offset after the name
// where it stands. False when it is malformed or runs past the message.
bool readName(const unsigned char* in_pMessage, size_t in_uiLength, size_t in_uiOffset, std::string& out_strName,
              size_t& out_uiEnd);

}  // namespace SipDns
}  // namespace Net
}  // namespace Tarvik
