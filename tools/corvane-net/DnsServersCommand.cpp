// corvane-net dns-servers: this host's DNS servers, primary first.
#include <string>
#include <vector>

#include "Command.h"
#include "net/DNS.h"

namespace corvane {
namespace {

int runDnsServers(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    if (!in_args.empty()) throw UsageError("dns-servers takes no arguments");
    Tarvik::StringVector servers;
    const bool bOk = Tarvik::Net::getAdapterDNSServers(servers, nullptr);
    Json list = Json::array();
    for (const std::string& server : servers) list.push(server);
    Json item = Json::object();
    item.set("ok", bOk);
    item.set("servers", bOk ? list : Json());
    io_ctx.emit(item);
    return bOk ? 0 : 1;
}

const CommandRegistrar s_registrar(
    {"dns-servers", 60, "dns-servers",
     "Shows this host's DNS servers, primary first, as the system's resolver\n"
     "configuration names them (getAdapterDNSServers). When they cannot be read,\n"
     "servers is null and the exit status 1.",
     runDnsServers});

}  // namespace
}  // namespace corvane
