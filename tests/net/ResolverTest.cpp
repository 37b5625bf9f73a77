// Host records, the library's parameters, and resolution through the system's resolver and through its cache.
#include <netdb.h>

#include <array>
#include <sstream>

#include "platform/ParameterInfoDB.h"
#include "support/BoundedWait.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::Heard;
using corvane_test::Recorder;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;

namespace {

std::atomic<long> s_nowUsec{1000000000L * 1000000L};  // the clock that decides expiry, moved by the tests

// A record of IPv4 addresses, each given by its last byte (10.0.0.x).
Hostent make(const std::vector<unsigned char>& in_lastBytes) {
    Hostent h;
    h.setName("www.example.test");
    h.setAddressTypeAndLength(AF_INET, 4);
    for (unsigned char last : in_lastBytes) h.addAddress(std::array<unsigned char, 4>{10, 0, 0, last}.data());
    return h;
}

std::string printed(const Hostent& in_h) {
    std::ostringstream os;
    in_h.write(os);
    return os.str();
}

class Resolver : public corvane_test::LibraryTest {
protected:
    void TearDown() override {
        corvane_test::LibraryTest::TearDown();
        HostNameServer::setClockForTest(nullptr);
    }
    static void start(const char* in_szSuccess, const char* in_szFailures, const char* in_szFlushMs = "10000") {
        HostNameServer::setClockForTest([] { return ACE_Time_Value(s_nowUsec / 1000000, s_nowUsec % 1000000); });
        set("corvane.net.HostNameServer.cacheSuccess", in_szSuccess);
        set("corvane.net.HostNameServer.cacheFailures", in_szFailures);
        set("corvane.net.HostNameServer.cacheFlushTimeoutMs", in_szFlushMs);
        ASSERT_TRUE(Net::initializeLibrary());
    }
    // Every object of a callback resolution is gone (bounded wait).
    static void expectAllDrained() {
        for (const char* account : {"AsynchGHBNCallbackContainer", "AsynchGHBNTimeoutProcessor",
                                    "GetHostByNameCallbackProxy", "HostNameServer::GetHostByNameWork", "Hostent"})
            EXPECT_TRUE(drained(account)) << account << " " << live(account);
    }
    // The first address of a hit in the cache, "" for a miss.
    static std::string hit(const char* name) {
        Hostent h;
        Hostent::GetHostByNameStatus status;
        bool usable = false;
        if (!HostNameServerPeer::getHostentInCache(server(), name, h, status, usable)) return "";
        return usable ? corvane_test::addressesOf(h).at(0) : "unusable";
    }
    // A success is the record of 10.0.0.last.
    static void store(const char* name, Hostent::GetHostByNameStatus status, ACE_Time_Value ttl = {},
                      unsigned char last = 1) {
        const Hostent h = status == Hostent::GHBN_SUCCESS ? make({last}) : Hostent();
        HostNameServerPeer::updateCache(server(), name, h, status, ttl);
    }
};

// Their types and defaults are checked through the command's parameter list.
TEST(LibraryParameters, AreRegisteredInOrderWithTheirDescriptions) {
    const char* const rows[][2] = {  // the name, the description's beginning
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs",
         "The interval in milliseconds at which the host name resolution cache forgets past resolution requests"},
        {"corvane.net.HostNameServer.cacheFailures",
         "When set to true, host name resolution failures are remembered in the cache"},
        {"corvane.net.HostNameServer.cacheSuccess",
         "When set to true, host name resolution that succeed are remembered in the cache"},
        {"corvane.net.HostNameServer.numThread",
         "The number of threads used to implement host name resolution. Sets a limit"},
        {"corvane.net.HostNameServer.DNSServerIPAddrList",
         "A comma separated list of DNS server IP addresses. When this parameter is set, DNS A record queries"},
        {"corvane.net.primaryIPAddress",
         "Specifies which IP address on a multi-homed server should be considered the primary one."},
    };
    std::vector<Tarvik::ParameterInfo> ours;
    for (const Tarvik::ParameterInfo& info : Tarvik::ParameterInfoDB::getInstance().list())
        if (info.name.rfind("corvane.net.", 0) == 0) ours.push_back(info);
    ASSERT_EQ(ours.size(), std::size(rows));
    for (size_t i = 0; i < ours.size(); ++i) {
        EXPECT_EQ(ours[i].name, rows[i][0]);
        EXPECT_EQ(ours[i].description.rfind(rows[i][1], 0), 0u) << ours[i].description;
    }
}

