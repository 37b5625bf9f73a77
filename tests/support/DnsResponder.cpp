#include "support/DnsResponder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvane_test {

namespace dns {

Bytes u16(uint16_t in_value) { return {static_cast<uint8_t>(in_value >> 8), static_cast<uint8_t>(in_value)}; }

Bytes u32(uint32_t in_value) {
    return {static_cast<uint8_t>(in_value >> 24), static_cast<uint8_t>(in_value >> 16),
            static_cast<uint8_t>(in_value >> 8), static_cast<uint8_t>(in_value)};
}

Bytes cat(std::initializer_list<Bytes> in_parts) {
    Bytes out;
    for (const Bytes& part : in_parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes header(uint16_t in_id, uint16_t in_flags, uint16_t in_qdcount, uint16_t in_ancount, uint16_t in_nscount,
             uint16_t in_arcount) {
    return cat({u16(in_id), u16(in_flags), u16(in_qdcount), u16(in_ancount), u16(in_nscount), u16(in_arcount)});
}

Bytes name(const std::string& in_dotted) {
    Bytes out;
    size_t start = 0;
    while (start < in_dotted.size()) {
        size_t end = in_dotted.find('.', start);
        if (end == std::string::npos) end = in_dotted.size();
        out.push_back(static_cast<uint8_t>(end - start));
        out.insert(out.end(), in_dotted.begin() + start, in_dotted.begin() + end);
        start = end + 1;
    }
    out.push_back(0);
    return out;
}

Bytes pointer(uint16_t in_offset) { return u16(static_cast<uint16_t>(0xC000 | in_offset)); }

Bytes question(const std::string& in_name, uint16_t in_type, uint16_t in_class) {
    return cat({name(in_name), u16(in_type), u16(in_class)});
}

Bytes record(const Bytes& in_owner, uint16_t in_type, uint32_t in_ttl, const Bytes& in_rdata, uint16_t in_class) {
    return cat({in_owner, u16(in_type), u16(in_class), u32(in_ttl), u16(static_cast<uint16_t>(in_rdata.size())),
                in_rdata});
}

Bytes a(const Bytes& in_owner, const std::string& in_address, uint32_t in_ttl) {
    in_addr addr{};
    inet_pton(AF_INET, in_address.c_str(), &addr);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&addr.s_addr);
    return record(in_owner, TYPE_A, in_ttl, Bytes(p, p + 4));
}

Bytes cname(const Bytes& in_owner, const std::string& in_target, uint32_t in_ttl) {
    return record(in_owner, TYPE_CNAME, in_ttl, name(in_target));
}

Bytes aaaa(const Bytes& in_owner, const std::string& in_address, uint32_t in_ttl) {
    in6_addr addr{};
    inet_pton(AF_INET6, in_address.c_str(), &addr);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&addr);
    return record(in_owner, TYPE_AAAA, in_ttl, Bytes(p, p + 16));
}

Bytes srv(const Bytes& in_owner, uint16_t in_priority, uint16_t in_weight, uint16_t in_port, const std::string& in_target,
          uint32_t in_ttl) {
    return record(in_owner, TYPE_SRV, in_ttl, cat({u16(in_priority), u16(in_weight), u16(in_port), name(in_target)}));
}

Bytes naptr(const Bytes& in_owner, uint16_t in_order, uint16_t in_preference, const std::string& in_flags,
            const std::string& in_service, const std::string& in_regexp, const std::string& in_replacement,
            uint32_t in_ttl) {
    const auto text = [](const std::string& in_s) {
        Bytes out(in_s.size() + 1);  // the length byte, then the characters
        out[0] = static_cast<uint8_t>(in_s.size());
        std::copy(in_s.begin(), in_s.end(), out.begin() + 1);
        return out;
    };
    return record(in_owner, TYPE_NAPTR, in_ttl,
                  cat({u16(in_order), u16(in_preference), text(in_flags), text(in_service), text(in_regexp),
                       name(in_replacement)}));
}

Bytes soa(const Bytes& in_owner, uint32_t in_ttl, uint32_t in_minimum) {
    return record(in_owner, TYPE_SOA, in_ttl,
                  cat({name("ns.test"), name("hostmaster.test"), u32(1), u32(3600), u32(600), u32(86400),
                       u32(in_minimum)}));
}

Bytes response(const std::string& in_qname, const std::vector<Bytes>& in_answers, uint16_t in_rcode,
               uint16_t in_qtype) {
    Bytes out = cat({header(0, static_cast<uint16_t>(RESPONSE_FLAGS | in_rcode), 1,
                            static_cast<uint16_t>(in_answers.size())),
                     question(in_qname, in_qtype)});
    for (const Bytes& answer : in_answers) out.insert(out.end(), answer.begin(), answer.end());
    return out;
}

Bytes exchange(const std::string& in_server, const Bytes& in_query, int in_iTimeoutMs) {
    Bytes reply;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return reply;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(53);
    inet_pton(AF_INET, in_server.c_str(), &addr.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        send(fd, in_query.data(), in_query.size(), 0) == static_cast<ssize_t>(in_query.size())) {
        pollfd pfd{fd, POLLIN, 0};
        uint8_t buffer[65536];
        if (poll(&pfd, 1, in_iTimeoutMs) == 1) {
            const ssize_t len = recv(fd, buffer, sizeof buffer, 0);
            if (len > 0) reply.assign(buffer, buffer + len);
        }
    }
    close(fd);
    return reply;
}

}  // namespace dns

