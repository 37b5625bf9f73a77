// The resolver configuration file (one of the test's own, never the host's), the resolver in DNS mode against
// the scripted responder or fed answers directly, and the edges of the library's life. The resolver leaves DNS
// mode after every test.
#include <ares.h>

#include <tuple>
#include <cerrno>
#include <fstream>

#include "TempFile.h"
#include "net/DNS.h"
#include "net/ResolverConfig.h"
#include "net/StaticHostNameServer.h"
#include "platform/AresReactorTask.h"
#include "platform/SingletonRegistry.h"
#include "platform/Thread.h"
#include "support/AresChannel.h"
#include "support/BoundedWait.h"
#include "support/DnsResponder.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"
#include "support/Subprocess.h"

using namespace std::chrono_literals;
using corvane_test::addressesOf;
using corvane_test::DnsResponder;
using corvane_test::Heard;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

const char* const kDnsContainerAccount = "HostNameServer::DNSARecordWork:: CallbackContainer";
const char* const kDnsFutureAccount = "HostNameServer::DNSARecordWork:: FutureCallback";

class DnsModeTest : public corvane_test::LibraryTest {
protected:
    static constexpr const char* kServersParam = "corvane.net.HostNameServer.DNSServerIPAddrList";

    void SetUp() override { Net::setResolverConfigPathForTest(m_resolverConfig.path()); }
    void TearDown() override {
        Tarvik::setThreadCreationFaultForTest(nullptr);
        LibraryTest::TearDown();
        HostNameServerPeer::leaveDnsMode(server());
        Net::setResolverConfigPathForTest("");
    }
    // Replaces what the resolver configuration file says (a primary domain by default); "-": unreadable.
    void setResolverConfig(const std::string& in_strContent) {
        Net::setResolverConfigPathForTest(in_strContent == "-" ? corvane_test::TempFile::uniquePath()
                                                               : m_resolverConfig.path());
        std::ofstream(m_resolverConfig.path(), std::ios::binary | std::ios::trunc) << in_strContent;
    }
    // Starts the library with these DNS servers, in DNS mode.
    void startWith(const std::string& in_strServers) {
        set(kServersParam, in_strServers);
        ASSERT_TRUE(Net::initializeLibrary());
        ASSERT_TRUE(server().isDnsMode());
    }
    void restart() {
        Net::forcedCloseLibrary();
        HostNameServerPeer::leaveDnsMode(server());
    }
    static void startServer(DnsResponder& io_responder) {
        // Names without a script (the search domain's tries) hear NXDOMAIN.
        io_responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        ASSERT_TRUE(io_responder.start(&error)) << error;
    }

    corvane_test::TempFile m_resolverConfig{"domain corvane.test\n"};  // read instead of /etc/resolv.conf
};

const ACE_Time_Value kFiveSeconds(5);
const char* const kParseFailure =
    "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList";
const char* const kNoHostList = "failed to retrieve this host's DNS servers";

// The first address that a resolution of the name gives, or the status's name.
std::string firstAddress(const char* in_szName) {
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    if (!HostNameServer::getInstance().resolve(in_szName, h, status, kFiveSeconds, false)) {
        return Hostent::getGetHostByNameStatusString(status);
    }
    return addressesOf(h).at(0);
}

dns::Bytes answerCnameAA() {
    return dns::response("www.a.test", {dns::cname(dns::pointer(12), "edge.a.test", 300),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.2", 120),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.3", 45)});
}
dns::Bytes oneA(const char* name, const char* address, uint32_t ttl) {
    return dns::response(name, {dns::a(dns::pointer(12), address, ttl)});
}

std::string nameServers(int in_iFirst, int in_iCount) {
    std::string text;
    for (int i = in_iFirst; i < in_iFirst + in_iCount; ++i) text += "nameserver 10.0.0." + std::to_string(i) + "\n";
    return text;
}

