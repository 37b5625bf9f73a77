#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/NullUser.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUrl.h"
#include "vocal/SipUser.h"
#include "vocal/TelUrl.h"
#include "vocal/UnknownUrl.h"
#include "vocal/VException.h"
#include "vocal/cpLog.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::BaseUser;
using Vocal::CountedPtr;
using Vocal::SipTelSubscriberUser;
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

TEST(UrlDecode, ChoosesTheClassByTheSchemeOrThrowsItsExceptionAfterLoggingWhy) {
    // Parser ("" for BaseUrl::decode), input, URL type or class whose exception is thrown, log (an
    // exception adds two "Exception at" lines).
    const std::string rows[][4] = {
        {"", "sIp:hostA", "SIP_URL", ""},
        {"", "Tel:123", "TEL_URL", "D completed decoding in the TelUrl"},
        {"", "im:a@b", "IM_URL", "D completed decoding in the ImpBaseUrl"},
        {"", "PRES:a@b", "PRES_URL", "D completed decoding in the ImpBaseUrl"},
        {"", "sips:a@h", "UNKNOWN_URL", "D parse failed: scheme not SIP or TEL: sips:a@h"},
        {"", " sip:a@b", "UNKNOWN_URL", "D parse failed: scheme not SIP or TEL:  sip:a@b"},
        {"", "alice", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <alice>"},
        {"", "", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <>"},
        {"", "sip:alice@hostA:50a0", "SipUrl", "E Failed in Decode (SIP_URL): sip:alice@hostA:50a0"},
        {"", "SIP:a@[2001:db8::1", "SipUrl", "E Failed in Decode (SIP_URL): SIP:a@[2001:db8::1"},
        {"", "sip:;transport=tcp", "SipUrl", "E Failed in Decode (SIP_URL): sip:;transport=tcp"},
        {"sip", "alice@hostA", "SipUrl", kNoColon + ": alice@hostA / E Failed in Decode (SIP_URL): alice@hostA"},
        {"sip", "sips:a@h", "SipUrl", "D parse failed: scheme not SIP: sips:a@h / E Failed in Decode (SIP_URL): sips:a@h"},
        {"", "tel:", "TelUrl", "E Failed in Decode (TEL_URL)"},
        {"tel", "5551234", "TelUrl", kNoColon + " / E Failed in Decode (TEL_URL)"},
        {"tel", "tels:1", "TelUrl", "D parse failed: scheme not TEL / E Failed in Decode (TEL_URL)"},
        {"", "PRES:alice", "ImpBaseUrl", "E Failed to parse (PRES) URL / E Failed in Decode (PRES) URL"},
        {"", "im:a@h;x=1", "ImpBaseUrl", "E Failed to parse (im) URL / E Failed in Decode (im) URL"},
        {"im", "alice@hostA", "ImpBaseUrl", kNoColon + " / E Failed in Decode (im) URL"},
        {"im", "pres:a@h", "ImpBaseUrl", "D parse failed: scheme not im / E Failed in Decode (im) URL"},
        {"pres", "im:a@h", "ImpBaseUrl", "D parse failed: scheme not pres / E Failed in Decode (pres) URL"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        const std::string& cls = row[2];
        std::string log = row[3];
        LogCapture capture;
        try {
            const TextBuffer text(row[1]);
            if (row[0] == "sip") SipUrl{text};
            if (row[0] == "tel") Vocal::TelUrl{text};
            if (row[0] == "im") Vocal::ImUrl{text};
            if (row[0] == "pres") Vocal::PresUrl{text};
            const CountedPtr<BaseUrl> decoded = BaseUrl::decode(text);  // a parser above has thrown
            EXPECT_EQ(Vocal::getUrlTypeName(decoded->getType()) + std::string(" ") + text.str(), cls + " " + row[1]);
            EXPECT_TRUE(decoded->getType() != Vocal::UNKNOWN_URL || decoded->encode().str() == row[1]);
        } catch (const VException& e) {
            EXPECT_EQ(e.getName() + " " + e.getDescription() + " " + e.getFileName(),
                      cls + "ParserException failed in Decode " + cls + ".cpp");
            EXPECT_EQ(e.getError(), 0u);
            const std::string inner = cls == "SipUrl" ? "(SIP_URL)" : cls == "TelUrl" ? "(TEL_URL)" : "URL";
            const std::string at = " / D Exception at " + cls + ".cpp:N ";
            log += at + "Failed in Decode " + inner + at + "failed in Decode";
        }
        EXPECT_EQ(logOf(capture), log);
    }
    EXPECT_STREQ(Vocal::getUrlTypeName(static_cast<Vocal::UrlType>(5)), "");
}

TEST(SipUrl, DecodesFieldsAndEncodesInItsFixedOrder) {
    const struct {
        std::string input;
        const char* encode;  // the address is the part before the first ";"
        bool lr;
    } rows[] = {
        {"sip:alice@hostA:5060;lr;transport=tcp", "sip:alice@hostA:5060;lr;transport=tcp", false},  // one name
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
        // IPv6 references keep their brackets; text around them is dropped.
        {"sip:alice@foo[2001:db8::1]:5070", "sip:alice@[2001:db8::1]:5070", false},
        {"sip:[::1]junk:5062;lr", "sip:[::1]:5062;lr", true},
        // Parameters after "user=phone" belong to the number and are written last.
        {"sip:5551234;isub=12@h;user=phone", "sip:5551234@h;user=phone;isub=12", false},
        {"sip:555@h;isub=12;user=Phone", "sip:555@h;user=Phone;isub=12", false},
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
        {"sip:1@h;user=phone", "sip:1@h", 0, 0, 1},     {"sip:a@h", "tel:a", 0, 0, 0},  // users of two classes
        // TEL: the scheme ignores case in equality, not in order; then the telephone users: equal with the
        // global flag and every field; less when any field is less, the global flag aside.
        {"tel:123", "TEL:123", 1, 0, 1},              {"tel:+123", "tel:123", 0, 0, 0},
        {"TEL:2", "tel:1", 0, 1, 1},                  {"tel:+1", "tel:x+1", 1, 0, 0},
        {"tel:1;isub=9", "tel:2;isub=1", 0, 1, 1},    {"tel:1;isub=1", "tel:1;isub=2", 0, 1, 0},
        {"tel:1;postd=1", "tel:1;postd=2", 0, 1, 0},  {"tel:1;phone-context=a", "tel:1;phone-context=A", 0, 0, 1},
        {"tel:1;tsp=1", "tel:1;tsp=2", 0, 1, 0},      {"tel:5;tsp=a", "tel:5;tsp=a", 1, 0, 0},
        {"tel:1;a=2", "tel:1;b=1", 0, 1, 1},          {"tel:1;x=a", "tel:1;x=b", 0, 1, 0},
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
    // A URL without users has the null user: equal only to null users, less than any other user.
    const CountedPtr<BaseUser> none = url("foo:bar")->getUser();
    EXPECT_EQ(none->getUserType(), 2);
    EXPECT_TRUE(none->decode("x") && none->encode().empty() && none->areEqual(none->duplicate()));
    EXPECT_FALSE(none->isLessThan(none->duplicate()));
    for (const char* text : {"tel:1", "sip:a@h"}) {
        const CountedPtr<BaseUser> user = url(text)->getUser();
        EXPECT_TRUE(none->isLessThan(user)) << text;
        EXPECT_FALSE(none->areEqual(user) || user->areEqual(none) || user->isLessThan(none)) << text;
        EXPECT_FALSE(user->areEqual(CountedPtr<BaseUser>()) || user->isLessThan(CountedPtr<BaseUser>())) << text;
    }
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
    const std::string rows[][3] = {
        {"sip:a@h;ttl=1", "sip:h;ttl=1;user=x",
         "Url operator ==  function / D this.user= a / D this.passwd=  / D other.passwd=  / D this.host= h / "
         "D other.host= h / D this.ttlParam= 1 / D other.ttlParam= 1 / D this.maddrParam=  / D other.maddrParam=  / "
         "D this.userParam=   / D other.userParam= x / D this.methodParam=  / D other.methodParam=  / "
         "D this.otherParam=  / D other.otherParam=  / D this.headers =  / D other.headers =  / "
         "D sipUrl comparison: , returning: false"},
        {"tel:1", "TEL:2",
         "Url operator ==  function / D this.user= 1 / D other.user= 2 / D this.schemeName =  / "
         "D other.schemeName=  / D TelUrl comparison: , returning: false"},
        {"im:a@h", "IM:b@h",
         "Url operator ==  function / D this.schemeName= im / D other.schemeName= IM / D this.user= a / "
         "D other.user= b / D this.host= h / D other.host= h / D ImpBaseUrl comparison: , returning: false"},
    };
    for (const auto& row : rows) {
        const CountedPtr<BaseUrl> a = url(row[0]);
        const CountedPtr<BaseUrl> b = url(row[1]);
        LogCapture capture;
        EXPECT_FALSE(a->areEqual(b));
        EXPECT_EQ(logOf(capture), "D " + row[2]);
    }
}

TEST(Urls, SettersAndCopiesOwnTheirUserObjects) {
    SipUrl sip{TextBuffer("sip:alice@hostA;lr")};
    CountedPtr<BaseUser> bob(new Vocal::SipUser(TextBuffer("bob")));
    sip.setUser(bob);
    bob->decode("carol");
    sip.getUser()->decode("dave");
    const CountedPtr<BaseUrl> copy = sip.duplicate();
    sip.setUser(CountedPtr<BaseUser>());
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
    tel.setUser(CountedPtr<BaseUser>(new Vocal::SipUser(TextBuffer("alice"))));
    EXPECT_EQ(tel.encode().str(), "TeL:123");
    CountedPtr<BaseUser> given(new SipTelSubscriberUser(TextBuffer("+456")));
    tel.setUser(given);
    given->decode("+999");
    Vocal::TelUrl assigned;
    assigned = tel;
    tel.setUserValue("+1", "");
    EXPECT_EQ(assigned.encode().str() + " " + assigned.encodeAddress().str(), "TeL:+456 +456");

    // IM and PRES keep the user text only; unknown URLs keep their text.
    Vocal::PresUrl pres{TextBuffer("pres:a@h@i")};
    EXPECT_TRUE(pres.setUserValue("bob", "phone"));
    pres.setUser(CountedPtr<BaseUser>(new Vocal::SipUser(TextBuffer("carol"))));
    EXPECT_EQ(pres.duplicate()->encode().str() + " " + pres.getHost().str(), "pres:bob@h@i h@i");
    EXPECT_TRUE(pres.getUser().isNull());
    EXPECT_EQ(url("im:@h")->encode().str() + " " + url("pres:a@")->encodeAddress().str(), "im:h pres:a@");
    const CountedPtr<BaseUrl> unknown = url("foo:bar");
    EXPECT_TRUE(unknown->setUserValue("alice", ""));
    unknown->setUser(CountedPtr<BaseUser>(new Vocal::SipUser(TextBuffer("x"))));
    EXPECT_EQ(unknown->encodeAddress().str() + "|" + unknown->getUserValue().str(), "foo:bar|");
}

TEST(SipTelSubscriberUser, DecodesNumberAndParametersAndRendersEachForm) {
    const char* const rows[][4] = {  // input, encode and parameter string, global form, local form
        {"+1-555;isub=12;postd=pp22", "+1-555;isub=12;postd=pp22", "+1-555;isub=12;postd=pp22",
         "1-555;isdn=12;postd=pp22"},
        {"ab+12+34", "+12+34", "+12+34", "12+34"},  // text ahead of "+" is lost
        {"5551234;phone-context=ex.com;tsp=t1", "5551234;phone-context=ex.com;tsp=t1",
         "+5551234;phone-contextex.com;tspt1", "5551234;phone-context=ex.com;tsp=t1"},
        {"123;foo=1;bar=2;baz", "123;bar=2", "+123;bar=2", "123;bar=2"},
        {"123;lr;isub=4", "123;lr;isub=4", "+123;lr;isub=4", "123;lr;isub=4"},
        {"1;isub=2;isub=3;Isub=5", "1;isub=3;Isub=5", "+1;isub=3;Isub=5", "1;isdn=3;Isub=5"},
        {"1;x=", "1", "+1", "1"},  // the other parameter needs name and value
        {"", "", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        const SipTelSubscriberUser user{TextBuffer(row[0])};
        EXPECT_EQ(user.encode().str() + user.getParamString().str(), row[1]);
        EXPECT_EQ(user.getGlobalForm().str(), row[2]);
        EXPECT_EQ(user.getLocalForm().str(), row[3]);
    }
    // Renderings are built on first request and kept; decode keeps unset fields; copies carry the caches.
    SipTelSubscriberUser user{TextBuffer("1;isub=2")};
    EXPECT_EQ(user.getGlobalForm().str(), "+1;isub=2");
    EXPECT_TRUE(user.decode("9;postd=8"));
    EXPECT_EQ(user.getLocalForm().str(), "9;isdn=2;postd=8");
    EXPECT_TRUE(user.decode("+7"));
    const CountedPtr<BaseUser> copy = user.duplicate();
    const auto& copied = dynamic_cast<const SipTelSubscriberUser&>(*copy);
    EXPECT_EQ(copied.getGlobalForm().str() + " " + copied.getLocalForm().str() + " " + copy->encode().str(),
              "+1;isub=2 9;isdn=2;postd=8 +7");
    EXPECT_EQ(Vocal::SipTelSubscriberUserParserException("m", "f", 1, 0).getName(),
              "SipTelSubscriberUserParserException");
    EXPECT_EQ(Vocal::TEL_PAUSE.str() + Vocal::TEL_WAIT.str() + Vocal::TEL_STAR.str() + Vocal::TEL_HASH.str() +
                  Vocal::TEL_DTMF_A.str() + Vocal::TEL_DTMF_B.str() + Vocal::TEL_DTMF_C.str() + Vocal::TEL_DTMF_D.str(),
              "pw*#ABCD");
}

TEST(TextBuffer, MatchAndParseCutAtTheFirstDelimiter) {
    // match: the text ahead of the whole delimiter goes out; it is cut from the input only when asked.
    const char* const matches[][4] = {  // input, delimiter, cut or keep, result output|rest
        {"sip:alice", ":", "keep", "0 sip|sip:alice"},
        {":alice", ":", "cut", "-2 |alice"},
        {"alice", ":", "cut", "-1 -|alice"},
        {"a;b;;c:", ";;", "cut", "0 a;b|c:"},
    };
    for (const auto& c : matches) {
        TextBuffer input(c[0]);
        TextBuffer out("-");
        const int result = input.match(c[1], &out, c[2] == std::string("cut"));
        EXPECT_EQ(std::to_string(result) + " " + out.str() + "|" + input.str(), c[3]) << c[0];
    }
    // parse: cuts at the first byte of the set; none leaves the input whole.
    const char* const parses[][3] = {  // input, set, result|matched byte or none, rest
        {"host;lr:1", ":;", "host|;lr:1"}, {"hostA", ":;", "|none hostA"},
        {"a=b=c", "=", "a|=b=c"},          {"user=ip;lr", ":;=", "user|=ip;lr"},
    };
    for (const auto& c : parses) {
        TextBuffer input(c[0]);
        char matched = 'x';
        const TextBuffer result = input.parse(c[1], &matched);
        EXPECT_EQ(result.str() + "|" + (matched == '\0' ? "none " : std::string(1, matched)) + input.str(), c[2]);
    }
}

TEST(TextBuffer, LongTextsKeepEveryByteAndTooLongOnesAreRefusedUnread) {
    TextBuffer text("abcdefghijklmnopqrstuvwxyz");
    text += text;  // appended to itself while it grows
    TextBuffer moved(std::move(text));
    EXPECT_TRUE(text.empty());  // NOLINT: a moved-from text is empty and usable
    text = moved;
    EXPECT_EQ(text.match("z", &text, true), TextBuffer::FOUND);  // cut into itself
    EXPECT_EQ(text.str() + "|" + moved.str(),
              "abcdefghijklmnopqrstuvwxy|abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz");
    const char small[] = "x";
    volatile size_t hugeSize = size_t(1) << 31;  // only the size is looked at
    EXPECT_THROW(text.assign(std::string_view(small, hugeSize)), std::length_error);
    EXPECT_THROW(TextBuffer{std::string_view(small, hugeSize)}, std::length_error);
    volatile size_t justTooLong = TextBuffer::kMaxLength - 3;
    EXPECT_THROW(moved.append(std::string_view(small, justTooLong)), std::length_error);
    EXPECT_EQ(moved.length(), 52);
}

TEST(CpLog, EachPriorityLogsAtItsLevelOnTheVocalLoggerAndOthersAreDropped) {
    const struct {
        int priority;
        const char* name;
        const char* shortName;
        int level;  // -1: dropped
    } rows[] = {
        {0, "EMERG", "EMRG", 50000},     {1, "ALERT", "ALRT", 50000},        {2, "CRIT", "CRIT", 50000},
        {3, "ERR", "ERR ", 40000},       {4, "WARNING", "WARN", 30000},      {5, "NOTICE", "NOTC", 20000},
        {6, "INFO", "INFO", 20000},      {7, "DEBUG", "DBUG", 10000},        {8, "DEBUG_STACK", "DSTK", 10000},
        {9, "DEBUG_OPER", "DOP ", 10000}, {10, "DEBUG_HB", "DHB ", 10000},   {11, nullptr, nullptr, -1},
        {-1, nullptr, nullptr, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.priority);
        LogCapture capture(0);
        cpLog(row.priority, "Caller.cpp", 77, "priority %d of %s", row.priority, "eleven");
        if (row.name != nullptr) {
            EXPECT_EQ(std::string(cpLogPriorityNames[row.priority]) + "/" + cpLogPriorityShortNames[row.priority],
                      std::string(row.name) + "/" + row.shortName);
        }
        EXPECT_EQ(cpLogIsEnabled(row.priority), row.level >= 0);
        const auto records = capture.records();
        ASSERT_EQ(records.size(), row.level >= 0 ? 1u : 0u);
        if (records.empty()) continue;
        EXPECT_EQ(records[0].level, row.level);
        EXPECT_EQ(records[0].logger + " " + records[0].file, "corvane.media.vocal cpLog.cpp");  // not the caller's file
        EXPECT_EQ(records[0].message, "priority " + std::to_string(row.priority) + " of eleven");
    }
    EXPECT_EQ(cpLogPriorityNames[11], nullptr);
    LogCapture capture(20000);  // the logger's level decides; long messages are cut to 4095 bytes
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG_STACK));
    cpLog(LOG_DEBUG, "f", 1, "hidden");
    cpLog(LOG_INFO, "f", 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(capture.messages("corvane.media.vocal"), std::vector<std::string>{std::string(4095, 'x')});
}

// Separate URLs on separate threads share only the logger and constant tables.
TEST(Urls, SeparateUrlsDecodeOnSeveralThreadsAtOnce) {
    LogCapture capture;  // every line is formatted
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (const char* text : {"sip:a@h:1;lr", "tel:+1;isub=2", "im:a@b", "sips:x"}) {
        threads.emplace_back([&failures, text] {
            for (int round = 0; round < 500; ++round) failures += !url(text)->areEqual(url(text)->duplicate());
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
