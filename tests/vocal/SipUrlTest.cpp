#include <gtest/gtest.h>

#include <string>

#include "support/LogCapture.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUrl.h"
#include "vocal/SipUser.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::CountedPtr;
using Vocal::SipUrl;
using Vocal::TextBuffer;

namespace {

// The fields that are set, in declaration order: "user=0:alice host=hostA port=5060 lr".
std::string describe(const SipUrl& in_url) {
    std::string out;
    auto add = [&out](const char* in_name, const TextBuffer& in_value) {
        if (in_value.empty()) return;
        out += out.empty() ? "" : " ";
        out += std::string(in_name) + "=" + in_value.str();
    };
    if (in_url.getScheme() != "sip") add("scheme", in_url.getScheme());
    const CountedPtr<Vocal::BaseUser> user = in_url.getUser();
    if (!user.isNull()) {
        out += out.empty() ? "" : " ";
        out += "user=" + std::to_string(user->getUserType()) + ":" + user->encode().str();
    }
    add("passwd", in_url.getPasswd());
    add("host", in_url.getHost());
    add("port", in_url.getPort());
    add("transport", in_url.getTransportParam());
    add("ttl", in_url.getTtlParam());
    add("maddr", in_url.getMaddrParam());
    add("userParam", in_url.getUserParam());
    add("method", in_url.getMethodParam());
    add("otherName", in_url.getOtherName());
    add("otherValue", in_url.getOtherValue());
    add("headers", in_url.getHeaders());
    if (in_url.isLooseRouting()) out += out.empty() ? "lr" : " lr";
    return out;
}

CountedPtr<BaseUrl> sip(const char* in_szText) { return BaseUrl::decode(TextBuffer(in_szText)); }

const SipUrl& asSip(const CountedPtr<BaseUrl>& in_url) { return dynamic_cast<const SipUrl&>(*in_url); }

// A text with its embedded NUL bytes (all of the literal but its terminator).
template <size_t N>
std::string withNul(const char (&in_text)[N]) {
    return std::string(in_text, N - 1);
}

struct DecodeCase {
    const char* input;
    const char* fields;
    const char* encode;
    const char* address;
};

TEST(SipUrl, DecodesFieldsAndEncodesInItsFixedOrder) {
    const DecodeCase cases[] = {
        {"sip:alice@hostA:5060;transport=tcp;lr", "user=0:alice host=hostA port=5060 transport=tcp lr",
         "sip:alice@hostA:5060;transport=tcp;lr", "sip:alice@hostA:5060"},
        // "lr" followed by a parameter merges into that parameter's name.
        {"sip:alice@hostA;lr;transport=tcp", "user=0:alice host=hostA otherName=lr;transport otherValue=tcp",
         "sip:alice@hostA;lr;transport=tcp", "sip:alice@hostA"},
        {"sip:a@h;ttl=1;lr;x", "user=0:a host=h ttl=1", "sip:a@h;ttl=1", "sip:a@h"},
        {"sip:alice@hostA;lr ", "user=0:alice host=hostA", "sip:alice@hostA", "sip:alice@hostA"},
        {"sip:alice@hostA:", "user=0:alice host=hostA", "sip:alice@hostA", "sip:alice@hostA"},
        // Headers are dropped, and so is everything after the first "?".
        {"sip:alice@hostA?subject=x", "user=0:alice host=hostA", "sip:alice@hostA", "sip:alice@hostA"},
        {"sip:alice@hostA;maddr=x?y;lr", "user=0:alice host=hostA maddr=x", "sip:alice@hostA;maddr=x",
         "sip:alice@hostA"},
        // Only the last unknown parameter survives; a later known one replaces the earlier.
        {"sip:alice@hostA;foo=1;bar=2", "user=0:alice host=hostA otherName=bar otherValue=2",
         "sip:alice@hostA;bar=2", "sip:alice@hostA"},
        {"sip:a@h;transport=tcp;transport=udp", "user=0:a host=h transport=udp", "sip:a@h;transport=udp",
         "sip:a@h"},
        {"sip:bob@biloxi.example.com:5070;method=INVITE;maddr=239.1.1.1;ttl=15;user=ip;transport=udp;lr",
         "user=0:bob host=biloxi.example.com port=5070 transport=udp ttl=15 maddr=239.1.1.1 userParam=ip "
         "method=INVITE lr",
         "sip:bob@biloxi.example.com:5070;transport=udp;ttl=15;maddr=239.1.1.1;user=ip;method=INVITE;lr",
         "sip:bob@biloxi.example.com:5070"},
        // Names are trimmed of blanks and matched exactly; values stay as written.
        {"sip:a@h; transport =tls;x= 1 ", "user=0:a host=h transport=tls otherName=x otherValue= 1 ",
         "sip:a@h;transport=tls;x= 1 ", "sip:a@h"},
        {"sip:a@h;Transport=tls", "user=0:a host=h otherName=Transport otherValue=tls", "sip:a@h;Transport=tls",
         "sip:a@h"},
        {"SIP:Alice@HOSTA", "scheme=SIP user=0:Alice host=HOSTA", "SIP:Alice@HOSTA", "SIP:Alice@HOSTA"},
        {"sip:alice:pw1@host", "user=0:alice:pw1 host=host", "sip:alice:pw1@host", "sip:alice:pw1@host"},
        {"sip:hostA;transport=sctp", "host=hostA transport=sctp", "sip:hostA;transport=sctp", "sip:hostA"},
        {"sip:a@h:0", "user=0:a host=h port=0", "sip:a@h", "sip:a@h"},
        {"sip:@hostA", "user=0: host=hostA", "sip:hostA", "sip:hostA"},
        {"sip:alice@", "user=0:alice", "sip:alice@", "sip:alice@"},
        {"sip:", "", "sip:", "sip:"},
        // IPv6 references keep their brackets; text ahead of "[" is dropped.
        {"sip:alice@[2001:db8::1]:5070", "user=0:alice host=[2001:db8::1] port=5070",
         "sip:alice@[2001:db8::1]:5070", "sip:alice@[2001:db8::1]:5070"},
        {"sip:alice@[::1]", "user=0:alice host=[::1]", "sip:alice@[::1]", "sip:alice@[::1]"},
        {"sip:[::1]:5060;lr", "host=[::1] port=5060 lr", "sip:[::1]:5060;lr", "sip:[::1]:5060"},
        {"sip:alice@foo[::1]:5060", "user=0:alice host=[::1] port=5060", "sip:alice@[::1]:5060",
         "sip:alice@[::1]:5060"},
        {"sip:[::1]junk:5062", "host=[::1] port=5062", "sip:[::1]:5062", "sip:[::1]:5062"},
        // Any "user" value but "ip" asks for a telephone-subscriber user; parameters
        // after "user=phone" belong to the number and are written last.
        {"sip:alice@hostA;user=foo", "user=1:alice host=hostA userParam=foo", "sip:alice@hostA;user=foo",
         "sip:alice@hostA"},
        {"sip:alice@hostA;user=ip", "user=0:alice host=hostA userParam=ip", "sip:alice@hostA;user=ip",
         "sip:alice@hostA"},
        {"sip:5551234;isub=12@hostA;user=phone", "user=1:5551234 host=hostA userParam=phone",
         "sip:5551234@hostA;user=phone;isub=12", "sip:5551234@hostA"},
        {"sip:5551234@hostA;user=phone;isub=12", "user=1:5551234 host=hostA userParam=phone",
         "sip:5551234@hostA;user=phone;isub=12", "sip:5551234@hostA"},
        {"sip:5551234@hostA;isub=12;user=phone", "user=1:5551234 host=hostA userParam=phone otherName=isub otherValue=12",
         "sip:5551234@hostA;user=phone;isub=12", "sip:5551234@hostA"},
        {"sip:5551234@hostA;user=Phone;isub=12",
         "user=1:5551234 host=hostA userParam=Phone otherName=isub otherValue=12",
         "sip:5551234@hostA;user=Phone;isub=12", "sip:5551234@hostA"},
        {"sip:+1555@gw:5061;user=phone;tsp=a;lr", "user=1:+1555 host=gw port=5061 userParam=phone lr",
         "sip:+1555@gw:5061;user=phone;lr;tsp=a", "sip:+1555@gw:5061"},
        {"sip:gw;user=phone;isub=1", "user=1: host=gw userParam=phone", "sip:gw;user=phone;isub=1", "sip:gw"},
    };
    for (const DecodeCase& c : cases) {
        const CountedPtr<BaseUrl> url = sip(c.input);
        ASSERT_EQ(url->getType(), Vocal::SIP_URL) << c.input;
        EXPECT_EQ(describe(asSip(url)), c.fields) << c.input;
        EXPECT_EQ(url->encode().str(), c.encode) << c.input;
        EXPECT_EQ(url->toString(), c.encode) << c.input;
        EXPECT_EQ(url->encodeAddress().str(), c.address) << c.input;
        EXPECT_TRUE(asSip(url).getPasswd().empty()) << c.input;
        EXPECT_FALSE(asSip(url).isIpv6Host()) << c.input;
    }
}

TEST(SipUrl, TelephoneParametersAfterUserPhoneReachTheNumber) {
    const CountedPtr<BaseUrl> url = sip("sip:+1-555@gw;user=phone;isub=12;postd=pp;phone-context=ex;zz=9");
    const CountedPtr<Vocal::BaseUser> user = url->getUser();
    ASSERT_EQ(user->getUserType(), 1);
    const auto& tel = dynamic_cast<const Vocal::SipTelSubscriberUser&>(*user);
    EXPECT_TRUE(tel.isGlobal());
    EXPECT_EQ(tel.getNumber().str(), "1-555");
    EXPECT_EQ(tel.getIsub().str(), "12");
    EXPECT_EQ(tel.getPostd().str(), "pp");
    EXPECT_EQ(tel.getPhoneContext().str(), "ex");
    EXPECT_EQ(tel.getOtherName().str(), "zz");
    EXPECT_TRUE(asSip(url).getOtherName().empty());
    EXPECT_EQ(url->getUserValue().str(), "+1-555");
    EXPECT_EQ(url->encode().str(), "sip:+1-555@gw;user=phone;isub=12;postd=pp;phone-context=ex;zz=9");
}

struct FailCase {
    const char* input;
    const char* debugLine;  // DEBUG line ahead of the ERR line, or null
};

TEST(SipUrl, RejectedTextsThrowFromTheConstructorAfterLoggingTheInnerFailure) {
    const FailCase cases[] = {
        {"sip:alice@hostA:50a0", nullptr},
        {"sip:alice@hostA:+5060", nullptr},
        {"sip:alice@hostA: 5060", nullptr},
        {"sip:alice@hostA:5060:5070", nullptr},
        {"sip:alice@[2001:db8::1", nullptr},
        {"sip:alice@:5060", nullptr},
        {"sip:;transport=tcp", nullptr},
        {"sip:alice@;lr", nullptr},
        {"alice@hostA", "parse failed: could not find ':' separating URL type from body: alice@hostA"},
        {"sips:alice@hostA", "parse failed: scheme not SIP: sips:alice@hostA"},
        {"hostA?x:y", "parse failed: could not find ':' separating URL type from body: hostA?x:y"},
    };
    for (const FailCase& c : cases) {
        LogCapture capture;
        try {
            SipUrl url{TextBuffer(c.input)};
            ADD_FAILURE() << "no exception for " << c.input;
        } catch (const Vocal::SipUrlParserException& e) {
            EXPECT_EQ(e.getName(), "SipUrlParserException");
            EXPECT_EQ(e.getDescription(), "failed in Decode");
            EXPECT_EQ(e.getFileName(), "SipUrl.cpp");
            EXPECT_EQ(e.getError(), 0u);
            EXPECT_EQ(e.getParserError(), 0u);
        }
        std::vector<std::string> expected;
        if (c.debugLine != nullptr) expected.push_back(c.debugLine);
        expected.push_back(std::string("Failed in Decode (SIP_URL): ") + c.input);
        expected.push_back("Exception at SipUrl.cpp:");  // the decoder's own, code 8
        expected.push_back("Exception at SipUrl.cpp:");  // the constructor's
        const auto records = capture.records();
        ASSERT_EQ(records.size(), expected.size()) << c.input;
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(records[i].message.rfind(expected[i], 0), 0u) << c.input << ": " << records[i].message;
        }
        EXPECT_EQ(records[expected.size() - 3].level, 40000) << c.input;
        EXPECT_NE(records[expected.size() - 2].message.find(" Failed in Decode (SIP_URL)"), std::string::npos);
        EXPECT_NE(records[expected.size() - 1].message.find(" failed in Decode"), std::string::npos);
    }
}

