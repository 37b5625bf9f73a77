// This host's names and addresses, the interface towards a destination, and the
// free-port hunt. Addresses and routes are those of a network namespace of the
// test's own, checked in a fresh process inside it (the list is cached per process).
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "TempFile.h"
#include "net/HostIPAddress.h"
#include "net/NetInterface.h"
#include "net/ResolverConfig.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"
#include "vocal/UdpStack.h"

namespace {

const char* const kLogger = "corvane.net.HostIPAddress";
const char* const kPrimary = "corvane.net.primaryIPAddress";

std::vector<std::string> dotted(const std::vector<ACE_INET_Addr>& in_addresses) {
    std::vector<std::string> out;
    char buffer[INET6_ADDRSTRLEN];
    for (const auto& address : in_addresses) out.push_back(address.get_host_addr(buffer, sizeof(buffer)));
    return out;
}

std::vector<std::string> oneOrNone(const std::string& in_strMessage) {
    return std::vector<std::string>(in_strMessage.empty() ? 0 : 1, in_strMessage);
}

struct AddressRow {
    const char* name;
    std::vector<std::string> addresses;   // the host's IPv4 addresses, in interface order
    const char* configured;               // "corvane.net.primaryIPAddress", or null
    std::vector<std::string> noLoopback;  // getHostIPAddressNoLoopback; a WARN names the first of two or more
    std::string primary;                  // getPrimaryIPAddress, or empty when it fails
    std::string error;                    // its ERROR message when it fails
};

class HostAddressRules : public testing::TestWithParam<AddressRow> {};

TEST_P(HostAddressRules, HoldOnAHostWithTheseInterfaces) {
    const AddressRow& row = GetParam();
    if (!corvane_test::isNamespaceRun()) {
        // A link per address, or the loopback link (with ::1, which the list leaves out) for a first 127.0.0.1.
        std::vector<std::string> commands;
        for (size_t i = 0; i < row.addresses.size(); ++i) {
            const std::string link = "c" + std::to_string(i);
            if (i == 0 && row.addresses[i] == "127.0.0.1") {
                commands.push_back("link set lo up");
                continue;
            }
            commands.push_back("link add " + link + " type veth peer name p" + std::to_string(i));
            commands.push_back("addr add " + row.addresses[i] + "/24 dev " + link);
            commands.push_back("link set " + link + " up");
        }
        return corvane_test::rerunInOwnNamespace(commands);
    }
    std::string hostname;
    ASSERT_TRUE(Tarvik::getHostname(hostname));
    const std::vector<ACE_INET_Addr>& cached = Tarvik::getHostIPAddress();  // filled once, here
    corvane_test::AssertCapture asserts;
    corvane_test::LogCapture logs;
    std::string error;
    if (row.configured != nullptr) {
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue(kPrimary, row.configured, error));
    }
    std::vector<ACE_INET_Addr> addresses(1);  // emptied by every call
    EXPECT_EQ(Tarvik::getHostIPAddress(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.addresses);
    for (const ACE_INET_Addr& address : addresses) EXPECT_EQ(address.get_port_number(), 0);
    EXPECT_EQ(dotted(cached), row.addresses);
    EXPECT_EQ(&cached, &Tarvik::getHostIPAddress());
    const std::string none = "No IP network interfaces found for host " + hostname;
    EXPECT_EQ(logs.messages(kLogger), oneOrNone(row.addresses.empty() ? none : ""));
    EXPECT_EQ(Tarvik::getHostIPAddressNoLoopback(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.noLoopback);
    const std::string warning = "Multiple IP addresses available on host: using the first one as destination "
                                "URL for RTP packets: " + (row.noLoopback.empty() ? "" : row.noLoopback[0]);
    EXPECT_EQ(logs.messages("corvane.media.HostBasedRtpStream.hostIPresolution"),
              oneOrNone(row.noLoopback.size() < 2 ? "" : warning));
    logs.clear();
    ACE_INET_Addr primary(static_cast<u_short>(9), static_cast<ACE_UINT32>(0xC0000209));  // 192.0.2.9:9
    EXPECT_EQ(Tarvik::getPrimaryIPAddress(primary), !row.primary.empty());
    EXPECT_EQ(dotted({primary})[0] + ":" + std::to_string(primary.get_port_number()),
              row.primary.empty() ? "192.0.2.9:9" : row.primary + ":0");
    EXPECT_EQ(logs.messages(kLogger), oneOrNone(row.error));
    EXPECT_FALSE(Tarvik::getHostIPAddress("example.org", addresses));
    EXPECT_TRUE(addresses.empty());
    EXPECT_EQ(asserts.texts(), oneOrNone("Not implemented : getHostIPAddress with a non-null hostname"));
}

const std::string kSet = " Solution : set the corvane.net.primaryIPAddress parameter";

// Only the first loopback entry goes, wherever it is; three addresses are too many even when one of them is
// the loopback address. A configured value wins, even when it is no address of this host.
INSTANTIATE_TEST_SUITE_P(
    Cases, HostAddressRules,
    testing::Values(
        AddressRow{"NoAddress", {}, nullptr, {}, "", "host has no ip address!"},
        AddressRow{"OnlyLoopback", {"127.0.0.1"}, nullptr, {}, "127.0.0.1", ""},
        AddressRow{"LoopbackThenAddress", {"127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.3"}, "10.1.2.3", ""},
        AddressRow{"AddressThenLoopback", {"10.1.2.3", "127.0.0.1"}, nullptr, {"10.1.2.3"}, "10.1.2.3", ""},
        AddressRow{"TwoAddresses", {"10.1.2.3", "10.1.2.4"}, nullptr, {"10.1.2.3", "10.1.2.4"}, "",
                   "Host has 2 IP addresses." + kSet},
        AddressRow{"AddressLoopbackAddress", {"10.1.2.4", "127.0.0.1", "10.1.2.3"}, nullptr,
                   {"10.1.2.4", "10.1.2.3"}, "", "Host has more than one IP address." + kSet},
        AddressRow{"ConfiguredForeignAddress", {"10.1.2.3", "10.1.2.4"}, "192.0.2.200",
                   {"10.1.2.3", "10.1.2.4"}, "192.0.2.200", ""},
        AddressRow{"ConfiguredUnresolvable", {"127.0.0.1", "10.1.2.3"}, "no-such-host.invalid", {"10.1.2.3"},
                   "", "ACE_INET_Addr::set failed on no-such-host.invalid"}),
    [](const testing::TestParamInfo<AddressRow>& in_info) { return in_info.param.name; });

// In a namespace process of its own, whose host name need not be given back.
TEST(HostName, FullyQualifiedNameJoinsTheHostNameAndTheResolverDomain) {
    if (!corvane_test::isNamespaceRun()) return corvane_test::rerunInOwnNamespace({});
    ASSERT_EQ(unshare(CLONE_NEWUTS), 0);
    const std::string failed = "DnsQueryConfig() failed status=0x";
    const std::string member = ") - probably failing because localhost is not member of a domain";
    const struct {
        const char* hostname;
        std::string resolvConf;
        std::string fqdn;
        std::string debug;  // the DEBUG message, or empty
    } rows[] = {
        {"box", "nameserver 127.0.0.1\ndomain corvane.test\n", "box.corvane.test", ""},
        {"box", "search a.test b.test\n", "box.a.test", ""},
        {"box.example.org", "domain corvane.test\n", "box.example.org", ""},
        {"box", "nameserver 127.0.0.1\n", "box", failed + "3d (size=0" + member},
        // "box." and the domain and a NUL: 0x451 bytes, more than the 1024 a name may have.
        {"box", "domain " + std::string(1100, 'd'), "box", failed + "22 (size=451" + member},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(sethostname(row.hostname, std::strlen(row.hostname)), 0);
        const corvane_test::TempFile file(row.resolvConf);
        Tarvik::Net::setResolverConfigPathForTest(file.path());
        corvane_test::LogCapture logs;
        std::string hostname;
        std::string fqdn = "unchanged";
        EXPECT_TRUE(Tarvik::getHostname(hostname) && Tarvik::getFqdnHostname(fqdn));
        EXPECT_EQ(hostname + " " + fqdn, row.hostname + (" " + row.fqdn));
        EXPECT_EQ(logs.messages(kLogger), oneOrNone(row.debug));
    }
}

TEST(IPAddress, ReadsExactlyTheWrittenFormsWithAnOptionalPort) {
    const struct {
        const char* text;
        const char* read;  // written form of the address read, or null when failbit is set
    } rows[] = {
        {"10.0.0.1:5060", "10.0.0.1:5060"}, {"  010.001.000.001:08", "10.1.0.1:8"}, {"0.0.0.0:7", "INADDR_ANY:7"},
        {"INADDR_ANY", "INADDR_ANY:0"}, {"INADDR", "INADDR_ANY:0"}, {"255.255.255.255:65535", "255.255.255.255:65535"},
        {"1.2.3", nullptr}, {"1.2.3.4:", nullptr}, {"1.2.3.4:x", nullptr}, {"1.2.3.4:65536", nullptr},
        {"256.1.1.1", nullptr}, {"+1.2.3.4", nullptr}, {"INADDR_ANX", nullptr}, {"INADDR_ANY:", nullptr},
        {"", nullptr}, {":5", nullptr},
    };
    const auto written = [](const Tarvik::Net::IPAddress& in_address) {
        std::ostringstream os;
        os << std::hex;  // the port is decimal whatever the stream's base
        in_address.write(os);
        return os.str();
    };
    for (const auto& row : rows) {
        std::istringstream is(row.text);
        Tarvik::Net::IPAddress address(0x05050505);
        address.set_port_number(9);
        EXPECT_EQ(address.read(is).fail(), row.read == nullptr) << '"' << row.text << '"';
        EXPECT_EQ(written(address), row.read != nullptr ? row.read : "5.5.5.5:9") << '"' << row.text << '"';
        EXPECT_TRUE(address.read(is).fail()) << "a read stops at the end, and a failed stream is not read";
    }
    EXPECT_EQ(written(Tarvik::Net::IPAddress()), "127.0.0.1:0");
    EXPECT_STREQ(Tarvik::Net::IPAddress(0x0A000001).toString(), "10.0.0.1");
}

TEST(Interface, DestinationsAreReachedThroughTheirLinksAndDescribed) {
    if (!corvane_test::isNamespaceRun()) {
        // c0 has two addresses and no IPv6 address; t0 is a point-to-point link.
        return corvane_test::rerunInOwnNamespace(
            {"link set lo up", "link add c0 type veth peer name p0", "link set c0 address 02:00:00:00:00:01",
             "link set c0 addrgenmode none", "addr add 10.1.2.3/24 dev c0", "addr add 10.1.3.3/24 dev c0",
             "link set c0 up", "tuntap add dev t0 mode tun", "link set t0 addrgenmode none",
             "addr add 10.5.0.1 peer 10.5.0.2 dev t0", "link set t0 up"});
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
        // The entry's address is the link's address towards the destination.
        {"10.1.3.9", "10.1.3.3", std::string(c0).replace(c0.find("2.3"), 1, "3")},
        // A point-to-point link: its line shows the link's own address twice.
        {"10.5.0.2", "10.5.0.1",
         "t0: flags=0x2d<UP,POINTOPOINT,NOARP,MULTICAST> mtu 1500\n\tinet 10.5.0.1 --> 10.5.0.1\n"},
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
        EXPECT_EQ(logs.messages("corvane.net.Interface"), oneOrNone(ok ? "" : step.text));
        std::vector<std::string> assertions;
        if (step.destination == nullptr) assertions.push_back("in_szDestination != nullptr");
        if (!ok) assertions.push_back("m_bValid");
        EXPECT_EQ(asserts.texts(), assertions);
    }
}

// The hunt in a namespace, where no other process holds a port: of the ports 30000 to 30010, those the test
// holds are in use, the others free.
TEST(PortHunt, BindsTheFirstFreePortFromTheStartThenWrapsAround) {
    if (!corvane_test::isNamespaceRun()) return corvane_test::rerunInOwnNamespace({});
    const Vocal::PortParity any = Vocal::ANY_PORT;  // what the library asks for; the others hunt by parity
    const struct {
        Vocal::PortParity parity;
        int min, max, start;
        const char* use;        // 'x': the port 30000 + i is in use
        int found;              // the port bound, or -1
        const char* assertion;  // raised by a broken range, or empty
    } rows[] = {
        {any, 30000, 30010, 30005, "xxx.x.x.xxx", 30005, ""},
        {any, 30000, 30010, 30005, ".xxx.xxxxxx", 30000, ""},
        {any, 30000, 30010, 30005, "xxx..xxxxxx", 30003, ""},
        {any, 30002, 30010, 1, "xxx.xxxxx.x", 30003, ""},  // a start below the range begins at its minimum
        {any, 30000, 30008, 40000, "xxxxx.xxxxx", 30005, ""},
        {any, 30000, 30008, 40000, "xxxxxxxxx..", -1, ""},  // free ports above the range are not tried
        {any, 30004, 30004, 30004, "xxx.x.xxxxx", -1, ""},
        {any, 30005, 30004, 30004, "", -1, "in_iMinPort <= in_iMaxPort"},
        {any, 0, 10, 5, "", -1, "in_iMinPort > 0"},
        {any, 65530, 65536, 65530, "", -1, "in_iMaxPort <= 65535"},
        {Vocal::EVEN_PORT, 30000, 30010, 30003, "xxx....xxxx", 30004, ""},
        {Vocal::EVEN_PORT, 30001, 30010, 30005, "x..xxxxxxxx", 30002, ""},
        {Vocal::ODD_PORT, 30000, 30010, 30004, "xxxx..xxxxx", 30005, ""},
        {Vocal::ODD_PORT, 30002, 30010, 30006, "xxx.xxxxxxx", 30003, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.use) + " from " + std::to_string(row.start));
        std::vector<int> sockets;  // the held ports', then the hunter
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        for (int i = 0; row.use[i] != '\0'; ++i) {
            if (row.use[i] != 'x') continue;
            sockets.push_back(socket(AF_INET, SOCK_DGRAM, 0));
            address.sin_port = htons(static_cast<uint16_t>(30000 + i));
            ASSERT_EQ(bind(sockets.back(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        }
        sockets.push_back(socket(AF_INET, SOCK_DGRAM, 0));
        corvane_test::AssertCapture asserts;
        errno = 0;
        int found = -1;
        if (row.parity == any) {
            const Tarvik::Fallible<size_t> port = Tarvik::Net::findFreeIPPortHunt(
                reinterpret_cast<void*>(static_cast<intptr_t>(sockets.back())), row.min, row.max, row.start);
            if (port.isValid()) found = static_cast<int>(port.getValue());
        } else {
            found = Vocal::huntFreePort(sockets.back(), row.min, row.max, row.start, row.parity);
        }
        EXPECT_EQ(found, row.found);
        socklen_t length = sizeof(address);
        getsockname(sockets.back(), reinterpret_cast<sockaddr*>(&address), &length);
        EXPECT_EQ(ntohs(address.sin_port), row.found < 0 ? 0 : row.found) << "bound to the port found";
        if (row.found < 0 && *row.assertion == '\0') {
            EXPECT_EQ(errno, EADDRINUSE) << "the last bind error is left in errno";
        }
        EXPECT_EQ(asserts.texts(), oneOrNone(row.assertion));
        for (int fd : sockets) close(fd);
    }
}

}  // namespace
