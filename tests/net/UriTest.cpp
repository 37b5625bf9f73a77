#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

#include "NetNamespace.h"
#include "net/Net.h"
#include "net/Uri.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using Tarvik::Uri;

namespace {

std::string text(const Uri& in_uri) {
    std::string out = "stale";
    in_uri.convertTo(out);
    return out;
}

Uri make(const char* in_szScheme, const char* in_szUser, const char* in_szHost, const char* in_szPort) {
    Uri uri;
    uri.setScheme(in_szScheme);
    uri.setUser(in_szUser);
    uri.setHost(in_szHost);
    uri.setPort(in_szPort);
    return uri;
}

using Node = Tarvik::PCFParse<Tarvik::CFRule>;
// A parse-tree node of a rule name, a token range, two children and a label.
Tarvik::CountedObjPtr<Node> node(const char* in_szName, size_t in_uiFirst, size_t in_uiLast,
                                 Tarvik::CountedObjPtr<Node> in_pFirst = {},
                                 Tarvik::CountedObjPtr<Node> in_pSecond = {},
                                 const char* in_szLabel = nullptr) {
    Tarvik::CountedObjPtr<Node> n(new Node);
    n->m_pRule = Tarvik::CountedObjPtr<Tarvik::CFRule>(new Tarvik::CFRule{in_szName});
    if (in_szLabel != nullptr) n->m_pLabel = Tarvik::CountedObjPtr<std::string>(new std::string(in_szLabel));
    n->m_uiFirstToken = in_uiFirst;
    n->m_uiLastToken = in_uiLast;
    n->m_pFirst = in_pFirst;
    n->m_pSecond = in_pSecond;
    return n;
}

}  // namespace

TEST(Uri, InitFromUrlTextTakesSipUrlsOnly) {
    const Uri start = make("sip", "alice", "10.0.0.1", "5060");
    const std::string failed = "Uri::initFrom : failed to convert (";
    const std::string invalid = "Uri::initFrom : invalid Vocal Url type ";
    const struct {
        const char* input;
        bool ok;
        std::string text;                  // the text form of the Uri filled
        std::vector<std::string> reports;  // log messages, then assertion texts
    } rows[] = {
        {"sip:bob@10.0.0.2:5070", true, "sip:bob@10.0.0.2:5070", {}},
        {"SIP:bob@host.example.com;transport=tcp", true, "sip:bob@host.example.com", {}},
        {"sip:10.0.0.2", true, "sip:alice@10.0.0.2", {}},  // a URL without a user keeps the old one
        {"tel:+15551234", false, "sip:alice@10.0.0.1:5060", {"Not implemented : tel urls"}},
        {"alice", false, ":", {invalid + "4", failed + "alice) to a Uri"}},
        {"im:a@example.com", false, ":", {invalid + "2", failed + "im:a@example.com) to a Uri"}},
        {"sip:a@h:port", false, ":",
         {"Uri::initFrom : failed to parse URI : SipUrlParserException: failed in Decode",
          failed + "sip:a@h:port) to a Uri"}},
    };
    for (const auto& row : rows) {
        corvane_test::LogCapture log;
        corvane_test::AssertCapture asserts;
        Uri uri = start;
        EXPECT_EQ(uri.initFrom(row.input), row.ok) << row.input;
        std::ostringstream os;
        os << std::setw(30) << uri;  // the field width is honoured
        EXPECT_EQ(text(uri), row.text) << row.input;
        EXPECT_EQ(os.str(), std::string(30 - row.text.size(), ' ') + row.text);
        std::vector<std::string> reports = log.messages("corvane.net.Uri");
        for (const std::string& report : asserts.texts()) reports.push_back(report);
        EXPECT_EQ(reports, row.reports) << row.input;
    }
    Uri cleared = make("tel", "bob", "h", "1");
    std::ostringstream listing;
    cleared.dump(listing);
    cleared.clear();
    cleared.dump(listing);
    EXPECT_EQ(listing.str(), "scheme=tel\nuser=bob\nhost=h\nport=1\nscheme=\nuser=\nhost=\nport=\n");
}

