#include "support/Dnsmasq.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <unistd.h>

#include "support/DnsResponder.h"
#include "support/Subprocess.h"

namespace corvane_test {

Dnsmasq::Dnsmasq(std::string in_address) : m_strAddress(std::move(in_address)) {}

Dnsmasq::~Dnsmasq() { stop(); }

Dnsmasq& Dnsmasq::hostRecord(const std::string& in_name, const std::vector<std::string>& in_addresses, int in_ttl) {
    // A host record carries one IPv4 address; several records of one name add up.
    for (const std::string& address : in_addresses) {
        m_options.push_back("--host-record=" + in_name + "," + address +
                            (in_ttl >= 0 ? "," + std::to_string(in_ttl) : std::string()));
    }
    return *this;
}

Dnsmasq& Dnsmasq::cname(const std::string& in_alias, const std::string& in_target, int in_ttl) {
    m_options.push_back("--cname=" + in_alias + "," + in_target +
                        (in_ttl >= 0 ? "," + std::to_string(in_ttl) : std::string()));
    return *this;
}

Dnsmasq& Dnsmasq::localTtl(int in_seconds) { return option("--local-ttl=" + std::to_string(in_seconds)); }

Dnsmasq& Dnsmasq::option(const std::string& in_option) {
    m_options.push_back(in_option);
    return *this;
}

bool Dnsmasq::start(std::string* out_error) {
    auto fail = [&](const std::string& what) {
        if (out_error) *out_error = "dnsmasq on " + m_strAddress + " : " + what;
        return false;
    };
    if (m_pid > 0) return fail("already started");
    char logPath[] = "/tmp/corvane-dnsmasq-XXXXXX";
    const int logFd = mkstemp(logPath);
    if (logFd < 0) return fail(std::string("mkstemp : ") + std::strerror(errno));
    close(logFd);
    m_strLogPath = logPath;

    std::vector<std::string> args = {"dnsmasq", "-k", "-C", "/dev/null", "--no-resolv", "--no-hosts",
                                     "--bind-interfaces", "--listen-address=" + m_strAddress, "--port=53",
                                     "--user=root", "--pid-file=", "--local=/test/", "--log-facility=-"};
    args.insert(args.end(), m_options.begin(), m_options.end());
    std::string error;
    m_pid = spawnProcess(args, "/dev/null", m_strLogPath, m_strLogPath, error);
    if (m_pid < 0) return fail(error);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < deadline) {
        if (reapWithin(m_pid, std::chrono::milliseconds(0))) {
            m_pid = -1;
            return fail("exited : " + logText());
        }
        if (answers()) return true;
    }
    const std::string text = logText();
    stop();
    return fail("no answer within 2 s : " + text);
}

void Dnsmasq::stop() {
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        if (!reapWithin(m_pid, std::chrono::seconds(2))) {
            kill(m_pid, SIGKILL);
            reapWithin(m_pid, std::chrono::seconds(2));
        }
        m_pid = -1;
    }
    if (!m_strLogPath.empty()) {
        unlink(m_strLogPath.c_str());
        m_strLogPath.clear();
    }
}

bool Dnsmasq::answers() const {
    // One query of a name under "test" (answered, NXDOMAIN at worst), waiting at most 20 ms.
    const uint16_t id = 0x5eed;
    const dns::Bytes query = dns::cat({dns::header(id, 0x0100 /* RD */, 1, 0), dns::question("ready.test")});
    const dns::Bytes reply = dns::exchange(m_strAddress, query, 20);
    const bool bAnswered = reply.size() >= 12 && reply[0] == (id >> 8) && reply[1] == (id & 0xff);
    // Refused at once while nothing is bound yet: don't spin.
    if (!bAnswered) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return bAnswered;
}

std::string Dnsmasq::logText() const {
    std::ifstream in(m_strLogPath);
    std::ostringstream text;
    text << in.rdbuf();
    std::string out = text.str();
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return out;
}

}  // namespace corvane_test