TEST(SipUrl, ThroughDecodeTheConstructorsExceptionReachesTheCaller) {
    EXPECT_THROW(sip("sip:alice@hostA:50a0"), Vocal::SipUrlParserException);
    EXPECT_THROW(sip("SIP:alice@[::1"), VException);
}

TEST(SipUrl, WithTheRethrowSwitchOffThePartlyDecodedUrlIsKept) {
    Vocal::setUrlParserRethrow(false);
    const CountedPtr<BaseUrl> url = sip("sip:alice@hostA:50a0;transport=tcp");
    Vocal::setUrlParserRethrow(true);
    EXPECT_EQ(describe(asSip(url)), "host=hostA port=50a0");
}

struct CompareCase {
    const char* a;
    const char* b;
    bool equal;
};

TEST(SipUrl, EqualityComparesEachFieldByItsOwnRule) {
    const CompareCase cases[] = {
        {"SIP:Alice@HOSTA", "sip:Alice@hostA", true},       // scheme and host ignore case
        {"sip:alice@h", "sip:Alice@h", false},              // the user does not
        {"sip:a@h", "sip:a@h:5060", true},                  // absent port is 5060
        {"sip:a@h", "sip:a@h:05060", false},
        {"sip:a@h:5070", "sip:a@h:5070", true},
        {"sip:a@h:5070", "sip:a@h", false},
        {"sip:a@h", "sip:a@h;transport=udp", true},         // absent transport is udp
        {"sip:a@h", "sip:a@h;transport=UDP", false},
        {"sip:a@h;transport=tcp", "sip:a@h;transport=TCP", false},
        {"sip:a@h;ttl=a", "sip:a@h;ttl=A", true},
        {"sip:a@h;maddr=H", "sip:a@h;maddr=h", false},
        {"sip:h;user=IP", "sip:h;user=ip", true},
        {"sip:a@h;method=INVITE", "sip:a@h;method=invite", false},
        {"sip:a@h;x=ABC", "sip:a@h;x=abc", true},
        {"sip:a@h;x=1", "sip:a@h;y=1", true},                // the other name takes no part
        {"sip:a@h;x=1", "sip:a@h", false},
        {"sip:a@h;lr", "sip:a@h", true},                     // nor does lr
        {"sip:a@h", "sip:h", false},                         // user on one side only
        {"sip:h", "sip:h", true},
        {"sip:+1@h;user=phone", "sip:1@h;user=phone", false},
        {"sip:1@h;user=phone", "sip:1@h", false},            // telephone user against plain user
        {"sip:a@h", "tel:a", false},
        {"sip:a@h", "foo:sip:a@h", false},
    };
    for (const CompareCase& c : cases) {
        const CountedPtr<BaseUrl> a = sip(c.a);
        const CountedPtr<BaseUrl> b = sip(c.b);
        EXPECT_EQ(a->areEqual(b), c.equal) << c.a << " == " << c.b;
        EXPECT_EQ(a->areEqual(b.get()), c.equal) << c.a << " == " << c.b;
    }
    EXPECT_FALSE(sip("sip:a@h")->areEqual(CountedPtr<BaseUrl>()));
}

