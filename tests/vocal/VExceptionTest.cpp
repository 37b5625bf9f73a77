#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "vocal/VException.h"

using corvane_test::LogCapture;

namespace {

TEST(VException, ParserExceptionsNameTheirClassAndCarryTheCodeTwice) {
    LogCapture capture;
    const Vocal::SipUrlParserException sip("m1", "SipUrl.cpp", 10, 8);
    const Vocal::TelUrlParserException tel("m2", "TelUrl.cpp", 20, 8);
    const Vocal::ImpBaseUrlParserException imp("m3", "ImpBaseUrl.cpp", 30, 3);
    const Vocal::SipTelSubscriberUserParserException user("m4", "SipTelSubscriberUser.cpp", 40, 0);
    const VException* all[] = {&sip, &tel, &imp, &user};
    const char* names[] = {"SipUrlParserException", "TelUrlParserException", "ImpBaseUrlParserException",
                           "SipTelSubscriberUserParserException"};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(all[i]->getName(), names[i]);
    EXPECT_EQ(imp.getDescription(), "m3");
    EXPECT_EQ(imp.getFileName(), "ImpBaseUrl.cpp");
    EXPECT_EQ(imp.getLine(), 30);
    EXPECT_EQ(imp.getError(), 3u);
    EXPECT_EQ(imp.getParserError(), 3u);
    EXPECT_EQ(sip.getParserError(), 8u);
    // Each construction is logged at DEBUG.
    EXPECT_TRUE(capture.contains(10000, "Exception at SipUrl.cpp:10 m1"));
    EXPECT_TRUE(capture.contains(10000, "Exception at SipTelSubscriberUser.cpp:40 m4"));
}

}  // namespace
