#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "vocal/ImpBaseUrl.h"
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
    // Parser ("" for BaseUrl::decode), input, URL type or thrower's class, log (ahead of two "Exception at").
    const std::string rows[][4] = {
        {"", "sIp:hostA", "SIP_URL", ""},
        {"", "Tel:123", "TEL_URL", "D completed decoding in the TelUrl"},
        {"", "im:a@b", "IM_URL", "D completed decoding in the ImpBaseUrl"},
        {"", "PRES:a@b", "PRES_URL", "D completed decoding in the ImpBaseUrl"},
        {"", "sips:a@h", "UNKNOWN_URL", "D parse failed: scheme not SIP or TEL: sips:a@h"},
        {"", "alice", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <alice>"},
        {"", "", "UNKNOWN_URL", kNoColon + " / D bad data in BaseUrl::decode: <>"},
        {"", "sip:alice@hostA:50a0", "SipUrl", "E Failed in Decode (SIP_URL): sip:alice@hostA:50a0"},
        {"", "SIP:a@[2001:db8::1", "SipUrl", "E Failed in Decode (SIP_URL): SIP:a@[2001:db8::1"},
        {"", "sip:;transport=tcp", "SipUrl", "E Failed in Decode (SIP_URL): sip:;transport=tcp"},
        {"sip", "alice@hostA", "SipUrl", kNoColon + ": alice@hostA / E Failed in Decode (SIP_URL): alice@hostA"},
        {"sip", "sips:", "SipUrl", "D parse failed: scheme not SIP: sips: / E Failed in Decode (SIP_URL): sips:"},
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
            EXPECT_EQ(Vocal::getUrlTypeName(decoded->getType()), cls);
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
    const std::string rows[][3] = {  // input, encode (the address is the part before the first ";"), lr flag
        {"sip:alice@hostA:5060;lr;transport=tcp", "sip:alice@hostA:5060;lr;transport=tcp", ""},  // one name
        // Headers and everything after the first "?" are dropped; so is an empty port.
        {"sip:alice@hostA:;maddr=x?y;lr", "sip:alice@hostA;maddr=x", ""},
        // Only the last unknown parameter survives; a later known one replaces the earlier.
        {"sip:a@h;foo=1;bar=2;transport=tcp;transport=udp", "sip:a@h;transport=udp;bar=2", ""},
        {"sip:bob@b.example:5070;method=INVITE;maddr=239.1.1.1;ttl=15;user=ip;transport=udp;lr",
         "sip:bob@b.example:5070;transport=udp;ttl=15;maddr=239.1.1.1;user=ip;method=INVITE;lr", "lr"},
        {"sip:a@h; transport =tls;Ttl= 1 ", "sip:a@h;transport=tls;Ttl= 1 ", ""},  // names are trimmed
        {"SIP:Alice:pw@HOSTA:0", "SIP:Alice:pw@HOSTA", ""},
        {"sip:@hostA", "sip:hostA", ""},
        {"sip:alice@", "sip:alice@", ""},
        // IPv6 references keep their brackets; text around them is dropped.
        {"sip:alice@foo[2001:db8::1]:5070", "sip:alice@[2001:db8::1]:5070", ""},
        {"sip:[::1]junk:5062;lr", "sip:[::1]:5062;lr", "lr"},
        // Parameters after "user=phone" belong to the number and are written last.
        {"sip:5551234;isub=12@h;user=phone", "sip:5551234@h;user=phone;isub=12", ""},
        {"sip:555@h;isub=12;user=Phone", "sip:555@h;user=Phone;isub=12", ""},
        {"sip:+1@g;user=phone;postd=p;phone-context=e;z=9", "sip:+1@g;user=phone;postd=p;phone-context=e;z=9", ""},
        {std::string("sip:a@h;transport\0x=tcp;lr\0y", 28), "sip:a@h;transport=tcp;lr", "lr"},  // names end at a NUL
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        const CountedPtr<BaseUrl> decoded = url(row[0]);
        ASSERT_EQ(decoded->getType(), Vocal::SIP_URL);
        EXPECT_EQ(decoded->encode().str(), row[1]);
        EXPECT_EQ(decoded->encodeAddress().str(), row[1].substr(0, row[1].find(';')));
        EXPECT_EQ(decoded->isLooseRouting(), row[2] == "lr");
    }
    Vocal::setUrlParserRethrow(false);  // switched off, the partly decoded URL is kept
    EXPECT_EQ(url("sip:a@hostA:50a0;lr")->encode().str(), "sip:hostA:50a0");
    Vocal::setUrlParserRethrow(true);
}

struct Impostor : Vocal::UnknownUrl {  // some other code's class that reports a known URL type
    explicit Impostor(Vocal::UrlType in_type) : Vocal::UnknownUrl(TextBuffer("x:y")), type(in_type) {}
    Vocal::UrlType getType() const override { return type; }
    Vocal::UrlType type;
};

TEST(Urls, EqualityAndOrderFollowEachTypesRule) {
    const struct {
        const char* a;
        const char* b;
        int equal, aLess, bLess;  // a == b, a < b, b < a; -1: not checked (order only)
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
        {"foo:bar", "sip:a@h;lr", 0, 1, -1}, {"+0", "tel:1", 0, 1, -1}, {"x", "tel:1", 0, 0, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " , " + row.b);
        const CountedPtr<BaseUrl> a = url(row.a);
        const CountedPtr<BaseUrl> b = url(row.b);
        EXPECT_EQ(a->areEqual(b), row.equal == 1);
        EXPECT_EQ(b->areEqual(a.get()), row.equal == 1);
        EXPECT_TRUE(row.aLess < 0 || a->isLessThan(b) == (row.aLess == 1));
        EXPECT_TRUE(row.bLess < 0 || b->isLessThan(a) == (row.bLess == 1));
    }
    const Vocal::TelUrl noUser;  // equals any TEL URL and comes before one with a user
    EXPECT_TRUE(noUser.areEqual(url("tel:999").get()) && url("tel:999")->areEqual(&noUser));
    EXPECT_TRUE(noUser.isLessThan(url("tel:1")) && !url("tel:1")->isLessThan(noUser.duplicate()));
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
        EXPECT_FALSE(url(text)->areEqual(static_cast<const BaseUrl*>(nullptr)) ||
                     url(text)->areEqual(CountedPtr<BaseUrl>()) || url(text)->isLessThan(CountedPtr<BaseUrl>()))
            << text;
        const Impostor impostor(url(text)->getType());
        EXPECT_FALSE(url(text)->areEqual(&impostor)) << text;
        EXPECT_TRUE(url(text)->areEqual(url(text)->duplicate())) << text;
    }
    // With debug on, equality logs the fields of both sides.
    const std::string logs[][3] = {
        {"sip:a@h;ttl=1", "sip:h;ttl=1;user=x",
         "Url operator ==  function / D this.user= a / D this.passwd=  / D other.passwd=  / D this.host= h / "
         "D other.host= h / D this.ttlParam= 1 / D other.ttlParam= 1 / D this.maddrParam=  / "
         "D other.maddrParam=  / D this.userParam=   / D other.userParam= x / D this.methodParam=  / "
         "D other.methodParam=  / D this.otherParam=  / D other.otherParam=  / D this.headers =  / "
         "D other.headers =  / D sipUrl comparison: , returning: false"},
        {"tel:1", "TEL:2", "Url operator ==  function / D this.user= 1 / D other.user= 2 / "
                           "D this.schemeName =  / D other.schemeName=  / D TelUrl comparison: , returning: false"},
        {"im:a@h", "IM:b@h", "Url operator ==  function / D this.schemeName= im / D other.schemeName= IM / "
                             "D this.user= a / D other.user= b / D this.host= h / D other.host= h / "
                             "D ImpBaseUrl comparison: , returning: false"},
    };
    for (const auto& row : logs) {
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
        SipUrl bare;
        EXPECT_EQ(bare.setUserValue("+123;isub=4", c.first), c.second >= 0) << c.first;
        EXPECT_EQ(bare.getUser().isNull() ? -1 : bare.getUser()->getUserType(), c.second) << c.first;
    }
    EXPECT_TRUE(copy->setUserValue("bob", "foo"));
    EXPECT_EQ(copy->encode().str(), "sip:bob@hostA;user=foo;lr");
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
    EXPECT_EQ(pres.duplicate()->encode().str() + " " + pres.getHost().str(), "pres:bob@h@i h@i");
    EXPECT_EQ(url("im:@h")->encode().str() + " " + url("pres:a@")->encodeAddress().str(), "im:h pres:a@");
    const CountedPtr<BaseUrl> unknown = url("foo:bar");
    EXPECT_TRUE(unknown->setUserValue("alice", ""));
    unknown->setUser(CountedPtr<BaseUser>(new Vocal::SipUser(TextBuffer("x"))));
    EXPECT_EQ(unknown->encodeAddress().str() + "|" + unknown->getUserValue().str(), "foo:bar|");
}

