#include <sstream>

#include <gtest/gtest.h>

#include "net/Hostent.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;

namespace {

// A record of IPv4 addresses, each given by its last byte (10.0.0.x).
Hostent make(const std::vector<unsigned char>& in_lastBytes) {
    Hostent h;
    h.setName("www.example.test");
    h.setAddressTypeAndLength(AF_INET, 4);
    for (unsigned char last : in_lastBytes) {
        const unsigned char address[4] = {10, 0, 0, last};
        h.addAddress(address);
    }
    return h;
}

std::string printed(const Hostent& in_h) {
    std::ostringstream os;
    in_h.write(os);
    return os.str();
}

}  // namespace

TEST(Hostent, StatusTextsNameEveryValueAndUnknownOnes) {
    const char* const texts[] = {"???",          "GHBN_SUCCESS",     "GHBN_TIMEOUT",   "GHBN_HOST_NOT_FOUND",
                                 "GHBN_NO_ADDRESS", "GHBN_NO_DATA", "GHBN_NO_RECOVERY", "GHBN_TRY_AGAIN",
                                 "GHBN_OTHER_ERROR", "???"};
    for (int value = -1; value <= 8; ++value) {
        const auto status = static_cast<Hostent::GetHostByNameStatus>(value);
        EXPECT_STREQ(Hostent::getGetHostByNameStatusString(status), texts[value + 1]);
    }
}

// Every text over a small alphabet up to length 6, and a few others: recognising a whole dotted address and
// splitting one from its port (which keeps its colon) agree with the pattern; 999.1 and 1.2.3.4.5 match it.
TEST(Hostent, DottedAddressIsRecognisedAndSplitFromItsPort) {
    std::vector<std::string> texts = {"10.0.0.1:5060", "999.1", "1.2.3.4.5", "host:5060", "10.0.0.1:50a", ""};
    for (size_t i = texts.size() - 1; i < texts.size() && texts[i].size() < 6; ++i) {
        for (char c : std::string("1.:a\n")) texts.push_back(texts[i] + c);
    }
    const Tarvik::BoostRegex pattern = Hostent::getDottedIPRegexp();
    EXPECT_TRUE(pattern.match("10.0.0.1:5060") && pattern.match("999.1") && pattern.match("1.2.3.4.5"));
    for (const std::string& text : texts) {
        boost::smatch match;
        std::string address = "untouched";
        std::string port = "untouched";
        const bool found = pattern.search(text, match);
        ASSERT_EQ(Hostent::parseDottedIP(text, address, port), found) << text;
        EXPECT_EQ(address + "|" + port, found ? match[1] + "|" + match[2] : "untouched|untouched") << text;
        EXPECT_EQ(Hostent::isDottedIP(text), pattern.match(text)) << text;
    }
}

TEST(Hostent, RecordsAreDeepCopiesCountedUnderTheirAccount) {
    EXPECT_STREQ(Hostent::getMemAccountName(), "Hostent");
    Tarvik::MemAccount& account = Tarvik::MemAccount::get("Hostent");
    const long objects = account.getLiveObjects();
    const long bytes = account.getLiveBytes();
    corvane_test::AssertCapture asserts;
    Hostent* pCopy = new Hostent;
    EXPECT_EQ(account.getLiveObjects(), objects + 1);
    std::string out = "keep";
    EXPECT_FALSE(pCopy->isValid() || pCopy->getAddress(0, out) || pCopy->getPrimaryOrFirstAddress(out) ||
                 pCopy->getPreferredAddressFirst(out, "10.0.0.1"));
    EXPECT_EQ(out + "|" + printed(*pCopy), "keep|ADDRTYPE : 0\nADDRLENGTH : 0");
    {
        Hostent source = make({1, 255});
        source = source;
        *pCopy = Hostent(source);
    }
    EXPECT_EQ(printed(*pCopy),
              "HOSTNAME : www.example.test\nADDRTYPE : 2\nADDRLENGTH : 4\n"
              "ADDRESS(ES) : \n\t10.0.0.1\n\t10.0.0.255");
    EXPECT_FALSE(pCopy->getAddress(2, out)) << "an index equal to the count is refused without an assertion";
    const unsigned char bytes6[6] = {1, 2, 3, 250, 0, 255};
    pCopy->setAddressTypeAndLength(10, 6);
    pCopy->addAddress(bytes6);
    pCopy->addAddress(nullptr);
    pCopy->setName(nullptr);
    EXPECT_EQ(asserts.texts(), (std::vector<std::string>{"in_pAddress != 0", "in_szHostname != 0"}));
    EXPECT_TRUE(pCopy->getNumAddress() == 3 && pCopy->getAddress(2, out));
    EXPECT_EQ(out, "1.2.3.250.0.255");
    *pCopy = Hostent();
    pCopy->addAddress(bytes6);  // before the length is known: an empty block
    EXPECT_TRUE(pCopy->getAddress(0, out) && out.empty());
    delete pCopy;
    EXPECT_EQ(account.getLiveObjects(), objects);
    EXPECT_EQ(account.getLiveBytes(), bytes);
}

