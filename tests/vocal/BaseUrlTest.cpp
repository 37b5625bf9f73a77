#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

using corvane_test::LogCapture;
using Vocal::BaseUrl;
using Vocal::TextBuffer;

namespace {

struct DispatchCase {
    const char* input;
    Vocal::UrlType type;
    std::vector<std::string> debugLines;
};

TEST(BaseUrlDecode, ChoosesTheClassByTheSchemeInAnyCaseAndEqualLength) {
    const std::string noColon = "parse failed: could not find ':' separating URL type from body";
    const DispatchCase cases[] = {
        {"sip:alice@hostA;lr;transport=tcp?x=y", Vocal::SIP_URL, {}},
        {"SIP:alice@hostA", Vocal::SIP_URL, {}},
        {"sIp:hostA", Vocal::SIP_URL, {}},
        {"tel:+123", Vocal::TEL_URL, {}},
        {"Tel:123", Vocal::TEL_URL, {}},
        {"im:a@b", Vocal::IM_URL, {}},
        {"PRES:a@b", Vocal::PRES_URL, {}},
        {"sips:alice@hostA", Vocal::UNKNOWN_URL, {"parse failed: scheme not SIP or TEL: sips:alice@hostA"}},
        {"si:alice", Vocal::UNKNOWN_URL, {"parse failed: scheme not SIP or TEL: si:alice"}},
        {"mailto:a@b", Vocal::UNKNOWN_URL, {"parse failed: scheme not SIP or TEL: mailto:a@b"}},
        {" sip:a@b", Vocal::UNKNOWN_URL, {"parse failed: scheme not SIP or TEL:  sip:a@b"}},
        {":alice", Vocal::UNKNOWN_URL, {noColon, "bad data in BaseUrl::decode: <:alice>"}},
        {"alice", Vocal::UNKNOWN_URL, {noColon, "bad data in BaseUrl::decode: <alice>"}},
        {"", Vocal::UNKNOWN_URL, {noColon, "bad data in BaseUrl::decode: <>"}},
    };
    for (const DispatchCase& c : cases) {
        LogCapture capture(0);
        const TextBuffer text(c.input);
        const Vocal::CountedPtr<BaseUrl> url = BaseUrl::decode(text);
        ASSERT_FALSE(url.isNull()) << c.input;
        EXPECT_EQ(url->getType(), c.type) << c.input;
        const char* const names[] = {"SIP_URL", "TEL_URL", "IM_URL", "PRES_URL", "UNKNOWN_URL"};
        EXPECT_STREQ(Vocal::getUrlTypeName(url->getType()), names[url->getType()]);
        EXPECT_EQ(text.str(), c.input);  // decode leaves its text as it was
        std::vector<std::string> debug;
        for (const auto& record : capture.records()) {
            if (record.level == 10000 && record.message.rfind("completed decoding", 0) != 0) {
                debug.push_back(record.message);
            }
        }
        EXPECT_EQ(debug, c.debugLines) << c.input;
        if (c.type == Vocal::UNKNOWN_URL) {
            EXPECT_EQ(url->encode().str(), c.input);
        }
    }
}

TEST(BaseUrlDecode, PassesTheChosenClassesExceptionToTheCaller) {
    EXPECT_STREQ(Vocal::getUrlTypeName(static_cast<Vocal::UrlType>(5)), "");
    const std::pair<const char*, const char*> cases[] = {{"sip:a@h:x", "SipUrlParserException"},
                                                         {"SIP:alice@[::1", "SipUrlParserException"},
                                                         {"tel:", "TelUrlParserException"},
                                                         {"im:someone", "ImpBaseUrlParserException"},
                                                         {"pres:someone", "ImpBaseUrlParserException"}};
    for (const auto& c : cases) {
        LogCapture capture;
        try {
            BaseUrl::decode(TextBuffer(c.first));
            ADD_FAILURE() << "no exception for " << c.first;
        } catch (const VException& e) {
            EXPECT_EQ(e.getName(), c.second);
            EXPECT_EQ(e.getDescription(), "failed in Decode");
            EXPECT_EQ(e.getError(), 0u);
        }
        EXPECT_EQ(capture.count(std::string("parse failed: scheme not SIP or TEL: ") + c.first), 0u);
    }
}

// The family has no locks: separate URLs on separate threads share only the
// logger and constant tables, which must be safe to reach at once.
TEST(BaseUrlDecode, SeparateUrlsDecodeOnSeveralThreadsAtOnce) {
    const char* const texts[] = {"sip:a@h:1;lr", "tel:+1;isub=2", "im:a@b", "sips:x", "sip:a@h:x", "tel:"};
    LogCapture capture;  // every line is formatted, and none reaches the console
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&texts, &failures, t] {
            for (int round = 0; round < 200; ++round) {
                for (const char* text : texts) {
                    try {
                        const Vocal::CountedPtr<BaseUrl> url = BaseUrl::decode(TextBuffer(text));
                        if (!url->areEqual(url->duplicate())) ++failures[t];
                    } catch (const VException&) {
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

}  // namespace
