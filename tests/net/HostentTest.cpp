#include <arpa/inet.h>
#include <netdb.h>

#include <sstream>

#include <gtest/gtest.h>

#include "net/Hostent.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;

namespace {

Hostent make(const std::vector<std::string>& in_addresses) {
    Hostent h;
    h.setName("www.example.test");
    h.setAddressTypeAndLength(AF_INET, 4);
    for (const std::string& text : in_addresses) {
        in_addr address{};
        inet_aton(text.c_str(), &address);
        h.addAddress(&address);
    }
    return h;
}

std::string printed(const Hostent& in_h) {
    std::ostringstream os;
    in_h.write(os);
    return os.str();
}

const char* const kEmptyRecord = "ADDRTYPE : 0\nADDRLENGTH : 0";

}  // namespace

TEST(Hostent, StatusTextsNameEveryValueAndUnknownOnes) {
    const char* const texts[] = {"???",          "GHBN_SUCCESS",  "GHBN_TIMEOUT",     "GHBN_HOST_NOT_FOUND",
                                 "GHBN_NO_ADDRESS", "GHBN_NO_DATA", "GHBN_NO_RECOVERY", "GHBN_TRY_AGAIN",
                                 "GHBN_OTHER_ERROR", "???"};
    for (int value = -1; value <= 8; ++value) {
        EXPECT_STREQ(Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(value)),
                     texts[value + 1]);
    }
}

TEST(Hostent, DottedAddressIsRecognisedAndSplitFromItsPort) {
    const struct {
        const char* text;
        const char* address;  // null: not a dotted address
        const char* port;
    } rows[] = {
        {"10.0.0.1", "10.0.0.1", ""}, {"10.0.0.1:5060", "10.0.0.1", ":5060"}, {"1.2", "1.2", ""},
        {"999.1", "999.1", ""},       {"1.2.3.4.5", "1.2.3.4.5", ""},         {"1", nullptr, ""},
        {"host:5060", nullptr, ""},   {"10.0.0.1:", nullptr, ""},             {"10.0.0.1:50a", nullptr, ""},
        {".1.2", nullptr, ""},        {"1.2.", nullptr, ""},                  {"", nullptr, ""},
        {"1. 2", nullptr, ""},        {"1.2\n", "1.2", ""},                   {"a\n1.2:3", "1.2", ":3"},
    };
    for (const auto& row : rows) {
        std::string address = "untouched";
        std::string port = "untouched";
        EXPECT_EQ(Hostent::parseDottedIP(row.text, address, port), row.address != nullptr) << row.text;
        EXPECT_EQ(address, row.address != nullptr ? row.address : "untouched") << row.text;
        EXPECT_EQ(port, row.address != nullptr ? row.port : "untouched") << row.text;
    }
    // Every text over a small alphabet up to length 6: whole-text recognition and the search for the
    // address agree with the pattern itself.
    const Tarvik::BoostRegex pattern = Hostent::getDottedIPRegexp();
    std::vector<std::string> texts = {""};
    for (size_t i = 0; i < texts.size() && texts[i].size() < 6; ++i) {
        for (char c : std::string("1.:a\n")) texts.push_back(texts[i] + c);
    }
    for (const std::string& text : texts) {
        boost::smatch match;
        std::string address;
        std::string port;
        ASSERT_EQ(Hostent::parseDottedIP(text, address, port), pattern.search(text, match)) << text;
        EXPECT_EQ(address + port, match.empty() ? "" : match[1].str() + match[2].str()) << text;
        EXPECT_EQ(Hostent::isDottedIP(text), pattern.match(text)) << text;
    }
}

TEST(Hostent, RecordsAreDeepCopiesAndPrintEveryPartTheyHave) {
    Hostent empty;
    std::string out = "keep";
    EXPECT_FALSE(empty.isValid());
    EXPECT_FALSE(empty.getPrimaryOrFirstAddress(out));
    EXPECT_FALSE(empty.getPreferredAddressFirst(out, "10.0.0.1"));
    EXPECT_EQ(out, "keep");
    EXPECT_EQ(printed(empty), kEmptyRecord);
    Hostent copy;
    {
        Hostent source = make({"192.0.2.1", "10.0.0.255"});
        source = source;
        copy = source;
        EXPECT_EQ(printed(Hostent(source)), printed(source));
    }
    EXPECT_EQ(printed(copy),
              "HOSTNAME : www.example.test\nADDRTYPE : 2\nADDRLENGTH : 4\nADDRESS(ES) : \n\t192.0.2.1\n\t10.0.0.255");
    copy = empty;
    EXPECT_EQ(printed(copy), kEmptyRecord);

    // A record copied from the C library's form, with and without aliases.
    char name[] = "h";
    char alias1[] = "a1";
    char alias2[] = "a2";
    unsigned char bytes[] = {10, 1, 2, 3};
    char* addresses[] = {reinterpret_cast<char*>(bytes), nullptr};
    for (std::vector<char*> aliases : {std::vector<char*>{alias1, alias2, nullptr}, std::vector<char*>{nullptr}}) {
        const hostent raw{name, aliases.data(), AF_INET, 4, addresses};
        Hostent::setHostLookupForTest([&](const char*, hostent* out_result, char*, size_t, hostent** out_ppResult,
                                          int*) {
            *out_result = raw;
            *out_ppResult = out_result;
            return 0;
        });
        Hostent::GetHostByNameStatus status;
        ASSERT_TRUE(copy.getHostByName("h", status));
        Hostent::setHostLookupForTest({});
        const std::string lines = aliases.size() > 1 ? "ALIASE(S) : \n\ta1\n\ta2\n" : "";
        EXPECT_EQ(printed(Hostent(copy)), "HOSTNAME : h\n" + lines + "ADDRTYPE : 2\nADDRLENGTH : 4\nADDRESS(ES) : \n\t10.1.2.3");
    }
}

