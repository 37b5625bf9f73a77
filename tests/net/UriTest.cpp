#include <gtest/gtest.h>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <iomanip>
#include <sstream>

#include "net/Net.h"
#include "net/Uri.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LibraryFixture.h"
#include "support/LogCapture.h"

using Tarvik::CFRule;
using Tarvik::CountedObjPtr;
using Tarvik::PCFParse;
using Tarvik::Uri;

namespace {

struct Fields {
    const char* scheme;
    const char* user;
    const char* host;
    const char* port;
};

Uri make(const Fields& f) {
    Uri uri;
    uri.setScheme(f.scheme);
    uri.setUser(f.user);
    uri.setHost(f.host);
    uri.setPort(f.port);
    return uri;
}

void expectFields(const Uri& uri, const Fields& f, const std::string& context) {
    EXPECT_STREQ(uri.getScheme(), f.scheme) << context;
    EXPECT_STREQ(uri.getUser(), f.user) << context;
    EXPECT_STREQ(uri.getHost(), f.host) << context;
    EXPECT_STREQ(uri.getPort(), f.port) << context;
}

std::string text(const Uri& uri) {
    std::string out = "stale";
    uri.convertTo(out);
    return out;
}

using Node = PCFParse<CFRule>;
CountedObjPtr<Node> node(const char* rule, size_t first, size_t last, CountedObjPtr<Node> a = {},
                         CountedObjPtr<Node> b = {}, const char* label = nullptr) {
    CountedObjPtr<Node> n(new Node);
    n->m_pRule = CountedObjPtr<CFRule>(new CFRule{rule});
    if (label) n->m_pLabel = CountedObjPtr<std::string>(new std::string(label));
    n->m_uiFirstToken = first;
    n->m_uiLastToken = last;
    n->m_pFirst = a;
    n->m_pSecond = b;
    return n;
}

// Runs in_fn in a child process with a network of its own (only a down
// loopback interface): any name it resolves fails there without a packet
// leaving the machine. Returns the child's exit code, or 77 when the
// namespace could not be made.
int inIsolatedNetwork(const std::function<int()>& in_fn) {
    const pid_t pid = fork();
    if (pid == 0) {
        if (unshare(CLONE_NEWNET) != 0) _exit(77);
        _exit(in_fn());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

}  // namespace

TEST(Uri, TextFormListingAndStreaming) {
    const struct {
        Fields fields;
        const char* text;
    } cases[] = {
        {{"sip", "alice", "10.0.0.1", "5060"}, "sip:alice@10.0.0.1:5060"},
        {{"sip", "", "10.0.0.1", ""}, "sip:10.0.0.1"},
        {{"tel", "", "", "99"}, "tel::99"},
        {{"", "", "", ""}, ":"},
    };
    for (const auto& c : cases) {
        const Uri uri = make(c.fields);
        EXPECT_EQ(text(uri), c.text);
        std::ostringstream os;
        os << std::setw(30) << uri << "|";
        EXPECT_EQ(os.str(), std::string(30 - std::string(c.text).size(), ' ') + c.text + "|") << "field width honoured";
    }
    std::ostringstream dumped;
    Uri().dump(dumped);
    EXPECT_EQ(dumped.str(), "scheme=\nuser=\nhost=\nport=\n");
    dumped.str("");
    make({"sip", "bob", "h", "1"}).dump(dumped);
    EXPECT_EQ(dumped.str(), "scheme=sip\nuser=bob\nhost=h\nport=1\n");
    Uri cleared = make({"sip", "bob", "h", "1"});
    cleared.clear();
    expectFields(cleared, {"", "", "", ""}, "clear");
}

TEST(Uri, InitFromSipUrlTexts) {
    const struct {
        const char* input;
        Fields fields;
        const char* text;
    } cases[] = {
        {"sip:alice@10.0.0.1:5060", {"sip", "alice", "10.0.0.1", "5060"}, "sip:alice@10.0.0.1:5060"},
        {"sip:10.0.0.1", {"sip", "", "10.0.0.1", ""}, "sip:10.0.0.1"},
        {"SIP:bob@host.example.com;transport=tcp", {"sip", "bob", "host.example.com", ""}, "sip:bob@host.example.com"},
        {"sip:carol@[::1]:5070", {"sip", "carol", "[::1]", "5070"}, "sip:carol@[::1]:5070"},
    };
    for (const auto& c : cases) {
        Uri uri;
        EXPECT_TRUE(uri.initFrom(c.input)) << c.input;
        expectFields(uri, c.fields, c.input);
        EXPECT_EQ(text(uri), c.text);
    }
}

TEST(Uri, TelUrlIsRefusedAndLeavesTheUriAlone) {
    corvane_test::AssertCapture asserts;
    Uri uri = make({"sip", "alice", "10.0.0.1", "5060"});
    EXPECT_FALSE(uri.initFrom("tel:+15551234"));
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"Not implemented : tel urls"});
    expectFields(uri, {"sip", "alice", "10.0.0.1", "5060"}, "tel");
}

