// Choosing and configuring the DNS mode: the server list parameter, the
// host's own list, the primary domain, and what the DNS task must be.
#include <netdb.h>

#include "DnsMode.h"
#include "net/DNS.h"
#include "platform/AresReactorTask.h"
#include "support/AresChannel.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using corvane_test::DnsResponder;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

const char* const kParseFailure =
    "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList";
const char* const kNoHostList = "failed to retrieve this host's DNS servers";
// The condition text of the DNS task check, as the assertion reports it.
const char* const kTaskStartedElsewhere =
    R"("If this condition occurs, it means the " "AresReactorTask singleton was initialized in " )"
    R"("more than one place in the code. " "This is unsupported." && )"
    R"((aresTask.getTaskState() == Task::STOPPED_STATE))";

// The first address that a resolution of the name gives, or the status's name.
std::string firstAddress(const char* in_szName) {
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    if (!HostNameServer::getInstance().resolve(in_szName, h, status, ACE_Time_Value(5), false)) {
        return Hostent::getGetHostByNameStatusString(status);
    }
    return corvane_test::addressesOf(h).at(0);
}

class DnsConfigure : public corvane_test::DnsModeTest {};

TEST_F(DnsConfigure, ValuesThatNameNoUsableServerFailTheStart) {
    corvane_test::HostLookupHook hook;
    std::string tooMany;
    for (int i = 1; i <= 11; ++i) tooMany += "nameserver 10.0.0." + std::to_string(i) + "\n";
    const char* const kUnresolved = "failed to resolve hostname nowhere.test while configuring DNS from parameter "
                                    "corvane.net.HostNameServer.DNSServerIPAddrList : ";
    const struct {
        const char* value;
        std::string resolverConfig;  // "-": unreadable
        int hErrno;                  // of the operating system's resolver
        std::string logged;
    } rows[] = {
        {"", "", 0, kParseFailure},
        {",,", "", 0, kParseFailure},
        {"use-host-dns-list", "domain corvane.test\n# nameserver 10.0.0.1\n", 0, kParseFailure},
        {"use-host-dns-list", "nameserver ::1\n", 0, kParseFailure},
        {"use-host-dns-list", "-", 0, kNoHostList},
        {"use-host-dns-list", tooMany, 0, kNoHostList},
        {"nowhere.test", "", HOST_NOT_FOUND, kUnresolved + std::string("GHBN_HOST_NOT_FOUND")},
        {"nowhere.test", "", TRY_AGAIN, kUnresolved + std::string("GHBN_TRY_AGAIN")},
        {"nowhere.test", "", NO_DATA, kUnresolved + std::string("GHBN_NO_DATA")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value + (" " + row.logged));
        setResolverConfig(row.resolverConfig);
        hook.setFailure(row.hErrno);
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
    first.answer("who.test", dns::response("who.test", {dns::a(dns::pointer(12), "10.60.20.1", 60)}));
    first.answer("short.corvane.test",
                 dns::response("short.corvane.test", {dns::a(dns::pointer(12), "10.60.25.1", 60)}));
    second.answer("who.test", dns::response("who.test", {dns::a(dns::pointer(12), "10.60.21.1", 60)}));
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
        corvane_test::LogCapture log;
        startWith(row.value);
        EXPECT_EQ(log.count(std::string("DNS server list, primary first : ") + row.servers), 1u);
        EXPECT_EQ(log.contains(Tarvik::INFO_LOG_LEVEL, "Primary DNS domain name"), *row.domain != '\0');
        EXPECT_EQ(log.count(std::string("Primary DNS domain name : ") + row.domain), *row.domain ? 1u : 0u);
        EXPECT_EQ(log.count(kDomainUnread), *row.resolverConfig == '-' ? 1u : 0u);
        EXPECT_EQ(firstAddress("who.test"), row.who);
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
    const struct {
        const char* content;  // "-": unreadable
        const char* adapter;
        bool ok;
        Tarvik::StringVector servers;
    } rows[] = {
        {"nameserver 10.0.0.2\nnameserver 10.0.0.1\nnameserver ::1\nnameserver 10.0.0.3\n", nullptr, true,
         {"kept", "10.0.0.2", "10.0.0.1", "10.0.0.3"}},
        {"domain corvane.test\n", nullptr, true, {"kept"}},
        {"-", nullptr, false, {"kept"}},
        {"nameserver 10.0.0.1\n", "eth0", false, {"kept"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content);
        setResolverConfig(row.content);
        corvane_test::AssertCapture asserts;
        Tarvik::StringVector servers = {"kept"};
        EXPECT_EQ(Net::getAdapterDNSServers(servers, row.adapter), row.ok);
        EXPECT_EQ(servers, row.servers);
        const bool named = row.adapter != nullptr;
        EXPECT_EQ(asserts.contains("Not implemented : getAdapterDNSServers with in_szAdapterName != 0"), named);
    }
}

TEST_F(DnsConfigure, ChannelAndDnsTaskAreTheResolversOwn) {
    DnsResponder responder("127.53.62.26");
    startServer(responder);
    startWith(responder.address());
    {
        // A callback resolution is refused: the callback stays the caller's.
        corvane_test::AssertCapture asserts;
        corvane_test::Heard heard;
        corvane_test::Recorder callback(heard);
        EXPECT_FALSE(server().resolve("who.test", &callback, ACE_Time_Value(1), false));
        EXPECT_TRUE(asserts.contains("Not implemented : asynchronous DNS resolution using a callback"));
        EXPECT_EQ(heard.told(), 0);
    }
    ASSERT_TRUE(Net::forcedCloseLibrary());
    {
        corvane_test::AssertCapture asserts;
        EXPECT_FALSE(Net::initializeLibrary()) << "stopping keeps the channel";
        EXPECT_TRUE(asserts.contains("m_aresChannel == 0"));
    }
    restart();

    // A DNS task that runs at configuration fails the start.
    corvane_test::AresChannel channel(responder.address());
    Tarvik::AresReactorTask& task = Tarvik::AresReactorTask::getInstance();
    ASSERT_TRUE(task.setChannel(channel.get()));
    ASSERT_TRUE(task.start());
    {
        corvane_test::AssertCapture asserts;
        EXPECT_FALSE(Net::initializeLibrary());
        EXPECT_TRUE(asserts.contains(kTaskStartedElsewhere));
    }
    task.stop();
    task.waitUntilDone();
    task.setChannel(nullptr);
    EXPECT_EQ(responder.totalQueries(), 0);
}

TEST_F(DnsConfigure, DestroyedResolverTakesItsChannelAwayFromTheDnsTask) {
    set(kServersParam, "127.53.62.40");
    {
        HostNameServer resolver;
        ASSERT_TRUE(resolver.configure(Tarvik::GlobalConfig::getInstance().getConfig()));
        ASSERT_TRUE(resolver.start());
        ASSERT_TRUE(corvane_test::waitFor([&] { return resolver.getTaskState() == Tarvik::Task::RUNNING; }));
        ASSERT_EQ(Tarvik::AresReactorTask::getInstance().getTaskState(), Tarvik::Task::RUNNING);
    }
    EXPECT_EQ(Tarvik::AresReactorTask::getInstance().getTaskState(), Tarvik::Task::STOPPED_STATE);
    EXPECT_FALSE(Tarvik::AresReactorTask::getInstance().start()) << "no channel is left to start with";
}

}  // namespace
