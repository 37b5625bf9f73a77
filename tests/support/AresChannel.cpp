#include "support/AresChannel.h"

#include <arpa/inet.h>

namespace corvane_test {

AresChannel::AresChannel(const std::string& in_server, int in_iTimeoutMs, int in_iTries) {
    ares_library_init(ARES_LIB_INIT_ALL);
    in_addr server{};
    if (inet_pton(AF_INET, in_server.c_str(), &server) != 1) {
        m_strError = "bad server address " + in_server;
        return;
    }
    ares_options options{};
    options.flags = 0;
    options.timeout = in_iTimeoutMs;
    options.tries = in_iTries;
    options.servers = &server;
    options.nservers = 1;
    options.domains = nullptr;  // no search domains, so nothing comes from the host's configuration
    options.ndomains = 0;
    options.ndots = 1;
    const int mask = ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SERVERS |
                     ARES_OPT_DOMAINS | ARES_OPT_NDOTS;
    const int rc = ares_init_options(&m_channel, &options, mask);
    if (rc != ARES_SUCCESS) {
        m_strError = ares_strerror(rc);
        m_channel = nullptr;
    }
}

AresChannel::~AresChannel() {
    if (m_channel != nullptr) ares_destroy(m_channel);
    ares_library_cleanup();
}

}  // namespace corvane_test
