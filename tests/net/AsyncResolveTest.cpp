// Resolution with a callback: every client is told exactly once, of a result
// or of its time-out, and its callback is destroyed after that.
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using corvane_test::Heard;
using corvane_test::Recorder;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;

namespace {

class AsyncResolve : public corvane_test::LibraryTest {
protected:
    void expectAllDrained() {
        for (const char* account : {"AsynchGHBNCallbackContainer", "AsynchGHBNTimeoutProcessor",
                                    "GetHostByNameCallbackProxy", "HostNameServer::GetHostByNameWork", "Hostent"}) {
            EXPECT_TRUE(drained(account)) << account << " " << live(account);
        }
    }
};

TEST_F(AsyncResolve, ClientIsToldOnceOfTheResultOrOfItsTimeOut) {
    set(HostNameServer::getCacheSuccessParamName(), "true");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    const struct {
        const char* name;
        ACE_Time_Value timeout;
        int delayMs;  // of the lookup
        int results;  // else a time-out
        const char* logged;
    } rows[] = {
        {"10.5.0.1", ACE_Time_Value::max_time, 0, 1, "HostNameServer::getHostByName : hostname=10.5.0.1 timeout="},
        {"10.5.0.2", ACE_Time_Value(0, 250000), 0, 1,
         "HostNameServer::getHostByName : hostname=10.5.0.2 timeout=250ms"},
        {"10.5.0.3", ACE_Time_Value::zero, 200, 0, "HostNameServer::getHostByName : hostname=10.5.0.3 timeout=0ms"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        hook.setDelay(std::chrono::milliseconds(row.delayMs));
        corvane_test::LogCapture log(Tarvik::TRACE_LOG_LEVEL);
        Heard heard;
        EXPECT_TRUE(server().resolve(row.name, new Recorder(heard), row.timeout, true));
        ASSERT_TRUE(heard.waitTold());
        EXPECT_EQ(log.count("ENTER HostNameServer::getHostByName"), 1u);
        EXPECT_TRUE(log.contains(Tarvik::DEBUG_LOG_LEVEL, row.logged));
        // A result reaches the client before the timer fires; the timer still frees what is left.
        expectAllDrained();
        EXPECT_EQ(heard.results.load(), row.results);
        EXPECT_EQ(heard.timeouts.load(), 1 - row.results);
        EXPECT_EQ(heard.destroyed.load(), 1);
        EXPECT_EQ(heard.name, row.name);
        if (row.results == 1) {
            EXPECT_EQ(heard.status, Hostent::GHBN_SUCCESS);
        }
        if (row.results == 1) {
            EXPECT_EQ(heard.ttl, ACE_Time_Value::zero);
        }
    }
    // The late result of the time-out reached the cache: a hit is told on the caller's thread, before the return.
    Heard again;
    EXPECT_TRUE(server().resolve("10.5.0.3", new Recorder(again), ACE_Time_Value(1), true));
    EXPECT_EQ(again.results.load(), 1);
    EXPECT_EQ(again.thread, std::this_thread::get_id());
    EXPECT_EQ(again.destroyed.load(), 1);
    EXPECT_EQ(hook.lookups(), 3);
}

TEST_F(AsyncResolve, RefusedRequestIsStillToldOnce) {
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::AssertCapture asserts;
    EXPECT_FALSE(server().resolve("10.5.0.4", static_cast<HostNameServer::GetHostByNameCallback*>(nullptr),
                                  ACE_Time_Value(1), false));
    EXPECT_TRUE(asserts.contains("in_pNewCallback != 0"));

    // A resolver that was never started refuses the work and the timer.
    HostNameServer stopped;
    for (const ACE_Time_Value& timeout : {ACE_Time_Value::max_time, ACE_Time_Value(5)}) {
        Heard heard;
        EXPECT_FALSE(stopped.getHostByName("10.5.0.5", new Recorder(heard), timeout, false));
        EXPECT_EQ(heard.results.load(), timeout == ACE_Time_Value::max_time ? 1 : 0);
        EXPECT_EQ(heard.told(), 1);
        EXPECT_EQ(heard.destroyed.load(), 1);
    }
    expectAllDrained();
}

TEST_F(AsyncResolve, StoppingWithWorkQueuedTellsEveryClientOnce) {
    set("corvane.net.HostNameServer.numThread", "1");
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    hook.setBlocking(true);
    std::vector<Heard> heard(8);
    for (size_t i = 0; i < heard.size(); ++i) {
        // With a timer the client hears of its time-out, without one of a failure.
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
        SCOPED_TRACE(i);
        EXPECT_EQ(heard[i].told(), 1);
        EXPECT_EQ(heard[i].destroyed.load(), 1);
        if (i > 0) {  // the first ran; the others were dropped
            EXPECT_EQ(heard[i].timeouts.load(), static_cast<int>(i % 2));
        }
    }
    expectAllDrained();
}

}  // namespace
