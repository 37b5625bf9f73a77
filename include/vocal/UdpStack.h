// UDP support of the URL model: the hunt for a free local port.
#pragma once

namespace Vocal {

// Which ports a hunt tries.
enum PortParity {
    ANY_PORT = 0,   // every port
    EVEN_PORT = 1,  // even ports only
    ODD_PORT = 2    // odd ports only
};

// Binds in_iSocket to the first port of [in_iMinPort, in_iMaxPort] (of the
// parity asked for) that can be bound on INADDR_ANY: in_iStartPort (brought
// into the range) up to the maximum, then from the minimum up to the start.
// Each port is tried at most once. Returns the bound port, or -1 when none
// could be bound (errno then holds the last bind error) or the range is
// broken (a port range within 1..65535 is required).
int huntFreePort(int in_iSocket, int in_iMinPort, int in_iMaxPort, int in_iStartPort,
                 PortParity in_eParity);

}  // namespace Vocal
