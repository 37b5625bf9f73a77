#include <gtest/gtest.h>

#include "JsonLines.h"
#include "support/Dnsmasq.h"
#include "support/RunTool.h"

using corvane_test::Json;
using corvane_test::runTool;

namespace {
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
}  // namespace

TEST(ResolveCommand, ResolvesLiteralsAndLocalhostAsJsonLines) {
    const auto run = runTool({"--json", "resolve", "127.0.0.1", "10.0.0.1:5060", "localhost"});
    EXPECT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(run.lines.size(), 3u) << run.out;
    const char* expected[][2] = {{"127.0.0.1", "127.0.0.1"}, {"10.0.0.1:5060", "10.0.0.1"}, {"localhost", "127.0.0.1"}};
    for (size_t i = 0; i < 3; ++i) {
        Json item = Json::parse(run.lines[i]);
        EXPECT_TRUE(item["hostent"].is_string()) << item;
        EXPECT_TRUE(item["elapsedMs"].is_number()) << item;
        item["hostent"] = item["elapsedMs"] = nullptr;
        EXPECT_EQ(item, (Json{{"name", expected[i][0]}, {"ok", true}, {"status", "GHBN_SUCCESS"},
                              {"addresses", Json::array({expected[i][1]})}, {"primary", expected[i][1]}, {"hostent", nullptr},
                              {"elapsedMs", nullptr}}));
    }
}

TEST(ResolveCommand, FailureExitsOneAndSaysWhichItemFailed) {
    // Names are asked of a DNS server of the test's own, never of the host's.
    corvane_test::Dnsmasq dns("127.53.30.1");
    dns.hostRecord("known.test", {"10.30.0.1"});
    std::string error;
    ASSERT_TRUE(dns.start(&error)) << error;
    const auto run = runTool({"--json", "--set", "corvane.net.HostNameServer.DNSServerIPAddrList=127.53.30.1",
                              "resolve", "known.test", "unknown.test"});
    EXPECT_EQ(run.status, 1) << run.err;
    const std::vector<Json> items = corvane_test::jsonLines(run.lines);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]["name"], "known.test");
    EXPECT_EQ(items[0]["ok"], true);
    EXPECT_EQ(items[0]["addresses"], Json::array({"10.30.0.1"}));
    EXPECT_EQ(items[1]["name"], "unknown.test");
    EXPECT_EQ(items[1]["ok"], false);
    EXPECT_EQ(items[1]["primary"], nullptr);
}

