#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "net/Net.h"
#include "net/Uri.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::Uri;

namespace {

struct Fields {
    const char* scheme;
    const char* user;
    const char* host;
    const char* port;
};

Uri make(const Fields& in_fields) {
    Uri uri;
    uri.setScheme(in_fields.scheme);
    uri.setUser(in_fields.user);
    uri.setHost(in_fields.host);
    uri.setPort(in_fields.port);
    return uri;
}

std::string dumped(const Uri& in_uri) {
    std::ostringstream os;
    in_uri.dump(os);
    return os.str();
}

std::string dumped(const Fields& in_fields) { return dumped(make(in_fields)); }

using Node = Tarvik::PCFParse<Tarvik::CFRule>;
Tarvik::CountedObjPtr<Node> node(const char* in_szRule, size_t in_uiFirst, size_t in_uiLast,
                                 Tarvik::CountedObjPtr<Node> in_pFirst = {},
                                 Tarvik::CountedObjPtr<Node> in_pSecond = {}, const char* in_szLabel = nullptr) {
    Tarvik::CountedObjPtr<Node> n(new Node);
    n->m_pRule = Tarvik::CountedObjPtr<Tarvik::CFRule>(new Tarvik::CFRule{in_szRule});
    if (in_szLabel != nullptr) n->m_pLabel = Tarvik::CountedObjPtr<std::string>(new std::string(in_szLabel));
    n->m_uiFirstToken = in_uiFirst;
    n->m_uiLastToken = in_uiLast;
    n->m_pFirst = in_pFirst;
    n->m_pSecond = in_pSecond;
    return n;
}

}  // namespace

TEST(Uri, TextFormAndListing) {
    const struct {
        Fields fields;
        const char* text;
    } rows[] = {{{"sip", "alice", "10.0.0.1", "5060"}, "sip:alice@10.0.0.1:5060"},
                {{"sip", "", "10.0.0.1", ""}, "sip:10.0.0.1"},
                {{"tel", "", "", "99"}, "tel::99"},
                {{"", "", "", ""}, ":"}};
    for (const auto& row : rows) {
        std::string text = "stale";
        make(row.fields).convertTo(text);
        EXPECT_EQ(text, row.text);
        std::ostringstream os;
        os << std::setw(30) << make(row.fields) << "|";
        EXPECT_EQ(os.str(), std::string(30 - text.size(), ' ') + text + "|") << "the field width is honoured";
    }
    EXPECT_EQ(dumped(Uri()), "scheme=\nuser=\nhost=\nport=\n");
    Uri uri = make({"sip", "bob", "h", "1"});
    EXPECT_EQ(dumped(uri), "scheme=sip\nuser=bob\nhost=h\nport=1\n");
    uri.clear();
    EXPECT_EQ(dumped(uri), dumped(Uri()));
}

TEST(Uri, InitFromUrlTextTakesSipUrlsOnly) {
    const Fields kStart = {"sip", "alice", "10.0.0.1", "5060"};
    const Fields kEmpty = {"", "", "", ""};
    const std::string kFailed = "Uri::initFrom : failed to convert (";
    const struct {
        const char* input;
        bool ok;
        Fields fields;
        std::vector<std::string> reports;  // log messages, then assertion texts
    } rows[] = {
        {"sip:bob@10.0.0.2:5070", true, {"sip", "bob", "10.0.0.2", "5070"}, {}},
        {"SIP:bob@host.example.com;transport=tcp", true, {"sip", "bob", "host.example.com", ""}, {}},
        {"sip:carol@[::1]:5070", true, {"sip", "carol", "[::1]", "5070"}, {}},
        {"sip:10.0.0.2", true, {"sip", "alice", "10.0.0.2", ""}, {}},  // a URL without a user keeps the old one
        {"tel:+15551234", false, kStart, {"Not implemented : tel urls"}},
        {"alice", false, kEmpty, {"Uri::initFrom : invalid Vocal Url type 4", kFailed + "alice) to a Uri"}},
        {"im:a@example.com", false, kEmpty, {"Uri::initFrom : invalid Vocal Url type 2", kFailed + "im:a@example.com) to a Uri"}},
        {"pres:a@example.com", false, kEmpty, {"Uri::initFrom : invalid Vocal Url type 3", kFailed + "pres:a@example.com) to a Uri"}},
        {"sip:a@h:port", false, kEmpty,
         {"Uri::initFrom : failed to parse URI : SipUrlParserException: failed in Decode", kFailed + "sip:a@h:port) to a Uri"}},
    };
    for (const auto& row : rows) {
        corvane_test::LogCapture log;
        corvane_test::AssertCapture asserts;
        Uri uri = make(kStart);
        EXPECT_EQ(uri.initFrom(row.input), row.ok) << row.input;
        EXPECT_EQ(dumped(uri), dumped(row.fields)) << row.input;
        std::vector<std::string> reports = log.messages("corvane.net.Uri");
        for (const std::string& text : asserts.texts()) reports.push_back(text);
        EXPECT_EQ(reports, row.reports) << row.input;
    }
}

