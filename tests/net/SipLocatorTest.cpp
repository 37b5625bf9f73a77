// The SIP server locator against answers crafted byte for byte, and its life. Resolver configuration,
// hosts file, clock and DNS server address are each test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TempFile.h"
#include "net/ResolverConfig.h"
#include "net/SipServerLocator.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/MemAccount.h"
#include "platform/Thread.h"
#include "support/DnsResponder.h"
#include "support/LogCapture.h"

using corvane_test::DnsResponder;
using corvane_test::LogCapture;
using corvane_test::TempFile;
using Locator = Tarvik::Net::SipServerLocator;
using Strings = std::vector<std::string>;
using namespace std::chrono_literals;
namespace dns = corvane_test::dns;

namespace {

// "TCP a2.test 10.70.0.2 5062 10/10 NAPTR" ("-/-" when not from SRV), "NAPTR n.test answer miss 60".
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

// Asynchronous results: notifications per request and the last one; given a locator, each tries to stop it.
struct Notifications {
    struct Recorder : Locator::Callback {
        Recorder(Notifications& io_owner, size_t in_index) : owner(io_owner), index(in_index) {}
        void onLocated(const Locator::Result& in_result) override {
            std::lock_guard<std::mutex> guard(owner.mutex);  // once a waiter sees the count, the owner may go
            owner.told[index]++;
            owner.results[index] = in_result;
            if (owner.pStopping) owner.bStopped = owner.pStopping->stop();
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
    Locator* pStopping = nullptr;
    bool bStopped = false;
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
    // Starts a scripted responder (NXDOMAIN without SOA, never kept, to names without a script) and the locator.
    DnsResponder& serve(const std::string& in_address, bool in_bStart = true) {
        m_responder.emplace(in_address);
        m_responder->setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        EXPECT_TRUE(m_responder->start(&error)) << error;
        setServers(in_address);
        EXPECT_TRUE(!in_bStart || m_locator.start());
        return *m_responder;
    }
    Locator::Result locate(const std::string& in_strUri, Locator::Family in_family = Locator::FAMILY_IPV4,
                           const ACE_Time_Value& in_timeout = ACE_Time_Value(5)) {
        Locator::Result result;
        const bool bLocated = m_locator.locate(in_strUri, result, in_timeout, in_family);
        EXPECT_EQ(bLocated, result.status == Locator::LOCATE_OK);
        return result;
    }
    static bool accountsAtZero() {
        for (const char* account : {"SipServerLocator::Resolution", "SipServerLocator::Query",
                                    "SipServerLocator::Channel", "SipServerLocator::WaiterCallback"}) {
            if (Tarvik::MemAccount::get(account).getLiveObjects() != 0) return false;
        }
        return true;
    }
    static void advance(int in_iSeconds) { s_clockUs += static_cast<int64_t>(in_iSeconds) * 1000000; }

    static inline std::atomic<int64_t> s_clockUs{1000000000000LL};
    Locator m_locator;                                   // stopped by TearDown
    std::optional<DnsResponder> m_responder;             // made by serve
    TempFile m_resolverConfig{"domain corvane.test\n"};  // read instead of /etc/resolv.conf
    TempFile m_hosts{"127.0.0.1 localhost\n"};           // read instead of /etc/hosts
};

// _sip._tcp.<zone>: s1 (priority 10, weight 60), s2 (20, 0); s1's A and s2's AAAA ride along.
dns::Bytes srvAnswer(const std::string& in_zone) {
    return dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 2, 0, 2), dns::question("_sip._tcp." + in_zone, dns::TYPE_SRV),
                     dns::srv(dns::pointer(12), 10, 60, 5060, "s1." + in_zone, 120),
                     dns::srv(dns::pointer(12), 20, 0, 5061, "s2." + in_zone, 120),
                     dns::a(dns::name("s1." + in_zone), "10.71.0.1", 90),
                     dns::aaaa(dns::name("s2." + in_zone), "fd71::2", 90)});
}