TEST_F(Resolver, StartChecksItsParametersAndAStoppedResolverRefusesWithoutTouchingOutputs) {
    const struct {
        const char* name;
        const char* value;
        bool started;
        const char* logged;  // at ERROR when the start fails, else at WARN ("" for none)
    } rows[] = {
        {"corvane.net.HostNameServer.numThread", "0", false, "corvane.net.HostNameServer.numThread must be >= 1"},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "0", true,
         "corvane.net.HostNameServer.cacheFlushTimeoutMs parameter must have a value > 0. Ignoring"},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "1", true, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + "=" + row.value);
        set(row.name, row.value);
        corvane_test::LogCapture log;
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_NO_DATA;
        EXPECT_FALSE(server().resolve("127.0.0.1", h, status, ACE_Time_Value(2), false));  // stopped
        EXPECT_EQ(status, Hostent::GHBN_NO_DATA);
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "StaticHostNameServer is not in the RUNNING state. "
                                                          "Did you initialize the Net library?"));
        EXPECT_EQ(Net::initializeLibrary(), row.started);
        EXPECT_EQ(server().getTaskState() == Tarvik::Task::RUNNING, row.started);
        EXPECT_EQ(log.count("Succesfully initialized Net library"), row.started ? 1u : 0u);
        const int level = row.started ? Tarvik::WARN_LOG_LEVEL : Tarvik::ERROR_LOG_LEVEL;
        EXPECT_EQ(log.contains(level, *row.logged ? row.logged : "must"), *row.logged != '\0');
        if (row.started) {  // with a second client, a forced close has nothing to wait for
            ASSERT_TRUE(Net::initializeLibrary());
            EXPECT_FALSE(Net::forcedCloseLibrary());
            EXPECT_TRUE(server().resolve("127.0.0.1", h, status, ACE_Time_Value(2), false));
            EXPECT_TRUE(Net::closeLibrary() && server().waitUntilDone());
        }
        Net::forcedCloseLibrary();
        Tarvik::GlobalConfig::getInstance().clear();
    }
    corvane_test::LogCapture asserts;
    HostNameServer unconfigured;
    EXPECT_FALSE(unconfigured.configure(Tarvik::TSHandle<Tarvik::ROConfiguration>()));
    EXPECT_TRUE(asserts.asserted("! in_hConfig.isNull()"));
}

// A time-out leaves the output as it was while the late result is cached; a cached failure is never served.
TEST_F(Resolver, ResolvesThroughTheSystemAndItsCache) {
    start("true", "true");
    corvane_test::HostLookupHook hook;
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    corvane_test::LogCapture log;
    ASSERT_TRUE(server().resolve("10.2.3.1", h, status, ACE_Time_Value(1, 500000), false));
    EXPECT_EQ(1u, log.count("HostNameServer::getHostByName : HostNameServer::getHostByName hostname=10.2.3.1 "
                            "timeout=1500ms"));
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : hostname = 10.2.3.1"));
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : Hostent = HOSTNAME : 10.2.3.1"));
    hook.setDelay(300ms);
    for (const ACE_Time_Value& timeout : {ACE_Time_Value::zero, ACE_Time_Value(0, 20000)}) {
        EXPECT_FALSE(server().resolve("10.2.3.4", h, status, timeout, true));
        EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
        EXPECT_EQ(corvane_test::addressesOf(h), std::vector<std::string>{"10.2.3.1"});
    }
    ASSERT_TRUE(corvane_test::waitFor([] { return hit("10.2.3.4") == "10.2.3.4"; }));
    hook.setDelay(0ms);
    const struct {
        const char* name;
        bool useCache;
        int hErrno, lookups;  // the system's failure (whose mapping is Hostent's), the lookups after the call
    } rows[] = {{"10.2.3.4", true, 0, 3}, {"10.2.3.4", false, 0, 4}, {"gone.test", true, NO_DATA, 5},
                {"gone.test", true, NO_DATA, 6}};
    for (const auto& row : rows) {
        hook.setFailure(row.hErrno);
        EXPECT_EQ(server().resolve(row.name, h, status, ACE_Time_Value(2), row.useCache), row.hErrno == 0);
        EXPECT_EQ(status, row.hErrno == 0 ? Hostent::GHBN_SUCCESS : Hostent::GHBN_NO_DATA);
        EXPECT_EQ(hook.lookups(), row.lookups) << row.name;
    }
}

