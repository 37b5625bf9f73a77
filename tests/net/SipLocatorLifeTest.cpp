// The locator's life: starts that fail (no server, no thread), stop with
// requests in flight, refusals, time-outs, a configuration change picked up
// on use, and many requests at once.
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "SipLocator.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using corvane_test::DnsResponder;
using corvane_test::Locator;
using namespace std::chrono_literals;
namespace dns = corvane_test::dns;

namespace {

// Each test has servers of its own address, so that tests can run in parallel.
class SipLocatorLife : public corvane_test::SipLocatorTest {
protected:
    void serve(DnsResponder& io_responder) {
        startServer(io_responder);
        setServers(io_responder.address());
    }
    static dns::Bytes addressAnswer(const std::string& in_name, const std::string& in_address, uint32_t in_ttl) {
        return dns::response(in_name, {dns::a(dns::pointer(12), in_address, in_ttl)});
    }
};

TEST_F(SipLocatorLife, AConfigurationWithoutServerIsAnErrorNeverADefault) {
    const struct Row {
        const char* parameter;  // null: absent
        const char* resolverConfig;
        bool started;
        const char* error;      // in the ERROR record
    } rows[] = {
        {nullptr, "domain corvane.test\n", false, "the host's resolver configuration names no DNS server"},
        {"use-host-dns-list", "domain corvane.test\n", false,
         "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList"},
        {",", "nameserver 127.53.94.1\n", false,
         "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList"},
        {nullptr, "nameserver 127.53.94.1\n", true, ""},
        {"use-host-dns-list", "nameserver 127.53.94.1\n", true, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.parameter ? row.parameter : "(absent)");
        Tarvik::GlobalConfig::getInstance().clear();
        if (row.parameter) setServers(row.parameter);
        setResolverConfig(row.resolverConfig);
        corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        EXPECT_EQ(m_locator.start(), row.started);
        EXPECT_FALSE(m_locator.start());  // running, or refused again
        if (!row.started) {
            EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.error)) << testing::PrintToString(log.messages());
            Locator::Result result;
            EXPECT_FALSE(m_locator.locate("sip:10.0.0.1", result, ACE_Time_Value(1)));
            EXPECT_EQ(result.status, Locator::LOCATE_REFUSED);
        }
        m_locator.stop();
        EXPECT_TRUE(accountsAtZero());
    }
}

TEST_F(SipLocatorLife, UrisThatCannotBeLocatedAreRefusedWithAReason) {
    setServers("127.53.94.11");  // never asked
    ASSERT_TRUE(m_locator.start());
    const struct {
        const char* uri;
        const char* error;  // "" when located
    } rows[] = {
        {"tel:+4930123", "not a SIP or SIPS URI: tel:+4930123"},
        {"sip:", "no host in sip:"},
        {"sips:h.test;transport=udp", "a SIPS URI cannot use UDP"},
        {"sip:h.test;transport=sctp", "unsupported transport: sctp"},
        {"sip:h.test:99999", "not a port: 99999"},
        {"sip:bad!name.test", "not a host name: bad!name.test"},
        {"sip:a..test", "not a host name: a..test"},
        {"sip:[fd00::zz]", "not an IPv6 address: [fd00::zz]"},
        {"sip:alice@h.test;maddr=10.74.11.1", ""},  // maddr names the target
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.uri);
        const Locator::Result result = locate(row.uri);
        EXPECT_EQ(result.error, row.error);
        EXPECT_EQ(result.status, *row.error ? Locator::LOCATE_BAD_REQUEST : Locator::LOCATE_OK);
        corvane_test::Notifications told(1);
        EXPECT_EQ(m_locator.locate(row.uri, told.callback(0), ACE_Time_Value(1)), !*row.error);
        EXPECT_EQ(told.told(0), 1);
        EXPECT_EQ(told.result(0).error, row.error);
    }
}

