#include <gtest/gtest.h>

#include <string>

#include "support/LogCapture.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUser.h"
#include "vocal/TelUrl.h"
#include "vocal/SipUrl.h"
#include "vocal/UnknownUrl.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::CountedPtr;
using Vocal::TextBuffer;

namespace {

CountedPtr<BaseUrl> url(const char* in_szText) { return BaseUrl::decode(TextBuffer(in_szText)); }

const int kDebug = 10000;
const int kError = 40000;

// Each parser's constructor throws its own exception after logging why, at ERROR, and the two exceptions.
TEST(UrlParsers, RejectedTextsThrowFromTheConstructorAfterLoggingTheInnerFailure) {
    const std::string noColon = "parse failed: could not find ':' separating URL type from body";
    // Each line: the start of the message, then "*" and a part it contains.
    const struct {
        char parser;  // 'S'ip, 'T'el, 'I'm, 'P'res
        const char* input;
        std::vector<std::string> lines;
    } rows[] = {
        {'S', "sip:alice@hostA:50a0", {"Failed in Decode (SIP_URL): sip:alice@hostA:50a0"}},
        {'S', "sip:alice@hostA:+5060", {"Failed in Decode (SIP_URL): sip:alice@hostA:+5060"}},
        {'S', "sip:alice@hostA: 5060", {"Failed in Decode (SIP_URL): sip:alice@hostA: 5060"}},
        {'S', "sip:alice@hostA:5060:5070", {"Failed in Decode (SIP_URL): sip:alice@hostA:5060:5070"}},
        {'S', "sip:alice@[2001:db8::1", {"Failed in Decode (SIP_URL): sip:alice@[2001:db8::1"}},
        {'S', "sip:alice@:5060", {"Failed in Decode (SIP_URL): sip:alice@:5060"}},
        {'S', "sip:;transport=tcp", {"Failed in Decode (SIP_URL): sip:;transport=tcp"}},
        {'S', "sip:alice@;lr", {"Failed in Decode (SIP_URL): sip:alice@;lr"}},
        {'S', "alice@hostA", {noColon + ": alice@hostA", "Failed in Decode (SIP_URL): alice@hostA"}},
        {'S', "sips:alice@hostA", {"parse failed: scheme not SIP: sips:alice@hostA", "Failed in Decode (SIP_URL): sips:alice@hostA"}},
        {'S', "hostA?x:y", {noColon + ": hostA?x:y", "Failed in Decode (SIP_URL): hostA?x:y"}},
        {'T', "tel:", {"Failed in Decode (TEL_URL)"}},
        {'T', "5551234", {noColon, "Failed in Decode (TEL_URL)"}},
        {'T', "sip:5551234", {"parse failed: scheme not TEL", "Failed in Decode (TEL_URL)"}},
        {'T', "tels:1", {"parse failed: scheme not TEL", "Failed in Decode (TEL_URL)"}},
        {'I', "im:alice", {"Failed to parse (im) URL", "Failed in Decode (im) URL"}},
        {'I', "im:alice@hostA;x=1", {"Failed to parse (im) URL", "Failed in Decode (im) URL"}},
        {'P', "PRES:alice", {"Failed to parse (PRES) URL", "Failed in Decode (PRES) URL"}},
        {'I', "alice@hostA", {noColon, "Failed in Decode (im) URL"}},
        {'I', "pres:a@h", {"parse failed: scheme not im", "Failed in Decode (im) URL"}},
        {'P', "im:a@h", {"parse failed: scheme not pres", "Failed in Decode (pres) URL"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const char* exception = row.parser == 'S' ? "SipUrl" : row.parser == 'T' ? "TelUrl" : "ImpBaseUrl";
        std::vector<std::string> lines = row.lines;
        lines.push_back(std::string("Exception at ") + exception + ".cpp:*" +
                        (row.parser == 'S'   ? " Failed in Decode (SIP_URL)"
                         : row.parser == 'T' ? " Failed in Decode (TEL_URL)"
                                             : " Failed in Decode URL"));
        lines.push_back(std::string("Exception at ") + exception + ".cpp:* failed in Decode");  // the constructor's
        LogCapture capture;
        try {
            const TextBuffer text(row.input);
            switch (row.parser) {
                case 'S': Vocal::SipUrl{text}; break;
                case 'T': Vocal::TelUrl{text}; break;
                case 'I': Vocal::ImUrl{text}; break;
                case 'P': Vocal::PresUrl{text}; break;
            }
            ADD_FAILURE() << "no exception";
        } catch (const VException& e) {
            EXPECT_EQ(e.getName(), std::string(exception) + "ParserException");
            EXPECT_EQ(e.getDescription(), "failed in Decode");
            EXPECT_EQ(e.getFileName(), std::string(exception) + ".cpp");
            EXPECT_EQ(e.getError(), 0u);
        }
        const auto records = capture.records();
        ASSERT_EQ(records.size(), lines.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            const size_t star = lines[i].find('*');
            EXPECT_EQ(records[i].message.rfind(lines[i].substr(0, star), 0), 0u) << records[i].message;
            if (star != std::string::npos) {
                EXPECT_NE(records[i].message.find(lines[i].substr(star + 1)), std::string::npos) << records[i].message;
            }
        }
        EXPECT_EQ(records[lines.size() - 3].level, kError);
    }
    EXPECT_THROW(url("TEL:"), Vocal::TelUrlParserException);
    EXPECT_THROW(url("im:someone"), Vocal::ImpBaseUrlParserException);
    EXPECT_THROW(url("pres:someone"), Vocal::ImpBaseUrlParserException);
}

// ---- TelUrl

TEST(TelUrl, DecodesTheNumberIntoATelephoneSubscriberUser) {
    LogCapture capture;
    const CountedPtr<BaseUrl> tel = url("tel:+1-555-1234;isub=12");
    ASSERT_EQ(tel->getType(), Vocal::TEL_URL);
    EXPECT_EQ(tel->encode().str(), "tel:+1-555-1234");
    EXPECT_EQ(tel->encodeAddress().str(), "+1-555-1234");
    EXPECT_EQ(tel->getUserValue().str(), "+1-555-1234");
    EXPECT_FALSE(tel->isLooseRouting());
    const CountedPtr<Vocal::BaseUser> user = tel->getUser();
    const auto& subscriber = dynamic_cast<const Vocal::SipTelSubscriberUser&>(*user);
    EXPECT_TRUE(subscriber.isGlobal());
    EXPECT_EQ(subscriber.getNumber().str(), "1-555-1234");
    EXPECT_EQ(subscriber.getIsub().str(), "12");
    EXPECT_EQ(capture.messages("corvane.media.vocal"), std::vector<std::string>{"completed decoding in the TelUrl"});
    EXPECT_EQ(dynamic_cast<const Vocal::TelUrl&>(*url("TeL:1")).getScheme().str(), "TeL");
}

TEST(TelUrl, EqualityLogsUsersAndValuelessSchemeLines) {
    const CountedPtr<BaseUrl> a = url("tel:1");
    const CountedPtr<BaseUrl> b = url("TEL:2");
    LogCapture capture;
    EXPECT_FALSE(a->areEqual(b));
    const std::vector<std::string> expected = {"Url operator ==  function", "this.user= 1", "other.user= 2",
                                               "this.schemeName = ", "other.schemeName= ",
                                               "TelUrl comparison: , returning: false"};
    EXPECT_EQ(capture.messages("corvane.media.vocal"), expected);
}

TEST(TelUrl, SetUserKeepsOnlyTelephoneSubscriberUsers) {
    Vocal::TelUrl tel{TextBuffer("tel:123")};
    tel.setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("alice"))));
    EXPECT_EQ(tel.encode().str(), "tel:123");
    tel.setUser(CountedPtr<Vocal::BaseUser>());
    EXPECT_EQ(tel.encode().str(), "tel:123");
    CountedPtr<Vocal::BaseUser> given(new Vocal::SipTelSubscriberUser(TextBuffer("+456")));
    tel.setUser(given);
    given->decode("+999");  // the URL keeps a copy of its own
    EXPECT_EQ(tel.encode().str(), "tel:+456");

