// A fixture for tests of the SIP server locator: the resolver configuration
// and the hosts file are files of the test's own, the clock of expiry is the
// test's, and results are written as short texts to compare with tables.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
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
using Strings = std::vector<std::string>;

// "TCP a2.test 10.70.0.2 5062 10/10 NAPTR" ("-/-" when not from SRV) and
// "NAPTR n.test answer miss 60" (the TTL -1 when none).
inline Strings targets(const Locator::Result& in_result) {
    Strings out;
    for (const Locator::Target& t : in_result.targets) {
        const std::string srv = t.priority < 0 ? "-/-" : std::to_string(t.priority) + "/" + std::to_string(t.weight);
        out.push_back(std::string(Locator::getTransportName(t.transport)) + " " + t.host + " " + t.address + " " +
                      std::to_string(t.port) + " " + srv + " " + Locator::getViaName(t.via));
    }
    return out;
}
inline Strings steps(const Locator::Result& in_result) {
    Strings out;
    for (const Locator::Step& s : in_result.steps) {
        out.push_back(std::string(Locator::getRecordTypeName(s.type)) + " " + s.name + " " +
                      Locator::getOutcomeName(s.outcome) + " " + Locator::getCacheUseName(s.cache) + " " +
                      std::to_string(s.ttl));
    }
    return out;
}

// Asynchronous results: how many notifications each request got, and the last one.
struct Notifications {
    struct Recorder : Locator::Callback {
        Recorder(Notifications& io_owner, size_t in_index) : owner(io_owner), index(in_index) {}
        void onLocated(const Locator::Result& in_result) override {
            std::lock_guard<std::mutex> guard(owner.mutex);  // once a waiter sees the count, the owner may go
            owner.told[index]++;
            owner.results[index] = in_result;
            owner.cond.notify_all();
        }
        Notifications& owner;
        size_t index;
    };
    explicit Notifications(size_t in_count) : told(in_count), results(in_count) {}
    Recorder* callback(size_t in_index) { return new Recorder(*this, in_index); }
    bool waitAll(std::chrono::seconds in_limit = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(mutex);
        return cond.wait_for(lock, in_limit, [&] { return std::count(told.begin(), told.end(), 0) == 0; });
    }

    std::mutex mutex;
    std::condition_variable cond;
    std::vector<int> told;                 // notifications per request
    std::vector<Locator::Result> results;  // the last one per request
};

class SipLocatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        Tarvik::Net::setResolverConfigPathForTest(m_resolverConfig.path());
        Locator::setHostsPathForTest(m_hosts.path());
        Locator::setClockForTest([] { return s_clockUs.load(); });
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
    void setResolverConfig(const std::string& in_strText) { std::ofstream(m_resolverConfig.path()) << in_strText; }
    // Starts a scripted responder for the locator to ask; names without a
    // script hear NXDOMAIN without SOA (never kept).
    static void serve(DnsResponder& io_responder) {
        io_responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        ASSERT_TRUE(io_responder.start(&error)) << error;
        setServers(io_responder.address());
    }
    Locator::Result locate(const std::string& in_strUri, Locator::Family in_family = Locator::FAMILY_IPV4,
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
    // The clock of expiry starts far from zero and moves only when told.
    static void advance(int in_iSeconds) { s_clockUs += static_cast<int64_t>(in_iSeconds) * 1000000; }

    static inline std::atomic<int64_t> s_clockUs{1000000000000LL};
    Locator m_locator;                                   // stopped by TearDown
    TempFile m_resolverConfig{"domain corvane.test\n"};  // read instead of /etc/resolv.conf
    TempFile m_hosts{"127.0.0.1 localhost\n"};           // read instead of /etc/hosts
};

}  // namespace corvane_test
