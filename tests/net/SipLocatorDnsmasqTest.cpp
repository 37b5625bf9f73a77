// Every branch of RFC 3263 section 4 through the public interface, against
// dnsmasq serving NAPTR, SRV, A, AAAA and CNAME records on a loopback address.
#include <memory>
#include <string>
#include <vector>

#include "SipLocator.h"

using corvane_test::Dnsmasq;
using corvane_test::Locator;

namespace {

class SipLocatorDnsmasq : public corvane_test::SipLocatorTest {
protected:
    void SetUp() override {
        SipLocatorTest::SetUp();
        setHosts("127.0.0.1 localhost\n10.70.5.5 hosted.test\nfd70::55 hosted.test\n");
    }
    void TearDown() override {
        SipLocatorTest::TearDown();
        m_pServer.reset();
    }
    // dnsmasq on an address of the test's own (tests run in parallel), asked by the locator.
    void serveOn(const std::string& in_address) {
        m_pServer = std::make_unique<Dnsmasq>(in_address);
        m_pServer->localTtl(60)
            .option("--host-record=a1.example.test,10.70.0.1,fd70::1,300")
            .option("--host-record=a2.example.test,10.70.0.2,300")
            .option("--host-record=b1.example.test,10.70.1.1,fd70::11,300")
            .option("--host-record=plain.test,10.70.2.1,fd70::21,300")
            .option("--host-record=v6only.test,fd70::41,300")
            .cname("alias.test", "plain.test", 300)
            // NAPTR: TCP, then TLS, then UDP; an unsupported service and a
            // non-terminal flag are passed over.
            .option("--naptr-record=naptr.test,20,10,S,SIP+D2U,,_sip._udp.naptr.test")
            .option("--naptr-record=naptr.test,10,10,S,SIP+D2T,,_sip._tcp.naptr.test")
            .option("--naptr-record=naptr.test,10,20,S,SIPS+D2T,,_sips._tcp.naptr.test")
            .option("--naptr-record=naptr.test,5,10,S,SIP+D2X,,_sip._x.naptr.test")
            .option("--naptr-record=naptr.test,5,10,A,SIP+D2U,,a1.example.test")
            .option("--srv-host=_sip._udp.naptr.test,a1.example.test,5060,10,10")
            .option("--srv-host=_sip._tcp.naptr.test,a2.example.test,5062,10,10")
            .option("--srv-host=_sips._tcp.naptr.test,b1.example.test,5063,10,10")
            // SRV without NAPTR.
            .option("--srv-host=_sip._tcp.srvonly.test,a1.example.test,5070,10,0")
            .option("--srv-host=_sip._udp.srvonly.test,a2.example.test,5071,10,0")
            .option("--srv-host=_sips._tcp.secure.test,b1.example.test,5081,10,0")
            // Not offered: target ".".
            .option("--srv-host=_sip._udp.down.test");
        startServer(*m_pServer);
        setServers(in_address);
    }

