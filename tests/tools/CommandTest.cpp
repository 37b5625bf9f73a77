// corvane-net run as a script runs it: a table of runs (arguments, exit status, texts on standard output and error).
#include <gtest/gtest.h>
#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/Dnsmasq.h"
#include "support/Subprocess.h"

using corvane_test::runTool;
using Json = nlohmann::ordered_json;

namespace {

const std::string kServer = "corvane.net.HostNameServer.";  // the prefix of its parameters
const std::string kHostRecord = "DEBUG corvane.net.HostNameServer - HostNameServer::getHostByName : "
                                "HostNameServer::getHostByName hostname=127.0.0.1 timeout=2000ms\n";
const std::string kEnter = "TRACE corvane.net.HostNameServer - ENTER HostNameServer::getHostByName\n";

struct Row {
    std::vector<std::string> args;
    int status;
    std::vector<std::string> out;  // texts on standard output, in this order; "!text": text is absent
    std::vector<std::string> err;  // the same for standard error
    std::string in = "";           // standard input
};

// Finds the texts in order; a text after "!" must not appear at all.
void expectTexts(const std::string& in_output, const std::vector<std::string>& in_texts) {
    size_t at = 0;
    for (const std::string& text : in_texts) {
        if (text[0] == '!') {
            EXPECT_EQ(in_output.find(text.substr(1)), std::string::npos) << text << " in:\n" << in_output;
        } else if ((at = in_output.find(text, at)) == std::string::npos) {
            ADD_FAILURE() << "missing (or out of order): " << text << "\nin:\n" << in_output;
            return;
        }
    }
}

TEST(Command, EveryCommandAsTheContractSays) {
    corvane_test::Dnsmasq dns("127.53.96.1");
    dns.localTtl(60)
        .option("--naptr-record=loc.test,10,10,S,SIP+D2U,,_sip._udp.loc.test")
        .option("--srv-host=_sip._udp.loc.test,h.loc.test,5060,10,20")
        .option("--host-record=h.loc.test,10.76.0.1,300");
    std::string error;
    ASSERT_TRUE(dns.start(&error)) << error;
    const std::string servers = kServer + "DNSServerIPAddrList=" + dns.address();  // asked instead of the host's servers
    // A log4cplus file with an appender and layout of its own; --log, also given, wins.
    const std::string config = testing::TempDir() + "corvane-log-" + std::to_string(getpid()) + ".properties";
    std::ofstream(config) << "log4cplus.rootLogger=DEBUG, E\nlog4cplus.logger.corvane.net.HostNameServer=TRACE\n"
                             "log4cplus.appender.E=log4cplus::ConsoleAppender\nlog4cplus.appender.E.logToStdErr=true\n"
                             "log4cplus.appender.E.layout=log4cplus::PatternLayout\n"
                             "log4cplus.appender.E.layout.ConversionPattern=cfg %p %c - %m%n\n";
    const Row rows[] = {
        {{"--json", "url", "sip:+1-555@hostA:5060;user=phone;isub=12;lr", "TEL:5551234"}, 0,
         {R"({"input": "sip:+1-555@hostA:5060;user=phone;isub=12;lr", "type": "SIP_URL", )"
          R"("encode": "sip:+1-555@hostA:5060;user=phone;lr;isub=12", "encodeAddress": "sip:+1-555@hostA:5060", )"
          R"("userValue": "+1-555", "looseRouting": true, "scheme": "sip", "passwd": "", "host": "hostA", "port": "5060", )"
          R"("transport": "", "ttl": "", "maddr": "", "userParam": "phone", "method": "", "otherName": "", )"
          R"("otherValue": "", "headers": "", "ipv6Host": false, "user": {"userType": 1, "encode": "+1-555", )"
          R"("global": true, "number": "1-555", "isub": "12", "postd": "", "phoneContext": "", "tsp": "", )"
          R"("otherName": "", "otherValue": "", "paramString": ";isub=12", "globalForm": "+1-555;isub=12", )"
          R"("localForm": "1-555;isdn=12"}})" "\n",
          R"({"input": "TEL:5551234", "type": "TEL_URL", )", R"("scheme": "TEL", "user": {"userType": 1, )"}, {}},
        // Standard input; an exception fails the item, and the decoder's record shows at the default level.
        {{"--json", "url", "-"}, 1,
         {R"({"input": "im:a@b", "type": "IM_URL", "encode": "im:a@b", "encodeAddress": "im:a@b", "userValue": "a", )"
          R"("looseRouting": false, "scheme": "im", "user": "a", "host": "b"})" "\n",
          R"({"input": "tel:", "exception": {"name": "TelUrlParserException", "message": "failed in Decode", )"
          R"("file": "TelUrl.cpp", "code": 0}})" "\n",
          R"({"input": "foo:bar", "type": "UNKNOWN_URL", "encode": "foo:bar", "encodeAddress": "foo:bar", )"
          R"("userValue": "", "looseRouting": false})" "\n",
          R"({"input": "sip:h", "type": "SIP_URL", "encode": "sip:h", )", R"("ipv6Host": false, "user": null})" "\n"},
         {"ERROR corvane.media.vocal - Failed in Decode (TEL_URL)\n"}, "im:a@b\ntel:\nfoo:bar\nsip:h\n"},
        // UTF-8 as its characters, any other byte as U+FFFD, control characters escaped.
        {{"--json", "url", "sip:jos\xC3\xA9@example.com", "sip:a\xFF\xFF@h", "sip:a\x01@h"}, 0,
         {"{\"input\": \"sip:jos\xC3\xA9@example.com\",", "{\"input\": \"sip:a\xEF\xBF\xBD\xEF\xBF\xBD@h\",",
          "{\"input\": \"sip:a\\u0001@h\","}, {}},
        {{"--json", "url-compare", "sip:a@hostA", "SIP:a@HOSTA:5060", "tel:1", "tel:2"}, 0,
         {R"({"a": "sip:a@hostA", "b": "SIP:a@HOSTA:5060", "equal": true, "aLessThanB": true, "bLessThanA": false})",
          R"({"a": "tel:1", "b": "tel:2", "equal": false, "aLessThanB": true, "bLessThanA": false})"}, {}},
        {{"--json", "uri", "sip:alice@10.0.0.1:5060", "x"}, 1,
         {R"({"input": "x", "ok": false, "scheme": "", "user": "", "host": "", "port": "", "text": ":"})"}, {}},
        // A reused Uri keeps its user when the next URL has none.
        {{"--json", "uri", "--reuse", "-"}, 0,
         {R"({"input": "sip:10.0.0.2", "ok": true, "scheme": "sip", "user": "alice", )"}, {},
         "sip:alice@10.0.0.1:5060\nsip:10.0.0.2\n"},
        {{"--json", "canonicalize", "--timeout", "1500", "sip:carol@localhost:5070", "tel:+1555"}, 1,
         {R"({"input": "sip:carol@localhost:5070", "ok": true, "output": "sip:carol@127.0.0.1:5070"})",
          R"({"input": "tel:+1555", "ok": false, "output": "tel:+1555"})"},
         {"ERROR corvane.net.Uri - ASSERTION FAILED: Not implemented : tel urls"}},
        {{"--json", "resolve", "127.0.0.1", "10.0.0.1:5060", "localhost"}, 0,
         {R"({"name": "127.0.0.1", "ok": true, "status": "GHBN_SUCCESS", "addresses": ["127.0.0.1"], )"
          R"("primary": "127.0.0.1", "hostent": ")", R"(", "elapsedMs": )", "!\"elapsedMs\": \"",
          R"({"name": "localhost", "ok": true, "status": "GHBN_SUCCESS", "addresses": ["127.0.0.1"], )"}, {}},
        {{"--json", "--set", servers, "resolve", "h.loc.test", "unknown.test"}, 1,
         {R"({"name": "h.loc.test", "ok": true, "status": "GHBN_SUCCESS", "addresses": ["10.76.0.1"])",
          R"({"name": "unknown.test", "ok": false, )", R"("primary": null)"}, {}},
        {{"--json", "--stats", "--set", servers, "locate", "--family", "ipv4", "--seed", "1", "sip:loc.test", "-"}, 1,
         {R"({"uri": "sip:loc.test", "ok": true, "targets": [{"transport": "UDP", "host": "h.loc.test", )"
          R"("address": "10.76.0.1", "port": 5060, "priority": 10, "weight": 20, "ttl": 60, "via": "NAPTR"}], )"
          R"("steps": [{"name": "loc.test", "type": "NAPTR", "outcome": "answer", "records": 1, "ttl": 60, "cache": "miss"}, )",
          R"({"name": "h.loc.test", "type": "A", "outcome": "answer", "records": 1, "ttl": 300, "cache": "hit"}], )"
          R"("elapsedMs": )",
          R"({"uri": "sips:10.0.0.1", "ok": true, "targets": [{"transport": "TLS", "host": "10.0.0.1", )"
          R"("address": "10.0.0.1", "port": 5061, "priority": null, "weight": null, "ttl": 0, "via": "numeric"}], )"
          R"("steps": [], "elapsedMs": )",
          R"({"uri": "sip:nx.test", "ok": false, "targets": [], )",
          R"("error": "no record leads to an address of nx.test")"},
         {"\"SipServerLocator::Resolution\": 0", "\nlocator-stats {\"queriesNAPTR\": 2, \"queriesSRV\": 4, \"queriesA\": 1, "
          "\"queriesAAAA\": 0, \"answers\": 7, \"timeouts\": 0, \"errors\": 0"}, "sips:10.0.0.1\nsip:nx.test\n"},
        // Every memory account is at zero at exit, also on failed paths.
        {{"--stats", "--set", kServer + "numThread=0", "resolve", "localhost"}, 1, {},
         {"ERROR corvane.net.HostNameServer - ", "could not be initialized", "stats {"}},
        // Records read "LEVEL logger - message", at the chosen level and above.
        {{"--log", "DEBUG", "resolve", "127.0.0.1"}, 0, {"!DEBUG "},
         {"DEBUG corvane.net - Succesfully initialized Net library\n", kHostRecord,
          "DEBUG corvane.net - Closing the Net library\n", "!TRACE "}},
        {{"resolve", "127.0.0.1"}, 0, {}, {"!DEBUG "}},
        {{"--log", "OFF", "--set", kServer + "numThread=0", "resolve", "x"}, 1, {}, {"!ERROR corvane"}},
        {{"--log", "TRACE", "resolve", "127.0.0.1"}, 0, {},
         {kEnter, kHostRecord, "TRACE corvane.net.HostNameServer - EXIT HostNameServer::getHostByName\n"}},
        {{"--log-config", config, "resolve", "127.0.0.1"}, 0, {},
         {"cfg DEBUG corvane.net - Succesfully initialized Net library\n", "cfg " + kEnter, "!\nDEBUG "}},
        {{"--log", "DEBUG", "--log-config", config, "resolve", "127.0.0.1"}, 0, {}, {"cfg DEBUG corvane.net - ", "!TRACE"}},
        {{"--json", "route", "127.0.0.1", "10.0.0.1/x"}, 1,
         {R"({"destination": "127.0.0.1", "ok": true, "address": "127.0.0.1", )"
          R"("text": "lo: flags=0x3<UP,LOOPBACK> mtu 65536\n\tinet 127.0.0.1/8\n)",
          R"({"destination": "10.0.0.1/x", "ok": false, "address": null, "text": null})"},
         {"ERROR corvane.net.Interface - Interface::getForDestination : addr_pton failed on 10.0.0.1/x"}},
        {{"--json", "port", "40000", "40999", "40500"}, 0, {R"({"ok": true, "port": 40)"}, {}},
        {{"--json", "port", "5010", "5000", "5005"}, 1, {R"({"ok": false, "port": null})"},
         {"ERROR corvane.media.vocal - ASSERTION FAILED: in_iMinPort <= in_iMaxPort\n"}},
        {{"--json", "--set", "corvane.net.primaryIPAddress=192.0.2.77", "host"}, -1,
         {R"({"hostname": ")", R"(", "fqdn": )", R"(, "addresses": [)", R"(, "noLoopback": [)",
          R"(, "primary": "192.0.2.77"})"}, {}},
        {{"--json", "dns-servers"}, -1, {R"({"ok": )", R"(, "servers": )"}, {}}, {{"dns-servers"}, -1, {"servers"}, {}},
        {{"--json", "params"}, 0,
         {R"({"name": "corvane.net.HostNameServer.cacheFailures", "type": "boolean", "default": null, )",
          R"({"name": "corvane.net.HostNameServer.numThread", "type": "integer", "default": "3", )",
          R"({"name": "corvane.net.HostNameServer.DNSServerIPAddrList", "type": "text", "default": null, )",
          "This parameter can also be set to use-host-dns-list to make the application discover the DNS servers of "
          "this host."}, {}},
        // --help of the command and of each command comes from the options it parses.
        {{"--help"}, 0,
         {"Usage: corvane-net [OPTIONS] COMMAND", "--version", "--set NAME=VALUE", "--log LEVEL", "--log-config FILE",
          "--json", "--stats", "url-compare", "canonicalize", "resolve", "route", "port", "dns-servers", "params"}, {}},
        {{"resolve", "--help"}, 0,
         {"Usage: corvane-net resolve [OPTIONS] NAME...", "--timeout MS", "--no-cache", "--async", "--sleep-ms N"}, {}},
        {{"canonicalize", "-h"}, 0, {"--timeout MS", "--direct", "URI"}, {}}, {{"port", "--help"}, 0, {"MIN", "MAX"}, {}},
        {{"--version"}, 0, {"corvane-net " CORVANE_VERSION "\n"}, {}},
        // Usage errors exit 2, print nothing on standard output, and say what was wrong.
        {{"--set", "corvane.nope=1", "params"}, 2, {}, {"corvane.nope"}}, {{"frobnicate"}, 2, {}, {"frobnicate"}},
        {{"--set", kServer + "numThread=many", "params"}, 2, {}, {kServer + "numThread"}},
        {{"--log", "LOUD", "params"}, 2, {}, {"LOUD"}}, {{"params", "extra"}, 2, {}, {"params"}},
        {{"--log-config", "/nonexistent/log.properties", "params"}, 2, {}, {"--log-config"}},
        {{}, 2, {}, {"Usage: corvane-net [OPTIONS] COMMAND"}},
        {{"url-compare", "sip:a@h"}, 2, {}, {}}, {{"resolve", "--timeout", "soon", "x"}, 2, {}, {"--timeout"}},
        {{"canonicalize", "--timeout", "-1", "sip:a@h"}, 2, {}, {"--direct"}},
        {{"dns-servers", "eth0"}, 2, {}, {"corvane-net dns-servers: ", "eth0"}},
        {{"port", "1", "70000", "1"}, 2, {}, {"MAX"}},
        {{"locate", "--family", "ipv5", "sip:a.test"}, 2, {},
         {"corvane-net locate: ", "Try 'corvane-net locate --help'."}},
    };
    const std::regex record("(TRACE|DEBUG|INFO|WARN|ERROR|FATAL)( .*|)");
    const std::regex recordForm("(TRACE|DEBUG|INFO|WARN|ERROR|FATAL) [A-Za-z0-9_.:-]+ - .*");
    for (const Row& row : rows) {
        const corvane_test::SubprocessResult run = runTool(row.args, row.in);
        SCOPED_TRACE(testing::PrintToString(row.args));
        EXPECT_EQ(run.status, row.status < 0 ? run.status : row.status) << run.err;
        EXPECT_TRUE(row.status != 2 || run.out.empty()) << run.out;
        expectTexts(run.out, row.out);
        expectTexts(run.err, row.err);
        std::istringstream lines(run.err);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(!std::regex_match(line, record) || std::regex_match(line, recordForm)) << line;
            if (line.rfind("stats {", 0) != 0) continue;
            const Json accounts = Json::parse(line.substr(6));
            for (const auto& account : accounts.items()) EXPECT_EQ(account.value(), 0) << account.key();
        }
    }
    std::remove(config.c_str());
    // An asynchronous request with time-out 0 is told of its time-out, or answered first.
    const std::string status = runTool({"--json", "resolve", "--async", "--timeout", "0", "localhost"}).out;
    EXPECT_TRUE(status.find(R"("status": "CALLBACK_TIMEOUT")") != std::string::npos ||
                status.find(R"("status": "GHBN_SUCCESS")") != std::string::npos) << status;
}

}  // namespace
