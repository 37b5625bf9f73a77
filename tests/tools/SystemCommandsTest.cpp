// corvane-net against what the system says: host names, interfaces, the resolver configuration.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

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

TEST(DnsServersCommand, AgreesWithTheResolverConfiguration) {
    // The IPv4 servers of the file, primary first, at most ten; reading it sends no query.
    std::ifstream file("/etc/resolv.conf");
    std::vector<std::string> servers;
    in_addr parsed{};
    for (std::string line, keyword, address; std::getline(file, line) && servers.size() < 10;) {
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

}  // namespace