TEST(ResolverConfig, ReadsServersInFileOrderAndThePrimaryDomain) {
    std::vector<std::string> ten;
    for (int i = 1; i <= 10; ++i) ten.push_back("10.0.0." + std::to_string(i));
    const std::string eleven = nameServers(1, 11);
    const struct {
        const char* label;
        std::string content;  // "-": no such file, "/": a folder
        std::vector<std::string> servers;
        std::string domain;
        bool tooMany = false;  // more servers were named than are kept
    } rows[] = {
        {"servers in order", "nameserver 10.0.0.3\nnameserver 10.0.0.1\n", {"10.0.0.3", "10.0.0.1"}, ""},
        {"an eleventh left out", eleven, ten, "", true},
        {"IPv6 servers not counted", "nameserver ::1\nnameserver fe80::1%eth0\n" + eleven, ten, "", true},
        {"malformed, short, with more on the line",
         "nameserver 10.0.0.999\nnameserver\nnameserver 10.0.0.1x\nnameserver 127.1 10.0.0.2 # primary\n",
         {"127.0.0.1"}, ""},
        {"comments, odd lines, tabs and CRLF",
         "# nameserver 10.0.0.1\n; nameserver 10.0.0.2\n  nameserver 10.0.0.3\nnameserver10.0.0.4\n"
         "nameservers 10.0.0.5\noptions ndots:2\ndomain\texample.org\r\nnameserver\t10.0.0.6",
         {"10.0.0.6"}, "example.org"},
        {"first search entry", "search a.example b.example\n", {}, "a.example"},
        {"last of domain and search lines", "search a.example\ndomain one.example\ndomain two.example.\n", {},
         "two.example"},
        {"root and empty domains are none", "domain .\nsearch a.example\ndomain   \n", {}, "a.example"},
        {"missing file", "-", {}, ""},
        {"a folder", "/", {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        corvane_test::TempFile file(row.content);
        const std::string path = row.content == "-" ? corvane_test::TempFile::uniquePath() : file.path();
        Tarvik::Net::setResolverConfigPathForTest(row.content == "/" ? testing::TempDir() : path);
        Tarvik::Net::ResolverConfig config;
        config.dnsServers = {"stale"};
        config.domain = "stale";
        errno = 0;
        const bool unreadable = row.content == "-" || row.content == "/";
        EXPECT_EQ(Tarvik::Net::readResolverConfig(config), !unreadable);
        EXPECT_EQ(unreadable ? errno : 0, row.content == "-" ? ENOENT : unreadable ? EISDIR : 0);
        EXPECT_EQ(config.dnsServers, row.servers);
        EXPECT_EQ(config.domain, row.domain);
        EXPECT_EQ(config.bTooManyServers, row.tooMany);
    }
    Tarvik::Net::setResolverConfigPathForTest("");
}

class DnsConfigure : public DnsModeTest {};

TEST_F(DnsConfigure, ValuesThatNameNoUsableServerFailTheStart) {
    corvane_test::HostLookupHook hook;
    const struct {
        const char* value;
        std::string resolverConfig;  // "-": unreadable
        std::string logged;
    } rows[] = {
        {"", "", kParseFailure},
        {"use-host-dns-list", "domain corvane.test\n# nameserver 10.0.0.1\nnameserver ::1\n", kParseFailure},
        {"use-host-dns-list", "-", kNoHostList},
        {"use-host-dns-list", nameServers(1, 11), kNoHostList},
        {"nowhere.test", "",  // the hook knows no such name
         "failed to resolve hostname nowhere.test while configuring DNS from parameter "
         "corvane.net.HostNameServer.DNSServerIPAddrList : GHBN_HOST_NOT_FOUND"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value + (" " + row.logged));
        setResolverConfig(row.resolverConfig);
        set(kServersParam, row.value);
        corvane_test::LogCapture log;
        EXPECT_FALSE(Net::initializeLibrary());
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.logged));
        EXPECT_FALSE(server().isDnsMode());
    }
}

