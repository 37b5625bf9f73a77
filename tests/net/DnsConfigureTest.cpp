// Choosing and configuring the DNS mode: the server list parameter, the
// host's own list, the primary domain, and what the DNS task must be.
#include <netdb.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DnsMode.h"
#include "net/DNS.h"
#include "platform/AresReactorTask.h"
#include "platform/Thread.h"
#include "support/AresChannel.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::DnsResponder;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

const char* const kParseFailure =
    "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList";
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
    std::string address;
    h.getAddress(0, address);
    return address;
}

// Answers "who.test" with an address of its own.
void answerWho(DnsResponder& io_responder, const std::string& in_address) {
    io_responder.answer("who.test", dns::response("who.test", {dns::a(dns::pointer(12), in_address, 60)}));
}

class DnsConfigure : public corvane_test::DnsModeTest {};

}  // namespace

TEST_F(DnsConfigure, WithoutTheParameterTheOperatingSystemResolves) {
    corvane_test::LogCapture log;
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_FALSE(server().isDnsMode());
    EXPECT_EQ(firstAddress("localhost"), "127.0.0.1");
    EXPECT_FALSE(log.contains(Tarvik::INFO_LOG_LEVEL, "DNS server list"));
}

TEST_F(DnsConfigure, ServersAreAskedPrimaryFirst) {
    DnsResponder first("127.53.60.20");
    DnsResponder second("127.53.60.21");
    answerWho(first, "10.60.20.1");
    answerWho(second, "10.60.21.1");
    startServer(first);
    startServer(second);
    const struct {
        const char* value;
        const char* logged;
        const char* address;
    } rows[] = {
        {"127.53.60.20,127.53.60.21", "DNS server list, primary first : 127.53.60.20 127.53.60.21", "10.60.20.1"},
        {"127.53.60.21,127.53.60.20", "DNS server list, primary first : 127.53.60.21 127.53.60.20", "10.60.21.1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        corvane_test::LogCapture log;
        startWith(row.value);
        EXPECT_EQ(log.count(row.logged), 1u);
        EXPECT_EQ(firstAddress("who.test"), row.address);
        restart();
    }
    EXPECT_EQ(first.queryCount("who.test"), 1);
    EXPECT_EQ(second.queryCount("who.test"), 1);
}

TEST_F(DnsConfigure, HostNameEntryIsResolvedThroughTheOperatingSystemWhenConfigured) {
    corvane_test::HostLookupHook hook;
    corvane_test::LogCapture log;
    startWith("localhost");
    EXPECT_EQ(hook.lookups(), 1);
    EXPECT_EQ(log.count("DNS server list, primary first : localhost"), 1u);

    // Its address is the server asked, when a test may serve it.
    DnsResponder responder("127.0.0.1");
    answerWho(responder, "10.60.22.1");
    std::string error;
    if (!responder.start(&error)) GTEST_SKIP() << "cannot serve 127.0.0.1:53 : " << error;
    EXPECT_EQ(firstAddress("who.test"), "10.60.22.1");
    EXPECT_EQ(hook.lookups(), 1) << "resolved once, at configuration";
}

TEST_F(DnsConfigure, ValuesThatNameNoServerFailTheStart) {
    const struct {
        const char* label;
        const char* value;
        std::string resolverConfig;
        const char* logged;
    } rows[] = {
        {"empty", "", "", kParseFailure},
        {"separators only", ",,", "", kParseFailure},
        {"host list without servers", "use-host-dns-list", "domain corvane.test\n# nameserver 10.0.0.1\n", kParseFailure},
        {"host list with IPv6 servers only", "use-host-dns-list", "nameserver ::1\n", kParseFailure},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        setResolverConfig(row.resolverConfig);
        set(kServersParam, row.value);
        corvane_test::LogCapture log;
        EXPECT_FALSE(Net::initializeLibrary());
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.logged));
        EXPECT_FALSE(server().isDnsMode());
        EXPECT_FALSE(log.contains(Tarvik::INFO_LOG_LEVEL, "DNS server list"));
    }
}

TEST_F(DnsConfigure, UnreadableHostListFailsTheStart) {
    Net::setResolverConfigPathForTest(corvane_test::TempFile::uniquePath());
    set(kServersParam, "use-host-dns-list");
    corvane_test::LogCapture log;
    EXPECT_FALSE(Net::initializeLibrary());
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "failed to retrieve this host's DNS servers"));
    EXPECT_FALSE(server().isDnsMode());
}