// Every client is told exactly once, of a result or of its time-out, and its callback is destroyed after that.
TEST_F(Resolver, CallbackIsToldOnceOfTheResultOrOfItsTimeOut) {
    start("true", "false");
    corvane_test::HostLookupHook hook;
    const struct {
        const char* name;
        ACE_Time_Value timeout;
        int delayMs;  // of the lookup: then the zero time-out comes first
        const char* logged;
    } rows[] = {
        {"10.5.0.1", ACE_Time_Value::max_time, 0, "HostNameServer::getHostByName : hostname=10.5.0.1 timeout="},
        {"10.5.0.2", ACE_Time_Value(0, 250000), 0, "HostNameServer::getHostByName : hostname=10.5.0.2 timeout=250ms"},
        {"10.5.0.3", ACE_Time_Value::zero, 200, "HostNameServer::getHostByName : hostname=10.5.0.3 timeout=0ms"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        hook.setDelay(std::chrono::milliseconds(row.delayMs));
        corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
        Heard heard;
        EXPECT_TRUE(server().resolve(row.name, new Recorder(heard), row.timeout, true));
        ASSERT_TRUE(corvane_test::waitFor([&heard] { return heard.told() != 0; }, 10s));
        EXPECT_EQ(log.count("ENTER HostNameServer::getHostByName"), 1u);
        EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, row.logged));
        expectAllDrained();  // a result reaches the client before the timer fires; the timer still frees the rest
        EXPECT_EQ(heard.results.load(), row.delayMs == 0 ? 1 : 0);
        EXPECT_EQ(heard.told() + heard.destroyed, 2);
        EXPECT_EQ(heard.name, row.name);
    }
    // The late result of the time-out reached the cache: a hit is told on the caller's thread, before the return.
    Heard again;
    EXPECT_TRUE(server().resolve("10.5.0.3", new Recorder(again), ACE_Time_Value(1), true));
    EXPECT_EQ(again.results + again.destroyed, 2);
    EXPECT_EQ(again.thread, std::this_thread::get_id());
    EXPECT_EQ(hook.lookups(), 3);
}

TEST_F(Resolver, RefusedOrDroppedCallbackWorkIsToldOnce) {
    set("corvane.net.HostNameServer.numThread", "1");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::LogCapture asserts;
    EXPECT_FALSE(server().resolve("10.5.0.4", static_cast<HostNameServer::GetHostByNameCallback*>(nullptr),
                                  ACE_Time_Value(1), false));
    EXPECT_TRUE(asserts.asserted("in_pNewCallback != 0"));
    HostNameServer stopped;  // never started: it refuses the work and the timer
    for (const ACE_Time_Value& timeout : {ACE_Time_Value::max_time, ACE_Time_Value(5)}) {
        Heard heard;
        EXPECT_FALSE(stopped.getHostByName("10.5.0.5", new Recorder(heard), timeout, false));
        EXPECT_EQ(heard.results.load(), timeout == ACE_Time_Value::max_time ? 1 : 0);
        EXPECT_EQ(heard.told() + heard.destroyed, 2);
    }
    corvane_test::HostLookupHook hook;
    hook.setBlocking();
    std::vector<Heard> heard(8);
    for (size_t i = 0; i < heard.size(); ++i) {
        const ACE_Time_Value timeout = i % 2 ? ACE_Time_Value(30) : ACE_Time_Value::max_time;
        server().resolve(("10.5.1." + std::to_string(i)).c_str(), new Recorder(heard[i]), timeout, false);
    }
    std::thread releaser([&hook] {
        std::this_thread::sleep_for(50ms);
        hook.release();
    });
    EXPECT_TRUE(Net::forcedCloseLibrary());
    releaser.join();
    for (size_t i = 0; i < heard.size(); ++i) {
        EXPECT_EQ(heard[i].told() + heard[i].destroyed, 2) << i;
        EXPECT_EQ(heard[i].timeouts.load(), static_cast<int>(i % 2)) << i;  // else it hears of a failure
    }
    expectAllDrained();
}

