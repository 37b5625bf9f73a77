// The library's front door, its parameters, and resolution through the
// operating system's resolver with a time-out.
#include <netdb.h>

#include <thread>
#include <vector>

#include "net/StaticHostNameServer.h"
#include "platform/ParameterInfoDB.h"
#include "support/AssertCapture.h"
#include "support/BoundedWait.h"
#include "support/HostLookupHook.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::addressesOf;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;

namespace {

const ACE_Time_Value kTwoSeconds(2, 0);

class Resolver : public corvane_test::LibraryTest {};

TEST(LibraryParameters, AreRegisteredInOrderWithTypeDefaultAndDescription) {
    const struct {
        const char* name;
        int type;
        const char* defaultValue;  // "" for none
        const char* description;   // its beginning
    } rows[] = {
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", Tarvik::PARAM_TYPE_INTEGER, "",
         "The interval in milliseconds at which the host name resolution cache forgets past resolution requests"},
        {"corvane.net.HostNameServer.cacheFailures", Tarvik::PARAM_TYPE_BOOLEAN, "",
         "When set to true, host name resolution failures are remembered in the cache"},
        {"corvane.net.HostNameServer.cacheSuccess", Tarvik::PARAM_TYPE_BOOLEAN, "",
         "When set to true, host name resolution that succeed are remembered in the cache"},
        {"corvane.net.HostNameServer.numThread", Tarvik::PARAM_TYPE_INTEGER, "3",
         "The number of threads used to implement host name resolution. Sets a limit"},
        {"corvane.net.HostNameServer.DNSServerIPAddrList", Tarvik::PARAM_TYPE_TEXT, "",
         "A comma separated list of DNS server IP addresses. When this parameter is set, DNS A record queries"},
        {"corvane.net.primaryIPAddress", Tarvik::PARAM_TYPE_TEXT, "",
         "Specifies which IP address on a multi-homed server should be considered the primary one."},
    };
    std::vector<Tarvik::ParameterInfo> ours;
    for (const Tarvik::ParameterInfo& info : Tarvik::ParameterInfoDB::getInstance().list()) {
        if (info.name.rfind("corvane.net.", 0) == 0) ours.push_back(info);
    }
    ASSERT_EQ(ours.size(), std::size(rows));
    for (size_t i = 0; i < ours.size(); ++i) {
        EXPECT_EQ(ours[i].name, rows[i].name);
        EXPECT_EQ(ours[i].type, rows[i].type) << rows[i].name;
        EXPECT_EQ(ours[i].hasDefault ? ours[i].defaultValue : "", rows[i].defaultValue) << rows[i].name;
        EXPECT_EQ(ours[i].description.rfind(rows[i].description, 0), 0u) << ours[i].description;
    }
    EXPECT_STREQ(HostNameServer::getCacheSuccessParamName(), rows[2].name);
    EXPECT_STREQ(HostNameServer::getCacheFailuresParamName(), rows[1].name);
    EXPECT_STREQ(HostNameServer::getCacheFlushTimeoutMsParamName(), rows[0].name);
}

TEST_F(Resolver, StartChecksItsParameters) {
    const struct {
        const char* name;
        const char* value;
        bool started;
        const char* logged;  // at ERROR when the start fails, else at WARN ("" for none)
    } rows[] = {
        {"corvane.net.HostNameServer.numThread", "0", false, "corvane.net.HostNameServer.numThread must be >= 1"},
        {"corvane.net.HostNameServer.numThread", "-3", false, "corvane.net.HostNameServer.numThread must be >= 1"},
        {"corvane.net.HostNameServer.numThread", "2", true, ""},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "0", true,
         "corvane.net.HostNameServer.cacheFlushTimeoutMs parameter must have a value > 0. Ignoring"},
        {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "1", true, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + "=" + row.value);
        set(row.name, row.value);
        corvane_test::LogCapture log;
        EXPECT_EQ(Net::initializeLibrary(), row.started);
        EXPECT_EQ(server().getTaskState() == Tarvik::Task::RUNNING, row.started);
        EXPECT_EQ(log.count("Succesfully initialized Net library"), row.started ? 1u : 0u);
        const int level = row.started ? Tarvik::WARN_LOG_LEVEL : Tarvik::ERROR_LOG_LEVEL;
        EXPECT_EQ(log.contains(level, row.logged), *row.logged != '\0');
        EXPECT_EQ(log.contains(level, "must"), *row.logged != '\0');
        Net::forcedCloseLibrary();
        Tarvik::GlobalConfig::getInstance().clear();
    }
    corvane_test::AssertCapture asserts;
    HostNameServer unconfigured;
    EXPECT_FALSE(unconfigured.configure(Tarvik::TSHandle<Tarvik::ROConfiguration>()));
    EXPECT_TRUE(asserts.contains("! in_hConfig.isNull()"));
}