TEST_F(DnsConfigure, HostListIsUsedPrimaryFirst) {
    DnsResponder primary("127.53.60.23");
    answerWho(primary, "10.60.23.1");
    startServer(primary);
    setResolverConfig("nameserver 127.53.60.23\nnameserver 127.53.60.24\ndomain corvane.test\n");
    corvane_test::LogCapture log;
    startWith("use-host-dns-list");
    EXPECT_EQ(log.count("DNS server list, primary first : 127.53.60.23 127.53.60.24"), 1u);
    EXPECT_EQ(firstAddress("who.test"), "10.60.23.1");
}

TEST_F(DnsConfigure, EntryThatDoesNotResolveFailsTheStartWithItsStatus) {
    corvane_test::HostLookupHook hook;
    const struct {
        int hErrno;
        const char* status;
    } rows[] = {{HOST_NOT_FOUND, "GHBN_HOST_NOT_FOUND"}, {TRY_AGAIN, "GHBN_TRY_AGAIN"}, {NO_DATA, "GHBN_NO_DATA"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        hook.setFailure(row.hErrno);
        set(kServersParam, "nowhere.test");
        corvane_test::LogCapture log;
        EXPECT_FALSE(Net::initializeLibrary());
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL,
                                 std::string("failed to resolve hostname nowhere.test while configuring DNS from "
                                             "parameter corvane.net.HostNameServer.DNSServerIPAddrList : ") +
                                     row.status));
        EXPECT_FALSE(server().isDnsMode());
    }
}

TEST_F(DnsConfigure, PrimaryDomainComesFromTheResolverConfiguration) {
    DnsResponder responder("127.53.60.25");
    // A name without a dot is searched in the primary domain first.
    responder.answer("short.corvane.test",
                     dns::response("short.corvane.test", {dns::a(dns::pointer(12), "10.60.25.1", 60)}));
    startServer(responder);
    corvane_test::LogCapture log;
    startWith(responder.address());
    EXPECT_EQ(log.count("Primary DNS domain name : corvane.test"), 1u);
    EXPECT_EQ(firstAddress("short"), "10.60.25.1");

    const struct {
        const char* label;
        bool readable;
        const char* content;
        bool failureLogged;
    } rows[] = {{"no domain", true, "nameserver 10.0.0.1\n", false}, {"unreadable", false, "", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        restart();
        setResolverConfig(row.content);
        if (!row.readable) Net::setResolverConfigPathForTest(corvane_test::TempFile::uniquePath());
        log.clear();
        startWith(responder.address());
        EXPECT_FALSE(log.contains(Tarvik::INFO_LOG_LEVEL, "Primary DNS domain name"));
        EXPECT_EQ(log.count("HostNameServer::configureCAres : call to GetNetworkParams() failed\n"),
                  row.failureLogged ? 1u : 0u);
        Net::setResolverConfigPathForTest(resolverConfigPath());
    }
}

TEST_F(DnsConfigure, SecondConfigurationInDnsModeFailsOnTheExistingChannel) {
    DnsResponder responder("127.53.60.26");
    startServer(responder);
    startWith(responder.address());
    ASSERT_TRUE(Net::forcedCloseLibrary());
    corvane_test::AssertCapture asserts;
    EXPECT_FALSE(Net::initializeLibrary()) << "stopping keeps the channel";
    EXPECT_TRUE(asserts.contains("m_aresChannel == 0"));
}

TEST_F(DnsConfigure, DnsTaskRunningAtConfigurationFailsTheStart) {
    DnsResponder responder("127.53.60.27");
    startServer(responder);
    corvane_test::AresChannel channel(responder.address());
    Tarvik::AresReactorTask& task = Tarvik::AresReactorTask::getInstance();
    ASSERT_TRUE(task.setChannel(channel.get()));
    ASSERT_TRUE(task.start());
    set(kServersParam, responder.address());
    corvane_test::AssertCapture asserts;
    EXPECT_FALSE(Net::initializeLibrary());
    EXPECT_TRUE(asserts.contains(kTaskStartedElsewhere));
    task.stop();
    task.waitUntilDone();
    task.setChannel(nullptr);
}

TEST_F(DnsConfigure, DnsTaskStartedElsewhereAfterConfigurationStopsTheResolver) {
    DnsResponder responder("127.53.60.28");
    startServer(responder);
    set(kServersParam, responder.address());
    set("corvane.net.HostNameServer.numThread", "1");
    Tarvik::AresReactorTask& task = Tarvik::AresReactorTask::getInstance();
    corvane_test::LogCapture log;
    corvane_test::AssertCapture asserts;
    // Threads of a start: the timer thread, then the pool thread, whose entry
    // starts the DNS task. Just before the pool thread, someone else starts it.
    auto pCount = std::make_shared<std::atomic<int>>(0);
    Tarvik::setThreadCreationFaultForTest([pCount, &task] {
        if (++*pCount == 2) {
            EXPECT_TRUE(task.start());
        }
        return false;
    });
    EXPECT_FALSE(Net::initializeLibrary());
    Tarvik::setThreadCreationFaultForTest(nullptr);
    EXPECT_TRUE(asserts.contains(kTaskStartedElsewhere));
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "failed to initialize Net library. Failed to start HostNameServer"));
    EXPECT_EQ(server().getTaskState(), Tarvik::Task::STOPPED_STATE);
    // The resolver did not start the task, so it leaves it to whoever did.
    EXPECT_EQ(task.getTaskState(), Tarvik::Task::RUNNING);
    task.stop();
    task.waitUntilDone();
}