namespace {

std::string normalise(const std::string& in_name) {
    std::string out = in_name;
    if (!out.empty() && out.back() == '.') out.pop_back();
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

// The name of a query's first question (uncompressed labels); out_end is
// the offset after the question (name, type, class).
bool parseQuestion(const uint8_t* in_data, size_t in_len, std::string& out_name, size_t& out_end) {
    size_t pos = 12;
    std::string name;
    for (;;) {
        if (pos >= in_len) return false;
        const uint8_t len = in_data[pos++];
        if (len == 0) break;
        if (len > 63 || pos + len > in_len) return false;
        if (!name.empty()) name += '.';
        name.append(reinterpret_cast<const char*>(in_data + pos), len);
        pos += len;
    }
    if (pos + 4 > in_len) return false;
    out_name = normalise(name);
    out_end = pos + 4;
    return true;
}

}  // namespace

DnsResponder::DnsResponder(std::string in_address, uint16_t in_port)
    : m_strAddress(std::move(in_address)), m_port(in_port) {}

DnsResponder::~DnsResponder() { stop(); }

bool DnsResponder::start(std::string* out_error) {
    auto fail = [&](const std::string& what) {
        if (out_error) *out_error = what + " " + m_strAddress + ":" + std::to_string(m_port) + " : " + std::strerror(errno);
        if (m_socket >= 0) close(m_socket);
        if (m_stopFd >= 0) close(m_stopFd);
        m_socket = m_stopFd = -1;
        return false;
    };
    if (m_thread.joinable()) {
        if (out_error) *out_error = "already started";
        return false;
    }
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(m_port);
    if (inet_pton(AF_INET, m_strAddress.c_str(), &addr.sin_addr) != 1) {
        errno = EINVAL;
        return fail("bad address");
    }
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0) return fail("socket");
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return fail("bind");
    m_stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_stopFd < 0) return fail("eventfd");
    m_thread = std::thread(&DnsResponder::run, this);
    return true;
}

void DnsResponder::stop() {
    if (!m_thread.joinable()) return;
    const uint64_t one = 1;
    if (write(m_stopFd, &one, sizeof one) < 0) {
        // The thread also looks at the descriptor at least every 100 ms.
    }
    m_thread.join();
    close(m_socket);
    close(m_stopFd);
    m_socket = m_stopFd = -1;
    m_pending.clear();
}