TEST_F(SipLocatorLife, AThreadThatCannotBeMadeUndoesTheStart) {
    DnsResponder responder("127.53.94.2");
    serve(responder);
    const struct Row {
        int allowed;        // thread creations that succeed
        const char* error;  // in the ERROR record
    } rows[] = {
        {0, "cannot start the DNS task"},     // the DNS task's thread
        {1, "cannot make the timer thread"},  // the DNS task runs; the timer thread fails
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.allowed);
        corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        std::atomic<int> allowed{row.allowed};
        Tarvik::setThreadCreationFaultForTest([&] { return allowed-- <= 0; });
        const bool started = m_locator.start();
        Tarvik::setThreadCreationFaultForTest(nullptr);
        EXPECT_FALSE(started);
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.error)) << testing::PrintToString(log.messages());
        EXPECT_FALSE(m_locator.isRunning());
        EXPECT_TRUE(accountsAtZero());
        // Nothing is left half made: a later start works.
        responder.answer("ok.test", addressAnswer("ok.test", "10.74.0.1", 60));
        ASSERT_TRUE(m_locator.start());
        EXPECT_EQ(locate("sip:ok.test:5060", Locator::FAMILY_IPV4).status, Locator::LOCATE_OK);
        m_locator.stop();
    }
}

TEST_F(SipLocatorLife, StopTellsEveryRequestInFlightOnce) {
    DnsResponder responder("127.53.94.3");
    serve(responder);
    responder.never("slow.test");
    ASSERT_TRUE(m_locator.start());
    corvane_test::Notifications told(50);
    for (size_t i = 0; i < told.size(); ++i) {
        // Half without a time-out, half with one that does not come first.
        const ACE_Time_Value timeout = i % 2 ? ACE_Time_Value::max_time : ACE_Time_Value(60);
        EXPECT_TRUE(m_locator.locate("sip:slow.test:5060", told.callback(i), timeout, Locator::FAMILY_IPV4));
    }
    ASSERT_TRUE(responder.waitForQueries("slow.test", 50, 5s));
    Locator::Result synchronous;
    std::thread waiter([&] { m_locator.locate("sip:slow.test:5060", synchronous, ACE_Time_Value::max_time); });
    ASSERT_TRUE(responder.waitForQueries("slow.test", 51, 5s));
    EXPECT_TRUE(m_locator.stop());
    waiter.join();
    EXPECT_EQ(synchronous.status, Locator::LOCATE_STOPPED);
    for (size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told.told(i), 1);
        EXPECT_EQ(told.result(i).status, Locator::LOCATE_STOPPED);
    }
    EXPECT_TRUE(accountsAtZero());

    // Stopped: refused at once, on the caller's thread.
    corvane_test::Notifications refused(1);
    EXPECT_FALSE(m_locator.locate("sip:slow.test", refused.callback(0), ACE_Time_Value(1)));
    EXPECT_EQ(refused.told(0), 1);
    EXPECT_EQ(refused.result(0).status, Locator::LOCATE_REFUSED);
}

TEST_F(SipLocatorLife, RequestsArrivingWhileItStopsAreEachToldOnce) {
    DnsResponder responder("127.53.94.12");
    serve(responder);
    responder.setDefault({});  // nothing is answered
    ASSERT_TRUE(m_locator.start());
    const size_t kThreads = 4;
    const size_t kPerThread = 400;
    corvane_test::Notifications told(kThreads * kPerThread);
    std::atomic<size_t> submitted{0};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = t; i < told.size(); i += kThreads) {
                // Never answered: each waits until the stop.
                const std::string uri = "sip:r" + std::to_string(i) + ".test:5060";
                m_locator.locate(uri, told.callback(i), ACE_Time_Value(60), Locator::FAMILY_IPV4);
                ++submitted;
            }
        });
    }
    ASSERT_TRUE(corvane_test::waitFor([&] { return submitted >= told.size() / 4; }));
    EXPECT_TRUE(m_locator.stop());
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(told.waitAll(30s));
    for (size_t i = 0; i < told.size(); ++i) {
        ASSERT_EQ(told.told(i), 1) << i;
        const Locator::Status status = told.result(i).status;
        EXPECT_TRUE(status == Locator::LOCATE_STOPPED || status == Locator::LOCATE_REFUSED) << i;
    }
    EXPECT_TRUE(accountsAtZero());
}