TEST(SipUrl, EqualityLogsBothUrlsFieldsAndItsResult) {
    LogCapture capture;
    EXPECT_TRUE(sip("sip:a@h;ttl=1")->areEqual(sip("sip:h;ttl=1;user=x")) == false);
    const std::vector<std::string> expected = {
        "Url operator ==  function", "this.user= a",        "this.passwd= ",       "other.passwd= ",
        "this.host= h",              "other.host= h",       "this.ttlParam= 1",    "other.ttlParam= 1",
        "this.maddrParam= ",         "other.maddrParam= ",  "this.userParam=  ",   "other.userParam= x",
        "this.methodParam= ",        "other.methodParam= ", "this.otherParam= ",   "other.otherParam= ",
        "this.headers = ",           "other.headers = ",    "sipUrl comparison: , returning: false"};
    EXPECT_EQ(capture.messages("corvane.media.vocal"), expected);
}

struct OrderCase {
    const char* a;
    const char* b;
    bool aLess;
    bool bLess;
};

TEST(SipUrl, OrderingDecidesOnTheFirstDifferingFieldAndIgnoresSomeFields) {
    const OrderCase cases[] = {
        {"sip:h", "sip:a@h", true, false},                          // no user comes first
        {"sip:a@h", "sip:b@h", true, false},
        {"sip:b@h;ttl=1", "sip:a@h;ttl=2", false, true},           // the user before ttl
        {"sip:a@hostA", "sip:a@hostB", false, false},              // host takes no part
        {"SIP:h", "sip:h", false, false},                          // nor the scheme
        {"sip:h;transport=a", "sip:h;transport=b", false, false},  // nor transport
        {"sip:h;lr", "sip:h", false, false},                       // nor lr
        {"sip:h;x=1", "sip:h;y=1", false, false},                  // nor the other name
        {"sip:a@h;ttl=2;maddr=a", "sip:a@h;ttl=1;maddr=b", false, true},
        {"sip:h;maddr=a;user=z", "sip:h;maddr=b;user=a", true, false},
        {"sip:h;user=b;method=a", "sip:h;user=a;method=b", false, true},
        {"sip:h;method=B;x=a", "sip:h;method=A;x=b", false, true},
        {"sip:h:2;x=a", "sip:h:1;x=b", true, false},
        {"sip:h:5060", "sip:h:5070", true, false},
        {"sip:h", "sip:h:5060", true, false},                      // exact texts, no default port
        {"sip:\xe9@h", "sip:z@h", false, true},                    // unsigned bytes
        {"sip:1;isub=9@h;user=phone", "sip:2;isub=1@h;user=phone", true, true},
        {"sip:a@h", "im:a@h", false, false},
    };
    for (const OrderCase& c : cases) {
        const CountedPtr<BaseUrl> a = sip(c.a);
        const CountedPtr<BaseUrl> b = sip(c.b);
        EXPECT_EQ(a->isLessThan(b), c.aLess) << c.a << " < " << c.b;
        EXPECT_EQ(b->isLessThan(a), c.bLess) << c.b << " < " << c.a;
    }
    EXPECT_FALSE(sip("sip:a@h")->isLessThan(CountedPtr<BaseUrl>()));
}

