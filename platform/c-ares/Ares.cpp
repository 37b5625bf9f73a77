#include "platform/Ares.h"

#include <ares.h>

namespace Tarvik::Ares {

const char* const opcodes[16] = {"QUERY",    "IQUERY",   "STATUS",   "UNKNOWN3", "NOTIFY",   "UPDATE",
                                 "DSO",      "UNKNOWN7", "UNKNOWN8", "UNKNOWN9", "UNKNOWN10", "UNKNOWN11",
                                 "UNKNOWN12", "UNKNOWN13", "UNKNOWN14", "UNKNOWN15"};

const char* const rcodes[16] = {"NOERROR",  "FORMERR",  "SERVFAIL",  "NXDOMAIN",  "NOTIMP",    "REFUSED",
                                "YXDOMAIN", "YXRRSET",  "NXRRSET",   "NOTAUTH",   "NOTZONE",   "DSOTYPENI",
                                "UNKNOWN12", "UNKNOWN13", "UNKNOWN14", "UNKNOWN15"};

namespace {

std::string className(unsigned in_uiClass) {
    switch (in_uiClass) {
        case 1: return "IN";
        case 3: return "CH";
        case 4: return "HS";
        case 254: return "NONE";
        case 255: return "ANY";
        default: return "CLASS" + std::to_string(in_uiClass);
    }
}

std::string typeName(unsigned in_uiType) {
    switch (in_uiType) {
        case 1: return "A";
        case 2: return "NS";
        case 5: return "CNAME";
        case 6: return "SOA";
        case 12: return "PTR";
        case 15: return "MX";
        case 16: return "TXT";
        case 28: return "AAAA";
        case 33: return "SRV";
        case 35: return "NAPTR";
        case 41: return "OPT";
        case 255: return "ANY";
        default: return "TYPE" + std::to_string(in_uiType);
    }
}

}  // namespace

const unsigned char* display_question(const unsigned char* aptr, const unsigned char* abuf, int alen,
                                      std::string& out_name, std::string& out_text) {
    // c-ares checks the end of the message but not its start.
    if (aptr == nullptr || abuf == nullptr || alen <= 0 || aptr < abuf || aptr >= abuf + alen) return nullptr;
    char* szName = nullptr;
    long len = 0;
    if (ares_expand_name(aptr, abuf, alen, &szName, &len) != ARES_SUCCESS) return nullptr;
    std::string name(szName);
    ares_free_string(szName);
    aptr += len;
    // Type and class: 2 bytes each.
    if (abuf + alen - aptr < 4) return nullptr;
    const unsigned type = (static_cast<unsigned>(aptr[0]) << 8) | aptr[1];
    const unsigned dnsClass = (static_cast<unsigned>(aptr[2]) << 8) | aptr[3];
    out_text = (name.empty() ? std::string(".") : name) + " " + className(dnsClass) + " " + typeName(type);
    out_name = std::move(name);
    return aptr + 4;
}

}  // namespace Tarvik::Ares
