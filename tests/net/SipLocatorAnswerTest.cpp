// The locator against answers crafted byte for byte by the scripted responder:
// every branch of the procedure, negative answers, TTLs, the RFC 2782 weighted
// order, failure marks, the bounded cache and malformed answers.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SipLocator.h"

using corvane_test::DnsResponder;
using corvane_test::Locator;
using corvane_test::Strings;
namespace dns = corvane_test::dns;

namespace {

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

dns::Bytes aAnswer(const std::string& in_name, const std::string& in_address, uint32_t in_ttl) {
    return dns::response(in_name, {dns::a(dns::pointer(12), in_address, in_ttl)});
}

// A responder on an address of the test's own: tests run in parallel.
class SipLocatorAnswers : public corvane_test::SipLocatorTest {
protected:
    void serveOn(const std::string& in_address) {
        m_responder.emplace(in_address);
        serve(*m_responder);
        ASSERT_TRUE(m_locator.start());
    }
    void TearDown() override {
        SipLocatorTest::TearDown();
        m_responder.reset();
    }
    std::optional<DnsResponder> m_responder;  // made by serveOn
};

TEST_F(SipLocatorAnswers, EveryBranchOfTheProcedure) {
    std::ofstream(m_hosts.path()) << "10.70.5.5 hosted.test\nfd70::55 Hosted.test.\nfd70::56 v6host.test\n";
    serveOn("127.53.91.1");
    DnsResponder& r = *m_responder;
    r.answer("_sip._tcp.add.test", srvAnswer("add.test"));
    r.answer("nadd.test", naptrAnswer("nadd.test"));
    r.answer("_sip._udp.down.test", dns::response("_sip._udp.down.test", {dns::srv(dns::pointer(12), 0, 0, 0, "", 300)},
                                                  dns::RCODE_NOERROR, dns::TYPE_SRV));
    r.script("sf.test", {DnsResponder::rcodeReply(dns::RCODE_SERVFAIL)});
    r.answer("long.test", aAnswer("long.test", "10.71.5.1", 700000));  // a week at most
    r.answer("bad.test", dns::response("bad.test", {dns::record(dns::pointer(12), dns::TYPE_A, 60, {1, 2, 3, 4, 5})}));
    // The A query comes first, then the AAAA query; both sets are kept.
    r.scriptPerQuery("fam.test", {{{aAnswer("fam.test", "10.71.4.1", 60)}},
                                  {{dns::response("fam.test", {dns::aaaa(dns::pointer(12), "fd71::41", 60),
                                                               dns::aaaa(dns::pointer(12), "fd71::42", 60)},
                                                  dns::RCODE_NOERROR, dns::TYPE_AAAA)}}});
    const std::string fam = "UDP fam.test 10.71.4.1 5060 -/- A";
    const std::string fam41 = "UDP fam.test fd71::41 5060 -/- AAAA", fam42 = "UDP fam.test fd71::42 5060 -/- AAAA";
    const struct Row {
        std::string uri;
        Strings targets;
        Strings steps;
        std::string error;  // none: LOCATE_OK; with steps: LOCATE_NOT_FOUND; else LOCATE_BAD_REQUEST
        Locator::Family family = Locator::FAMILY_IPV4;
    } rows[] = {
        // A numeric host: no lookup; the scheme's transport and port unless given.
        {"sip:10.70.9.9", {"UDP 10.70.9.9 10.70.9.9 5060 -/- numeric"}, {}, ""},
        {"sips:10.70.9.9", {"TLS 10.70.9.9 10.70.9.9 5061 -/- numeric"}, {}, ""},
        {"sip:[FD70::99]:5099;transport=tcp", {"TCP fd70::99 fd70::99 5099 -/- numeric"}, {}, ""},
        {"sip:alice@h.test;maddr=10.74.11.1", {"UDP 10.74.11.1 10.74.11.1 5060 -/- numeric"}, {}, ""},
        // SRV of the given transport; the additional section answers without queries.
        {"sip:ADD.test;transport=TCP", {"TCP s1.add.test 10.71.0.1 5060 10/60 SRV", "TCP s2.add.test fd71::2 5061 20/0 SRV"},
         {"SRV _sip._tcp.add.test answer miss 120", "A s1.add.test answer hit 90", "AAAA s1.add.test NXDOMAIN miss 0",
          "A s2.add.test NXDOMAIN miss 0", "AAAA s2.add.test answer hit 90"}, "", Locator::FAMILY_IPV4_FIRST},
        {"sip:nadd.test", {"UDP h.nadd.test 10.71.1.1 5060 10/10 NAPTR", "UDP h.nadd.test fd71::11 5060 10/10 NAPTR"},
         {"NAPTR nadd.test answer miss 300", "SRV _sip._udp.nadd.test answer hit 200", "A h.nadd.test answer hit 100",
          "AAAA h.nadd.test answer hit 100"}, "", Locator::FAMILY_IPV4_FIRST},
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
        {"sip:fam.test:5060", {fam, fam41, fam42}, {"A fam.test answer miss 60", "AAAA fam.test answer miss 60"}, "",
         Locator::FAMILY_IPV4_FIRST},
        {"sip:fam.test:5060", {fam41, fam, fam42}, {"A fam.test answer hit 60", "AAAA fam.test answer hit 60"}, "",
         Locator::FAMILY_IPV6_FIRST},
        {"sip:fam.test:5060", {fam41, fam42}, {"AAAA fam.test answer hit 60"}, "", Locator::FAMILY_IPV6},
        // URIs that cannot be located.
        {"tel:+4930123", {}, {}, "not a SIP or SIPS URI: tel:+4930123"},
        {"sip:", {}, {}, "no host in sip:"},
        {"sips:h.test;transport=udp", {}, {}, "a SIPS URI cannot use UDP"},
        {"sip:h.test;transport=sctp", {}, {}, "unsupported transport: sctp"},
        {"sip:h.test:99999", {}, {}, "not a port: 99999"},
        {"sip:bad!name.test", {}, {}, "not a host name: bad!name.test"},
        {"sip:bad~name.test", {}, {}, "not a host name: bad~name.test"},
        {"sip:a..test", {}, {}, "not a host name: a..test"},
        {"sip:[fd00::zz]", {}, {}, "not an IPv6 address: [fd00::zz]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uri);
        const Locator::Result result = locate(row.uri, row.family);
        EXPECT_EQ(Locator::getStatusName(result.status),
                  std::string(row.error.empty() ? "LOCATE_OK" : row.steps.empty() ? "LOCATE_BAD_REQUEST" : "LOCATE_NOT_FOUND"));
        EXPECT_EQ(corvane_test::targets(result), row.targets);
        EXPECT_EQ(corvane_test::steps(result), row.steps);
        EXPECT_EQ(result.error, row.error);
        if (result.status == Locator::LOCATE_BAD_REQUEST) {  // told at once, also when asked for a callback
            corvane_test::Notifications told(1);
            EXPECT_FALSE(m_locator.locate(row.uri, told.callback(0), ACE_Time_Value(1)));
            EXPECT_EQ(told.told[0], 1);
            EXPECT_EQ(told.results[0].error, row.error);
        }
    }
    // Hosts that no URI carries.
    for (const auto& [host, error] : std::map<std::string, std::string>{
             {"[]", "no host to locate"}, {".", "not a host name: ."}, {"", "no host to locate"}}) {
        Locator::Request request;
        request.host = host;
        Locator::Result result;
        EXPECT_FALSE(m_locator.locate(request, result, ACE_Time_Value(1)));
        EXPECT_EQ(result.error, error) << host;
    }
}

TEST_F(SipLocatorAnswers, NegativeAnswersAreKeptAsTheirSoaSaysAndTtlZeroNever) {
    serveOn("127.53.91.2");
    const auto negative = [](const std::string& in_name, uint16_t in_rcode, uint32_t in_ttl, uint32_t in_minimum) {
        return dns::cat({dns::header(0, static_cast<uint16_t>(dns::RESPONSE_FLAGS | in_rcode), 1, 0, 1, 0),
                         dns::question(in_name, dns::TYPE_A), dns::soa(dns::name("test"), in_ttl, in_minimum)});
    };
    const struct Row {
        std::string name;
        dns::Bytes answer;
        int ttl;  // of the step, and how long the answer is kept
        std::string outcome;
    } rows[] = {
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
        EXPECT_EQ(corvane_test::steps(locate(uri)), Strings{asked + " miss " + std::to_string(row.ttl)});
        if (row.ttl > 0) {
            advance(row.ttl - 1);
            const Locator::Result result = locate(uri);
            EXPECT_EQ(corvane_test::steps(result), Strings{asked + (row.outcome == "answer" ? " hit 1" : " negative-hit 1")});
            EXPECT_EQ(result.targets.empty() ? 1 : result.targets[0].ttl, 1u);
            advance(1);
        }
        EXPECT_EQ(corvane_test::steps(locate(uri)), Strings{asked + " miss " + std::to_string(row.ttl)});
        EXPECT_EQ(m_responder->queryCount(row.name), 2);
    }
}

TEST_F(SipLocatorAnswers, TheLeastRecentlyUsedRecordsGoWhenTheCacheIsFull) {
    serveOn("127.53.91.6");
    for (const char* name : {"lru1.test", "lru2.test", "lru3.test"}) m_responder->answer(name, aAnswer(name, "10.71.3.1", 600));
    m_responder->answer("once.test", aAnswer("once.test", "10.71.3.2", 0));
    const auto uses = [&](const Strings& in_names) {
        std::string out;
        for (const std::string& name : in_names) {
            out += Locator::getCacheUseName(locate("sip:" + name + ".test:5060").steps.at(0).cache) + std::string(" ");
        }
        return out;
    };
    m_locator.setCacheBound(2);  // lru2, least recently used, goes for lru3; then lru3 for lru2
    EXPECT_EQ(uses({"lru1", "lru2", "lru1", "lru3", "lru1", "lru2", "lru1"}), "miss miss hit miss hit miss hit ");
    m_locator.setCacheBound(1);  // lru2, used before lru1, goes at once; a record of TTL 0 takes no room
    EXPECT_EQ(uses({"lru1", "lru2", "once", "lru2"}), "hit miss miss hit ");
    EXPECT_EQ(m_locator.getStatistics().cacheEvictions, 4u);
    m_locator.setCacheBound(0);  // nothing is kept
    EXPECT_EQ(uses({"lru3", "lru3"}), "miss miss ");
}

TEST_F(SipLocatorAnswers, SrvWeightsShareTheFirstPlaceAsRfc2782Says) {
    serveOn("127.53.91.3");
    // Weights 0, 10, 20 and 70 of one priority, and 50 of a later one; the addresses ride along.
    dns::Bytes records, addresses;
    for (const int weight : {0, 10, 20, 70, 50}) {
        const std::string host = "w" + std::to_string(weight) + ".test";
        records = dns::cat({records, dns::srv(dns::pointer(12), weight == 50 ? 20 : 10, weight, 5060, host, 3600)});
        addresses = dns::cat({addresses, dns::a(dns::name(host), "10.72.0." + std::to_string(weight + 1), 3600)});
    }
    m_responder->answer("_sip._udp.w.test", dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 5, 0, 5),
                                                      dns::question("_sip._udp.w.test", dns::TYPE_SRV), records, addresses}));
    m_locator.setRandomSeed(20240611);
    std::map<std::string, double> first;
    for (int i = 0; i < 10000; ++i) {
        const Locator::Result result = locate("sip:w.test;transport=udp");
        ASSERT_EQ(result.targets.size(), 5u);
        ASSERT_EQ(result.targets.back().host, "w50.test");
        first[result.targets.front().host] += 1 / 10000.0;
    }
    EXPECT_EQ(m_responder->totalQueries(), 1);
    // A draw in [0, 100] picks the first running sum that reaches it: weight 0
    // wins only on 0. Bound 0.02: over four standard deviations of the largest share.
    const std::map<std::string, double> shares = {{"w0.test", 1 / 101.0}, {"w10.test", 10 / 101.0},
                                                  {"w20.test", 20 / 101.0}, {"w70.test", 70 / 101.0}};
    for (const auto& [host, share] : shares) EXPECT_NEAR(first[host], share, 0.02) << host;
    EXPECT_GT(first["w0.test"], 0);
    std::string orders[2];  // the same seed, the same orders
    for (std::string& order : orders) {
        m_locator.setRandomSeed(7);
        for (int i = 0; i < 20; ++i) order += locate("sip:w.test;transport=udp").targets.at(0).host + " ";
    }
    EXPECT_EQ(orders[0], orders[1]);
}