TEST_F(DnsConfigure, ServersAreAskedPrimaryFirstAndShortNamesInThePrimaryDomain) {
    DnsResponder first("127.53.62.20");
    DnsResponder second("127.53.62.21");
    first.answer("who.test", oneA("who.test", "10.60.20.1", 60));
    first.answer("short.corvane.test", oneA("short.corvane.test", "10.60.25.1", 60));
    second.answer("who.test", oneA("who.test", "10.60.21.1", 60));
    startServer(first);
    startServer(second);
    const char* const kDomainUnread = "HostNameServer::configureCAres : call to GetNetworkParams() failed\n";
    const struct {
        const char* value;
        const char* resolverConfig;  // "-": unreadable
        const char* servers;         // as logged
        const char* domain;          // as logged, "" for none
        const char* who;             // what who.test resolves to
        const char* shortName;       // what "short" resolves to
    } rows[] = {
        {"127.53.62.20,127.53.62.21", "domain corvane.test\n", "127.53.62.20 127.53.62.21", "corvane.test",
         "10.60.20.1", "10.60.25.1"},
        {"127.53.62.21,127.53.62.20", "nameserver 10.0.0.1\n", "127.53.62.21 127.53.62.20", "", "10.60.21.1",
         "GHBN_OTHER_ERROR"},
        {"use-host-dns-list", "nameserver 127.53.62.21\nnameserver 127.53.62.20\n", "127.53.62.21 127.53.62.20", "",
         "10.60.21.1", "GHBN_OTHER_ERROR"},
        {"127.53.62.20", "-", "127.53.62.20", "", "10.60.20.1", "GHBN_OTHER_ERROR"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        setResolverConfig(row.resolverConfig);
        corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
        startWith(row.value);
        EXPECT_EQ(log.count(std::string("DNS server list, primary first : ") + row.servers), 1u);
        EXPECT_EQ(log.count(std::string("Primary DNS domain name : ") + row.domain), *row.domain ? 1u : 0u);
        EXPECT_EQ(log.count(kDomainUnread), *row.resolverConfig == '-' ? 1u : 0u);
        EXPECT_EQ(firstAddress("who.test"), row.who);
        EXPECT_EQ(log.count("HostNameServer::getDNSARecords : hostname=who.test timeout=5000ms"), 1u);
        EXPECT_EQ(log.count("ENTER HostNameServer::getDNSARecords"), 1u);
        EXPECT_EQ(firstAddress("short"), row.shortName);
        restart();
    }
    EXPECT_EQ(first.queryCount("who.test"), 2);
    EXPECT_EQ(second.queryCount("who.test"), 2);

    // A host name entry is resolved once, through the operating system, at configuration.
    corvane_test::HostLookupHook hook;
    corvane_test::LogCapture log;
    startWith("localhost");
    EXPECT_EQ(hook.lookups(), 1);
    EXPECT_EQ(log.count("DNS server list, primary first : localhost"), 1u);
}

TEST_F(DnsConfigure, HostDnsServersAreAppendedPrimaryFirst) {
    setResolverConfig("nameserver 10.0.0.2\nnameserver ::1\nnameserver 10.0.0.1\n");
    corvane_test::LogCapture asserts;
    Tarvik::StringVector servers = {"kept"};
    EXPECT_FALSE(Net::getAdapterDNSServers(servers, "eth0"));
    EXPECT_TRUE(asserts.asserted("Not implemented : getAdapterDNSServers with in_szAdapterName != 0"));
    EXPECT_TRUE(Net::getAdapterDNSServers(servers, nullptr));
    EXPECT_EQ(servers, (Tarvik::StringVector{"kept", "10.0.0.2", "10.0.0.1"}));
}

TEST_F(DnsConfigure, ChannelAndDnsTaskAreTheResolversOwnAndGoWithIt) {
    DnsResponder responder("127.53.62.26");
    startServer(responder);
    startWith(responder.address());
    {
        // A callback resolution is refused: the callback stays the caller's.
        corvane_test::LogCapture asserts;
        Heard heard;
        corvane_test::Recorder callback(heard);
        EXPECT_FALSE(server().resolve("who.test", &callback, ACE_Time_Value(1), false));
        EXPECT_TRUE(asserts.asserted("Not implemented : asynchronous DNS resolution using a callback"));
        EXPECT_EQ(heard.told(), 0);
    }
    ASSERT_TRUE(Net::forcedCloseLibrary());
    {
        corvane_test::LogCapture asserts;
        EXPECT_FALSE(Net::initializeLibrary()) << "stopping keeps the channel";
        EXPECT_TRUE(asserts.asserted("m_aresChannel == 0"));
    }
    restart();

    // A DNS task that runs at configuration fails the start.
    corvane_test::AresChannel channel(responder.address());
    Tarvik::AresReactorTask& task = Tarvik::AresReactorTask::getInstance();
    ASSERT_TRUE(task.setChannel(channel.get()));
    ASSERT_TRUE(task.start());
    {
        corvane_test::LogCapture asserts;
        EXPECT_FALSE(Net::initializeLibrary());
        // The condition text of the DNS task check, as the assertion reports it.
        EXPECT_TRUE(asserts.asserted(
            R"("If this condition occurs, it means the " "AresReactorTask singleton was initialized in " )"
            R"("more than one place in the code. " "This is unsupported." && )"
            R"((aresTask.getTaskState() == Task::STOPPED_STATE))"));
    }
    task.stop();
    task.waitUntilDone();
    task.setChannel(nullptr);
    EXPECT_EQ(responder.totalQueries(), 0);
}

class DnsResolve : public DnsModeTest {};

TEST_F(DnsResolve, QueriesThatTimeOutFailOrAreCutShortByACloseAnswerEveryCallerOnce) {
    DnsResponder responder("127.53.62.5");
    responder.answerLate("late.test", oneA("late.test", "10.60.5.1", 60), 300ms);  // after its caller gave up
    startServer(responder);
    responder.setDefault({});  // nobody else is ever answered
    set("corvane.net.HostNameServer.numThread", "2");
    startWith(responder.address());
    const std::string tooLong(300, 'x');
    const struct {
        const char* name;
        ACE_Time_Value timeout;
        Hostent::GetHostByNameStatus status;
    } rows[] = {
        {"silent.test", ACE_Time_Value(0, 200000), Hostent::GHBN_TIMEOUT},
        {"late.test", ACE_Time_Value(0, 50000), Hostent::GHBN_TIMEOUT},
        {nullptr, kFiveSeconds, Hostent::GHBN_OTHER_ERROR},  // names that cannot be asked
        {tooLong.c_str(), kFiveSeconds, Hostent::GHBN_OTHER_ERROR},
        {"10.60.9.9:5060", kFiveSeconds, Hostent::GHBN_OTHER_ERROR},  // a literal that inet_aton refuses
    };
    for (const auto& row : rows) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(server().resolve(row.name, h, status, row.timeout, true));
        EXPECT_EQ(status, row.status) << (row.name ? row.name : "null");
        EXPECT_FALSE(h.isValid());
    }
    // Callers that wait on queries in flight are woken by the close, with a failure, not by their time-out.
    std::vector<Hostent::GetHostByNameStatus> statuses(3, Hostent::GHBN_SUCCESS);
    std::vector<std::thread> callers;
    for (size_t c = 0; c < statuses.size(); ++c) {
        callers.emplace_back([c, &statuses] {
            Hostent out;
            server().resolve(("wait" + std::to_string(c) + ".test").c_str(), out, statuses[c], ACE_Time_Value(60),
                             false);
        });
        EXPECT_TRUE(responder.waitForQueries("wait" + std::to_string(c) + ".test", 1, 10s));
    }
    EXPECT_TRUE(Net::forcedCloseLibrary());
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(statuses, std::vector<Hostent::GetHostByNameStatus>(3, Hostent::GHBN_OTHER_ERROR));
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained("HostNameServer::DNSARecordWork"));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

