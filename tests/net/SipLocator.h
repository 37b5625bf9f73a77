// A fixture for tests of the SIP server locator: the resolver configuration
// and the hosts file are files of the test's own, the clock of expiry is the
// test's, and results are written as short texts to compare with tables.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "TempFile.h"
#include "net/ResolverConfig.h"
#include "net/SipServerLocator.h"
#include "platform/GlobalConfig.h"
#include "platform/MemAccount.h"
#include "support/DnsResponder.h"

namespace corvane_test {

using Locator = Tarvik::Net::SipServerLocator;

// "TCP a2.test 10.70.0.2 5062 10/10 NAPTR" ("-/-" when not from SRV), and
// "NAPTR n.test answer miss".
inline std::vector<std::string> targets(const Locator::Result& in_result) {
    std::vector<std::string> out;
    for (const Locator::Target& t : in_result.targets) {
        const std::string srv = t.priority < 0 ? "-/-" : std::to_string(t.priority) + "/" + std::to_string(t.weight);
        out.push_back(std::string(Locator::getTransportName(t.transport)) + " " + t.host + " " + t.address + " " +
                      std::to_string(t.port) + " " + srv + " " + Locator::getViaName(t.via));
    }
    return out;
}
inline std::vector<std::string> steps(const Locator::Result& in_result) {
    std::vector<std::string> out;
    for (const Locator::Step& s : in_result.steps) {
        out.push_back(std::string(Locator::getRecordTypeName(s.type)) + " " + s.name + " " +
                      Locator::getOutcomeName(s.outcome) + " " + Locator::getCacheUseName(s.cache));
    }
    return out;
}

// Collects asynchronous results: how many each request got, and the last one.
class Notifications {
public:
    struct Recorder : Locator::Callback {
        Recorder(Notifications& io_owner, size_t in_index) : owner(io_owner), index(in_index) {}
        void onLocated(const Locator::Result& in_result) override {
            // Signalled under the lock: once a waiter sees the count, the owner may go.
            std::lock_guard<std::mutex> guard(owner.m_mutex);
            if (owner.m_told[index]++ == 0) ++owner.m_uiTold;
            owner.m_results[index] = in_result;
            owner.m_cond.notify_all();
        }
        Notifications& owner;  // outlives every recorder
        size_t index;          // which request
    };

    explicit Notifications(size_t in_count) : m_told(in_count, 0), m_results(in_count) {}
    Recorder* callback(size_t in_index) { return new Recorder(*this, in_index); }
    // Waits (bounded) until every request was told at least once.
    bool waitAll(std::chrono::milliseconds in_limit = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cond.wait_for(lock, in_limit, [&] { return m_uiTold == m_told.size(); });
    }
    int told(size_t in_index) const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_told[in_index];
    }
    Locator::Result result(size_t in_index) const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_results[in_index];
    }
    size_t size() const { return m_told.size(); }

private:
    mutable std::mutex m_mutex;              // guards the members below
    std::condition_variable m_cond;          // signalled on every notification
    std::vector<int> m_told;                 // notifications per request
    std::vector<Locator::Result> m_results;  // the last one per request
    size_t m_uiTold = 0;                     // requests told at least once
};

class SipLocatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        Tarvik::Net::setResolverConfigPathForTest(m_resolverConfig.path());
        Locator::setHostsPathForTest(m_hosts.path());
        Locator::setClockForTest(&clock);
    }
    void TearDown() override {
        m_locator.stop();
        Tarvik::GlobalConfig::getInstance().clear();
        Locator::setClockForTest(nullptr);
        Locator::setHostsPathForTest("");
        Tarvik::Net::setResolverConfigPathForTest("");
    }

    static void setServers(const std::string& in_strServers) {
        std::string error;
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue("corvane.net.HostNameServer.DNSServerIPAddrList",
                                                                 in_strServers, error))
            << error;
    }
    void setResolverConfig(const std::string& in_strContent) {
        std::ofstream(m_resolverConfig.path(), std::ios::trunc) << in_strContent;
    }
    void setHosts(const std::string& in_strContent) { std::ofstream(m_hosts.path(), std::ios::trunc) << in_strContent; }
    // A scripted responder, asked by the locator; names without a script hear
    // NXDOMAIN without SOA (never kept).
    void serve(DnsResponder& io_responder) {
        io_responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        ASSERT_TRUE(io_responder.start(&error)) << error;
        setServers(io_responder.address());
    }

    Locator::Result locate(const std::string& in_strUri, Locator::Family in_family = Locator::FAMILY_IPV4_FIRST,
                           const ACE_Time_Value& in_timeout = ACE_Time_Value(5)) {
        Locator::Result result;
        const bool bLocated = m_locator.locate(in_strUri, result, in_timeout, in_family);
        EXPECT_EQ(bLocated, result.status == Locator::LOCATE_OK);
        return result;
    }

    // What the locator allocates for itself is all given back.
    static bool accountsAtZero() {
        for (const char* account : {"SipServerLocator::Resolution", "SipServerLocator::Query",
                                    "SipServerLocator::Channel", "SipServerLocator::WaiterCallback"}) {
            if (Tarvik::MemAccount::get(account).getLiveObjects() != 0) return false;
        }
        return true;
    }

    // The clock of expiry: starts far from zero and moves only when told.
    static int64_t clock() { return s_clockUs.load(); }
    static void advance(int in_iSeconds) { s_clockUs += static_cast<int64_t>(in_iSeconds) * 1000000; }

    Locator m_locator;  // stopped by TearDown

private:
    static inline std::atomic<int64_t> s_clockUs{1000000000000LL};
    TempFile m_resolverConfig{"domain corvane.test\n"};  // read instead of /etc/resolv.conf
    TempFile m_hosts{"127.0.0.1 localhost\n"};           // read instead of /etc/hosts
};

}  // namespace corvane_test
