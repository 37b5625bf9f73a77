// The locator against a real DNS server: dnsmasq serving NAPTR, SRV, A, AAAA
// and CNAME records on a loopback address.
#include <string>
#include <vector>

#include "SipLocator.h"
#include "support/Dnsmasq.h"

using corvane_test::Locator;
using Strings = std::vector<std::string>;
using SipLocatorDnsmasq = corvane_test::SipLocatorTest;

TEST_F(SipLocatorDnsmasq, FindsServersOfARealDnsServerAndAsksOnce) {
    corvane_test::Dnsmasq server("127.53.90.1");
    server.localTtl(60)
        .option("--host-record=a1.example.test,10.70.0.1,fd70::1,300")
        .option("--host-record=a2.example.test,10.70.0.2,300")
        .option("--host-record=plain.test,10.70.2.1,300")
        .cname("alias.test", "plain.test", 300)
        // TCP before UDP; an unsupported service and a non-terminal flag are passed over.
        .option("--naptr-record=naptr.test,20,10,S,SIP+D2U,,_sip._udp.naptr.test")
        .option("--naptr-record=naptr.test,10,10,S,SIP+D2T,,_sip._tcp.naptr.test")
        .option("--naptr-record=naptr.test,5,10,S,SIP+D2X,,_sip._x.naptr.test")
        .option("--naptr-record=naptr.test,5,10,A,SIP+D2U,,a1.example.test")
        .option("--srv-host=_sip._udp.naptr.test,a1.example.test,5060,10,10")
        .option("--srv-host=_sip._tcp.naptr.test,a2.example.test,5062,10,10")
        .option("--srv-host=_sips._tcp.srvonly.test,a2.example.test,5071,10,0");
    std::string error;
    ASSERT_TRUE(server.start(&error)) << error;
    setServers(server.address());
    ASSERT_TRUE(m_locator.start());
    const struct Row {
        const char* uri;
        Strings targets;
        Strings steps;
    } rows[] = {
        {"sip:naptr.test",
         {"TCP a2.example.test 10.70.0.2 5062 10/10 NAPTR", "UDP a1.example.test 10.70.0.1 5060 10/10 NAPTR",
          "UDP a1.example.test fd70::1 5060 10/10 NAPTR"},
         {"NAPTR naptr.test answer miss", "SRV _sip._tcp.naptr.test answer miss", "A a2.example.test answer hit",
          "AAAA a2.example.test NODATA miss", "SRV _sip._udp.naptr.test answer miss", "A a1.example.test answer hit",
          "AAAA a1.example.test answer hit"}},
        // No NAPTR: SRV for TLS alone for a SIPS URI.
        {"sips:srvonly.test", {"TLS a2.example.test 10.70.0.2 5071 10/0 SRV"},
         {"NAPTR srvonly.test NODATA miss", "SRV _sips._tcp.srvonly.test answer miss", "A a2.example.test answer hit",
          "AAAA a2.example.test NODATA miss"}},
        // Neither NAPTR nor SRV: the host at the transport's port, through a CNAME.
        {"sip:alias.test;transport=tcp", {"TCP alias.test 10.70.2.1 5060 -/- A"},
         {"SRV _sip._tcp.alias.test NXDOMAIN miss", "A alias.test answer miss", "AAAA alias.test NODATA miss"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uri);
        const Locator::Result result = locate(row.uri);
        EXPECT_EQ(corvane_test::targets(result), row.targets);
        EXPECT_EQ(corvane_test::steps(result), row.steps);
    }
    // Asked again, the records answer from the cache; dnsmasq's NODATA and
    // NXDOMAIN answers carry no SOA and are asked again.
    const Locator::Statistics before = m_locator.getStatistics();
    EXPECT_EQ(corvane_test::targets(locate("sip:naptr.test")), rows[0].targets);
    EXPECT_EQ(m_locator.getStatistics().queriesNaptr, before.queriesNaptr);
    EXPECT_EQ(m_locator.getStatistics().queriesAaaa - before.queriesAaaa, 1u);
    EXPECT_EQ(m_locator.getStatistics().cacheHits - before.cacheHits, 6u);
}
