// The edges of the library's life: restarts, starts that fail half-way, threads that cannot be had, random
// clients, teardown of the singletons, and a DNS time-out that must leave the caller to its own.
#include <ares.h>

#include <functional>
#include <mutex>
#include <random>

#include "DnsMode.h"
#include "net/StaticHostNameServer.h"
#include "platform/SingletonRegistry.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"
#include "support/Subprocess.h"

using namespace std::chrono_literals;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

class Lifecycle : public corvane_test::DnsModeTest {
protected:
    void TearDown() override {
        Tarvik::setThreadCreationFaultForTest(nullptr);
        Tarvik::setAllocationFaultForTest(nullptr);
        DnsModeTest::TearDown();
    }
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
    const dns::Bytes answer = dns::response("slow.test", {dns::a(dns::pointer(12), "10.0.0.1", 60)});
    for (const ACE_Time_Value& timeout : {ACE_Time_Value(0, 200000), ACE_Time_Value::max_time}) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(HostNameServerPeer::resolveWithDnsAnswer(server(), "slow.test", ARES_ETIMEOUT, answer, h, status,
                                                              timeout));
        EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    }
    EXPECT_TRUE(drained(corvane_test::kDnsFutureAccount));
}

TEST_F(Lifecycle, CacheEntryThatCannotBeReplacedStaysWholeAndStillExpires) {
    static std::atomic<long long> s_nowSec{1000};
    HostNameServer::setClockForTest([] { return ACE_Time_Value(static_cast<time_t>(s_nowSec.load())); });
    set(HostNameServer::getCacheSuccessParamName(), "true");
    ASSERT_TRUE(Net::initializeLibrary());
    Hostent first;
    Hostent second;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
    ASSERT_TRUE(first.getHostByName("10.0.0.1", status));
    ASSERT_TRUE(second.getHostByName("10.0.0.2", status));
    HostNameServerPeer::updateCache(server(), "a.test", first, Hostent::GHBN_SUCCESS, ACE_Time_Value(10));

    Tarvik::setAllocationFaultForTest([](size_t) { return true; });
    corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
    HostNameServerPeer::updateCache(server(), "a.test", second, Hostent::GHBN_SUCCESS, ACE_Time_Value(60));
    HostNameServerPeer::updateCache(server(), "b.test", second, Hostent::GHBN_SUCCESS, ACE_Time_Value(60));
    Tarvik::setAllocationFaultForTest(nullptr);
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "out of memory, a.test not cached"));

    Hostent cached;
    bool usable = false;
    ASSERT_TRUE(HostNameServerPeer::getHostentInCache(server(), "a.test", cached, status, usable));
    EXPECT_EQ(corvane_test::addressesOf(cached), std::vector<std::string>{"10.0.0.1"});
    EXPECT_FALSE(HostNameServerPeer::getHostentInCache(server(), "b.test", cached, status, usable));
    s_nowSec += 11;
    EXPECT_FALSE(HostNameServerPeer::getHostentInCache(server(), "a.test", cached, status, usable));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
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
    std::vector<HostNameServer*> seen(4);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&seen, i] { seen[i] = &server(); });
    for (auto& t : threads) t.join();
    EXPECT_EQ(seen, std::vector<HostNameServer*>(4, &server()));
    EXPECT_EQ(live("StaticHostNameServer"), 1);

    Tarvik::SingletonRegistry::getInstance().teardown();
    EXPECT_EQ(Tarvik::SingletonRegistry::getInstance().find("StaticHostNameServer"),
              static_cast<void*>(static_cast<Tarvik::StaticHostNameServer*>(&server())));
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_TRUE(resolves());
}

