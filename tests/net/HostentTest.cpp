#include <arpa/inet.h>
#include <netdb.h>

#include <gtest/gtest.h>

#include <sstream>

#include "net/Hostent.h"
#include "platform/GlobalConfig.h"
#include "support/AssertCapture.h"
#include "support/HostLookupHook.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;

namespace {

// A hostent as the C library hands it out, with the given aliases and addresses.
struct RawHostent {
    RawHostent(const char* name, std::vector<std::string> aliases, std::vector<std::string> addresses)
        : m_aliases(std::move(aliases)), m_addresses(std::move(addresses)) {
        for (auto& alias : m_aliases) m_aliasPtrs.push_back(&alias[0]);
        m_aliasPtrs.push_back(nullptr);
        for (const auto& text : m_addresses) {
            in_addr a{};
            inet_aton(text.c_str(), &a);
            m_blocks.push_back(a);
        }
        for (auto& block : m_blocks) m_addressPtrs.push_back(reinterpret_cast<char*>(&block));
        m_addressPtrs.push_back(nullptr);
        m_name = name ? name : "";
        raw.h_name = name ? &m_name[0] : nullptr;
        raw.h_aliases = m_aliasPtrs.data();
        raw.h_addrtype = AF_INET;
        raw.h_length = 4;
        raw.h_addr_list = m_addressPtrs.data();
    }
    hostent raw{};
    std::string m_name;
    std::vector<std::string> m_aliases;
    std::vector<char*> m_aliasPtrs;
    std::vector<std::string> m_addresses;
    std::vector<in_addr> m_blocks;
    std::vector<char*> m_addressPtrs;
};

Hostent make(const std::vector<std::string>& addresses, const char* name = "host") {
    Hostent h;
    if (name) h.setName(name);
    h.setAddressTypeAndLength(AF_INET, 4);
    for (const auto& text : addresses) {
        in_addr a{};
        inet_aton(text.c_str(), &a);
        h.addAddress(&a);
    }
    return h;
}

std::string printed(const Hostent& h) {
    std::ostringstream os;
    h.write(os);
    return os.str();
}

struct PrimaryParameter {
    explicit PrimaryParameter(const char* value) {
        std::string error;
        EXPECT_TRUE(Tarvik::GlobalConfig::getInstance().setValue("corvane.net.primaryIPAddress", value, error)) << error;
    }
    ~PrimaryParameter() { Tarvik::GlobalConfig::getInstance().clearValue("corvane.net.primaryIPAddress"); }
};

}  // namespace

TEST(Hostent, StatusTextsCoverEveryValueAndUnknownOnes) {
    const char* expected[] = {"GHBN_SUCCESS", "GHBN_TIMEOUT", "GHBN_HOST_NOT_FOUND", "GHBN_NO_ADDRESS",
                              "GHBN_NO_DATA", "GHBN_NO_RECOVERY", "GHBN_TRY_AGAIN", "GHBN_OTHER_ERROR"};
    for (int i = 0; i < 8; ++i) {
        EXPECT_STREQ(Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(i)), expected[i]);
    }
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(8)), "???");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(-1)), "???");
}

TEST(Hostent, DottedAddressPattern) {
    const struct {
        const char* text;
        bool dotted;
        bool parses;
        const char* address;
        const char* port;
    } cases[] = {
        {"10.0.0.1", true, true, "10.0.0.1", ""},
        {"10.0.0.1:5060", true, true, "10.0.0.1", ":5060"},
        {"1.2", true, true, "1.2", ""},
        {"999.1", true, true, "999.1", ""},
        {"1.2.3.4.5", true, true, "1.2.3.4.5", ""},
        {"1", false, false, "", ""},
        {"host:5060", false, false, "", ""},
        {"10.0.0.1:", false, false, "", ""},
        {"10.0.0.1:50a", false, false, "", ""},
        {".1.2", false, false, "", ""},
        {"1.2.", false, false, "", ""},
        {"", false, false, "", ""},
        {"a1.2", false, false, "", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Hostent::isDottedIP(c.text), c.dotted) << c.text;
        std::string address = "untouched";
        std::string port = "untouched";
        EXPECT_EQ(Hostent::parseDottedIP(c.text, address, port), c.parses) << c.text;
        if (c.parses) {
            EXPECT_EQ(address, c.address) << c.text;
            EXPECT_EQ(port, c.port) << c.text;
        } else {
            EXPECT_EQ(address, "untouched") << c.text;
            EXPECT_EQ(port, "untouched") << c.text;
        }
    }
    EXPECT_TRUE(Hostent::getDottedIPRegexp().match("1.2.3.4:1"));
}

TEST(Hostent, DefaultRecordIsEmptyAndPrintsTypeAndLengthOnly) {
    Hostent h;
    EXPECT_FALSE(h.isValid());
    EXPECT_EQ(h.getNumAddress(), 0u);
    std::string out = "keep";
    EXPECT_FALSE(h.getPrimaryOrFirstAddress(out));
    EXPECT_EQ(out, "keep");
    EXPECT_EQ(printed(h), "ADDRTYPE : 0\nADDRLENGTH : 0");
}