// <zone>: one SIP+D2U NAPTR; its SRV set and the target's A and AAAA ride along.
dns::Bytes naptrAnswer(const std::string& in_zone) {
    return dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 1, 0, 3), dns::question(in_zone, dns::TYPE_NAPTR),
                     dns::naptr(dns::pointer(12), 10, 10, "S", "SIP+D2U", "", "_sip._udp." + in_zone, 300),
                     dns::srv(dns::name("_sip._udp." + in_zone), 10, 10, 5060, "h." + in_zone, 200),
                     dns::a(dns::name("h." + in_zone), "10.71.1.1", 100),
                     dns::aaaa(dns::name("h." + in_zone), "fd71::11", 100)});
}

dns::Bytes aAnswer(const std::string& in_name, const std::string& in_address, uint32_t in_ttl = 0) {
    return dns::response(in_name, {dns::a(dns::pointer(12), in_address, in_ttl)});
}

TEST_F(SipLocatorTest, EveryBranchOfTheProcedure) {
    std::ofstream(m_hosts.path()) << "10.70.5.5 hosted.test\nfd70::55 Hosted.test.\nfd70::56 v6host.test\n";
    DnsResponder& r = serve("127.53.91.1");
    r.answer("_sip._tcp.add.test", srvAnswer("add.test"));
    r.answer("nadd.test", naptrAnswer("nadd.test"));
    r.answer("_sip._udp.down.test", dns::response("_sip._udp.down.test", {dns::srv(dns::pointer(12), 0, 0, 0, "", 300)},
                                                  dns::RCODE_NOERROR, dns::TYPE_SRV));
    r.script("sf.test", {DnsResponder::rcodeReply(dns::RCODE_SERVFAIL)});
    r.answer("long.test", aAnswer("long.test", "10.71.5.1", 700000));  // a week at most
    r.answer("bad.test", dns::response("bad.test", {dns::record(dns::pointer(12), dns::TYPE_A, 60, {1, 2, 3, 4, 5})}));
    // NAPTR in order and preference, supported services with flag "S" only; each SRV brings its A.
    r.answer("ord.test", dns::response("ord.test", {
        dns::naptr(dns::pointer(12), 20, 10, "S", "SIP+D2U", "", "_sip._udp.ord.test", 300),
        dns::naptr(dns::pointer(12), 10, 20, "S", "SIPS+D2T", "", "_sips._tcp.ord.test", 300),
        dns::naptr(dns::pointer(12), 10, 10, "s", "SIP+D2T", "", "_sip._tcp.ord.test", 300),
        dns::naptr(dns::pointer(12), 5, 10, "S", "SIP+D2X", "", "_sip._x.ord.test", 300),
        dns::naptr(dns::pointer(12), 5, 10, "A", "SIP+D2U", "", "o.ord.test", 300)},
                                       dns::RCODE_NOERROR, dns::TYPE_NAPTR));
    for (const auto& [service, port] : std::map<std::string, uint16_t>{{"_sip._udp", 5060}, {"_sip._tcp", 5062},
                                                                        {"_sips._tcp", 5063}}) {
        const std::string name = service + ".ord.test", target = "o" + std::to_string(port) + ".ord.test";
        r.answer(name, dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 1, 0, 1), dns::question(name, dns::TYPE_SRV),
                                 dns::srv(dns::pointer(12), 10, 10, port, target, 300),
                                 dns::a(dns::name(target), "10.71.6.1", 300)}));
    }
    // The A query comes first, then the AAAA query; both sets are kept.
    r.scriptPerQuery("fam.test", {{{aAnswer("fam.test", "10.71.4.1", 60)}},
                                  {{dns::response("fam.test", {dns::aaaa(dns::pointer(12), "fd71::41", 60),
                                                               dns::aaaa(dns::pointer(12), "fd71::42", 60)},
                                                  dns::RCODE_NOERROR, dns::TYPE_AAAA)}}});
    const std::string fam41 = "UDP fam.test fd71::41 5060 -/- AAAA", fam42 = "UDP fam.test fd71::42 5060 -/- AAAA";
    const struct Row {
        std::string uri;
        Strings targets, steps;
        std::string error;  // none: LOCATE_OK; with steps: LOCATE_NOT_FOUND; else LOCATE_BAD_REQUEST
        Locator::Family family = Locator::FAMILY_IPV4;
    } rows[] = {
        // A numeric host: no lookup; the scheme's transport and port unless given.
        {"sips:10.70.9.9", {"TLS 10.70.9.9 10.70.9.9 5061 -/- numeric"}, {}, ""},
        {"sip:[FD70::99]:5099;transport=tcp", {"TCP fd70::99 fd70::99 5099 -/- numeric"}, {}, ""},
        {"sip:alice@h.test;maddr=10.74.11.1", {"UDP 10.74.11.1 10.74.11.1 5060 -/- numeric"}, {}, ""},
        // SRV of the given transport; the additional section answers without queries.
        {"sip:ADD.test;transport=TCP",
         {"TCP s1.add.test 10.71.0.1 5060 10/60 SRV", "TCP s2.add.test fd71::2 5061 20/0 SRV"},
         {"SRV _sip._tcp.add.test answer miss 120", "A s1.add.test answer hit 90", "AAAA s1.add.test NXDOMAIN miss 0",
          "A s2.add.test NXDOMAIN miss 0", "AAAA s2.add.test answer hit 90"}, "", Locator::FAMILY_IPV4_FIRST},
        {"sip:nadd.test", {"UDP h.nadd.test 10.71.1.1 5060 10/10 NAPTR", "UDP h.nadd.test fd71::11 5060 10/10 NAPTR"},
         {"NAPTR nadd.test answer miss 300", "SRV _sip._udp.nadd.test answer hit 200", "A h.nadd.test answer hit 100",
          "AAAA h.nadd.test answer hit 100"}, "", Locator::FAMILY_IPV4_FIRST},
        {"sip:ord.test",
         {"TCP o5062.ord.test 10.71.6.1 5062 10/10 NAPTR", "TLS o5063.ord.test 10.71.6.1 5063 10/10 NAPTR",
          "UDP o5060.ord.test 10.71.6.1 5060 10/10 NAPTR"},
         {"NAPTR ord.test answer miss 300", "SRV _sip._tcp.ord.test answer miss 300", "A o5062.ord.test answer hit 300",
          "SRV _sips._tcp.ord.test answer miss 300", "A o5063.ord.test answer hit 300",
          "SRV _sip._udp.ord.test answer miss 300", "A o5060.ord.test answer hit 300"}, ""},
        {"sips:ord.test", {"TLS o5063.ord.test 10.71.6.1 5063 10/10 NAPTR"},  // a SIPS URI follows SIPS+D2T alone
         {"NAPTR ord.test answer hit 300", "SRV _sips._tcp.ord.test answer hit 300", "A o5063.ord.test answer hit 300"},
         ""},
        // Neither NAPTR nor SRV: the host's addresses at the scheme's transport and port.
        {"sip:nx.test", {}, {"NAPTR nx.test NXDOMAIN miss 0", "SRV _sips._tcp.nx.test NXDOMAIN miss 0",
          "SRV _sip._tcp.nx.test NXDOMAIN miss 0", "SRV _sip._udp.nx.test NXDOMAIN miss 0", "A nx.test NXDOMAIN miss 0"},
         "no record leads to an address of nx.test"},
        // Target "." ends the search: no fallback to addresses.
        {"sip:down.test;transport=udp", {}, {"SRV _sip._udp.down.test answer miss 300"},
         "the domain does not offer the service (SRV target \".\")"},
        {"sip:sf.test:5060", {}, {"A sf.test error miss -1"}, "sf.test A: Could not contact DNS servers"},
        {"sip:bad.test:5060", {}, {"A bad.test error miss -1"}, "bad.test A: an A record is malformed"},
        {"sip:long.test:5060", {"UDP long.test 10.71.5.1 5060 -/- A"}, {"A long.test answer miss 604800"}, ""},
        // The hosts file answers before DNS, for the families it knows.
        {"sip:hosted.test", {"UDP hosted.test fd70::55 5060 -/- hosts", "UDP hosted.test 10.70.5.5 5060 -/- hosts"}, {},
         "", Locator::FAMILY_IPV6_FIRST},
        {"sip:v6host.test:5060", {}, {"A v6host.test NXDOMAIN miss 0"}, "no record leads to an address of v6host.test"},
        // The addresses of a host in the family order asked.
        {"sip:fam.test:5060", {fam41, "UDP fam.test 10.71.4.1 5060 -/- A", fam42},
         {"A fam.test answer miss 60", "AAAA fam.test answer miss 60"}, "", Locator::FAMILY_IPV6_FIRST},
        {"sip:fam.test:5060", {fam41, fam42}, {"AAAA fam.test answer hit 60"}, "", Locator::FAMILY_IPV6},
        // URIs that cannot be located.
        {"tel:+4930123", {}, {}, "not a SIP or SIPS URI: tel:+4930123"},
        {"sip:", {}, {}, "no host in sip:"},
        {"sips:h.test;transport=udp", {}, {}, "a SIPS URI cannot use UDP"},
        {"sip:h.test;transport=sctp", {}, {}, "unsupported transport: sctp"},
        {"sip:h.test:99999", {}, {}, "not a port: 99999"},
        {"sip:bad~name.test", {}, {}, "not a host name: bad~name.test"},
        {"sip:a..test", {}, {}, "not a host name: a..test"},
        {"sip:[fd00::zz]", {}, {}, "not an IPv6 address: [fd00::zz]"},
        {"sip:[]", {}, {}, "no host to locate"},
        {"sip:.", {}, {}, "not a host name: ."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uri);
        const Locator::Result result = locate(row.uri, row.family);
        const std::string status = row.error.empty() ? "OK" : row.steps.empty() ? "BAD_REQUEST" : "NOT_FOUND";
        EXPECT_EQ(Locator::getStatusName(result.status), "LOCATE_" + status);
        EXPECT_EQ(targets(result), row.targets);
        EXPECT_EQ(steps(result), row.steps);
        EXPECT_EQ(result.error, row.error);
    }
    Notifications told(1);  // a bad request is told at once, also when asked for a callback
    EXPECT_FALSE(m_locator.locate("sip:a..test", told.callback(0), ACE_Time_Value(1)));
    EXPECT_EQ(told.results[0].error, "not a host name: a..test");
}

