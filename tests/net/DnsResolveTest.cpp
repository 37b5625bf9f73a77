// Resolution in DNS mode through the library's public calls, against dnsmasq
// and against the scripted responder, each on a loopback address of its own.
#include <arpa/inet.h>
#include <ares.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "DnsMode.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::DnsResponder;
using corvane_test::Dnsmasq;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

using corvane_test::kDnsContainerAccount;
using corvane_test::kDnsFutureAccount;
using corvane_test::kDnsWorkAccount;

const ACE_Time_Value kFiveSeconds(5);

// The clock that decides cache expiry, moved by the tests.
std::atomic<long long> s_clockUsec{2000000000LL * 1000000LL};
ACE_Time_Value movedClock() {
    const long long usec = s_clockUsec.load();
    return ACE_Time_Value(static_cast<time_t>(usec / 1000000), static_cast<suseconds_t>(usec % 1000000));
}

struct Outcome {
    bool ok = false;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    std::vector<std::string> addresses;
    std::string name;  // the record's name
};

Outcome resolve(const std::string& in_name, ACE_Time_Value in_timeout = kFiveSeconds, bool in_bUseCache = false) {
    Outcome out;
    Hostent h;
    out.ok = HostNameServer::getInstance().resolve(in_name.c_str(), h, out.status, in_timeout, in_bUseCache);
    for (size_t i = 0; i < h.getNumAddress(); ++i) {
        std::string address;
        h.getAddress(i, address);
        out.addresses.push_back(address);
    }
    if (h.getHostent().h_name != nullptr) out.name = h.getHostent().h_name;
    return out;
}

// The addresses of a server's answer to a query of our own, in answer order.
std::vector<std::string> askDirectly(const std::string& in_server, const std::string& in_name) {
    const dns::Bytes query = dns::cat({dns::header(0x6060, 0x0100 /* RD */, 1, 0), dns::question(in_name)});
    const dns::Bytes answer = dns::exchange(in_server, query, 2000);
    std::vector<std::string> out;
    ares_addrttl records[16];
    int count = 16;
    if (ares_parse_a_reply(answer.data(), static_cast<int>(answer.size()), nullptr, records, &count) == ARES_SUCCESS) {
        for (int i = 0; i < count; ++i) {
            char text[INET_ADDRSTRLEN];
            out.push_back(inet_ntop(AF_INET, &records[i].ipaddr, text, sizeof text));
        }
    }
    return out;
}

class DnsResolve : public corvane_test::DnsModeTest {
protected:
    // Waits (bounded) until the cache holds a usable entry for the name.
    static bool waitCached(const char* in_szName) {
        for (int i = 0; i < 5000; ++i) {
            Hostent h;
            Hostent::GetHostByNameStatus status;
            bool usable = false;
            if (HostNameServerPeer::getHostentInCache(server(), in_szName, h, status, usable) && usable) return true;
            std::this_thread::sleep_for(1ms);
        }
        return false;
    }
};

}  // namespace