// Clients start, close and use the library in random order, now and then a thread cannot be made: nothing
// crashes or hangs, every callback is told once (or was refused and stays the client's), a start after the
// last close succeeds, and no object is left behind.
TEST_F(Lifecycle, ClientsInRandomOrderWithThreadsRefusedAreToldOnceAndLeaveNothingBehind) {
    corvane_test::Dnsmasq dnsmasq("127.53.73.1");
    dnsmasq.hostRecord("one.test", {"10.71.0.1"}).hostRecord("two.test", {"10.71.0.2", "10.71.0.3"});
    startServer(dnsmasq);
    const std::vector<std::string> modes[] = {{"localhost", "127.0.0.1", "10.0.0.1:5060"},  // the system's resolver
                                              {"one.test", "two.test", "none.test", "10.0.0.9"}};  // DNS
    const ACE_Time_Value timeouts[] = {ACE_Time_Value::zero, ACE_Time_Value(0, 10000), ACE_Time_Value(0, 300000),
                                       ACE_Time_Value::max_time};
    for (const std::vector<std::string>& names : modes) {
        if (&names == &modes[1]) startWith(dnsmasq.address());
        set("corvane.net.HostNameServer.numThread", "2");
        set(HostNameServer::getCacheSuccessParamName(), "true");
        corvane_test::AssertCapture asserts;  // refusals in DNS mode are reported, not logged
        corvane_test::LogCapture quiet(Tarvik::FATAL_LOG_LEVEL);
        std::atomic<unsigned> creations{0};
        Tarvik::setThreadCreationFaultForTest([&creations] { return ++creations % 23 == 0; });
        std::mutex mutex;
        std::vector<std::pair<std::unique_ptr<corvane_test::Heard>, corvane_test::Recorder*>> asked;
        const auto until = std::chrono::steady_clock::now() + 3s;
        std::vector<std::thread> clients;
        for (unsigned c = 0; c < 4; ++c) {
            clients.emplace_back([&, c] {
                std::mt19937 random(1234 + c);
                bool holding = false;  // each client balances its own starts
                for (int op = 0; op < 400 && std::chrono::steady_clock::now() < until; ++op) {
                    const char* name = names[random() % names.size()].c_str();
                    const ACE_Time_Value timeout = timeouts[random() % 4];
                    const unsigned action = random() % 16;
                    if (action < 4 && !holding) {
                        holding = Net::initializeLibrary();
                    } else if (action < 4) {
                        holding = false;
                        random() % 2 ? Net::closeLibrary() : Net::forcedCloseLibrary();
                    } else if (action < 10) {
                        Hostent h;
                        Hostent::GetHostByNameStatus status;
                        server().resolve(name, h, status, timeout, random() % 2 == 0);
                    } else {
                        std::unique_lock<std::mutex> lock(mutex);
                        asked.emplace_back(std::make_unique<corvane_test::Heard>(), nullptr);
                        corvane_test::Recorder* pCallback = new corvane_test::Recorder(*asked.back().first);
                        asked.back().second = pCallback;
                        lock.unlock();
                        server().resolve(name, pCallback, timeout, random() % 2 == 0);
                    }
                }
                if (holding) Net::closeLibrary();
            });
        }
        for (std::thread& client : clients) client.join();
        Tarvik::setThreadCreationFaultForTest(nullptr);
        EXPECT_TRUE(Net::forcedCloseLibrary());
        HostNameServerPeer::leaveDnsMode(server());
        EXPECT_TRUE(Net::initializeLibrary());
        Net::forcedCloseLibrary();
        for (const auto& request : asked) {
            EXPECT_EQ(request.first->told(), request.first->destroyed.load());
            if (request.first->destroyed == 0) delete request.second;
        }
        for (const Tarvik::MemAccount::Snapshot& account : Tarvik::MemAccount::snapshot()) {
            EXPECT_TRUE(account.objects == 0 || account.name == "StaticHostNameServer") << account.name;
        }
    }
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
    std::remove(resolverConfigPath().c_str());  // no destructor of this test runs past exit
    std::exit(0);  // the singletons are torn down while the resolver's threads end
}

TEST_F(Lifecycle, ExitAfterCloseInDnsModeWithQueriesInFlight) {
    for (int run = 0; run < 10; ++run) {
        const corvane_test::SubprocessResult result = corvane_test::runSubprocess(
            {corvane_test::selfExecutable(), "--gtest_filter=Lifecycle.ExitChildClosesWithQueriesInFlight"},
            {{"CORVANE_EXIT_CHILD_SERVER", "127.53.72.2"}}, 30000);
        ASSERT_EQ(result.exitStatus, 0) << "run " << run << ":\n" << result.output;
    }
}

}  // namespace