TEST(Uri, TreeWalkFillsNamedNodesFromTheirTokens) {
    const Tarvik::StringVector tokens = {"sip", ":", "host", ".", "org", ":", "5060", "bob"};
    // A label wins over the rule's name; nodes below a named node are not visited.
    const auto host = node("HostRule", 2, 4, node("Port", 7, 7), {}, "Host");
    const auto root = node("Root", 0, 6, node("Seq", 0, 4, node("Scheme", 0, 0), host), node("Port", 6, 6));
    Uri uri = make({"x", "stale-user", "x", "x"});
    EXPECT_TRUE(uri.initFrom(tokens, root));
    EXPECT_EQ(dumped(uri), dumped({"sip", "", "host.org", "5060"}));
    // A rule called "Host" under a label of another name is not a host; an empty range leaves the member
    // empty; a later node overwrites an earlier one.
    const auto labelled = node("A", 0, 0, node("Host", 2, 2, {}, {}, "Domain"), node("User", 5, 4));
    EXPECT_TRUE(uri.initFrom(tokens, node("Root", 0, 7, labelled, node("B", 0, 0, node("Port", 6, 6), node("Port", 7, 7)))));
    EXPECT_EQ(dumped(uri), dumped({"", "", "", "bob"}));

    corvane_test::AssertCapture asserts;
    EXPECT_TRUE(uri.initFrom(tokens, Tarvik::CountedObjPtr<Node>()));
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"! in_pParse.isNull()"});
    EXPECT_EQ(dumped(uri), dumped(Uri()));
}

class Canonicalize : public corvane_test::LibraryTest {};

// In a network of its own (a down loopback link) a name that is not in the hosts file fails without a
// packet leaving the machine.
TEST_F(Canonicalize, DirectPathFillsTheSipPortAndResolvesTheHost) {
    if (!corvane_test::isNamespaceRun()) return corvane_test::rerunInOwnNamespace({});
    const struct {
        Fields in;
        bool ok;
        Fields out;
        const char* log;  // "%p" stands for the address of the Uri object
    } rows[] = {
        {{"sip", "alice", "127.0.0.1", ""}, true, {"sip", "alice", "127.0.0.1", "5060"}, nullptr},
        {{"sip", "", "localhost", ""}, true, {"sip", "", "127.0.0.1", "5060"}, nullptr},
        {{"http", "", "10.0.0.1", "80"}, true, {"http", "", "10.0.0.1", "80"}, nullptr},
        {{"sips", "", "127.0.0.1", ""}, false, {"sips", "", "127.0.0.1", ""}, nullptr},
        {{"SIP", "", "localhost", ""}, false, {"SIP", "", "localhost", ""}, nullptr},
        {{"tel", "", "127.0.0.1", ""}, false, {"tel", "", "127.0.0.1", ""},
         "Uri \"%p\" could not be canonicalized: unknown protocol"},
        {{"sip", "", "nowhere.test", ""}, false, {"sip", "", "nowhere.test", ""}, "Unknown host: \"nowhere.test\""},
    };
    for (const auto& row : rows) {
        corvane_test::LogCapture log;
        Uri uri = make(row.in);
        EXPECT_EQ(uri.canonicalize(ACE_Time_Value::max_time), row.ok) << row.in.scheme << " " << row.in.host;
        EXPECT_EQ(dumped(uri), dumped(row.out));
        std::ostringstream object;
        object << static_cast<const void*>(&uri);
        std::string expected = row.log != nullptr ? row.log : "";
        if (expected.find("%p") != std::string::npos) expected.replace(expected.find("%p"), 2, object.str());
        if (row.log != nullptr) EXPECT_EQ(log.messages("corvane.net.Uri"), std::vector<std::string>{expected});
    }
    const struct {
        const char* in;
        bool ok;
        const char* out;
    } texts[] = {
        {"sip:alice@127.0.0.1", true, "sip:alice@127.0.0.1:5060"},
        {"SIP:carol@localhost:5070?Subject=x", true, "sip:carol@127.0.0.1:5070"},
        {"tel:+15551234", false, "tel:+15551234"},
        {"not a uri", false, "not a uri"},
    };
    for (const auto& row : texts) {
        std::string out = "stale";
        EXPECT_EQ(Tarvik::canonicalizeURI(row.in, out, ACE_Time_Value::max_time), row.ok) << row.in;
        EXPECT_EQ(out, row.out);
    }
}

TEST_F(Canonicalize, ResolverPathResolvesThroughTheRunningResolver) {
    corvane_test::LogCapture log;
    Uri uri = make({"sip", "", "10.0.0.1", ""});
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(1)));
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value::zero));
    EXPECT_EQ(log.count("Uri::canonicalize : cannot specify a timeout if the HostNameServer is not started"), 2u);
    EXPECT_EQ(dumped(uri), dumped({"sip", "", "10.0.0.1", ""})) << "no fallback to the direct path";

    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    const struct {
        Fields in;
        bool ok;
        Fields out;
        const char* log;
    } rows[] = {
        {{"sip", "a", "localhost", ""}, true, {"sip", "a", "127.0.0.1", "5060"}, nullptr},
        {{"xmpp", "", "localhost", "5222"}, true, {"xmpp", "", "127.0.0.1", "5222"}, nullptr},
        {{"xmpp", "", "localhost", ""}, false, {"xmpp", "", "localhost", ""}, "canonicalizeSipPort failed"},
        {{"sip", "", "gone.test", ""}, false, {"sip", "", "gone.test", ""}, "server.resolve() failed : GHBN_HOST_NOT_FOUND"},
    };
    for (const auto& row : rows) {
        log.clear();
        uri = make(row.in);
        EXPECT_EQ(uri.canonicalize(ACE_Time_Value(2)), row.ok) << row.in.host;
        EXPECT_EQ(dumped(uri), dumped(row.out));
        if (row.log != nullptr) EXPECT_EQ(log.count(row.log), 1u) << row.log;
    }
    // A time-out leaves the Uri as it was.
    uri = make({"sip", "", "slow.test", ""});
    hook.setDelay(std::chrono::milliseconds(200));
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(0, 10000)));
    EXPECT_EQ(log.count("server.resolve() failed : GHBN_TIMEOUT"), 1u);
    EXPECT_EQ(dumped(uri), dumped({"sip", "", "slow.test", ""}));
}
