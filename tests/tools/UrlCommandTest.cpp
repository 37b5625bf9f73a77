// End-to-end runs of "corvane-net url" and "corvane-net url-compare".
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JsonLines.h"
#include "support/RunTool.h"

using corvane_test::Json;
using corvane_test::jsonLines;
using corvane_test::runTool;

namespace {

TEST(UrlCommand, PrintsEveryKeyOfASipUrlAsJson) {
    const auto run = runTool({"--json", "url", "sip:+1-555@hostA:5060;user=phone;isub=12;lr"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(jsonLines(run.lines), std::vector<Json>{Json::parse(R"({"input": "sip:+1-555@hostA:5060;user=phone;isub=12;lr",
        "type": "SIP_URL", "encode": "sip:+1-555@hostA:5060;user=phone;lr;isub=12",
        "encodeAddress": "sip:+1-555@hostA:5060", "userValue": "+1-555", "looseRouting": true, "scheme": "sip",
        "passwd": "", "host": "hostA", "port": "5060", "transport": "", "ttl": "", "maddr": "", "userParam": "phone",
        "method": "", "otherName": "", "otherValue": "", "headers": "", "ipv6Host": false,
        "user": {"userType": 1, "encode": "+1-555", "global": true, "number": "1-555", "isub": "12", "postd": "",
                 "phoneContext": "", "tsp": "", "otherName": "", "otherValue": "", "paramString": ";isub=12",
                 "globalForm": "+1-555;isub=12", "localForm": "1-555;isdn=12"}})")});
}

TEST(UrlCommand, ReadsUrlsFromStandardInputAndFailsOnAnException) {
    const auto run = runTool({"--json", "url", "-"}, "im:a@b\ntel:\nfoo:bar\nsip:h\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(jsonLines(run.lines), Json::parse(R"([
        {"input": "im:a@b", "type": "IM_URL", "encode": "im:a@b", "encodeAddress": "im:a@b", "userValue": "a",
         "looseRouting": false, "scheme": "im", "user": "a", "host": "b"},
        {"input": "tel:", "exception": {"name": "TelUrlParserException", "message": "failed in Decode",
         "file": "TelUrl.cpp", "code": 0}},
        {"input": "foo:bar", "type": "UNKNOWN_URL", "encode": "foo:bar", "encodeAddress": "foo:bar", "userValue": "",
         "looseRouting": false},
        {"input": "sip:h", "type": "SIP_URL", "encode": "sip:h", "encodeAddress": "sip:h", "userValue": "",
         "looseRouting": false, "scheme": "sip", "passwd": "", "host": "h", "port": "", "transport": "", "ttl": "",
         "maddr": "", "userParam": "", "method": "", "otherName": "", "otherValue": "", "headers": "",
         "ipv6Host": false, "user": null}])").get<std::vector<Json>>());
    // The decoder's ERR line reaches standard error at the default level.
    EXPECT_NE(run.err.find("ERROR corvane.media.vocal - Failed in Decode (TEL_URL)\n"), std::string::npos) << run.err;
}

TEST(UrlCommand, TelUrlUserAndReadableForm) {
    const auto json = runTool({"--json", "url", "TEL:5551234"});
    ASSERT_EQ(json.lines.size(), 1u);
    const Json tel = Json::parse(json.lines[0]);
    EXPECT_EQ(tel["type"], "TEL_URL");
    EXPECT_EQ(tel["encode"], "TEL:5551234");
    EXPECT_EQ(tel["encodeAddress"], "5551234");
    EXPECT_EQ(tel["userValue"], "5551234");
    EXPECT_EQ(tel["looseRouting"], false);
    EXPECT_EQ(tel["scheme"], "TEL");
    EXPECT_EQ(tel["user"]["userType"], 1);
    EXPECT_EQ(tel["user"]["encode"], "5551234");
    EXPECT_EQ(tel["user"]["global"], false);
    const auto text = runTool({"url", "sip:alice@hostA"});
    EXPECT_EQ(text.status, 0);
    bool sawHost = false;
    for (const std::string& line : text.lines) sawHost = sawHost || line == "host: hostA";
    EXPECT_TRUE(sawHost) << text.out;
    EXPECT_EQ(runTool({"url"}).status, 2);
}

// Texts are written as UTF-8: valid sequences as their characters, any other
// byte as U+FFFD, so that every JSON reader gets the text the URL held.
TEST(UrlCommand, JsonTextIsUtf8AndInvalidBytesBecomeReplacementCharacters) {
    const struct {
        std::string url;    // given to the command
        std::string shown;  // its "input" value as the command writes it
    } rows[] = {
        {"sip:jos\xC3\xA9@example.com", "sip:jos\xC3\xA9@example.com"},
        {"sip:\xE2\x82\xAC" "5@h", "sip:\xE2\x82\xAC" "5@h"},
        {"sip:a\xFF@h", "sip:a\xEF\xBF\xBD@h"},
        {"sip:a\xFF\xFF@h", "sip:a\xEF\xBF\xBD\xEF\xBF\xBD@h"},
        {"sip:a\x01@h", "sip:a\\u0001@h"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.shown);
        const auto run = runTool({"--json", "url", row.url});
        ASSERT_EQ(run.lines.size(), 1u) << run.out;
        EXPECT_EQ(run.lines[0].rfind("{\"input\": \"" + row.shown + "\",", 0), 0u) << run.lines[0];
        EXPECT_NO_THROW(Json::parse(run.lines[0]));
    }
}

TEST(UrlCommand, CompareReportsEqualityAndOrderingBothWays) {
    const auto run =
        runTool({"--json", "url-compare", "sip:a@hostA", "SIP:a@HOSTA:5060", "tel:1", "tel:2", "im:a@b", "sip:a@h:x"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(jsonLines(run.lines), Json::parse(R"([
        {"a": "sip:a@hostA", "b": "SIP:a@HOSTA:5060", "equal": true, "aLessThanB": true, "bLessThanA": false},
        {"a": "tel:1", "b": "tel:2", "equal": false, "aLessThanB": true, "bLessThanA": false},
        {"a": "im:a@b", "b": "sip:a@h:x", "failed": "b", "exception": {"name": "SipUrlParserException",
         "message": "failed in Decode", "file": "SipUrl.cpp", "code": 0}}])").get<std::vector<Json>>());
    EXPECT_EQ(runTool({"url-compare", "sip:a@h"}).status, 2);
}

}  // namespace
