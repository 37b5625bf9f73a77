// This host's names and addresses. The address rules run against real
// interfaces: each row builds a network namespace with its own interfaces and
// checks the rules in a fresh process inside it (the list is cached per process).
#include <sched.h>
#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "TempFile.h"
#include "net/HostIPAddress.h"
#include "net/ResolverConfig.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

namespace {

const char* const kLogger = "corvane.net.HostIPAddress";

std::vector<std::string> dotted(const std::vector<ACE_INET_Addr>& in_addresses) {
    std::vector<std::string> out;
    char buffer[INET6_ADDRSTRLEN];
    for (const ACE_INET_Addr& address : in_addresses) out.push_back(address.get_host_addr(buffer, sizeof(buffer)));
    return out;
}

std::vector<std::string> oneOrNone(const std::string& in_strMessage) {
    return in_strMessage.empty() ? std::vector<std::string>{} : std::vector<std::string>{in_strMessage};
}

struct AddressRow {
    const char* name;
    std::vector<std::string> addresses;   // the host's IPv4 addresses, in interface order
    const char* configured;               // "corvane.net.primaryIPAddress", or null
    std::vector<std::string> noLoopback;  // getHostIPAddressNoLoopback; a WARN names the first of two or more
    const char* primary;                  // getPrimaryIPAddress, or its ERROR message when it starts with "!"
};

void PrintTo(const AddressRow& in_row, std::ostream* io_pOs) { *io_pOs << in_row.name; }

class HostAddressRules : public testing::TestWithParam<AddressRow> {};

TEST_P(HostAddressRules, HoldOnAHostWithTheseInterfaces) {
    const AddressRow& row = GetParam();
    if (!corvane_test::isNamespaceRun()) {
        // A link per address, or the loopback link (with ::1, which the list leaves out) when 127.0.0.1 is first.
        std::vector<std::string> commands;
        for (size_t i = 0; i < row.addresses.size(); ++i) {
            const std::string link = "c" + std::to_string(i);
            if (i == 0 && row.addresses[i] == "127.0.0.1") {
                commands.push_back("link set lo up");
                continue;
            }
            commands.insert(commands.end(), {"link add " + link + " type veth peer name p" + std::to_string(i),
                                             "addr add " + row.addresses[i] + "/24 dev " + link, "link set " + link + " up"});
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
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue("corvane.net.primaryIPAddress", row.configured, error));
    }
    std::vector<ACE_INET_Addr> addresses(1);  // emptied by every call
    EXPECT_EQ(Tarvik::getHostIPAddress(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.addresses);
    for (const ACE_INET_Addr& address : addresses) EXPECT_EQ(address.get_port_number(), 0);
    EXPECT_EQ(dotted(cached), row.addresses);
    EXPECT_EQ(&cached, &Tarvik::getHostIPAddress());
    EXPECT_EQ(logs.messages(kLogger), oneOrNone(row.addresses.empty() ? "No IP network interfaces found for host " +
                                                                            hostname : ""));
    EXPECT_EQ(Tarvik::getHostIPAddressNoLoopback(nullptr, addresses), !row.addresses.empty());
    EXPECT_EQ(dotted(addresses), row.noLoopback);
    EXPECT_EQ(logs.messages("corvane.media.HostBasedRtpStream.hostIPresolution"),
              oneOrNone(row.noLoopback.size() < 2 ? "" : "Multiple IP addresses available on host: using the "
                                                         "first one as destination URL for RTP packets: " +
                                                             row.noLoopback.front()));
    logs.clear();
    ACE_INET_Addr primary(static_cast<u_short>(9), static_cast<ACE_UINT32>(0xC0000209));  // 192.0.2.9:9
    const bool chosen = row.primary[0] != '!';
    EXPECT_EQ(Tarvik::getPrimaryIPAddress(primary), chosen);
    EXPECT_EQ(dotted({primary}).front() + ":" + std::to_string(primary.get_port_number()),
              chosen ? row.primary + std::string(":0") : "192.0.2.9:9");
    EXPECT_EQ(logs.messages(kLogger), oneOrNone(chosen ? "" : row.primary + 1));
    EXPECT_FALSE(Tarvik::getHostIPAddress("example.org", addresses));
    EXPECT_TRUE(addresses.empty());
    EXPECT_EQ(asserts.texts(), oneOrNone("Not implemented : getHostIPAddress with a non-null hostname"));
}

// Only the first loopback entry goes, wherever it is; three addresses are too many even when one of them is
// the loopback address. A configured value wins, even when it is no address of this host.
INSTANTIATE_TEST_SUITE_P(
    Cases, HostAddressRules,
    testing::Values(
        AddressRow{"NoAddress", {}, nullptr, {}, "!host has no ip address!"},
        AddressRow{"OnlyLoopback", {"127.0.0.1"}, nullptr, {}, "127.0.0.1"},
        AddressRow{"LoopbackThenAddress", {"127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.3"}, "10.1.2.3"},
        AddressRow{"AddressThenLoopback", {"10.1.2.3", "127.0.0.1"}, nullptr, {"10.1.2.3"}, "10.1.2.3"},
        AddressRow{"TwoAddresses", {"10.1.2.3", "10.1.2.4"}, nullptr, {"10.1.2.3", "10.1.2.4"},
                   "!Host has 2 IP addresses. Solution : set the corvane.net.primaryIPAddress parameter"},
        AddressRow{"AddressLoopbackAddress", {"10.1.2.4", "127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.4", "10.1.2.3"},
                   "!Host has more than one IP address. Solution : set the corvane.net.primaryIPAddress parameter"},
        AddressRow{"ConfiguredForeignAddress", {"10.1.2.3", "10.1.2.4"}, "192.0.2.200", {"10.1.2.3", "10.1.2.4"},
                   "192.0.2.200"},
        AddressRow{"ConfiguredUnresolvable", {"127.0.0.1", "10.1.2.3"}, "no-such-host.invalid", {"10.1.2.3"},
                   "!ACE_INET_Addr::set failed on no-such-host.invalid"}),
    [](const testing::TestParamInfo<AddressRow>& in_info) { return in_info.param.name; });

TEST(HostName, FullyQualifiedNameJoinsTheHostNameAndTheResolverDomain) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to set a host name in a UTS namespace";
    const std::string longDomain = "domain " + std::string(1100, 'd') + "\n";  // 0x451 bytes with "box." and NUL
    const std::string noDomain = "DnsQueryConfig() failed status=0x";
    const std::string notMember = ") - probably failing because localhost is not member of a domain";
    const struct {
        const char* hostname;
        const char* resolvConf;  // null: there is no resolver configuration
        std::string fqdn;
        std::string debug;  // the DEBUG message, or empty
    } rows[] = {
        {"box", "nameserver 127.0.0.1\ndomain corvane.test\n", "box.corvane.test", ""},
        {"box", "search a.test b.test\n", "box.a.test", ""},
        {"box.example.org", "domain corvane.test\n", "box.example.org", ""},
        {"box", "nameserver 127.0.0.1\n", "box", noDomain + "3d (size=0" + notMember},
        {"box", nullptr, "box", noDomain + "2 (size=0" + notMember},
        {"box", longDomain.c_str(), "box", noDomain + "22 (size=451" + notMember},
    };
    char original[256] = {};
    ASSERT_EQ(gethostname(original, sizeof(original) - 1), 0);
    ASSERT_EQ(unshare(CLONE_NEWUTS), 0) << "a host name of this thread's own";
    for (const auto& row : rows) {
        EXPECT_EQ(sethostname(row.hostname, std::strlen(row.hostname)), 0);
        const corvane_test::TempFile file(row.resolvConf != nullptr ? row.resolvConf : "");
        Tarvik::Net::setResolverConfigPathForTest(row.resolvConf != nullptr ? file.path()
                                                                            : corvane_test::TempFile::uniquePath());
        corvane_test::LogCapture logs;
        std::string hostname;
        std::string fqdn = "unchanged";
        EXPECT_TRUE(Tarvik::getHostname(hostname) && Tarvik::getFqdnHostname(fqdn));
        EXPECT_EQ(hostname + " " + fqdn, row.hostname + (" " + row.fqdn));
        EXPECT_EQ(logs.messages(kLogger), oneOrNone(row.debug));
    }
    Tarvik::Net::setResolverConfigPathForTest("");
    sethostname(original, std::strlen(original));
}

}  // namespace
