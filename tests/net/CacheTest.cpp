// The resolver's cache: successes live for their time-to-live, failures are recorded but never served, and a
// restart forgets everything.
#include <netdb.h>

#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;
using Tarvik::HostNameServerPeer;

namespace {

std::atomic<long> s_nowUsec{1000000000L * 1000000L};  // the clock that decides expiry, moved by the tests

class Cache : public corvane_test::LibraryTest {
protected:
    void SetUp() override {
        Tarvik::HostNameServer::setClockForTest(
            [] { return ACE_Time_Value(s_nowUsec / 1000000, s_nowUsec % 1000000); });
    }
    void TearDown() override {
        corvane_test::LibraryTest::TearDown();
        Tarvik::HostNameServer::setClockForTest(nullptr);
    }
    // Starts with these cacheSuccess, cacheFailures and cacheFlushTimeoutMs values.
    static void start(const char* in_szSuccess, const char* in_szFailures, const char* in_szFlushMs = "10000") {
        set("corvane.net.HostNameServer.cacheSuccess", in_szSuccess);
        set("corvane.net.HostNameServer.cacheFailures", in_szFailures);
        set("corvane.net.HostNameServer.cacheFlushTimeoutMs", in_szFlushMs);
        ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    }
    static void store(const char* name, Hostent::GetHostByNameStatus status,
                      ACE_Time_Value ttl = ACE_Time_Value::zero, const char* address = "10.0.0.1") {
        Hostent h;
        if (status == Hostent::GHBN_SUCCESS) h.getHostByName(address, status);
        HostNameServerPeer::updateCache(server(), name, h, status, ttl);
    }
    // The first address of a hit, "" for a miss.
    static std::string hit(const char* name) {
        Hostent h;
        Hostent::GetHostByNameStatus status;
        bool usable = false;
        if (!HostNameServerPeer::getHostentInCache(server(), name, h, status, usable)) return "";
        return usable ? corvane_test::addressesOf(h).at(0) : "unusable";
    }
};

TEST_F(Cache, EntryLivesForItsTimeToLiveAndAFailureIsNeverServed) {
    const struct {
        const char* success;  // the parameters
        const char* failures;
        const char* flushMs;
        Hostent::GetHostByNameStatus status;
        ACE_Time_Value ttl;
        const char* logged;  // "" when nothing is stored
        long servedUsec;     // served up to this age, gone a microsecond later; -1: never served
    } rows[] = {
        {"true", "false", "10000", Hostent::GHBN_SUCCESS, ACE_Time_Value::zero,
         "HostNameServer::cacheSuccess : cached HOSTNAME : 10.0.0.1\nADDRTYPE : 2\nADDRLENGTH : 4\n"
         "ADDRESS(ES) : \n\t10.0.0.1 for host a.test (will expired in 10000ms)",
         10000000},
        {"true", "false", "10000", Hostent::GHBN_SUCCESS, ACE_Time_Value(1, 500000),
         "HostNameServer::cacheSuccess : using specified TTL 1500ms", 1500000},
        {"true", "false", "2500", Hostent::GHBN_SUCCESS, ACE_Time_Value::zero,
         "HostNameServer::cacheSuccess : no TTL specified -> using default value 2500ms", 2500000},
        {"false", "true", "10000", Hostent::GHBN_SUCCESS, ACE_Time_Value::zero, "", -1},
        {"true", "true", "10000", Hostent::GHBN_HOST_NOT_FOUND, ACE_Time_Value::zero,
         "HostNameServer::cacheFailure : cached failure of a.test", -1},
        {"true", "false", "10000", Hostent::GHBN_TRY_AGAIN, ACE_Time_Value::zero, "", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.logged);
        start(row.success, row.failures, row.flushMs);
        corvane_test::LogCapture log;
        store("a.test", row.status, row.ttl);
        EXPECT_EQ(HostNameServerPeer::cacheSize(server()), *row.logged ? 1u : 0u);
        EXPECT_EQ(log.count(row.logged), *row.logged ? 1u : 0u);
        if (row.servedUsec >= 0) {
            s_nowUsec += row.servedUsec;  // exactly the expiry instant: still served
            EXPECT_EQ(hit("a.test"), "10.0.0.1");
            EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache hit"), 1u);
        }
        s_nowUsec += 1;
        log.clear();
        EXPECT_EQ(hit("a.test"), "");
        const std::vector<std::string> flushed = {"flushing \"a.test\" from cache",
                                                  "HostNameServer::getHostentInCache : cache miss"};
        EXPECT_EQ(log.messages("corvane.net.HostNameServer"),
                  *row.logged ? flushed : std::vector<std::string>{flushed[1]});
        Tarvik::Net::forcedCloseLibrary();
    }
}

TEST_F(Cache, EntriesAreReplacedKeptAsSpelledAndForgottenAtRestart) {
    start("true", "true");
    store("a.test", Hostent::GHBN_SUCCESS, ACE_Time_Value(1));
    s_nowUsec += 900000;
    store("a.test", Hostent::GHBN_SUCCESS, ACE_Time_Value(1), "10.0.0.9");
    s_nowUsec += 200000;  // past the first expiry, before the second
    EXPECT_EQ(hit("a.test") + "|" + hit("A.test"), "10.0.0.9|");
    store("a.test", Hostent::GHBN_NO_DATA);
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 1u) << "the failure replaced the success";
    EXPECT_EQ(hit("a.test"), "");

    corvane_test::AssertCapture asserts;
    HostNameServerPeer::updateCache(server(), "empty.test", Hostent(), Hostent::GHBN_SUCCESS, {});
    HostNameServerPeer::updateCacheFailure(server(), "other.test", Hostent::GHBN_SUCCESS);
    EXPECT_EQ(asserts.texts(), std::vector<std::string>(2, "in_ghbnStatus != Hostent::GHBN_SUCCESS"));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);

    store("c.test", Hostent::GHBN_SUCCESS);
    ASSERT_TRUE(Tarvik::Net::forcedCloseLibrary());
    corvane_test::LogCapture log;
    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    EXPECT_EQ(log.count("HostNameServer cache flushed"), 1u);
    EXPECT_EQ(hit("c.test"), "");
}

TEST_F(Cache, ResolutionsUseTheCacheOnlyWhenAskedAndNeverForAFailure) {
    start("true", "true");
    corvane_test::HostLookupHook hook;
    const struct {
        const char* name;
        bool useCache;
        int lookups;  // after the call
    } rows[] = {{"10.3.3.3", true, 1}, {"10.3.3.3", true, 1}, {"10.3.3.3", false, 2}, {"gone.test", true, 3},
                {"gone.test", true, 4}};
    for (const auto& row : rows) {
        Hostent h;
        Hostent::GetHostByNameStatus status;
        EXPECT_EQ(server().resolve(row.name, h, status, ACE_Time_Value(2), row.useCache), row.name[0] == '1');
        EXPECT_EQ(hook.lookups(), row.lookups) << row.name;
    }
}

}  // namespace
