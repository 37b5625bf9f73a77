// IPAddress text form, and Interface against real routes: the loopback
// interface of this host, and links of a network namespace built per case.
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "net/NetInterface.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using corvane_test::AssertCapture;
using corvane_test::LogCapture;
using corvane_test::NetNamespace;
using Tarvik::Net::Interface;
using Tarvik::Net::IPAddress;

namespace {

const char* const kInterfaceLogger = "corvane.net.Interface";

std::string written(const IPAddress& in_address) {
    std::ostringstream os;
    in_address.write(os);
    return os.str();
}

IPAddress withPort(unsigned int in_uiIp, u_short in_usPort) {
    IPAddress address(in_uiIp);
    address.set_port_number(in_usPort);
    return address;
}

// ------------------------------------------------------------ IPAddress

TEST(IPAddress, WritesDottedAddressOrInaddrAnyThenDecimalPort) {
    const struct {
        IPAddress address;
        const char* text;
    } rows[] = {
        {IPAddress(), "127.0.0.1:0"},
        {withPort(0x0A000001, 5060), "10.0.0.1:5060"},
        {IPAddress(0), "INADDR_ANY:0"},
        {withPort(0, 5060), "INADDR_ANY:5060"},
        {withPort(0xFFFFFFFF, 65535), "255.255.255.255:65535"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(written(row.address), row.text);
        std::ostringstream hex;
        hex << std::hex;
        row.address.write(hex);
        EXPECT_EQ(hex.str(), row.text) << "the port is decimal whatever the stream's base";
    }
    EXPECT_STREQ(withPort(0x0A000001, 5060).toString(), "10.0.0.1");
}

TEST(IPAddress, ReadsTheWrittenFormsWithAnOptionalPort) {
    const struct {
        const char* text;
        const char* address;  // dotted text of the result
        u_short port;
    } rows[] = {
        {"10.0.0.1:5060", "10.0.0.1", 5060},
        {"10.0.0.1", "10.0.0.1", 0},
        {"  192.168.1.20:80", "192.168.1.20", 80},
        {"010.001.000.001:0080", "10.1.0.1", 80},  // decimal, not octal
        {"255.255.255.255:65535", "255.255.255.255", 65535},
        {"0.0.0.0:7", "0.0.0.0", 7},
        {"INADDR_ANY:5060", "0.0.0.0", 5060},
        {"INADDR_ANY", "0.0.0.0", 0},
        {"INADDR", "0.0.0.0", 0},  // a prefix that ends the stream
        {"I", "0.0.0.0", 0},
    };
    for (const auto& row : rows) {
        std::istringstream is(row.text);
        IPAddress address;
        address.read(is);
        EXPECT_FALSE(is.fail()) << row.text;
        EXPECT_STREQ(address.toString(), row.address) << row.text;
        EXPECT_EQ(address.get_port_number(), row.port) << row.text;
    }
}

TEST(IPAddress, MalformedTextSetsFailbitAndLeavesTheAddress) {
    const char* const rows[] = {
        "1,2,3,4",     "1.2.3",        "1.2.3.4:",      "1.2.3.4:x",     "1.2.3.4:65536", "1.2.3.4:-5",
        "256.1.1.1",   "1.2.3.999",    "70000.1.1.1",   "-1.2.3.4",      "1.2.3.-4",      "+1.2.3.4",
        "1..2.3",      "1.2.3.a",      "INADDR_ANX",    "INADDR_ANY:",   "INADDR_ANY:-1", "INADDR_ANY:x",
        "inaddr_any",  "",             "   ",           "x",             "localhost",     ":5060",
    };
    for (const char* text : rows) {
        std::istringstream is(text);
        IPAddress address = withPort(0x0A000001, 5060);
        address.read(is);
        EXPECT_TRUE(is.fail()) << '"' << text << '"';
        EXPECT_EQ(written(address), "10.0.0.1:5060") << '"' << text << '"';
    }
}

TEST(IPAddress, WrittenAddressReadsBackTheSame) {
    const IPAddress rows[] = {IPAddress(), withPort(0x0A000001, 5060), IPAddress(0), withPort(0, 1),
                              withPort(0xC0A80114, 65535), withPort(0x01020304, 9)};
    for (const IPAddress& original : rows) {
        std::stringstream stream;
        original.write(stream);
        IPAddress copy(0x05050505);
        copy.read(stream);
        EXPECT_FALSE(stream.fail()) << stream.str();
        EXPECT_EQ(written(copy), written(original));
        EXPECT_EQ(copy.get_ip_address(), original.get_ip_address());
        EXPECT_EQ(copy.get_port_number(), original.get_port_number());
    }
}

TEST(IPAddress, ReadsOneAddressAfterAnotherAndStopsAtTheEnd) {
    std::istringstream is("10.0.0.1:5060 INADDR_ANY:7\n192.0.2.1  ");
    std::vector<std::string> texts;
    IPAddress address;
    for (int i = 0; i < 10 && address.read(is); ++i) texts.push_back(written(address));
    EXPECT_EQ(texts, (std::vector<std::string>{"10.0.0.1:5060", "INADDR_ANY:7", "192.0.2.1:0"}));

    std::istringstream failed("10.0.0.1");
    failed.setstate(std::ios::failbit);
    IPAddress untouched(0x01020304);
    untouched.read(failed);
    EXPECT_EQ(written(untouched), "1.2.3.4:0") << "a failed stream is not read";
}

// ------------------------------------------------------------ Interface

TEST(Interface, FreshInterfaceWritesNothingAndHasNoAddress) {
    AssertCapture asserts;
    Interface intf;
    EXPECT_FALSE(intf.isValid());
    std::ostringstream os;
    intf.write(os);
    EXPECT_TRUE(os.fail());
    EXPECT_EQ(os.str(), "");
    std::string address = "unchanged";
    intf.getIPAdress(address);
    EXPECT_EQ(address, "unchanged");
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"m_bValid"});
}

