// corvane-net against what the system says (host names, interfaces, ports,
// the resolver configuration) and against a DNS server of the test's own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/Dnsmasq.h"
#include "support/RunTool.h"
#include "support/Subprocess.h"

using corvane_test::runTool;
using Json = nlohmann::ordered_json;

namespace {

TEST(HostCommand, AgreesWithHostnameAndTheInterfaceList) {
    const corvane_test::SubprocessResult hostname = corvane_test::runSubprocess({"hostname"});
    const corvane_test::SubprocessResult ip = corvane_test::runSubprocess({"ip", "-4", "-o", "addr", "show", "up"});
    if (hostname.exitStatus != 0 || ip.exitStatus != 0) GTEST_SKIP() << "needs hostname and ip (iproute2)";
    std::vector<std::string> addresses, noLoopback;
    for (size_t at = ip.output.find(" inet "); at != std::string::npos; at = ip.output.find(" inet ", at + 1)) {
        addresses.push_back(ip.output.substr(at + 6, ip.output.find('/', at + 6) - at - 6));
        if (addresses.back() != "127.0.0.1") noLoopback.push_back(addresses.back());
    }
    Json primary;  // the one address, or the one beside 127.0.0.1
    if (addresses.size() == 1) primary = addresses[0];
    if (addresses.size() == 2 && noLoopback.size() == 1) primary = noLoopback[0];
    const corvane_test::ToolRun host = runTool({"--json", "host"});
    const Json item = Json::parse(host.out);
    EXPECT_EQ(item.items().begin().key(), "hostname");
    EXPECT_EQ(item["hostname"], hostname.output.substr(0, hostname.output.find('\n')));
    EXPECT_TRUE(item["fqdn"].is_string()) << item;
    EXPECT_EQ(item["addresses"], Json(addresses)) << item;
    EXPECT_EQ(item["noLoopback"], Json(noLoopback)) << item;
    EXPECT_EQ(item["primary"], primary) << item;
    EXPECT_EQ(host.status, primary.is_null() ? 1 : 0) << host.err;
}

TEST(PortCommand, BindsTheFirstFreePortFromStartAroundTheRange) {
    // Ports that depend on the process, away from the net tests' blocks; held while the command runs.
    const int base = 40000 + static_cast<int>(getpid() % 500) * 8;
    std::vector<int> held;
    for (int port : {base, base + 1, base + 3}) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        held.push_back(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (::bind(held.back(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            for (int fd : held) ::close(fd);
            GTEST_SKIP() << "port " << port << " in use";
        }
    }
    const auto range = [&](int in_max) { return std::vector<std::string>{"--json", "port", std::to_string(base),
                                                                         std::to_string(base + in_max), std::to_string(base)}; };
    const corvane_test::ToolRun found = runTool(range(3));
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out, "{\"ok\": true, \"port\": " + std::to_string(base + 2) + "}\n");
    const corvane_test::ToolRun none = runTool(range(1));
    EXPECT_EQ(none.status, 1) << none.err;
    EXPECT_EQ(none.out, "{\"ok\": false, \"port\": null}\n");
    for (int fd : held) ::close(fd);
}

TEST(DnsServersCommand, AgreesWithTheResolverConfiguration) {
    // The IPv4 servers of the file, primary first, at most ten; reading it sends no query.
    std::ifstream file("/etc/resolv.conf");
    std::vector<std::string> servers;
    std::string line, keyword, address;
    in_addr parsed{};
    while (file && std::getline(file, line) && servers.size() < 10) {
        std::istringstream words(line);
        if (line.rfind("nameserver", 0) == 0 && words >> keyword >> address && keyword == "nameserver" &&
            inet_aton(address.c_str(), &parsed) != 0) {
            servers.push_back(inet_ntoa(parsed));
        }
    }
    const corvane_test::ToolRun run = runTool({"--json", "dns-servers"});
    EXPECT_EQ(run.status, file.is_open() ? 0 : 1) << run.err;
    EXPECT_EQ(Json::parse(run.out), (Json{{"ok", file.is_open()}, {"servers", file.is_open() ? Json(servers) : Json()}}));
    EXPECT_NE(runTool({"dns-servers"}).out.find("servers"), std::string::npos);
}

TEST(LocateAndResolveCommands, AskADnsServerOfTheirOwn) {
    corvane_test::Dnsmasq dns("127.53.96.1");
    dns.localTtl(60)
        .option("--naptr-record=loc.test,10,10,S,SIP+D2U,,_sip._udp.loc.test")
        .option("--srv-host=_sip._udp.loc.test,h.loc.test,5060,10,20")
        .option("--host-record=h.loc.test,10.76.0.1,300");
    std::string error;
    ASSERT_TRUE(dns.start(&error)) << error;
    const std::string servers = "corvane.net.HostNameServer.DNSServerIPAddrList=" + dns.address();
    const corvane_test::ToolRun locate = runTool(
        {"--json", "--stats", "--set", servers, "locate", "--family", "ipv4", "--seed", "1", "sip:loc.test", "-"},
        "sips:10.0.0.1\nsip:nx.test\n");
    EXPECT_EQ(locate.status, 1) << locate.err;
    const std::string expected[] = {
        R"({"uri": "sip:loc.test", "ok": true, "targets": [{"transport": "UDP", "host": "h.loc.test", )"
        R"("address": "10.76.0.1", "port": 5060, "priority": 10, "weight": 20, "ttl": 60, "via": "NAPTR"}], )"
        R"("steps": [{"name": "loc.test", "type": "NAPTR", "outcome": "answer", "records": 1, "ttl": 60, "cache": "miss"}, )"
        R"({"name": "_sip._udp.loc.test", "type": "SRV", "outcome": "answer", "records": 1, "ttl": 60, "cache": "miss"}, )"
        R"({"name": "h.loc.test", "type": "A", "outcome": "answer", "records": 1, "ttl": 300, "cache": "hit"}], )"
        R"("elapsedMs": )",
        R"({"uri": "sips:10.0.0.1", "ok": true, "targets": [{"transport": "TLS", "host": "10.0.0.1", )"
        R"("address": "10.0.0.1", "port": 5061, "priority": null, "weight": null, "ttl": 0, "via": "numeric"}], )"
        R"("steps": [], "elapsedMs": )",
        R"({"uri": "sip:nx.test", "ok": false, "targets": [], )",
        R"("error": "no record leads to an address of nx.test")",
        "\"SipServerLocator::Resolution\": 0",
        "\nlocator-stats {\"queriesNAPTR\": 2, \"queriesSRV\": 4, \"queriesA\": 1, \"queriesAAAA\": 0, \"answers\": 7, "
        "\"timeouts\": 0, \"errors\": 0",
    };
    size_t at = 0;
    for (const std::string& text : expected) {
        at = (locate.out + locate.err).find(text, at);
        ASSERT_NE(at, std::string::npos) << text << " in:\n" << locate.out << locate.err;
    }
    const corvane_test::ToolRun resolve = runTool({"--json", "--set", servers, "resolve", "h.loc.test", "unknown.test"});
    EXPECT_EQ(resolve.status, 1) << resolve.err;
    EXPECT_NE(resolve.out.find(R"({"name": "h.loc.test", "ok": true, "status": "GHBN_SUCCESS", "addresses": ["10.76.0.1"])"),
              std::string::npos) << resolve.out;
    EXPECT_NE(resolve.out.find(R"({"name": "unknown.test", "ok": false, )"), std::string::npos) << resolve.out;
    EXPECT_NE(resolve.out.find(R"("primary": null)"), std::string::npos) << resolve.out;
}

}  // namespace