TEST(SipTelSubscriberUser, DecodesNumberAndParametersAndRendersEachForm) {
    const char* const rows[][4] = {  // input, encode and parameter string, global form, local form
        {"+1-5;isub=12;postd=pp2", "+1-5;isub=12;postd=pp2", "+1-5;isub=12;postd=pp2", "1-5;isdn=12;postd=pp2"},
        {"ab+12+34", "+12+34", "+12+34", "12+34"},  // text ahead of "+" is lost
        {"5;phone-context=e;tsp=t", "5;phone-context=e;tsp=t", "+5;phone-contexte;tspt", "5;phone-context=e;tsp=t"},
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

TEST(TextBuffer, MatchAndParseCutAtTheFirstDelimiterAndTooLongTextsAreRefused) {
    // match: the text ahead of the whole delimiter goes out, cut from the input only when asked; parse: the
    // text ahead of the first byte of the set, cut with that byte; no byte of the set leaves the input whole.
    const char* const rows[][4] = {  // operation, input, delimiter or set, result output|rest
        {"match", "sip:alice", ":", "0 sip|sip:alice"}, {"match and cut", ":alice", ":", "-2 |alice"},
        {"match and cut", "alice", ":", "-1 -|alice"},  {"match and cut", "a;b;;c:", ";;", "0 a;b|c:"},
        {"parse", "host;lr:1", ":;", "; host|lr:1"},    {"parse", "hostA", ":;", "none |hostA"},
        {"parse", "a=b=c", "=", "= a|b=c"},             {"parse", "user=ip;lr", ":;=", "= user|ip;lr"},
    };
    for (const auto& row : rows) {
        TextBuffer input(row[1]);
        TextBuffer out("-");
        std::string result;
        if (row[0] == std::string("parse")) {
            char matched = 'x';
            out = input.parse(row[2], &matched);
            result = matched == '\0' ? "none" : std::string(1, matched);
        } else {
            result = std::to_string(input.match(row[2], &out, row[0] != std::string("match")));
        }
        EXPECT_EQ(result + " " + out.str() + "|" + input.str(), row[3]) << row[1];
    }
    // Long texts keep every byte, even appended to or cut into themselves; too long ones are refused unread.
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
    volatile size_t justTooLong = TextBuffer::kMaxLength - 3;
    EXPECT_THROW(moved.append(std::string_view(small, justTooLong)), std::length_error);
    EXPECT_EQ(moved.length(), 52);
}

TEST(CpLog, EachPriorityLogsAtItsLevelOnTheVocalLoggerAndOthersAreDropped) {
    // The log4cplus level of each priority from -1 to 11; 0: dropped.
    const int levels[] = {0, 50000, 50000, 50000, 40000, 30000, 20000, 20000, 10000, 10000, 10000, 10000, 0};
    std::string names;
    for (int priority = -1; priority <= 11; ++priority) {
        SCOPED_TRACE(priority);
        const int level = levels[priority + 1];
        LogCapture capture(0);
        cpLog(priority, "Caller.cpp", 77, "priority %d of %s", priority, "eleven");
        EXPECT_EQ(cpLogIsEnabled(priority), level > 0);
        const auto records = capture.records();
        ASSERT_EQ(records.size(), level > 0 ? 1u : 0u);
        if (records.empty()) continue;
        names += std::string(cpLogPriorityNames[priority]) + "/" + cpLogPriorityShortNames[priority] + ",";
        EXPECT_EQ(records[0].level, level);
        EXPECT_EQ(records[0].logger + " " + records[0].file, "corvane.media.vocal cpLog.cpp");
        EXPECT_EQ(records[0].message, "priority " + std::to_string(priority) + " of eleven");
    }
    EXPECT_EQ(names, "EMERG/EMRG,ALERT/ALRT,CRIT/CRIT,ERR/ERR ,WARNING/WARN,NOTICE/NOTC,INFO/INFO,DEBUG/DBUG,"
                     "DEBUG_STACK/DSTK,DEBUG_OPER/DOP ,DEBUG_HB/DHB ,");
    LogCapture capture(20000);  // the logger's level decides; long messages are cut to 4095 bytes
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG_STACK));
    cpLog(LOG_DEBUG, "f", 1, "hidden");
    cpLog(LOG_INFO, "f", 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(capture.messages("corvane.media.vocal"), std::vector<std::string>{std::string(4095, 'x')});
}

}  // namespace
