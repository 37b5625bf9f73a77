#include <atomic>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;

namespace {

// What one client heard.
struct Heard {
    std::atomic<int> results{0};
    std::atomic<int> timeouts{0};
    std::atomic<int> destroyed{0};
    std::atomic<Hostent::GetHostByNameStatus> status{Hostent::GHBN_OTHER_ERROR};
    std::atomic<bool> onCallerThread{false};
    std::thread::id caller = std::this_thread::get_id();
    int told() const { return results.load() + timeouts.load(); }
    bool waitTold() const {
        for (int i = 0; i < 10000 && told() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return told() != 0;
    }
};

class Client : public HostNameServer::GetHostByNameCallback {
public:
    explicit Client(Heard& heard) : m_heard(heard) {}
    ~Client() override { ++m_heard.destroyed; }
    bool onGhbnTimeout(const char*) override {
        ++m_heard.timeouts;
        return true;
    }
    bool onGhbnResult(const char*, const Hostent&, Hostent::GetHostByNameStatus status, ACE_Time_Value ttl) override {
        m_heard.status = status;
        m_heard.onCallerThread = std::this_thread::get_id() == m_heard.caller;
        EXPECT_EQ(ttl, ACE_Time_Value::zero);
        ++m_heard.results;
        return true;
    }

private:
    Heard& m_heard;
};

const char* const kAccounts[] = {"AsynchGHBNCallbackContainer", "AsynchGHBNTimeoutProcessor",
                                 "GetHostByNameCallbackProxy", "HostNameServer::GetHostByNameWork", "Hostent"};

class AsyncResolve : public corvane_test::LibraryTest {
protected:
    void expectAllDrained() {
        for (const char* account : kAccounts) EXPECT_TRUE(drained(account)) << account << " " << live(account);
    }
};

}  // namespace

TEST_F(AsyncResolve, WithoutTimerTheContainerGoesRightAfterTheResult) {
    ASSERT_TRUE(Net::initializeLibrary());
    Heard heard;
    corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
    EXPECT_TRUE(server().resolve("10.5.0.1", new Client(heard), ACE_Time_Value::max_time, false));
    ASSERT_TRUE(heard.waitTold());
    EXPECT_EQ(log.count("ENTER HostNameServer::getHostByName"), 1u);
    EXPECT_TRUE(drained("AsynchGHBNCallbackContainer"));
    EXPECT_EQ(live("AsynchGHBNTimeoutProcessor"), 0) << "no timer is armed for max_time";
    EXPECT_EQ(heard.results.load(), 1);
    EXPECT_EQ(heard.status.load(), Hostent::GHBN_SUCCESS);
    EXPECT_EQ(heard.destroyed.load(), 1);
}

TEST_F(AsyncResolve, ResultFirstThenTheTimerDestroysTheContainer) {
    ASSERT_TRUE(Net::initializeLibrary());
    Heard heard;
    EXPECT_TRUE(server().resolve("10.5.0.2", new Client(heard), ACE_Time_Value(0, 300000), false));
    ASSERT_TRUE(heard.waitTold());
    EXPECT_EQ(heard.results.load(), 1);
    EXPECT_EQ(heard.destroyed.load(), 1) << "the client callback is destroyed after its notification";
    EXPECT_TRUE(drained("AsynchGHBNCallbackContainer")) << "the timer still fires and frees the container";
    EXPECT_TRUE(drained("AsynchGHBNTimeoutProcessor"));
    EXPECT_EQ(heard.timeouts.load(), 0);
}

TEST_F(AsyncResolve, TimeOutFirstThenTheLateResultIsDroppedButCached) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setDelay(std::chrono::milliseconds(200));
    Heard heard;
    EXPECT_TRUE(server().resolve("10.5.0.3", new Client(heard), ACE_Time_Value::zero, true));
    ASSERT_TRUE(heard.waitTold());
    EXPECT_EQ(heard.timeouts.load(), 1);
    ASSERT_TRUE(hook.waitFinished(1));
    EXPECT_TRUE(drained("AsynchGHBNCallbackContainer"));
    EXPECT_EQ(heard.results.load(), 0);
    EXPECT_EQ(heard.destroyed.load(), 1);

    // The late result reached the cache: the next request is a hit on this thread.
    Heard again;
    EXPECT_TRUE(server().resolve("10.5.0.3", new Client(again), ACE_Time_Value(1), true));
    EXPECT_EQ(again.results.load(), 1) << "a cache hit is delivered before the call returns";
    EXPECT_TRUE(again.onCallerThread.load());
    EXPECT_EQ(again.destroyed.load(), 1);
    EXPECT_EQ(hook.lookups(), 1);
    EXPECT_EQ(live("AsynchGHBNCallbackContainer"), 0) << "a hit creates nothing";
}