TEST_F(SipLocatorAnswers, AFailedTargetGoesLastUntilItsMarkEndsAndTheRecordsStay) {
    serveOn("127.53.91.4");
    m_responder->answer("m.test", dns::response("m.test", {dns::a(dns::pointer(12), "10.73.0.1", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.2", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.3", 3600)}));
    Locator other;  // with marks of its own
    ASSERT_TRUE(other.start());
    const auto order = [&](Locator& io_locator, const std::string& in_uri) {
        Locator::Result result;
        io_locator.locate(in_uri, result, ACE_Time_Value(5), Locator::FAMILY_IPV4);
        std::string out;
        for (const Locator::Target& target : result.targets) out += target.address.back();
        return out;
    };
    const Locator::Result first = locate("sip:m.test:5060");
    m_locator.reportFailure(first.targets.at(0), ACE_Time_Value(30));
    EXPECT_EQ(order(m_locator, "sip:m.test:5060"), "231");
    EXPECT_EQ(order(m_locator, "sip:m.test:5070"), "123");  // another port is another target
    EXPECT_EQ(order(other, "sip:m.test:5060"), "123");
    advance(30);
    EXPECT_EQ(order(m_locator, "sip:m.test:5060"), "123");
    m_locator.reportFailure(first.targets.at(1), ACE_Time_Value(30));
    m_locator.reportSuccess(first.targets.at(1));
    EXPECT_EQ(order(m_locator, "sip:m.test:5060"), "123");
    EXPECT_EQ(m_locator.getStatistics().targetsMarkedFailed, 2u);
    EXPECT_EQ(m_responder->queryCount("m.test"), 2);  // this locator's one query and the other's
}