TEST(SipUrl, SetUserValueChoosesTheUserClassByTheUserParameter) {
    struct Case {
        const char* userParam;
        bool accepted;
        int userType;
    } cases[] = {{"", true, 0}, {"ip", true, 0}, {"phone", true, 1}, {"foo", false, -1}};
    for (const Case& c : cases) {
        SipUrl url{TextBuffer("sip:hostA")};
        EXPECT_EQ(url.setUserValue("+123;isub=4", c.userParam), c.accepted) << c.userParam;
        if (!c.accepted) {
            EXPECT_TRUE(url.getUser().isNull());
            EXPECT_EQ(url.encode().str(), "sip:hostA");
            continue;
        }
        EXPECT_EQ(url.getUser()->getUserType(), c.userType) << c.userParam;
        EXPECT_EQ(url.getUserParam().str(), c.userParam);
    }
    // An existing user object decodes the text whatever the parameter says.
    SipUrl url{TextBuffer("sip:alice@hostA")};
    EXPECT_TRUE(url.setUserValue("bob", "foo"));
    EXPECT_EQ(url.encode().str(), "sip:bob@hostA;user=foo");
}

TEST(SipUrl, ParameterNamesAndLooseRoutingCompareUpToTheFirstNul) {
    const struct {
        std::string input;
        const char* encode;
    } rows[] = {
        {withNul("sip:a@h;transport\0x=tcp"), "sip:a@h;transport=tcp"},
        {withNul("sip:a@h;ttl=1;lr\0x"), "sip:a@h;ttl=1;lr"},
        {withNul("sip:5@h;user=phone;isub\0x=7"), "sip:5@h;user=phone;isub=7"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(BaseUrl::decode(TextBuffer(row.input))->encode().str(), row.encode) << row.input;
    }
}

TEST(SipUrl, SetUserAndCopiesOwnTheirUserObjects) {
    SipUrl url{TextBuffer("sip:alice@hostA;lr")};
    CountedPtr<Vocal::BaseUser> bob(new Vocal::SipUser(TextBuffer("bob")));
    url.setUser(bob);
    bob->decode("carol");  // the URL keeps its own copy
    EXPECT_EQ(url.getUserValue().str(), "bob");
    // getUser hands out a copy too.
    url.getUser()->decode("dave");
    EXPECT_EQ(url.getUserValue().str(), "bob");

    const CountedPtr<BaseUrl> copy = url.duplicate();
    EXPECT_TRUE(copy->areEqual(&url));
    EXPECT_TRUE(copy->isLooseRouting());
    url.setUserValue("erin", "");
    EXPECT_EQ(copy->getUserValue().str(), "bob");

    url.setUser(CountedPtr<Vocal::BaseUser>());
    EXPECT_EQ(url.encode().str(), "sip:hostA;lr");
}

TEST(SipUrl, Ipv6FlagBracketsTheHostAndPortZeroIsNotWritten) {
    SipUrl url;
    EXPECT_EQ(url.encode().str(), "sip:");
    url.setHost("2001:db8::1");
    url.setIpv6Host(true);
    url.setPort("0");
    EXPECT_EQ(url.encode().str(), "sip:[2001:db8::1]");
    url.setPort("5070");
    url.setTransportParam("tcp");
    EXPECT_EQ(url.encode().str(), "sip:[2001:db8::1]:5070;transport=tcp");
    EXPECT_EQ(url.encodeAddress().str(), "sip:[2001:db8::1]:5070");
}

TEST(SipUrl, DecodeLeavesItsTextAsItWas) {
    const TextBuffer text("sip:alice@hostA;lr;transport=tcp?x=y");
    const TextBuffer before = text;
    SipUrl url(text);
    EXPECT_EQ(text.str(), before.str());
}

}  // namespace
