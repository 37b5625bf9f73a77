// This host's names and addresses, the interface towards a destination, the free-port hunt, and the Uri. Addresses
// and routes are those of a network namespace of the test's own, checked in a fresh process inside it.
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include <gtest/gtest.h>

#include "TempFile.h"
#include "net/HostIPAddress.h"
#include "net/Net.h"
#include "net/NetInterface.h"
#include "net/ResolverConfig.h"
#include "net/Uri.h"
#include "platform/GlobalConfig.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"
#include "support/Subprocess.h"
#include "vocal/UdpStack.h"

namespace {

bool isNamespaceRun() { return std::getenv("CORVANE_NETNS_RUN") != nullptr; }

// Builds a namespace of the test's own with "ip -n NAME <command>" per command, re-runs the current test (for a
// table row) in a fresh process inside and expects it to pass; skips without root. There the host's interfaces,
// routes and cached address list are the namespace's, and names looked up go to its own (unserved) loopback
// address: the files of /etc/netns/NAME are mounted over /etc inside.
void rerunInOwnNamespace(const std::vector<std::string>& in_ipCommands, size_t in_uiRow = 0) {
    if (geteuid() != 0 || corvane_test::findProgram("ip").empty()) GTEST_SKIP() << "needs root and iproute2";
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string script = "n=corvane-$$; e=/etc/netns/$n; ip netns add $n && mkdir -p $e && "
                         "echo nameserver 127.0.0.1 >$e/resolv.conf";
    for (const std::string& command : in_ipCommands) script += " && ip -n $n " + command;
    script += " && ip netns exec $n " + corvane_test::selfExecutable() + " --gtest_filter=" + test.test_suite_name() +
              "." + test.name() + "; status=$?; rm -rf $e; ip netns delete $n; exit $status";
    const corvane_test::SubprocessResult inner =
        corvane_test::runSubprocess({"sh", "-c", script}, {{"CORVANE_NETNS_RUN", std::to_string(in_uiRow)}}, 60000);
    EXPECT_TRUE(inner.status == 0 && inner.out.find("[  PASSED  ] 1 test.") != std::string::npos)  // not skipped
        << script << "\n" << inner.out << inner.err;
}

std::vector<std::string> dotted(const std::vector<ACE_INET_Addr>& in_addresses) {
    std::vector<std::string> out;
    for (const auto& address : in_addresses) out.push_back(address.get_host_addr());
    return out;
}
std::vector<std::string> oneOrNone(const std::string& in_strMessage) {
    return std::vector<std::string>(in_strMessage.empty() ? 0 : 1, in_strMessage);
}

using Tarvik::Uri;
Uri make(const char* in_szScheme, const char* in_szUser, const char* in_szHost, const char* in_szPort) {
    Uri uri;
    uri.setScheme(in_szScheme);
    uri.setUser(in_szUser);
    uri.setHost(in_szHost);
    uri.setPort(in_szPort);
    return uri;
}

using Node = Tarvik::CountedObjPtr<Tarvik::PCFParse<Tarvik::CFRule>>;
Node node(const char* in_szName, size_t in_uiFirst, size_t in_uiLast, Node in_pFirst = {}, Node in_pSecond = {},
          const char* in_szLabel = nullptr) {
    const Tarvik::CountedObjPtr<std::string> label(in_szLabel != nullptr ? new std::string(in_szLabel) : nullptr);
    const Tarvik::CountedObjPtr<Tarvik::CFRule> rule(new Tarvik::CFRule{in_szName});
    return Node(new Tarvik::PCFParse<Tarvik::CFRule>{label, rule, in_pFirst, in_pSecond, in_uiFirst, in_uiLast});
}

// Only the first loopback entry goes, wherever it is; three addresses are too many even when one of them is
// the loopback address. A configured value is taken as it is, without a look at the host's addresses.
TEST(HostAddress, RulesHoldOnAHostWithTheseInterfaces) {
    const std::string set = " Solution : set the corvane.net.primaryIPAddress parameter";
    const struct {
        std::vector<std::string> addresses;   // the host's IPv4 addresses, in interface order
        const char* configured;               // "corvane.net.primaryIPAddress", or null
        std::vector<std::string> noLoopback;  // getHostIPAddressNoLoopback; a WARN names the first of two or more
        std::string primary;                  // getPrimaryIPAddress, or empty when it fails
        std::string error;                    // its ERROR message when it fails
    } rows[] = {
        {{}, nullptr, {}, "", "host has no ip address!"},
        {{"127.0.0.1"}, nullptr, {}, "127.0.0.1", ""},
        {{"10.1.2.3", "127.0.0.1"}, nullptr, {"10.1.2.3"}, "10.1.2.3", ""},
        {{"10.1.2.3", "10.1.2.4"}, nullptr, {"10.1.2.3", "10.1.2.4"}, "", "Host has 2 IP addresses." + set},
        {{"10.1.2.4", "127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.4", "10.1.2.3"}, "",
         "Host has more than one IP address." + set},
        {{"127.0.0.1", "10.1.2.3"}, "no-such-host.invalid", {"10.1.2.3"}, "",
         "ACE_INET_Addr::set failed on no-such-host.invalid"},
    };
    for (size_t r = 0; !isNamespaceRun() && r < std::size(rows); ++r) {
        // A link per address, or the loopback link (with ::1, which the list leaves out) for a first 127.0.0.1.
        std::vector<std::string> commands;
        for (size_t i = 0; i < rows[r].addresses.size(); ++i) {
            const std::string link = i == 0 && rows[r].addresses[i] == "127.0.0.1" ? "lo" : "c" + std::to_string(i);
            if (link != "lo") commands.push_back("link add " + link + " type veth peer name p" + std::to_string(i));
            if (link != "lo") commands.push_back("addr add " + rows[r].addresses[i] + "/24 dev " + link);
            commands.push_back("link set " + link + " up");
        }
        rerunInOwnNamespace(commands, r);
    }
    if (!isNamespaceRun()) return;
    const auto& row = rows[std::stoul(std::getenv("CORVANE_NETNS_RUN"))];
    std::string hostname, error;
    ASSERT_TRUE(Tarvik::getHostname(hostname));
    const std::vector<ACE_INET_Addr>& cached = Tarvik::getHostIPAddress();  // filled once, here
    corvane_test::LogCapture logs;
    ASSERT_TRUE(row.configured == nullptr ||
                Tarvik::GlobalConfig::getInstance().setValue("corvane.net.primaryIPAddress", row.configured, error));
    std::vector<ACE_INET_Addr> addresses(1);  // emptied by every call
    EXPECT_EQ(Tarvik::getHostIPAddress(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.addresses);
    EXPECT_EQ(dotted(cached), row.addresses);
    EXPECT_EQ(&cached, &Tarvik::getHostIPAddress());
    EXPECT_EQ(logs.messages("corvane.net.HostIPAddress"),
              oneOrNone(row.addresses.empty() ? "No IP network interfaces found for host " + hostname : ""));
    EXPECT_EQ(Tarvik::getHostIPAddressNoLoopback(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.noLoopback);
    EXPECT_EQ(logs.messages("corvane.media.HostBasedRtpStream.hostIPresolution"),
              oneOrNone(row.noLoopback.size() < 2 ? "" : "Multiple IP addresses available on host: using the first one "
                                                          "as destination URL for RTP packets: " + row.noLoopback[0]));
    logs.clear();
    ACE_INET_Addr primary(static_cast<u_short>(9), static_cast<ACE_UINT32>(0xC0000209));  // 192.0.2.9:9
    EXPECT_EQ(Tarvik::getPrimaryIPAddress(primary), !row.primary.empty());
    EXPECT_EQ(dotted({primary})[0] + ":" + std::to_string(primary.get_port_number()),
              row.primary.empty() ? "192.0.2.9:9" : row.primary + ":0");
    EXPECT_EQ(logs.messages("corvane.net.HostIPAddress"), oneOrNone(row.error));
    EXPECT_FALSE(Tarvik::getHostIPAddress("example.org", addresses) || !addresses.empty());
    EXPECT_EQ(logs.assertions(), oneOrNone("Not implemented : getHostIPAddress with a non-null hostname"));
}

TEST(HostName, FullyQualifiedNameJoinsTheHostNameAndTheResolverDomain) {
    if (!isNamespaceRun()) return rerunInOwnNamespace({});
    ASSERT_EQ(unshare(CLONE_NEWUTS), 0);  // a host name of this process's own, never given back
    ASSERT_EQ(sethostname("box", 3), 0);
    const std::string failed = "DnsQueryConfig() failed status=0x";
    const std::string member = ") - probably failing because localhost is not member of a domain";
    const struct {
        std::string resolvConf;
        std::string fqdn;
        std::string debug;  // the DEBUG message, or empty
    } rows[] = {
        {"nameserver 127.0.0.1\ndomain corvane.test\n", "box.corvane.test", ""},
        {"nameserver 127.0.0.1\n", "box", failed + "3d (size=0" + member},
        // "box." and the domain and a NUL: 0x451 bytes, more than the 1024 a name may have.
        {"domain " + std::string(1100, 'd'), "box", failed + "22 (size=451" + member},
    };
    for (const auto& row : rows) {
        const corvane_test::TempFile file(row.resolvConf);
        Tarvik::Net::setResolverConfigPathForTest(file.path());
        corvane_test::LogCapture logs;
        std::string fqdn = "unchanged";
        EXPECT_TRUE(Tarvik::getFqdnHostname(fqdn) && fqdn == row.fqdn) << fqdn;
        EXPECT_EQ(logs.messages("corvane.net.HostIPAddress"), oneOrNone(row.debug));
    }
}

TEST(IPAddress, ReadsExactlyTheWrittenFormsWithAnOptionalPort) {
    const struct {
        const char* text;
        const char* read;  // written form of the address read, or null when failbit is set
    } rows[] = {
        {"  010.001.000.001:08", "10.1.0.1:8"}, {"0.0.0.0:7", "INADDR_ANY:7"}, {"INADDR_ANY", "INADDR_ANY:0"},
        {"INADDR", "INADDR_ANY:0"}, {"255.255.255.255:65535", "255.255.255.255:65535"}, {"1.2.3", nullptr},
        {"1.2.3.4:", nullptr}, {"1.2.3.4:65536", nullptr}, {"256.1.1.1", nullptr}, {"+1.2.3.4", nullptr},
        {"INADDR_ANX", nullptr}, {"INADDR_ANY:", nullptr}, {"", nullptr},
    };
    for (const auto& row : rows) {
        std::istringstream is(row.text);
        Tarvik::Net::IPAddress address(0x05050505);
        address.set_port_number(9);
        EXPECT_EQ(address.read(is).fail(), row.read == nullptr) << '"' << row.text << '"';
        std::ostringstream os;
        address.write(os << std::hex);  // the port is decimal whatever the stream's base
        EXPECT_EQ(os.str(), row.read != nullptr ? row.read : "5.5.5.5:9") << '"' << row.text << '"';
        EXPECT_TRUE(address.read(is).fail()) << "a read stops at the end, and a failed stream is not read";
    }
    EXPECT_STREQ(Tarvik::Net::IPAddress(0x0A000001).toString(), "10.0.0.1");
}

TEST(Interface, DestinationsAreReachedThroughTheirLinksAndDescribed) {
    if (!isNamespaceRun()) {
        // c0 has two addresses and no IPv6 address; t0 is a point-to-point link, its line shows its address twice.
        return rerunInOwnNamespace({"link add c0 type veth peer name p0", "link set c0 address 02:00:00:00:00:01",
                                    "link set c0 addrgenmode none", "addr add 10.1.2.3/24 dev c0",
                                    "addr add 10.1.3.3/24 dev c0", "link set c0 up", "tuntap add dev t0 mode tun",
                                    "link set t0 addrgenmode none", "addr add 10.5.0.1 peer 10.5.0.2 dev t0",
                                    "link set t0 up"});
    }
    const std::string c0 = "c0: flags=0x31<UP,BROADCAST,MULTICAST> mtu 1500\n\tinet 10.1.2.3/24\n"
                           "\tlink 02:00:00:00:00:01\n\talias 10.1.3.3/24\n";
    const std::string invalid = "ASSERTION FAILED: m_bValid";
    const struct {
        const char* destination;
        const char* address;  // getIPAdress: the link's address towards it, or null when the lookup fails
        std::string text;     // write when it succeeds
        std::vector<std::string> logged = {};  // the log messages and assertion reports
    } steps[] = {
        {nullptr, nullptr, "", {"ASSERTION FAILED: in_szDestination != nullptr", invalid}},
        {"10.1.2.77", "10.1.2.3", c0},
        {"10.1.3.9", "10.1.3.3", std::string(c0).replace(c0.find("2.3"), 1, "3")},
        {"10.5.0.2", "10.5.0.1",
         "t0: flags=0x2d<UP,POINTOPOINT,NOARP,MULTICAST> mtu 1500\n\tinet 10.5.0.1 --> 10.5.0.1\n"},
        {"10.99.0.1", nullptr, "", {"Interface::getForDestination : intf_get_dst failed on 10.99.0.1", invalid}},
    };
    Tarvik::Net::Interface intf;  // one object for every step
    for (const auto& step : steps) {
        SCOPED_TRACE(step.destination != nullptr ? step.destination : "null");
        corvane_test::LogCapture logs;
        EXPECT_EQ(intf.getForDestination(step.destination), step.address != nullptr);
        std::ostringstream os;
        EXPECT_EQ(intf.write(os).fail(), step.address == nullptr);
        EXPECT_EQ(os.str(), step.text);
        std::string address = "unchanged";
        intf.getIPAdress(address);
        EXPECT_EQ(address, step.address != nullptr ? step.address : "unchanged");
        EXPECT_EQ(logs.messages("corvane.net.Interface"), step.logged);
    }
}

// In a namespace no other process holds a port: of the ports 30000 to 30010 only those the test holds are in use.
TEST(PortHunt, BindsTheFirstFreePortFromTheStartThenWrapsAround) {
    if (!isNamespaceRun()) return rerunInOwnNamespace({});
    const struct {
        Vocal::PortParity parity;  // ANY_PORT, what the library asks for, goes through findFreeIPPortHunt
        int min, max, start;
        const char* use;        // 'x': the port 30000 + i is in use
        int found;              // the port bound, or -1
        const char* assertion;  // raised by a broken range, or empty
    } rows[] = {
        {Vocal::ANY_PORT, 30002, 30010, 1, "xxx.xxxxx.x", 30003, ""},  // a start below the range begins at its minimum
        {Vocal::ANY_PORT, 30008, 30008, 40000, "xxxxxxxxx..", -1, ""},  // free ports above the range are not tried
        {Vocal::ANY_PORT, 0, 10, 5, "", -1, "in_iMinPort > 0"},
        {Vocal::ANY_PORT, 65530, 65536, 65530, "", -1, "in_iMaxPort <= 65535"},
        {Vocal::EVEN_PORT, 30000, 30010, 30003, "xxx....xxxx", 30004, ""},
        {Vocal::EVEN_PORT, 30001, 30010, 30005, "x..xxxxxxxx", 30002, ""},
        {Vocal::ODD_PORT, 30000, 30010, 30004, "xxxx..xxxxx", 30005, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.use) + " from " + std::to_string(row.start));
        std::vector<int> sockets;  // the held ports', then the hunter
        sockaddr_in address = {AF_INET, 0, {}, {}};
        for (int i = 0; row.use[i] != '\0'; ++i) {
            if (row.use[i] != 'x') continue;
            sockets.push_back(socket(AF_INET, SOCK_DGRAM, 0));
            address.sin_port = htons(static_cast<uint16_t>(30000 + i));
            ASSERT_EQ(bind(sockets.back(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        }
        sockets.push_back(socket(AF_INET, SOCK_DGRAM, 0));
        corvane_test::LogCapture asserts;
        errno = 0;
        int found = -1;
        if (row.parity == Vocal::ANY_PORT) {
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
        EXPECT_TRUE(row.found >= 0 || *row.assertion != '\0' || errno == EADDRINUSE) << "the last bind error is kept";
        EXPECT_EQ(asserts.assertions(), oneOrNone(row.assertion));
        for (int fd : sockets) close(fd);
    }
}

TEST(Uri, IsFilledFromSipUrlTextOrFromTheNamedNodesOfAParseTree) {
    Uri start = make("sip", "alice", "10.0.0.1", "5060");
    const std::string failed = "Uri::initFrom : failed to convert (";
    const struct {
        const char* input;
        bool ok;
        std::string text;                  // the text form of the Uri filled
        std::vector<std::string> reports;  // log messages, then assertion texts
    } rows[] = {
        {"SIP:bob@host.example.com:5070;transport=tcp", true, "sip:bob@host.example.com:5070", {}},
        {"tel:+15551234", false, "sip:alice@10.0.0.1:5060", {"ASSERTION FAILED: Not implemented : tel urls"}},
        {"im:a@b", false, ":", {"Uri::initFrom : invalid Vocal Url type 2", failed + "im:a@b) to a Uri"}},
        {"sip:a@h:port", false, ":",
         {"Uri::initFrom : failed to parse URI : SipUrlParserException: failed in Decode",
          failed + "sip:a@h:port) to a Uri"}},
    };
    for (const auto& row : rows) {
        corvane_test::LogCapture log;
        Uri uri = start;
        EXPECT_EQ(uri.initFrom(row.input), row.ok) << row.input;
        EXPECT_EQ(testing::PrintToString(uri), row.text) << row.input;
        EXPECT_EQ(log.messages("corvane.net.Uri"), row.reports) << row.input;
    }
    std::ostringstream listing;
    for (int i = 0; i < 2; ++i, start.clear()) start.dump(listing);
    EXPECT_EQ(listing.str(), "scheme=sip\nuser=alice\nhost=10.0.0.1\nport=5060\nscheme=\nuser=\nhost=\nport=\n");
    // From a parse tree: a label wins over the rule's name; nodes below a named node are not visited.
    const Tarvik::StringVector tokens = {"sip", ":", "host", ".", "org", ":", "5060", "bob"};
    const auto host = node("HostRule", 2, 4, node("Port", 7, 7), {}, "Host");
    Uri uri = make("x", "stale-user", "x", "x");
    EXPECT_TRUE(uri.initFrom(tokens, node("R", 0, 6, node("S", 0, 4, node("Scheme", 0, 0), host), node("Port", 6, 6))));
    EXPECT_EQ(testing::PrintToString(uri), "sip:host.org:5060");
    // A "Host" rule under another label is no host; an empty range leaves a member empty; a later node wins.
    const auto domain = node("A", 0, 0, node("Host", 2, 2, {}, {}, "Domain"), node("User", 5, 4));
    EXPECT_TRUE(uri.initFrom(tokens, node("R", 0, 7, domain, node("B", 0, 0, node("Port", 6, 6), node("Port", 7, 7)))));
    EXPECT_EQ(testing::PrintToString(uri), "::bob");
    corvane_test::LogCapture asserts;
    EXPECT_TRUE(uri.initFrom(tokens, Node()));
    EXPECT_EQ(asserts.assertions(), std::vector<std::string>{"! in_pParse.isNull()"});
    EXPECT_EQ(testing::PrintToString(uri), ":");
}

// In a network of its own a name that is not in the hosts file fails without a packet leaving the machine.
TEST(Canonicalize, FillsTheSipPortAndPutsTheAddressInPlaceOfTheHost) {
    if (!isNamespaceRun()) return rerunInOwnNamespace({});
    corvane_test::LogCapture log;
    Uri uri = make("sip", "", "10.0.0.1", "");
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(1)));
    EXPECT_EQ(log.count("Uri::canonicalize : cannot specify a timeout if the HostNameServer is not started"), 1u);
    EXPECT_EQ(testing::PrintToString(uri), "sip:10.0.0.1") << "no fallback to the direct path";
    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    corvane_test::HostLookupHook hook;  // the resolver's lookups
    hook.setDelay(std::chrono::milliseconds(100));
    const struct {
        Uri in;
        ACE_Time_Value timeout;
        const char* out;  // the text form after the call
        std::string log;  // the last message, empty on success
    } rows[] = {
        {make("sip", "alice", "127.0.0.1", ""), ACE_Time_Value::max_time, "sip:alice@127.0.0.1:5060", ""},
        {make("SIP", "", "127.0.0.1", ""), ACE_Time_Value::max_time, "SIP:127.0.0.1", "Uri \"" +
         testing::PrintToString(static_cast<const void*>(&uri)) + "\" could not be canonicalized: unknown protocol"},
        {make("sip", "", "no.test", ""), ACE_Time_Value::max_time, "sip:no.test", "Unknown host: \"no.test\""},
        {make("sip", "a", "localhost", ""), ACE_Time_Value(2), "sip:a@127.0.0.1:5060", ""},
        {make("xmpp", "", "localhost", ""), ACE_Time_Value(2), "xmpp:localhost", "canonicalizeSipPort failed"},
        {make("sip", "", "slow.test", "5060"), ACE_Time_Value(0, 10000), "sip:slow.test:5060",  // port kept
         "server.resolve() failed : GHBN_TIMEOUT"},
    };
    for (const auto& row : rows) {
        log.clear();
        uri = row.in;
        EXPECT_EQ(uri.canonicalize(row.timeout), row.log.empty()) << row.out;
        EXPECT_EQ(testing::PrintToString(uri), row.out);
        const std::vector<std::string> messages = log.messages("corvane.net.Uri");
        EXPECT_EQ(messages.empty() ? "" : messages.back(), row.log) << row.out;
    }
    Tarvik::Net::forcedCloseLibrary();
}

}  // namespace