    std::unique_ptr<Dnsmasq> m_pServer;  // made by serveOn
};

TEST_F(SipLocatorDnsmasq, EveryBranchOfTheProcedure) {
    serveOn("127.53.90.1");
    const struct Row {
        const char* uri;
        Locator::Family family;
        Locator::Status status;
        std::vector<std::string> targets;
        std::vector<std::string> steps;
    } rows[] = {
        // A numeric host: no lookup; the scheme's transport and port unless given.
        {"sip:10.70.9.9", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK, {"UDP 10.70.9.9 10.70.9.9 5060 -/- numeric"}, {}},
        {"sips:10.70.9.9", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK, {"TLS 10.70.9.9 10.70.9.9 5061 -/- numeric"}, {}},
        {"sip:[FD70::99]:5099;transport=tcp", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"TCP fd70::99 fd70::99 5099 -/- numeric"}, {}},
        // A port given: addresses only.
        {"sip:plain.test:5080", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"UDP plain.test 10.70.2.1 5080 -/- A", "UDP plain.test fd70::21 5080 -/- AAAA"},
         {"A plain.test answer miss", "AAAA plain.test answer miss"}},
        {"sips:plain.test:5090", Locator::FAMILY_IPV6, Locator::LOCATE_OK, {"TLS plain.test fd70::21 5090 -/- AAAA"},
         {"AAAA plain.test answer miss"}},
        {"sip:alias.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"UDP alias.test 10.70.2.1 5060 -/- A"},
         {"A alias.test answer miss"}},
        // A transport given: SRV of that transport, then addresses (from the
        // SRV answer's additional section) ...
        {"sip:srvonly.test;transport=tcp", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"TCP a1.example.test 10.70.0.1 5070 10/0 SRV", "TCP a1.example.test fd70::1 5070 10/0 SRV"},
         {"SRV _sip._tcp.srvonly.test answer miss", "A a1.example.test answer hit", "AAAA a1.example.test answer hit"}},
        // ... or, without SRV, the host's addresses at the transport's port.
        {"sip:plain.test;transport=TCP", Locator::FAMILY_IPV4, Locator::LOCATE_OK,
         {"TCP plain.test 10.70.2.1 5060 -/- A"}, {"SRV _sip._tcp.plain.test NXDOMAIN miss", "A plain.test answer miss"}},
        {"sips:plain.test;transport=tcp", Locator::FAMILY_IPV4, Locator::LOCATE_OK,
         {"TLS plain.test 10.70.2.1 5061 -/- A"}, {"SRV _sips._tcp.plain.test NXDOMAIN miss", "A plain.test answer miss"}},
        // NAPTR in order and preference, supported services with "S" only.
        {"sip:naptr.test", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"TCP a2.example.test 10.70.0.2 5062 10/10 NAPTR", "TLS b1.example.test 10.70.1.1 5063 10/10 NAPTR",
          "TLS b1.example.test fd70::11 5063 10/10 NAPTR", "UDP a1.example.test 10.70.0.1 5060 10/10 NAPTR",
          "UDP a1.example.test fd70::1 5060 10/10 NAPTR"},
         {"NAPTR naptr.test answer miss", "SRV _sip._tcp.naptr.test answer miss", "A a2.example.test answer hit",
          "AAAA a2.example.test NODATA miss", "SRV _sips._tcp.naptr.test answer miss", "A b1.example.test answer hit",
          "AAAA b1.example.test answer hit", "SRV _sip._udp.naptr.test answer miss", "A a1.example.test answer hit",
          "AAAA a1.example.test answer hit"}},
        // A SIPS URI follows SIPS+D2T alone.
        {"sips:naptr.test", Locator::FAMILY_IPV6_FIRST, Locator::LOCATE_OK,
         {"TLS b1.example.test fd70::11 5063 10/10 NAPTR", "TLS b1.example.test 10.70.1.1 5063 10/10 NAPTR"},
         {"NAPTR naptr.test answer miss", "SRV _sips._tcp.naptr.test answer miss", "A b1.example.test answer hit",
          "AAAA b1.example.test answer hit"}},
        // No NAPTR: SRV for TLS, TCP and UDP.
        {"sip:srvonly.test", Locator::FAMILY_IPV4, Locator::LOCATE_OK,
         {"TCP a1.example.test 10.70.0.1 5070 10/0 SRV", "UDP a2.example.test 10.70.0.2 5071 10/0 SRV"},
         {"NAPTR srvonly.test NODATA miss", "SRV _sips._tcp.srvonly.test NXDOMAIN miss",
          "SRV _sip._tcp.srvonly.test answer miss", "A a1.example.test answer hit",
          "SRV _sip._udp.srvonly.test answer miss", "A a2.example.test answer hit"}},
        {"sips:secure.test", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"TLS b1.example.test 10.70.1.1 5081 10/0 SRV"},
         {"NAPTR secure.test NODATA miss", "SRV _sips._tcp.secure.test answer miss", "A b1.example.test answer hit"}},
        // Neither NAPTR nor SRV: the host at the scheme's transport and port.
        {"sip:plain.test", Locator::FAMILY_IPV4_FIRST, Locator::LOCATE_OK,
         {"UDP plain.test 10.70.2.1 5060 -/- A", "UDP plain.test fd70::21 5060 -/- AAAA"},
         {"NAPTR plain.test NODATA miss", "SRV _sips._tcp.plain.test NXDOMAIN miss",
          "SRV _sip._tcp.plain.test NXDOMAIN miss", "SRV _sip._udp.plain.test NXDOMAIN miss",
          "A plain.test answer miss", "AAAA plain.test answer miss"}},
        {"sips:plain.test", Locator::FAMILY_IPV4, Locator::LOCATE_OK, {"TLS plain.test 10.70.2.1 5061 -/- A"},
         {"NAPTR plain.test NODATA miss", "SRV _sips._tcp.plain.test NXDOMAIN miss", "A plain.test answer miss"}},
        // IPv4 only finds nothing for an IPv6-only host.
        {"sip:v6only.test:5060", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {}, {"A v6only.test NODATA miss"}},
        // The hosts file answers before DNS is asked at all.
        {"sip:hosted.test", Locator::FAMILY_IPV6_FIRST, Locator::LOCATE_OK,
         {"UDP hosted.test fd70::55 5060 -/- hosts", "UDP hosted.test 10.70.5.5 5060 -/- hosts"}, {}},
        // Target "." ends the search: no fallback to addresses.
        {"sip:down.test;transport=udp", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {},
         {"SRV _sip._udp.down.test answer miss"}},
        {"sip:nx.test", Locator::FAMILY_IPV4, Locator::LOCATE_NOT_FOUND, {},
         {"NAPTR nx.test NXDOMAIN miss", "SRV _sips._tcp.nx.test NXDOMAIN miss", "SRV _sip._tcp.nx.test NXDOMAIN miss",
          "SRV _sip._udp.nx.test NXDOMAIN miss", "A nx.test NXDOMAIN miss"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uri);
        ASSERT_TRUE(m_locator.start());
        const Locator::Result result = locate(row.uri, row.family);
        EXPECT_EQ(result.status, row.status) << result.error;
        EXPECT_EQ(corvane_test::targets(result), row.targets);
        EXPECT_EQ(corvane_test::steps(result), row.steps);
        EXPECT_EQ(result.error.empty(), row.status == Locator::LOCATE_OK) << result.error;
        ASSERT_TRUE(m_locator.stop());
        // A fresh cache for the next row.
        m_locator.setCacheBound(0);
        m_locator.setCacheBound(Locator::kDefaultCacheBound);
        EXPECT_TRUE(accountsAtZero());
    }
}

