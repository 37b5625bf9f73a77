// This host's own names and IPv4 addresses, and the choice of its primary address.
#pragma once

#include <string>
#include <vector>

#include <ace/INET_Addr.h>

namespace Tarvik {

// The computer name. False when the system cannot tell it; out_strHostname is
// then left as it was.
bool getHostname(std::string& out_strHostname);

// The fully qualified host name: the computer name with the primary DNS domain
// of the resolver configuration appended (the computer name as it stands when
// it already holds a dot). Without a domain, the computer name.
bool getFqdnHostname(std::string& out_strHostname);

// A list of host addresses whose destruction is traced.
class IPAddressVector : public std::vector<ACE_INET_Addr> {
public:
    virtual ~IPAddressVector();
};

// Every IPv4 address of this host's interfaces, in the order the system
// reports them, port 0. in_szHostname must be null (other hosts are not
// supported). out_addresses is emptied first; false when no address was found.
bool getHostIPAddress(const char* in_szHostname, std::vector<ACE_INET_Addr>& out_addresses);

// The same list, computed on the first call and kept for the life of the
// process (never refreshed). Call it first from one thread.
const std::vector<ACE_INET_Addr>& getHostIPAddress();

// The list without its first "127.0.0.1" entry. When two or more addresses
// remain, a warning says that the first one is used.
bool getHostIPAddressNoLoopback(const char* in_szHostname,
                                std::vector<ACE_INET_Addr>& out_addresses);

// The primary address: "corvane.net.primaryIPAddress" when configured, else the
// only address, or the non-loopback one of two. False (out_address unchanged)
// when there is no address or more than one candidate.
bool getPrimaryIPAddress(ACE_INET_Addr& out_address);

}  // namespace Tarvik
