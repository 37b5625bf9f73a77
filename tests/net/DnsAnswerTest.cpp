// The DNS answer callback fed answer bytes and c-ares statuses directly: what
// the resolver makes of well-formed, odd, truncated and corrupted answers.
#include <ares.h>

#include <string>
#include <vector>

#include "DnsMode.h"
#include "support/LogCapture.h"

using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

// Everything one request's callback heard.
struct Heard {
    int results = 0;
    int timeouts = 0;
    int destroyed = 0;
    std::string name;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    std::string hostentName;
    std::vector<std::string> addresses;
    ACE_Time_Value ttl = ACE_Time_Value::zero;
    int told() const { return results + timeouts; }
};

class Recorder : public HostNameServer::GetHostByNameCallback {
public:
    explicit Recorder(Heard& io_heard) : m_heard(io_heard) {}
    ~Recorder() override { ++m_heard.destroyed; }
    bool onGhbnTimeout(const char* in_szHostname) override {
        ++m_heard.timeouts;
        m_heard.name = in_szHostname;
        return true;
    }
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value in_ttl) override {
        ++m_heard.results;
        m_heard.name = in_szHostname;
        m_heard.status = in_status;
        m_heard.hostentName = in_hostent.getHostent().h_name ? in_hostent.getHostent().h_name : "";
        for (size_t i = 0; i < in_hostent.getNumAddress(); ++i) {
            std::string address;
            in_hostent.getAddress(i, address);
            m_heard.addresses.push_back(address);
        }
        m_heard.ttl = in_ttl;
        return true;
    }

private:
    Heard& m_heard;
};

// Feeds one answer for a query of in_name; what the callback heard.
Heard deliver(const std::string& in_name, int in_iStatus, const dns::Bytes& in_answer, bool in_bUseCache = false) {
    Heard heard;
    HostNameServerPeer::dnsAnswer(HostNameServer::getInstance(), in_name, new Recorder(heard), in_bUseCache,
                                  in_iStatus, in_answer);
    return heard;
}

// Answers used throughout; records point at the question's name (offset 12).
dns::Bytes answerA() { return dns::response("a.test", {dns::a(dns::pointer(12), "10.0.0.1", 60)}); }
dns::Bytes answerCnameAA() {
    return dns::response("www.a.test", {dns::cname(dns::pointer(12), "edge.a.test", 300),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.2", 120),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.3", 45)});
}

class DnsAnswer : public corvane_test::DnsModeTest {};

}  // namespace

