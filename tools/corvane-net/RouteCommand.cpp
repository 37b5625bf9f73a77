// corvane-net route: the local interface towards each destination.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Command.h"
#include "net/NetInterface.h"

namespace corvane {
namespace {

int runRoute(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    const std::vector<std::string> destinations = expandItems(in_args);
    if (destinations.empty()) throw UsageError("route needs at least one DEST");
    int status = 0;
    for (const std::string& destination : destinations) {
        Tarvik::Net::Interface intf;
        const bool bOk = intf.getForDestination(destination.c_str());
        Json item = Json::object();
        item["destination"] = destination;
        item["ok"] = bOk;
        if (bOk) {
            std::string address;
            intf.getIPAdress(address);
            std::ostringstream text;
            intf.write(text);
            item["address"] = address;
            item["text"] = text.str();
        } else {
            item["address"] = Json();
            item["text"] = Json();
            status = 1;
        }
        io_ctx.emit(item);
    }
    return status;
}

const CommandRegistrar s_registrar(
    {"route", 51, "the local interface towards each destination",
     "Finds the local interface through which each destination address is reached\n"
     "(Interface::getForDestination) and shows its address (getIPAdress) and its\n"
     "description (write). DEST - reads one destination a line from standard input.",
     [](CLI::App& io_app) -> CommandRun {
         auto destinations = std::make_shared<std::vector<std::string>>();
         io_app.add_option("DEST", *destinations, "the destination addresses; - reads them from standard input")
             ->required();
         return [destinations](CommandContext& io_ctx) { return runRoute(*destinations, io_ctx); };
     }});

}  // namespace
}  // namespace corvane