TEST_F(SipLocatorLife, TimeOutsTellWhatWasFoundAndWhatWasNot) {
    DnsResponder responder("127.53.94.4");
    serve(responder);
    responder.never("silent.test");
    ASSERT_TRUE(m_locator.start());

    // Synchronous: the caller is told by its own deadline.
    Locator::Result result = locate("sip:silent.test:5060", Locator::FAMILY_IPV4, ACE_Time_Value(0, 100000));
    EXPECT_EQ(result.status, Locator::LOCATE_TIMEOUT);
    EXPECT_EQ(corvane_test::steps(result), std::vector<std::string>{"A silent.test timeout miss"});

    // Asynchronous: the timer thread tells it.
    corvane_test::Notifications told(2);
    m_locator.locate("sip:silent.test:5060", told.callback(0), ACE_Time_Value(0, 100000), Locator::FAMILY_IPV4);
    m_locator.locate("sip:silent.test:5060", told.callback(1), ACE_Time_Value::zero, Locator::FAMILY_IPV4);
    ASSERT_TRUE(told.waitAll(5s));
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(told.result(i).status, Locator::LOCATE_TIMEOUT);
        EXPECT_EQ(told.result(i).error, "no answer within the time-out");
    }
    EXPECT_EQ(m_locator.getStatistics().requestTimeouts, 3u);
}

TEST_F(SipLocatorLife, AnAddressFamilyThatNeverAnswersLeavesTheOther) {
    DnsResponder responder("127.53.94.5");
    serve(responder);
    DnsResponder::Reply aAnswer{addressAnswer("half.test", "10.74.1.1", 60), 0ms, DnsResponder::Id::PATCH};
    // The A query comes first and is answered; the AAAA query never is.
    responder.scriptPerQuery("half.test", {{aAnswer}, {}});
    ASSERT_TRUE(m_locator.start());
    const Locator::Result result = locate("sip:half.test:5060", Locator::FAMILY_IPV4_FIRST, ACE_Time_Value(0, 200000));
    EXPECT_EQ(result.status, Locator::LOCATE_OK);
    EXPECT_EQ(corvane_test::targets(result), std::vector<std::string>{"UDP half.test 10.74.1.1 5060 -/- A"});
    EXPECT_EQ(corvane_test::steps(result),
              (std::vector<std::string>{"A half.test answer miss", "AAAA half.test timeout miss"}));
}

TEST_F(SipLocatorLife, StopFromACallbackOfItsOwnThreadIsRefused) {
    DnsResponder responder("127.53.94.6");
    serve(responder);
    responder.answer("cb.test", addressAnswer("cb.test", "10.74.2.1", 0));
    ASSERT_TRUE(m_locator.start());
    struct StoppingCallback : Locator::Callback {
        Locator& locator;
        std::atomic<int>& result;
        StoppingCallback(Locator& l, std::atomic<int>& r) : locator(l), result(r) {}
        void onLocated(const Locator::Result&) override { result = locator.stop() ? 1 : 0; }
    };
    std::atomic<int> stopped{-1};
    corvane_test::AssertCapture asserts;
    m_locator.locate("sip:cb.test:5060", new StoppingCallback(m_locator, stopped), ACE_Time_Value(5),
                     Locator::FAMILY_IPV4);
    ASSERT_TRUE(corvane_test::waitFor([&] { return stopped != -1; }));
    EXPECT_EQ(stopped, 0);
    EXPECT_TRUE(asserts.contains("t_pOwnThread != this"));
    EXPECT_TRUE(m_locator.isRunning());
    EXPECT_TRUE(m_locator.stop());
}