void deliver(Heard& out_heard, const std::string& name, int status, const dns::Bytes& answer,
             bool useCache = false) {
    HostNameServerPeer::dnsAnswer(HostNameServer::getInstance(), name, new corvane_test::Recorder(out_heard),
                                  useCache, status, answer);
}

class DnsAnswer : public DnsModeTest {};

// The outcome is cached under the requested name, whatever name the answer gives.
TEST_F(DnsAnswer, AnswerGivesItsAddressesInOrderWithTheLastRecordsTtlOrAFailure) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    set("corvane.net.HostNameServer.cacheFailures", "true");
    ASSERT_TRUE(Net::initializeLibrary());
    dns::Bytes nxdomain = dns::response("a.test", {}, dns::RCODE_NXDOMAIN);
    nxdomain[0] = 0x12;  // id 4660
    nxdomain[1] = 0x34;
    const dns::Bytes one = oneA("a.test", "10.0.0.1", 60);  // records point at the question's name (offset 12)
    const auto ok = Hostent::GHBN_SUCCESS;
    const auto other = Hostent::GHBN_OTHER_ERROR;
    const std::string callback = "HostNameServer::DNSARecordWork::aresCallback : ";
    const struct {
        const char* label;
        int aresStatus;
        dns::Bytes answer;
        Hostent::GetHostByNameStatus status;  // GHBN_TIMEOUT: the client hears of a time-out
        std::vector<std::string> addresses;
        ACE_Time_Value ttl;
        const char* toldName;
        std::string logged;  // "" for none
    } rows[] = {
        {"one A", ARES_SUCCESS, one, ok, {"10.0.0.1"}, ACE_Time_Value(60), "a.test",
         callback + "strQuestion=a.test IN A"},
        {"CNAME, A, A: the last TTL", ARES_SUCCESS, answerCnameAA(), ok, {"10.0.0.2", "10.0.0.3"},
         ACE_Time_Value(45), "a.test", callback + "strHostName=www.a.test, pCallback->m_strHostname=a.test"},
        {"only a CNAME and a TXT", ARES_SUCCESS,
         dns::response("a.test", {dns::cname(dns::pointer(12), "b.test", 30),
                                  dns::record(dns::pointer(12), dns::TYPE_TXT, 77, {2, 'h', 'i'})}),
         ok, {}, ACE_Time_Value(77), "a.test", ""},
        // 2,147,484 s is 2,147,484,000 ms: past INT32_MAX, it wraps to -2,147,483,296 ms.
        {"TTL that wraps", ARES_SUCCESS, oneA("a.test", "10.0.0.7", 2147484), ok, {"10.0.0.7"},
         ACE_Time_Value(-2147483, -296000), "a.test", ""},
        {"no question", ARES_SUCCESS,
         dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 0, 1), dns::a(dns::name("x.test"), "10.0.0.9", 5)}), ok,
         {"10.0.0.9"}, ACE_Time_Value(5), "a.test", callback + "strHostName=, pCallback->m_strHostname=a.test"},
        {"A record of 5 bytes", ARES_SUCCESS,
         dns::response("a.test", {dns::a(dns::pointer(12), "10.0.0.1", 60),
                                  dns::record(dns::pointer(12), dns::TYPE_A, 60, dns::Bytes(5, 7))}),
         other, {"10.0.0.1"}, ACE_Time_Value::zero, "???hostname???", "aresCallback : aptr == 0"},
        {"no data", ARES_ENODATA, one, Hostent::GHBN_NO_ADDRESS, {}, ACE_Time_Value::zero, "a.test", ""},
        {"not found", ARES_ENOTFOUND, nxdomain, other, {}, ACE_Time_Value::zero, "a.test",
         callback + "id=4660, opcode=QUERY, rcode=NXDOMAIN"},
        {"time-out with an answer", ARES_ETIMEOUT, one, Hostent::GHBN_TIMEOUT, {}, {}, "a.test", ""},
        // Without a whole header the length check comes first, whatever the status.
        {"time-out without answer", ARES_ETIMEOUT, dns::Bytes(11, 0), other, {}, ACE_Time_Value::zero, "a.test",
         callback + "alen < HFIXEDSZ. Possible cause : c-ares failed to build the DNS query. alen=11, HFIXEDSZ=12"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        corvane_test::LogCapture log;
        Heard heard;
        deliver(heard, "a.test", row.aresStatus, row.answer, true);
        const bool timedOut = row.status == Hostent::GHBN_TIMEOUT;
        EXPECT_EQ(heard.timeouts.load(), timedOut ? 1 : 0);
        EXPECT_EQ(heard.told() + heard.destroyed, 2);
        EXPECT_EQ(heard.name, row.toldName);
        EXPECT_EQ(heard.status, timedOut ? Hostent::GHBN_OTHER_ERROR : row.status);  // as the recorder began
        EXPECT_EQ(heard.addresses, row.addresses);
        EXPECT_EQ(heard.ttl, row.ttl);
        EXPECT_EQ(heard.recordName, row.aresStatus == ARES_ETIMEOUT ? "" : "a.test");
        EXPECT_EQ(log.count(row.logged), row.logged.empty() ? 0u : 1u);
        const bool failed = row.status != ok;  // a success without an address is not cached
        EXPECT_EQ(log.count("HostNameServer::cacheFailure : cached failure of a.test"), failed ? 1u : 0u);
        EXPECT_EQ(log.contains(Tarvik::DEBUG_LOG_LEVEL, "HostNameServer::cacheSuccess : cached HOSTNAME : a.test\n"),
                  !failed && !row.addresses.empty());
    }
    EXPECT_EQ(live(kDnsContainerAccount), 0);
}

