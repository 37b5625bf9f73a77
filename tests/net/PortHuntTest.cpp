// The free-port hunt, on a block of real UDP ports that the test holds: a held
// port is in use, a released one is free.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/NetInterface.h"
#include "support/AssertCapture.h"
#include "vocal/UdpStack.h"

namespace {

// The local port a socket is bound to, 0 when unbound.
int boundPort(int in_iSocket) {
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    return getsockname(in_iSocket, reinterpret_cast<sockaddr*>(&address), &length) == 0 ? ntohs(address.sin_port)
                                                                                          : -1;
}

void* handle(int in_iSocket) { return reinterpret_cast<void*>(static_cast<intptr_t>(in_iSocket)); }

TEST(PortHunt, BindsTheFirstFreePortFromTheStartThenWrapsAround) {
    const int kNone = -1;
    const struct {
        Vocal::PortParity parity;  // the hunt itself, for the modes the library function does not pass
        int min, max, start;       // offsets in a block of 11 ports
        const char* use;           // 'x': the port is in use
        int found;                 // offset of the port bound, or kNone
    } rows[] = {
        {Vocal::ANY_PORT, 0, 10, 5, "xxx.x.x.xxx", 5}, {Vocal::ANY_PORT, 0, 10, 5, "xxx.xxx.xxx", 7},
        {Vocal::ANY_PORT, 0, 10, 5, ".xxx.xxxxxx", 0},  // wraps around to the minimum
        {Vocal::ANY_PORT, 0, 10, 5, "xxx..xxxxxx", 3},
        {Vocal::ANY_PORT, 2, 10, 0, "xxx.xxxxx.x", 3},  // a start below the range begins at the minimum
        {Vocal::ANY_PORT, 0, 8, 10, "xxxxx.xxxxx", 5},  // a start above the range begins at the maximum
        {Vocal::ANY_PORT, 0, 8, 10, "xxxxxxxx.xx", 8},  {Vocal::ANY_PORT, 4, 4, 9, "xxxx.xxxxxx", 4},
        {Vocal::ANY_PORT, 4, 4, 4, "xxx.x.xxxxx", kNone}, {Vocal::ANY_PORT, 2, 8, 5, "..xxxxxxx..", kNone},
        {Vocal::EVEN_PORT, 0, 10, 3, "xxx....xxxx", 4}, {Vocal::EVEN_PORT, 0, 10, 4, "xxxxx.x..xx", 8},
        {Vocal::EVEN_PORT, 0, 10, 5, "...xxxxxxxx", 0}, {Vocal::ODD_PORT, 0, 10, 4, "xxxx..xxxxx", 5},
        {Vocal::ODD_PORT, 0, 10, 6, "...xxxxxxxx", 1},  {Vocal::ODD_PORT, 0, 10, 6, ".x.x.x.x.x.", kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.start) + " " + row.use);
        // Below the ephemeral range, at a place that depends on the process so that parallel test processes
        // do not compete; the base is even, so offsets have the ports' parity.
        std::vector<int> held;
        int base = 0;
        for (int attempt = 0; attempt < 40 && base == 0; ++attempt) {
            base = 20000 + static_cast<int>((getpid() + attempt) % 400) * 26;
            for (int offset = 0; offset < 11; ++offset) {
                held.push_back(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
                sockaddr_in address = {};
                address.sin_family = AF_INET;
                address.sin_port = htons(static_cast<uint16_t>(base + offset));
                if (bind(held.back(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) base = 0;
            }
            for (int offset = 0; offset < 11; ++offset) {
                if (base == 0 || row.use[offset] == '.') close(held[offset]);
            }
            if (base == 0) held.clear();
        }
        ASSERT_NE(base, 0) << "no block of 11 free UDP ports found";
        const int hunter = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        corvane_test::AssertCapture asserts;
        errno = 0;
        int port = kNone;
        if (row.parity == Vocal::ANY_PORT) {
            const Tarvik::Fallible<size_t> found = Tarvik::Net::findFreeIPPortHunt(
                handle(hunter), base + row.min, base + row.max, base + row.start);
            if (found.isValid()) port = static_cast<int>(found.getValue());
        } else {
            port = Vocal::huntFreePort(hunter, base + row.min, base + row.max, base + row.start, row.parity);
        }
        EXPECT_EQ(port, row.found == kNone ? kNone : base + row.found);
        EXPECT_EQ(boundPort(hunter), row.found == kNone ? 0 : base + row.found);
        if (row.found == kNone) {
            EXPECT_EQ(errno, EADDRINUSE) << "the last bind error is left in errno";
        }
        EXPECT_TRUE(asserts.texts().empty());
        close(hunter);
        for (int offset = 0; offset < 11; ++offset) {
            if (row.use[offset] == 'x') close(held[offset]);
        }
    }
}

TEST(PortHunt, BrokenRangeIsRefusedWithoutBinding) {
    const struct {
        size_t min, max, start;
        const char* assertion;
    } rows[] = {{30010, 30000, 30005, "in_iMinPort <= in_iMaxPort"},
                {30001, 30000, 30000, "in_iMinPort <= in_iMaxPort"},
                {0, 10, 5, "in_iMinPort > 0"},
                {65530, 65536, 65530, "in_iMaxPort <= 65535"}};
    for (const auto& row : rows) {
        const int hunter = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        corvane_test::AssertCapture asserts;
        EXPECT_FALSE(Tarvik::Net::findFreeIPPortHunt(handle(hunter), row.min, row.max, row.start).isValid());
        EXPECT_EQ(asserts.texts(), std::vector<std::string>{row.assertion});
        EXPECT_EQ(boundPort(hunter), 0) << "no bind";
        close(hunter);
    }
}

}  // namespace