TEST(Hostent, CopiesAreDeepAndSelfAssignmentChangesNothing) {
    Hostent copy;
    {
        Hostent source = make({"192.0.2.1", "10.0.0.255"}, "www.example.test");
        source = source;
        EXPECT_EQ(source.getNumAddress(), 2u);
        copy = source;
        Hostent constructed(source);
        EXPECT_EQ(printed(constructed), printed(source));
    }
    EXPECT_EQ(printed(copy),
              "HOSTNAME : www.example.test\nADDRTYPE : 2\nADDRLENGTH : 4\nADDRESS(ES) : \n\t192.0.2.1\n\t10.0.0.255");
    copy = Hostent();  // assigning an empty record frees the name and lists
    EXPECT_EQ(printed(copy), "ADDRTYPE : 0\nADDRLENGTH : 0");
}

TEST(Hostent, PrintedFormListsAliasesUnderTheirOwnLine) {
    corvane_test::HostLookupHook hook;  // keeps the real resolver out of it
    (void)hook;
    RawHostent raw("h", {"a1", "a2"}, {"10.1.2.3"});
    // A record copied from the C library's form through the one-shot resolution path.
    Tarvik::Hostent::setHostLookupForTest([&](const char*, hostent* result, char*, size_t, hostent** out, int*) {
        *result = raw.raw;
        *out = result;
        return 0;
    });
    Hostent h;
    Hostent::GetHostByNameStatus status;
    ASSERT_TRUE(h.getHostByName("h", status));
    Tarvik::Hostent::setHostLookupForTest({});
    EXPECT_EQ(printed(h), "HOSTNAME : h\nALIASE(S) : \n\ta1\n\ta2\nADDRTYPE : 2\nADDRLENGTH : 4\nADDRESS(ES) : \n\t10.1.2.3");
    Hostent copy(h);
    EXPECT_EQ(printed(copy), printed(h));

    RawHostent noAliases("h", {}, {"10.1.2.3"});
    Tarvik::Hostent::setHostLookupForTest([&](const char*, hostent* result, char*, size_t, hostent** out, int*) {
        *result = noAliases.raw;
        *out = result;
        return 0;
    });
    ASSERT_TRUE(h.getHostByName("h", status));
    Tarvik::Hostent::setHostLookupForTest({});
    EXPECT_EQ(printed(h).find("ALIASE(S)"), std::string::npos) << "an empty alias array prints no line";
}

TEST(Hostent, GetAddressBoundsAndLongAddresses) {
    corvane_test::AssertCapture asserts;
    Hostent h = make({"10.0.0.1"});
    std::string out = "keep";
    EXPECT_FALSE(h.getAddress(1, out));
    EXPECT_EQ(out, "keep");
    EXPECT_EQ(asserts.size(), 0u) << "an index equal to the count is refused without an assertion";

    Hostent six;
    six.setAddressTypeAndLength(10, 6);
    const unsigned char bytes[6] = {1, 2, 3, 250, 0, 255};
    six.addAddress(bytes);
    ASSERT_TRUE(six.getAddress(0, out));
    EXPECT_EQ(out, "1.2.3.250.0.255");

    Hostent early;
    early.addAddress(bytes);  // before the length is known: an empty block
    EXPECT_EQ(early.getNumAddress(), 1u);
    ASSERT_TRUE(early.getAddress(0, out));
    EXPECT_EQ(out, "");

    early.addAddress(nullptr);
    early.setName(nullptr);
    EXPECT_TRUE(asserts.contains("in_pAddress != 0"));
    EXPECT_TRUE(asserts.contains("in_szHostname != 0"));
    EXPECT_EQ(early.getNumAddress(), 1u);
}

TEST(Hostent, PrimaryAndPreferredAddressWalkDownward) {
    Hostent h = make({"10.0.0.1", "10.0.0.2", "10.0.0.2", "10.0.0.3"});
    std::string out;
    ASSERT_TRUE(h.getPrimaryOrFirstAddress(out));
    EXPECT_EQ(out, "10.0.0.1") << "without the parameter: address 0";
    {
        PrimaryParameter primary("10.0.0.3");
        ASSERT_TRUE(h.getPrimaryOrFirstAddress(out));
        EXPECT_EQ(out, "10.0.0.3");
    }
    {
        PrimaryParameter primary("192.168.1.1");
        ASSERT_TRUE(h.getPrimaryOrFirstAddress(out));
        EXPECT_EQ(out, "10.0.0.1") << "no match leaves address 0";
    }
    corvane_test::LogCapture log;
    ASSERT_TRUE(h.getPreferredAddressFirst(out, "10.0.0.2"));
    EXPECT_EQ(out, "10.0.0.2");
    EXPECT_EQ(log.messages("corvane.net.Hostent"),
              (std::vector<std::string>{"Fetched Address: 10.0.0.3", "Fetched Address: 10.0.0.2",
                                        "Address find: 10.0.0.2"}))
        << "the walk stops at the last of several equal addresses";
    ASSERT_TRUE(h.getPreferredAddressFirst(out, "nowhere"));
    EXPECT_EQ(out, "10.0.0.1");
    Hostent empty;
    EXPECT_FALSE(empty.getPreferredAddressFirst(out, "10.0.0.1"));
}