TEST(Hostent, PrimaryAndPreferredAddressesWalkDownFromTheLast) {
    const Hostent h = make({1, 2, 2, 3});
    const char* const kPrimary = "corvane.net.primaryIPAddress";
    const char* const rows[][2] = {{"", "10.0.0.1"}, {"10.0.0.3", "10.0.0.3"}, {"192.168.1.1", "10.0.0.1"}};
    for (const auto& row : rows) {  // the parameter (empty: unset), the address chosen
        std::string out;
        std::string error;
        if (*row[0] != '\0') Tarvik::GlobalConfig::getInstance().setValue(kPrimary, row[0], error);
        EXPECT_TRUE(h.getPrimaryOrFirstAddress(out));
        EXPECT_EQ(out, row[1]);
        Tarvik::GlobalConfig::getInstance().clearValue(kPrimary);
    }
    std::string out;
    EXPECT_TRUE(h.getPreferredAddressFirst(out, "nowhere") && out == "10.0.0.1");
    corvane_test::LogCapture log;
    EXPECT_TRUE(h.getPreferredAddressFirst(out, "10.0.0.2") && out == "10.0.0.2");
    EXPECT_EQ(log.messages("corvane.net.Hostent"),
              (std::vector<std::string>{"Fetched Address: 10.0.0.3", "Fetched Address: 10.0.0.2",
                                        "Address find: 10.0.0.2"}))
        << "the walk stops at the last of several equal addresses";
}

TEST(Hostent, OneShotResolutionCopiesTheSystemRecordOrMapsItsFailure) {
    char name[] = "h";
    char alias[] = "a1";
    char* aliases[] = {alias, alias, nullptr};
    unsigned char address[] = {10, 1, 2, 3};
    char* addresses[] = {reinterpret_cast<char*>(address), nullptr};
    hostent raw{name, aliases, AF_INET, 4, addresses};
    Hostent::setHostLookupForTest([&](const char*, hostent*, char*, size_t, hostent** out_ppResult, int*) {
        *out_ppResult = &raw;
        return 0;
    });
    Hostent h;
    Hostent::GetHostByNameStatus status;
    EXPECT_TRUE(h.getHostByName("h", status));
    Hostent::setHostLookupForTest({});
    EXPECT_EQ(printed(Hostent(h)),
              "HOSTNAME : h\nALIASE(S) : \n\ta1\n\ta1\nADDRTYPE : 2\nADDRLENGTH : 4\n"
              "ADDRESS(ES) : \n\t10.1.2.3");
    const struct {
        int hErrno;  // the lookup's failure, 0 for none
        Hostent::GetHostByNameStatus status;
    } rows[] = {{0, Hostent::GHBN_SUCCESS},        {HOST_NOT_FOUND, Hostent::GHBN_HOST_NOT_FOUND},
                {TRY_AGAIN, Hostent::GHBN_TRY_AGAIN}, {NO_RECOVERY, Hostent::GHBN_NO_RECOVERY},
                {NO_DATA, Hostent::GHBN_NO_DATA},  {99, Hostent::GHBN_OTHER_ERROR}};
    corvane_test::HostLookupHook hook;  // its record has an empty alias array, which prints no alias line
    for (const auto& row : rows) {
        hook.setFailure(row.hErrno);
        corvane_test::LogCapture log;
        EXPECT_EQ(h.getHostByName("10.9.9.9:5060", status), row.hErrno == 0);
        EXPECT_EQ(status, row.status);
        const std::string failure = std::string("ACE_OS::gethostbyname_r failed on hostname 10.9.9.9 : ") +
                                    Hostent::getGetHostByNameStatusString(row.status) +
                                    ". localErrno = " + std::to_string(row.hErrno);
        EXPECT_EQ(log.messages("corvane.net.Hostent"), std::vector<std::string>(row.hErrno != 0, failure));
        EXPECT_EQ(printed(h), row.hErrno != 0 ? "ADDRTYPE : 0\nADDRLENGTH : 0"
                                              : "HOSTNAME : 10.9.9.9\nADDRTYPE : 2\nADDRLENGTH : 4\n"
                                                "ADDRESS(ES) : \n\t10.9.9.9");
    }
}
