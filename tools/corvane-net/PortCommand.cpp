// corvane-net port: binds a UDP socket to the first free port of a range.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "net/NetInterface.h"

namespace corvane {
namespace {

// The port command's arguments, each from 0 to 65535.
struct PortRange {
    long minPort = 0;    // MIN
    long maxPort = 0;    // MAX
    long startPort = 0;  // START, tried first
};

int runPort(const PortRange& in_range, CommandContext& io_ctx) {
    const size_t minPort = static_cast<size_t>(in_range.minPort);
    const size_t maxPort = static_cast<size_t>(in_range.maxPort);
    const size_t startPort = static_cast<size_t>(in_range.startPort);

    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        *io_ctx.err << "corvane-net port: socket: " << std::strerror(errno) << "\n";
        return 1;
    }
    const Tarvik::Fallible<size_t> port = Tarvik::Net::findFreeIPPortHunt(
        reinterpret_cast<void*>(static_cast<intptr_t>(socket)), minPort, maxPort, startPort);
    Json item = Json::object();
    item["ok"] = port.isValid();
    item["port"] = port.isValid() ? Json(port.getValue()) : Json();
    io_ctx.emit(item);
    // The port stays taken until the command ends.
    ::close(socket);
    return port.isValid() ? 0 : 1;
}

const CommandRegistrar s_registrar(
    {"port", 52, "bind a UDP socket to the first free port of a range",
     "Opens an IPv4 UDP socket and binds it to the first free port of [MIN, MAX]\n"
     "(findFreeIPPortHunt): START first, then upwards, then from MIN. The socket is\n"
     "held until the command exits.",
     [](CLI::App& io_app) -> CommandRun {
         auto range = std::make_shared<PortRange>();
         const CLI::Validator port = CLI::Range(0L, 65535L).description("");
         addNumberOption(io_app, "MIN", range->minPort, "lowest port of the range (0 to 65535)")->required()->check(port);
         addNumberOption(io_app, "MAX", range->maxPort, "highest port of the range")->required()->check(port);
         addNumberOption(io_app, "START", range->startPort, "the port tried first")->required()->check(port);
         return [range](CommandContext& io_ctx) { return runPort(*range, io_ctx); };
     }});

}  // namespace
}  // namespace corvane
