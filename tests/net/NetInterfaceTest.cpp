// IPAddress text form, and the Interface towards destinations on the links of
// a network namespace of the test's own.
#include <sstream>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "net/NetInterface.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using Tarvik::Net::IPAddress;

TEST(IPAddress, ReadsExactlyTheWrittenFormsWithAnOptionalPort) {
    const struct {
        const char* text;
        const char* read;  // written form of the address read, or null when failbit is set
    } rows[] = {
        {"10.0.0.1:5060", "10.0.0.1:5060"}, {"  10.0.0.1", "10.0.0.1:0"}, {"010.001.000.001:0080", "10.1.0.1:80"},
        {"0.0.0.0:7", "INADDR_ANY:7"}, {"INADDR_ANY", "INADDR_ANY:0"}, {"INADDR", "INADDR_ANY:0"},
        {"255.255.255.255:65535", "255.255.255.255:65535"}, {"1,2,3,4", nullptr}, {"1.2.3", nullptr},
        {"1.2.3.4:", nullptr}, {"1.2.3.4:x", nullptr}, {"1.2.3.4:65536", nullptr}, {"1.2.3.4:-5", nullptr},
        {"256.1.1.1", nullptr}, {"1.2.3.-4", nullptr}, {"+1.2.3.4", nullptr}, {"INADDR_ANX", nullptr},
        {"INADDR_ANY:", nullptr}, {"inaddr_any", nullptr}, {"", nullptr}, {"   ", nullptr}, {":5060", nullptr},
    };
    const auto written = [](const IPAddress& in_address) {
        std::ostringstream os;
        os << std::hex;  // the port is decimal whatever the stream's base
        in_address.write(os);
        return os.str();
    };
    for (const auto& row : rows) {
        std::istringstream is(row.text);
        IPAddress address(0x05050505);
        address.set_port_number(9);
        EXPECT_EQ(address.read(is).fail(), row.read == nullptr) << '"' << row.text << '"';
        EXPECT_EQ(written(address), row.read != nullptr ? row.read : "5.5.5.5:9") << '"' << row.text << '"';
    }
    EXPECT_EQ(written(IPAddress()), "127.0.0.1:0");
    EXPECT_STREQ(IPAddress(0x0A000001).toString(), "10.0.0.1");
    // A read loop takes one address after another and ends at the end of the stream.
    std::istringstream is("10.0.0.1:5060 INADDR_ANY:7\n192.0.2.1  ");
    std::string texts;
    IPAddress address;
    for (int i = 0; i < 10 && address.read(is); ++i) texts += written(address) + " ";
    EXPECT_EQ(texts, "10.0.0.1:5060 INADDR_ANY:7 192.0.2.1:0 ");
    EXPECT_TRUE(address.read(is).fail()) << "a failed stream is not read";
}

TEST(Interface, DestinationsAreReachedThroughTheirLinksAndDescribed) {
    if (!corvane_test::isNamespaceRun()) {
        // c0: two addresses; d0: other flags and MTU; t0: a point-to-point link; no IPv6 addresses.
        return corvane_test::rerunInOwnNamespace(
            {"link set lo up", "link add c0 type veth peer name p0", "link set c0 address 02:00:00:00:00:01",
             "link set c0 addrgenmode none", "addr add 10.1.2.3/24 dev c0", "addr add 10.1.3.3/24 dev c0",
             "link set c0 up", "link add d0 type veth peer name q0", "link set d0 address 02:00:00:00:00:02",
             "link set d0 addrgenmode none", "link set d0 arp off", "link set d0 mtu 9000",
             "addr add 10.7.0.1/16 dev d0", "link set d0 up", "tuntap add dev t0 mode tun",
             "link set t0 addrgenmode none", "addr add 10.5.0.1 peer 10.5.0.2 dev t0", "link set t0 up"});
    }
    const std::string c0 = "c0: flags=0x31<UP,BROADCAST,MULTICAST> mtu 1500\n\tinet 10.1.2.3/24\n"
                           "\tlink 02:00:00:00:00:01\n\talias 10.1.3.3/24\n";
    const std::string failed = "Interface::getForDestination : ";
    const struct {
        const char* destination;
        const char* address;  // getIPAdress, or null when the lookup fails
        std::string text;     // write when it succeeds, else the ERROR message
    } steps[] = {
        {nullptr, nullptr, ""},
        {"127.0.0.1", "127.0.0.1", "lo: flags=0x3<UP,LOOPBACK> mtu 65536\n\tinet 127.0.0.1/8\n\talias ::1\n"},
        {"10.0.0.1/x", nullptr, failed + "addr_pton failed on 10.0.0.1/x"},
        {"10.1.2.77", "10.1.2.3", c0},
        {"10.7.5.5", "10.7.0.1",
         "d0: flags=0x39<UP,NOARP,BROADCAST,MULTICAST> mtu 9000\n\tinet 10.7.0.1/16\n\tlink 02:00:00:00:00:02\n"},
        // The entry's address is the link's address towards the destination.
        {"10.1.3.9", "10.1.3.3", std::string(c0).replace(c0.find("2.3"), 1, "3")},
        // A point-to-point link: its line shows the link's own address twice.
        {"10.5.0.2", "10.5.0.1", "t0: flags=0x2d<UP,POINTOPOINT,NOARP,MULTICAST> mtu 1500\n\tinet 10.5.0.1 --> 10.5.0.1\n"},
        {"10.99.0.1", nullptr, failed + "intf_get_dst failed on 10.99.0.1"},
    };
    Tarvik::Net::Interface intf;  // one object for every step
    for (const auto& step : steps) {
        SCOPED_TRACE(step.destination != nullptr ? step.destination : "null");
        const bool ok = step.address != nullptr;
        corvane_test::AssertCapture asserts;
        corvane_test::LogCapture logs;
        EXPECT_EQ(intf.getForDestination(step.destination), ok);
        EXPECT_EQ(intf.isValid(), ok);
        std::ostringstream os;
        intf.write(os);
        EXPECT_EQ(os.fail(), !ok);
        EXPECT_EQ(os.str(), ok ? step.text : "");
        std::string address = "unchanged";
        intf.getIPAdress(address);
        EXPECT_EQ(address, ok ? step.address : "unchanged");
        EXPECT_EQ(logs.messages("corvane.net.Interface"), std::vector<std::string>(ok || step.text.empty() ? 0 : 1, step.text));
        std::vector<std::string> assertions;
        if (step.destination == nullptr) assertions.push_back("in_szDestination != nullptr");
        if (!ok) assertions.push_back("m_bValid");
        EXPECT_EQ(asserts.texts(), assertions);
    }
}