TEST_F(DnsAnswer, EveryTruncationOrCorruptionGivesExactlyOneFailure) {
    // Offsets in answerCnameAA(): header 0-11 (question count 4-5, answer count 6-7), question 12-27,
    // CNAME from 28: owner pointer 28-29, data length 38-39.
    const dns::Bytes good = answerCnameAA();
    std::vector<dns::Bytes> rows;
    for (size_t length = 0; length < good.size(); ++length) rows.emplace_back(good.begin(), good.begin() + length);
    // One answer more than there are, most questions, CNAME data too long, pointers to themselves.
    for (const auto& [offset, first, second] : {std::tuple<size_t, uint8_t, uint8_t>{6, 0, 4}, {4, 0xff, 0xff},
                                                {38, 0xff, 0xff}, {28, 0xc0, 28}, {12, 0xc0, 12}}) {
        rows.push_back(good);
        rows.back().at(offset) = first;
        rows.back().at(offset + 1) = second;
    }
    for (const dns::Bytes& answer : rows) {
        SCOPED_TRACE(::testing::PrintToString(answer));
        Heard heard;
        deliver(heard, "www.a.test", ARES_SUCCESS, answer);
        EXPECT_EQ(heard.results + heard.destroyed, 2);
        EXPECT_EQ(heard.status, Hostent::GHBN_OTHER_ERROR);
    }
}

