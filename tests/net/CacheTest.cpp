#include <arpa/inet.h>

#include <atomic>
#include <thread>
#include <vector>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;

namespace {

// The clock that decides expiry, moved by the tests.
std::atomic<long> s_nowUsec{1000000000L * 1000000L};
ACE_Time_Value testClock() {
    const long usec = s_nowUsec.load();
    return ACE_Time_Value(usec / 1000000, usec % 1000000);
}
void advance(long in_usec) { s_nowUsec += in_usec; }

Hostent record(const char* address) {
    Hostent h;
    h.setName(address);
    h.setAddressTypeAndLength(AF_INET, 4);
    in_addr a{};
    inet_aton(address, &a);
    h.addAddress(&a);
    return h;
}

class Cache : public corvane_test::LibraryTest {
protected:
    void SetUp() override { HostNameServer::setClockForTest(&testClock); }
    void TearDown() override {
        corvane_test::LibraryTest::TearDown();
        HostNameServer::setClockForTest(nullptr);
    }
    void start(bool success, bool failures) {
        set("corvane.net.HostNameServer.cacheSuccess", success ? "true" : "false");
        set("corvane.net.HostNameServer.cacheFailures", failures ? "true" : "false");
        ASSERT_TRUE(Net::initializeLibrary());
    }
    // A lookup through the cache alone: true on a hit.
    static bool lookup(const char* name, Hostent& out, Hostent::GetHostByNameStatus& status, bool& usable) {
        return HostNameServerPeer::getHostentInCache(server(), name, out, status, usable);
    }
    static bool hit(const char* name) {
        Hostent h;
        Hostent::GetHostByNameStatus status;
        bool usable;
        return lookup(name, h, status, usable);
    }
};

}  // namespace

TEST_F(Cache, NothingIsStoredWhenBothFlagsAreOff) {
    start(false, false);
    corvane_test::LogCapture log;
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    HostNameServerPeer::updateCacheFailure(server(), "b.test", Hostent::GHBN_HOST_NOT_FOUND);
    EXPECT_FALSE(hit("a.test"));
    EXPECT_FALSE(hit("b.test"));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
    EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache miss"), 2u);
    EXPECT_FALSE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "cached")) << "a disabled store does not even log";
}

TEST_F(Cache, SuccessWithoutTimeToLiveGetsTheDefaultAndExpiresStrictlyAfterIt) {
    start(true, false);
    corvane_test::LogCapture log;
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"), 1u);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : cached HOSTNAME : 10.0.0.1\nADDRTYPE : 2\nADDRLENGTH : 4\n"
                        "ADDRESS(ES) : \n\t10.0.0.1 for host a.test (will expired in 10000ms)"),
              1u);

    advance(10 * 1000000L);  // exactly the expiry instant: still served
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
    bool usable = false;
    ASSERT_TRUE(lookup("a.test", h, status, usable));
    EXPECT_TRUE(usable);
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    std::string address;
    EXPECT_TRUE(h.getAddress(0, address));
    EXPECT_EQ(address, "10.0.0.1");
    EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache hit"), 1u);

    advance(1);  // one microsecond later it is swept before the find
    log.clear();
    EXPECT_FALSE(lookup("a.test", h, status, usable));
    EXPECT_EQ(log.messages("corvane.net.HostNameServer"),
              (std::vector<std::string>{"flushing \"a.test\" from cache", "HostNameServer::getHostentInCache : cache miss"}));
}

TEST_F(Cache, GivenTimeToLiveAndConfiguredDefaultAreUsedInMilliseconds) {
    set("corvane.net.HostNameServer.cacheFlushTimeoutMs", "2500");
    start(true, false);
    corvane_test::LogCapture log;
    HostNameServerPeer::updateCache(server(), "given.test", record("10.0.0.2"), Hostent::GHBN_SUCCESS, ACE_Time_Value(1, 500000));
    HostNameServerPeer::updateCache(server(), "default.test", record("10.0.0.3"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : using specified TTL 1500ms"), 1u);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : no TTL specified -> using default value 2500ms"), 1u);
    advance(1500001);
    EXPECT_FALSE(hit("given.test"));
    EXPECT_TRUE(hit("default.test"));
    advance(1000000);
    EXPECT_FALSE(hit("default.test"));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
}

TEST_F(Cache, FailureIsLoggedOverwritesASuccessAndIsNeverServed) {
    start(true, true);
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    ASSERT_TRUE(hit("a.test"));
    corvane_test::LogCapture log;
    HostNameServerPeer::updateCache(server(), "a.test", Hostent(), Hostent::GHBN_HOST_NOT_FOUND, ACE_Time_Value::zero);
    EXPECT_EQ(log.count("HostNameServer::cacheFailure : cached failure of a.test"), 1u);
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 1u) << "the failure replaced the success";
    log.clear();
    EXPECT_FALSE(hit("a.test"));
    EXPECT_EQ(log.messages("corvane.net.HostNameServer"),
              (std::vector<std::string>{"flushing \"a.test\" from cache", "HostNameServer::getHostentInCache : cache miss"}));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
}

