// UDP support of the URL model: the hunt for a free local port.
#include "vocal/UdpStack.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Vocal {

namespace {

Tarvik::Logger& udpStackLogger() {
    static Tarvik::Logger& s_logger = Tarvik::getLogger("corvane.media.vocal");
    return s_logger;
}

// Binds the socket to INADDR_ANY and the port; errno tells a failure.
bool bindPort(int in_iSocket, int in_iPort) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(in_iPort));
    return ::bind(in_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) >= 0;
}

// The first port from in_iPort up that has the parity asked for.
int withParity(int in_iPort, PortParity in_eParity) {
    if (in_eParity == EVEN_PORT && in_iPort % 2 != 0) return in_iPort + 1;
    if (in_eParity == ODD_PORT && in_iPort % 2 == 0) return in_iPort + 1;
    return in_iPort;
}

}  // namespace

int huntFreePort(int in_iSocket, int in_iMinPort, int in_iMaxPort, int in_iStartPort,
                 PortParity in_eParity) {
    Tarvik::Logger& logger = udpStackLogger();
    if (!CORVANE_ASSERT(logger, in_iMinPort <= in_iMaxPort)) return -1;
    // Port 0 would let the system choose a port outside the range; a port
    // above 65535 would be cut to 16 bits.
    if (!CORVANE_ASSERT(logger, in_iMinPort > 0) || !CORVANE_ASSERT(logger, in_iMaxPort <= 65535)) {
        return -1;
    }

    int start = in_iStartPort;
    if (start < in_iMinPort) start = in_iMinPort;
    if (start > in_iMaxPort) start = in_iMaxPort;
    const int step = (in_eParity == EVEN_PORT || in_eParity == ODD_PORT) ? 2 : 1;
    start = withParity(start, in_eParity);

    // Every bind error, a port in use or any other, means: try the next port.
    for (int port = start; port <= in_iMaxPort; port += step) {
        if (bindPort(in_iSocket, port)) return port;
    }
    for (int port = withParity(in_iMinPort, in_eParity); port < start; port += step) {
        if (bindPort(in_iSocket, port)) return port;
    }
    return -1;
}

}  // namespace Vocal
