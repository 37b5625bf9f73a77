#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUrl.h"
#include "vocal/SipUser.h"
#include "vocal/TelUrl.h"
#include "vocal/UnknownUrl.h"
#include "vocal/VException.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::CountedPtr;
using Vocal::SipUrl;
using Vocal::TextBuffer;

namespace {

CountedPtr<BaseUrl> url(const std::string& in_text) { return BaseUrl::decode(TextBuffer(in_text)); }

// The log of the URL model: "E message / D message" (ERROR, DEBUG), line numbers as N.
std::string logOf(const LogCapture& in_capture) {
    std::string log;
    for (const auto& record : in_capture.records()) {
        log += std::string(log.empty() ? "" : " / ") + (record.level == 40000 ? "E " : "D ") + record.message;
    }
    return std::regex_replace(log, std::regex("cpp:[0-9]+ "), "cpp:N ");
}

const std::string kNoColon = "D parse failed: could not find ':' separating URL type from body";

TEST(UrlDecode, ChoosesTheClassByTheSchemeAndKeepsAnyOtherTextAsUnknown) {
    const std::string rows[][3] = {  // input, type, log
        {"sIp:hostA", "SIP_URL", ""},
        {"Tel:123", "TEL_URL", "D completed decoding in the TelUrl"},
        {"im:a@b", "IM_URL", "D completed decoding in the ImpBaseUrl"},
        {"PRES:a@b", "PRES_URL", "D completed decoding in the ImpBaseUrl"},
        {"sips:a@h", "UNKNOWN_URL", "D parse failed: scheme not SIP or TEL: sips:a@h"},
        {" sip:a@b", "UNKNOWN_URL", "D parse failed: scheme not SIP or TEL:  sip:a@b"},
        {"alice", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <alice>"},
        {"", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        LogCapture capture;
        const TextBuffer text(row[0]);
        const CountedPtr<BaseUrl> decoded = BaseUrl::decode(text);
        EXPECT_EQ(Vocal::getUrlTypeName(decoded->getType()), row[1]);
        EXPECT_EQ(text.str(), row[0]);
        EXPECT_EQ(logOf(capture), row[2]);
        EXPECT_TRUE(decoded->getType() != Vocal::UNKNOWN_URL || decoded->encode().str() == row[0]);
    }
    EXPECT_STREQ(Vocal::getUrlTypeName(static_cast<Vocal::UrlType>(5)), "");
}

TEST(UrlDecode, RejectedTextThrowsTheParsersExceptionAfterLoggingWhy) {
    // Parser, input, log ahead of the two "Exception at" lines.
    const std::string rows[][3] = {
        {"sip", "sip:alice@hostA:50a0", "E Failed in Decode (SIP_URL): sip:alice@hostA:50a0"},
        {"sip", "sip:a@h:+5060", "E Failed in Decode (SIP_URL): sip:a@h:+5060"},
        {"sip", "sip:a@h:5060:5070", "E Failed in Decode (SIP_URL): sip:a@h:5060:5070"},
        {"sip", "sip:a@[2001:db8::1", "E Failed in Decode (SIP_URL): sip:a@[2001:db8::1"},
        {"sip", "sip:;transport=tcp", "E Failed in Decode (SIP_URL): sip:;transport=tcp"},
        {"sip", "alice@hostA", kNoColon + ": alice@hostA / E Failed in Decode (SIP_URL): alice@hostA"},
        {"sip", "sips:a@h", "D parse failed: scheme not SIP: sips:a@h / E Failed in Decode (SIP_URL): sips:a@h"},
        {"tel", "tel:", "E Failed in Decode (TEL_URL)"},
        {"tel", "5551234", kNoColon + " / E Failed in Decode (TEL_URL)"},
        {"tel", "tels:1", "D parse failed: scheme not TEL / E Failed in Decode (TEL_URL)"},
        {"im", "im:alice", "E Failed to parse (im) URL / E Failed in Decode (im) URL"},
        {"im", "im:a@h;x=1", "E Failed to parse (im) URL / E Failed in Decode (im) URL"},
        {"pres", "PRES:alice", "E Failed to parse (PRES) URL / E Failed in Decode (PRES) URL"},
        {"im", "alice@hostA", kNoColon + " / E Failed in Decode (im) URL"},
        {"im", "pres:a@h", "D parse failed: scheme not im / E Failed in Decode (im) URL"},
        {"pres", "im:a@h", "D parse failed: scheme not pres / E Failed in Decode (pres) URL"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        const std::string& parser = row[0];
        const std::string cls = parser == "sip" ? "SipUrl" : parser == "tel" ? "TelUrl" : "ImpBaseUrl";
        const std::string inner = parser == "sip" ? "(SIP_URL)" : parser == "tel" ? "(TEL_URL)" : "URL";
        LogCapture capture;
        try {
            const TextBuffer text(row[1]);
            if (parser == "sip") SipUrl{text};
            if (parser == "tel") Vocal::TelUrl{text};
            if (parser == "im") Vocal::ImUrl{text};
            if (parser == "pres") Vocal::PresUrl{text};
            ADD_FAILURE() << "no exception";
        } catch (const VException& e) {
            EXPECT_EQ(e.getName(), cls + "ParserException");
            EXPECT_EQ(e.getDescription() + " " + e.getFileName(), "failed in Decode " + cls + ".cpp");
            EXPECT_EQ(e.getError(), 0u);
        }
        const std::string at = " / D Exception at " + cls + ".cpp:N ";
        EXPECT_EQ(logOf(capture), row[2] + at + "Failed in Decode " + inner + at + "failed in Decode");
    }
    // BaseUrl::decode hands the chosen class's exception on.
    EXPECT_THROW(url("SIP:a@[::1"), Vocal::SipUrlParserException);
    EXPECT_THROW(url("TEL:"), Vocal::TelUrlParserException);
    EXPECT_THROW(url("pres:someone"), Vocal::ImpBaseUrlParserException);
}

TEST(SipUrl, DecodesFieldsAndEncodesInItsFixedOrder) {
    const struct {
        std::string input;
        const char* encode;  // the address is the part before the first ";"
        bool lr;
    } rows[] = {
        {"sip:alice@hostA:5060;lr;transport=tcp", "sip:alice@hostA:5060;lr;transport=tcp", false},  // one name
        {"sip:a@h;ttl=1;lr;x", "sip:a@h;ttl=1", false},
        // Headers and everything after the first "?" are dropped; so is an empty port.
        {"sip:alice@hostA:;maddr=x?y;lr", "sip:alice@hostA;maddr=x", false},
        // Only the last unknown parameter survives; a later known one replaces the earlier.
        {"sip:a@h;foo=1;bar=2;transport=tcp;transport=udp", "sip:a@h;transport=udp;bar=2", false},
        {"sip:bob@b.example:5070;method=INVITE;maddr=239.1.1.1;ttl=15;user=ip;transport=udp;lr",
         "sip:bob@b.example:5070;transport=udp;ttl=15;maddr=239.1.1.1;user=ip;method=INVITE;lr", true},
        {"sip:a@h; transport =tls;Ttl= 1 ", "sip:a@h;transport=tls;Ttl= 1 ", false},  // names are trimmed
        {"SIP:Alice:pw@HOSTA:0", "SIP:Alice:pw@HOSTA", false},
        {"sip:@hostA", "sip:hostA", false},
        {"sip:alice@", "sip:alice@", false},
        {"sip:", "sip:", false},
        // IPv6 references keep their brackets; text around them is dropped.
        {"sip:alice@foo[2001:db8::1]:5070", "sip:alice@[2001:db8::1]:5070", false},
        {"sip:[::1]junk:5062;lr", "sip:[::1]:5062;lr", true},
        // Parameters after "user=phone" belong to the number and are written last.
        {"sip:5551234;isub=12@h;user=phone", "sip:5551234@h;user=phone;isub=12", false},
        {"sip:555@h;isub=12;user=Phone", "sip:555@h;user=Phone;isub=12", false},
        {"sip:+1555@gw:5061;user=phone;tsp=a;lr", "sip:+1555@gw:5061;user=phone;lr;tsp=a", true},
        {"sip:+1@gw;user=phone;postd=pp;phone-context=ex;zz=9", "sip:+1@gw;user=phone;postd=pp;phone-context=ex;zz=9",
         false},
        {std::string("sip:a@h;transport\0x=tcp;lr\0y", 28), "sip:a@h;transport=tcp;lr", true},  // names end at a NUL
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const CountedPtr<BaseUrl> decoded = url(row.input);
        ASSERT_EQ(decoded->getType(), Vocal::SIP_URL);
        EXPECT_EQ(decoded->encode().str(), row.encode);
        EXPECT_EQ(decoded->toString(), row.encode);
        EXPECT_EQ(decoded->encodeAddress().str(), std::string(row.encode).substr(0, std::string(row.encode).find(';')));
        EXPECT_EQ(decoded->isLooseRouting(), row.lr);
    }
    Vocal::setUrlParserRethrow(false);  // switched off, the partly decoded URL is kept
    EXPECT_EQ(url("sip:a@hostA:50a0;lr")->encode().str(), "sip:hostA:50a0");
    Vocal::setUrlParserRethrow(true);
}

// A class of some other code that reports a known URL type.
struct Impostor : Vocal::UnknownUrl {
    explicit Impostor(Vocal::UrlType in_type) : Vocal::UnknownUrl(TextBuffer("x:y")), type(in_type) {}
    Vocal::UrlType getType() const override { return type; }
    Vocal::UrlType type;
};

TEST(Urls, EqualityAndOrderFollowEachTypesRule) {
    const struct {
        const char* a;
        const char* b;
        int equal, aLess, bLess;  // a == b, a < b, b < a; -1: not checked
    } rows[] = {
        // SIP: scheme, host, ttl, user parameter, other value ignore case; absent port 5060 and transport udp.
        {"SIP:Alice@HOSTA;ttl=a;x=ABC", "sip:Alice@hostA:5060;ttl=A;x=abc;transport=udp", 1, 0, 1},
        {"sip:h;user=IP", "sip:h;user=ip", 1, -1, -1},  {"sip:alice@h", "sip:Alice@h", 0, 0, 1},
        {"sip:a@h", "sip:b@h", 0, 1, 0},                {"sip:h", "sip:a@h", 0, 1, 0},  // no user comes first
        {"sip:a@h", "sip:a@h:05060", 0, 1, 0},          {"sip:a@h;maddr=H", "sip:a@h;maddr=h", 0, 1, 0},
        {"sip:a@h;method=INVITE", "sip:a@h;method=invite", 0, 1, 0},
        // Transport, host, lr and the other name take no part in order.
        {"sip:a@h;transport=tcp", "sip:a@h;transport=TCP", 0, 0, 0}, {"sip:a@hostA;x=1;lr", "sip:a@hostB;y=1", 0, 0, 0},
        {"sip:b@h;ttl=1", "sip:a@h;ttl=2", 0, 0, 1},    {"sip:a@h;ttl=2;maddr=a", "sip:a@h;ttl=1;maddr=b", 0, 0, 1},
        {"sip:h;user=b;method=a", "sip:h;user=a;method=b", 0, 0, 1}, {"sip:h:2;x=a", "sip:h:1;x=b", 0, 1, 0},
        {"sip:\xe9@h", "sip:z@h", 0, 0, 1},  // unsigned bytes
        {"sip:1;isub=9@h;user=phone", "sip:2;isub=1@h;user=phone", 0, 1, 1},
        {"sip:1@h;user=phone", "sip:1@h", 0, -1, -1},   {"sip:a@h", "tel:a", 0, 0, 0},
        // TEL: the scheme ignores case in equality, not in order; then the users.
        {"tel:123", "TEL:123", 1, 0, 1}, {"tel:123", "tel:124", 0, 1, 0}, {"tel:+123", "tel:123", 0, 0, 0},
        {"TEL:2", "tel:1", 0, 1, 1},
        // IM and PRES: equal ignoring case with the same type; ordered by the user text alone.
        {"IM:Alice@HostA", "im:alice@hosta", 1, 1, 0}, {"im:alice@hostA", "pres:alice@hostA", 0, 0, 0},
        {"im:a@hostA", "im:a@hostB", 0, 0, 0},         {"im:a@z", "im:b@a", 0, 1, 0},
        // Others: equal only to the same text of their own type; ordered against any URL's address.
        {"foo:bar", "foo:bar", 1, 0, 0}, {"foo:bar", "foo:baz", 0, 1, 0}, {"x:sip:h", "sip:h", 0, 0, -1},
        {"foo:bar", "sip:a@h;lr", -1, 1, -1}, {"+0", "tel:1", -1, 1, -1}, {"x", "tel:1", -1, 0, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " , " + row.b);
        const CountedPtr<BaseUrl> a = url(row.a);
        const CountedPtr<BaseUrl> b = url(row.b);
        if (row.equal >= 0) {
            EXPECT_EQ(a->areEqual(b), row.equal == 1);
            EXPECT_EQ(b->areEqual(a.get()), row.equal == 1);
        }
        EXPECT_TRUE(row.aLess < 0 || a->isLessThan(b) == (row.aLess == 1));
        EXPECT_TRUE(row.bLess < 0 || b->isLessThan(a) == (row.bLess == 1));
    }
    // A TEL URL without a user equals any TEL URL and comes before one with a user.
    const Vocal::TelUrl noUser;
    EXPECT_TRUE(noUser.areEqual(url("tel:999").get()));
    EXPECT_TRUE(url("tel:999")->areEqual(&noUser));
    EXPECT_TRUE(noUser.isLessThan(url("tel:1")));
    EXPECT_FALSE(url("tel:1")->isLessThan(noUser.duplicate()));
    for (const char* text : {"tel:1", "sip:a@h", "im:a@h", "foo:bar"}) {
        EXPECT_FALSE(url(text)->areEqual(static_cast<const BaseUrl*>(nullptr))) << text;
        EXPECT_FALSE(url(text)->areEqual(CountedPtr<BaseUrl>())) << text;
        EXPECT_FALSE(url(text)->isLessThan(CountedPtr<BaseUrl>())) << text;
        const Impostor impostor(url(text)->getType());
        EXPECT_FALSE(url(text)->areEqual(&impostor)) << text;
        EXPECT_TRUE(url(text)->areEqual(url(text)->duplicate())) << text;
    }
}

TEST(Urls, EqualityLogsTheFieldsOfBothSidesWhenDebugIsOn) {
    const struct {
        const char* a;
        const char* b;
        std::vector<std::string> lines;
    } rows[] = {
        {"sip:a@h;ttl=1", "sip:h;ttl=1;user=x",
         {"Url operator ==  function", "this.user= a", "this.passwd= ", "other.passwd= ", "this.host= h",
          "other.host= h", "this.ttlParam= 1", "other.ttlParam= 1", "this.maddrParam= ", "other.maddrParam= ",
          "this.userParam=  ", "other.userParam= x", "this.methodParam= ", "other.methodParam= ",
          "this.otherParam= ", "other.otherParam= ", "this.headers = ", "other.headers = ",
          "sipUrl comparison: , returning: false"}},
        {"tel:1", "TEL:2",
         {"Url operator ==  function", "this.user= 1", "other.user= 2", "this.schemeName = ", "other.schemeName= ",
          "TelUrl comparison: , returning: false"}},
        {"im:a@h", "IM:b@h",
         {"Url operator ==  function", "this.schemeName= im", "other.schemeName= IM", "this.user= a",
          "other.user= b", "this.host= h", "other.host= h", "ImpBaseUrl comparison: , returning: false"}},
    };
    for (const auto& row : rows) {
        const CountedPtr<BaseUrl> a = url(row.a);
        const CountedPtr<BaseUrl> b = url(row.b);
        LogCapture capture;
        EXPECT_FALSE(a->areEqual(b));
        EXPECT_EQ(capture.messages("corvane.media.vocal"), row.lines);
    }
}

TEST(Urls, SettersAndCopiesOwnTheirUserObjects) {
    SipUrl sip{TextBuffer("sip:alice@hostA;lr")};
    CountedPtr<Vocal::BaseUser> bob(new Vocal::SipUser(TextBuffer("bob")));
    sip.setUser(bob);
    bob->decode("carol");
    sip.getUser()->decode("dave");
    const CountedPtr<BaseUrl> copy = sip.duplicate();
    sip.setUser(CountedPtr<Vocal::BaseUser>());
    EXPECT_EQ(sip.encode().str() + " " + copy->encode().str(), "sip:hostA;lr sip:bob@hostA;lr");
    // The user parameter chooses the class of a new user; an existing user decodes any text.
    for (const auto& c : {std::pair<const char*, int>{"ip", 0}, {"phone", 1}, {"foo", -1}}) {
        SipUrl bare{TextBuffer("sip:hostA")};
        EXPECT_EQ(bare.setUserValue("+123;isub=4", c.first), c.second >= 0) << c.first;
        EXPECT_EQ(bare.getUser().isNull() ? -1 : bare.getUser()->getUserType(), c.second) << c.first;
    }
    EXPECT_TRUE(copy->setUserValue("bob", "foo"));
    EXPECT_EQ(copy->encode().str(), "sip:bob@hostA;user=foo;lr");
    SipUrl v6;
    v6.setHost("::1");
    v6.setIpv6Host(true);
    v6.setPort("0");
    EXPECT_EQ(v6.encode().str(), "sip:[::1]");

    // TEL keeps only telephone users, and copies of them.
    Vocal::TelUrl tel{TextBuffer("TeL:123")};
    tel.setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("alice"))));
    EXPECT_EQ(tel.encode().str(), "TeL:123");
    CountedPtr<Vocal::BaseUser> given(new Vocal::SipTelSubscriberUser(TextBuffer("+456")));
    tel.setUser(given);
    given->decode("+999");
    Vocal::TelUrl assigned;
    EXPECT_TRUE(assigned.getUser().isNull());
    assigned = tel;
    tel.setUserValue("+1", "");
    EXPECT_EQ(assigned.encode().str() + " " + assigned.encodeAddress().str(), "TeL:+456 +456");

    // IM and PRES keep the user text only; unknown URLs keep their text.
    Vocal::PresUrl pres{TextBuffer("pres:a@h@i")};
    EXPECT_TRUE(pres.setUserValue("bob", "phone"));
    pres.setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("carol"))));
    EXPECT_EQ(pres.duplicate()->encode().str() + " " + pres.getHost().str(), "pres:bob@h@i h@i");
    EXPECT_EQ(url("im:@h")->encode().str() + " " + url("pres:a@")->encodeAddress().str(), "im:h pres:a@");
    const CountedPtr<BaseUrl> unknown = url("foo:bar");
    EXPECT_TRUE(unknown->setUserValue("alice", ""));
    unknown->setUser(CountedPtr<Vocal::BaseUser>(new Vocal::SipUser(TextBuffer("x"))));
    EXPECT_EQ(unknown->encodeAddress().str() + "|" + unknown->getUserValue().str(), "foo:bar|");
    EXPECT_EQ(unknown->getUser()->getUserType(), 2);  // the null user
    EXPECT_TRUE(pres.getUser().isNull());
}

// Separate URLs on separate threads share only the logger and constant tables.
TEST(Urls, SeparateUrlsDecodeOnSeveralThreadsAtOnce) {
    LogCapture capture;  // every line is formatted
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&failures] {
            for (int round = 0; round < 200; ++round) {
                for (const char* text : {"sip:a@h:1;lr", "tel:+1;isub=2", "im:a@b", "sips:x"}) {
                    failures += !url(text)->areEqual(url(text)->duplicate());
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
