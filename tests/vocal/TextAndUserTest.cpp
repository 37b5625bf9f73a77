#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/LogCapture.h"
#include "vocal/NullUser.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUser.h"
#include "vocal/VException.h"
#include "vocal/cpLog.h"

using corvane_test::LogCapture;
using Vocal::BaseUser;
using Vocal::CountedPtr;
using Vocal::SipTelSubscriberUser;
using Vocal::TextBuffer;

namespace {

TEST(TextBuffer, MatchAndParseCutAtTheFirstDelimiter) {
    // match: the whole delimiter; the text before it goes out, and is cut from the input only when asked.
    const struct {
        const char* input;
        const char* delimiter;
        bool remove;
        int result;
        const char* outAndRest;
    } matches[] = {
        {"sip:alice", ":", false, TextBuffer::FOUND, "sip|sip:alice"},
        {":alice", ":", true, TextBuffer::FIRST, "|alice"},
        {"alice", ":", true, TextBuffer::NOT_FOUND, "-|alice"},
        {"a;b;;c:", ";;", true, TextBuffer::FOUND, "a;b|c:"},
    };
    for (const auto& c : matches) {
        TextBuffer input(c.input);
        TextBuffer out("-");
        EXPECT_EQ(input.match(c.delimiter, &out, c.remove), c.result) << c.input;
        EXPECT_EQ(out.str() + "|" + input.str(), c.outAndRest) << c.input;
    }
    // parse: cuts at the first byte of the set; none leaves the input whole.
    const char* const parses[][4] = {{"host;lr:1", ":;", "host", ";lr:1"}, {"hostA", ":;", "", "none hostA"},
                                     {"a=b=c", "=", "a", "=b=c"},          {"user=ip;lr", ":;=", "user", "=ip;lr"}};
    for (const auto& c : parses) {
        TextBuffer input(c[0]);
        char matched = 'x';
        const TextBuffer result = input.parse(c[1], &matched);
        EXPECT_EQ(result.str() + "|" + (matched == '\0' ? "none " : std::string(1, matched)) + input.str(),
                  std::string(c[2]) + "|" + c[3])
            << c[0];
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
            EXPECT_STREQ(cpLogPriorityNames[row.priority], row.name);
            EXPECT_STREQ(cpLogPriorityShortNames[row.priority], row.shortName);
        }
        EXPECT_EQ(cpLogIsEnabled(row.priority), row.level >= 0);
        const auto records = capture.records();
        ASSERT_EQ(records.size(), row.level >= 0 ? 1u : 0u);
        if (records.empty()) continue;
        EXPECT_EQ(records[0].level, row.level);
        EXPECT_EQ(records[0].logger, "corvane.media.vocal");
        EXPECT_EQ(records[0].message, "priority " + std::to_string(row.priority) + " of eleven");
        EXPECT_EQ(records[0].file, "cpLog.cpp");  // the caller's file is not reported
    }
    LogCapture capture(20000);  // the logger's level decides; long messages are cut to 4095 bytes
    EXPECT_FALSE(cpLogIsEnabled(LOG_DEBUG_STACK));
    cpLog(LOG_DEBUG, "f", 1, "hidden");
    cpLog(LOG_INFO, "f", 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(capture.messages("corvane.media.vocal"), std::vector<std::string>{std::string(4095, 'x')});
}

TEST(VException, NamesItsClassCarriesTheCodeAndIsLoggedWhenMade) {
    LogCapture capture;
    const Vocal::SipTelSubscriberUserParserException e("m4", "SipTelSubscriberUser.cpp", 40, 3);
    EXPECT_EQ(e.getName(), "SipTelSubscriberUserParserException");
    EXPECT_EQ(e.getError(), 3u);
    EXPECT_EQ(Vocal::ImpBaseUrlParserException("m3", "ImpBaseUrl.cpp", 30, 3).getParserError(), 3u);
    EXPECT_TRUE(capture.contains(10000, "Exception at SipTelSubscriberUser.cpp:40 m4"));
}

TEST(SipTelSubscriberUser, DecodesNumberAndParametersAndRendersEachForm) {
    const struct {
        const char* input;
        const char* fields;  // global flag|number|isub|postd|phone-context|tsp|other name|other value
        const char* params;
        const char* globalForm;
        const char* localForm;
    } rows[] = {
        {"+1-555;isub=12;postd=pp22", "+|1-555|12|pp22||||", ";isub=12;postd=pp22", "+1-555;isub=12;postd=pp22",
         "1-555;isdn=12;postd=pp22"},
        {"ab+12+34", "+|12+34||||||", "", "+12+34", "12+34"},  // text ahead of "+" is lost
        {"5551234;phone-context=ex.com;tsp=t1", "-|5551234|||ex.com|t1||", ";phone-context=ex.com;tsp=t1",
         "+5551234;phone-contextex.com;tspt1", "5551234;phone-context=ex.com;tsp=t1"},
        {"123;foo=1;bar=2;baz", "-|123|||||bar|2", ";bar=2", "+123;bar=2", "123;bar=2"},
        {"123;lr;isub=4", "-|123|||||lr;isub|4", ";lr;isub=4", "+123;lr;isub=4", "123;lr;isub=4"},
        {"1;isub=2;isub=3;Isub=5", "-|1|3||||Isub|5", ";isub=3;Isub=5", "+1;isub=3;Isub=5", "1;isdn=3;Isub=5"},
        {"1;x=", "-|1|||||x|", "", "+1", "1"},  // the other parameter needs name and value
        {"", "-|||||||", "", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const SipTelSubscriberUser user{TextBuffer(row.input)};
        const std::string fields = std::string(user.isGlobal() ? "+|" : "-|") + user.getNumber().str() + "|" +
                                   user.getIsub().str() + "|" + user.getPostd().str() + "|" +
                                   user.getPhoneContext().str() + "|" + user.getTsp().str() + "|" +
                                   user.getOtherName().str() + "|" + user.getOtherValue().str();
        EXPECT_EQ(fields, row.fields);
        EXPECT_EQ(user.encode().str(), (user.isGlobal() ? "+" : "") + user.getNumber().str());
        EXPECT_EQ(user.getParamString().str(), row.params);
        EXPECT_EQ(user.getGlobalForm().str(), row.globalForm);
        EXPECT_EQ(user.getLocalForm().str(), row.localForm);
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
    EXPECT_EQ(Vocal::TEL_PAUSE.str() + Vocal::TEL_WAIT.str() + Vocal::TEL_STAR.str() + Vocal::TEL_HASH.str() +
                  Vocal::TEL_DTMF_A.str() + Vocal::TEL_DTMF_B.str() + Vocal::TEL_DTMF_C.str() + Vocal::TEL_DTMF_D.str(),
              "pw*#ABCD");
}

// "t:TEXT" a telephone user, "s:TEXT" a SIP user, "n:" the null user.
CountedPtr<BaseUser> user(const char* in_szSpec) {
    const TextBuffer text(in_szSpec + 2);
    if (in_szSpec[0] == 't') return CountedPtr<BaseUser>(new SipTelSubscriberUser(text));
    if (in_szSpec[0] == 's') return CountedPtr<BaseUser>(new Vocal::SipUser(text));
    return CountedPtr<BaseUser>(new Vocal::NullUser);
}

TEST(Users, EqualityAndOrderFollowEachUserClassesRule) {
    const struct {
        const char* a;
        const char* b;
        bool equal, aLess, bLess;
    } rows[] = {
        // Telephone users: equal with the global flag and every field; less when any field is less.
        {"t:+1", "t:x+1", true, false, false},         {"t:+1", "t:1", false, false, false},
        {"t:1;isub=9", "t:2;isub=1", false, true, true}, {"t:1;isub=1", "t:1;isub=2", false, true, false},
        {"t:1;postd=1", "t:1;postd=2", false, true, false},
        {"t:1;phone-context=a", "t:1;phone-context=A", false, false, true},
        {"t:1;tsp=1", "t:1;tsp=2", false, true, false}, {"t:5;tsp=a", "t:5;tsp=a", true, false, false},
        {"t:1;a=2", "t:1;b=1", false, true, true},     {"t:1;x=a", "t:1;x=b", false, true, false},
        {"t:1", "s:1", false, false, false},
        // SIP users compare their text exactly; the null user equals only null users and is less than any other.
        {"s:Alice", "s:alice", false, true, false},    {"s:a", "s:a", true, false, false},
        {"n:", "n:", true, false, false},              {"n:", "s:", false, true, false},
        {"n:", "t:", false, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " , " + row.b);
        const CountedPtr<BaseUser> a = user(row.a);
        const CountedPtr<BaseUser> b = user(row.b)->duplicate();
        EXPECT_EQ(a->areEqual(b), row.equal);
        EXPECT_EQ(b->areEqual(a), row.equal);
        EXPECT_EQ(a->isLessThan(b), row.aLess);
        EXPECT_EQ(b->isLessThan(a), row.bLess);
        EXPECT_FALSE(a->areEqual(CountedPtr<BaseUser>()));
    }
    EXPECT_TRUE(user("n:")->decode("anything"));
    EXPECT_EQ(user("n:")->encode().str() + user("s: a b ")->encode().str(), " a b ");
}

}  // namespace