class Lifecycle : public DnsModeTest {
protected:
    static bool resolves() {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
        return server().resolve("127.0.0.1", h, status, ACE_Time_Value(2), false);
    }
};

TEST_F(Lifecycle, StartRightAfterACloseThatDidNotWaitSucceeds) {
    set("corvane.net.HostNameServer.numThread", "3");
    corvane_test::HostLookupHook hook;
    hook.setDelay(100ms);
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        ASSERT_TRUE(Net::initializeLibrary());
        // A lookup still runs on a pool thread when the close returns.
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(server().resolve("localhost", h, status, ACE_Time_Value::zero, false));
        ASSERT_TRUE(corvane_test::waitFor([&] { return hook.lookups() > round; }));
        EXPECT_TRUE(Net::closeLibrary());
        EXPECT_TRUE(log.records().empty());
    }
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_TRUE(resolves());
}

TEST_F(Lifecycle, StartThatFailsHalfWayIsUndoneAndTheNextStartSucceeds) {
    corvane_test::DnsResponder responder("127.53.72.1");
    startServer(responder);
    // Creation order of a start: the timer thread, the pool's threads, then
    // (from a pool thread's entry) the DNS task's loop thread.
    const struct {
        const char* label;
        const char* threads;
        bool dnsMode;
        int refused;  // the creation refused, 1-based; a negative one is only slow
        const char* logged;
    } rows[] = {
        {"timer thread", "1", false, 1, "cannot make the timer thread"},
        {"only pool thread", "1", false, 2, "cannot make a thread (1 missing)"},
        {"first of three pool threads", "3", false, 2, "cannot make a thread (3 missing)"},
        {"DNS task's thread", "1", true, 3, "cannot make the loop thread"},
        // Made slowly, the DNS task is not ready within the start's ten polls.
        {"DNS task too slow", "1", true, -3, "failed to initialize Net library. Failed to start HostNameServer"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        set("corvane.net.HostNameServer.numThread", row.threads);
        if (row.dnsMode) set(kServersParam, responder.address());
        auto pCount = std::make_shared<std::atomic<int>>(0);
        Tarvik::setThreadCreationFaultForTest([pCount, &row] {
            if (++*pCount == -row.refused) std::this_thread::sleep_for(800ms);
            return *pCount == row.refused;
        });
        corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        EXPECT_FALSE(Net::initializeLibrary());
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.logged));
        EXPECT_EQ(log.contains(Tarvik::ERROR_LOG_LEVEL, "Failed to start HostNameServer"), row.dnsMode);
        EXPECT_EQ(server().getTaskState(), Tarvik::Task::STOPPED_STATE);
        EXPECT_EQ(Tarvik::AresReactorTask::getInstance().getTaskState(), Tarvik::Task::STOPPED_STATE);
        EXPECT_FALSE(resolves());
        Tarvik::setThreadCreationFaultForTest(nullptr);
        restart();
        ASSERT_TRUE(Net::initializeLibrary());
        EXPECT_TRUE(resolves());
        restart();
    }
}

