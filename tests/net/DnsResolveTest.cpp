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

class DnsResolve : public corvane_test::DnsModeTest {
protected:
    // Resolves the name; true when it succeeded.
    static bool resolve(const char* name, Hostent& h, Hostent::GetHostByNameStatus& status,
                        ACE_Time_Value timeout = kFiveSeconds, bool useCache = true) {
        return server().resolve(name, h, status, timeout, useCache);
    }
};

TEST_F(DnsResolve, RecordsAliasesLiteralsAndUnknownNamesThroughDnsmasq) {
    corvane_test::Dnsmasq dnsmasq("127.53.62.1");
    dnsmasq.hostRecord("one.test", {"10.60.0.1"}, 42)
        .hostRecord("multi.test", {"10.60.1.1", "10.60.1.2", "10.60.1.3"}, 30)
        .hostRecord("zero.test", {"10.60.2.2"}, 0)
        .cname("alias.test", "one.test", 30)
        .cname("second.test", "alias.test", 30);
    startServer(dnsmasq);
    set(HostNameServer::getCacheSuccessParamName(), "true");
    set(HostNameServer::getCacheFlushTimeoutMsParamName(), "10000");
    startWith(dnsmasq.address());
    const struct {
        const char* name;
        Hostent::GetHostByNameStatus status;
        std::vector<std::string> addresses;  // sorted: dnsmasq turns them round
        const char* logged;                  // "" for none
    } rows[] = {
        {"one.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"},
         "HostNameServer::cacheSuccess : using specified TTL 42000ms"},
        {"multi.test", Hostent::GHBN_SUCCESS, {"10.60.1.1", "10.60.1.2", "10.60.1.3"}, ""},
        // A dotted literal is answered without a query, and replaces what the output held.
        {"10.60.9.9", Hostent::GHBN_SUCCESS, {"10.60.9.9"},
         "HostNameServer::getDNSARecords : hostname=10.60.9.9 timeout=5000ms"},
        {"alias.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"}, ""},
        {"second.test", Hostent::GHBN_SUCCESS, {"10.60.0.1"}, ""},
        {"zero.test", Hostent::GHBN_SUCCESS, {"10.60.2.2"},
         "HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"},
        {"nx.test", Hostent::GHBN_OTHER_ERROR, {}, ""},
    };
    Hostent h;  // shared by the rows
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
        Hostent::GetHostByNameStatus status;
        EXPECT_EQ(resolve(row.name, h, status), row.status == Hostent::GHBN_SUCCESS);
        EXPECT_EQ(status, row.status);
        std::vector<std::string> addresses = addressesOf(h);
        std::sort(addresses.begin(), addresses.end());
        EXPECT_EQ(addresses, row.addresses);
        if (row.status == Hostent::GHBN_SUCCESS) {
            EXPECT_STREQ(h.getHostent().h_name, row.name);
        }
        EXPECT_EQ(log.count(row.logged), *row.logged ? 1u : 0u);
        EXPECT_EQ(log.count("ENTER HostNameServer::getDNSARecords"), 1u);
        EXPECT_EQ(log.contains(Tarvik::DEBUG_LOG_LEVEL, "DNSARecordWork::doWork"), row.name[0] != '1');
    }
}

TEST_F(DnsResolve, QueriesThatTimeOutFailOrAreCutShortByACloseAnswerEveryCallerOnce) {
    DnsResponder responder("127.53.62.5");
    responder.answerLate("late.test", dns::response("late.test", {dns::a(dns::pointer(12), "10.60.5.1", 60)}), 300ms);
    startServer(responder);
    responder.setDefault({});  // nobody else is ever answered
    set(HostNameServer::getCacheSuccessParamName(), "true");
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
        {"", kFiveSeconds, Hostent::GHBN_OTHER_ERROR},
        {tooLong.c_str(), kFiveSeconds, Hostent::GHBN_OTHER_ERROR},
        {"a..test", kFiveSeconds, Hostent::GHBN_OTHER_ERROR},
    };
    for (const auto& row : rows) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(resolve(row.name, h, status, row.timeout));
        EXPECT_EQ(status, row.status) << (row.name ? row.name : "null");
        EXPECT_FALSE(h.isValid());
    }
    // The late answer is still cached once it comes.
    ASSERT_TRUE(corvane_test::waitFor([] { return live(corvane_test::kDnsContainerAccount) == 1; }));
    Hostent h;
    Hostent::GetHostByNameStatus status;
    EXPECT_TRUE(resolve("late.test", h, status));
    EXPECT_EQ(addressesOf(h), std::vector<std::string>{"10.60.5.1"});
    EXPECT_EQ(responder.queryCount("late.test"), 1);

    // Callers that wait on queries in flight are woken by the close, with a failure, not by their time-out.
    std::vector<Hostent::GetHostByNameStatus> statuses(3, Hostent::GHBN_SUCCESS);
    std::vector<std::thread> callers;
    for (size_t c = 0; c < statuses.size(); ++c) {
        callers.emplace_back([c, &statuses] {
            Hostent out;
            resolve(("wait" + std::to_string(c) + ".test").c_str(), out, statuses[c], ACE_Time_Value(60), false);
        });
        EXPECT_TRUE(responder.waitForQueries("wait" + std::to_string(c) + ".test", 1, 10s));
    }
    EXPECT_TRUE(Net::forcedCloseLibrary());
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(statuses, std::vector<Hostent::GetHostByNameStatus>(3, Hostent::GHBN_OTHER_ERROR));
    EXPECT_TRUE(drained(corvane_test::kDnsContainerAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsWorkAccount));
    EXPECT_TRUE(drained(corvane_test::kDnsFutureAccount));
}

}  // namespace
