#include <gtest/gtest.h>

#include "support/Dnsmasq.h"
#include "support/RunTool.h"

using corvane_test::runTool;

namespace {

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Names are asked of a dnsmasq on an address of the test's own, never of the
// host's servers; returns the --set argument that names it.
std::string serveOn(corvane_test::Dnsmasq& io_dns) {
    io_dns.localTtl(60)
        .option("--naptr-record=loc.test,10,10,S,SIP+D2U,,_sip._udp.loc.test")
        .option("--srv-host=_sip._udp.loc.test,h.loc.test,5060,10,20")
        .option("--host-record=h.loc.test,10.76.0.1,300");
    std::string error;
    EXPECT_TRUE(io_dns.start(&error)) << error;
    return "corvane.net.HostNameServer.DNSServerIPAddrList=" + io_dns.address();
}

TEST(LocateCommand, TargetsAndStepsAsJsonLines) {
    corvane_test::Dnsmasq dns("127.53.96.1");
    const auto run = runTool({"--json", "--set", serveOn(dns), "locate", "--family", "ipv4", "--seed", "1", "sip:loc.test"});
    EXPECT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(run.lines.size(), 1u) << run.out;
    const std::string& line = run.lines[0];
    EXPECT_TRUE(has(line, "{\"uri\": \"sip:loc.test\", \"ok\": true, \"targets\": [{\"transport\": \"UDP\", "
                          "\"host\": \"h.loc.test\", \"address\": \"10.76.0.1\", \"port\": 5060, \"priority\": 10, "
                          "\"weight\": 20, \"ttl\": 60, \"via\": \"NAPTR\"}], \"steps\": [{\"name\": \"loc.test\", "
                          "\"type\": \"NAPTR\", \"outcome\": \"answer\", \"records\": 1, \"ttl\": 60, \"cache\": \"miss\"}, "
                          "{\"name\": \"_sip._udp.loc.test\", \"type\": \"SRV\", \"outcome\": \"answer\", \"records\": 1, "
                          "\"ttl\": 60, \"cache\": \"miss\"}, {\"name\": \"h.loc.test\", \"type\": \"A\", \"outcome\": "
                          "\"answer\", \"records\": 1, \"ttl\": 300, \"cache\": \"hit\"}], \"elapsedMs\": "))
        << line;
}

TEST(LocateCommand, StandardInputFailuresAndTheLocatorStatistics) {
    corvane_test::Dnsmasq dns("127.53.96.2");
    const auto run = runTool({"--json", "--stats", "--set", serveOn(dns), "locate", "--family", "ipv4", "-"},
                             "sips:10.0.0.1\nsip:nx.test\n");
    EXPECT_EQ(run.status, 1) << run.err;
    ASSERT_EQ(run.lines.size(), 2u) << run.out;
    EXPECT_TRUE(has(run.lines[0], "\"targets\": [{\"transport\": \"TLS\", \"host\": \"10.0.0.1\", \"address\": "
                                  "\"10.0.0.1\", \"port\": 5061, \"priority\": null, \"weight\": null, \"ttl\": 0, "
                                  "\"via\": \"numeric\"}], \"steps\": []"))
        << run.lines[0];
    EXPECT_TRUE(has(run.lines[1], "\"uri\": \"sip:nx.test\", \"ok\": false, \"targets\": []")) << run.lines[1];
    EXPECT_TRUE(has(run.lines[1], "\"error\": \"no record leads to an address of nx.test\"")) << run.lines[1];
    EXPECT_TRUE(has(run.err, "\"SipServerLocator::Resolution\": 0")) << run.err;
    EXPECT_TRUE(has(run.err, "\nlocator-stats {\"queriesNAPTR\": 1, \"queriesSRV\": 3, \"queriesA\": 1, "
                             "\"queriesAAAA\": 0, \"answers\": 5, \"timeouts\": 0, \"errors\": 0"))
        << run.err;
}

TEST(LocateCommand, UsageErrors) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{"locate"},
                                                 std::vector<std::string>{"locate", "--family", "ipv5", "sip:a.test"},
                                                 std::vector<std::string>{"locate", "--timeout", "soon", "sip:a.test"}}) {
        const auto run = runTool(args);
        EXPECT_EQ(run.status, 2) << run.err;
        EXPECT_TRUE(has(run.err, "corvane-net locate: ")) << run.err;
        EXPECT_TRUE(has(run.err, "Try 'corvane-net locate --help'.")) << run.err;
    }
}

}  // namespace
