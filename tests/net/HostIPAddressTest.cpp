// Host names and addresses. The address rules run against real interfaces:
// each case builds a network namespace with its own interface set and checks
// the rules in a fresh process inside it (the address list is cached per process).
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "TempFile.h"
#include "net/HostIPAddress.h"
#include "net/ResolverConfig.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using corvane_test::AssertCapture;
using corvane_test::LogCapture;
using corvane_test::NetNamespace;
using corvane_test::TempFile;

namespace {

const char* const kHostLogger = "corvane.net.HostIPAddress";
const char* const kRtpLogger = "corvane.media.HostBasedRtpStream.hostIPresolution";
const char* const kPrimaryParam = "corvane.net.primaryIPAddress";
const std::string kTwoAddresses =
    "Host has 2 IP addresses. Solution : set the corvane.net.primaryIPAddress parameter";
const std::string kMoreAddresses =
    "Host has more than one IP address. Solution : set the corvane.net.primaryIPAddress parameter";
const std::string kWarnPrefix =
    "Multiple IP addresses available on host: using the first one as destination URL for RTP packets: ";

std::string dotted(const ACE_INET_Addr& in_address) {
    char buffer[INET6_ADDRSTRLEN] = {};
    return in_address.get_host_addr(buffer, sizeof(buffer));
}

std::vector<std::string> dotted(const std::vector<ACE_INET_Addr>& in_addresses) {
    std::vector<std::string> out;
    for (const ACE_INET_Addr& address : in_addresses) out.push_back(dotted(address));
    return out;
}

std::vector<std::string> messagesAt(const LogCapture& in_logs, int in_iLevel, const std::string& in_logger) {
    std::vector<std::string> out;
    for (const corvane_test::LogRecord& record : in_logs.records()) {
        if (record.level == in_iLevel && record.logger == in_logger) out.push_back(record.message);
    }
    return out;
}

std::vector<std::string> oneOrNone(const std::string& in_prefix, const char* in_szText) {
    if (in_szText == nullptr) return {};
    return {in_prefix + in_szText};
}

// ------------------------------------------------------------ address rules

struct AddressCase {
    const char* name;
    std::vector<std::string> addresses;   // the namespace's IPv4 addresses, in interface order
    const char* configured;               // value of "corvane.net.primaryIPAddress", or null
    std::vector<std::string> noLoopback;  // getHostIPAddressNoLoopback
    const char* warned;                   // address named by the WARN message, or null for none
    const char* primary;                  // getPrimaryIPAddress, or null when it fails
    const char* primaryError;             // the ERROR message of a failing getPrimaryIPAddress
};

const std::vector<AddressCase>& addressCases() {
    static const std::vector<AddressCase> s_cases = {
        {"NoAddress", {}, nullptr, {}, nullptr, nullptr, "host has no ip address!"},
        {"OnlyLoopback", {"127.0.0.1"}, nullptr, {}, nullptr, "127.0.0.1", nullptr},
        {"OneAddress", {"10.1.2.3"}, nullptr, {"10.1.2.3"}, nullptr, "10.1.2.3", nullptr},
        {"LoopbackThenAddress", {"127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.3"}, nullptr, "10.1.2.3", nullptr},
        {"AddressThenLoopback", {"10.1.2.3", "127.0.0.1"}, nullptr, {"10.1.2.3"}, nullptr, "10.1.2.3", nullptr},
        {"TwoAddresses", {"10.1.2.3", "10.1.2.4"}, nullptr, {"10.1.2.3", "10.1.2.4"}, "10.1.2.3", nullptr,
         kTwoAddresses.c_str()},
        {"LoopbackAndTwoAddresses", {"127.0.0.1", "10.1.2.3", "10.1.2.4"}, nullptr, {"10.1.2.3", "10.1.2.4"},
         "10.1.2.3", nullptr, kMoreAddresses.c_str()},
        // Only the first loopback entry goes, wherever it is; three addresses
        // are too many even when one of them is the loopback address.
        {"AddressLoopbackAddress", {"10.1.2.4", "127.0.0.1", "10.1.2.3"}, nullptr, {"10.1.2.4", "10.1.2.3"},
         "10.1.2.4", nullptr, kMoreAddresses.c_str()},
        {"ThreeAddresses", {"10.1.2.3", "10.1.2.4", "10.1.2.5"}, nullptr, {"10.1.2.3", "10.1.2.4", "10.1.2.5"},
         "10.1.2.3", nullptr, kMoreAddresses.c_str()},
        // A configured value wins, even when it is no address of this host.
        {"ConfiguredForeignAddress", {"10.1.2.3", "10.1.2.4"}, "192.0.2.200", {"10.1.2.3", "10.1.2.4"},
         "10.1.2.3", "192.0.2.200", nullptr},
        {"ConfiguredOverSingleAddress", {"10.1.2.3"}, "10.9.9.9", {"10.1.2.3"}, nullptr, "10.9.9.9", nullptr},
        {"ConfiguredUnresolvable", {"127.0.0.1", "10.1.2.3"}, "no-such-host.invalid", {"10.1.2.3"}, nullptr,
         nullptr, "ACE_INET_Addr::set failed on no-such-host.invalid"},
    };
    return s_cases;
}

// One link per address in the order given (interface order is link order),
// the loopback link when 127.0.0.1 comes first. Each link also carries an
// IPv6 address, which the IPv4 list must leave out; peers stay down.
bool buildAddresses(NetNamespace& io_ns, const std::vector<std::string>& in_addresses) {
    for (size_t i = 0; i < in_addresses.size(); ++i) {
        const std::string& address = in_addresses[i];
        if (i == 0 && address == "127.0.0.1") {
            if (!io_ns.ip("link set lo up")) return false;
            continue;
        }
        const std::string link = "c" + std::to_string(i);
        const std::string prefix = address == "127.0.0.1" ? "/8" : "/24";
        if (!io_ns.ip("link add " + link + " type veth peer name p" + std::to_string(i)) ||
            !io_ns.ip("addr add " + address + prefix + " dev " + link) ||
            !io_ns.ip("addr add fd00::" + std::to_string(i + 1) + "/64 dev " + link + " nodad") ||
            !io_ns.ip("link set " + link + " up")) {
            return false;
        }
    }
    return true;
}

void checkAddressCase(const std::string& in_strName) {
    const AddressCase* pCase = corvane_test::findCase(addressCases(), in_strName);
    ASSERT_NE(pCase, nullptr) << in_strName;
    const AddressCase& c = *pCase;
    std::string hostname;
    ASSERT_TRUE(Tarvik::getHostname(hostname));
    LogCapture logs(Tarvik::DEBUG_LOG_LEVEL);
    AssertCapture asserts;
    if (c.configured != nullptr) {
        std::string error;
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue(kPrimaryParam, c.configured, error)) << error;
    }