TEST(Interface, NullDestinationIsRefused) {
    AssertCapture asserts;
    Interface intf;
    EXPECT_FALSE(intf.getForDestination(nullptr));
    EXPECT_FALSE(intf.isValid());
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"in_szDestination != nullptr"});
}

// These texts fail in libdnet's parser itself, before it would look a name up.
TEST(Interface, TextThatIsNotAnAddressFailsAndStaysInvalid) {
    Interface intf;
    ASSERT_TRUE(intf.getForDestination("127.0.0.1"));
    for (const char* destination : {"10.0.0.1/x", "10.0.0.1/255.x.0.0"}) {
        LogCapture logs(Tarvik::ERROR_LOG_LEVEL);
        EXPECT_FALSE(intf.getForDestination(destination));
        EXPECT_FALSE(intf.isValid());
        EXPECT_EQ(logs.messages(kInterfaceLogger),
                  std::vector<std::string>{std::string("Interface::getForDestination : addr_pton failed on ") +
                                           destination});
    }
}

TEST(Interface, LoopbackDestinationIsReachedThroughTheLoopbackInterface) {
    Interface intf;
    ASSERT_TRUE(intf.getForDestination("127.0.0.1"));
    EXPECT_TRUE(intf.isValid());
    std::string address;
    intf.getIPAdress(address);
    EXPECT_EQ(address, "127.0.0.1");
    std::ostringstream os;
    intf.write(os);
    // IPv6 aliases (::1) follow when the host has IPv6.
    EXPECT_EQ(os.str().rfind("lo: flags=0x3<UP,LOOPBACK> mtu 65536\n\tinet 127.0.0.1/8\n", 0), 0u) << os.str();
}

// One lookup of a route case, on the case's one Interface object.
struct RouteStep {
    const char* destination;
    bool ok;
    const char* address;  // getIPAdress when ok
    const char* text;     // write when ok, else the ERROR message
};

struct RouteCase {
    const char* name;
    bool pointToPoint;  // adds the tun link t0 (10.5.0.1 peer 10.5.0.2)
    std::vector<RouteStep> steps;
};

const char* const kC0Text =
    "c0: flags=0x31<UP,BROADCAST,MULTICAST> mtu 1500\n\tinet 10.1.2.3/24\n\tlink 02:00:00:00:00:01\n"
    "\talias 10.1.3.3/24\n";
const char* const kD0Text =
    "d0: flags=0x39<UP,NOARP,BROADCAST,MULTICAST> mtu 9000\n\tinet 10.7.0.1/16\n\tlink 02:00:00:00:00:02\n";