TEST(Hostent, OneShotResolutionOfLiteralsAndLocalhost) {
    const struct {
        const char* name;
        const char* address;
    } cases[] = {{"127.0.0.1", "127.0.0.1"}, {"10.0.0.1:5060", "10.0.0.1"}, {"localhost", "127.0.0.1"}};
    for (const auto& c : cases) {
        Hostent h;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
        ASSERT_TRUE(h.getHostByName(c.name, status)) << c.name;
        EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
        std::string out;
        ASSERT_TRUE(h.getAddress(0, out));
        EXPECT_EQ(out, c.address) << c.name;
    }
}

TEST(Hostent, FailedResolutionMapsHErrnoAndEmptiesTheRecord) {
    const struct {
        int hErrno;
        Hostent::GetHostByNameStatus status;
        const char* text;
    } cases[] = {
        {HOST_NOT_FOUND, Hostent::GHBN_HOST_NOT_FOUND, "GHBN_HOST_NOT_FOUND"},
        {TRY_AGAIN, Hostent::GHBN_TRY_AGAIN, "GHBN_TRY_AGAIN"},
        {NO_RECOVERY, Hostent::GHBN_NO_RECOVERY, "GHBN_NO_RECOVERY"},
        {NO_DATA, Hostent::GHBN_NO_DATA, "GHBN_NO_DATA"},
        {-1, Hostent::GHBN_OTHER_ERROR, "GHBN_OTHER_ERROR"},
        {99, Hostent::GHBN_OTHER_ERROR, "GHBN_OTHER_ERROR"},
    };
    corvane_test::HostLookupHook hook;
    for (const auto& c : cases) {
        hook.setFailure(c.hErrno);
        corvane_test::LogCapture log;
        Hostent h = make({"10.0.0.9"});
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(h.getHostByName("10.9.9.9:5060", status));
        EXPECT_EQ(status, c.status);
        EXPECT_FALSE(h.isValid());
        EXPECT_EQ(printed(h), "ADDRTYPE : 0\nADDRLENGTH : 0");
        EXPECT_EQ(log.messages("corvane.net.Hostent"),
                  std::vector<std::string>{std::string("ACE_OS::gethostbyname_r failed on hostname 10.9.9.9 : ") +
                                           c.text + ". localErrno = " + std::to_string(c.hErrno)});
    }
}

TEST(Hostent, ObjectsAndBuffersAreCountedUnderTheHostentAccount) {
    Tarvik::MemAccount& account = Tarvik::MemAccount::get("Hostent");
    const long objects = account.getLiveObjects();
    const long bytes = account.getLiveBytes();
    {
        Hostent* p = new Hostent(make({"10.0.0.1", "10.0.0.2"}));
        EXPECT_EQ(account.getLiveObjects(), objects + 1);
        EXPECT_GT(account.getLiveBytes(), bytes);
        delete p;
    }
    EXPECT_EQ(account.getLiveObjects(), objects);
    EXPECT_EQ(account.getLiveBytes(), bytes);
    EXPECT_STREQ(Hostent::getMemAccountName(), "Hostent");
}

TEST(Hostent, DottedAddressShortcutAgreesWithThePattern) {
    // Every text over a small alphabet up to length 6, plus line breaks: the
    // recogniser must give exactly what the pattern gives.
    const std::string alphabet = "1.:a\n";
    const Tarvik::BoostRegex pattern = Hostent::getDottedIPRegexp();
    std::vector<std::string> texts = {""};
    for (size_t length = 1; length <= 6; ++length) {
        std::vector<std::string> longer;
        for (const std::string& t : texts) {
            if (t.size() != length - 1) continue;
            for (char c : alphabet) longer.push_back(t + c);
        }
        texts.insert(texts.end(), longer.begin(), longer.end());
    }
    for (const std::string& text : texts) {
        boost::smatch m;
        const bool expected = pattern.search(text, m);
        std::string address = "-", port = "-";
        ASSERT_EQ(Hostent::parseDottedIP(text, address, port), expected) << text;
        if (expected) {
            EXPECT_EQ(address, m[1].str()) << text;
            EXPECT_EQ(port, m[2].str()) << text;
        }
        EXPECT_EQ(Hostent::isDottedIP(text), pattern.match(text)) << text;
    }
}