TEST_F(SipLocatorAnswers, EveryTruncationAndCorruptionIsOneClearFailure) {
    serveOn("127.53.91.5");
    const size_t r = 12 + dns::name("_sip._tcp.c000.test").size() + 4;  // where the first SRV record starts
    const size_t flags = 12 + dns::name("c000.test").size() + 4 + 12 + 4;  // the NAPTR's flags, "S"
    const size_t replacement = flags + 2 + 8 + 1;                       // after "S", "SIP+D2U" and ""
    struct Row {
        bool bSrv;                                      // else NAPTR
        std::vector<std::pair<size_t, size_t>> change;  // offset and new byte
        size_t length = SIZE_MAX;                       // cut to this length
    };
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
        for (size_t length = 0; length < (bSrv ? srvAnswer("c000.test") : naptrAnswer("c000.test")).size(); ++length) {
            rows.push_back({bSrv, {}, length});
        }
    }
    Strings names;
    for (size_t i = 0; i < rows.size(); ++i) {  // zones of one length: every answer has the same layout
        const std::string zone = "c" + std::to_string(1000 + i).substr(1) + ".test";
        names.push_back(rows[i].bSrv ? "_sip._tcp." + zone : zone);
        dns::Bytes bytes = rows[i].bSrv ? srvAnswer(zone) : naptrAnswer(zone);
        for (const auto& [at, value] : rows[i].change) bytes[at] = static_cast<uint8_t>(value);
        bytes.resize(std::min(bytes.size(), rows[i].length));
        const auto id = bytes.size() >= 2 ? DnsResponder::Id::PATCH : DnsResponder::Id::KEEP;
        m_responder->script(names[i], {DnsResponder::Reply{bytes, std::chrono::milliseconds(0), id}});
    }
    // All at once; a burst of answers may overflow the socket buffer: room for c-ares to ask again twice.
    corvane_test::Notifications told(rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::string zone = rows[i].bSrv ? names[i].substr(10) + ";transport=tcp" : names[i];
        m_locator.locate("sip:" + zone, told.callback(i), ACE_Time_Value(4), Locator::FAMILY_IPV4);
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
        EXPECT_EQ(corvane_test::steps(result).at(0), std::string(rows[i].bSrv ? "SRV " : "NAPTR ") + names[i] +
                                                         (bQuestion ? " error miss -1" : " timeout miss -1"));
    }
}

}  // namespace