    std::vector<ACE_INET_Addr> addresses(1);  // emptied by the call
    EXPECT_EQ(Tarvik::getHostIPAddress(nullptr, addresses), !c.addresses.empty());
    EXPECT_EQ(dotted(addresses), c.addresses);
    const std::vector<std::string> noneFound =
        c.addresses.empty() ? std::vector<std::string>{"No IP network interfaces found for host " + hostname}
                            : std::vector<std::string>{};
    EXPECT_EQ(messagesAt(logs, Tarvik::INFO_LOG_LEVEL, kHostLogger), noneFound);
    for (const ACE_INET_Addr& address : addresses) EXPECT_EQ(address.get_port_number(), 0);
    logs.clear();

    std::vector<ACE_INET_Addr> noLoopback;
    EXPECT_EQ(Tarvik::getHostIPAddressNoLoopback(nullptr, noLoopback), !c.addresses.empty());
    EXPECT_EQ(dotted(noLoopback), c.noLoopback);
    EXPECT_EQ(messagesAt(logs, Tarvik::WARN_LOG_LEVEL, kRtpLogger), oneOrNone(kWarnPrefix, c.warned));
    logs.clear();

    ACE_INET_Addr primary(static_cast<u_short>(9), static_cast<ACE_UINT32>(0xC0000209));  // 192.0.2.9:9
    EXPECT_EQ(Tarvik::getPrimaryIPAddress(primary), c.primary != nullptr);
    EXPECT_EQ(dotted(primary), c.primary != nullptr ? c.primary : "192.0.2.9");
    EXPECT_EQ(primary.get_port_number(), c.primary != nullptr ? 0 : 9);
    EXPECT_EQ(messagesAt(logs, Tarvik::ERROR_LOG_LEVEL, kHostLogger), oneOrNone("", c.primaryError));

    // The cached list is the same list, and stays the same object.
    const std::vector<ACE_INET_Addr>& cached = Tarvik::getHostIPAddress();
    EXPECT_EQ(dotted(cached), c.addresses);
    EXPECT_EQ(&cached, &Tarvik::getHostIPAddress());
    EXPECT_TRUE(asserts.texts().empty());
}

const corvane_test::NamespaceCheckRegistrar s_addressCheck("address", &checkAddressCase);

void PrintTo(const AddressCase& in_case, std::ostream* io_pOs) { *io_pOs << in_case.name; }

class HostAddressRules : public testing::TestWithParam<AddressCase> {};

TEST_P(HostAddressRules, HoldInANamespaceWithTheseInterfaces) {
    corvane_test::checkInNamespace("address", GetParam().name, [this](NetNamespace& io_ns, std::string&) {
        return buildAddresses(io_ns, GetParam().addresses);
    });
}

