// Parameters for one test, forgotten with the library after it; a callback that records what it was told.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "platform/GlobalConfig.h"
#include "platform/MemAccount.h"
#include "support/BoundedWait.h"

namespace corvane_test {

class LibraryTest : public ::testing::Test {
protected:
    void TearDown() override {
        Tarvik::Net::forcedCloseLibrary();
        Tarvik::GlobalConfig::getInstance().clear();
    }
    static void set(const std::string& name, const std::string& value) {
        std::string error;
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue(name, value, error)) << error;
    }
    static Tarvik::HostNameServer& server() { return Tarvik::HostNameServer::getInstance(); }
    static long live(const char* account) { return Tarvik::MemAccount::get(account).getLiveObjects(); }
    static bool drained(const char* account) {
        return waitFor([account] { return live(account) == 0; });
    }
};

// The addresses of a record, in its order.
inline std::vector<std::string> addressesOf(const Tarvik::Hostent& in_hostent) {
    std::vector<std::string> out(in_hostent.getNumAddress());
    for (size_t i = 0; i < out.size(); ++i) in_hostent.getAddress(i, out[i]);
    return out;
}

// What one resolution's callback heard; the texts are written before the count that tells of them.
struct Heard {
    std::atomic<int> results{0};
    std::atomic<int> timeouts{0};
    std::atomic<int> destroyed{0};
    std::string name;
    Tarvik::Hostent::GetHostByNameStatus status = Tarvik::Hostent::GHBN_OTHER_ERROR;
    std::vector<std::string> addresses;
    std::string recordName;
    ACE_Time_Value ttl;
    std::thread::id thread;
    int told() const { return results + timeouts; }
};

class Recorder : public Tarvik::HostNameServer::GetHostByNameCallback {
public:
    explicit Recorder(Heard& io_heard) : m_heard(io_heard) {}
    ~Recorder() override { ++m_heard.destroyed; }
    bool onGhbnTimeout(const char* in_szName) override {
        m_heard.name = in_szName;
        ++m_heard.timeouts;
        return true;
    }
    bool onGhbnResult(const char* in_szName, const Tarvik::Hostent& in_hostent,
                      Tarvik::Hostent::GetHostByNameStatus in_status, ACE_Time_Value in_ttl) override {
        m_heard.name = in_szName;
        m_heard.status = in_status;
        m_heard.addresses = addressesOf(in_hostent);
        m_heard.recordName = in_hostent.getHostent().h_name ? in_hostent.getHostent().h_name : "";
        m_heard.ttl = in_ttl;
        m_heard.thread = std::this_thread::get_id();
        ++m_heard.results;
        return true;
    }

private:
    Heard& m_heard;
};

}  // namespace corvane_test
