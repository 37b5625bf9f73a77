#include <gtest/gtest.h>

#include <string>

#include "vocal/NullUser.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUser.h"

using Vocal::BaseUser;
using Vocal::CountedPtr;
using Vocal::NullUser;
using Vocal::SipTelSubscriberUser;
using Vocal::SipUser;
using Vocal::TextBuffer;

namespace {

CountedPtr<BaseUser> tel(const char* in_szText) {
    return CountedPtr<BaseUser>(new SipTelSubscriberUser(TextBuffer(in_szText)));
}
CountedPtr<BaseUser> plain(const char* in_szText) { return CountedPtr<BaseUser>(new SipUser(TextBuffer(in_szText))); }
CountedPtr<BaseUser> none() { return CountedPtr<BaseUser>(new NullUser); }

// "+|number|isub|postd|phoneContext|tsp|otherName|otherValue" ("-" when not global).
std::string fields(const SipTelSubscriberUser& in_user) {
    return std::string(in_user.isGlobal() ? "+" : "-") + "|" + in_user.getNumber().str() + "|" +
           in_user.getIsub().str() + "|" + in_user.getPostd().str() + "|" + in_user.getPhoneContext().str() +
           "|" + in_user.getTsp().str() + "|" + in_user.getOtherName().str() + "|" +
           in_user.getOtherValue().str();
}

struct TelCase {
    const char* input;
    const char* fields;
    const char* encode;
    const char* params;
    const char* globalForm;
    const char* localForm;
};

TEST(SipTelSubscriberUser, DecodesNumberAndParametersAndRendersEachForm) {
    const TelCase cases[] = {
        {"+1-555-1234;isub=12;postd=pp22", "+|1-555-1234|12|pp22||||", "+1-555-1234", ";isub=12;postd=pp22",
         "+1-555-1234;isub=12;postd=pp22", "1-555-1234;isdn=12;postd=pp22"},
        {"abc+123", "+|123||||||", "+123", "", "+123", "123"},  // text ahead of "+" is lost
        {"12+34+56", "+|34+56||||||", "+34+56", "", "+34+56", "34+56"},
        {"123;foo=1;bar=2;baz", "-|123|||||bar|2", "123", ";bar=2", "+123;bar=2", "123;bar=2"},
        {"5551234;phone-context=example.com;tsp=t1", "-|5551234|||example.com|t1||", "5551234",
         ";phone-context=example.com;tsp=t1", "+5551234;phone-contextexample.com;tspt1",
         "5551234;phone-context=example.com;tsp=t1"},
        {"123;lr;isub=4", "-|123|||||lr;isub|4", "123", ";lr;isub=4", "+123;lr;isub=4", "123;lr;isub=4"},
        {"1;isub=2;isub=3;Isub=5", "-|1|3||||Isub|5", "1", ";isub=3;Isub=5", "+1;isub=3;Isub=5", "1;isdn=3;Isub=5"},
        {"1;x=", "-|1|||||x|", "1", "", "+1", "1"},   // the other parameter needs name and value
        {"1;=v", "-|1||||||v", "1", "", "+1", "1"},
        {"+;isub=1", "+||1|||||", "+", ";isub=1", ";isub=1", ";isdn=1"},
        {"", "-|||||||", "", "", "", ""},
    };
    for (const TelCase& c : cases) {
        const SipTelSubscriberUser user{TextBuffer(c.input)};
        EXPECT_EQ(fields(user), c.fields) << c.input;
        EXPECT_EQ(user.encode().str(), c.encode) << c.input;
        EXPECT_EQ(user.getParamString().str(), c.params) << c.input;
        EXPECT_EQ(user.getGlobalForm().str(), c.globalForm) << c.input;
        EXPECT_EQ(user.getLocalForm().str(), c.localForm) << c.input;
        EXPECT_EQ(user.getUserType(), 1);
    }
    // The telephone alphabet's one-character texts.
    EXPECT_EQ(Vocal::TEL_PAUSE.str() + Vocal::TEL_WAIT.str() + Vocal::TEL_STAR.str() + Vocal::TEL_HASH.str() +
                  Vocal::TEL_DTMF_A.str() + Vocal::TEL_DTMF_B.str() + Vocal::TEL_DTMF_C.str() + Vocal::TEL_DTMF_D.str(),
              "pw*#ABCD");
}

TEST(SipTelSubscriberUser, RenderingsAreCachedOnFirstRequestAndDecodeKeepsUnsetFields) {
    SipTelSubscriberUser user{TextBuffer("1;isub=2")};
    EXPECT_EQ(user.getGlobalForm().str(), "+1;isub=2");
    EXPECT_TRUE(user.decode("9;postd=8"));
    EXPECT_EQ(fields(user), "-|9|2|8||||");
    EXPECT_EQ(user.getGlobalForm().str(), "+1;isub=2");        // not refreshed
    EXPECT_EQ(user.getLocalForm().str(), "9;isdn=2;postd=8");  // first request: built now
    EXPECT_TRUE(user.decode("+7"));
    EXPECT_EQ(user.getLocalForm().str(), "9;isdn=2;postd=8");
    // A copy carries the caches along with the fields.
    const CountedPtr<BaseUser> copy = user.duplicate();
    EXPECT_EQ(dynamic_cast<const SipTelSubscriberUser&>(*copy).getGlobalForm().str(), "+1;isub=2");
    EXPECT_EQ(copy->encode().str(), "+7");
}

TEST(SipTelSubscriberUser, EqualWhenTheGlobalFlagAndEveryFieldAreEqual) {
    const std::pair<const char*, const char*> equal[] = {{"1;isub=2", "1;isub=2"}, {"+1", "x+1"}};
    const std::pair<const char*, const char*> different[] = {
        {"+1", "1"},           {"1", "2"},           {"1;isub=2", "1;isub=3"},
        {"1;postd=a", "1"},    {"1;phone-context=a", "1;phone-context=A"},
        {"1;tsp=a", "1"},      {"1;x=a", "1;y=a"},   {"1;x=a", "1;x=b"}};
    for (const auto& c : equal) EXPECT_TRUE(tel(c.first)->areEqual(tel(c.second))) << c.first;
    for (const auto& c : different) {
        EXPECT_FALSE(tel(c.first)->areEqual(tel(c.second))) << c.first << " " << c.second;
        EXPECT_FALSE(tel(c.second)->areEqual(tel(c.first))) << c.first << " " << c.second;
    }
    EXPECT_FALSE(tel("1")->areEqual(plain("1")));
    EXPECT_FALSE(tel("1")->areEqual(CountedPtr<BaseUser>()));
}

TEST(SipTelSubscriberUser, LessWhenAnyFieldIsLessSoTwoUsersCanEachBeLess) {
    struct Case {
        const char* a;
        const char* b;
        bool aLess;
        bool bLess;
    } cases[] = {
        {"1;isub=9", "2;isub=1", true, true},
        {"1", "2", true, false},
        {"+1", "1", false, false},  // the global flag takes no part
        {"1;isub=1", "1;isub=2", true, false},
        {"1;postd=1", "1;postd=2", true, false},
        {"1;phone-context=1", "1;phone-context=2", true, false},
        {"1;tsp=1", "1;tsp=2", true, false},
        {"1;a=1", "1;b=1", true, false},
        {"1;a=1", "1;a=2", true, false},
        {"1;a=2", "1;b=1", true, true},
        {"5;tsp=a", "5;tsp=a", false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(tel(c.a)->isLessThan(tel(c.b)), c.aLess) << c.a << " < " << c.b;
        EXPECT_EQ(tel(c.b)->isLessThan(tel(c.a)), c.bLess) << c.b << " < " << c.a;
    }
    EXPECT_FALSE(tel("1")->isLessThan(plain("2")));
    EXPECT_FALSE(tel("1")->isLessThan(none()));
}

TEST(SipUser, ComparesItsTextExactlyAndOnlyWithOtherSipUsers) {
    EXPECT_TRUE(plain("alice")->areEqual(plain("alice")));
    EXPECT_FALSE(plain("alice")->areEqual(plain("Alice")));
    EXPECT_TRUE(plain("Alice")->isLessThan(plain("alice")));
    EXPECT_FALSE(plain("alice")->isLessThan(plain("Alice")));
    EXPECT_FALSE(plain("1")->areEqual(tel("1")));
    EXPECT_FALSE(plain("0")->isLessThan(tel("1")));
    EXPECT_FALSE(plain("a")->isLessThan(none()));
    EXPECT_FALSE(plain("a")->areEqual(CountedPtr<BaseUser>()));
    EXPECT_EQ(plain(" a b ")->encode().str(), " a b ");
    EXPECT_EQ(plain("a")->getUserType(), 0);
    const CountedPtr<BaseUser> user = plain("alice");
    const CountedPtr<BaseUser> copy = user->duplicate();
    user->decode("bob");
    EXPECT_EQ(copy->encode().str(), "alice");
}

TEST(NullUser, EqualOnlyToNullUsersAndLessThanEveryOtherUser) {
    EXPECT_TRUE(none()->areEqual(none()));
    EXPECT_FALSE(none()->areEqual(plain("")));
    EXPECT_FALSE(none()->isLessThan(none()));
    EXPECT_TRUE(none()->isLessThan(plain("")));
    EXPECT_TRUE(none()->isLessThan(tel("")));
    EXPECT_FALSE(none()->isLessThan(CountedPtr<BaseUser>()));
    EXPECT_TRUE(none()->decode("anything"));
    EXPECT_EQ(none()->encode().str(), "");
    EXPECT_EQ(none()->duplicate()->getUserType(), 2);
}

}  // namespace
