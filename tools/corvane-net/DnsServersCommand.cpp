// corvane-net dns-servers: this host's DNS servers, primary first.
#include <string>
#include <vector>

#include "Command.h"
#include "net/DNS.h"

namespace corvane {
namespace {

int runDnsServers(CommandContext& io_ctx) {
    Tarvik::StringVector servers;
    const bool bOk = Tarvik::Net::getAdapterDNSServers(servers, nullptr);
    Json list = Json::array();
    for (const std::string& server : servers) list.push_back(server);
    Json item = Json::object();
    item["ok"] = bOk;
    item["servers"] = bOk ? list : Json();
    io_ctx.emit(item);
    return bOk ? 0 : 1;
}

const CommandRegistrar s_registrar(
    {"dns-servers", 60, "this host's DNS servers",
     "Shows this host's DNS servers, primary first, as the system's resolver\n"
     "configuration names them (getAdapterDNSServers). When they cannot be read,\n"
     "servers is null and the exit status 1.",
     [](CLI::App&) -> CommandRun { return runDnsServers; }});

}  // namespace
}  // namespace corvane