TEST_F(AsyncResolve, NullCallbackIsRefused) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::AssertCapture asserts;
    EXPECT_FALSE(server().resolve("10.5.0.4", static_cast<HostNameServer::GetHostByNameCallback*>(nullptr),
                                  ACE_Time_Value(1), false));
    EXPECT_TRUE(asserts.contains("in_pNewCallback != 0"));
}

TEST_F(AsyncResolve, RefusedRequestsStillTellTheClientExactlyOnce) {
    // A resolver that was never started refuses the work and the timer.
    HostNameServer stopped;
    const struct {
        ACE_Time_Value timeout;
        int results;
        int timeouts;
    } cases[] = {{ACE_Time_Value::max_time, 1, 0}, {ACE_Time_Value(5), 0, 1}};
    for (const auto& c : cases) {
        Heard heard;
        EXPECT_FALSE(stopped.getHostByName("10.5.0.5", new Client(heard), c.timeout, false));
        EXPECT_EQ(heard.results.load(), c.results);
        EXPECT_EQ(heard.timeouts.load(), c.timeouts);
        EXPECT_EQ(heard.destroyed.load(), 1);
    }
    expectAllDrained();
}

TEST_F(AsyncResolve, StoppingWithTimersArmedTellsEveryClientOnce) {
    set("corvane.net.HostNameServer.numThread", "1");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setBlocking(true);
    constexpr int kClients = 20;
    std::vector<Heard> heard(kClients);
    for (int i = 0; i < kClients; ++i) {
        server().resolve(("10.5.1." + std::to_string(i)).c_str(), new Client(heard[i]),
                         i % 2 ? ACE_Time_Value(30) : ACE_Time_Value::max_time, false);
    }
    std::thread releaser([&hook] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        hook.release();
    });
    EXPECT_TRUE(Net::forcedCloseLibrary());
    releaser.join();
    for (int i = 0; i < kClients; ++i) {
        EXPECT_EQ(heard[i].told(), 1) << i;
        EXPECT_EQ(heard[i].destroyed.load(), 1) << i;
    }
    expectAllDrained();
}

TEST_F(AsyncResolve, ACallbackMayStartAnotherResolutionFromItsNotification) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    ASSERT_TRUE(Net::initializeLibrary());
    Heard inner;
    struct Chaining : HostNameServer::GetHostByNameCallback {
        explicit Chaining(Heard& heard) : m_inner(heard) {}
        bool onGhbnTimeout(const char*) override { return true; }
        bool onGhbnResult(const char* name, const Hostent&, Hostent::GetHostByNameStatus, ACE_Time_Value) override {
            // Runs under the resolver's cache lock: the lock is re-entrant.
            return HostNameServer::getInstance().resolve(name, new Client(m_inner), ACE_Time_Value(2), true);
        }
        Heard& m_inner;
    };
    EXPECT_TRUE(server().resolve("10.5.2.1", new Chaining(inner), ACE_Time_Value::max_time, true));
    ASSERT_TRUE(inner.waitTold());
    EXPECT_EQ(inner.results.load(), 1);
    EXPECT_EQ(inner.status.load(), Hostent::GHBN_SUCCESS);
}

TEST_F(AsyncResolve, ProxyIsNeverToldOfATimeOut) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::LogCapture log;
    Heard heard;
    server().resolve("10.5.3.1", new Client(heard), ACE_Time_Value(0, 250000), false);
    ASSERT_TRUE(heard.waitTold());
    EXPECT_EQ(log.count("HostNameServer::getHostByName : hostname=10.5.3.1 timeout=250ms"), 1u);
}

TEST_F(AsyncResolve, StressEveryClientIsToldExactlyOnce) {
    set("corvane.net.HostNameServer.numThread", "4");
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    std::mutex rngMutex;
    std::mt19937 rng(12345);
    hook.setDelayFunction([&] {
        std::lock_guard<std::mutex> guard(rngMutex);
        return std::chrono::microseconds(rng() % 400);
    });
    constexpr int kThreads = 4;
    constexpr int kPerThread = 2500;
    std::vector<Heard> heard(kThreads * kPerThread);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 local(static_cast<unsigned>(t));
            for (int i = 0; i < kPerThread; ++i) {
                Heard& h = heard[static_cast<size_t>(t * kPerThread + i)];
                const ACE_Time_Value timeout(0, static_cast<suseconds_t>(local() % 600));
                const std::string name = "10.6." + std::to_string(t) + "." + std::to_string(i % 50);
                HostNameServer::getInstance().resolve(name.c_str(), new Client(h), timeout, i % 3 == 0);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (size_t i = 0; i < heard.size(); ++i) ASSERT_TRUE(heard[i].waitTold()) << i;
    EXPECT_TRUE(Net::forcedCloseLibrary());
    int wrong = 0;
    for (const Heard& h : heard) {
        if (h.told() != 1 || h.destroyed.load() != 1) ++wrong;
    }
    EXPECT_EQ(wrong, 0);
    expectAllDrained();
}