TEST_F(Resolver, CacheEntryLivesForItsTimeToLiveAndAFailureIsNeverServed) {
    const struct {
        const char *success, *failures, *flushMs;  // the parameters
        Hostent::GetHostByNameStatus status;
        ACE_Time_Value ttl;
        const char* logged;  // "" when nothing is stored
        long servedUsec;     // served up to this age, gone a microsecond later; -1: never served
    } rows[] = {
        {"true", "false", "10000", Hostent::GHBN_SUCCESS, {},
         "HostNameServer::cacheSuccess : cached HOSTNAME : www.example.test\nADDRTYPE : 2\nADDRLENGTH : 4\n"
         "ADDRESS(ES) : \n\t10.0.0.1 for host a.test (will expired in 10000ms)", 10000000},
        {"true", "false", "10000", Hostent::GHBN_SUCCESS, ACE_Time_Value(1, 500000),
         "HostNameServer::cacheSuccess : using specified TTL 1500ms", 1500000},
        {"true", "false", "2500", Hostent::GHBN_SUCCESS, {},
         "HostNameServer::cacheSuccess : no TTL specified -> using default value 2500ms", 2500000},
        {"false", "true", "10000", Hostent::GHBN_SUCCESS, {}, "", -1},
        {"true", "true", "10000", Hostent::GHBN_HOST_NOT_FOUND, {},
         "HostNameServer::cacheFailure : cached failure of a.test", -1},
        {"true", "false", "10000", Hostent::GHBN_TRY_AGAIN, {}, "", -1},
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
        EXPECT_EQ(hit("a.test"), "");
        EXPECT_EQ(log.count("flushing \"a.test\" from cache"), *row.logged ? 1u : 0u);
        EXPECT_EQ(log.count("HostNameServer::getHostentInCache : cache miss"), 1u);
        Net::forcedCloseLibrary();
    }
}

TEST_F(Resolver, CacheEntriesAreReplacedKeptAsSpelledAndForgottenAtRestart) {
    start("true", "true");
    store("a.test", Hostent::GHBN_SUCCESS, ACE_Time_Value(1));
    s_nowUsec += 900000;
    store("a.test", Hostent::GHBN_SUCCESS, ACE_Time_Value(1), 9);
    s_nowUsec += 200000;  // past the first expiry, before the second
    EXPECT_EQ(hit("a.test") + "|" + hit("A.test"), "10.0.0.9|");
    store("a.test", Hostent::GHBN_NO_DATA);
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 1u) << "the failure replaced the success";
    EXPECT_EQ(hit("a.test"), "");
    corvane_test::LogCapture asserts;
    HostNameServerPeer::updateCache(server(), "empty.test", Hostent(), Hostent::GHBN_SUCCESS, {});
    HostNameServerPeer::updateCacheFailure(server(), "other.test", Hostent::GHBN_SUCCESS);
    EXPECT_EQ(asserts.assertions(), std::vector<std::string>(2, "in_ghbnStatus != Hostent::GHBN_SUCCESS"));
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
    store("c.test", Hostent::GHBN_SUCCESS);
    ASSERT_TRUE(Net::forcedCloseLibrary());
    corvane_test::LogCapture log;
    ASSERT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(log.count("HostNameServer cache flushed"), 1u);
    EXPECT_EQ(hit("c.test"), "");
}

