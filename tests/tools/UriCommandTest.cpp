#include <gtest/gtest.h>

#include "JsonLines.h"
#include "support/RunTool.h"

using corvane_test::Json;
using corvane_test::jsonLines;
using corvane_test::runTool;

namespace {
std::vector<Json> parsedArray(const char* in_json) { return Json::parse(in_json).get<std::vector<Json>>(); }
}  // namespace

TEST(CanonicalizeCommand, DirectPathGivesDottedHostAndSipPort) {
    const auto run = runTool({"--json", "canonicalize", "--direct", "sip:alice@127.0.0.1", "sip:bob@localhost;transport=tcp"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(jsonLines(run.lines), parsedArray(R"([
        {"input": "sip:alice@127.0.0.1", "ok": true, "output": "sip:alice@127.0.0.1:5060"},
        {"input": "sip:bob@localhost;transport=tcp", "ok": true, "output": "sip:bob@127.0.0.1:5060"}])"));
}

TEST(CanonicalizeCommand, ResolverPathAndAFailureThatKeepsTheInput) {
    const auto run = runTool({"--json", "canonicalize", "--timeout", "1500", "sip:carol@localhost:5070", "tel:+1555"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(jsonLines(run.lines), parsedArray(R"([
        {"input": "sip:carol@localhost:5070", "ok": true, "output": "sip:carol@127.0.0.1:5070"},
        {"input": "tel:+1555", "ok": false, "output": "tel:+1555"}])"));
    EXPECT_NE(run.err.find("ERROR corvane.net.Uri - ASSERTION FAILED: Not implemented : tel urls"), std::string::npos) << run.err;
}

TEST(UriCommand, FreshAndReusedUris) {
    const std::vector<std::string> items = {"sip:alice@10.0.0.1:5060", "sip:10.0.0.2", "x"};
    const auto fresh = runTool({"--json", "uri", items[0], items[1], items[2]});
    EXPECT_EQ(fresh.status, 1);
    ASSERT_EQ(fresh.lines.size(), 3u);
    EXPECT_EQ(Json::parse(fresh.lines[1]), Json::parse(R"({"input": "sip:10.0.0.2", "ok": true, "scheme": "sip",
        "user": "", "host": "10.0.0.2", "port": "", "text": "sip:10.0.0.2"})"));
    EXPECT_EQ(Json::parse(fresh.lines[2]), Json::parse(R"({"input": "x", "ok": false, "scheme": "", "user": "",
        "host": "", "port": "", "text": ":"})"));

    const auto reused = runTool({"--json", "uri", "--reuse", "-"}, items[0] + "\n" + items[1] + "\n");
    EXPECT_EQ(reused.status, 0);
    ASSERT_EQ(reused.lines.size(), 2u);
    EXPECT_EQ(Json::parse(reused.lines[1]), Json::parse(R"({"input": "sip:10.0.0.2", "ok": true, "scheme": "sip",
        "user": "alice", "host": "10.0.0.2", "port": "", "text": "sip:alice@10.0.0.2"})"))
        << "a reused Uri keeps its user when the new URL has none";
}
