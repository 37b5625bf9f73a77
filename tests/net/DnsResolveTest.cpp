// Resolution in DNS mode through the library's public calls, against dnsmasq
// and against the scripted responder, each on a loopback address of its own.
#include <algorithm>

#include "DnsMode.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::addressesOf;
using corvane_test::DnsResponder;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

const ACE_Time_Value kFiveSeconds(5);

// The clock that decides cache expiry, moved by the tests.
std::atomic<long long> s_clockUsec{2000000000LL * 1000000LL};
ACE_Time_Value movedClock() { return ACE_Time_Value(s_clockUsec / 1000000, s_clockUsec % 1000000); }

class DnsResolve : public corvane_test::DnsModeTest {
protected:
    // Resolves the name; true when it succeeded.
    static bool resolve(const char* name, Hostent& h, Hostent::GetHostByNameStatus& status,
                        ACE_Time_Value timeout = kFiveSeconds, bool useCache = true) {
        return server().resolve(name, h, status, timeout, useCache);
    }
};

TEST_F(DnsResolve, RecordsAliasesLiteralsAndUnknownNamesThroughDnsmasq) {
    corvane_test::Dnsmasq dnsmasq("127.53.60.1");
    dnsmasq.hostRecord("one.test", {"10.60.0.1"}, 42)
        .hostRecord("multi.test", {"10.60.1.1", "10.60.1.2", "10.60.1.3"}, 30)
        .hostRecord("zero.test", {"10.60.2.2"}, 0)
        .cname("alias.test", "one.test", 30)
        .cname("second.test", "alias.test", 30);
    startServer(dnsmasq);
    set(HostNameServer::getCacheSuccessParamName(), "true");
    set(HostNameServer::getCacheFlushTimeoutMsParamName(), "10000");
    HostNameServer::setClockForTest(&movedClock);
    startWith(dnsmasq.address());
    const struct {
        const char* name;
        Hostent::GetHostByNameStatus status;
        std::vector<std::string> addresses;  // sorted: dnsmasq turns them round
        const char* logged;                  // "" for none
    } rows[] = {
        {"one.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"}, "HostNameServer::cacheSuccess : using specified TTL 42000ms"},
        {"multi.test", Hostent::GHBN_SUCCESS, {"10.60.1.1", "10.60.1.2", "10.60.1.3"}, ""},
        {"alias.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"}, ""},
        {"second.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"}, ""},
        {"zero.test", Hostent::GHBN_SUCCESS, {"10.60.2.2"},
         "HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"},
        {"nx.test", Hostent::GHBN_OTHER_ERROR, {}, ""},
        {"10.60.9.9", Hostent::GHBN_SUCCESS, {"10.60.9.9"}, "HostNameServer::getDNSARecords : hostname=10.60.9.9 timeout=5000ms"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        corvane_test::LogCapture log;
        Hostent h;
        Hostent::GetHostByNameStatus status;
        EXPECT_EQ(resolve(row.name, h, status), row.status == Hostent::GHBN_SUCCESS);
        EXPECT_EQ(status, row.status);
        std::vector<std::string> addresses = addressesOf(h);
        std::sort(addresses.begin(), addresses.end());
        EXPECT_EQ(addresses, row.addresses);
        if (row.status == Hostent::GHBN_SUCCESS) {
            EXPECT_STREQ(h.getHostent().h_name, row.name);
        }
        if (*row.logged) {
            EXPECT_EQ(log.count(row.logged), 1u);
        }
        EXPECT_EQ(log.contains(Tarvik::DEBUG_LOG_LEVEL, "DNSARecordWork::doWork"), row.name[0] != '1');
    }

    // The answer's time-to-live decides how long the entry is served.
    const std::string queried = "DNSARecordWork::doWork : hostname = one.test";
    corvane_test::LogCapture log;
    Hostent h;
    Hostent::GetHostByNameStatus status;
    s_clockUsec += 42 * 1000000LL;  // the expiry instant: still served
    EXPECT_TRUE(resolve("one.test", h, status));
    EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache hit"), 1u);
    s_clockUsec += 1;
    EXPECT_TRUE(resolve("one.test", h, status));
    EXPECT_EQ(log.count("flushing \"one.test\" from cache"), 1u);
    EXPECT_EQ(log.count(queried), 1u) << "an expired entry sends a new query";

    // A dotted literal replaces what the output held.
    ASSERT_TRUE(resolve("10.1.2.3", h, status));
    EXPECT_EQ(addressesOf(h), std::vector<std::string>{"10.1.2.3"});
}

