// corvane-net host: this host's names, addresses and primary address.
#include <string>
#include <vector>

#include <ace/INET_Addr.h>

#include "Command.h"
#include "net/HostIPAddress.h"

namespace corvane {
namespace {

std::string dotted(const ACE_INET_Addr& in_address) {
    char buffer[INET6_ADDRSTRLEN] = {};
    const char* pText = in_address.get_host_addr(buffer, sizeof(buffer));
    return pText != nullptr ? pText : "";
}

Json addressList(bool in_bOk, const std::vector<ACE_INET_Addr>& in_addresses) {
    if (!in_bOk) return Json();
    Json list = Json::array();
    for (const ACE_INET_Addr& address : in_addresses) list.push_back(dotted(address));
    return list;
}

int runHost(CommandContext& io_ctx) {
    bool bAllOk = true;
    Json item = Json::object();

    std::string hostname;
    const bool bHostname = Tarvik::getHostname(hostname);
    item["hostname"] = bHostname ? Json(hostname) : Json();
    std::string fqdn;
    const bool bFqdn = Tarvik::getFqdnHostname(fqdn);
    item["fqdn"] = bFqdn ? Json(fqdn) : Json();

    std::vector<ACE_INET_Addr> addresses;
    const bool bAddresses = Tarvik::getHostIPAddress(nullptr, addresses);
    item["addresses"] = addressList(bAddresses, addresses);
    std::vector<ACE_INET_Addr> noLoopback;
    const bool bNoLoopback = Tarvik::getHostIPAddressNoLoopback(nullptr, noLoopback);
    item["noLoopback"] = addressList(bNoLoopback, noLoopback);

    ACE_INET_Addr primary;
    const bool bPrimary = Tarvik::getPrimaryIPAddress(primary);
    item["primary"] = bPrimary ? Json(dotted(primary)) : Json();

    bAllOk = bHostname && bFqdn && bAddresses && bNoLoopback && bPrimary;
    io_ctx.emit(item);
    return bAllOk ? 0 : 1;
}

const CommandRegistrar s_registrar(
    {"host", 50, "this host's names and addresses",
     "Shows this host's name (getHostname), fully qualified name (getFqdnHostname),\n"
     "IPv4 addresses (getHostIPAddress), addresses without the loopback entry\n"
     "(getHostIPAddressNoLoopback) and primary address (getPrimaryIPAddress).\n"
     "A call that fails gives null, and the exit status 1.",
     [](CLI::App&) -> CommandRun { return runHost; }});

}  // namespace
}  // namespace corvane
