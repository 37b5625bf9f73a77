// The locator against answers crafted byte for byte by the scripted
// responder: the additional section, negative answers and their SOA, TTL 0,
// the RFC 2782 weighted order, and malformed answers of every kind.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SipLocator.h"

using corvane_test::DnsResponder;
using corvane_test::Locator;
namespace dns = corvane_test::dns;

namespace {

// The SRV answer for _sip._tcp.<zone>: two targets; the first one's A and
// the second one's AAAA ride in the additional section.
dns::Bytes srvAnswer(const std::string& in_zone) {
    return dns::cat({
        dns::header(0, dns::RESPONSE_FLAGS, 1, 2, 0, 2),                  // 1 question, 2 answers, 2 additional
        dns::question("_sip._tcp." + in_zone, dns::TYPE_SRV),             // at offset 12
        dns::srv(dns::pointer(12), 10, 60, 5060, "s1." + in_zone, 120),   // priority 10, weight 60, port 5060
        dns::srv(dns::pointer(12), 20, 0, 5061, "s2." + in_zone, 120),    // priority 20, weight 0, port 5061
        dns::a(dns::name("s1." + in_zone), "10.71.0.1", 90),              // additional
        dns::aaaa(dns::name("s2." + in_zone), "fd71::2", 90),             // additional
    });
}

// The NAPTR answer for <zone>: one SIP+D2U record; its SRV set and the SRV
// target's A and AAAA ride in the additional section.
dns::Bytes naptrAnswer(const std::string& in_zone) {
    return dns::cat({
        dns::header(0, dns::RESPONSE_FLAGS, 1, 1, 0, 3),  // 1 question, 1 answer, 3 additional
        dns::question(in_zone, dns::TYPE_NAPTR),          // at offset 12
        // order 10, preference 10, flags "S", service, empty regexp, replacement
        dns::naptr(dns::pointer(12), 10, 10, "S", "SIP+D2U", "", "_sip._udp." + in_zone, 300),
        dns::srv(dns::name("_sip._udp." + in_zone), 10, 10, 5060, "h." + in_zone, 200),  // additional
        dns::a(dns::name("h." + in_zone), "10.71.1.1", 100),                            // additional
        dns::aaaa(dns::name("h." + in_zone), "fd71::11", 100),                          // additional
    });
}

// A negative answer to an A query: the rcode, no answer, the zone's SOA.
dns::Bytes negativeAnswer(const std::string& in_name, uint16_t in_rcode, uint32_t in_soaTtl, uint32_t in_minimum) {
    return dns::cat({
        dns::header(0, static_cast<uint16_t>(dns::RESPONSE_FLAGS | in_rcode), 1, 0, 1, 0),  // 1 authority
        dns::question(in_name, dns::TYPE_A),
        dns::soa(dns::name("test"), in_soaTtl, in_minimum),  // authority: TTL and MINIMUM differ
    });
}

class SipLocatorAnswers : public corvane_test::SipLocatorTest {
protected:
    void TearDown() override {
        SipLocatorTest::TearDown();
        m_pResponder.reset();
    }
    // A responder on an address of the test's own (tests run in parallel) and
    // the locator asking it.
    void serveOn(const std::string& in_address) {
        m_pResponder = std::make_unique<DnsResponder>(in_address);
        startServer(*m_pResponder);
        setServers(in_address);
        ASSERT_TRUE(m_locator.start());
    }
    DnsResponder& responder() { return *m_pResponder; }
    // Queries of a name and type the responder received.
    int queries(const std::string& in_name, uint16_t in_type) {
        int count = 0;
        for (const DnsResponder::Query& query : responder().queries()) count += query.name == in_name && query.type == in_type;
        return count;
    }

