#include <netdb.h>

#include <atomic>
#include <thread>
#include <vector>

#include <ace/Guard_T.h>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "net/StaticHostNameServer.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;

namespace {

const ACE_Time_Value kTwoSeconds(2, 0);

class Resolver : public corvane_test::LibraryTest {};

std::string firstAddress(const Hostent& h) {
    std::string out;
    h.getAddress(0, out);
    return out;
}

}  // namespace

TEST_F(Resolver, ResolvesLiteralsAndLocalhostAfterInitialization) {
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(server().getTaskState(), Tarvik::Task::RUNNING);
    const struct {
        const char* name;
        const char* address;
    } cases[] = {{"127.0.0.1", "127.0.0.1"}, {"10.0.0.1:5060", "10.0.0.1"}, {"localhost", "127.0.0.1"}};
    for (const auto& c : cases) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
        EXPECT_TRUE(server().resolve(c.name, h, status, kTwoSeconds, false)) << c.name;
        EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
        EXPECT_EQ(firstAddress(h), c.address);
    }
}

TEST_F(Resolver, ResolutionBeforeInitializationIsRefusedWithoutTouchingOutputs) {
    corvane_test::LogCapture log;
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_NO_DATA;
    EXPECT_FALSE(server().resolve("127.0.0.1", h, status, kTwoSeconds, false));
    EXPECT_EQ(status, Hostent::GHBN_NO_DATA);
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL,
                             "StaticHostNameServer is not in the RUNNING state. Did you initialize the Net library?"));
}

TEST_F(Resolver, ZeroThreadsFailInitializationBeforeTheTaskStarts) {
    set("corvane.net.HostNameServer.numThread", "0");
    corvane_test::LogCapture log;
    EXPECT_FALSE(Net::initializeLibrary());
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "corvane.net.HostNameServer.numThread must be >= 1"));
    EXPECT_NE(server().getTaskState(), Tarvik::Task::RUNNING);
    EXPECT_FALSE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "Succesfully initialized Net library"));
}

TEST_F(Resolver, FlushPeriodBelowOneIsRefusedAndTheDefaultKept) {
    set("corvane.net.HostNameServer.cacheFlushTimeoutMs", "0");
    corvane_test::LogCapture log;
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_TRUE(log.contains(Tarvik::WARN_LOG_LEVEL,
                             "corvane.net.HostNameServer.cacheFlushTimeoutMs parameter must have a value > 0. Ignoring"));
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "Succesfully initialized Net library"));
}

TEST_F(Resolver, ForcedCloseReturnsTheResultOfTheWait) {
    ASSERT_TRUE(Net::initializeLibrary());
    ASSERT_TRUE(Net::initializeLibrary());  // a second client
    EXPECT_FALSE(Net::forcedCloseLibrary()) << "another client still holds the resolver: nothing to wait for";
    EXPECT_EQ(server().getTaskState(), Tarvik::Task::RUNNING);
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_EQ(server().getTaskState(), Tarvik::Task::STOPPED_STATE);
}

TEST_F(Resolver, CloseThenRestartServesAgain) {
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(Net::initializeLibrary()) << round;
        Hostent h;
        Hostent::GetHostByNameStatus status;
        EXPECT_TRUE(server().resolve("10.1.1.1", h, status, kTwoSeconds, false));
        EXPECT_TRUE(Net::closeLibrary());
        EXPECT_TRUE(server().waitUntilDone());
        EXPECT_FALSE(server().resolve("10.1.1.1", h, status, kTwoSeconds, false));
    }
}

TEST_F(Resolver, TimeOutReturnsWhileTheLookupFinishesInTheBackground) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setDelay(std::chrono::milliseconds(300));
    Hostent h = Hostent();
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server().resolve("10.2.3.4", h, status, ACE_Time_Value(0, 20000), true));
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    EXPECT_FALSE(h.isValid()) << "a timed-out call leaves the output as it was";
    ASSERT_TRUE(hook.waitFinished(1));
    // The lookup is over; the work stores its result just after. Wait for it
    // without asking the resolver again.
    bool bCached = false;
    for (int i = 0; i < 5000 && !bCached; ++i) {
        Hostent probe;
        bool usable = false;
        bCached = Tarvik::HostNameServerPeer::getHostentInCache(server(), "10.2.3.4", probe, status, usable);
        if (!bCached) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(bCached);

    // The background resolution reached the cache: the next call is answered from it.
    EXPECT_TRUE(server().resolve("10.2.3.4", h, status, kTwoSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    EXPECT_EQ(firstAddress(h), "10.2.3.4");
    EXPECT_EQ(hook.lookups(), 1);
}

TEST_F(Resolver, ZeroTimeOutIsATimeOutUnlessTheResultIsThere) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setDelay(std::chrono::milliseconds(50));
    Hostent h;
    Hostent::GetHostByNameStatus status;
    EXPECT_FALSE(server().resolve("10.2.3.5", h, status, ACE_Time_Value::zero, false));
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
}

TEST_F(Resolver, FailedLookupsGiveTheirStatus) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    const struct {
        int hErrno;
        Hostent::GetHostByNameStatus status;
    } cases[] = {{HOST_NOT_FOUND, Hostent::GHBN_HOST_NOT_FOUND},
                 {TRY_AGAIN, Hostent::GHBN_TRY_AGAIN},
                 {NO_RECOVERY, Hostent::GHBN_NO_RECOVERY},
                 {NO_DATA, Hostent::GHBN_NO_DATA},
                 {12345, Hostent::GHBN_OTHER_ERROR}};
    for (const auto& c : cases) {
        hook.setFailure(c.hErrno);
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(server().resolve("name.test", h, status, kTwoSeconds, false));
        EXPECT_EQ(status, c.status) << c.hErrno;
    }
}

