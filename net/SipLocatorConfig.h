// What the SIP server locator reads from its surroundings: the DNS servers
// to ask (the resolver's parameter, else the host's resolver configuration)
// and the hosts file.
#pragma once

#include <netinet/in.h>

#include <string>
#include <vector>

#include "net/SipLocatorProcedure.h"
#include "platform/GlobalConfig.h"
#include "platform/StringVector.h"

namespace Tarvik {
namespace Net {

struct SipLocatorServers {
    std::vector<in_addr> addresses;  // the servers, primary first
    StringVector texts;              // the same as dotted texts
};

// A text that changes whenever the servers the configuration names may have
// changed: the parameter's value, or the host's servers. Cheap: resolves no
// name. False, saying why, when the host's resolver configuration is needed
// and cannot be read.
bool sipLocatorServerSource(const TSHandle<ROConfiguration>& in_hConfig, std::string& out_strSource,
                            std::string& out_strError);

// The servers: the entries of "corvane.net.HostNameServer.DNSServerIPAddrList"
// (addresses, or host names resolved by the operating system), the host's
// servers for "use-host-dns-list" or when the parameter is absent. False,
// saying why, when none results: never a silent default.
bool readSipLocatorServers(const TSHandle<ROConfiguration>& in_hConfig, SipLocatorServers& out_servers,
                           std::string& out_strError);

// Reads a hosts file ("address name alias...", "#" comments) into
// out_table: names in lower case. False when it cannot be read.
bool readSipHostsFile(const std::string& in_strPath, SipHostsTable& out_table);

// The hosts file to read: /etc/hosts unless a test named another.
std::string sipHostsPath();
void setSipHostsPath(const std::string& in_strPath);

}  // namespace Net
}  // namespace Tarvik
