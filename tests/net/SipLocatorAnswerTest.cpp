// The locator against answers crafted byte for byte by the scripted responder:
// every branch of the procedure, the additional section, negative answers and
// their SOA, TTL 0 and caps, the RFC 2782 weighted order, failure marks, the
// bounded cache, and malformed answers of every kind.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SipLocator.h"

using corvane_test::DnsResponder;
using corvane_test::Locator;
namespace dns = corvane_test::dns;
using Strings = std::vector<std::string>;

namespace {

// _sip._tcp.<zone>: s1 (priority 10, weight 60) and s2 (20, 0); s1's A and
// s2's AAAA ride in the additional section.
dns::Bytes srvAnswer(const std::string& in_zone) {
    return dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 2, 0, 2),
                     dns::question("_sip._tcp." + in_zone, dns::TYPE_SRV),
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

class SipLocatorAnswers : public corvane_test::SipLocatorTest {
protected:
    // A responder on an address of the test's own (tests run in parallel).
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
    setHosts("127.0.0.1 localhost\n10.70.5.5 hosted.test\nfd70::55 Hosted.test.\nfd70::56 v6host.test\n");
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
        Locator::Family family;
        Locator::Status status;
        Strings targets;
        Strings steps;  // with the step's TTL, -1 when none
        std::string error;
    } rows[] = {
        // A numeric host: no lookup; the scheme's transport and port unless given.
        {"sip:10.70.9.9", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"UDP 10.70.9.9 10.70.9.9 5060 -/- numeric"}, {}, ""},
        {"sips:10.70.9.9", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"TLS 10.70.9.9 10.70.9.9 5061 -/- numeric"}, {}, ""},
        {"sip:[FD70::99]:5099;transport=tcp", Locator::FAMILY_IPV4, Locator::LOCATE_OK,
         {"TCP fd70::99 fd70::99 5099 -/- numeric"}, {}, ""},
        {"sip:alice@h.test;maddr=10.74.11.1", Locator::FAMILY_IPV4, Locator::LOCATE_OK,
         {"UDP 10.74.11.1 10.74.11.1 5060 -/- numeric"}, {}, ""},
        // SRV of the given transport; the additional section answers without queries.
        {"sip:ADD.test;transport=TCP", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"TCP s1.add.test 10.71.0.1 5060 10/60 SRV", "TCP s2.add.test fd71::2 5061 20/0 SRV"},
         {"SRV _sip._tcp.add.test answer miss 120", "A s1.add.test answer hit 90", "AAAA s1.add.test NXDOMAIN miss 0",
          "A s2.add.test NXDOMAIN miss 0", "AAAA s2.add.test answer hit 90"}, ""},
        {"sip:nadd.test", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"UDP h.nadd.test 10.71.1.1 5060 10/10 NAPTR", "UDP h.nadd.test fd71::11 5060 10/10 NAPTR"},
         {"NAPTR nadd.test answer miss 300", "SRV _sip._udp.nadd.test answer hit 200", "A h.nadd.test answer hit 100",
          "AAAA h.nadd.test answer hit 100"}, ""},
        // Target "." ends the search: no fallback to addresses.
        {"sip:down.test;transport=udp", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {},
         {"SRV _sip._udp.down.test answer miss 300"}, "the domain does not offer the service (SRV target \".\")"},
        {"sip:sf.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {}, {"A sf.test error miss -1"},
         "sf.test A: Could not contact DNS servers"},
        {"sip:bad.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {}, {"A bad.test error miss -1"},
         "bad.test A: an A record is malformed"},
        {"sip:long.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"UDP long.test 10.71.5.1 5060 -/- A"},
         {"A long.test answer miss 604800"}, ""},
        // The hosts file answers before DNS, for the families it knows.
        {"sip:hosted.test", Locator::FAMILY_IPV6_FIRST, Locator::LOCATE_OK,
         {"UDP hosted.test fd70::55 5060 -/- hosts", "UDP hosted.test 10.70.5.5 5060 -/- hosts"}, {}, ""},
        {"sip:v6host.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {},
         {"A v6host.test NXDOMAIN miss 0"}, "no record leads to an address of v6host.test"},
        // The addresses of a host in the family order asked.
        {"sip:fam.test:5060", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK, {fam, fam41, fam42},
         {"A fam.test answer miss 60", "AAAA fam.test answer miss 60"}, ""},
        {"sip:fam.test:5060", Locator::FAMILY_IPV6_FIRST, Locator::LOCATE_OK, {fam41, fam, fam42},
         {"A fam.test answer hit 60", "AAAA fam.test answer hit 60"}, ""},
        {"sip:fam.test:5060", Locator::FAMILY_IPV6, Locator::LOCATE_OK, {fam41, fam42}, {"AAAA fam.test answer hit 60"}, ""},
        // URIs that cannot be located.
        {"tel:+4930123", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not a SIP or SIPS URI: tel:+4930123"},
        {"sip:", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "no host in sip:"},
        {"sips:h.test;transport=udp", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "a SIPS URI cannot use UDP"},
        {"sip:h.test;transport=sctp", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "unsupported transport: sctp"},
        {"sip:h.test:99999", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not a port: 99999"},
        {"sip:bad!name.test", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not a host name: bad!name.test"},
        {"sip:bad~name.test", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not a host name: bad~name.test"},
        {"sip:a..test", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not a host name: a..test"},
        {"sip:[fd00::zz]", Locator::FAMILY_IPV4, Locator::LOCATE_BAD_REQUEST, {}, {}, "not an IPv6 address: [fd00::zz]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uri);
        const Locator::Result result = locate(row.uri, row.family);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(corvane_test::targets(result), row.targets);
        Strings steps = corvane_test::steps(result);
        for (size_t i = 0; i < steps.size(); ++i) steps[i] += " " + std::to_string(result.steps[i].ttl);
        EXPECT_EQ(steps, row.steps);
        EXPECT_EQ(result.error, row.error);
        if (row.status == Locator::LOCATE_BAD_REQUEST) {  // told at once, also when asked for a callback
            corvane_test::Notifications told(1);
            EXPECT_FALSE(m_locator.locate(row.uri, told.callback(0), ACE_Time_Value(1)));
            EXPECT_EQ(told.told(0), 1);
            EXPECT_EQ(told.result(0).error, row.error);
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
        const char* name;
        dns::Bytes answer;
        int ttl;  // of the step, and how long the answer is kept
        const char* outcome;
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
        const std::string uri = std::string("sip:") + row.name + ":5060";
        const std::string asked = std::string("A ") + row.name + " " + row.outcome;
        Locator::Result result = locate(uri, Locator::FAMILY_IPV4);
        EXPECT_EQ(corvane_test::steps(result), Strings{asked + " miss"});
        EXPECT_EQ(result.steps.at(0).ttl, row.ttl);
        if (row.ttl > 0) {
            advance(row.ttl - 1);
            result = locate(uri, Locator::FAMILY_IPV4);
            const char* const use = std::string(row.outcome) == "answer" ? " hit" : " negative-hit";
            EXPECT_EQ(corvane_test::steps(result), Strings{asked + use});
            EXPECT_EQ(result.steps.at(0).ttl, 1);
            EXPECT_EQ(result.targets.empty() ? 1 : result.targets[0].ttl, 1u);
            advance(1);
        }
        EXPECT_EQ(corvane_test::steps(locate(uri, Locator::FAMILY_IPV4)), Strings{asked + " miss"});
        EXPECT_EQ(m_responder->queryCount(row.name), 2);
    }
}

TEST_F(SipLocatorAnswers, TheLeastRecentlyUsedRecordsGoWhenTheCacheIsFull) {
    serveOn("127.53.91.6");
    for (const char* name : {"lru1.test", "lru2.test", "lru3.test"}) m_responder->answer(name, aAnswer(name, "10.71.3.1", 600));
    m_responder->answer("once.test", aAnswer("once.test", "10.71.3.2", 0));
    const auto cache = [&](const std::string& in_name) {
        return std::string(Locator::getCacheUseName(locate("sip:" + in_name + ":5060", Locator::FAMILY_IPV4).steps.at(0).cache));
    };
    const struct {
        size_t bound;
        std::vector<std::pair<const char*, const char*>> uses;  // name and cache use, in turn
        uint64_t evictions;                                     // so far
    } rows[] = {
        // lru2, least recently used, goes for lru3; then lru3 for lru2.
        {2, {{"lru1", "miss"}, {"lru2", "miss"}, {"lru1", "hit"}, {"lru3", "miss"}, {"lru1", "hit"}, {"lru2", "miss"},
             {"lru1", "hit"}}, 2},
        // lru2, used before lru1, goes at once; a record of TTL 0 takes no room.
        {1, {{"lru1", "hit"}, {"lru2", "miss"}, {"once", "miss"}, {"lru2", "hit"}}, 4},
        {0, {{"lru3", "miss"}, {"lru3", "miss"}}, 5},  // nothing is kept
    };
    for (const auto& row : rows) {
        m_locator.setCacheBound(row.bound);
        for (const auto& [name, use] : row.uses) EXPECT_EQ(cache(std::string(name) + ".test"), use) << name;
        EXPECT_EQ(m_locator.getStatistics().cacheEvictions, row.evictions) << row.bound;
    }
    EXPECT_EQ(m_responder->queryCount("lru3.test"), 3);
}

TEST_F(SipLocatorAnswers, SrvWeightsShareTheFirstPlaceAsRfc2782Says) {
    serveOn("127.53.91.3");
    // One priority with weights 0, 10, 20 and 70, and one record of a later priority.
    const uint16_t weights[] = {0, 10, 20, 70};
    dns::Bytes answer = dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 1, 5, 0, 5), dns::question("_sip._udp.w.test", dns::TYPE_SRV)});
    dns::Bytes addresses = dns::a(dns::name("last.w.test"), "10.72.1.1", 3600);
    for (uint16_t weight : weights) {
        const std::string host = "w" + std::to_string(weight) + ".w.test";
        answer = dns::cat({answer, dns::srv(dns::pointer(12), 10, weight, 5060, host, 3600)});
        addresses = dns::cat({addresses, dns::a(dns::name(host), "10.72.0." + std::to_string(weight + 1), 3600)});
    }
    m_responder->answer("_sip._udp.w.test",
                        dns::cat({answer, dns::srv(dns::pointer(12), 20, 50, 5060, "last.w.test", 3600), addresses}));
    m_locator.setRandomSeed(20240611);
    std::map<std::string, int> first;
    const int kDraws = 10000;
    for (int i = 0; i < kDraws; ++i) {
        const Locator::Result result = locate("sip:w.test;transport=udp", Locator::FAMILY_IPV4);
        ASSERT_EQ(result.targets.size(), 5u);
        ++first[result.targets.front().host];
        ASSERT_EQ(result.targets.back().host, "last.w.test");
    }
    EXPECT_EQ(m_responder->totalQueries(), 1);
    // A draw in [0, 100] picks the first running sum that reaches it: weight 0
    // wins only on 0. Bound 0.02: over four standard deviations of the largest share.
    for (uint16_t weight : weights) {
        const double share = first["w" + std::to_string(weight) + ".w.test"] / static_cast<double>(kDraws);
        EXPECT_NEAR(share, (weight == 0 ? 1.0 : weight) / 101.0, 0.02) << "weight " << weight;
    }
    EXPECT_GT(first["w0.w.test"], 0);
    Strings orders[2];  // the same seed, the same orders
    for (Strings& order : orders) {
        m_locator.setRandomSeed(7);
        for (int i = 0; i < 20; ++i) {
            order.push_back(locate("sip:w.test;transport=udp", Locator::FAMILY_IPV4).targets.at(0).host);
        }
    }
    EXPECT_EQ(orders[0], orders[1]);
}

TEST_F(SipLocatorAnswers, AFailedTargetGoesLastUntilItsMarkEndsAndTheRecordsStay) {
    serveOn("127.53.91.4");
    m_responder->answer("m.test", dns::response("m.test", {dns::a(dns::pointer(12), "10.73.0.1", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.2", 3600),
                                                           dns::a(dns::pointer(12), "10.73.0.3", 3600)}));
    const auto addresses = [&](Locator& io_locator, const std::string& in_uri) {
        Locator::Result result;
        io_locator.locate(in_uri, result, ACE_Time_Value(5), Locator::FAMILY_IPV4);
        std::string out;
        for (const Locator::Target& target : result.targets) out += target.address.substr(8) + " ";
        return out;
    };
    const Locator::Result first = locate("sip:m.test:5060", Locator::FAMILY_IPV4);
    m_locator.reportFailure(first.targets.at(0), ACE_Time_Value(30));
    EXPECT_EQ(addresses(m_locator, "sip:m.test:5060"), "2 3 1 ");
    EXPECT_EQ(addresses(m_locator, "sip:m.test:5070"), "1 2 3 ");  // another port is another target
    Locator other;  // with marks of its own, asks and finds the records unchanged
    ASSERT_TRUE(other.start());
    EXPECT_EQ(addresses(other, "sip:m.test:5060"), "1 2 3 ");
    advance(30);
    EXPECT_EQ(addresses(m_locator, "sip:m.test:5060"), "1 2 3 ");
    m_locator.reportFailure(first.targets.at(1), ACE_Time_Value(30));
    m_locator.reportSuccess(first.targets.at(1));
    EXPECT_EQ(addresses(m_locator, "sip:m.test:5060"), "1 2 3 ");
    EXPECT_EQ(m_locator.getStatistics().targetsMarkedFailed, 2u);
    EXPECT_EQ(m_responder->queryCount("m.test"), 2);  // this locator's one query and the other's
}

TEST_F(SipLocatorAnswers, EveryTruncationAndCorruptionIsOneClearFailure) {
    serveOn("127.53.91.5");
    struct Row {
        std::string uri, name;  // what is asked first
        dns::Bytes bytes;       // what the responder sends
        bool questionIntact;    // c-ares hands the answer over (else drops it: a time-out)
    };
    std::vector<Row> rows;
    for (const bool bSrv : {true, false}) {
        const size_t full = (bSrv ? srvAnswer("x000.test") : naptrAnswer("x000.test")).size();
        for (size_t length = 0; length < full; ++length) {
            // Zones of one length: every answer has the full one's layout.
            const std::string zone = (bSrv ? "s" : "n") + std::to_string(1000 + length).substr(1) + ".test";
            const std::string name = bSrv ? "_sip._tcp." + zone : zone;
            dns::Bytes bytes = bSrv ? srvAnswer(zone) : naptrAnswer(zone);
            bytes.resize(length);
            rows.push_back({bSrv ? "sip:" + zone + ";transport=tcp" : "sip:" + zone, name, bytes,
                            length >= 12 + dns::name(name).size() + 4});
        }
    }
    const size_t r = 12 + dns::name("_sip._tcp.c0.test").size() + 4;  // where the first SRV record starts
    const size_t flags = 12 + dns::name("c0.test").size() + 4 + 12 + 4;  // the NAPTR's flags, "S"
    const size_t replacement = flags + 2 + 8 + 1;                       // after "S", "SIP+D2U" and ""
    const struct {
        bool bSrv;                                  // else NAPTR
        std::vector<std::pair<size_t, size_t>> at;  // offset and new byte
    } corruptions[] = {
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
    for (size_t i = 0; i < std::size(corruptions); ++i) {
        const bool bSrv = corruptions[i].bSrv;
        const std::string zone = "c" + std::to_string(i) + ".test";
        const std::string name = bSrv ? "_sip._tcp." + zone : zone;
        dns::Bytes bytes = bSrv ? srvAnswer(zone) : naptrAnswer(zone);
        for (const auto& [at, value] : corruptions[i].at) bytes[at] = static_cast<uint8_t>(value);
        rows.push_back({bSrv ? "sip:" + zone + ";transport=tcp" : "sip:" + zone, name, bytes, true});
    }
    for (const Row& row : rows) {
        const auto id = row.bytes.size() >= 2 ? DnsResponder::Id::PATCH : DnsResponder::Id::KEEP;
        m_responder->script(row.name, {DnsResponder::Reply{row.bytes, std::chrono::milliseconds(0), id}});
    }
    // All at once: a burst of answers may overflow the client's socket buffer,
    // so the time-out leaves room for c-ares to ask again twice.
    corvane_test::Notifications told(rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        m_locator.locate(rows[i].uri, told.callback(i), ACE_Time_Value(4), Locator::FAMILY_IPV4);
    }
    ASSERT_TRUE(told.waitAll());
    m_locator.stop();
    EXPECT_TRUE(accountsAtZero());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].uri + " with " + std::to_string(rows[i].bytes.size()) + " bytes");
        const Locator::Result result = told.result(i);
        EXPECT_EQ(told.told(i), 1);
        EXPECT_NE(result.status, Locator::LOCATE_OK);
        EXPECT_TRUE(result.targets.empty());
        ASSERT_FALSE(result.steps.empty());
        EXPECT_EQ(result.steps[0].name, rows[i].name);
        EXPECT_EQ(result.steps[0].outcome, rows[i].questionIntact ? Locator::OUTCOME_ERROR : Locator::OUTCOME_TIMEOUT);
    }
}

}  // namespace