TEST_F(SipLocatorDnsmasq, CachedRecordsAnswerTheSecondRequestWithoutQueries) {
    serveOn("127.53.90.2");
    ASSERT_TRUE(m_locator.start());
    const Locator::Result first = locate("sip:srvonly.test", Locator::FAMILY_IPV4);
    const Locator::Statistics before = m_locator.getStatistics();
    const Locator::Result second = locate("sip:srvonly.test", Locator::FAMILY_IPV4);
    const Locator::Statistics after = m_locator.getStatistics();

    EXPECT_EQ(corvane_test::targets(second), corvane_test::targets(first));
    // The NXDOMAIN answers of dnsmasq carry no SOA: asked again, as RFC 2308 wants.
    EXPECT_EQ(corvane_test::steps(second),
              (std::vector<std::string>{"NAPTR srvonly.test NODATA miss", "SRV _sips._tcp.srvonly.test NXDOMAIN miss",
                                        "SRV _sip._tcp.srvonly.test answer hit", "A a1.example.test answer hit",
                                        "SRV _sip._udp.srvonly.test answer hit", "A a2.example.test answer hit"}));
    EXPECT_EQ(after.queriesSrv - before.queriesSrv, 1u);
    EXPECT_EQ(after.queriesNaptr - before.queriesNaptr, 1u);
    EXPECT_EQ(after.queriesA, before.queriesA);
    EXPECT_EQ(after.cacheHits - before.cacheHits, 4u);
}

}  // namespace
