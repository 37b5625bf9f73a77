// This host's names, its IPv4 addresses and the choice of its primary address.
#include "net/HostIPAddress.h"

#include <cerrno>
#include <cstring>
#include <ios>

#include <ace/OS_NS_unistd.h>
#include <ace/Sock_Connect.h>

#include "net/ResolverConfig.h"
#include "platform/AceCleanup.h"
#include "platform/Assertion.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"

namespace Tarvik {

namespace {

const char* const kLoopbackAddress = "127.0.0.1";
const char* const kPrimaryIPAddressParam = "corvane.net.primaryIPAddress";
// Room for a host name, as the system calls are given it.
const size_t kHostnameBufferSize = 1024;

Logger& hostIPAddressLogger() {
    static Logger& s_logger = getLogger("corvane.net.HostIPAddress");
    return s_logger;
}

// The dotted text of an address (ACE's one-argument form shares a static buffer).
std::string dottedText(const ACE_INET_Addr& in_address) {
    char buffer[INET6_ADDRSTRLEN] = {};
    const char* pText = in_address.get_host_addr(buffer, sizeof(buffer));
    return pText != nullptr ? std::string(pText) : std::string();
}

bool isLoopbackText(const ACE_INET_Addr& in_address) {
    return dottedText(in_address) == kLoopbackAddress;
}

// The host's name for a message, "???" when it cannot be told.
std::string hostnameForMessage() {
    std::string name = "???";
    getHostname(name);
    return name;
}

// The fully qualified host name, or a status that says why there is none:
// 0 on success, else an errno value (ENODATA when the resolver configuration
// names no domain, ERANGE when the name does not fit the host-name buffer).
// io_ulSize comes in as the buffer's size and leaves as the bytes the name
// needs with its terminating NUL (0 when there is no name).
unsigned long queryFullHostName(std::string& out_strName, unsigned long& io_ulSize) {
    const unsigned long bufferSize = io_ulSize;
    io_ulSize = 0;
    char buffer[kHostnameBufferSize] = {};
    if (ACE_OS::hostname(buffer, sizeof(buffer)) != 0) return static_cast<unsigned long>(errno);
    buffer[sizeof(buffer) - 1] = '\0';
    std::string name = buffer;
    // A name that already holds a dot is taken as fully qualified.
    if (name.find('.') == std::string::npos) {
        Net::ResolverConfig config;
        if (!Net::readResolverConfig(config)) return static_cast<unsigned long>(errno);
        if (config.domain.empty()) return ENODATA;
        name += '.';
        name += config.domain;
    }
    io_ulSize = static_cast<unsigned long>(name.size() + 1);
    if (io_ulSize > bufferSize) return ERANGE;
    out_strName = name;
    return 0;
}

}  // namespace

bool getHostname(std::string& out_strHostname) {
    char buffer[kHostnameBufferSize] = {};
    if (ACE_OS::hostname(buffer, sizeof(buffer)) != 0) {
        CORVANE_ERROR(hostIPAddressLogger(), "ACE_OS::hostname() failed");
        return false;
    }
    buffer[sizeof(buffer) - 1] = '\0';  // a truncated name need not be terminated
    out_strHostname = buffer;
    return true;
}

bool getFqdnHostname(std::string& out_strHostname) {
    unsigned long size = kHostnameBufferSize;
    const unsigned long status = queryFullHostName(out_strHostname, size);
    if (status == 0) return true;
    CORVANE_DEBUG(hostIPAddressLogger(),
                  "DnsQueryConfig() failed status=0x"
                      << std::hex << status << " (size=" << size
                      << ") - probably failing because localhost is not member of a domain");
    return getHostname(out_strHostname);
}

IPAddressVector::~IPAddressVector() {
    CORVANE_TRACE_SCOPE(hostIPAddressLogger(), "IPAddressVector dtor");
    clear();
}

bool getHostIPAddress(const char* in_szHostname, std::vector<ACE_INET_Addr>& out_addresses) {
    Logger& logger = hostIPAddressLogger();
    CORVANE_TRACE_SCOPE(logger, "getHostIPAddress(hostname, addreVector)");
    out_addresses.clear();
    if (in_szHostname != nullptr) {
        CORVANE_NOT_IMPLEMENTED(logger, "getHostIPAddress with a non-null hostname");
        return false;
    }

    bool bResult = true;
    size_t count = 0;
    ACE_INET_Addr* pAddresses = nullptr;
    if (ACE::get_ip_interfaces(count, pAddresses) != 0) {
        CORVANE_ERROR(logger, "ACE_Sock_Connect::get_ip_interfaces failed for host "
                                  << hostnameForMessage());
        bResult = false;
    } else {
        // ACE also reports IPv6 addresses; the library is IPv4.
        out_addresses.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            if (pAddresses[i].get_type() != AF_INET) continue;
            out_addresses.push_back(pAddresses[i]);
            out_addresses.back().set_port_number(0);
        }
    }
    delete[] pAddresses;