TEST_F(Cache, SuccessStatusWithoutAddressTripsThePreconditionAndStoresNothing) {
    start(true, true);
    corvane_test::AssertCapture asserts;
    HostNameServerPeer::updateCache(server(), "empty.test", Hostent(), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    HostNameServerPeer::updateCacheFailure(server(), "other.test", Hostent::GHBN_SUCCESS);
    EXPECT_EQ(asserts.texts(), (std::vector<std::string>{"in_ghbnStatus != Hostent::GHBN_SUCCESS",
                                                         "in_ghbnStatus != Hostent::GHBN_SUCCESS"}));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
}

TEST_F(Cache, NamesAreKeptExactlyAsSpelled) {
    start(true, false);
    HostNameServerPeer::updateCache(server(), "Host.Test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    EXPECT_TRUE(hit("Host.Test"));
    EXPECT_FALSE(hit("host.test"));
    EXPECT_FALSE(hit("HOST.TEST"));
}

TEST_F(Cache, OverwritingAnEntryMovesItsExpiry) {
    start(true, false);
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value(1));
    advance(900000);
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.9"), Hostent::GHBN_SUCCESS, ACE_Time_Value(1));
    advance(200000);  // past the first expiry, before the second
    Hostent h;
    Hostent::GetHostByNameStatus status;
    bool usable;
    ASSERT_TRUE(lookup("a.test", h, status, usable));
    std::string address;
    h.getAddress(0, address);
    EXPECT_EQ(address, "10.0.0.9");
    advance(800001);
    EXPECT_FALSE(hit("a.test"));
}

TEST_F(Cache, SynchronousResolutionsAreAnsweredFromTheCache) {
    start(true, true);
    corvane_test::HostLookupHook hook;
    Hostent h;
    Hostent::GetHostByNameStatus status;
    ASSERT_TRUE(server().resolve("10.3.3.3", h, status, ACE_Time_Value(2), true));
    ASSERT_TRUE(server().resolve("10.3.3.3", h, status, ACE_Time_Value(2), true));
    EXPECT_EQ(hook.lookups(), 1);
    ASSERT_TRUE(server().resolve("10.3.3.3", h, status, ACE_Time_Value(2), false));
    EXPECT_EQ(hook.lookups(), 2) << "useCache false asks the resolver again";

    // A failed resolution recorded as a failure is never served.
    hook.setFailure(HOST_NOT_FOUND);
    EXPECT_FALSE(server().resolve("gone.test", h, status, ACE_Time_Value(2), true));
    EXPECT_FALSE(server().resolve("gone.test", h, status, ACE_Time_Value(2), true));
    EXPECT_EQ(hook.lookups(), 4);
}

TEST_F(Cache, RestartingTheResolverEmptiesTheCache) {
    start(true, false);
    HostNameServerPeer::updateCache(server(), "a.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    ASSERT_TRUE(hit("a.test"));
    ASSERT_TRUE(Net::forcedCloseLibrary());
    corvane_test::LogCapture log;
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(log.count("HostNameServer cache flushed"), 1u);
    EXPECT_FALSE(hit("a.test"));
}

TEST_F(Cache, UsableFlagIsFalseForAnEntryWithoutAddress) {
    start(true, true);
    HostNameServerPeer::updateCache(server(), "ok.test", record("10.0.0.1"), Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
    Hostent out = record("10.9.9.9");
    Hostent::GetHostByNameStatus status = Hostent::GHBN_TIMEOUT;
    bool usable = true;
    EXPECT_FALSE(lookup("missing.test", out, status, usable));
    EXPECT_FALSE(usable);
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT) << "a miss leaves the outputs alone";
    std::string address;
    out.getAddress(0, address);
    EXPECT_EQ(address, "10.9.9.9");
}

TEST_F(Cache, ConcurrentStoresAndLookupsLoseNothing) {
    start(true, true);
    constexpr int kThreads = 6;
    constexpr int kNames = 200;
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &torn] {
            for (int i = 0; i < kNames; ++i) {
                const std::string own = "10.4." + std::to_string(t) + "." + std::to_string(i);
                HostNameServerPeer::updateCache(HostNameServer::getInstance(), own, record(own.c_str()),
                                                Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
                // A shared name, overwritten by everyone with their own record.
                HostNameServerPeer::updateCache(HostNameServer::getInstance(), "shared.test", record(own.c_str()),
                                                Hostent::GHBN_SUCCESS, ACE_Time_Value::zero);
                if (i % 7 == 0) {
                    HostNameServerPeer::updateCacheFailure(HostNameServer::getInstance(), "flaky.test", Hostent::GHBN_TRY_AGAIN);
                }
                Hostent h;
                Hostent::GetHostByNameStatus status;
                bool usable = false;
                if (HostNameServerPeer::getHostentInCache(HostNameServer::getInstance(), "shared.test", h, status, usable)) {
                    std::string address;
                    if (!usable || !h.getAddress(0, address) || address.rfind("10.4.", 0) != 0 || h.getNumAddress() != 1) ++torn;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(torn.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kNames; ++i) {
            const std::string own = "10.4." + std::to_string(t) + "." + std::to_string(i);
            ASSERT_TRUE(hit(own.c_str())) << own;
        }
    }
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), static_cast<size_t>(kThreads * kNames + 1));
}