TEST_F(Resolver, StoppedResolverRefusesWithoutTouchingOutputsAndForcedCloseSaysIfItWaited) {
    for (int round = 0; round < 2; ++round) {  // before the first start, then after a close
        corvane_test::LogCapture log;
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_NO_DATA;
        EXPECT_FALSE(server().resolve("127.0.0.1", h, status, kTwoSeconds, false));
        EXPECT_EQ(status, Hostent::GHBN_NO_DATA);
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL,
                                 "StaticHostNameServer is not in the RUNNING state. Did you initialize the Net library?"));
        ASSERT_TRUE(Net::initializeLibrary());
        ASSERT_TRUE(Net::initializeLibrary());  // a second client
        EXPECT_TRUE(server().resolve("127.0.0.1", h, status, kTwoSeconds, false));
        EXPECT_FALSE(Net::forcedCloseLibrary()) << "another client still holds the resolver: nothing to wait for";
        EXPECT_EQ(server().getTaskState(), Tarvik::Task::RUNNING);
        EXPECT_TRUE(Net::closeLibrary());
        EXPECT_TRUE(server().waitUntilDone());
    }
}

TEST_F(Resolver, NamesResolveOrFailWithTheirStatus) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    const struct {
        const char* name;
        int hErrno;  // the operating system's failure, 0 for none
        Hostent::GetHostByNameStatus status;
        const char* address;  // "" when it fails
    } rows[] = {
        {"127.0.0.1", 0, Hostent::GHBN_SUCCESS, "127.0.0.1"},
        {"10.0.0.1:5060", 0, Hostent::GHBN_SUCCESS, "10.0.0.1"},
        {"localhost", 0, Hostent::GHBN_SUCCESS, "127.0.0.1"},
        {"name.test", HOST_NOT_FOUND, Hostent::GHBN_HOST_NOT_FOUND, ""},
        {"name.test", TRY_AGAIN, Hostent::GHBN_TRY_AGAIN, ""},
        {"name.test", NO_RECOVERY, Hostent::GHBN_NO_RECOVERY, ""},
        {"name.test", NO_DATA, Hostent::GHBN_NO_DATA, ""},
        {"name.test", 12345, Hostent::GHBN_OTHER_ERROR, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name + std::string(" ") + std::to_string(row.hErrno));
        hook.setFailure(row.hErrno);
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_TIMEOUT;
        EXPECT_EQ(server().resolve(row.name, h, status, kTwoSeconds, false), *row.address != '\0');
        EXPECT_EQ(status, row.status);
        EXPECT_EQ(addressesOf(h), *row.address ? std::vector<std::string>{row.address} : std::vector<std::string>{});
    }
}

TEST_F(Resolver, CallIsLoggedAndATimeOutLeavesTheOutputAsItWasWhileTheLateResultIsCached) {
    set(HostNameServer::getCacheSuccessParamName(), "true");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    Hostent h;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    corvane_test::LogCapture log;
    ASSERT_TRUE(server().resolve("10.2.3.1", h, status, ACE_Time_Value(1, 500000), false));
    EXPECT_EQ(log.count("HostNameServer::getHostByName : HostNameServer::getHostByName hostname=10.2.3.1 timeout=1500ms"),
              1u);
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : hostname = 10.2.3.1"));
    EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "GetHostByNameWork::doWork : Hostent = HOSTNAME : 10.2.3.1"));
    hook.setDelay(300ms);
    for (const ACE_Time_Value& timeout : {ACE_Time_Value::zero, ACE_Time_Value(0, 20000)}) {
        EXPECT_FALSE(server().resolve("10.2.3.4", h, status, timeout, true));
        EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
        EXPECT_EQ(addressesOf(h), std::vector<std::string>{"10.2.3.1"});
    }
    // The lookups go on in the background; once over, the next call is answered from the cache.
    ASSERT_TRUE(corvane_test::waitFor([&] {
        Hostent probe;
        bool usable = false;
        return Tarvik::HostNameServerPeer::getHostentInCache(server(), "10.2.3.4", probe, status, usable);
    }));
    EXPECT_TRUE(server().resolve("10.2.3.4", h, status, kTwoSeconds, true));
    EXPECT_EQ(addressesOf(h), std::vector<std::string>{"10.2.3.4"});
    EXPECT_EQ(hook.lookups(), 3);
}

}  // namespace