TEST_F(SipLocatorTest, RecordsAreKeptAsLongAsTheirTtlOrSoaSaysInABoundedCache) {
    serve("127.53.91.2");
    const auto negative = [](const std::string& in_name, uint16_t in_rcode, uint32_t in_ttl, uint32_t in_minimum) {
        return dns::cat({dns::header(0, static_cast<uint16_t>(dns::RESPONSE_FLAGS | in_rcode), 1, 0, 1, 0),
                         dns::question(in_name, dns::TYPE_A), dns::soa(dns::name("test"), in_ttl, in_minimum)});
    };
    // The TTL is the step's, and how long the answer is kept.
    const struct Row { std::string name; dns::Bytes answer; int ttl; std::string outcome; } rows[] = {
        {"nx.test", negative("nx.test", dns::RCODE_NXDOMAIN, 600, 60), 60, "NXDOMAIN"},         // MINIMUM smaller
        {"nodata.test", negative("nodata.test", dns::RCODE_NOERROR, 30, 120), 30, "NODATA"},   // TTL smaller
        {"cap.test", negative("cap.test", dns::RCODE_NXDOMAIN, 3600, 3600), 300, "NXDOMAIN"},  // 5 minutes at most
        {"nosoa.test", dns::response("nosoa.test", {}, dns::RCODE_NXDOMAIN), 0, "NXDOMAIN"},    // no SOA: never kept
        {"zero.test", aAnswer("zero.test", "10.71.2.1", 0), 0, "answer"},
        {"pos.test", aAnswer("pos.test", "10.71.2.2", 120), 120, "answer"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        m_responder->answer(row.name, row.answer);
        const std::string uri = "sip:" + row.name + ":5060", asked = "A " + row.name + " " + row.outcome;
        EXPECT_EQ(steps(locate(uri)), Strings{asked + " miss " + std::to_string(row.ttl)});
        if (row.ttl > 0) {
            advance(row.ttl - 1);
            const Locator::Result result = locate(uri);
            EXPECT_EQ(steps(result), Strings{asked + (row.outcome == "answer" ? " hit 1" : " negative-hit 1")});
            EXPECT_EQ(result.targets.empty() ? 1 : result.targets[0].ttl, 1u);
            advance(1);
        }
        EXPECT_EQ(steps(locate(uri)), Strings{asked + " miss " + std::to_string(row.ttl)});
        EXPECT_EQ(m_responder->queryCount(row.name), 2);
    }
    for (const char* name : {"lru1.test", "lru2.test", "lru3.test"}) {
        m_responder->answer(name, aAnswer(name, "10.71.3.1", 600));
    }
    const auto uses = [&](const Strings& in_names) {
        std::string out;
        for (const std::string& name : in_names) {
            out += Locator::getCacheUseName(locate("sip:" + name + ".test:5060").steps.at(0).cache) + std::string(" ");
        }
        return out;
    };
    m_locator.setCacheBound(2);  // full: lru2, least recently used, goes for lru3; then lru3 for lru2
    EXPECT_EQ(uses({"lru1", "lru2", "lru1", "lru3", "lru1", "lru2", "lru1"}), "miss miss hit miss hit miss hit ");
    m_locator.setCacheBound(1);  // lru2, used before lru1, goes at once; a record of TTL 0 takes no room
    EXPECT_EQ(uses({"lru1", "lru2", "zero", "lru2"}), "hit miss miss hit ");
    EXPECT_EQ(m_locator.getStatistics().cacheEvictions, 8u);  // with the four records kept above
    m_locator.setCacheBound(0);  // nothing is kept
    EXPECT_EQ(uses({"lru3", "lru3"}), "miss miss ");
}

TEST_F(SipLocatorTest, SrvWeightsShareTheFirstPlaceAndAFailedTargetGoesLastUntilItsMarkEnds) {
    // Weights 0, 30 and 70 of one priority, and 50 of a later one; the hosts file knows their addresses.
    std::ofstream(m_hosts.path()) << "10.72.0.1 w0.test\n10.72.0.2 w30.test\n10.72.0.3 w70.test\n10.72.0.4 w50.test\n";
    serve("127.53.91.3");
    std::vector<dns::Bytes> records;
    for (const int weight : {0, 30, 70, 50}) {
        const std::string host = "w" + std::to_string(weight) + ".test";
        records.push_back(dns::srv(dns::pointer(12), weight == 50 ? 20 : 10, weight, 5060, host, 3600));
    }
    m_responder->answer("_sip._udp.w.test",
                        dns::response("_sip._udp.w.test", records, dns::RCODE_NOERROR, dns::TYPE_SRV));
    m_locator.setRandomSeed(20240611);
    std::map<std::string, int> first;
    for (int i = 0; i < 4000; ++i) {
        const Locator::Result result = locate("sip:w.test;transport=udp");
        ASSERT_EQ(result.targets.back().host, "w50.test");
        first[result.targets.front().host]++;
    }
    // A draw in [0, 100] picks the first running sum that reaches it: weight 0 wins only on 0. Bounds: 4 sigma.
    EXPECT_NEAR(first["w30.test"], 4000 * 30 / 101.0, 120);
    EXPECT_NEAR(first["w70.test"], 4000 * 70 / 101.0, 120);
    EXPECT_NEAR(first["w0.test"], 4000 / 101.0, 25);
    m_responder->answer("m.test", dns::response("m.test", {dns::a(dns::pointer(12), "10.73.0.1", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.2", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.3", 3600)}));
    const auto order = [&](const std::string& in_uri) {
        std::string out;
        for (const Locator::Target& target : locate(in_uri).targets) out += target.address.back();
        return out;
    };
    const Locator::Result m = locate("sip:m.test:5060");
    m_locator.reportFailure(m.targets.at(0), ACE_Time_Value(30));
    EXPECT_EQ(order("sip:m.test:5060"), "231");
    EXPECT_EQ(order("sip:m.test:5070"), "123");  // another port is another target
    advance(30);
    EXPECT_EQ(order("sip:m.test:5060"), "123");
    m_locator.reportFailure(m.targets.at(1), ACE_Time_Value(30));
    m_locator.reportSuccess(m.targets.at(1));
    EXPECT_EQ(order("sip:m.test:5060"), "123");
    EXPECT_EQ(m_locator.getStatistics().targetsMarkedFailed, 2u);
    EXPECT_EQ(m_responder->queryCount("m.test"), 1);  // the records stay
}

TEST_F(SipLocatorTest, EveryTruncationAndCorruptionIsOneClearFailure) {
    serve("127.53.91.5");
    const size_t r = 12 + dns::name("_sip._tcp.c000.test").size() + 4;  // where the first SRV record starts
    const size_t flags = 12 + dns::name("c000.test").size() + 4 + 12 + 4;  // the NAPTR's flags, "S"
    const size_t replacement = flags + 2 + 8 + 1;                       // after "S", "SIP+D2U" and ""
    // An SRV or else a NAPTR answer, bytes changed (offset and new byte), the length it is cut to.
    struct Row { bool bSrv; std::vector<std::pair<size_t, size_t>> change; size_t length = SIZE_MAX; };
    std::vector<Row> rows = {
        {true, {{7, 3}}},                            // answer count 3 of 2
        {true, {{r + 10, 0xFF}}},                    // data length past the end
        {true, {{r + 11, 0x11}}},                    // the target overruns the data
        {true, {{r + 18, 0xC0}, {r + 19, r + 18}}},  // the target points at itself
        {true, {{r + 18, 0xC0}, {r + 19, r + 40}}},  // the target points ahead
        {true, {{r + 18, 0xC0}, {r + 19, 2}}},       // flags read as a label
        {true, {{r + 18, 0x40}}},                    // extended label type
        {false, {{flags, 0xFF}}},                    // flags length past the data
        {false, {{replacement, 0xC0}, {replacement + 1, replacement}}},  // the replacement points at itself
    };
    for (const bool bSrv : {true, false}) {
        const size_t size = (bSrv ? srvAnswer("c000.test") : naptrAnswer("c000.test")).size();
        for (size_t length = 0; length < size; ++length) rows.push_back({bSrv, {}, length});
    }
    // All at once, zones of one length so that every answer has one layout (c-ares asks again if need be).
    Strings names;
    Notifications told(rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::string zone = "c" + std::to_string(1000 + i).substr(1) + ".test";
        names.push_back(rows[i].bSrv ? "_sip._tcp." + zone : zone);
        dns::Bytes bytes = rows[i].bSrv ? srvAnswer(zone) : naptrAnswer(zone);
        for (const auto& [at, value] : rows[i].change) bytes[at] = static_cast<uint8_t>(value);
        bytes.resize(std::min(bytes.size(), rows[i].length));
        const auto id = bytes.size() >= 2 ? DnsResponder::Id::PATCH : DnsResponder::Id::KEEP;
        m_responder->script(names[i], {DnsResponder::Reply{bytes, std::chrono::milliseconds(0), id}});
        m_locator.locate("sip:" + zone + (rows[i].bSrv ? ";transport=tcp" : ""), told.callback(i), ACE_Time_Value(4),
                         Locator::FAMILY_IPV4);
    }
    ASSERT_TRUE(told.waitAll());
    m_locator.stop();
    EXPECT_TRUE(accountsAtZero());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(names[i] + " cut to " + std::to_string(rows[i].length));
        const Locator::Result& result = told.results[i];
        // c-ares drops an answer without the question whole: the request times out.
        const bool bQuestion = rows[i].length >= 12 + dns::name(names[i]).size() + 4;
        EXPECT_EQ(told.told[i], 1);
        EXPECT_NE(result.status, Locator::LOCATE_OK);
        EXPECT_EQ(steps(result).at(0), std::string(rows[i].bSrv ? "SRV " : "NAPTR ") + names[i] +
                                                         (bQuestion ? " error miss -1" : " timeout miss -1"));
    }
}