TEST_F(DnsAnswer, WellFormedAnswersGiveTheirAddressesInOrderAndTheLastRecordsTtl) {
    const dns::Bytes aThenTxt = dns::response(
        "txt.test", {dns::a(dns::pointer(12), "10.0.0.4", 60), dns::record(dns::pointer(12), dns::TYPE_TXT, 77, {2, 'h', 'i'})});
    const struct {
        const char* label;
        std::string name;
        dns::Bytes answer;
        std::vector<std::string> addresses;
        ACE_Time_Value ttl;
    } rows[] = {
        {"one A record", "a.test", answerA(), {"10.0.0.1"}, ACE_Time_Value(60)},
        {"CNAME then two A records: TTL of the last", "www.a.test", answerCnameAA(), {"10.0.0.2", "10.0.0.3"},
         ACE_Time_Value(45)},
        {"last record not A: its TTL decides", "txt.test", aThenTxt, {"10.0.0.4"}, ACE_Time_Value(77)},
        {"only a CNAME: success without address", "c.test",
         dns::response("c.test", {dns::cname(dns::pointer(12), "elsewhere.test", 30)}), {}, ACE_Time_Value(30)},
        {"no record at all", "empty.test", dns::response("empty.test", {}), {}, ACE_Time_Value::zero},
        {"TTL 0 stays zero", "zero.test", dns::response("zero.test", {dns::a(dns::pointer(12), "10.0.0.5", 0)}),
         {"10.0.0.5"}, ACE_Time_Value::zero},
        {"largest TTL that fits in signed milliseconds", "big.test",
         dns::response("big.test", {dns::a(dns::pointer(12), "10.0.0.6", 2147483)}), {"10.0.0.6"},
         ACE_Time_Value(2147483)},
        // 2,147,484 s is 2,147,484,000 ms: past INT32_MAX, it wraps to -2,147,483,296 ms.
        {"larger TTLs wrap negative", "wrap.test",
         dns::response("wrap.test", {dns::a(dns::pointer(12), "10.0.0.7", 2147484)}), {"10.0.0.7"},
         ACE_Time_Value(-2147483, -296000)},
        {"uncompressed owner names", "u.test", dns::response("u.test", {dns::a(dns::name("u.test"), "10.0.0.8", 5)}),
         {"10.0.0.8"}, ACE_Time_Value(5)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const Heard heard = deliver(row.name, ARES_SUCCESS, row.answer);
        EXPECT_EQ(heard.results, 1);
        EXPECT_EQ(heard.timeouts, 0);
        EXPECT_EQ(heard.destroyed, 1);
        EXPECT_EQ(heard.status, Hostent::GHBN_SUCCESS);
        EXPECT_EQ(heard.name, row.name);
        EXPECT_EQ(heard.hostentName, row.name);
        EXPECT_EQ(heard.addresses, row.addresses);
        EXPECT_EQ(heard.ttl, row.ttl);
    }
    EXPECT_EQ(live(corvane_test::kDnsContainerAccount), 0);
}

TEST_F(DnsAnswer, StatusesOtherThanSuccessMapToTheirOutcome) {
    const dns::Bytes nxdomain = dns::response("a.test", {}, dns::RCODE_NXDOMAIN);
    const struct {
        const char* label;
        int aresStatus;
        dns::Bytes answer;
        int results;  // else one time-out
        Hostent::GetHostByNameStatus status;
    } rows[] = {
        {"no data with an answer", ARES_ENODATA, answerA(), 1, Hostent::GHBN_NO_ADDRESS},
        {"not found with the NXDOMAIN answer", ARES_ENOTFOUND, nxdomain, 1, Hostent::GHBN_OTHER_ERROR},
        {"server failure", ARES_ESERVFAIL, nxdomain, 1, Hostent::GHBN_OTHER_ERROR},
        {"refused connection", ARES_ECONNREFUSED, answerA(), 1, Hostent::GHBN_OTHER_ERROR},
        {"time-out with an answer", ARES_ETIMEOUT, answerA(), 0, Hostent::GHBN_SUCCESS},
        // Without an answer the length check comes first, whatever the status.
        {"time-out without answer", ARES_ETIMEOUT, {}, 1, Hostent::GHBN_OTHER_ERROR},
        {"cancelled without answer", ARES_ECANCELLED, {}, 1, Hostent::GHBN_OTHER_ERROR},
        {"no data without answer", ARES_ENODATA, {}, 1, Hostent::GHBN_OTHER_ERROR},
        {"success without answer", ARES_SUCCESS, {}, 1, Hostent::GHBN_OTHER_ERROR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const Heard heard = deliver("a.test", row.aresStatus, row.answer);
        EXPECT_EQ(heard.results, row.results);
        EXPECT_EQ(heard.timeouts, 1 - row.results);
        EXPECT_EQ(heard.destroyed, 1);
        EXPECT_EQ(heard.name, "a.test");
        if (row.results == 1) {
            EXPECT_EQ(heard.status, row.status);
            EXPECT_TRUE(heard.addresses.empty());
            EXPECT_EQ(heard.ttl, ACE_Time_Value::zero);
        }
    }
    EXPECT_EQ(live(corvane_test::kDnsContainerAccount), 0);
}

TEST_F(DnsAnswer, AnswerHeaderIsLoggedAndAShortOneExplained) {
    corvane_test::LogCapture log;
    dns::Bytes nxdomain = dns::response("a.test", {}, dns::RCODE_NXDOMAIN);
    nxdomain[0] = 0x12;
    nxdomain[1] = 0x34;
    deliver("a.test", ARES_ENOTFOUND, nxdomain);
    EXPECT_EQ(log.count("HostNameServer::DNSARecordWork::aresCallback : id=4660, opcode=QUERY, rcode=NXDOMAIN"), 1u);
    EXPECT_EQ(log.count("HostNameServer::DNSARecordWork::aresCallback : strQuestion=a.test IN A"), 1u);

    log.clear();
    deliver("a.test", ARES_ETIMEOUT, dns::Bytes(11, 0));
    EXPECT_EQ(log.count("HostNameServer::DNSARecordWork::aresCallback : alen < HFIXEDSZ. Possible cause : c-ares "
                        "failed to build the DNS query. alen=11, HFIXEDSZ=12"),
              1u);
}

TEST_F(DnsAnswer, ARecordOfAnotherLengthFailsWithThePlaceholderName) {
    const dns::Bytes goodA = dns::a(dns::pointer(12), "10.0.0.1", 60);
    for (const size_t length : {0, 3, 5, 16}) {
        SCOPED_TRACE(length);
        const dns::Bytes badA = dns::record(dns::pointer(12), dns::TYPE_A, 60, dns::Bytes(length, 7));
        corvane_test::LogCapture log;
        const Heard heard = deliver("bad.test", ARES_SUCCESS, dns::response("bad.test", {goodA, badA}));
        EXPECT_EQ(heard.results, 1);
        EXPECT_EQ(heard.status, Hostent::GHBN_OTHER_ERROR);
        EXPECT_EQ(heard.name, "???hostname???");
        EXPECT_EQ(heard.addresses, std::vector<std::string>{"10.0.0.1"}) << "the result so far is handed on";
        EXPECT_EQ(heard.ttl, ACE_Time_Value::zero);
        EXPECT_TRUE(log.contains(Tarvik::ERROR_LOG_LEVEL, "aresCallback : aptr == 0"));
    }
}

TEST_F(DnsAnswer, RequestedNameWinsOverTheQuestionName) {
    const struct {
        const char* label;
        dns::Bytes answer;
        const char* questionName;
    } rows[] = {
        {"another name", dns::response("other.test", {dns::a(dns::pointer(12), "10.0.0.9", 60)}), "other.test"},
        {"other letter case", dns::response("A.Test", {dns::a(dns::pointer(12), "10.0.0.9", 60)}), "A.Test"},
        {"no question at all",
         dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 0, 1), dns::a(dns::name("x.test"), "10.0.0.9", 60)}), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        corvane_test::LogCapture log;
        const Heard heard = deliver("a.test", ARES_SUCCESS, row.answer);
        EXPECT_EQ(heard.status, Hostent::GHBN_SUCCESS);
        EXPECT_EQ(heard.name, "a.test");
        EXPECT_EQ(heard.hostentName, "a.test");
        EXPECT_EQ(heard.addresses, std::vector<std::string>{"10.0.0.9"});
        EXPECT_EQ(log.count(std::string("HostNameServer::DNSARecordWork::aresCallback : strHostName=") +
                            row.questionName + ", pCallback->m_strHostname=a.test"),
                  1u);
    }
    corvane_test::LogCapture log;
    deliver("a.test", ARES_SUCCESS, answerA());
    EXPECT_FALSE(log.contains(Tarvik::DEBUG_LOG_LEVEL, "strHostName=")) << "the same name is not remarked on";
}