TEST(Uri, TreeWalkFillsNamedNodesFromTheirTokens) {
    const Tarvik::StringVector tokens = {"sip", ":", "host", ".", "org", ":", "5060", "bob"};
    // A label wins over the rule's name; nodes below a named node are not visited.
    const auto host = node("HostRule", 2, 4, node("Port", 7, 7), {}, "Host");
    Uri uri = make("x", "stale-user", "x", "x");
    const auto scheme = node("Scheme", 0, 0);
    EXPECT_TRUE(uri.initFrom(tokens, node("R", 0, 6, node("S", 0, 4, scheme, host), node("Port", 6, 6))));
    EXPECT_EQ(text(uri), "sip:host.org:5060");
    // A "Host" rule under another label is no host; an empty range leaves a member empty; a later node wins.
    const auto labelled = node("A", 0, 0, node("Host", 2, 2, {}, {}, "Domain"), node("User", 5, 4));
    const auto ports = node("B", 0, 0, node("Port", 6, 6), node("Port", 7, 7));
    EXPECT_TRUE(uri.initFrom(tokens, node("R", 0, 7, labelled, ports)));
    EXPECT_EQ(text(uri), "::bob");
    corvane_test::AssertCapture asserts;
    EXPECT_TRUE(uri.initFrom(tokens, Tarvik::CountedObjPtr<Node>()));
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"! in_pParse.isNull()"});
    EXPECT_EQ(text(uri), ":");
}

// In a network of its own a name that is not in the hosts file fails without a packet leaving the machine.
TEST(Canonicalize, FillsTheSipPortAndPutsTheAddressInPlaceOfTheHost) {
    if (!corvane_test::isNamespaceRun()) return corvane_test::rerunInOwnNamespace({});
    corvane_test::LogCapture log;
    Uri uri = make("sip", "", "10.0.0.1", "");
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(1)));
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value::zero));
    const std::string notStarted = "cannot specify a timeout if the HostNameServer is not started";
    EXPECT_EQ(log.count("Uri::canonicalize : " + notStarted), 2u);
    EXPECT_EQ(text(uri), "sip:10.0.0.1") << "no fallback to the direct path";
    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    corvane_test::HostLookupHook hook;  // the resolver's lookups
    hook.setDelay(std::chrono::milliseconds(100));
    std::ostringstream self;
    self << static_cast<const void*>(&uri);
    const std::string unknownProtocol =
        "Uri \"" + self.str() + "\" could not be canonicalized: " + "unknown protocol";
    const ACE_Time_Value direct = ACE_Time_Value::max_time;
    const ACE_Time_Value twoSeconds(2);
    const struct {
        Uri in;
        ACE_Time_Value timeout;
        const char* out;  // the text form after the call
        std::string log;  // the last message, empty on success
    } rows[] = {
        {make("sip", "alice", "127.0.0.1", ""), direct, "sip:alice@127.0.0.1:5060", ""},
        {make("SIP", "", "127.0.0.1", ""), direct, "SIP:127.0.0.1", unknownProtocol},
        {make("sip", "", "nowhere.test", ""), direct, "sip:nowhere.test", "Unknown host: \"nowhere.test\""},
        {make("sip", "a", "localhost", ""), twoSeconds, "sip:a@127.0.0.1:5060", ""},
        {make("xmpp", "", "localhost", "5222"), twoSeconds, "xmpp:127.0.0.1:5222", ""},
        {make("xmpp", "", "localhost", ""), twoSeconds, "xmpp:localhost", "canonicalizeSipPort failed"},
        {make("sip", "", "gone.test", ""), twoSeconds, "sip:gone.test",
         "server.resolve() failed : GHBN_HOST_NOT_FOUND"},
        // A time-out keeps a port filled before.
        {make("sip", "", "slow.test", "5060"), ACE_Time_Value(0, 10000), "sip:slow.test:5060",
         "server.resolve() failed : GHBN_TIMEOUT"},
    };
    for (const auto& row : rows) {
        log.clear();
        uri = row.in;
        EXPECT_EQ(uri.canonicalize(row.timeout), row.log.empty()) << row.out;
        EXPECT_EQ(text(uri), row.out);
        const std::vector<std::string> messages = log.messages("corvane.net.Uri");
        EXPECT_EQ(messages.empty() ? "" : messages.back(), row.log) << row.out;
    }
    std::string out;
    EXPECT_TRUE(Tarvik::canonicalizeURI("SIP:carol@localhost:5070?Subject=x", out, direct));
    EXPECT_EQ(out, "sip:carol@127.0.0.1:5070");
    EXPECT_FALSE(Tarvik::canonicalizeURI("not a uri", out, direct));
    EXPECT_EQ(out, "not a uri");
    Tarvik::Net::forcedCloseLibrary();
}