void DnsResponder::run() {
    uint8_t buffer[65536];
    for (;;) {
        int timeoutMs = 100;
        if (!m_pending.empty()) {
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(m_pending.front().due - Clock::now());
            timeoutMs = static_cast<int>(std::max<long>(0, std::min<long>(timeoutMs, wait.count() + 1)));
        }
        pollfd fds[2] = {{m_socket, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
        const int ready = poll(fds, 2, timeoutMs);
        if (ready < 0 && errno != EINTR) return;
        if (fds[1].revents & POLLIN) return;
        if (fds[0].revents & POLLIN) {
            // Several datagrams may be waiting: take them all.
            for (int i = 0; i < 256; ++i) {
                sockaddr_in peer{};
                socklen_t peerLen = sizeof peer;
                const ssize_t len = recvfrom(m_socket, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&peer), &peerLen);
                if (len < 0) break;
                const uint8_t* p = reinterpret_cast<const uint8_t*>(&peer);
                onQuery(buffer, static_cast<size_t>(len), std::vector<uint8_t>(p, p + sizeof peer));
            }
        }
        sendDue();
    }
}

void DnsResponder::onQuery(const uint8_t* in_data, size_t in_len, const std::vector<uint8_t>& in_peer) {
    if (in_len < 12) return;
    const uint16_t id = static_cast<uint16_t>(in_data[0] << 8 | in_data[1]);
    std::string name;
    size_t questionEnd = 12;
    const bool bParsed = parseQuestion(in_data, in_len, name, questionEnd);
    Script script;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        const int nth = m_counts[name]++;
        ++m_iTotal;
        if (bParsed) {
            auto found = m_scripts.find(name);
            if (found == m_scripts.end()) {
                script = m_default;
            } else if (!found->second.empty()) {
                const std::vector<Script>& perQuery = found->second;
                script = perQuery[std::min<size_t>(static_cast<size_t>(nth), perQuery.size() - 1)];
            }
        }
    }
    m_queryArrived.notify_all();
    const Clock::time_point now = Clock::now();
    for (Reply& reply : script) {
        if (reply.copyQuestion) reply.bytes.insert(reply.bytes.end(), in_data + 12, in_data + questionEnd);
        if (reply.id != Id::KEEP && reply.bytes.size() >= 2) {
            const uint16_t sent = reply.id == Id::WRONG ? static_cast<uint16_t>(id + 1) : id;
            reply.bytes[0] = static_cast<uint8_t>(sent >> 8);
            reply.bytes[1] = static_cast<uint8_t>(sent);
        }
        Pending pending{now + reply.delay, std::move(reply.bytes), in_peer};
        auto at = std::upper_bound(m_pending.begin(), m_pending.end(), pending.due,
                                   [](Clock::time_point due, const Pending& p) { return due < p.due; });
        m_pending.insert(at, std::move(pending));
    }
}

void DnsResponder::sendDue() {
    const Clock::time_point now = Clock::now();
    size_t sent = 0;
    while (sent < m_pending.size() && m_pending[sent].due <= now) {
        const Pending& pending = m_pending[sent++];
        sendto(m_socket, pending.bytes.data(), pending.bytes.size(), 0,
               reinterpret_cast<const sockaddr*>(pending.peer.data()), static_cast<socklen_t>(pending.peer.size()));
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<long>(sent));
}

DnsResponder::Reply DnsResponder::rcodeReply(uint16_t in_rcode) {
    return Reply{dns::header(0, static_cast<uint16_t>(dns::RESPONSE_FLAGS | in_rcode), 1, 0),
                 std::chrono::milliseconds(0), Id::PATCH, true};
}

void DnsResponder::answer(const std::string& in_name, dns::Bytes in_bytes) {
    script(in_name, Script{Reply{std::move(in_bytes), std::chrono::milliseconds(0), Id::PATCH}});
}

void DnsResponder::answerLate(const std::string& in_name, dns::Bytes in_bytes, std::chrono::milliseconds in_delay) {
    script(in_name, Script{Reply{std::move(in_bytes), in_delay, Id::PATCH}});
}

void DnsResponder::never(const std::string& in_name) { script(in_name, Script{}); }

void DnsResponder::script(const std::string& in_name, Script in_script) {
    scriptPerQuery(in_name, std::vector<Script>{std::move(in_script)});
}

void DnsResponder::scriptPerQuery(const std::string& in_name, std::vector<Script> in_scripts) {
    if (in_scripts.empty()) in_scripts.emplace_back();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_scripts[normalise(in_name)] = std::move(in_scripts);
}

void DnsResponder::setDefault(Script in_script) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_default = std::move(in_script);
}

int DnsResponder::queryCount(const std::string& in_name) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto found = m_counts.find(normalise(in_name));
    return found == m_counts.end() ? 0 : found->second;
}

int DnsResponder::totalQueries() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_iTotal;
}

bool DnsResponder::waitForQueries(const std::string& in_name, int in_count, std::chrono::milliseconds in_limit) const {
    const std::string name = normalise(in_name);
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_queryArrived.wait_for(lock, in_limit, [&] {
        auto found = m_counts.find(name);
        return found != m_counts.end() && found->second >= in_count;
    });
}

}  // namespace corvane_test