TEST_F(DnsAnswer, OutcomeReachesTheCacheUnderTheRequestedName) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    set("corvane.net.HostNameServer.cacheFailures", "true");
    set("corvane.net.HostNameServer.cacheFlushTimeoutMs", "10000");  // a resolver of the process keeps an earlier one
    ASSERT_TRUE(Net::initializeLibrary());
    corvane_test::LogCapture log;
    deliver("a.test", ARES_SUCCESS, dns::response("other.test", {dns::a(dns::pointer(12), "10.0.0.9", 42)}), true);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : using specified TTL 42000ms"), 1u);
    Hostent h;
    Hostent::GetHostByNameStatus status;
    bool usable = false;
    ASSERT_TRUE(HostNameServerPeer::getHostentInCache(server(), "a.test", h, status, usable));
    EXPECT_TRUE(usable);
    EXPECT_FALSE(HostNameServerPeer::getHostentInCache(server(), "other.test", h, status, usable));

    deliver("zero.test", ARES_SUCCESS, dns::response("zero.test", {dns::a(dns::pointer(12), "10.0.0.5", 0)}), true);
    EXPECT_EQ(log.count("HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"), 1u);

    // Failures are recorded under the requested name, the placeholder name notwithstanding.
    deliver("bad.test", ARES_SUCCESS,
            dns::response("bad.test", {dns::record(dns::pointer(12), dns::TYPE_A, 60, dns::Bytes(5, 7))}), true);
    EXPECT_EQ(log.count("HostNameServer::cacheFailure : cached failure of bad.test"), 1u);
    const Heard timedOut = deliver("slow.test", ARES_ETIMEOUT, answerA(), true);
    EXPECT_EQ(timedOut.timeouts, 1);
    EXPECT_EQ(log.count("HostNameServer::cacheFailure : cached failure of slow.test"), 1u);
}