TEST(Uri, OtherUrlTypesAndBadTextsClearTheUri) {
    const struct {
        const char* input;
        const char* firstLog;  // null: none before the failure line
    } cases[] = {
        {"alice", "Uri::initFrom : invalid Vocal Url type 4"},
        {"mailto:a@b", "Uri::initFrom : invalid Vocal Url type 4"},
        {"im:someone@example.com", "Uri::initFrom : invalid Vocal Url type 2"},
        {"pres:someone@example.com", "Uri::initFrom : invalid Vocal Url type 3"},
    };
    for (const auto& c : cases) {
        corvane_test::LogCapture log;
        Uri uri = make({"sip", "alice", "10.0.0.1", "5060"});
        EXPECT_FALSE(uri.initFrom(c.input)) << c.input;
        expectFields(uri, {"", "", "", ""}, c.input);
        const auto messages = log.messages("corvane.net.Uri");
        ASSERT_EQ(messages.size(), 2u) << c.input;
        EXPECT_EQ(messages[0], c.firstLog);
        EXPECT_EQ(messages[1], std::string("Uri::initFrom : failed to convert (") + c.input + ") to a Uri");
    }
}

TEST(Uri, ParserExceptionIsLoggedAndClearsTheUri) {
    corvane_test::LogCapture log;
    Uri uri = make({"sip", "alice", "10.0.0.1", "5060"});
    EXPECT_FALSE(uri.initFrom("sip:a@h:port"));
    expectFields(uri, {"", "", "", ""}, "bad port");
    const auto messages = log.messages("corvane.net.Uri");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Uri::initFrom : failed to parse URI : SipUrlParserException: failed in Decode");
    EXPECT_EQ(messages[1], "Uri::initFrom : failed to convert (sip:a@h:port) to a Uri");
}

TEST(Uri, RefillingKeepsAnOldUserWhenTheNewUrlHasNone) {
    Uri uri;
    ASSERT_TRUE(uri.initFrom("sip:alice@10.0.0.1:5060"));
    ASSERT_TRUE(uri.initFrom("sip:10.0.0.2"));
    expectFields(uri, {"sip", "alice", "10.0.0.2", ""}, "reuse");
}

TEST(Uri, TreeWalkFillsNamedNodesFromTheirTokens) {
    const Tarvik::StringVector tokens = {"sip", ":", "host", ".", "org", ":", "5060", "bob"};
    // Root(Seq(Scheme 0..0, Host 2..4 with a "Port" node below it that is never visited), Port 6..6)
    auto hidden = node("Port", 7, 7);
    auto host = node("HostRule", 2, 4, hidden, {}, "Host");  // a label wins over the rule's name
    auto scheme = node("Scheme", 0, 0);
    auto seq = node("Seq", 0, 4, scheme, host);
    auto port = node("Port", 6, 6);
    auto root = node("Root", 0, 6, seq, port);
    Uri uri = make({"x", "stale-user", "x", "x"});
    EXPECT_TRUE(uri.initFrom(tokens, root));
    expectFields(uri, {"sip", "", "host.org", "5060"}, "tree");

    // A rule called "Host" under a label of another name is not a host; an
    // empty range leaves the member empty; a later node overwrites.
    auto labelled = node("Host", 2, 2, {}, {}, "Domain");
    auto emptyUser = node("User", 5, 4);
    auto firstPort = node("Port", 6, 6);
    auto laterPort = node("Port", 7, 7);
    auto root2 = node("Root", 0, 7, node("A", 0, 0, labelled, emptyUser), node("B", 0, 0, firstPort, laterPort));
    EXPECT_TRUE(uri.initFrom(tokens, root2));
    expectFields(uri, {"", "", "", "bob"}, "tree2");
}

TEST(Uri, NullTreeIsReportedAndClearsTheUri) {
    corvane_test::AssertCapture asserts;
    Uri uri = make({"sip", "a", "h", "1"});
    EXPECT_TRUE(uri.initFrom(Tarvik::StringVector{}, CountedObjPtr<Node>()));
    EXPECT_TRUE(asserts.contains("! in_pParse.isNull()"));
    expectFields(uri, {"", "", "", ""}, "null tree");
}

class Canonicalize : public corvane_test::LibraryTest {};

TEST_F(Canonicalize, DirectPathFillsTheSipPortAndResolvesTheHost) {
    const struct {
        Fields in;
        bool ok;
        Fields out;
    } cases[] = {
        {{"sip", "alice", "127.0.0.1", ""}, true, {"sip", "alice", "127.0.0.1", "5060"}},
        {{"sip", "", "localhost", ""}, true, {"sip", "", "127.0.0.1", "5060"}},
        {{"sip", "", "10.0.0.1", "5070"}, true, {"sip", "", "10.0.0.1", "5070"}},
        {{"http", "", "10.0.0.1", "80"}, true, {"http", "", "10.0.0.1", "80"}},
        {{"sips", "", "127.0.0.1", ""}, false, {"sips", "", "127.0.0.1", ""}},
        {{"SIP", "", "localhost", ""}, false, {"SIP", "", "localhost", ""}},
    };
    for (const auto& c : cases) {
        Uri uri = make(c.in);
        EXPECT_EQ(uri.canonicalize(ACE_Time_Value::max_time), c.ok) << c.in.scheme << " " << c.in.host;
        expectFields(uri, c.out, c.in.host);
    }
}

