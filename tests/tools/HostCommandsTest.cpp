// corvane-net host, route, port and dns-servers, run as a script runs them, and checked
// against the system's own tools and files.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "JsonLines.h"
#include "support/RunTool.h"
#include "support/Subprocess.h"

using corvane_test::Json;
using corvane_test::runSubprocess;
using corvane_test::runTool;
using corvane_test::SubprocessResult;
using corvane_test::ToolRun;

namespace {

// The first line of a text, without its end of line.
std::string firstLine(const std::string& in_text) { return in_text.substr(0, in_text.find('\n')); }

TEST(HostCommand, AgreesWithHostnameAndTheInterfaceList) {
    const SubprocessResult hostname = runSubprocess({"hostname"});
    const SubprocessResult ip = runSubprocess({"ip", "-4", "-o", "addr", "show", "up"});
    if (hostname.exitStatus != 0 || ip.exitStatus != 0) GTEST_SKIP() << "needs hostname and ip (iproute2)";
    std::vector<std::string> addresses;
    for (size_t at = ip.output.find(" inet "); at != std::string::npos; at = ip.output.find(" inet ", at + 1)) {
        const size_t from = at + 6;
        addresses.push_back(ip.output.substr(from, ip.output.find('/', from) - from));
    }

    const ToolRun host = runTool({"--json", "host"});
    ASSERT_EQ(host.lines.size(), 1u) << host.out << host.err;
    const Json item = Json::parse(host.lines[0]);
    EXPECT_EQ(item.items().begin().key(), "hostname") << item;
    EXPECT_EQ(item["hostname"], firstLine(hostname.output)) << item;
    EXPECT_TRUE(item["fqdn"].is_string()) << item;
    EXPECT_EQ(item["addresses"], Json(addresses)) << item;

    std::vector<std::string> noLoopback = addresses;
    for (auto it = noLoopback.begin(); it != noLoopback.end(); ++it) {
        if (*it == "127.0.0.1") {
            noLoopback.erase(it);
            break;
        }
    }
    EXPECT_EQ(item["noLoopback"], Json(noLoopback)) << item;

    Json primary;
    if (addresses.size() == 1) primary = addresses[0];
    if (addresses.size() == 2 && addresses[0] == "127.0.0.1") primary = addresses[1];
    if (addresses.size() == 2 && addresses[1] == "127.0.0.1") primary = addresses[0];
    EXPECT_EQ(item["primary"], primary) << item;
    EXPECT_EQ(host.status, primary.is_null() ? 1 : 0) << host.err;
}

TEST(HostCommand, ConfiguredPrimaryAddressIsShown) {
    const ToolRun host = runTool({"--set", "corvane.net.primaryIPAddress=192.0.2.77", "--json", "host"});
    EXPECT_EQ(Json::parse(firstLine(host.out))["primary"], "192.0.2.77") << host.out;
}

// The bad destination fails in libdnet's parser before any name lookup.
TEST(RouteCommand, LoopbackDestinationAndABadOne) {
    const ToolRun route = runTool({"--json", "route", "127.0.0.1", "10.0.0.1/x"});
    EXPECT_EQ(route.status, 1) << route.err;
    ASSERT_EQ(route.lines.size(), 2u) << route.out;
    Json loopback = Json::parse(route.lines[0]);
    const std::string text = loopback["text"];
    EXPECT_EQ(text.rfind("lo: flags=0x3<UP,LOOPBACK> mtu 65536\n\tinet 127.0.0.1/8\n", 0), 0u) << text;
    loopback["text"] = "";
    EXPECT_EQ(loopback, Json::parse(R"({"destination": "127.0.0.1", "ok": true, "address": "127.0.0.1", "text": ""})"));
    EXPECT_EQ(Json::parse(route.lines[1]),
              Json::parse(R"({"destination": "10.0.0.1/x", "ok": false, "address": null, "text": null})"));
    EXPECT_NE(route.err.find("ERROR corvane.net.Interface - Interface::getForDestination : addr_pton failed on "
                             "10.0.0.1/x"),
              std::string::npos)
        << route.err;
}

// Holds UDP ports until it goes.
class HeldPorts {
public:
    ~HeldPorts() {
        for (int fd : m_fds) ::close(fd);
    }
    bool hold(int in_iPort) {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(in_iPort));
        if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            if (fd >= 0) ::close(fd);
            return false;
        }
        m_fds.push_back(fd);
        return true;
    }