INSTANTIATE_TEST_SUITE_P(Cases, HostAddressRules, testing::ValuesIn(addressCases()),
                         [](const testing::TestParamInfo<AddressCase>& in_info) { return in_info.param.name; });

TEST(HostIPAddress, NonNullHostnameIsNotImplementedAndEmptiesTheList) {
    AssertCapture asserts;
    std::vector<ACE_INET_Addr> addresses(2);
    EXPECT_FALSE(Tarvik::getHostIPAddress("example.org", addresses));
    EXPECT_TRUE(addresses.empty());
    addresses.resize(1);
    EXPECT_FALSE(Tarvik::getHostIPAddressNoLoopback("example.org", addresses));
    EXPECT_TRUE(addresses.empty());
    const std::string text = "Not implemented : getHostIPAddress with a non-null hostname";
    EXPECT_EQ(asserts.texts(), (std::vector<std::string>{text, text}));
}

// ------------------------------------------------------------ names

// A UTS namespace of this thread's own, with a chosen host name; the
// original name comes back when it goes.
class HostnameOverride {
public:
    explicit HostnameOverride(const std::string& in_strName) {
        char original[256] = {};
        gethostname(original, sizeof(original) - 1);
        m_strOriginal = original;
        if (geteuid() != 0) {
            m_strError = "needs root to set a host name in a UTS namespace";
        } else if (unshare(CLONE_NEWUTS) != 0) {
            m_strError = std::string("unshare(CLONE_NEWUTS): ") + std::strerror(errno);
        } else if (sethostname(in_strName.c_str(), in_strName.size()) != 0) {
            m_strError = std::string("sethostname: ") + std::strerror(errno);
        } else {
            m_bActive = true;
        }
    }
    ~HostnameOverride() {
        if (m_bActive) sethostname(m_strOriginal.c_str(), m_strOriginal.size());
    }
    const std::string& error() const { return m_strError; }

private:
    std::string m_strOriginal;  // the name to give back
    std::string m_strError;     // why no name was set, empty when it was
    bool m_bActive = false;     // the chosen name is set
};

struct ResolverPathOverride {
    explicit ResolverPathOverride(const std::string& in_strPath) {
        Tarvik::Net::setResolverConfigPathForTest(in_strPath);
    }
    ~ResolverPathOverride() { Tarvik::Net::setResolverConfigPathForTest(""); }
};

struct FqdnCase {
    std::string label;
    std::string hostname;
    bool hasFile;             // false: the resolver configuration does not exist
    std::string resolvConf;   // its content
    std::string fqdn;         // getFqdnHostname
    std::string debug;        // the DEBUG message, empty for none
};

std::string noDomain(const std::string& in_strStatus, const std::string& in_strSize) {
    return "DnsQueryConfig() failed status=0x" + in_strStatus + " (size=" + in_strSize +
           ") - probably failing because localhost is not member of a domain";
}

TEST(HostName, FullyQualifiedNameJoinsTheHostNameAndTheResolverDomain) {
    const std::string longDomain(1100, 'd');  // 3 + 1 + 1100 + NUL = 0x451 bytes: more than 1024
    const std::vector<FqdnCase> cases = {
        {"domain line", "box", true, "nameserver 127.0.0.1\ndomain corvane.test\n", "box.corvane.test", ""},
        {"first search entry", "box", true, "search a.test b.test\n", "box.a.test", ""},
        {"name with a dot", "box.example.org", true, "domain corvane.test\n", "box.example.org", ""},
        {"name with a dot, no file", "box.example.org", false, "", "box.example.org", ""},
        {"no domain", "box", true, "nameserver 127.0.0.1\n", "box", noDomain("3d", "0")},
        {"no file", "box", false, "", "box", noDomain("2", "0")},
        {"name too long", "box", true, "domain " + longDomain + "\n", "box", noDomain("22", "451")},
    };
    for (const FqdnCase& c : cases) {
        SCOPED_TRACE(c.label);
        HostnameOverride name(c.hostname);
        if (!name.error().empty()) GTEST_SKIP() << name.error();
        TempFile file(c.resolvConf);
        ResolverPathOverride path(c.hasFile ? file.path() : TempFile::uniquePath());
        LogCapture logs(Tarvik::DEBUG_LOG_LEVEL);

        std::string hostname;
        EXPECT_TRUE(Tarvik::getHostname(hostname));
        EXPECT_EQ(hostname, c.hostname);
        std::string fqdn = "unchanged";
        EXPECT_TRUE(Tarvik::getFqdnHostname(fqdn));
        EXPECT_EQ(fqdn, c.fqdn);
        EXPECT_EQ(messagesAt(logs, Tarvik::DEBUG_LOG_LEVEL, kHostLogger),
                  c.debug.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.debug});
    }
}

}  // namespace
