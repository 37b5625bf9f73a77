// The locator's life: starts that fail (no server, no thread), exit with work
// in flight, time-outs, a stop from its own thread, and a configuration change
// picked up on use. Each test has servers of its own address: tests run in parallel.
#include <random>
#include <thread>

#include "SipLocator.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using corvane_test::DnsResponder;
using corvane_test::Locator;
using corvane_test::Strings;
using namespace std::chrono_literals;

namespace {

corvane_test::dns::Bytes aAnswer(const std::string& in_name, const std::string& in_address, uint32_t in_ttl = 0) {
    return corvane_test::dns::response(in_name, {corvane_test::dns::a(corvane_test::dns::pointer(12), in_address, in_ttl)});
}

using SipLocatorLife = corvane_test::SipLocatorTest;

TEST_F(SipLocatorLife, AStartThatFailsIsUndoneAndALaterStartWorks) {
    DnsResponder responder("127.53.94.2");
    serve(responder);
    responder.answer("ok.test", aAnswer("ok.test", "10.74.0.1"));
    const char* const kBadList = "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList";
    const int kAll = 1000;
    const struct Row {
        const char* servers;  // the parameter; null: absent
        const char* resolverConfig;
        int threads;          // thread creations that succeed
        const char* error;    // in the ERROR record; null: started
    } rows[] = {
        {nullptr, "domain corvane.test\n", kAll, "the host's resolver configuration names no DNS server"},
        {"use-host-dns-list", "domain corvane.test\n", kAll, kBadList},
        {",", "nameserver 127.53.94.2\n", kAll, kBadList},
        {nullptr, "nameserver 127.53.94.2\n", kAll, nullptr},
        {"use-host-dns-list", "nameserver 127.53.94.2\n", kAll, nullptr},
        {"127.53.94.2", "", 0, "cannot start the DNS task"},     // the DNS task's thread
        {"127.53.94.2", "", 1, "cannot make the timer thread"},  // the DNS task runs; the timer thread fails
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error ? row.error : "started");
        Tarvik::GlobalConfig::getInstance().clear();
        if (row.servers) setServers(row.servers);
        setResolverConfig(row.resolverConfig);
        corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        std::atomic<int> threads{row.threads};
        Tarvik::setThreadCreationFaultForTest([&] { return threads-- <= 0; });
        EXPECT_EQ(m_locator.start(), row.error == nullptr);
        Tarvik::setThreadCreationFaultForTest(nullptr);
        if (row.error) {
            EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.error)) << testing::PrintToString(log.messages());
            EXPECT_EQ(locate("sip:10.0.0.1").status, Locator::LOCATE_REFUSED);
            EXPECT_TRUE(accountsAtZero());
        }
        // Running, refused again, or after a thread fault started from scratch.
        EXPECT_EQ(m_locator.start(), row.threads < kAll);
        EXPECT_EQ(locate("sip:ok.test:5060").status == Locator::LOCATE_OK, row.error == nullptr || row.threads < kAll);
        m_locator.stop();
        EXPECT_TRUE(accountsAtZero());
    }
}

TEST_F(SipLocatorLife, ExitWithWorkInFlightTellsEveryRequestOnce) {
    DnsResponder responder("127.53.94.3");
    serve(responder);
    for (int n = 0; n < 30; ++n) {  // answered at once, never, or late
        const std::string name = "s" + std::to_string(n) + ".test";
        if (n % 3 == 0) responder.answer(name, aAnswer(name, "10.75.0.1"));
        if (n % 3 == 1) responder.never(name);
        if (n % 3 == 2) responder.answerLate(name, aAnswer(name, "10.75.0.2"), std::chrono::milliseconds(5 + n));
    }
    ASSERT_TRUE(m_locator.start());
    EXPECT_EQ(locate("sip:s0.test:5060").status, Locator::LOCATE_OK);
    Locator::Result waiting;  // a synchronous request without time-out
    std::thread waiter([&] { m_locator.locate("sip:s1.test", waiting, ACE_Time_Value::max_time); });
    ASSERT_TRUE(responder.waitForQueries("s1.test", 1, 5s));
    corvane_test::Notifications told(4000);
    std::atomic<size_t> submitted{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            for (size_t i = t; i < told.told.size(); i += 4, ++submitted) {
                // Time-outs of 1 ms to 100 ms, or none.
                const ACE_Time_Value timeout = i % 5 ? ACE_Time_Value(0, 1000 + random() % 100000) : ACE_Time_Value::max_time;
                m_locator.locate("sip:s" + std::to_string(random() % 30) + ".test:5060", told.callback(i), timeout);
            }
        });
    }
    ASSERT_TRUE(corvane_test::waitFor([&] { return submitted >= told.told.size() / 2; }));
    EXPECT_TRUE(m_locator.stop());
    for (std::thread& thread : threads) thread.join();
    waiter.join();
    ASSERT_TRUE(told.waitAll());
    EXPECT_EQ(waiting.status, Locator::LOCATE_STOPPED);
    EXPECT_EQ(std::count(told.told.begin(), told.told.end(), 1), 4000);
    EXPECT_TRUE(accountsAtZero());
    corvane_test::Notifications refused(1);  // stopped: refused at once, on the caller's thread
    EXPECT_FALSE(m_locator.locate("sip:s0.test", refused.callback(0), ACE_Time_Value(1)));
    EXPECT_EQ(refused.results[0].status, Locator::LOCATE_REFUSED);
}