TEST_F(SipLocatorLife, AResolverConfigurationChangeIsPickedUpOnUseAndTheOldChannelDrains) {
    DnsResponder responder("127.53.94.7");
    DnsResponder second("127.53.94.8");
    startServer(responder);
    startServer(second);
    setResolverConfig("nameserver 127.53.94.7\n");
    responder.answer("one.test", addressAnswer("one.test", "10.74.3.1", 0));
    responder.answerLate("late.test", addressAnswer("late.test", "10.74.3.2", 0), 300ms);
    second.answer("one.test", addressAnswer("one.test", "10.74.3.9", 0));
    ASSERT_TRUE(m_locator.start());
    EXPECT_EQ(corvane_test::targets(locate("sip:one.test:5060", Locator::FAMILY_IPV4)),
              std::vector<std::string>{"UDP one.test 10.74.3.1 5060 -/- A"});
    corvane_test::Notifications late(1);
    m_locator.locate("sip:late.test:5060", late.callback(0), ACE_Time_Value(5), Locator::FAMILY_IPV4);
    ASSERT_TRUE(responder.waitForQueries("late.test", 1, 5s));

    setResolverConfig("nameserver 127.53.94.8\n");
    advance(4);  // not yet: checked at most every 5 seconds
    EXPECT_EQ(corvane_test::targets(locate("sip:one.test:5060", Locator::FAMILY_IPV4))[0],
              "UDP one.test 10.74.3.1 5060 -/- A");
    advance(1);
    EXPECT_EQ(corvane_test::targets(locate("sip:one.test:5060", Locator::FAMILY_IPV4))[0],
              "UDP one.test 10.74.3.9 5060 -/- A");
    EXPECT_EQ(m_locator.getStatistics().reloads, 1u);
    // The request on the old channel hears its answer from the old server.
    ASSERT_TRUE(late.waitAll(5s));
    EXPECT_EQ(corvane_test::targets(late.result(0)), std::vector<std::string>{"UDP late.test 10.74.3.2 5060 -/- A"});

    // A configuration that names no server is refused; the servers stay.
    corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
    setResolverConfig("domain corvane.test\n");
    advance(5);
    EXPECT_EQ(locate("sip:one.test:5060", Locator::FAMILY_IPV4).targets.at(0).address, "10.74.3.9");
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "names no DNS server"));
    m_locator.stop();
    EXPECT_TRUE(accountsAtZero());
}

TEST_F(SipLocatorLife, TenThousandRequestsWithRandomTimeOutsAndAServerChangeAreEachToldOnce) {
    DnsResponder responder("127.53.94.9");
    DnsResponder second("127.53.94.10");
    startServer(responder);
    startServer(second);
    setResolverConfig("nameserver 127.53.94.9\n");
    // Per name: answered at once (TTL 0, so asked every time), dropped, or late.
    const int kNames = 60;
    for (DnsResponder* pServer : {&responder, &second}) {
        for (int n = 0; n < kNames; ++n) {
            const std::string name = "s" + std::to_string(n) + ".test";
            const dns::Bytes answer = addressAnswer(name, "10.75.0." + std::to_string(n + 1), 0);
            switch (n % 3) {
                case 0: pServer->answer(name, answer); break;
                case 1: pServer->never(name); break;
                default: pServer->answerLate(name, answer, std::chrono::milliseconds(5 + n)); break;
            }
        }
    }
    ASSERT_TRUE(m_locator.start());
    const size_t kRequests = 10000;
    corvane_test::Notifications told(kRequests);
    std::atomic<size_t> accepted{0};
    const auto submit = [&](size_t in_first, size_t in_step) {
        std::mt19937 random(static_cast<unsigned>(in_first));
        for (size_t i = in_first; i < kRequests; i += in_step) {
            if (i == kRequests / 2) {
                setResolverConfig("nameserver 127.53.94.10\n");
                advance(5);
            }
            const std::string uri = "sip:s" + std::to_string(random() % kNames) + ".test:5060";
            const ACE_Time_Value timeout(0, static_cast<suseconds_t>(1000 + random() % 100000));
            accepted += m_locator.locate(uri, told.callback(i), timeout, Locator::FAMILY_IPV4);
        }
    };
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t) threads.emplace_back(submit, t, 4);
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(told.waitAll(60s));
    EXPECT_EQ(accepted, kRequests);
    EXPECT_EQ(m_locator.getStatistics().reloads, 1u);
    EXPECT_GT(second.totalQueries(), 0);
    m_locator.stop();
    size_t ok = 0;
    for (size_t i = 0; i < kRequests; ++i) {
        ASSERT_EQ(told.told(i), 1) << i;
        ok += told.result(i).status == Locator::LOCATE_OK;
    }
    EXPECT_GT(ok, 0u);
    EXPECT_TRUE(accountsAtZero());
}

}  // namespace