TEST_F(Resolver, SynchronousCallLogsItsNameAndTimeOut) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::LogCapture log;
    Hostent h;
    Hostent::GetHostByNameStatus status;
    server().resolve("10.0.0.7", h, status, ACE_Time_Value(1, 500000), false);
    EXPECT_EQ(log.count("HostNameServer::getHostByName : HostNameServer::getHostByName hostname=10.0.0.7 timeout=1500ms"), 1u);
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : hostname = 10.0.0.7"));
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : Hostent = HOSTNAME : 10.0.0.7"));
}

TEST_F(Resolver, ManyCallersOnManyThreadsGetTheirOwnAnswers) {
    set("corvane.net.HostNameServer.numThread", "3");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setDelayFunction([] { return std::chrono::microseconds(std::rand() % 300); });
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 8; ++t) {
        callers.emplace_back([t, &wrong] {
            for (int i = 0; i < 40; ++i) {
                const std::string name = "10.7." + std::to_string(t) + "." + std::to_string(i);
                Hostent h;
                Hostent::GetHostByNameStatus status;
                const bool ok = HostNameServer::getInstance().resolve(name.c_str(), h, status, ACE_Time_Value(10), i % 2 == 0);
                std::string address;
                if (!ok || !h.getAddress(0, address) || address != name) ++wrong;
            }
        });
    }
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(Net::forcedCloseLibrary());
    EXPECT_TRUE(drained("HostNameServer::GetHostByNameWork"));
    EXPECT_TRUE(drained("HostNameServer::DNSARecordWork:: FutureCallback"));
    EXPECT_EQ(live("Hostent"), 0);
}

TEST_F(Resolver, CloseWithResolutionsInFlightLeavesNothingBehind) {
    set("corvane.net.HostNameServer.numThread", "1");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setDelay(std::chrono::milliseconds(100));
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([t] {
            Hostent h;
            Hostent::GetHostByNameStatus status;
            HostNameServer::getInstance().resolve(("10.8.0." + std::to_string(t)).c_str(), h, status,
                                                  ACE_Time_Value::max_time, false);
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(Net::forcedCloseLibrary());
    for (auto& caller : callers) caller.join();  // queued works were dropped: their waiters were woken
    EXPECT_TRUE(drained("HostNameServer::GetHostByNameWork"));
    EXPECT_TRUE(drained("HostNameServer::DNSARecordWork:: FutureCallback"));
}

TEST(HostNameServerInstance, ConfigurationRules) {
    const struct {
        const char* name;
        const char* value;
        bool ok;
    } cases[] = {
        {"corvane.net.HostNameServer.numThread", "0", false},
        {"corvane.net.HostNameServer.numThread", "-3", false},
        {"corvane.net.HostNameServer.numThread", "2", true},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "-1", true},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "1", true},
    };
    for (const auto& c : cases) {
        std::string error;
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue(c.name, c.value, error)) << error;
        HostNameServer server;
        EXPECT_EQ(server.configure(Tarvik::GlobalConfig::getInstance().getConfig()), c.ok) << c.name << "=" << c.value;
        Tarvik::GlobalConfig::getInstance().clear();
    }
    corvane_test::AssertCapture asserts;
    HostNameServer server;
    EXPECT_FALSE(server.configure(Tarvik::TSHandle<Tarvik::ROConfiguration>()));
    EXPECT_TRUE(asserts.contains("! in_hConfig.isNull()"));
    EXPECT_STREQ(HostNameServer::getCacheSuccessParamName(), "corvane.net.HostNameServer.cacheSuccess");
    EXPECT_STREQ(HostNameServer::getCacheFailuresParamName(), "corvane.net.HostNameServer.cacheFailures");
    EXPECT_STREQ(HostNameServer::getCacheFlushTimeoutMsParamName(), "corvane.net.HostNameServer.cacheFlushTimeoutMs");
}

TEST(HostNameServerInstance, TheProcessWideResolverIsOneObjectOnEveryThread) {
    HostNameServer* first = &HostNameServer::getInstance();
    std::vector<HostNameServer*> seen(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&seen, i] { seen[i] = &HostNameServer::getInstance(); });
    for (auto& t : threads) t.join();
    for (HostNameServer* p : seen) EXPECT_EQ(p, first);
    EXPECT_NE(dynamic_cast<Tarvik::StaticHostNameServer*>(first), nullptr);
    EXPECT_EQ(Tarvik::MemAccount::get("StaticHostNameServer").getLiveObjects(), 1);
}