TEST_F(DnsAnswer, EveryTruncationGivesExactlyOneFailure) {
    const struct {
        const char* name;
        dns::Bytes answer;
    } rows[] = {{"a.test", answerA()}, {"www.a.test", answerCnameAA()}};
    for (const auto& row : rows) {
        for (size_t length = 0; length < row.answer.size(); ++length) {
            SCOPED_TRACE(std::string(row.name) + " cut at " + std::to_string(length));
            const Heard heard =
                deliver(row.name, ARES_SUCCESS, dns::Bytes(row.answer.begin(), row.answer.begin() + length));
            EXPECT_EQ(heard.told(), 1);
            EXPECT_EQ(heard.results, 1);
            EXPECT_EQ(heard.destroyed, 1);
            EXPECT_EQ(heard.status, Hostent::GHBN_OTHER_ERROR);
        }
        const Heard whole = deliver(row.name, ARES_SUCCESS, row.answer);
        EXPECT_EQ(whole.status, Hostent::GHBN_SUCCESS) << row.name;
    }
    EXPECT_EQ(live(corvane_test::kDnsContainerAccount), 0);
}

TEST_F(DnsAnswer, CorruptedCountsAndLengthsFailWithoutReadingPastTheAnswer) {
    // Offsets in answerCnameAA(): header 0-11 (question count 4-5, answer count 6-7), question 12-27
    // (12 bytes of name, type, class), CNAME from 28: owner pointer 28-29, type 30, class 32, TTL 34,
    // data length 38-39, data from 40.
    const dns::Bytes good = answerCnameAA();
    auto with = [&good](size_t in_offset, std::initializer_list<uint8_t> in_bytes) {
        dns::Bytes out = good;
        size_t at = in_offset;
        for (uint8_t b : in_bytes) out.at(at++) = b;
        return out;
    };
    const struct {
        const char* label;
        dns::Bytes answer;
        const char* name;  // the name handed to the callback
    } rows[] = {
        {"one answer more than there are", with(6, {0, 4}), "???hostname???"},
        {"most answers", with(6, {0xff, 0xff}), "???hostname???"},
        {"most questions", with(4, {0xff, 0xff}), "www.a.test"},
        {"CNAME data longer than the answer", with(38, {0xff, 0xff}), "???hostname???"},
        {"owner pointer past the end", with(28, {0xc0 | 0x3f, 0xff}), "???hostname???"},
        {"owner pointer to itself", with(28, {0xc0, 28}), "???hostname???"},
        {"question name pointer past the end", with(12, {0xc0 | 0x3f, 0xff}), "www.a.test"},
        {"question name pointer to itself", with(12, {0xc0, 12}), "www.a.test"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const Heard heard = deliver("www.a.test", ARES_SUCCESS, row.answer);
        EXPECT_EQ(heard.results, 1);
        EXPECT_EQ(heard.destroyed, 1);
        EXPECT_EQ(heard.status, Hostent::GHBN_OTHER_ERROR);
        EXPECT_EQ(heard.name, row.name);
    }
    // Fewer answers than there are: the rest is not read.
    const Heard fewer = deliver("www.a.test", ARES_SUCCESS, with(6, {0, 2}));
    EXPECT_EQ(fewer.status, Hostent::GHBN_SUCCESS);
    EXPECT_EQ(fewer.addresses, std::vector<std::string>{"10.0.0.2"});
    EXPECT_EQ(fewer.ttl, ACE_Time_Value(120));
}