TEST_F(SipLocatorLife, ATimeOutTellsWhatWasFoundAndWhatWasNot) {
    DnsResponder responder("127.53.94.4");
    serve(responder);
    responder.never("silent.test");
    // The A query comes first and is answered; the AAAA query never is.
    responder.scriptPerQuery("half.test", {{{aAnswer("half.test", "10.74.1.1", 60)}}, {}});
    ASSERT_TRUE(m_locator.start());
    Locator::Result result = locate("sip:silent.test:5060", Locator::FAMILY_IPV4, ACE_Time_Value(0, 100000));
    EXPECT_EQ(result.status, Locator::LOCATE_TIMEOUT);
    EXPECT_EQ(corvane_test::steps(result), Strings{"A silent.test timeout miss -1"});
    result = locate("sip:half.test:5060", Locator::FAMILY_IPV4_FIRST, ACE_Time_Value(0, 200000));
    EXPECT_EQ(corvane_test::targets(result), Strings{"UDP half.test 10.74.1.1 5060 -/- A"});
    EXPECT_EQ(corvane_test::steps(result), (Strings{"A half.test answer miss 60", "AAAA half.test timeout miss -1"}));
    // Asynchronous: the timer thread tells it.
    corvane_test::Notifications told(3);
    m_locator.locate("sip:silent.test:5060", told.callback(0), ACE_Time_Value(0, 100000), Locator::FAMILY_IPV4);
    m_locator.locate("sip:silent.test:5060", told.callback(1), ACE_Time_Value::zero, Locator::FAMILY_IPV4);
    m_locator.locate("sip:half.test:5060", told.callback(2), ACE_Time_Value(0, 200000));
    ASSERT_TRUE(told.waitAll(5s));
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(told.results[i].status, Locator::LOCATE_TIMEOUT);
        EXPECT_EQ(told.results[i].error, "no answer within the time-out");
    }
    EXPECT_EQ(corvane_test::targets(told.results[2]), Strings{"UDP half.test 10.74.1.1 5060 -/- A"});
    EXPECT_EQ(m_locator.getStatistics().requestTimeouts, 3u);
}

TEST_F(SipLocatorLife, StopFromACallbackOfItsOwnThreadIsRefused) {
    DnsResponder responder("127.53.94.6");
    serve(responder);
    responder.answer("cb.test", aAnswer("cb.test", "10.74.2.1"));
    ASSERT_TRUE(m_locator.start());
    struct StoppingCallback : Locator::Callback {
        StoppingCallback(Locator& io_locator, std::atomic<int>& out_stopped) : locator(io_locator), stopped(out_stopped) {}
        void onLocated(const Locator::Result&) override { stopped = locator.stop() ? 1 : 0; }
        Locator& locator;
        std::atomic<int>& stopped;
    };
    std::atomic<int> stopped{-1};
    corvane_test::AssertCapture asserts;
    m_locator.locate("sip:cb.test:5060", new StoppingCallback(m_locator, stopped), ACE_Time_Value(5), Locator::FAMILY_IPV4);
    ASSERT_TRUE(corvane_test::waitFor([&] { return stopped != -1; }));
    EXPECT_EQ(stopped, 0);
    EXPECT_TRUE(asserts.contains("t_pOwnThread != this"));
    EXPECT_TRUE(m_locator.isRunning());
}

TEST_F(SipLocatorLife, AResolverConfigurationChangeIsPickedUpOnUseAndTheOldChannelDrains) {
    DnsResponder first("127.53.94.7");
    DnsResponder second("127.53.94.8");
    serve(first);
    serve(second);
    Tarvik::GlobalConfig::getInstance().clear();  // the resolver configuration names the server
    setResolverConfig("nameserver 127.53.94.7\n");
    first.answer("one.test", aAnswer("one.test", "10.74.3.1"));
    first.answerLate("late.test", aAnswer("late.test", "10.74.3.2"), 300ms);
    second.answer("one.test", aAnswer("one.test", "10.74.3.9"));
    ASSERT_TRUE(m_locator.start());
    corvane_test::Notifications late(1);
    m_locator.locate("sip:late.test:5060", late.callback(0), ACE_Time_Value(5), Locator::FAMILY_IPV4);
    ASSERT_TRUE(first.waitForQueries("late.test", 1, 5s));
    corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
    // Looked at every 5 seconds at most; a file that names no server is refused and the servers stay.
    const std::tuple<const char*, int, const char*> rows[] = {
        {nullptr, 0, "10.74.3.1"}, {"nameserver 127.53.94.8\n", 4, "10.74.3.1"}, {nullptr, 1, "10.74.3.9"},
        {"domain corvane.test\n", 5, "10.74.3.9"}};
    for (const auto& [config, seconds, address] : rows) {
        if (config) setResolverConfig(config);
        advance(seconds);
        EXPECT_EQ(locate("sip:one.test:5060").targets.at(0).address, address) << seconds;
    }
    EXPECT_EQ(m_locator.getStatistics().reloads, 1u);
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "names no DNS server"));
    ASSERT_TRUE(late.waitAll(5s));  // the request on the old channel hears the old server
    EXPECT_EQ(late.results[0].targets.at(0).address, "10.74.3.2");
}

}  // namespace