    std::unique_ptr<DnsResponder> m_pResponder;  // made by serveOn
};

TEST_F(SipLocatorAnswers, AdditionalRecordsAnswerWithoutQueries) {
    serveOn("127.53.91.1");
    responder().answer("_sip._tcp.add.test", srvAnswer("add.test"));
    responder().answer("nadd.test", naptrAnswer("nadd.test"));

    const Locator::Result srv = locate("sip:add.test;transport=tcp");
    EXPECT_EQ(corvane_test::targets(srv), (std::vector<std::string>{"TCP s1.add.test 10.71.0.1 5060 10/60 SRV",
                                                                     "TCP s2.add.test fd71::2 5061 20/0 SRV"}));
    EXPECT_EQ(corvane_test::steps(srv),
              (std::vector<std::string>{"SRV _sip._tcp.add.test answer miss", "A s1.add.test answer hit",
                                        "AAAA s1.add.test NXDOMAIN miss", "A s2.add.test NXDOMAIN miss",
                                        "AAAA s2.add.test answer hit"}));
    ASSERT_EQ(srv.targets.size(), 2u);
    EXPECT_EQ(srv.targets[0].ttl, 90u);  // the smaller of the SRV's and the address's
    EXPECT_EQ(queries("s1.add.test", dns::TYPE_A), 0);
    EXPECT_EQ(queries("s2.add.test", dns::TYPE_AAAA), 0);

    const Locator::Result naptr = locate("sip:nadd.test");
    EXPECT_EQ(corvane_test::targets(naptr), (std::vector<std::string>{"UDP h.nadd.test 10.71.1.1 5060 10/10 NAPTR",
                                                                       "UDP h.nadd.test fd71::11 5060 10/10 NAPTR"}));
    EXPECT_EQ(corvane_test::steps(naptr),
              (std::vector<std::string>{"NAPTR nadd.test answer miss", "SRV _sip._udp.nadd.test answer hit",
                                        "A h.nadd.test answer hit", "AAAA h.nadd.test answer hit"}));
    ASSERT_EQ(naptr.targets.size(), 2u);
    EXPECT_EQ(naptr.targets[0].ttl, 100u);
    EXPECT_EQ(queries("_sip._udp.nadd.test", dns::TYPE_SRV) + queries("h.nadd.test", dns::TYPE_A), 0);
}

TEST_F(SipLocatorAnswers, NegativeAnswersAreKeptAsTheirSoaSaysAndTtlZeroNever) {
    serveOn("127.53.91.2");
    const struct Row {
        const char* name;
        dns::Bytes answer;
        long ttl;           // of the step, and how long the answer is kept
        const char* outcome;
    } rows[] = {
        {"nx.test", negativeAnswer("nx.test", dns::RCODE_NXDOMAIN, 600, 60), 60, "NXDOMAIN"},        // MINIMUM smaller
        {"nodata.test", negativeAnswer("nodata.test", dns::RCODE_NOERROR, 30, 120), 30, "NODATA"},  // TTL smaller
        {"cap.test", negativeAnswer("cap.test", dns::RCODE_NXDOMAIN, 3600, 3600), 300, "NXDOMAIN"}, // 5 minutes at most
        {"nosoa.test", dns::response("nosoa.test", {}, dns::RCODE_NXDOMAIN), 0, "NXDOMAIN"},         // no SOA: never kept
        {"zero.test", dns::response("zero.test", {dns::a(dns::pointer(12), "10.71.2.1", 0)}), 0, "answer"},
        {"pos.test", dns::response("pos.test", {dns::a(dns::pointer(12), "10.71.2.2", 120)}), 120, "answer"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        responder().answer(row.name, row.answer);
        const std::string uri = std::string("sip:") + row.name + ":5060";
        const std::string positive = std::string(row.outcome) == "answer" ? " hit" : " negative-hit";
        const std::string asked = std::string("A ") + row.name + " " + row.outcome;

        Locator::Result result = locate(uri, Locator::FAMILY_IPV4);
        ASSERT_EQ(result.steps.size(), 1u);
        EXPECT_EQ(corvane_test::steps(result)[0], asked + " miss");
        EXPECT_EQ(result.steps[0].ttl, row.ttl);
        if (row.ttl > 0) {
            advance(static_cast<int>(row.ttl) - 1);
            result = locate(uri, Locator::FAMILY_IPV4);
            EXPECT_EQ(corvane_test::steps(result)[0], asked + positive);
            EXPECT_EQ(result.steps[0].ttl, 1);
            if (!result.targets.empty()) {
                EXPECT_EQ(result.targets[0].ttl, 1u);
            }
            advance(1);
        }
        result = locate(uri, Locator::FAMILY_IPV4);
        EXPECT_EQ(corvane_test::steps(result)[0], asked + " miss");
        EXPECT_EQ(responder().queryCount(row.name), 2);
    }
}

TEST_F(SipLocatorAnswers, AddressesComeInTheFamilyOrderAsked) {
    serveOn("127.53.91.7");
    // The A query comes first, then the AAAA query.
    responder().scriptPerQuery(
        "fam.test",
        {{DnsResponder::Reply{dns::response("fam.test", {dns::a(dns::pointer(12), "10.71.4.1", 60),
                                                          dns::a(dns::pointer(12), "10.71.4.2", 60)}),
                              std::chrono::milliseconds(0), DnsResponder::Id::PATCH}},
         {DnsResponder::Reply{dns::response("fam.test",
                                            {dns::aaaa(dns::pointer(12), "fd71::41", 60),
                                             dns::aaaa(dns::pointer(12), "fd71::42", 60)},
                                            dns::RCODE_NOERROR, dns::TYPE_AAAA),
                              std::chrono::milliseconds(0), DnsResponder::Id::PATCH}}});
    ASSERT_EQ(locate("sip:fam.test:5060").targets.size(), 4u);  // both sets cached from here on
    const struct {
        Locator::Family family;
        std::vector<std::string> addresses;
    } rows[] = {
        {Locator::FAMILY_IPV4, {"10.71.4.1", "10.71.4.2"}},
        {Locator::FAMILY_IPV6, {"fd71::41", "fd71::42"}},
        {Locator::FAMILY_IPV4_FIRST, {"10.71.4.1", "10.71.4.2", "fd71::41", "fd71::42"}},
        {Locator::FAMILY_IPV6_FIRST, {"fd71::41", "10.71.4.1", "fd71::42", "10.71.4.2"}},
    };
    for (const auto& row : rows) {
        std::vector<std::string> addresses;
        for (const Locator::Target& target : locate("sip:fam.test:5060", row.family).targets) {
            addresses.push_back(target.address);
        }
        EXPECT_EQ(addresses, row.addresses) << row.family;
    }
}

TEST_F(SipLocatorAnswers, TheLeastRecentlyUsedRecordsGoWhenTheCacheIsFull) {
    serveOn("127.53.91.6");
    for (const char* name : {"lru1.test", "lru2.test", "lru3.test"}) {
        responder().answer(name, dns::response(name, {dns::a(dns::pointer(12), "10.71.3.1", 600)}));
    }
    m_locator.setCacheBound(2);
    const auto cache = [&](const char* in_name) {
        const Locator::Result result = locate(std::string("sip:") + in_name + ":5060", Locator::FAMILY_IPV4);
        return result.steps.empty() ? std::string("none") : Locator::getCacheUseName(result.steps[0].cache);
    };
    const struct {
        const char* name;
        const char* cache;
    } rows[] = {
        {"lru1.test", "miss"}, {"lru2.test", "miss"}, {"lru1.test", "hit"},
        {"lru3.test", "miss"},  // lru2, least recently used, goes
        {"lru1.test", "hit"},  {"lru2.test", "miss"},  // lru3 goes
        {"lru1.test", "hit"},
    };
    for (const auto& row : rows) EXPECT_EQ(cache(row.name), row.cache) << row.name;
    EXPECT_EQ(m_locator.getStatistics().cacheEvictions, 2u);
    m_locator.setCacheBound(1);  // lru2, used before lru1, goes at once
    EXPECT_EQ(cache("lru1.test"), "hit");
    EXPECT_EQ(cache("lru2.test"), "miss");
    EXPECT_EQ(m_locator.getStatistics().cacheEvictions, 4u);
    // A record of TTL 0 takes no room from a kept one.
    responder().answer("once.test", dns::response("once.test", {dns::a(dns::pointer(12), "10.71.3.2", 0)}));
    EXPECT_EQ(cache("once.test"), "miss");
    EXPECT_EQ(cache("lru2.test"), "hit");
    // A bound of 0 keeps nothing.
    m_locator.setCacheBound(0);
    EXPECT_EQ(cache("lru3.test"), "miss");
    EXPECT_EQ(cache("lru3.test"), "miss");
    EXPECT_EQ(responder().queryCount("lru3.test"), 3);
}

TEST_F(SipLocatorAnswers, SrvWeightsShareTheFirstPlaceAsRfc2782Says) {
    serveOn("127.53.91.3");
    // One priority with weights 0, 10, 20 and 70, and a record of a later
    // priority; every target's address rides along.
    const uint16_t weights[] = {0, 10, 20, 70};
    std::vector<dns::Bytes> parts = {dns::header(0, dns::RESPONSE_FLAGS, 1, 5, 0, 5),
                                     dns::question("_sip._udp.w.test", dns::TYPE_SRV)};
    for (uint16_t weight : weights) {
        parts.push_back(dns::srv(dns::pointer(12), 10, weight, 5060, "w" + std::to_string(weight) + ".w.test", 3600));
    }
    parts.push_back(dns::srv(dns::pointer(12), 20, 50, 5060, "last.w.test", 3600));
    for (uint16_t weight : weights) {
        parts.push_back(dns::a(dns::name("w" + std::to_string(weight) + ".w.test"), "10.72.0." + std::to_string(weight + 1), 3600));
    }
    parts.push_back(dns::a(dns::name("last.w.test"), "10.72.1.1", 3600));
    dns::Bytes answer;
    for (const dns::Bytes& part : parts) answer.insert(answer.end(), part.begin(), part.end());
    responder().answer("_sip._udp.w.test", answer);

    m_locator.setRandomSeed(20240611);
    std::map<std::string, int> first;
    const int kDraws = 10000;
    for (int i = 0; i < kDraws; ++i) {
        const Locator::Result result = locate("sip:w.test;transport=udp", Locator::FAMILY_IPV4);
        ASSERT_EQ(result.targets.size(), 5u);
        ++first[result.targets.front().host];
        ASSERT_EQ(result.targets.back().host, "last.w.test");
    }
    EXPECT_EQ(responder().totalQueries(), 1);
    // A draw in [0, 100] picks the first running sum that reaches it: weight
    // 0 wins only on 0. Bound: 0.02, over four standard deviations of the
    // largest share (0.0046).
    for (uint16_t weight : weights) {
        const double expected = (weight == 0 ? 1.0 : weight) / 101.0;
        const double share = first["w" + std::to_string(weight) + ".w.test"] / static_cast<double>(kDraws);
        EXPECT_NEAR(share, expected, 0.02) << "weight " << weight;
    }
    EXPECT_GT(first["w0.w.test"], 0);

    // The same seed, the same orders.
    std::vector<std::string> orders[2];
    for (auto& order : orders) {
        m_locator.setRandomSeed(7);
        for (int i = 0; i < 20; ++i) order.push_back(locate("sip:w.test;transport=udp", Locator::FAMILY_IPV4).targets[0].host);
    }
    EXPECT_EQ(orders[0], orders[1]);
}

TEST_F(SipLocatorAnswers, AFailedTargetGoesLastUntilItsMarkEndsAndTheRecordsStay) {
    serveOn("127.53.91.4");
    responder().answer("m.test", dns::response("m.test", {dns::a(dns::pointer(12), "10.73.0.1", 3600),
                                                          dns::a(dns::pointer(12), "10.73.0.2", 3600),
                                                          dns::a(dns::pointer(12), "10.73.0.3", 3600)}));
    const auto addresses = [](const Locator::Result& in_result) {
        std::vector<std::string> out;
        for (const Locator::Target& target : in_result.targets) out.push_back(target.address);
        return out;
    };
    const std::vector<std::string> inOrder = {"10.73.0.1", "10.73.0.2", "10.73.0.3"};
    const Locator::Result first = locate("sip:m.test:5060", Locator::FAMILY_IPV4);
    ASSERT_EQ(addresses(first), inOrder);

    m_locator.reportFailure(first.targets[0], ACE_Time_Value(30));
    EXPECT_EQ(addresses(locate("sip:m.test:5060", Locator::FAMILY_IPV4)),
              (std::vector<std::string>{"10.73.0.2", "10.73.0.3", "10.73.0.1"}));
    // Another transport or port is another target.
    EXPECT_EQ(addresses(locate("sip:m.test:5070", Locator::FAMILY_IPV4)), inOrder);
    // Another locator, with its own marks, asks and finds the records unchanged.
    {
        Locator other;
        ASSERT_TRUE(other.start());
        Locator::Result result;
        other.locate("sip:m.test:5060", result, ACE_Time_Value(5), Locator::FAMILY_IPV4);
        EXPECT_EQ(addresses(result), inOrder);
    }
    advance(30);
    EXPECT_EQ(addresses(locate("sip:m.test:5060", Locator::FAMILY_IPV4)), inOrder);

    m_locator.reportFailure(first.targets[1], ACE_Time_Value(30));
    m_locator.reportSuccess(first.targets[1]);
    EXPECT_EQ(addresses(locate("sip:m.test:5060", Locator::FAMILY_IPV4)), inOrder);
    EXPECT_EQ(m_locator.getStatistics().targetsMarkedFailed, 2u);
    EXPECT_EQ(responder().queryCount("m.test"), 2);  // this locator's one query and the other's
}

TEST_F(SipLocatorAnswers, EveryTruncationAndCorruptionIsOneClearFailure) {
    serveOn("127.53.91.5");
    struct Row {
        std::string uri;      // asks for the answer below first
        std::string name;     // the name it asks
        dns::Bytes bytes;     // what the responder sends
        bool questionIntact;  // c-ares hands the answer over (else drops it and the request times out)
    };
    std::vector<Row> rows;
    const auto srvUri = [](const std::string& in_zone) { return "sip:" + in_zone + ";transport=tcp"; };
    for (const bool bSrv : {true, false}) {
        const size_t full = (bSrv ? srvAnswer("t000.test") : naptrAnswer("t000.test")).size();
        for (size_t length = 0; length < full; ++length) {
            // Names of one length, so that every answer has the full one's layout.
            const std::string number = std::to_string(length);
            const std::string zone = (bSrv ? "s" : "n") + std::string(3 - number.size(), '0') + number + ".test";
            const std::string name = bSrv ? "_sip._tcp." + zone : zone;
            dns::Bytes bytes = bSrv ? srvAnswer(zone) : naptrAnswer(zone);
            bytes.resize(length);
            rows.push_back({bSrv ? srvUri(zone) : "sip:" + zone, name, bytes,
                            length >= 12 + dns::name(name).size() + 4});
        }
    }
    // Corrupted counts, lengths and names of whole answers.
    const auto corrupt = [&](const std::string& in_label, auto in_change) {
        const std::string zone = in_label + ".test";
        dns::Bytes bytes = srvAnswer(zone);
        in_change(bytes, 12 + dns::name("_sip._tcp." + zone).size() + 4);  // offset of the first record
        rows.push_back({srvUri(zone), "_sip._tcp." + zone, bytes, true});
    };
    corrupt("morerecords", [](dns::Bytes& b, size_t) { b[7] = 3; });              // answer count 3 of 2
    corrupt("longdata", [](dns::Bytes& b, size_t r) { b[r + 10] = 0xFF; });       // data length past the end
    corrupt("shortdata", [](dns::Bytes& b, size_t r) { b[r + 11] -= 1; });        // the target overruns the data
    corrupt("selfloop", [](dns::Bytes& b, size_t r) {                             // target points at itself
        b[r + 18] = static_cast<uint8_t>(0xC0 | ((r + 18) >> 8));
        b[r + 19] = static_cast<uint8_t>(r + 18);
    });
    corrupt("forward", [](dns::Bytes& b, size_t r) {                              // target points ahead
        b[r + 18] = 0xC0 | 0x00;
        b[r + 19] = static_cast<uint8_t>(r + 40);
    });
    corrupt("intoheader", [](dns::Bytes& b, size_t r) { b[r + 18] = 0xC0; b[r + 19] = 2; });  // flags read as a label
    corrupt("badlabel", [](dns::Bytes& b, size_t r) { b[r + 18] = 0x40; });     // extended label type
    {
        const std::string zone = "naptrloop.test";
        dns::Bytes bytes = naptrAnswer(zone);
        // NAPTR data: order, preference, "S", "SIP+D2U", "", replacement.
        const size_t replacement = 12 + dns::name(zone).size() + 4 + 2 + 10 + 4 + 2 + 8 + 1;
        bytes[replacement] = static_cast<uint8_t>(0xC0 | (replacement >> 8));  // replacement points at itself
        bytes[replacement + 1] = static_cast<uint8_t>(replacement);
        rows.push_back({"sip:" + zone, zone, bytes, true});
        dns::Bytes longText = naptrAnswer("naptrtext.test");
        longText[12 + dns::name("naptrtext.test").size() + 4 + 2 + 10 + 4] = 0xFF;  // flags length past the data
        rows.push_back({"sip:naptrtext.test", "naptrtext.test", longText, true});
    }

    for (const Row& row : rows) {
        DnsResponder::Reply reply{row.bytes, std::chrono::milliseconds(0),
                                  row.bytes.size() >= 2 ? DnsResponder::Id::PATCH : DnsResponder::Id::KEEP};
        responder().script(row.name, {reply});
    }
    // All at once: a burst of answers may overflow the client's socket
    // buffer, so the time-out leaves room for c-ares to ask again twice.
    corvane_test::Notifications told(rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        m_locator.locate(rows[i].uri, told.callback(i), ACE_Time_Value(4), Locator::FAMILY_IPV4);
    }
    ASSERT_TRUE(told.waitAll());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].uri + " with " + std::to_string(rows[i].bytes.size()) + " bytes");
        EXPECT_EQ(told.told(i), 1);
        const Locator::Result result = told.result(i);
        EXPECT_NE(result.status, Locator::LOCATE_OK);
        EXPECT_TRUE(result.targets.empty());
        ASSERT_FALSE(result.steps.empty());
        EXPECT_EQ(result.steps[0].name, rows[i].name);
        if (rows[i].questionIntact) {
            EXPECT_EQ(result.steps[0].outcome, Locator::OUTCOME_ERROR);
        } else {
            EXPECT_EQ(result.steps[0].outcome, Locator::OUTCOME_TIMEOUT);
        }
    }
    m_locator.stop();
    EXPECT_TRUE(accountsAtZero());
    for (size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(told.told(i), 1);
}

}  // namespace