TEST(Hostent, AddressesAreTheirBytesInDecimalAndBadArgumentsAreRefused) {
    corvane_test::AssertCapture asserts;
    Hostent h = make({"10.0.0.1"});
    std::string out = "keep";
    EXPECT_FALSE(h.getAddress(1, out));
    EXPECT_EQ(out, "keep");
    EXPECT_EQ(asserts.size(), 0u) << "an index equal to the count is refused without an assertion";
    const unsigned char bytes[6] = {1, 2, 3, 250, 0, 255};
    Hostent six;
    six.addAddress(bytes);  // before the length is known: an empty block
    six.setAddressTypeAndLength(10, 6);
    six.addAddress(bytes);
    EXPECT_EQ(six.getNumAddress(), 2u);
    ASSERT_TRUE(six.getAddress(1, out));
    EXPECT_EQ(out, "1.2.3.250.0.255");
    six.addAddress(nullptr);
    six.setName(nullptr);
    EXPECT_EQ(asserts.texts(), (std::vector<std::string>{"in_pAddress != 0", "in_szHostname != 0"}));
    EXPECT_EQ(six.getNumAddress(), 2u);
}

TEST(Hostent, PrimaryAndPreferredAddressesWalkDownFromTheLast) {
    const Hostent h = make({"10.0.0.1", "10.0.0.2", "10.0.0.2", "10.0.0.3"});
    const struct {
        const char* primary;  // the parameter, or null when unset
        const char* chosen;
    } rows[] = {{nullptr, "10.0.0.1"}, {"10.0.0.3", "10.0.0.3"}, {"192.168.1.1", "10.0.0.1"}};
    for (const auto& row : rows) {
        std::string error;
        if (row.primary != nullptr) {
            ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue("corvane.net.primaryIPAddress", row.primary, error));
        }
        std::string out;
        EXPECT_TRUE(h.getPrimaryOrFirstAddress(out));
        EXPECT_EQ(out, row.chosen);
        Tarvik::GlobalConfig::getInstance().clearValue("corvane.net.primaryIPAddress");
    }
    corvane_test::LogCapture log;
    std::string out;
    ASSERT_TRUE(h.getPreferredAddressFirst(out, "10.0.0.2"));
    EXPECT_EQ(out, "10.0.0.2");
    EXPECT_EQ(log.messages("corvane.net.Hostent"),
              (std::vector<std::string>{"Fetched Address: 10.0.0.3", "Fetched Address: 10.0.0.2",
                                        "Address find: 10.0.0.2"}))
        << "the walk stops at the last of several equal addresses";
    ASSERT_TRUE(h.getPreferredAddressFirst(out, "nowhere"));
    EXPECT_EQ(out, "10.0.0.1");
}

TEST(Hostent, OneShotResolutionDropsThePortAndMapsFailures) {
    const struct {
        int hErrno;  // the lookup's failure, 0 for none
        Hostent::GetHostByNameStatus status;
        const char* text;
    } rows[] = {
        {0, Hostent::GHBN_SUCCESS, ""},
        {HOST_NOT_FOUND, Hostent::GHBN_HOST_NOT_FOUND, "GHBN_HOST_NOT_FOUND"},
        {TRY_AGAIN, Hostent::GHBN_TRY_AGAIN, "GHBN_TRY_AGAIN"},
        {NO_RECOVERY, Hostent::GHBN_NO_RECOVERY, "GHBN_NO_RECOVERY"},
        {NO_DATA, Hostent::GHBN_NO_DATA, "GHBN_NO_DATA"},
        {99, Hostent::GHBN_OTHER_ERROR, "GHBN_OTHER_ERROR"},
    };
    corvane_test::HostLookupHook hook;
    for (const auto& row : rows) {
        hook.setFailure(row.hErrno);
        corvane_test::LogCapture log;
        Hostent h = make({"10.0.0.9"});
        Hostent::GetHostByNameStatus status = Hostent::GHBN_TIMEOUT;
        EXPECT_EQ(h.getHostByName("10.9.9.9:5060", status), row.hErrno == 0);
        EXPECT_EQ(status, row.status);
        const std::string failure = std::string("ACE_OS::gethostbyname_r failed on hostname 10.9.9.9 : ") +
                                    row.text + ". localErrno = " + std::to_string(row.hErrno);
        EXPECT_EQ(log.messages("corvane.net.Hostent"),
                  row.hErrno == 0 ? std::vector<std::string>{} : std::vector<std::string>{failure});
        EXPECT_EQ(printed(h), row.hErrno == 0 ? "HOSTNAME : 10.9.9.9\nADDRTYPE : 2\nADDRLENGTH : 4\nADDRESS(ES) : "
                                                "\n\t10.9.9.9" : kEmptyRecord);
    }
}

TEST(Hostent, ObjectsAndBuffersAreCountedUnderTheHostentAccount) {
    Tarvik::MemAccount& account = Tarvik::MemAccount::get("Hostent");
    const long objects = account.getLiveObjects();
    const long bytes = account.getLiveBytes();
    Hostent* p = new Hostent(make({"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(account.getLiveObjects(), objects + 1);
    EXPECT_GT(account.getLiveBytes(), bytes);
    delete p;
    EXPECT_EQ(account.getLiveObjects(), objects);
    EXPECT_EQ(account.getLiveBytes(), bytes);
    EXPECT_STREQ(Hostent::getMemAccountName(), "Hostent");
}