TEST_F(SipLocatorTest, AStartThatFailsIsUndoneALaterStartWorksAndTheResolverConfigurationIsReadOnUse) {
    serve("127.53.94.2", false).answer("ok.test", aAnswer("ok.test", "10.74.0.1"));
    const char* const kBadList = "failed to parse the value of parameter corvane.net.HostNameServer.DNSServerIPAddrList";
    const int kAll = 1000;
    // The parameter (null: absent), resolver configuration, thread creations that succeed, ERROR text (null: none).
    const struct Row { const char* servers; const char* resolverConfig; int threads; const char* error; } rows[] = {
        {nullptr, "domain corvane.test\n", kAll, "the host's resolver configuration names no DNS server"},
        {"use-host-dns-list", "domain corvane.test\n", kAll, kBadList},
        {",", "nameserver 127.53.94.2\n", kAll, kBadList},
        {nullptr, "nameserver 127.53.94.2\n", kAll, nullptr},
        {nullptr, "nameserver 127.53.94.2\n", 0, "cannot start the DNS task"},     // the DNS task's thread
        {nullptr, "nameserver 127.53.94.2\n", 1, "cannot make the timer thread"},  // the DNS task's thread runs
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error ? row.error : "started");
        Tarvik::GlobalConfig::getInstance().clear();
        if (row.servers) setServers(row.servers);
        std::ofstream(m_resolverConfig.path()) << row.resolverConfig;
        LogCapture log(Tarvik::ERROR_LOG_LEVEL);
        std::atomic<int> threads{row.threads};
        Tarvik::setThreadCreationFaultForTest([&] { return threads-- <= 0; });
        EXPECT_EQ(m_locator.start(), row.error == nullptr);
        Tarvik::setThreadCreationFaultForTest(nullptr);
        if (row.error) {
            EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, row.error)) << testing::PrintToString(log.messages());
            EXPECT_EQ(locate("sip:10.0.0.1").status, Locator::LOCATE_REFUSED);
            EXPECT_TRUE(accountsAtZero());
        }
        // Running, refused again, or after a thread fault started from scratch.
        EXPECT_EQ(m_locator.start(), row.threads < kAll);
        EXPECT_EQ(locate("sip:ok.test:5060").status == Locator::LOCATE_OK, row.error == nullptr || row.threads < kAll);
        m_locator.stop();
        EXPECT_TRUE(accountsAtZero());
    }
    // Looked at every 5 seconds at most; a file that names no server is refused and the servers stay.
    DnsResponder second("127.53.94.8");
    ASSERT_TRUE(second.start());
    second.answer("ok.test", aAnswer("ok.test", "10.74.3.9"));
    ASSERT_TRUE(m_locator.start());
    LogCapture log(Tarvik::ERROR_LOG_LEVEL);
    const std::tuple<const char*, int, const char*> changes[] = {
        {nullptr, 0, "10.74.0.1"}, {"nameserver 127.53.94.8\n", 4, "10.74.0.1"}, {nullptr, 1, "10.74.3.9"},
        {"domain corvane.test\n", 5, "10.74.3.9"}};
    for (const auto& [config, seconds, address] : changes) {
        if (config) std::ofstream(m_resolverConfig.path()) << config;
        advance(seconds);
        EXPECT_EQ(locate("sip:ok.test:5060").targets.at(0).address, address) << seconds;
    }
    EXPECT_EQ(m_locator.getStatistics().reloads, 1u);
    EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "names no DNS server; the DNS servers stay"));
}