TEST_F(Lifecycle, DnsTimeOutWithAnAnswerLeavesTheCallerToItsOwnDeadline) {
    ASSERT_TRUE(Net::initializeLibrary());
    const dns::Bytes answer = oneA("slow.test", "10.0.0.1", 60);
    for (const ACE_Time_Value& timeout : {ACE_Time_Value(0, 200000), ACE_Time_Value::max_time}) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(HostNameServerPeer::resolveWithDnsAnswer(server(), "slow.test", ARES_ETIMEOUT, answer, h, status,
                                                              timeout));
        EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    }
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

TEST_F(Lifecycle, ConfigurationRacesNoAnswerOfAnEarlierRun) {
    set(HostNameServer::getCacheSuccessParamName(), "true");
    set(HostNameServer::getCacheFlushTimeoutMsParamName(), "5000");
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
    ASSERT_TRUE(h.getHostByName("10.0.0.1", status));
    std::atomic<bool> done{false};
    std::thread answers([&] {
        for (int i = 0; i < 2000 && !done; ++i) {
            HostNameServerPeer::updateCache(server(), "n" + std::to_string(i % 50), h, Hostent::GHBN_SUCCESS,
                                            ACE_Time_Value::zero);
        }
    });
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(server().configure(Tarvik::GlobalConfig::getInstance().getConfig()));
    done = true;
    answers.join();
}

TEST_F(Lifecycle, ResolverIsOneObjectOnEveryThreadAndIsMadeAgainAfterTheRegistryTornItDown) {
    HostNameServer* pOther = nullptr;
    std::thread([&pOther] { pOther = &server(); }).join();
    EXPECT_EQ(pOther, &server());
    EXPECT_EQ(live("StaticHostNameServer"), 1);

    Tarvik::SingletonRegistry::getInstance().teardown();
    EXPECT_EQ(Tarvik::SingletonRegistry::getInstance().find("StaticHostNameServer"),
              static_cast<void*>(static_cast<Tarvik::StaticHostNameServer*>(&server())));
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_TRUE(resolves());
}

// The child of the exit test: queries in flight in DNS mode, a close that does
// not wait, and the process ends at once. Runs only when the parent asks.
TEST_F(Lifecycle, ExitChildClosesWithQueriesInFlight) {
    const char* szServer = std::getenv("CORVANE_EXIT_CHILD_SERVER");
    if (szServer == nullptr) GTEST_SKIP() << "run by ExitAfterCloseInDnsModeWithQueriesInFlight";
    // A server that never answers: every query stays in flight. It lives until the process ends.
    auto* pSilent = new corvane_test::DnsResponder(szServer);
    pSilent->setDefault({});
    if (!pSilent->start()) std::_Exit(4);
    set(kServersParam, szServer);
    set("corvane.net.HostNameServer.numThread", "3");
    if (!Net::initializeLibrary()) std::_Exit(3);
    for (int i = 0; i < 6; ++i) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        server().resolve(("q" + std::to_string(i) + ".test").c_str(), h, status, ACE_Time_Value(0, 1000), false);
    }
    Net::closeLibrary();
    std::remove(m_resolverConfig.path().c_str());  // no destructor of this test runs past exit
    std::exit(0);  // the singletons are torn down while the resolver's threads end
}

TEST_F(Lifecycle, ExitAfterCloseInDnsModeWithQueriesInFlight) {
    for (int run = 0; run < 3; ++run) {
        const corvane_test::SubprocessResult result = corvane_test::runSubprocess(
            {corvane_test::selfExecutable(), "--gtest_filter=Lifecycle.ExitChildClosesWithQueriesInFlight"},
            {{"CORVANE_EXIT_CHILD_SERVER", "127.53.72.2"}}, 30000);
        ASSERT_EQ(result.status, 0) << "run " << run << ":\n" << result.out << result.err;
    }
}

}  // namespace
