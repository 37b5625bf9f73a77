// Several clients start, close and use the library in random order, with now
// and then a thread that cannot be made: nothing crashes or hangs, every
// asynchronous client is told once (or was refused and keeps its callback),
// a start after the last close succeeds, and no object is left behind.
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "DnsMode.h"
#include "platform/MemAccount.h"
#include "platform/Thread.h"
#include "support/AssertCapture.h"
#include "support/LogCapture.h"

using namespace std::chrono_literals;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
namespace Net = Tarvik::Net;

namespace {

// What happened to one asynchronous client's callback.
struct Fate {
    std::atomic<int> told{0};         // notifications received
    std::atomic<bool> destroyed{false};  // the library destroyed it
};

class CountingCallback : public HostNameServer::GetHostByNameCallback {
public:
    explicit CountingCallback(std::shared_ptr<Fate> in_pFate) : m_pFate(std::move(in_pFate)) {}
    ~CountingCallback() override { m_pFate->destroyed = true; }
    bool onGhbnTimeout(const char*) override {
        ++m_pFate->told;
        return true;
    }
    bool onGhbnResult(const char*, const Hostent&, Hostent::GetHostByNameStatus, ACE_Time_Value) override {
        ++m_pFate->told;
        return true;
    }

private:
    std::shared_ptr<Fate> m_pFate;  // outlives the callback
};

struct Issued {
    std::shared_ptr<Fate> fate;
    CountingCallback* callback;  // valid only while not destroyed
};

class LifecycleStress : public corvane_test::DnsModeTest {
protected:
    void TearDown() override {
        Tarvik::setThreadCreationFaultForTest(nullptr);
        DnsModeTest::TearDown();
    }

    // Runs the clients, then settles and checks. in_names are resolved at random.
    void run(const std::vector<std::string>& in_names) {
        set("corvane.net.HostNameServer.numThread", "2");
        set(HostNameServer::getCacheSuccessParamName(), "true");
        corvane_test::AssertCapture asserts;    // refusals in DNS mode are reported, not logged
        corvane_test::LogCapture quiet(Tarvik::FATAL_LOG_LEVEL);
        std::atomic<unsigned> s_creations{0};
        Tarvik::setThreadCreationFaultForTest([&s_creations] { return ++s_creations % 23 == 0; });

        std::mutex issuedMutex;
        std::vector<Issued> issued;
        std::atomic<long> slowestMs{0};
        const auto until = std::chrono::steady_clock::now() + 3s;
        std::vector<std::thread> clients;
        for (unsigned c = 0; c < 4; ++c) {
            clients.emplace_back([&, c] {
                std::mt19937 random(1234 + c);
                bool holding = false;  // this client's start is not yet balanced by a close
                for (int op = 0; op < 400 && std::chrono::steady_clock::now() < until; ++op) {
                    const std::string& name = in_names[random() % in_names.size()];
                    const ACE_Time_Value timeouts[] = {ACE_Time_Value::zero, ACE_Time_Value(0, 10000),
                                                       ACE_Time_Value(0, 300000), ACE_Time_Value::max_time};
                    const ACE_Time_Value timeout = timeouts[random() % 4];
                    const auto start = std::chrono::steady_clock::now();
                    const unsigned action = random() % 16;
                    switch (action < 4 ? 0 : action < 10 ? 1 : 2) {
                        case 0:
                            // Each client balances its own starts, as a component of the platform does.
                            if (!holding) {
                                holding = Net::initializeLibrary();
                            } else {
                                holding = false;
                                random() % 2 ? Net::closeLibrary() : Net::forcedCloseLibrary();
                            }
                            break;
                        case 1: {
                            Hostent h;
                            Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
                            server().resolve(name.c_str(), h, status, timeout, random() % 2 == 0);
                            break;
                        }
                        default: {
                            auto pFate = std::make_shared<Fate>();
                            auto* pCallback = new CountingCallback(pFate);
                            {
                                std::lock_guard<std::mutex> guard(issuedMutex);
                                issued.push_back({pFate, pCallback});
                            }
                            server().resolve(name.c_str(), pCallback, timeout, random() % 2 == 0);
                            break;
                        }
                    }
                    const long ms = static_cast<long>(
                        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                            .count());
                    long seen = slowestMs.load();
                    while (ms > seen && !slowestMs.compare_exchange_weak(seen, ms)) {
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
        // A call that hangs never returns; one past this bound waited for far more than its time-out.
        EXPECT_LT(slowestMs.load(), 20000);

        size_t refused = 0;
        for (Issued& request : issued) {
            if (request.fate->destroyed) {
                EXPECT_EQ(request.fate->told.load(), 1);
            } else {
                // Refused before the library took it: the callback is still the client's.
                EXPECT_EQ(request.fate->told.load(), 0);
                delete request.callback;
                ++refused;
            }
        }
        for (const Tarvik::MemAccount::Snapshot& account : Tarvik::MemAccount::snapshot()) {
            if (account.name == "StaticHostNameServer") continue;  // the singleton lives on
            EXPECT_EQ(account.objects, 0) << account.name;
        }
    }
};

TEST_F(LifecycleStress, OperatingSystemMode) { run({"localhost", "127.0.0.1", "10.0.0.1:5060"}); }

TEST_F(LifecycleStress, DnsMode) {
    corvane_test::Dnsmasq dnsmasq("127.53.71.1");
    dnsmasq.hostRecord("one.test", {"10.71.0.1"}).hostRecord("two.test", {"10.71.0.2", "10.71.0.3"});
    startServer(dnsmasq);
    set(kServersParam, dnsmasq.address());
    ASSERT_TRUE(Net::initializeLibrary());
    run({"one.test", "two.test", "none.test", "10.0.0.9"});
}

}  // namespace
