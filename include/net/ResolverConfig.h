// The system's resolver configuration (/etc/resolv.conf): the host's DNS
// servers and its primary DNS domain.
#pragma once

#include <string>

#include "platform/StringVector.h"

namespace Tarvik {
namespace Net {

// Most DNS servers kept from the resolver configuration.
const size_t kMaxResolverConfigServers = 10;

struct ResolverConfig {
    // Dotted IPv4 texts of the "nameserver" lines, primary first, in file
    // order; at most kMaxResolverConfigServers. Entries past that limit, IPv6
    // entries and malformed addresses are left out (logged at DEBUG).
    StringVector dnsServers;
    // The primary DNS domain: the last "domain" line, else the first entry of
    // the last "search" line; without a trailing dot. Empty when there is none.
    std::string domain;
    // More IPv4 name servers than kMaxResolverConfigServers were named.
    bool bTooManyServers = false;
};

// Reads the resolver configuration into out_config (emptied first). False when
// the file cannot be read; errno then tells why. A file that names no server
// and no domain is read successfully.
bool readResolverConfig(ResolverConfig& out_config);

// Test hook: reads in_strPath instead of /etc/resolv.conf; an empty text
// restores the system's file.
void setResolverConfigPathForTest(const std::string& in_strPath);

}  // namespace Net
}  // namespace Tarvik