TEST_F(DnsConfigure, CallbackResolutionIsRefusedInDnsMode) {
    struct Untold : HostNameServer::GetHostByNameCallback {
        bool onGhbnTimeout(const char*) override { return told = true; }
        bool onGhbnResult(const char*, const Hostent&, Hostent::GetHostByNameStatus, ACE_Time_Value) override {
            return told = true;
        }
        bool told = false;
    };
    DnsResponder responder("127.53.60.29");
    startServer(responder);
    startWith(responder.address());
    corvane_test::AssertCapture asserts;
    Untold callback;  // refused: it stays the caller's
    EXPECT_FALSE(server().resolve("who.test", &callback, ACE_Time_Value(1), false));
    EXPECT_TRUE(asserts.contains("Not implemented : asynchronous DNS resolution using a callback"));
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(callback.told);
    EXPECT_EQ(responder.totalQueries(), 0);
}

TEST_F(DnsConfigure, HostDnsServersAreAppendedPrimaryFirst) {
    Tarvik::StringVector servers = {"kept"};
    setResolverConfig("nameserver 10.0.0.2\nnameserver 10.0.0.1\nnameserver ::1\nnameserver 10.0.0.3\n");
    EXPECT_TRUE(Net::getAdapterDNSServers(servers, nullptr));
    EXPECT_EQ(servers, (Tarvik::StringVector{"kept", "10.0.0.2", "10.0.0.1", "10.0.0.3"}));

    setResolverConfig("domain corvane.test\n");
    servers.clear();
    EXPECT_TRUE(Net::getAdapterDNSServers(servers, nullptr)) << "no server is no failure";
    EXPECT_TRUE(servers.empty());

    Net::setResolverConfigPathForTest(corvane_test::TempFile::uniquePath());
    EXPECT_FALSE(Net::getAdapterDNSServers(servers, nullptr));
    EXPECT_TRUE(servers.empty());
}

TEST_F(DnsConfigure, HostWithMoreThanTenDnsServersFailsTheHostList) {
    std::string content;
    for (int i = 1; i <= 11; ++i) content += "nameserver 10.0.0." + std::to_string(i) + "\n";
    setResolverConfig(content);
    Tarvik::StringVector servers;
    EXPECT_FALSE(Net::getAdapterDNSServers(servers, nullptr));
    EXPECT_TRUE(servers.empty());

    set(kServersParam, "use-host-dns-list");
    corvane_test::LogCapture log;
    EXPECT_FALSE(Net::initializeLibrary());
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "failed to retrieve this host's DNS servers"));
    EXPECT_FALSE(server().isDnsMode());
}

TEST_F(DnsConfigure, HostDnsServersOfANamedAdapterAreNotImplemented) {
    corvane_test::AssertCapture asserts;
    Tarvik::StringVector servers;
    EXPECT_FALSE(Net::getAdapterDNSServers(servers, "eth0"));
    EXPECT_TRUE(servers.empty());
    EXPECT_EQ(asserts.texts(),
              std::vector<std::string>{"Not implemented : getAdapterDNSServers with in_szAdapterName != 0"});
}

TEST_F(DnsConfigure, DestroyedResolverTakesItsChannelAwayFromTheDnsTask) {
    set(kServersParam, "127.53.60.40");
    {
        HostNameServer resolver;
        ASSERT_TRUE(resolver.configure(Tarvik::GlobalConfig::getInstance().getConfig()));
        ASSERT_TRUE(resolver.isDnsMode());
        ASSERT_TRUE(resolver.start());
        for (int i = 0; i < 2000 && resolver.getTaskState() != Tarvik::Task::RUNNING; ++i) std::this_thread::sleep_for(1ms);
        ASSERT_EQ(Tarvik::AresReactorTask::getInstance().getTaskState(), Tarvik::Task::RUNNING);
    }
    // The channel is gone with its resolver: the DNS task has none to start with.
    EXPECT_EQ(Tarvik::AresReactorTask::getInstance().getTaskState(), Tarvik::Task::STOPPED_STATE);
    EXPECT_FALSE(Tarvik::AresReactorTask::getInstance().start());
}