TEST_F(Resolver, CacheEntryThatCannotBeReplacedStaysWholeAndStillExpires) {
    start("true", "false");
    store("a.test", Hostent::GHBN_SUCCESS, ACE_Time_Value(10));
    const Hostent second = make({2});
    corvane_test::LogCapture log(Tarvik::ERROR_LOG_LEVEL);
    Tarvik::setAllocationFaultForTest([](size_t) { return true; });
    HostNameServerPeer::updateCache(server(), "a.test", second, Hostent::GHBN_SUCCESS, ACE_Time_Value(60));
    HostNameServerPeer::updateCache(server(), "b.test", second, Hostent::GHBN_SUCCESS, ACE_Time_Value(60));
    Tarvik::setAllocationFaultForTest(nullptr);
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "out of memory, a.test not cached"));
    EXPECT_EQ(hit("a.test") + "|" + hit("b.test"), "10.0.0.1|");
    s_nowUsec += 10000001;
    EXPECT_EQ(hit("a.test"), "");
    EXPECT_EQ(HostNameServerPeer::cacheSize(server()), 0u);
}

// The statuses of a system's failure are named with the one-shot resolution.
TEST(Hostent, StatusTextsNameEveryValueAndUnknownOnes) {
    const std::pair<int, const char*> rows[] = {
        {-1, "???"}, {1, "GHBN_TIMEOUT"}, {3, "GHBN_NO_ADDRESS"}, {8, "???"}};
    for (const auto& [value, text] : rows)
        EXPECT_STREQ(Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(value)), text);
}

// Every text over a small alphabet up to length 6, and a few others: recognising a whole dotted address and
// splitting one from its port (which keeps its colon) agree with the pattern; 999.1 and 1.2.3.4.5 match it.
TEST(Hostent, DottedAddressIsRecognisedAndSplitFromItsPort) {
    std::vector<std::string> texts = {"10.0.0.1:5060", "999.1", "1.2.3.4.5", "host:5060", "10.0.0.1:50a", ""};
    for (size_t i = texts.size() - 1; i < texts.size() && texts[i].size() < 6; ++i)
        for (char c : std::string("1.:a\n")) texts.push_back(texts[i] + c);
    const Tarvik::BoostRegex pattern = Hostent::getDottedIPRegexp();
    EXPECT_TRUE(pattern.match("10.0.0.1:5060") && pattern.match("999.1") && pattern.match("1.2.3.4.5"));
    for (const std::string& text : texts) {
        boost::smatch match;
        std::string address = "untouched", port = "untouched";
        const bool found = pattern.search(text, match);
        ASSERT_EQ(Hostent::parseDottedIP(text, address, port), found) << text;
        EXPECT_EQ(address + "|" + port, found ? match[1] + "|" + match[2] : "untouched|untouched") << text;
        EXPECT_EQ(Hostent::isDottedIP(text), pattern.match(text)) << text;
    }
}

TEST(Hostent, RecordsAreDeepCopiesCountedUnderTheirAccountAndWalkedForAPrimaryOrPreferredAddress) {
    EXPECT_STREQ(Hostent::getMemAccountName(), "Hostent");
    Tarvik::MemAccount& account = Tarvik::MemAccount::get("Hostent");
    const long objects = account.getLiveObjects();
    corvane_test::LogCapture asserts;
    Hostent* pCopy = new Hostent;
    EXPECT_EQ(account.getLiveObjects(), objects + 1);
    std::string out = "keep";
    EXPECT_FALSE(pCopy->isValid() || pCopy->getAddress(0, out) || pCopy->getPrimaryOrFirstAddress(out) ||
                 pCopy->getPreferredAddressFirst(out, "10.0.0.1"));
    EXPECT_EQ(out + "|" + printed(*pCopy), "keep|ADDRTYPE : 0\nADDRLENGTH : 0");
    {
        Hostent source = make({1, 2, 2, 255});
        source = source;
        *pCopy = Hostent(source);
    }
    pCopy->addAddress(nullptr);
    pCopy->setName(nullptr);
    EXPECT_FALSE(pCopy->getAddress(4, out)) << "an index equal to the count is refused without an assertion";
    EXPECT_EQ(asserts.assertions(), (std::vector<std::string>{"in_pAddress != 0", "in_szHostname != 0"}));
    EXPECT_EQ(printed(*pCopy), "HOSTNAME : www.example.test\nADDRTYPE : 2\nADDRLENGTH : 4\n"
                               "ADDRESS(ES) : \n\t10.0.0.1\n\t10.0.0.2\n\t10.0.0.2\n\t10.0.0.255");
    const char* const kPrimary = "corvane.net.primaryIPAddress";
    const char* const rows[][2] = {{"", "10.0.0.1"}, {"10.0.0.255", "10.0.0.255"}, {"192.168.1.1", "10.0.0.1"}};
    std::string error;
    for (const auto& row : rows) {  // the parameter (empty: unset), the address chosen
        if (*row[0] != '\0') Tarvik::GlobalConfig::getInstance().setValue(kPrimary, row[0], error);
        EXPECT_EQ(pCopy->getPrimaryOrFirstAddress(out) ? out : "refused", row[1]);
        Tarvik::GlobalConfig::getInstance().clearValue(kPrimary);
    }
    EXPECT_TRUE(pCopy->getPreferredAddressFirst(out, "nowhere") && out == "10.0.0.1");
    corvane_test::LogCapture log;
    EXPECT_TRUE(pCopy->getPreferredAddressFirst(out, "10.0.0.2") && out == "10.0.0.2");
    EXPECT_EQ(log.messages("corvane.net.Hostent"),
              (std::vector<std::string>{"Fetched Address: 10.0.0.255", "Fetched Address: 10.0.0.2",
                                        "Address find: 10.0.0.2"}))
        << "the walk stops at the last of several equal addresses";
    delete pCopy;
    EXPECT_EQ(account.getLiveObjects(), objects);
}

