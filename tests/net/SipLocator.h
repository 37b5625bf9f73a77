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
#include "support/Dnsmasq.h"

namespace corvane_test {

using Locator = Tarvik::Net::SipServerLocator;

// What the locator allocates for itself.
inline const char* const kLocatorAccounts[] = {"SipServerLocator::Resolution", "SipServerLocator::Query",
                                               "SipServerLocator::Channel", "SipServerLocator::WaiterCallback"};

// "TCP a2.example.test 10.70.0.2 5062 10/10 NAPTR"; "-/-" when not from SRV.
inline std::string describe(const Locator::Target& in_target) {
    const std::string srv = in_target.priority < 0
                                ? "-/-"
                                : std::to_string(in_target.priority) + "/" + std::to_string(in_target.weight);
    return std::string(Locator::getTransportName(in_target.transport)) + " " + in_target.host + " " +
           in_target.address + " " + std::to_string(in_target.port) + " " + srv + " " +
           Locator::getViaName(in_target.via);
}

inline std::vector<std::string> targets(const Locator::Result& in_result) {
    std::vector<std::string> out;
    for (const Locator::Target& target : in_result.targets) out.push_back(describe(target));
    return out;
}

// "NAPTR naptr.test answer miss".
inline std::vector<std::string> steps(const Locator::Result& in_result) {
    std::vector<std::string> out;
    for (const Locator::Step& step : in_result.steps) {
        out.push_back(std::string(Locator::getRecordTypeName(step.type)) + " " + step.name + " " +
                      Locator::getOutcomeName(step.outcome) + " " + Locator::getCacheUseName(step.cache));
    }
    return out;
}

// Collects asynchronous notifications: how many each request got.
class Notifications {
public:
    class Recorder : public Locator::Callback {
    public:
        Recorder(Notifications& io_owner, size_t in_index) : m_owner(io_owner), m_index(in_index) {}
        void onLocated(const Locator::Result& in_result) override { m_owner.record(m_index, in_result); }

    private:
        Notifications& m_owner;  // outlives every recorder
        size_t m_index;          // which request
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
    void record(size_t in_index, const Locator::Result& in_result) {
        // Signalled under the lock: once a waiter sees the count, this object
        // may go, and the notifier must be done with it.
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_told[in_index]++ == 0) ++m_uiTold;
        m_results[in_index] = in_result;
        m_cond.notify_all();
    }

    mutable std::mutex m_mutex;               // guards the members below
    std::condition_variable m_cond;           // signalled on every notification
    std::vector<int> m_told;                  // notifications per request
    std::vector<Locator::Result> m_results;   // the last one per request
    size_t m_uiTold = 0;                      // requests told at least once
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
    static void startServer(DnsResponder& io_responder) {
        // Names without a script hear NXDOMAIN (without SOA: never kept).
        io_responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        ASSERT_TRUE(io_responder.start(&error)) << error;
    }
    static void startServer(Dnsmasq& io_dnsmasq) {
        std::string error;
        ASSERT_TRUE(io_dnsmasq.start(&error)) << error;
    }

    Locator::Result locate(const std::string& in_strUri, Locator::Family in_family = Locator::FAMILY_IPV4_FIRST,
                           const ACE_Time_Value& in_timeout = ACE_Time_Value(5)) {
        Locator::Result result;
        m_locator.locate(in_strUri, result, in_timeout, in_family);
        return result;
    }

    static long live(const char* in_szAccount) { return Tarvik::MemAccount::get(in_szAccount).getLiveObjects(); }
    static bool accountsAtZero() {
        for (const char* account : kLocatorAccounts) {
            if (live(account) != 0) return false;
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
