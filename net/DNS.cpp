// This host's DNS servers, from the system's resolver configuration.
#include "net/DNS.h"

#include "net/ResolverConfig.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Tarvik {
namespace Net {

namespace {
Logger& dnsServersLogger() {
    static Logger& s_logger = getLogger("corvane.net.DNS");
    return s_logger;
}
}  // namespace

bool getAdapterDNSServers(StringVector& out_servers, const char* in_szAdapterName) {
    if (in_szAdapterName != nullptr) {
        CORVANE_NOT_IMPLEMENTED(dnsServersLogger(), "getAdapterDNSServers with in_szAdapterName != 0");
        return false;
    }
    ResolverConfig config;
    if (!readResolverConfig(config)) return false;
    // The host's list does not fit: none of it is used rather than a part.
    if (config.bTooManyServers) {
        CORVANE_DEBUG(dnsServersLogger(), "getAdapterDNSServers : more than " << kMaxResolverConfigServers
                                                                              << " DNS servers");
        return false;
    }
    out_servers.insert(out_servers.end(), config.dnsServers.begin(), config.dnsServers.end());
    return true;
}

}  // namespace Net
}  // namespace Tarvik