TEST_F(DnsResolve, SilentServerTimesOutAndALateAnswerIsStillCached) {
    DnsResponder responder("127.53.60.5");
    responder.never("silent.test");
    responder.answerLate("late.test", dns::response("late.test", {dns::a(dns::pointer(12), "10.60.5.1", 60)}), 300ms);
    startServer(responder);
    set(HostNameServer::getCacheSuccessParamName(), "true");
    startWith(responder.address());
    Hostent h;
    Hostent::GetHostByNameStatus status;
    EXPECT_FALSE(resolve("silent.test", h, status, ACE_Time_Value(0, 200000)));
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    EXPECT_FALSE(resolve("late.test", h, status, ACE_Time_Value(0, 50000)));
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    ASSERT_TRUE(corvane_test::waitFor([] { return live(corvane_test::kDnsContainerAccount) == 1; }));
    EXPECT_TRUE(resolve("late.test", h, status));
    EXPECT_EQ(addressesOf(h), std::vector<std::string>{"10.60.5.1"});
    EXPECT_EQ(responder.queryCount("late.test"), 1);

    // The silent query is still in flight: stopping cancels it, and nothing is left.
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained(corvane_test::kDnsContainerAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsWorkAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsFutureAccount));
}

TEST_F(DnsResolve, CloseWithQueriesInFlightWakesEveryCallerWithAFailure) {
    DnsResponder responder("127.53.60.9");
    startServer(responder);
    responder.setDefault({});  // nobody is ever answered
    set("corvane.net.HostNameServer.numThread", "2");
    startWith(responder.address());
    std::vector<Hostent::GetHostByNameStatus> statuses(4, Hostent::GHBN_SUCCESS);
    std::vector<std::thread> callers;
    for (size_t c = 0; c < statuses.size(); ++c) {
        callers.emplace_back([c, &statuses] {
            Hostent h;
            resolve(("wait" + std::to_string(c) + ".test").c_str(), h, statuses[c], ACE_Time_Value(60), false);
        });
    }
    for (size_t c = 0; c < statuses.size(); ++c) {
        EXPECT_TRUE(responder.waitForQueries("wait" + std::to_string(c) + ".test", 1, 10s));
    }
    EXPECT_TRUE(Net::forcedCloseLibrary());
    for (auto& caller : callers) caller.join();
    for (Hostent::GetHostByNameStatus status : statuses) EXPECT_EQ(status, Hostent::GHBN_OTHER_ERROR);
    EXPECT_TRUE(drained(corvane_test::kDnsContainerAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsFutureAccount));
}

TEST_F(DnsResolve, NamesThatCannotBeAskedAndAServerThatIsDownFailOnce) {
    startWith("127.53.60.6");  // nothing listens there
    const std::string tooLong(300, 'x');
    for (const char* name : {static_cast<const char*>(nullptr), "", tooLong.c_str(), "a..test", "down.test"}) {
        SCOPED_TRACE(name ? name : "null");
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(resolve(name, h, status, ACE_Time_Value(30)));
        const bool down = name != nullptr && std::string(name) == "down.test";  // or its query timed out
        EXPECT_TRUE(status == Hostent::GHBN_OTHER_ERROR || (down && status == Hostent::GHBN_TIMEOUT));
        EXPECT_FALSE(h.isValid());
    }
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained(corvane_test::kDnsContainerAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsFutureAccount));
}

}  // namespace
