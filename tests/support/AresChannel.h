// A c-ares channel for tests: one DNS server on a loopback address (port 53),
// no search domains, short time-outs. It never uses the servers of the host's
// resolver configuration.
#pragma once

#include <string>

#include <ares.h>

namespace corvane_test {

class AresChannel {
public:
    // Each try waits in_iTimeoutMs; in_iTries tries in all.
    explicit AresChannel(const std::string& in_server, int in_iTimeoutMs = 2000, int in_iTries = 2);
    ~AresChannel();  // ares_destroy: stop the task that drives it first
    AresChannel(const AresChannel&) = delete;
    AresChannel& operator=(const AresChannel&) = delete;

    ares_channel get() const { return m_channel; }
    // "" when the channel was made, else c-ares's reason.
    const std::string& error() const { return m_strError; }

private:
    ares_channel m_channel = nullptr;  // null when ares_init_options failed
    std::string m_strError;            // why it failed
};

}  // namespace corvane_test
