// A c-ares channel for tests: one DNS server on a loopback address (port 53),
// no search domains, short time-outs. It never uses the servers of the host's
// resolver configuration. get() is null when the channel could not be made.
#pragma once

#include <string>

#include <arpa/inet.h>
#include <ares.h>

namespace corvane_test {

class AresChannel {
public:
    // Each try waits in_iTimeoutMs; in_iTries tries in all.
    explicit AresChannel(const std::string& in_server, int in_iTimeoutMs = 2000, int in_iTries = 2) {
        ares_library_init(ARES_LIB_INIT_ALL);
        in_addr server{};
        ares_options options{};
        options.timeout = in_iTimeoutMs;
        options.tries = in_iTries;
        options.servers = &server;
        options.nservers = 1;
        options.ndots = 1;  // and no search domains: nothing comes from the host's configuration
        const int mask = ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SERVERS |
                         ARES_OPT_DOMAINS | ARES_OPT_NDOTS;
        if (inet_pton(AF_INET, in_server.c_str(), &server) != 1 ||
            ares_init_options(&m_channel, &options, mask) != ARES_SUCCESS) {
            m_channel = nullptr;
        }
    }
    ~AresChannel() {  // stop the task that drives it first
        if (m_channel != nullptr) ares_destroy(m_channel);
        ares_library_cleanup();
    }
    AresChannel(const AresChannel&) = delete;
    AresChannel& operator=(const AresChannel&) = delete;

    ares_channel get() const { return m_channel; }

private:
    ares_channel m_channel = nullptr;  // null when ares_init_options failed
};

}  // namespace corvane_test