TEST_F(DnsResolve, HostRecordsAliasesAndUnknownNamesThroughDnsmasq) {
    Dnsmasq dnsmasq("127.53.60.1");
    dnsmasq.hostRecord("one.test", {"10.60.0.1"}, 30)
        .hostRecord("multi.test", {"10.60.1.1", "10.60.1.2", "10.60.1.3", "10.60.1.4"}, 30)
        .cname("alias.test", "one.test", 30)
        .cname("second.test", "alias.test", 30);
    startServer(dnsmasq);
    startWith(dnsmasq.address());

    const struct {
        const char* name;
        bool ok;
        Hostent::GetHostByNameStatus status;
        std::vector<std::string> addresses;  // sorted: dnsmasq turns them round (below)
    } rows[] = {
        {"one.test", true, Hostent::GHBN_SUCCESS, {"10.60.0.1"}},
        {"multi.test", true, Hostent::GHBN_SUCCESS, {"10.60.1.1", "10.60.1.2", "10.60.1.3", "10.60.1.4"}},
        {"alias.test", true, Hostent::GHBN_SUCCESS, {"10.60.0.1"}},
        {"second.test", true, Hostent::GHBN_SUCCESS, {"10.60.0.1"}},
        {"nx.test", false, Hostent::GHBN_OTHER_ERROR, {}},
        {"10.60.9.9", true, Hostent::GHBN_SUCCESS, {"10.60.9.9"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Outcome outcome = resolve(row.name);
        EXPECT_EQ(outcome.ok, row.ok);
        EXPECT_EQ(outcome.status, row.status);
        std::sort(outcome.addresses.begin(), outcome.addresses.end());
        EXPECT_EQ(outcome.addresses, row.addresses);
        if (row.ok) {
            EXPECT_EQ(outcome.name, row.name);
        }
    }

    // dnsmasq turns its records round by one from an answer to the next: the
    // resolver's order is a turn of the order of any other answer.
    const std::vector<std::string> other = askDirectly(dnsmasq.address(), "multi.test");
    const std::vector<std::string> resolved = resolve("multi.test").addresses;
    ASSERT_EQ(resolved.size(), other.size());
    bool bTurned = false;
    for (size_t turn = 0; turn < other.size() && !bTurned; ++turn) {
        std::vector<std::string> turned = other;
        std::rotate(turned.begin(), turned.begin() + static_cast<long>(turn), turned.end());
        bTurned = turned == resolved;
    }
    EXPECT_TRUE(bTurned) << ::testing::PrintToString(resolved) << " against " << ::testing::PrintToString(other);
}

TEST_F(DnsResolve, AnswerTimeToLiveDrivesTheCacheEntry) {
    Dnsmasq dnsmasq("127.53.60.2");
    dnsmasq.hostRecord("ttl.test", {"10.60.2.1"}, 42).hostRecord("zero.test", {"10.60.2.2"}, 0);
    startServer(dnsmasq);
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    set("corvane.net.HostNameServer.cacheFlushTimeoutMs", "10000");  // a resolver of the process keeps an earlier one
    HostNameServer::setClockForTest(&movedClock);
    startWith(dnsmasq.address());
    const std::string queried = "DNSARecordWork::doWork : hostname = ttl.test";

    corvane_test::LogCapture log;
    EXPECT_TRUE(resolve("ttl.test", kFiveSeconds, true).ok);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : using specified TTL 42000ms"), 1u);
    const Outcome cached = resolve("ttl.test", kFiveSeconds, true);
    EXPECT_TRUE(cached.ok);
    EXPECT_EQ(cached.addresses, std::vector<std::string>{"10.60.2.1"});
    EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache hit"), 1u);
    EXPECT_EQ(log.count(queried), 1u) << "the second call is answered from the cache";

    s_clockUsec += 42 * 1000000LL;  // the expiry instant: still served
    EXPECT_TRUE(resolve("ttl.test", kFiveSeconds, true).ok);
    EXPECT_EQ(log.count(queried), 1u);
    s_clockUsec += 1;
    EXPECT_TRUE(resolve("ttl.test", kFiveSeconds, true).ok);
    EXPECT_EQ(log.count("flushing \"ttl.test\" from cache"), 1u);
    EXPECT_EQ(log.count(queried), 2u) << "an expired entry sends a new query";

    log.clear();
    EXPECT_TRUE(resolve("zero.test", kFiveSeconds, true).ok);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"), 1u);
}

TEST_F(DnsResolve, ScriptedAnswersByteForByte) {
    DnsResponder responder("127.53.60.3");
    const dns::Bytes cnameAA = dns::response("chain.test", {dns::cname(dns::pointer(12), "edge.chain.test", 300),
                                                            dns::a(dns::name("edge.chain.test"), "10.60.3.2", 120),
                                                            dns::a(dns::name("edge.chain.test"), "10.60.3.1", 45)});
    responder.answer("chain.test", cnameAA);
    responder.answer("txt.test", dns::response("txt.test", {dns::a(dns::pointer(12), "10.60.3.3", 60),
                                                            dns::record(dns::pointer(12), dns::TYPE_TXT, 77, {1, 'x'})}));
    responder.answer("badlength.test",
                     dns::response("badlength.test", {dns::record(dns::pointer(12), dns::TYPE_A, 60, {10, 60, 3, 4, 0})}));
    // c-ares matches the question without regard to case; the resolver compares it exactly.
    responder.answer("mixed.test", dns::response("Mixed.Test", {dns::a(dns::pointer(12), "10.60.3.5", 60)}));
    startServer(responder);
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    set("corvane.net.HostNameServer.cacheFailures", "true");
    startWith(responder.address());

    const struct {
        const char* name;
        Hostent::GetHostByNameStatus status;
        std::vector<std::string> addresses;  // in answer order
        std::string logged;                  // a log text that the answer brings
    } rows[] = {
        {"chain.test", Hostent::GHBN_SUCCESS, {"10.60.3.2", "10.60.3.1"},
         "HostNameServer::cacheSuccess : using specified TTL 45000ms"},
        {"txt.test", Hostent::GHBN_SUCCESS, {"10.60.3.3"}, "HostNameServer::cacheSuccess : using specified TTL 77000ms"},
        {"badlength.test", Hostent::GHBN_OTHER_ERROR, {}, "aresCallback : aptr == 0"},
        {"mixed.test", Hostent::GHBN_SUCCESS, {"10.60.3.5"},
         "HostNameServer::DNSARecordWork::aresCallback : strHostName=Mixed.Test, pCallback->m_strHostname=mixed.test"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        corvane_test::LogCapture log;
        const Outcome outcome = resolve(row.name, kFiveSeconds, true);
        EXPECT_EQ(outcome.ok, row.status == Hostent::GHBN_SUCCESS);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.addresses, row.addresses);
        EXPECT_EQ(log.count(row.logged), 1u);
        if (row.status == Hostent::GHBN_SUCCESS) {
            EXPECT_EQ(outcome.name, row.name) << "the requested name, not the question's";
            EXPECT_TRUE(resolve(row.name, kFiveSeconds, true).ok);
            EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache hit"), 1u) << "cached under the requested name";
        } else {
            EXPECT_EQ(log.count(std::string("HostNameServer::cacheFailure : cached failure of ") + row.name), 1u);
        }
        EXPECT_EQ(responder.queryCount(row.name), 1);
    }
}

TEST_F(DnsResolve, AnswersCutInTheirRecordsFailOnce) {
    DnsResponder responder("127.53.60.4");
    const std::vector<dns::Bytes> records = {dns::cname(dns::pointer(12), "edge.chain.test", 300),
                                             dns::a(dns::name("edge.chain.test"), "10.60.4.1", 60),
                                             dns::a(dns::name("edge.chain.test"), "10.60.4.2", 60)};
    // c-ares drops an answer whose question does not match its query: cut only after the question.
    const size_t questionEnd = dns::response("cut0.test", {}).size();
    const size_t fullSize = dns::response("cut0.test", records).size();
    std::vector<std::string> names;
    for (size_t length = questionEnd; length < fullSize; ++length) {
        const std::string name = "cut" + std::to_string(length) + ".test";
        const dns::Bytes whole = dns::response(name, records);
        const size_t cut = length + (whole.size() - fullSize);  // longer names have longer questions
        responder.answer(name, dns::Bytes(whole.begin(), whole.begin() + static_cast<long>(cut)));
        names.push_back(name);
    }
    startServer(responder);
    startWith(responder.address());
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const Outcome outcome = resolve(name);
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.status, Hostent::GHBN_OTHER_ERROR);
        EXPECT_EQ(responder.queryCount(name), 1);
    }
    EXPECT_TRUE(drained(kDnsContainerAccount));
}