TEST(Hostent, OneShotResolutionCopiesTheSystemRecordOrMapsItsFailure) {
    char name[] = "h", alias[] = "a1";
    char* aliases[] = {alias, alias, nullptr};
    unsigned char address[] = {10, 1, 2, 3};
    char* addresses[] = {reinterpret_cast<char*>(address), nullptr};
    hostent raw{name, aliases, AF_INET, 4, addresses};
    Hostent::setHostLookupForTest([&](const char*, hostent*, char*, size_t, hostent** out_ppResult, int*) {
        *out_ppResult = &raw;
        return 0;
    });
    Hostent h;
    Hostent::GetHostByNameStatus status;
    EXPECT_TRUE(h.getHostByName("h", status));
    Hostent::setHostLookupForTest({});
    EXPECT_EQ(printed(Hostent(h)),
              "HOSTNAME : h\nALIASE(S) : \n\ta1\n\ta1\nADDRTYPE : 2\nADDRLENGTH : 4\n"
              "ADDRESS(ES) : \n\t10.1.2.3");
    const std::pair<int, const char*> rows[] = {  // the lookup's failure (0 for none), the status
        {0, "GHBN_SUCCESS"}, {HOST_NOT_FOUND, "GHBN_HOST_NOT_FOUND"}, {TRY_AGAIN, "GHBN_TRY_AGAIN"},
        {NO_RECOVERY, "GHBN_NO_RECOVERY"}, {NO_DATA, "GHBN_NO_DATA"}, {99, "GHBN_OTHER_ERROR"}};
    corvane_test::HostLookupHook hook;  // its record has an empty alias array, which prints no alias line
    for (const auto& [hErrno, text] : rows) {
        hook.setFailure(hErrno);
        corvane_test::LogCapture log;
        EXPECT_EQ(h.getHostByName("10.9.9.9:5060", status), hErrno == 0);
        EXPECT_STREQ(Hostent::getGetHostByNameStatusString(status), text);
        const std::string failure = std::string("ACE_OS::gethostbyname_r failed on hostname 10.9.9.9 : ") + text +
                                    ". localErrno = " + std::to_string(hErrno);
        EXPECT_EQ(log.messages("corvane.net.Hostent"), std::vector<std::string>(hErrno != 0, failure));
        EXPECT_EQ(printed(h), hErrno != 0 ? "ADDRTYPE : 0\nADDRLENGTH : 0"
                                              : "HOSTNAME : 10.9.9.9\nADDRTYPE : 2\nADDRLENGTH : 4\n"
                                                "ADDRESS(ES) : \n\t10.9.9.9");
    }
}

}  // namespace