TEST_F(Canonicalize, UnknownProtocolNamesTheObjectNotTheUri) {
    corvane_test::LogCapture log;
    Uri uri = make({"tel", "", "127.0.0.1", ""});
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value::max_time));
    std::ostringstream expected;
    expected << "Uri \"" << static_cast<const void*>(&uri) << "\" could not be canonicalized: unknown protocol";
    EXPECT_EQ(log.messages("corvane.net.Uri"), std::vector<std::string>{expected.str()});
}

TEST_F(Canonicalize, DirectPathWithAnUnknownHostFails) {
    const int code = inIsolatedNetwork([] {
        corvane_test::LogCapture log;
        Uri uri = make({"sip", "", "nowhere.test", ""});
        const bool ok = uri.canonicalize(ACE_Time_Value::max_time);
        const bool logged = log.count("Unknown host: \"nowhere.test\"") == 1;
        return !ok && logged && std::string(uri.getHost()) == "nowhere.test" && std::string(uri.getPort()).empty() ? 0 : 1;
    });
    if (code == 77) GTEST_SKIP() << "needs a network namespace (root)";
    EXPECT_EQ(code, 0);
}

TEST_F(Canonicalize, ResolverPathNeedsARunningResolver) {
    corvane_test::LogCapture log;
    Uri uri = make({"sip", "", "10.0.0.1", ""});
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(1)));
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value::zero));
    EXPECT_EQ(log.count("Uri::canonicalize : cannot specify a timeout if the HostNameServer is not started"), 2u);
    expectFields(uri, {"sip", "", "10.0.0.1", ""}, "not running: no fallback to the direct path");
}

TEST_F(Canonicalize, ResolverPathResolvesThroughTheResolver) {
    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    const struct {
        Fields in;
        bool ok;
        Fields out;
        const char* log;
    } cases[] = {
        {{"sip", "a", "localhost", ""}, true, {"sip", "a", "127.0.0.1", "5060"}, nullptr},
        {{"sip", "", "10.1.1.1", "5080"}, true, {"sip", "", "10.1.1.1", "5080"}, nullptr},
        {{"xmpp", "", "localhost", "5222"}, true, {"xmpp", "", "127.0.0.1", "5222"}, nullptr},
        {{"xmpp", "", "localhost", ""}, false, {"xmpp", "", "localhost", ""}, "canonicalizeSipPort failed"},
        {{"sip", "", "gone.test", ""}, false, {"sip", "", "gone.test", ""}, "server.resolve() failed : GHBN_HOST_NOT_FOUND"},
    };
    for (const auto& c : cases) {
        corvane_test::LogCapture log;
        Uri uri = make(c.in);
        EXPECT_EQ(uri.canonicalize(ACE_Time_Value(2)), c.ok) << c.in.host;
        expectFields(uri, c.out, c.in.host);
        if (c.log) {
            EXPECT_EQ(log.count(c.log), 1u) << c.log;
        }
    }
}

TEST_F(Canonicalize, FilledPortIsKeptWhenALaterCanonicalisationFails) {
    ASSERT_TRUE(Tarvik::Net::initializeLibrary());
    corvane_test::HostLookupHook hook;
    Uri uri = make({"sip", "", "10.9.9.9", ""});
    ASSERT_TRUE(uri.canonicalize(ACE_Time_Value(2)));
    expectFields(uri, {"sip", "", "10.9.9.9", "5060"}, "first");
    uri.setHost("slow.test");
    hook.setDelay(std::chrono::milliseconds(200));
    corvane_test::LogCapture log;
    EXPECT_FALSE(uri.canonicalize(ACE_Time_Value(0, 10000)));
    EXPECT_EQ(log.count("server.resolve() failed : GHBN_TIMEOUT"), 1u);
    expectFields(uri, {"sip", "", "slow.test", "5060"}, "after the time-out");
}

TEST_F(Canonicalize, CanonicalizeUriRebuildsTheTextOrCopiesTheInput) {
    const struct {
        const char* in;
        bool ok;
        const char* out;
    } cases[] = {
        {"sip:alice@127.0.0.1", true, "sip:alice@127.0.0.1:5060"},
        {"sip:bob@localhost;transport=tcp", true, "sip:bob@127.0.0.1:5060"},
        {"SIP:carol@127.0.0.1:5070?Subject=x", true, "sip:carol@127.0.0.1:5070"},
        {"tel:+15551234", false, "tel:+15551234"},
        {"not a uri", false, "not a uri"},
    };
    for (const auto& c : cases) {
        std::string out = "stale";
        EXPECT_EQ(Tarvik::canonicalizeURI(c.in, out, ACE_Time_Value::max_time), c.ok) << c.in;
        EXPECT_EQ(out, c.out);
    }
}
