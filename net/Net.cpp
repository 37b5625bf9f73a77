// Start and stop of the library.
#include "net/Net.h"

#include "net/HostNameServer.h"
#include "platform/Logger.h"

namespace Tarvik {
namespace Net {

namespace {
Logger& netLogger() {
    static Logger& s_logger = getLogger("corvane.net");
    return s_logger;
}
}  // namespace

bool initializeLibrary() {
    if (!HostNameServer::getInstance().start()) return false;
    CORVANE_DEBUG(netLogger(), "Succesfully initialized Net library");
    return true;
}

bool closeLibrary() { return HostNameServer::getInstance().stop(); }

bool forcedCloseLibrary() {
    CORVANE_DEBUG(netLogger(), "Closing the Net library");
    HostNameServer& server = HostNameServer::getInstance();
    server.stop();
    return server.waitUntilDone();
}

}  // namespace Net
}  // namespace Tarvik