    if (out_addresses.empty()) {
        CORVANE_INFO(logger, "No IP network interfaces found for host " << hostnameForMessage());
        bResult = false;
    }
    return bResult;
}

const std::vector<ACE_INET_Addr>& getHostIPAddress() {
    // Filled once, by the first caller (the platform's start-up thread), and
    // destroyed by ACE at exit. A failed first enumeration leaves it empty.
    static bool s_bFilled = false;
    static AceCleanup<IPAddressVector>* s_pAddresses = nullptr;
    if (!s_bFilled) {
        s_pAddresses = new AceCleanup<IPAddressVector>;
        getHostIPAddress(nullptr, *s_pAddresses);
        s_bFilled = true;
    }
    return *s_pAddresses;
}

bool getHostIPAddressNoLoopback(const char* in_szHostname,
                                std::vector<ACE_INET_Addr>& out_addresses) {
    if (!getHostIPAddress(in_szHostname, out_addresses)) return false;
    for (auto it = out_addresses.begin(); it != out_addresses.end(); ++it) {
        if (isLoopbackText(*it)) {
            out_addresses.erase(it);
            break;
        }
    }
    if (out_addresses.size() < 2) return true;

    const Logger rtpLogger("corvane.media.HostBasedRtpStream.hostIPresolution");
    CORVANE_WARN(rtpLogger, "Multiple IP addresses available on host: "
                                << "using the first one as destination URL for RTP packets: "
                                << dottedText(out_addresses.front()));
    return true;
}

bool getPrimaryIPAddress(ACE_INET_Addr& out_address) {
    Logger& logger = hostIPAddressLogger();
    CORVANE_TRACE_SCOPE(logger, "getPrimaryIPAddress");

    std::string configured;
    bool bConfigured = false;
    {
        const TSHandle<ROConfiguration> config = GlobalConfig::getInstance().getConfig();
        bConfigured = !config.isNull() && config->getString(kPrimaryIPAddressParam, configured);
    }
    if (bConfigured) {
        // The configured value wins, whether or not it is one of this host's.
        ACE_INET_Addr address;
        if (address.set(static_cast<u_short>(0), configured.c_str(), 1, AF_INET) < 0) {
            CORVANE_ERROR(logger, "ACE_INET_Addr::set failed on " << configured);
            return false;
        }
        out_address = address;
        return true;
    }

    const std::vector<ACE_INET_Addr>& addresses = getHostIPAddress();
    switch (addresses.size()) {
        case 0:
            CORVANE_ERROR(logger, "host has no ip address!");
            return false;
        case 1:
            out_address = addresses[0];
            return true;
        case 2:
            // The common case: one real address beside the loopback address.
            if (isLoopbackText(addresses[0])) {
                out_address = addresses[1];
                return true;
            }
            if (isLoopbackText(addresses[1])) {
                out_address = addresses[0];
                return true;
            }
            CORVANE_ERROR(logger, "Host has 2 IP addresses. Solution : set the "
                                      << kPrimaryIPAddressParam << " parameter");
            return false;
        default:
            // Three or more: no guess, even when one of them is the loopback address.
            CORVANE_ERROR(logger, "Host has more than one IP address. Solution : set the "
                                      << kPrimaryIPAddressParam << " parameter");
            return false;
    }
}

}  // namespace Tarvik