TEST_F(DnsResolve, SilentServerTimesOutAndALateAnswerIsStillCached) {
    DnsResponder responder("127.53.60.5");
    responder.never("silent.test");
    responder.answerLate("late.test", dns::response("late.test", {dns::a(dns::pointer(12), "10.60.5.1", 60)}), 300ms);
    startServer(responder);
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    startWith(responder.address());

    const Outcome silent = resolve("silent.test", ACE_Time_Value(0, 200000));
    EXPECT_FALSE(silent.ok);
    EXPECT_EQ(silent.status, Hostent::GHBN_TIMEOUT);

    const Outcome late = resolve("late.test", ACE_Time_Value(0, 50000), true);
    EXPECT_FALSE(late.ok);
    EXPECT_EQ(late.status, Hostent::GHBN_TIMEOUT);
    ASSERT_TRUE(waitCached("late.test"));
    const Outcome cached = resolve("late.test", kFiveSeconds, true);
    EXPECT_TRUE(cached.ok);
    EXPECT_EQ(cached.addresses, std::vector<std::string>{"10.60.5.1"});
    EXPECT_EQ(responder.queryCount("late.test"), 1);

    // The silent query is still in flight: stopping cancels it, and nothing is left.
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained(kDnsWorkAccount));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

TEST_F(DnsResolve, ServerThatIsDownFailsOnceWithoutHanging) {
    // Nothing listens on this address.
    startWith("127.53.60.6");
    const Outcome outcome = resolve("down.test", ACE_Time_Value(30));
    EXPECT_FALSE(outcome.ok);
    EXPECT_TRUE(outcome.status == Hostent::GHBN_OTHER_ERROR || outcome.status == Hostent::GHBN_TIMEOUT)
        << Hostent::getGetHostByNameStatusString(outcome.status);
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

TEST_F(DnsResolve, DottedLiteralIsAnsweredWithoutAQuery) {
    DnsResponder responder("127.53.60.7");
    startServer(responder);
    startWith(responder.address());
    corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
    const Outcome outcome = resolve("10.1.2.3");
    EXPECT_EQ(log.count("ENTER HostNameServer::getDNSARecords"), 1u);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.addresses, std::vector<std::string>{"10.1.2.3"});
    EXPECT_EQ(outcome.name, "10.1.2.3");
    EXPECT_EQ(log.count("HostNameServer::getDNSARecords : hostname=10.1.2.3 timeout=5000ms"), 1u);
    EXPECT_FALSE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "DNSARecordWork::doWork"));
    EXPECT_EQ(responder.totalQueries(), 0);
}