    Vocal::TelUrl empty;
    EXPECT_EQ(empty.encode().str(), "tel:");
    EXPECT_TRUE(empty.getUser().isNull());
    EXPECT_TRUE(empty.setUserValue("789", ""));
    EXPECT_EQ(empty.encode().str(), "tel:789");

    const CountedPtr<BaseUrl> copy = tel.duplicate();
    empty = tel;  // an assigned copy owns its user too
    tel.setUserValue("+1", "");
    EXPECT_EQ(copy->encode().str(), "tel:+456");
    EXPECT_EQ(empty.encode().str(), "tel:+456");
}

// ---- ImUrl, PresUrl

TEST(ImpBaseUrl, DecodesUserAndHost) {
    const struct {
        const char* input;
        Vocal::UrlType type;
        const char* user;
        const char* host;
        const char* encode;
    } cases[] = {
        {"im:alice@hostA", Vocal::IM_URL, "alice", "hostA", "im:alice@hostA"},
        {"IM:Alice@HostA", Vocal::IM_URL, "Alice", "HostA", "IM:Alice@HostA"},
        {"pres:bob@example.com", Vocal::PRES_URL, "bob", "example.com", "pres:bob@example.com"},
        {"im:a;b@h@i", Vocal::IM_URL, "a;b", "h@i", "im:a;b@h@i"},
        {"im:@h", Vocal::IM_URL, "", "h", "im:h"},
        {"pres:a@", Vocal::PRES_URL, "a", "", "pres:a@"},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        const CountedPtr<BaseUrl> imp = url(c.input);
        ASSERT_EQ(imp->getType(), c.type) << c.input;
        EXPECT_EQ(imp->getUserValue().str(), c.user) << c.input;
        EXPECT_EQ(dynamic_cast<const Vocal::ImpBaseUrl&>(*imp).getHost().str(), c.host) << c.input;
        EXPECT_EQ(imp->encode().str(), c.encode) << c.input;
        EXPECT_EQ(imp->encodeAddress().str(), c.encode) << c.input;
        EXPECT_TRUE(imp->getUser().isNull());
        EXPECT_EQ(capture.messages("corvane.media.vocal"),
                  std::vector<std::string>{"completed decoding in the ImpBaseUrl"});
    }
}

