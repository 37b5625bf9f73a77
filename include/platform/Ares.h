// Printable forms of DNS messages for logging answers that c-ares delivers.
#pragma once

#include <string>

namespace Tarvik::Ares {

// Parses the question entry at aptr within the message abuf of alen bytes:
// the name (compression pointers followed) and its 2-byte type and class.
// Fills out_name with the name ("" for the root) and out_text with a printable
// form ("a.test IN A"; unknown classes and types as "CLASS<n>", "TYPE<n>").
// Returns the position after the entry, or null, leaving the outputs
// unchanged, when the entry is malformed or does not fit in the message.
const unsigned char* display_question(const unsigned char* aptr, const unsigned char* abuf, int alen,
                                      std::string& out_name, std::string& out_text);

// Names of the header's 4-bit OPCODE ("QUERY", "IQUERY", "STATUS", ...) and
// RCODE ("NOERROR", "FORMERR", "SERVFAIL", "NXDOMAIN", ...) values; unassigned
// codes read "UNKNOWN<n>".
extern const char* const opcodes[16];
extern const char* const rcodes[16];

}  // namespace Tarvik::Ares