TEST_F(SipLocatorTest, ATimeOutTellsWhatWasFoundAndExitWithWorkInFlightTellsEveryRequestOnce) {
    DnsResponder& responder = serve("127.53.94.3");
    for (int n = 0; n < 30; ++n) {  // answered at once, never, or late
        const std::string name = "s" + std::to_string(n) + ".test";
        if (n % 3 == 0) responder.answer(name, aAnswer(name, "10.75.0.1"));
        if (n % 3 == 1) responder.never(name);
        if (n % 3 == 2) responder.answerLate(name, aAnswer(name, "10.75.0.2"), std::chrono::milliseconds(5 + n));
    }
    // The A query comes first and is answered; the AAAA query never is.
    responder.scriptPerQuery("half.test", {{{aAnswer("half.test", "10.74.1.1", 60)}}, {}});
    const Locator::Result result = locate("sip:s4.test:5060", Locator::FAMILY_IPV4, ACE_Time_Value(0, 100000));
    EXPECT_EQ(result.status, Locator::LOCATE_TIMEOUT);
    EXPECT_EQ(result.error, "no answer within the time-out");
    EXPECT_EQ(steps(result), Strings{"A s4.test timeout miss -1"});
    // Asynchronous: the timer thread tells it, and a stop from there is refused.
    LogCapture asserts;
    Notifications half(2);
    half.pStopping = &m_locator;
    m_locator.locate("sip:s4.test:5060", half.callback(0), ACE_Time_Value::zero, Locator::FAMILY_IPV4);
    m_locator.locate("sip:half.test:5060", half.callback(1), ACE_Time_Value(0, 200000), Locator::FAMILY_IPV4_FIRST);
    ASSERT_TRUE(half.waitAll(5s));
    EXPECT_FALSE(half.bStopped);
    EXPECT_TRUE(asserts.asserted("t_pOwnThread != this"));
    EXPECT_TRUE(m_locator.isRunning());
    EXPECT_EQ(targets(half.results[1]), Strings{"UDP half.test 10.74.1.1 5060 -/- A"});
    EXPECT_EQ(steps(half.results[1]), (Strings{"A half.test answer miss 60", "AAAA half.test timeout miss -1"}));
    EXPECT_EQ(m_locator.getStatistics().requestTimeouts, 2u);  // a request that found something is located
    Locator::Result waiting;  // a synchronous request without time-out
    std::thread waiter([&] { m_locator.locate("sip:s1.test", waiting, ACE_Time_Value::max_time); });
    ASSERT_TRUE(responder.waitForQueries("s1.test", 1, 5s));
    Notifications told(2000);
    std::mt19937 random(1);
    for (size_t i = 0; i < told.told.size(); ++i) {  // time-outs of 1 ms to 100 ms, or none
        const ACE_Time_Value timeout = i % 5 ? ACE_Time_Value(0, 1000 + random() % 100000) : ACE_Time_Value::max_time;
        m_locator.locate("sip:s" + std::to_string(random() % 30) + ".test:5060", told.callback(i), timeout);
    }
    EXPECT_TRUE(m_locator.stop());
    waiter.join();
    ASSERT_TRUE(told.waitAll());
    EXPECT_EQ(waiting.status, Locator::LOCATE_STOPPED);
    EXPECT_EQ(std::count(told.told.begin(), told.told.end(), 1), 2000);
    EXPECT_TRUE(accountsAtZero());
    EXPECT_FALSE(m_locator.locate("sip:s0.test", told.callback(0), ACE_Time_Value(1)));  // refused at once
    EXPECT_EQ(told.results[0].status, Locator::LOCATE_REFUSED);
}

}  // namespace