private:
    std::vector<int> m_fds;  // the holding sockets
};

TEST(PortCommand, BindsTheFirstFreePortAndTellsAFailure) {
    // Ports that depend on the process, away from the net tests' blocks.
    const int base = 40000 + static_cast<int>(getpid() % 500) * 8;
    HeldPorts held;
    if (!held.hold(base) || !held.hold(base + 1) || !held.hold(base + 3)) GTEST_SKIP() << "ports in use";

    const ToolRun found =
        runTool({"--json", "port", std::to_string(base), std::to_string(base + 3), std::to_string(base)});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(Json::parse(found.out), (Json{{"ok", true}, {"port", base + 2}}));

    const ToolRun none =
        runTool({"--json", "port", std::to_string(base), std::to_string(base + 1), std::to_string(base)});
    EXPECT_EQ(none.status, 1) << none.err;
    EXPECT_EQ(Json::parse(none.out), (Json{{"ok", false}, {"port", nullptr}}));

    const ToolRun reversed = runTool({"--json", "port", "5010", "5000", "5005"});
    EXPECT_EQ(reversed.status, 1) << reversed.err;
    EXPECT_EQ(Json::parse(reversed.out), (Json{{"ok", false}, {"port", nullptr}}));
    EXPECT_EQ(reversed.err, "ERROR corvane.media.vocal - ASSERTION FAILED: in_iMinPort <= in_iMaxPort\n");
}

TEST(PortCommand, UsageErrors) {
    const std::vector<std::vector<std::string>> rows = {
        {"port"}, {"port", "1", "2"}, {"port", "1", "2", "x"}, {"port", "-1", "2", "1"}, {"port", "1", "70000", "1"},
    };
    for (const auto& args : rows) {
        const ToolRun result = runTool(args);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

// The IPv4 servers of the system's resolver configuration, primary first, at
// most ten; false when it cannot be read. Reading the file sends no query.
bool resolverConfigServers(std::vector<std::string>& out_servers) {
    std::ifstream file("/etc/resolv.conf");
    if (!file) return false;
    std::string line;
    while (std::getline(file, line) && out_servers.size() < 10) {
        std::istringstream words(line);
        std::string keyword;
        std::string address;
        in_addr parsed{};
        if (words >> keyword >> address && keyword == "nameserver" && line.rfind("nameserver", 0) == 0 &&
            inet_aton(address.c_str(), &parsed) != 0) {
            out_servers.push_back(inet_ntoa(parsed));
        }
    }
    return true;
}

TEST(DnsServersCommand, AgreesWithTheResolverConfiguration) {
    std::vector<std::string> servers;
    const bool bReadable = resolverConfigServers(servers);
    const ToolRun run = runTool({"--json", "dns-servers"});
    EXPECT_EQ(run.status, bReadable ? 0 : 1) << run.err;
    ASSERT_EQ(run.lines.size(), 1u) << run.out;
    EXPECT_EQ(Json::parse(run.lines[0]), (Json{{"ok", bReadable}, {"servers", bReadable ? Json(servers) : Json()}}));

    const ToolRun people = runTool({"dns-servers"});
    EXPECT_EQ(people.status, run.status);
    EXPECT_NE(people.out.find("servers"), std::string::npos) << people.out;
}

TEST(DnsServersCommand, TakesNoArguments) {
    const ToolRun run = runTool({"dns-servers", "eth0"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("corvane-net dns-servers: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("eth0"), std::string::npos) << run.err;
}

}  // namespace