TEST(ImpBaseUrl, EqualityLogsSchemesUsersAndHosts) {
    LogCapture capture;
    url("im:a@h")->areEqual(url("IM:b@h"));
    const std::vector<std::string> expected = {
        "Url operator ==  function", "this.schemeName= im", "other.schemeName= IM", "this.user= a",
        "other.user= b", "this.host= h", "other.host= h", "ImpBaseUrl comparison: , returning: false"};
    std::vector<std::string> messages = capture.messages("corvane.media.vocal");
    messages.erase(messages.begin(), messages.begin() + 2);  // the two decodings
    EXPECT_EQ(messages, expected);
}

TEST(ImpBaseUrl, SetUserValueStoresTheTextAndSetUserDoesNothing) {
    Vocal::PresUrl pres{TextBuffer("pres:a@h")};
    EXPECT_TRUE(pres.setUserValue("bob", "phone"));
    pres.setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("carol"))));
    EXPECT_EQ(pres.encode().str(), "pres:bob@h");
    EXPECT_EQ(pres.duplicate()->getType(), Vocal::PRES_URL);
    EXPECT_EQ(Vocal::ImUrl().encode().str(), "im:");
}

// ---- UnknownUrl

TEST(UnknownUrl, KeepsTheTextAndIgnoresUsers) {
    const CountedPtr<BaseUrl> unknown = url("foo:bar");
    ASSERT_EQ(unknown->getType(), Vocal::UNKNOWN_URL);
    EXPECT_EQ(unknown->encode().str(), "foo:bar");
    EXPECT_EQ(unknown->encodeAddress().str(), "foo:bar");
    EXPECT_EQ(unknown->getUserValue().str(), "");
    EXPECT_EQ(unknown->getUser()->getUserType(), 2);
    EXPECT_FALSE(unknown->isLooseRouting());
    EXPECT_TRUE(unknown->areEqual(unknown->duplicate()));
    EXPECT_FALSE(unknown->areEqual(CountedPtr<BaseUrl>()));
    EXPECT_FALSE(unknown->isLessThan(CountedPtr<BaseUrl>()));
    EXPECT_TRUE(unknown->setUserValue("alice", ""));
    unknown->setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("x"))));
    EXPECT_EQ(unknown->encode().str(), "foo:bar");
}

