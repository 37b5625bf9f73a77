#include <gtest/gtest.h>

#include <string>

#include "support/LogCapture.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUser.h"
#include "vocal/TelUrl.h"
#include "vocal/UnknownUrl.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::CountedPtr;
using Vocal::TextBuffer;

namespace {

CountedPtr<BaseUrl> url(const char* in_szText) { return BaseUrl::decode(TextBuffer(in_szText)); }

const int kDebug = 10000;
const int kError = 40000;

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

struct TelFailCase {
    const char* input;
    const char* debugLine;
};

TEST(TelUrl, RejectedTextsThrowFromTheConstructor) {
    const TelFailCase cases[] = {
        {"tel:", nullptr},
        {"5551234", "parse failed: could not find ':' separating URL type from body"},
        {"sip:5551234", "parse failed: scheme not TEL"},
        {"tels:1", "parse failed: scheme not TEL"},
    };
    for (const TelFailCase& c : cases) {
        LogCapture capture;
        try {
            Vocal::TelUrl tel{TextBuffer(c.input)};
            ADD_FAILURE() << "no exception for " << c.input;
        } catch (const Vocal::TelUrlParserException& e) {
            EXPECT_EQ(e.getName(), "TelUrlParserException");
            EXPECT_EQ(e.getDescription(), "failed in Decode");
            EXPECT_EQ(e.getFileName(), "TelUrl.cpp");
            EXPECT_EQ(e.getError(), 0u);
        }
        const auto records = capture.records();
        const size_t first = c.debugLine ? 1 : 0;
        ASSERT_EQ(records.size(), first + 3) << c.input;
        if (c.debugLine) {
            EXPECT_EQ(records[0].message, c.debugLine);
        }
        EXPECT_EQ(records[first].message, "Failed in Decode (TEL_URL)");
        EXPECT_EQ(records[first].level, kError);
        EXPECT_EQ(records[first + 1].message.rfind("Exception at TelUrl.cpp:", 0), 0u);
        EXPECT_NE(records[first + 1].message.find(" Failed in Decode (TEL_URL)"), std::string::npos);
        EXPECT_NE(records[first + 2].message.find(" failed in Decode"), std::string::npos);
    }
    EXPECT_THROW(url("TEL:"), Vocal::TelUrlParserException);
}

TEST(TelUrl, EqualityComparesSchemesIgnoringCaseAndUsersWhenBothHaveOne) {
    EXPECT_TRUE(url("tel:123")->areEqual(url("TEL:123")));
    EXPECT_FALSE(url("tel:123")->areEqual(url("tel:124")));
    EXPECT_FALSE(url("tel:+123")->areEqual(url("tel:123")));
    EXPECT_FALSE(url("tel:123")->areEqual(url("tel:123;isub=1")));
    EXPECT_FALSE(url("tel:123")->areEqual(url("sip:123@h")));
    const Vocal::TelUrl noUser;
    EXPECT_TRUE(noUser.areEqual(url("tel:999").get()));
    EXPECT_TRUE(url("tel:999")->areEqual(&noUser));
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

TEST(TelUrl, OrderingTestsTheSchemeThenStillTheUsers) {
    const Vocal::TelUrl noUser;
    const struct {
        const char* a;
        const char* b;
        bool aLess;
        bool bLess;
    } cases[] = {
        {"tel:1", "tel:2", true, false},
        {"TEL:2", "tel:1", true, true},  // "TEL" < "tel", and "1" < "2" for the other way
        {"tel:1", "TEL:1", false, true},
        {"tel:+1", "tel:1", false, false},
        {"tel:1", "sip:1@h", false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(url(c.a)->isLessThan(url(c.b)), c.aLess) << c.a << " < " << c.b;
        EXPECT_EQ(url(c.b)->isLessThan(url(c.a)), c.bLess) << c.b << " < " << c.a;
    }
    EXPECT_TRUE(noUser.isLessThan(url("tel:1")));
    EXPECT_FALSE(url("tel:1")->isLessThan(noUser.duplicate()));
    EXPECT_FALSE(noUser.isLessThan(noUser.duplicate()));
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
    tel.setUserValue("+1", "");
    EXPECT_EQ(copy->encode().str(), "tel:+456");
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

TEST(ImpBaseUrl, RejectedTextsThrowFromTheConstructor) {
    const struct {
        const char* input;
        bool pres;
        std::vector<std::string> lines;  // before the two exception lines
    } cases[] = {
        {"im:alice", false, {"Failed to parse (im) URL", "Failed in Decode (im) URL"}},
        {"im:alice@hostA;x=1", false, {"Failed to parse (im) URL", "Failed in Decode (im) URL"}},
        {"PRES:alice", true, {"Failed to parse (PRES) URL", "Failed in Decode (PRES) URL"}},
        {"alice@hostA", false,
         {"parse failed: could not find ':' separating URL type from body", "Failed in Decode (im) URL"}},
        {"pres:a@h", false, {"parse failed: scheme not im", "Failed in Decode (im) URL"}},
        {"im:a@h", true, {"parse failed: scheme not pres", "Failed in Decode (pres) URL"}},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        try {
            if (c.pres) {
                Vocal::PresUrl pres{TextBuffer(c.input)};
            } else {
                Vocal::ImUrl im{TextBuffer(c.input)};
            }
            ADD_FAILURE() << "no exception for " << c.input;
        } catch (const Vocal::ImpBaseUrlParserException& e) {
            EXPECT_EQ(e.getName(), "ImpBaseUrlParserException");
            EXPECT_EQ(e.getDescription(), "failed in Decode");
            EXPECT_EQ(e.getFileName(), "ImpBaseUrl.cpp");
            EXPECT_EQ(e.getError(), 0u);
        }
        std::vector<std::string> messages = capture.messages("corvane.media.vocal");
        ASSERT_EQ(messages.size(), c.lines.size() + 2) << c.input;
        for (size_t i = 0; i < c.lines.size(); ++i) EXPECT_EQ(messages[i], c.lines[i]) << c.input;
        EXPECT_TRUE(capture.contains(kError, c.lines.back()));
        EXPECT_EQ(messages[c.lines.size()].rfind("Exception at ImpBaseUrl.cpp:", 0), 0u);
        EXPECT_NE(messages[c.lines.size()].find(" Failed in Decode URL"), std::string::npos);
    }
    EXPECT_THROW(url("im:someone"), Vocal::ImpBaseUrlParserException);
    EXPECT_THROW(url("pres:someone"), Vocal::ImpBaseUrlParserException);
}

TEST(ImpBaseUrl, EqualityIgnoresCaseAndNeedsTheSameType) {
    EXPECT_TRUE(url("IM:Alice@HostA")->areEqual(url("im:alice@hosta")));
    EXPECT_FALSE(url("im:alice@hostA")->areEqual(url("pres:alice@hostA")));
    EXPECT_FALSE(url("im:alice@hostA")->areEqual(url("im:alice@hostB")));
    EXPECT_FALSE(url("im:alice@hostA")->areEqual(url("im:alic@hostA")));
    EXPECT_TRUE(url("pres:a@b")->areEqual(url("pres:a@b")->duplicate()));

    LogCapture capture;
    url("im:a@h")->areEqual(url("IM:b@h"));
    const std::vector<std::string> expected = {
        "Url operator ==  function", "this.schemeName= im", "other.schemeName= IM", "this.user= a",
        "other.user= b", "this.host= h", "other.host= h", "ImpBaseUrl comparison: , returning: false"};
    std::vector<std::string> messages = capture.messages("corvane.media.vocal");
    messages.erase(messages.begin(), messages.begin() + 2);  // the two decodings
    EXPECT_EQ(messages, expected);
}

TEST(ImpBaseUrl, OrderingLooksOnlyAtTheUserText) {
    EXPECT_TRUE(url("im:a@z")->isLessThan(url("im:b@a")));
    EXPECT_FALSE(url("im:b@a")->isLessThan(url("im:a@z")));
    EXPECT_FALSE(url("im:a@x")->isLessThan(url("im:a@y")));
    EXPECT_FALSE(url("im:a@y")->isLessThan(url("im:a@x")));
    EXPECT_FALSE(url("IM:a@x")->isLessThan(url("im:a@x")));
    EXPECT_FALSE(url("im:a@x")->isLessThan(url("pres:b@x")));
    EXPECT_TRUE(url("im:A@x")->isLessThan(url("im:a@x")));  // byte-wise: 'A' < 'a'
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

TEST(UnknownUrl, KeepsTheTextAndEqualsOnlyTheSameText) {
    const CountedPtr<BaseUrl> unknown = url("foo:bar");
    ASSERT_EQ(unknown->getType(), Vocal::UNKNOWN_URL);
    EXPECT_EQ(unknown->encode().str(), "foo:bar");
    EXPECT_EQ(unknown->encodeAddress().str(), "foo:bar");
    EXPECT_EQ(unknown->getUserValue().str(), "");
    EXPECT_EQ(unknown->getUser()->getUserType(), 2);
    EXPECT_FALSE(unknown->isLooseRouting());
    EXPECT_TRUE(unknown->areEqual(url("foo:bar")));
    EXPECT_TRUE(unknown->areEqual(unknown->duplicate()));
    EXPECT_FALSE(unknown->areEqual(url("FOO:bar")));
    EXPECT_FALSE(url("sip:a@h")->areEqual(url("Sip_:a@h")));
    EXPECT_FALSE(url("im:a@h")->areEqual(url("imx:a@h")));
    // A SipUrl whose address has the same text is still another type.
    EXPECT_FALSE(url("x:sip:h")->areEqual(url("sip:h")));
    EXPECT_FALSE(unknown->areEqual(CountedPtr<BaseUrl>()));
    EXPECT_TRUE(unknown->setUserValue("alice", ""));
    unknown->setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("x"))));
    EXPECT_EQ(unknown->encode().str(), "foo:bar");
}

TEST(UnknownUrl, OrdersAgainstTheAddressOfAUrlOfAnyType) {
    EXPECT_TRUE(url("foo:bar")->isLessThan(url("sip:a@h;lr")));  // against "sip:a@h"
    EXPECT_FALSE(url("zzz:a@h")->isLessThan(url("sip:a@h")));
    EXPECT_TRUE(url("+0")->isLessThan(url("tel:1")));            // against "1"
    EXPECT_FALSE(url("x")->isLessThan(url("tel:1")));
    EXPECT_TRUE(url("a")->isLessThan(url("im:b@h")));
    EXPECT_TRUE(url("foo:bar")->isLessThan(url("foo:baz")));
    EXPECT_FALSE(url("foo:bar")->isLessThan(url("foo:bar")));
    EXPECT_FALSE(url("foo:bar")->isLessThan(CountedPtr<BaseUrl>()));
}

}  // namespace
