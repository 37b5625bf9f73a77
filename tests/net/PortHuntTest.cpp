// The free-port hunt, on a block of real UDP ports that the test holds: a held
// port is in use, a released one is free.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include <gtest/gtest.h>

#include "net/NetInterface.h"
#include "support/AssertCapture.h"

namespace {

// Hunts with a new socket: the port found, or -1; out_iBound is the port the socket is left bound to (0: none).
int hunt(size_t in_uiMin, size_t in_uiMax, size_t in_uiStart, int& out_iBound) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const Tarvik::Fallible<size_t> port =
        Tarvik::Net::findFreeIPPortHunt(reinterpret_cast<void*>(static_cast<intptr_t>(fd)), in_uiMin, in_uiMax,
                                        in_uiStart);
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    out_iBound = ntohs(address.sin_port);
    close(fd);
    return port.isValid() ? static_cast<int>(port.getValue()) : -1;
}

TEST(PortHunt, BindsTheFirstFreePortFromTheStartThenWrapsAround) {
    const struct {
        int min, max, start;  // offsets in a block of 11 ports
        const char* use;      // 'x': the port is in use
        int found;            // offset of the port bound, or -1
    } rows[] = {
        {0, 10, 5, "xxx.x.x.xxx", 5}, {0, 10, 5, "xxx.xxx.xxx", 7}, {0, 10, 5, ".xxx.xxxxxx", 0},
        {0, 10, 5, "xxx..xxxxxx", 3}, {2, 10, 0, "xxx.xxxxx.x", 3},  // a start below the range is the minimum
        {0, 8, 10, "xxxxx.xxxxx", 5}, {0, 8, 10, "xxxxxxxx.xx", 8},  // a start above it is the maximum
        {4, 4, 9, "xxxx.xxxxxx", 4},  {4, 4, 4, "xxx.x.xxxxx", -1}, {2, 8, 5, "..xxxxxxx..", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.use) + " from " + std::to_string(row.start));
        // Below the ephemeral range, at a place that depends on the process so that parallel test processes
        // do not compete.
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
        corvane_test::AssertCapture asserts;
        int bound = 0;
        errno = 0;
        EXPECT_EQ(hunt(base + row.min, base + row.max, base + row.start, bound), row.found < 0 ? -1 : base + row.found);
        EXPECT_EQ(bound, row.found < 0 ? 0 : base + row.found);
        if (row.found < 0) {
            EXPECT_EQ(errno, EADDRINUSE) << "the last bind error is left in errno";
        }
        EXPECT_TRUE(asserts.texts().empty());
        for (int offset = 0; offset < 11; ++offset) {
            if (row.use[offset] == 'x') close(held[offset]);
        }
    }
}

TEST(PortHunt, BrokenRangeIsRefusedWithoutBinding) {
    const struct {
        size_t min, max, start;
        const char* assertion;
    } rows[] = {{30001, 30000, 30000, "in_iMinPort <= in_iMaxPort"},
                {0, 10, 5, "in_iMinPort > 0"},
                {65530, 65536, 65530, "in_iMaxPort <= 65535"}};
    for (const auto& row : rows) {
        corvane_test::AssertCapture asserts;
        int bound = -1;
        EXPECT_EQ(hunt(row.min, row.max, row.start, bound), -1);
        EXPECT_EQ(bound, 0);
        EXPECT_EQ(asserts.texts(), std::vector<std::string>{row.assertion});
    }
}

}  // namespace