// Equality and order of TEL, IM, PRES and other URLs (SIP URLs have tables of their own).
TEST(OtherUrls, EqualityAndOrderFollowEachTypesRule) {
    const int kAny = -1;  // not checked
    const struct {
        const char* a;
        const char* b;
        int equal, aLess, bLess;  // a == b, a < b, b < a: 1 or 0
    } rows[] = {
        // TEL: the scheme ignores case in equality, not in order; then the users.
        {"tel:123", "TEL:123", 1, 0, 1},
        {"tel:123", "tel:124", 0, 1, 0},
        {"tel:+123", "tel:123", 0, 0, 0},  // the global flag takes no part in order
        {"tel:123", "tel:123;isub=1", 0, 1, 0},
        {"TEL:2", "tel:1", 0, 1, 1},  // "TEL" < "tel", and "1" < "2" for the other way
        {"tel:123", "sip:123@h", 0, 0, 0},
        // IM and PRES: equal ignoring case with the same type; ordered by the user text alone.
        {"IM:Alice@HostA", "im:alice@hosta", 1, 1, 0},
        {"im:alice@hostA", "pres:alice@hostA", 0, 0, 0},
        {"im:alice@hostA", "im:alice@hostB", 0, 0, 0},
        {"im:alice@hostA", "im:alic@hostA", 0, 0, 1},
        {"im:a@z", "im:b@a", 0, 1, 0},
        {"IM:a@x", "im:a@x", 1, 0, 0},
        {"im:a@x", "pres:b@x", 0, 0, kAny},
        // Others: equal only to the same text of their own type; ordered against any URL's address.
        {"foo:bar", "foo:bar", 1, 0, 0},
        {"foo:bar", "FOO:bar", 0, kAny, kAny},
        {"sip:a@h", "Sip_:a@h", 0, kAny, kAny},
        {"im:a@h", "imx:a@h", 0, kAny, kAny},
        {"x:sip:h", "sip:h", 0, kAny, kAny},  // a SipUrl with that address text is another type
        {"foo:bar", "sip:a@h;lr", kAny, 1, kAny},  // against "sip:a@h"
        {"zzz:a@h", "sip:a@h", kAny, 0, kAny},
        {"+0", "tel:1", kAny, 1, kAny},  // against "1"
        {"x", "tel:1", kAny, 0, kAny},
        {"a", "im:b@h", kAny, 1, kAny},
        {"foo:bar", "foo:baz", 0, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " , " + row.b);
        const CountedPtr<BaseUrl> a = url(row.a);
        const CountedPtr<BaseUrl> b = url(row.b);
        if (row.equal != kAny) {
            EXPECT_EQ(a->areEqual(b), row.equal == 1);
        }
        if (row.aLess != kAny) {
            EXPECT_EQ(a->isLessThan(b), row.aLess == 1);
        }
        if (row.bLess != kAny) {
            EXPECT_EQ(b->isLessThan(a), row.bLess == 1);
        }
    }
    // A TEL URL without a user equals any TEL URL and comes before one with a user.
    const Vocal::TelUrl noUser;
    EXPECT_TRUE(noUser.areEqual(url("tel:999").get()));
    EXPECT_TRUE(url("tel:999")->areEqual(&noUser));
    EXPECT_TRUE(noUser.isLessThan(url("tel:1")));
    EXPECT_FALSE(url("tel:1")->isLessThan(noUser.duplicate()));
    EXPECT_FALSE(noUser.isLessThan(noUser.duplicate()));
    EXPECT_TRUE(url("pres:a@b")->areEqual(url("pres:a@b")->duplicate()));
    for (const char* text : {"tel:1", "sip:a@h", "im:a@h", "foo:bar"})
        EXPECT_FALSE(url(text)->areEqual(static_cast<const BaseUrl*>(nullptr))) << text;
}

}  // namespace
