// The free-port hunt, on a range of real UDP ports that the test holds: a
// held port is in use, a released one is free.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/NetInterface.h"
#include "support/AssertCapture.h"
#include "vocal/UdpStack.h"

using corvane_test::AssertCapture;

namespace {

int udpSocket() { return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

bool bindAny(int in_iSocket, int in_iPort) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(in_iPort));
    return ::bind(in_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// The local port a socket is bound to, 0 when unbound.
int boundPort(int in_iSocket) {
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    if (::getsockname(in_iSocket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -1;
    return ntohs(address.sin_port);
}

// A block of 11 consecutive UDP ports that were all free; the test holds
// every one of them but the free ones it names.
class PortBlock {
public:
    explicit PortBlock(const std::set<int>& in_freeOffsets) {
        const int count = 11;
        // Below the ephemeral range, at a place that depends on the process,
        // so that parallel test processes do not compete; always even.
        const int first = 20000 + static_cast<int>(getpid() % 400) * 26;
        for (int attempt = 0; attempt < 40 && m_sockets.empty(); ++attempt) {
            const int base = first + attempt * 26;
            if (holdAll(base, count)) m_iBase = base;
        }
        for (int offset : in_freeOffsets) release(offset);
    }
    ~PortBlock() {
        for (const auto& held : m_sockets) ::close(held.second);
    }
    PortBlock(const PortBlock&) = delete;
    PortBlock& operator=(const PortBlock&) = delete;

    bool ok() const { return m_iBase != 0; }
    int base() const { return m_iBase; }  // even

private:
    // Frees the port base + in_iOffset.
    void release(int in_iOffset) {
        const auto found = m_sockets.find(m_iBase + in_iOffset);
        if (found == m_sockets.end()) return;
        ::close(found->second);
        m_sockets.erase(found);
    }

    bool holdAll(int in_iBase, int in_iCount) {
        for (int port = in_iBase; port < in_iBase + in_iCount; ++port) {
            const int socket = udpSocket();
            if (socket < 0 || !bindAny(socket, port)) {
                if (socket >= 0) ::close(socket);
                for (const auto& held : m_sockets) ::close(held.second);
                m_sockets.clear();
                return false;
            }
            m_sockets[port] = socket;
        }
        return true;
    }

    int m_iBase = 0;                // first port of the block
    std::map<int, int> m_sockets;  // held port -> its socket
};

// A socket to hunt with, closed at the end.
struct HuntSocket {
    HuntSocket() : fd(udpSocket()) {}
    ~HuntSocket() {
        if (fd >= 0) ::close(fd);
    }
    void* handle() const { return reinterpret_cast<void*>(static_cast<intptr_t>(fd)); }
    int fd;
};

const int kNone = -1;  // no port expected

struct HuntRow {
    const char* label;
    int minPort;            // offsets from the block's base
    int maxPort;
    int startPort;
    std::set<int> freePorts;  // released before the hunt; the rest of the block is in use
    int expected;           // offset of the port bound, or kNone
};

TEST(PortHunt, BindsTheFirstFreePortFromTheStartThenWrapsAround) {
    const std::vector<HuntRow> rows = {
        {"start port free", 0, 10, 5, {3, 5, 7}, 5},
        {"next port up from the start", 0, 10, 5, {3, 7}, 7},
        {"wrap-around to the minimum", 0, 10, 5, {0, 1, 2, 3, 4}, 0},
        {"wrap-around past held low ports", 0, 10, 5, {3, 4}, 3},
        {"only the port below the start", 0, 10, 5, {4}, 4},
        {"start below the range begins at the minimum", 2, 10, 0, {2, 3, 9}, 2},
        {"start below the range, minimum in use", 2, 10, 0, {3, 9}, 3},
        {"start above the range begins at the maximum", 0, 8, 10, {0, 8}, 8},
        {"start above the range, maximum in use, wraps", 0, 8, 10, {0, 5}, 0},
        {"one-port range, free", 4, 4, 4, {4}, 4},
        {"one-port range, in use", 4, 4, 4, {3, 5}, kNone},
        {"one-port range, start elsewhere", 4, 4, 9, {4}, 4},
        {"every port in use", 0, 10, 5, {}, kNone},
        {"free ports only outside the range", 2, 8, 5, {0, 1, 9, 10}, kNone},
    };
    for (const HuntRow& row : rows) {
        SCOPED_TRACE(row.label);
        const PortBlock block(row.freePorts);
        ASSERT_TRUE(block.ok()) << "no block of 11 free UDP ports found";
        HuntSocket hunter;
        ASSERT_GE(hunter.fd, 0);
        AssertCapture asserts;
        const int base = block.base();
        errno = 0;
        const Tarvik::Fallible<size_t> port =
            Tarvik::Net::findFreeIPPortHunt(hunter.handle(), static_cast<size_t>(base + row.minPort),
                                            static_cast<size_t>(base + row.maxPort),
                                            static_cast<size_t>(base + row.startPort));
        if (row.expected == kNone) {
            EXPECT_FALSE(port.isValid());
            EXPECT_EQ(errno, EADDRINUSE) << "the last bind error is left in errno";
            EXPECT_EQ(boundPort(hunter.fd), 0) << "left unbound";
        } else {
            ASSERT_TRUE(port.isValid());
            EXPECT_EQ(static_cast<int>(port.getValue()), base + row.expected);
            EXPECT_EQ(boundPort(hunter.fd), base + row.expected);
        }
        EXPECT_TRUE(asserts.texts().empty());
    }
}

TEST(PortHunt, BrokenRangeIsRefusedWithoutBinding) {
    const struct {
        size_t minPort, maxPort, startPort;
        const char* assertion;
    } rows[] = {
        {30010, 30000, 30005, "in_iMinPort <= in_iMaxPort"},
        {30001, 30000, 30000, "in_iMinPort <= in_iMaxPort"},
        {0, 10, 5, "in_iMinPort > 0"},
        {65530, 65536, 65530, "in_iMaxPort <= 65535"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.assertion);
        HuntSocket hunter;
        AssertCapture asserts;
        const Tarvik::Fallible<size_t> port =
            Tarvik::Net::findFreeIPPortHunt(hunter.handle(), row.minPort, row.maxPort, row.startPort);
        EXPECT_FALSE(port.isValid());
        EXPECT_EQ(asserts.texts(), std::vector<std::string>{row.assertion});
        EXPECT_EQ(boundPort(hunter.fd), 0) << "no bind";
    }
}

TEST(PortHunt, ParityModesTryOnlyEvenOrOddPorts) {
    const struct {
        const char* label;
        Vocal::PortParity parity;
        int startPort;
        std::set<int> freePorts;
        int expected;
    } rows[] = {
        {"even: odd start moves up", Vocal::EVEN_PORT, 3, {3, 4, 5, 6}, 4},
        {"even: skips free odd ports", Vocal::EVEN_PORT, 4, {5, 7, 8}, 8},
        {"even: wraps to the first even port", Vocal::EVEN_PORT, 5, {0, 1, 2}, 0},
        {"odd: even start moves up", Vocal::ODD_PORT, 4, {4, 5}, 5},
        {"odd: wraps to the first odd port", Vocal::ODD_PORT, 6, {0, 1, 2}, 1},
        {"odd: no free odd port", Vocal::ODD_PORT, 6, {0, 2, 4, 6, 8, 10}, kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const PortBlock block(row.freePorts);
        ASSERT_TRUE(block.ok()) << "no block of 11 free UDP ports found";
        HuntSocket hunter;
        // The base is even, so offsets have the ports' parity.
        const int port = Vocal::huntFreePort(hunter.fd, block.base(), block.base() + 10,
                                             block.base() + row.startPort, row.parity);
        EXPECT_EQ(port, row.expected == kNone ? -1 : block.base() + row.expected);
    }
}

}  // namespace
