// corvane-net port: binds a UDP socket to the first free port of a range.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Command.h"
#include "net/NetInterface.h"

namespace corvane {
namespace {

size_t parsePort(const char* in_szName, const std::string& in_strValue) {
    const long value = parseNumberOption(in_szName, in_strValue);
    if (value < 0 || value > 65535) {
        throw UsageError(std::string(in_szName) + " takes a port number from 0 to 65535, not " +
                         in_strValue);
    }
    return static_cast<size_t>(value);
}

int runPort(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    if (in_args.size() != 3) throw UsageError("port needs MIN MAX START");
    const size_t minPort = parsePort("MIN", in_args[0]);
    const size_t maxPort = parsePort("MAX", in_args[1]);
    const size_t startPort = parsePort("START", in_args[2]);

    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        *io_ctx.err << "corvane-net port: socket: " << std::strerror(errno) << "\n";
        return 1;
    }
    const Tarvik::Fallible<size_t> port = Tarvik::Net::findFreeIPPortHunt(
        reinterpret_cast<void*>(static_cast<intptr_t>(socket)), minPort, maxPort, startPort);
    Json item = Json::object();
    item.set("ok", port.isValid());
    item.set("port", port.isValid() ? Json(port.getValue()) : Json());
    io_ctx.emit(item);
    // The port stays taken until the command ends.
    ::close(socket);
    return port.isValid() ? 0 : 1;
}

const CommandRegistrar s_registrar(
    {"port", 52, "port MIN MAX START",
     "Opens an IPv4 UDP socket and binds it to the first free port of [MIN, MAX]\n"
     "(findFreeIPPortHunt): START first, then upwards, then from MIN. The socket is\n"
     "held until the command exits.",
     runPort});

}  // namespace
}  // namespace corvane