TEST_F(DnsResolve, ManyCallersOnManyThreadsGetTheirOwnAnswers) {
    Dnsmasq dnsmasq("127.53.60.8");
    constexpr int kThreads = 8;
    constexpr int kNames = 16;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kNames; ++i) {
            dnsmasq.hostRecord("n" + std::to_string(t) + "-" + std::to_string(i) + ".test",
                               {"10.61." + std::to_string(t) + "." + std::to_string(i)}, 60);
        }
    }
    startServer(dnsmasq);
    set("corvane.net.HostNameServer.numThread", "3");
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    startWith(dnsmasq.address());
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([t, &wrong] {
            for (int round = 0; round < 2; ++round) {
                for (int i = 0; i < kNames; ++i) {
                    const Outcome outcome = resolve("n" + std::to_string(t) + "-" + std::to_string(i) + ".test",
                                                    ACE_Time_Value(10), (i + round) % 2 == 0);
                    const std::string expected = "10.61." + std::to_string(t) + "." + std::to_string(i);
                    if (!outcome.ok || outcome.addresses != std::vector<std::string>{expected}) ++wrong;
                }
            }
        });
    }
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained(kDnsWorkAccount));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

TEST_F(DnsResolve, CloseWithQueriesInFlightWakesEveryCaller) {
    DnsResponder responder("127.53.60.9");
    startServer(responder);
    responder.setDefault({});  // nobody is ever answered
    set("corvane.net.HostNameServer.numThread", "2");
    startWith(responder.address());
    constexpr int kCallers = 4;
    std::vector<Outcome> outcomes(kCallers);
    std::vector<std::thread> callers;
    for (int c = 0; c < kCallers; ++c) {
        callers.emplace_back([c, &outcomes] {
            outcomes[static_cast<size_t>(c)] = resolve("wait" + std::to_string(c) + ".test", ACE_Time_Value(60));
        });
    }
    for (int c = 0; c < kCallers; ++c) EXPECT_TRUE(responder.waitForQueries("wait" + std::to_string(c) + ".test", 1, 10s));
    EXPECT_TRUE(Net::forcedCloseLibrary());
    for (auto& caller : callers) caller.join();
    for (const Outcome& outcome : outcomes) {
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.status, Hostent::GHBN_OTHER_ERROR) << "woken by the cancellation, not by its time-out";
    }
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}

TEST_F(DnsResolve, DottedLiteralReplacesWhatTheOutputHeld) {
    DnsResponder responder("127.53.60.10");
    responder.answer("two.test", dns::response("two.test", {dns::a(dns::pointer(12), "10.60.10.1", 60),
                                                            dns::a(dns::pointer(12), "10.60.10.2", 60)}));
    startServer(responder);
    startWith(responder.address());
    Hostent h;
    Hostent::GetHostByNameStatus status;
    ASSERT_TRUE(server().resolve("two.test", h, status, kFiveSeconds, false));
    ASSERT_EQ(h.getNumAddress(), 2u);
    ASSERT_TRUE(server().resolve("10.1.2.3", h, status, kFiveSeconds, false));
    std::string first;
    EXPECT_TRUE(h.getAddress(0, first));
    EXPECT_EQ(first, "10.1.2.3");
    EXPECT_EQ(h.getNumAddress(), 1u);
}

TEST_F(DnsResolve, NamesThatCannotBeAskedFailOnce) {
    DnsResponder responder("127.53.60.11");
    startServer(responder);
    startWith(responder.address());
    const std::string tooLong(300, 'x');
    const struct {
        const char* label;
        const char* name;
    } rows[] = {{"null", nullptr}, {"empty", ""}, {"longer than a DNS name", tooLong.c_str()}, {"empty label", "a..test"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(server().resolve(row.name, h, status, kFiveSeconds, true));
        EXPECT_EQ(status, Hostent::GHBN_OTHER_ERROR);
        EXPECT_FALSE(h.isValid());
    }
    EXPECT_TRUE(drained(kDnsContainerAccount));
    EXPECT_TRUE(drained(kDnsFutureAccount));
}
