#include "net/SipLocatorConfig.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

#include "net/DNS.h"
#include "net/Hostent.h"
#include "net/ResolverConfig.h"

namespace Tarvik {
namespace Net {

namespace {

const char* const kServersParamName = "corvane.net.HostNameServer.DNSServerIPAddrList";
const char* const kUseHostList = "use-host-dns-list";
const char* const kSystemHostsPath = "/etc/hosts";

std::mutex& hostsPathMutex() {
    static std::mutex s_mutex;
    return s_mutex;
}

// The hosts file a test named; empty: the system's. Guarded by hostsPathMutex().
std::string& hostsPathOverride() {
    static std::string s_strPath;
    return s_strPath;
}

std::string joined(const StringVector& in_texts) {
    std::string out;
    for (const std::string& text : in_texts) out += (out.empty() ? "" : " ") + text;
    return out;
}

bool hostServers(StringVector& out_servers, std::string& out_strError) {
    if (!getAdapterDNSServers(out_servers, nullptr)) {
        out_strError = "failed to retrieve this host's DNS servers";
        return false;
    }
    return true;
}

}  // namespace

bool sipLocatorServerSource(const TSHandle<ROConfiguration>& in_hConfig, std::string& out_strSource,
                            std::string& out_strError) {
    std::string value;
    const bool bParam = !in_hConfig.isNull() && in_hConfig->getString(kServersParamName, value);
    if (bParam && value != kUseHostList) {
        out_strSource = "parameter " + value;
        return true;
    }
    StringVector servers;
    if (!hostServers(servers, out_strError)) return false;
    out_strSource = "host " + joined(servers);
    return true;
}

bool readSipLocatorServers(const TSHandle<ROConfiguration>& in_hConfig, SipLocatorServers& out_servers,
                           std::string& out_strError) {
    out_servers = SipLocatorServers();
    std::string value;
    const bool bParam = !in_hConfig.isNull() && in_hConfig->getString(kServersParamName, value);
    StringVector entries;
    if (!bParam || value == kUseHostList) {
        if (!hostServers(entries, out_strError)) return false;
        if (entries.empty()) {
            out_strError = bParam ? std::string("failed to parse the value of parameter ") + kServersParamName
                                  : std::string("the host's resolver configuration names no DNS server");
            return false;
        }
    } else {
        strTokenize(value, entries, ',');
        if (entries.empty()) {
            out_strError = std::string("failed to parse the value of parameter ") + kServersParamName;
            return false;
        }
    }
    for (const std::string& entry : entries) {
        in_addr address{};
        if (inet_pton(AF_INET, entry.c_str(), &address) != 1) {
            // A host name, as the resolver takes it: resolved once, here.
            Hostent hostent;
            Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
            if (!hostent.getHostByName(entry.c_str(), status) || hostent.getNumAddress() == 0) {
                out_strError = "failed to resolve hostname " + entry + " while configuring DNS from parameter " +
                               kServersParamName + " : " + Hostent::getGetHostByNameStatusString(status);
                return false;
            }
            std::memcpy(&address, hostent.getHostent().h_addr_list[0], sizeof address);
        }
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &address, text, sizeof text);
        out_servers.addresses.push_back(address);
        out_servers.texts.push_back(text);
    }
    return true;
}

bool readSipHostsFile(const std::string& in_strPath, SipHostsTable& out_table) {
    out_table.clear();
    std::ifstream file(in_strPath);
    if (!file) return false;
    std::string line;
    while (std::getline(file, line)) {
        const size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::string address;
        if (!(words >> address)) continue;
        unsigned char buffer[sizeof(in6_addr)];
        char text[INET6_ADDRSTRLEN] = {};
        bool bIpv6 = false;
        if (inet_pton(AF_INET, address.c_str(), buffer) == 1) {
            inet_ntop(AF_INET, buffer, text, sizeof text);
        } else if (inet_pton(AF_INET6, address.c_str(), buffer) == 1) {
            inet_ntop(AF_INET6, buffer, text, sizeof text);
            bIpv6 = true;
        } else {
            continue;
        }
        std::string name;
        while (words >> name) {
            for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (!name.empty() && name.back() == '.') name.pop_back();
            std::vector<std::string>& list = bIpv6 ? out_table[name].ipv6 : out_table[name].ipv4;
            bool bKnown = false;
            for (const std::string& known : list) bKnown = bKnown || known == text;
            if (!bKnown) list.push_back(text);
        }
    }
    return true;
}

std::string sipHostsPath() {
    std::lock_guard<std::mutex> guard(hostsPathMutex());
    return hostsPathOverride().empty() ? std::string(kSystemHostsPath) : hostsPathOverride();
}

void setSipHostsPath(const std::string& in_strPath) {
    std::lock_guard<std::mutex> guard(hostsPathMutex());
    hostsPathOverride() = in_strPath;
}

}  // namespace Net
}  // namespace Tarvik
