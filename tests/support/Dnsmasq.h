// A real DNS server for tests: dnsmasq (Debian dnsmasq-base) serving local
// records on one loopback address, port 53, started and stopped by process id.
// Names under "test" that it does not know are answered NXDOMAIN; it forwards
// nothing anywhere. Give every test its own address (127.53.x.y) so that tests
// can run in parallel.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace corvane_test {

class Dnsmasq {
public:
    explicit Dnsmasq(std::string in_address);
    ~Dnsmasq();  // stops it
    Dnsmasq(const Dnsmasq&) = delete;
    Dnsmasq& operator=(const Dnsmasq&) = delete;

    // Records, set before start. A TTL below 0 leaves dnsmasq's (see localTtl).
    // One A record per address, in the given order (dnsmasq may rotate them).
    Dnsmasq& hostRecord(const std::string& in_name, const std::vector<std::string>& in_addresses, int in_ttl = -1);
    // alias -> target; the target must be a name dnsmasq knows (a host record).
    Dnsmasq& cname(const std::string& in_alias, const std::string& in_target, int in_ttl = -1);
    // The TTL of local answers without one of their own (dnsmasq's default is 0).
    Dnsmasq& localTtl(int in_seconds);
    // Any other dnsmasq option, as one argument ("--auth-ttl=5").
    Dnsmasq& option(const std::string& in_option);

    // Starts dnsmasq and waits (at most 2 s) until it answers a query; false,
    // with its own error text when there is one, if it does not.
    bool start(std::string* out_error = nullptr);
    // Ends it (SIGTERM, then SIGKILL after 2 s) and reaps it. Safe to repeat.
    void stop();

    const std::string& address() const { return m_strAddress; }

private:
    bool answers() const;
    std::string logText() const;

    const std::string m_strAddress;      // the loopback address served
    std::vector<std::string> m_options;  // record and extra options, in order
    pid_t m_pid = -1;                    // dnsmasq's process id while it runs
    std::string m_strLogPath;            // dnsmasq's standard error, kept for error texts
};

}  // namespace corvane_test