const std::vector<RouteCase>& routeCases() {
    static const std::vector<RouteCase> s_cases = {
        {"ChosenLink", false, {{"10.1.2.77", true, "10.1.2.3", kC0Text}}},
        {"OtherLinkOnTheSameObject",
         false,
         {{"10.1.2.77", true, "10.1.2.3", kC0Text}, {"10.7.5.5", true, "10.7.0.1", kD0Text}}},
        // The entry's address is the link's address towards the destination.
        {"SecondAddressOfALink",
         false,
         {{"10.1.3.9", true, "10.1.3.3",
           "c0: flags=0x31<UP,BROADCAST,MULTICAST> mtu 1500\n\tinet 10.1.3.3/24\n\tlink 02:00:00:00:00:01\n"
           "\talias 10.1.3.3/24\n"}}},
        {"NoRouteAfterARoute",
         false,
         {{"10.7.5.5", true, "10.7.0.1", kD0Text},
          {"10.99.0.1", false, nullptr, "Interface::getForDestination : intf_get_dst failed on 10.99.0.1"}}},
        {"NotAnAddress",
         false,
         {{"no-such-host.invalid", false, nullptr,
           "Interface::getForDestination : addr_pton failed on no-such-host.invalid"}}},
        // A point-to-point link: its line shows the link's own address twice.
        {"PointToPoint",
         true,
         {{"10.5.0.2", true, "10.5.0.1",
           "t0: flags=0x2d<UP,POINTOPOINT,NOARP,MULTICAST> mtu 1500\n\tinet 10.5.0.1 --> 10.5.0.1\n"}}},
    };
    return s_cases;
}

void checkRouteCase(const std::string& in_strName) {
    const RouteCase* pCase = corvane_test::findCase(routeCases(), in_strName);
    ASSERT_NE(pCase, nullptr) << in_strName;
    AssertCapture asserts;
    Interface intf;
    for (const RouteStep& step : pCase->steps) {
        SCOPED_TRACE(step.destination);
        LogCapture logs(Tarvik::ERROR_LOG_LEVEL);
        EXPECT_EQ(intf.getForDestination(step.destination), step.ok);
        EXPECT_EQ(intf.isValid(), step.ok);
        std::ostringstream os;
        intf.write(os);
        if (step.ok) {
            std::string address;
            intf.getIPAdress(address);
            EXPECT_EQ(address, step.address);
            EXPECT_EQ(os.str(), step.text);
            EXPECT_TRUE(logs.messages(kInterfaceLogger).empty());
        } else {
            EXPECT_TRUE(os.fail());
            EXPECT_EQ(logs.messages(kInterfaceLogger), std::vector<std::string>{step.text});
        }
    }
    EXPECT_TRUE(asserts.texts().empty());
}

const corvane_test::NamespaceCheckRegistrar s_routeCheck("route", &checkRouteCase);

bool buildLinks(NetNamespace& io_ns, bool in_bPointToPoint, std::string& out_strSkip) {
    const char* const commands[] = {
        // c0: two addresses; its peer stays down, and no IPv6 address is made.
        "link add c0 type veth peer name p0", "link set c0 address 02:00:00:00:00:01",
        "link set c0 addrgenmode none", "addr add 10.1.2.3/24 dev c0", "addr add 10.1.3.3/24 dev c0",
        "link set c0 up",
        // d0: other flags and MTU.
        "link add d0 type veth peer name q0", "link set d0 address 02:00:00:00:00:02",
        "link set d0 addrgenmode none", "link set d0 arp off", "link set d0 mtu 9000",
        "addr add 10.7.0.1/16 dev d0", "link set d0 up"};
    for (const char* command : commands) {
        if (!io_ns.ip(command)) return false;
    }
    if (!in_bPointToPoint) return true;
    if (!io_ns.ip("tuntap add dev t0 mode tun")) {
        out_strSkip = "no tun device for a point-to-point link: " + io_ns.error();
        return false;
    }
    return io_ns.ip("link set t0 addrgenmode none") && io_ns.ip("addr add 10.5.0.1 peer 10.5.0.2 dev t0") &&
           io_ns.ip("link set t0 up");
}

void PrintTo(const RouteCase& in_case, std::ostream* io_pOs) { *io_pOs << in_case.name; }

class InterfaceRoutes : public testing::TestWithParam<RouteCase> {};

TEST_P(InterfaceRoutes, ReachTheChosenLinkInANamespace) {
    corvane_test::checkInNamespace("route", GetParam().name, [this](NetNamespace& io_ns, std::string& out_strSkip) {
        return buildLinks(io_ns, GetParam().pointToPoint, out_strSkip);
    });
}

INSTANTIATE_TEST_SUITE_P(Cases, InterfaceRoutes, testing::ValuesIn(routeCases()),
                         [](const testing::TestParamInfo<RouteCase>& in_info) { return in_info.param.name; });

}  // namespace
