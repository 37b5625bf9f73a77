// Several clients start, close and use the library in random order, with now
// and then a thread that cannot be made: nothing crashes or hangs, every
// asynchronous client is told once (or was refused and keeps its callback),
// a start after the last close succeeds, and no object is left behind.
#include <memory>
#include <mutex>
#include <random>

#include "DnsMode.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using Tarvik::Hostent;
namespace Net = Tarvik::Net;

namespace {

class LifecycleStress : public corvane_test::DnsModeTest {
protected:
    void TearDown() override {
        Tarvik::setThreadCreationFaultForTest(nullptr);
        DnsModeTest::TearDown();
    }

    // Runs the clients, then settles and checks. The names are resolved at random.
    void run(const std::vector<std::string>& in_names) {
        set("corvane.net.HostNameServer.numThread", "2");
        set(Tarvik::HostNameServer::getCacheSuccessParamName(), "true");
        corvane_test::AssertCapture asserts;  // refusals in DNS mode are reported, not logged
        corvane_test::LogCapture quiet(Tarvik::FATAL_LOG_LEVEL);
        std::atomic<unsigned> creations{0};
        Tarvik::setThreadCreationFaultForTest([&creations] { return ++creations % 23 == 0; });
        std::mutex mutex;
        std::vector<std::unique_ptr<corvane_test::Heard>> heard;  // one per callback request
        std::vector<corvane_test::Recorder*> callbacks;           // valid while not destroyed
        const auto until = std::chrono::steady_clock::now() + 3s;
        const ACE_Time_Value timeouts[] = {ACE_Time_Value::zero, ACE_Time_Value(0, 10000), ACE_Time_Value(0, 300000),
                                           ACE_Time_Value::max_time};
        std::vector<std::thread> clients;
        for (unsigned c = 0; c < 4; ++c) {
            clients.emplace_back([&, c] {
                std::mt19937 random(1234 + c);
                bool holding = false;  // each client balances its own starts, as a component of the platform does
                for (int op = 0; op < 400 && std::chrono::steady_clock::now() < until; ++op) {
                    const char* name = in_names[random() % in_names.size()].c_str();
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
                        heard.push_back(std::make_unique<corvane_test::Heard>());
                        callbacks.push_back(new corvane_test::Recorder(*heard.back()));
                        corvane_test::Recorder* pCallback = callbacks.back();
                        lock.unlock();
                        server().resolve(name, pCallback, timeout, random() % 2 == 0);
                    }
                }
                if (holding) Net::closeLibrary();
            });
        }
        for (std::thread& client : clients) client.join();

        // Settle: no fault, every thread ended; a start succeeds again.
        Tarvik::setThreadCreationFaultForTest(nullptr);
        EXPECT_TRUE(Net::forcedCloseLibrary());
        Tarvik::HostNameServerPeer::leaveDnsMode(server());
        EXPECT_TRUE(Net::initializeLibrary());
        Net::forcedCloseLibrary();
        for (size_t i = 0; i < heard.size(); ++i) {
            // Refused before the library took it, a callback is still the client's.
            EXPECT_EQ(heard[i]->told(), heard[i]->destroyed.load()) << i;
            if (heard[i]->destroyed == 0) delete callbacks[i];
        }
        for (const Tarvik::MemAccount::Snapshot& account : Tarvik::MemAccount::snapshot()) {
            if (account.name != "StaticHostNameServer") {
                EXPECT_EQ(account.objects, 0) << account.name;
            }
        }
    }
};

TEST_F(LifecycleStress, OperatingSystemMode) { run({"localhost", "127.0.0.1", "10.0.0.1:5060"}); }

TEST_F(LifecycleStress, DnsMode) {
    corvane_test::Dnsmasq dnsmasq("127.53.73.1");
    dnsmasq.hostRecord("one.test", {"10.71.0.1"}).hostRecord("two.test", {"10.71.0.2", "10.71.0.3"});
    startServer(dnsmasq);
    set(kServersParam, dnsmasq.address());
    ASSERT_TRUE(Net::initializeLibrary());
    run({"one.test", "two.test", "none.test", "10.0.0.9"});
}

}  // namespace