TEST(ResolveCommand, SecondResolutionIsACacheHit) {
    const auto run = runTool({"--json", "--log", "DEBUG", "--set", "corvane.net.HostNameServer.cacheSuccess=true",
                              "resolve", "localhost", "localhost"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.lines.size(), 2u);
    EXPECT_TRUE(has(run.err, "DEBUG corvane.net.HostNameServer - HostNameServer::getHostentInCache : cache hit\n")) << run.err;
}

TEST(ResolveCommand, AsyncZeroTimeOutReportsOneNotificationAndNothingLeftAtExit) {
    const auto run = runTool({"--json", "--stats", "resolve", "--async", "--timeout", "0", "localhost"});
    ASSERT_EQ(run.lines.size(), 1u) << run.out;
    const Json status = Json::parse(run.lines[0])["status"];
    EXPECT_TRUE(status == "CALLBACK_TIMEOUT" || status == "GHBN_SUCCESS") << run.lines[0];
    const size_t stats = run.err.find("stats {");
    ASSERT_NE(stats, std::string::npos) << run.err;
    const Json accounts = Json::parse(run.err.substr(stats + 6, run.err.find('\n', stats) - stats - 6));
    EXPECT_EQ(accounts["AsynchGHBNCallbackContainer"], 0) << accounts;
    EXPECT_EQ(accounts["AsynchGHBNTimeoutProcessor"], 0) << accounts;
    for (const auto& account : accounts.items()) EXPECT_EQ(account.value(), 0) << account.key();
}

TEST(ResolveCommand, AsyncInDnsModeFailsAtOnceWithTheAssertion) {
    const auto run = runTool({"--json", "--set", "corvane.net.HostNameServer.DNSServerIPAddrList=127.53.30.2",
                              "resolve", "--async", "--timeout", "-1", "a.test"});
    EXPECT_EQ(run.status, 1) << run.err;
    ASSERT_EQ(run.lines.size(), 1u) << run.out;
    const Json item = Json::parse(run.lines[0]);
    EXPECT_EQ(item["name"], "a.test");
    EXPECT_EQ(item["ok"], false);
    EXPECT_EQ(item["status"], "GHBN_OTHER_ERROR");
    EXPECT_TRUE(has(run.err, "ERROR corvane.net.HostNameServer - ASSERTION FAILED: Not implemented : asynchronous DNS "
                             "resolution using a callback\n"))
        << run.err;
}

TEST(CommandLine, EveryAccountIsAtZeroAtExitAlsoOnFailedPaths) {
    const std::vector<std::string> runs[] = {
        {"resolve", "--async", "--timeout", "0", "localhost"},
        {"--set", "corvane.net.HostNameServer.numThread=0", "resolve", "localhost"},
        {"--set", "corvane.net.HostNameServer.DNSServerIPAddrList=127.53.30.2", "resolve", "--async", "a.test"},
        {"--set", "corvane.net.HostNameServer.DNSServerIPAddrList=127.53.30.2", "resolve", "--timeout", "1", "b.test"},
        {"--set", "corvane.net.HostNameServer.numThread=0", "canonicalize", "sip:a@localhost"},
    };
    for (std::vector<std::string> args : runs) {
        args.insert(args.begin(), "--stats");
        const auto run = runTool(args);
        const size_t stats = run.err.find("stats {");
        ASSERT_NE(stats, std::string::npos) << run.err;
        const Json accounts = Json::parse(run.err.substr(stats + 6, run.err.find('\n', stats) - stats - 6));
        for (const auto& account : accounts.items()) EXPECT_EQ(account.value(), 0) << account.key();
    }
}

TEST(ResolveCommand, ReadsNamesFromStandardInput) {
    const auto run = runTool({"--json", "resolve", "-"}, "10.0.0.3\n10.0.0.4\n");
    EXPECT_EQ(run.status, 0);
    ASSERT_EQ(run.lines.size(), 2u);
    EXPECT_EQ(Json::parse(run.lines[1])["name"], "10.0.0.4");
}

TEST(ResolveCommand, FailedInitializationIsReportedWithTheLibraryMessage) {
    const auto run = runTool({"resolve", "localhost"}, "");
    EXPECT_EQ(run.status, 0);
    const auto bad = runTool({"--set", "corvane.net.HostNameServer.numThread=0", "resolve", "localhost"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(has(bad.err, "ERROR corvane.net.HostNameServer - corvane.net.HostNameServer.numThread must be >= 1")) << bad.err;
    EXPECT_TRUE(has(bad.err, "could not be initialized")) << bad.err;
}

TEST(CommandLine, UsageErrorsExitTwo) {
    const struct {
        std::vector<std::string> args;
        const char* mentions;
    } cases[] = {
        {{"--set", "corvane.nope=1", "params"}, "corvane.nope"},
        {{"--set", "corvane.net.HostNameServer.numThread=many", "params"}, "corvane.net.HostNameServer.numThread"},
        {{"--set", "corvane.net.HostNameServer.cacheSuccess=yes", "params"}, "corvane.net.HostNameServer.cacheSuccess"},
        {{"--log", "LOUD", "params"}, "LOUD"},
        {{"frobnicate"}, "frobnicate"},
        {{"resolve", "--timeout", "soon", "x"}, "--timeout"},
        {{"resolve"}, "NAME"},
        {{"resolve", "--sleep-ms", "-1", "x"}, "--sleep-ms"},
        {{"resolve", "--json", "x"}, "--json"},
        {{"canonicalize", "--timeout", "-1", "sip:a@h"}, "--direct"},
        {{"port", "1", "70000", "1"}, "MAX"},
        {{"params", "extra"}, "params"},
        {{"--log-config", "/nonexistent/log.properties", "params"}, "--log-config"},
        {{}, "Usage: corvane-net [OPTIONS] COMMAND"},
    };
    for (const auto& c : cases) {
        const auto run = runTool(c.args);
        EXPECT_EQ(run.status, 2) << c.mentions;
        EXPECT_TRUE(has(run.err, c.mentions)) << run.err;
    }
}

TEST(ParamsCommand, ListsTheSixParametersInRegistrationOrder) {
    const auto run = runTool({"--json", "params"});
    EXPECT_EQ(run.status, 0);
    ASSERT_EQ(run.lines.size(), 6u);
    const char* names[] = {"corvane.net.HostNameServer.cacheFlushTimeoutMs", "corvane.net.HostNameServer.cacheFailures",
                           "corvane.net.HostNameServer.cacheSuccess",        "corvane.net.HostNameServer.numThread",
                           "corvane.net.HostNameServer.DNSServerIPAddrList", "corvane.net.primaryIPAddress"};
    const char* types[] = {"integer", "boolean", "boolean", "integer", "text", "text"};
    for (size_t i = 0; i < 6; ++i) {
        const Json item = Json::parse(run.lines[i]);
        EXPECT_EQ(item.begin().key(), "name") << item;
        EXPECT_EQ(item["name"], names[i]);
        EXPECT_EQ(item["type"], types[i]);
        EXPECT_EQ(item["default"], i == 3 ? Json("3") : Json()) << item;
    }
    EXPECT_TRUE(has(Json::parse(run.lines[4])["description"].get<std::string>(), "This parameter can also be set to use-host-dns-list to "
                                                              "make the application discover the DNS servers of this host."));
}

// --help of the command and of each command comes from the options it parses.
TEST(CommandLine, HelpAndVersion) {
    const struct {
        std::vector<std::string> args;
        std::vector<std::string> mentions;  // texts on standard output
    } cases[] = {
        {{"--help"},
         {"Usage: corvane-net [OPTIONS] COMMAND", "--set NAME=VALUE", "--log LEVEL", "--log-config FILE", "--json",
          "--stats", "--version", "url-compare", "canonicalize", "resolve", "route", "port", "dns-servers", "params"}},
        {{"resolve", "--help"},
         {"Usage: corvane-net resolve [OPTIONS] NAME...", "--timeout MS", "--no-cache", "--async", "--sleep-ms N"}},
        {{"canonicalize", "-h"}, {"--timeout MS", "--direct", "URI"}},
        {{"port", "--help"}, {"MIN", "MAX", "START"}},
    };
    for (const auto& c : cases) {
        const auto run = runTool(c.args);
        EXPECT_EQ(run.status, 0) << c.args[0];
        for (const std::string& text : c.mentions) EXPECT_TRUE(has(run.out, text)) << text << " in:\n" << run.out;
    }
    const auto version = runTool({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "corvane-net " CORVANE_VERSION "\n");
}

TEST(CommandLine, LogLinesReadLevelLoggerMessage) {
    const auto run = runTool({"--log", "DEBUG", "resolve", "127.0.0.1"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(has(run.err, "DEBUG corvane.net - Succesfully initialized Net library\n")) << run.err;
    EXPECT_TRUE(has(run.err, "DEBUG corvane.net - Closing the Net library\n")) << run.err;
    const auto quiet = runTool({"--log", "OFF", "--set", "corvane.net.HostNameServer.numThread=0", "resolve", "x"});
    EXPECT_FALSE(has(quiet.err, "ERROR corvane")) << quiet.err;
}
