// The DNS answer callback fed answer bytes and c-ares statuses directly: what
// the resolver makes of well-formed, odd, truncated and corrupted answers.
#include <ares.h>

#include "DnsMode.h"
#include "support/LogCapture.h"

using corvane_test::Heard;
using Tarvik::Hostent;
using Tarvik::HostNameServer;
using Tarvik::HostNameServerPeer;
namespace Net = Tarvik::Net;
namespace dns = corvane_test::dns;

namespace {

void deliver(Heard& out_heard, const std::string& name, int status, const dns::Bytes& answer,
             bool useCache = false) {
    HostNameServerPeer::dnsAnswer(HostNameServer::getInstance(), name, new corvane_test::Recorder(out_heard),
                                  useCache, status, answer);
}

// Answers used throughout; records point at the question's name (offset 12).
dns::Bytes answerA() { return dns::response("a.test", {dns::a(dns::pointer(12), "10.0.0.1", 60)}); }
dns::Bytes answerCnameAA() {
    return dns::response("www.a.test", {dns::cname(dns::pointer(12), "edge.a.test", 300),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.2", 120),
                                        dns::a(dns::name("edge.a.test"), "10.0.0.3", 45)});
}
dns::Bytes oneA(const char* name, const char* address, uint32_t ttl) {
    return dns::response(name, {dns::a(dns::pointer(12), address, ttl)});
}

class DnsAnswer : public corvane_test::DnsModeTest {};

TEST_F(DnsAnswer, AnswerGivesItsAddressesInOrderWithTheLastRecordsTtlOrAFailure) {
    dns::Bytes nxdomain = dns::response("a.test", {}, dns::RCODE_NXDOMAIN);
    nxdomain[0] = 0x12;  // id 4660
    nxdomain[1] = 0x34;
    const dns::Bytes goodA = dns::a(dns::pointer(12), "10.0.0.1", 60);
    const struct {
        const char* label;
        int aresStatus;
        dns::Bytes answer;
        Hostent::GetHostByNameStatus status;  // GHBN_TIMEOUT: the client hears of a time-out
        std::vector<std::string> addresses;
        ACE_Time_Value ttl;
        const char* toldName;
        const char* logged;  // "" for none
    } rows[] = {
        {"one A", ARES_SUCCESS, answerA(), Hostent::GHBN_SUCCESS, {"10.0.0.1"}, ACE_Time_Value(60), "a.test",
         "HostNameServer::DNSARecordWork::aresCallback : strQuestion=a.test IN A"},
        {"CNAME, A, A: the last TTL", ARES_SUCCESS, answerCnameAA(), Hostent::GHBN_SUCCESS, {"10.0.0.2", "10.0.0.3"},
         ACE_Time_Value(45), "a.test",
         "HostNameServer::DNSARecordWork::aresCallback : strHostName=www.a.test, pCallback->m_strHostname=a.test"},
        {"last record not A", ARES_SUCCESS,
         dns::response("a.test", {goodA, dns::record(dns::pointer(12), dns::TYPE_TXT, 77, {2, 'h', 'i'})}),
         Hostent::GHBN_SUCCESS, {"10.0.0.1"}, ACE_Time_Value(77), "a.test", ""},
        {"only a CNAME", ARES_SUCCESS, dns::response("a.test", {dns::cname(dns::pointer(12), "b.test", 30)}),
         Hostent::GHBN_SUCCESS, {}, ACE_Time_Value(30), "a.test", ""},
        // 2,147,484 s is 2,147,484,000 ms: past INT32_MAX, it wraps to -2,147,483,296 ms.
        {"TTL that wraps", ARES_SUCCESS, oneA("a.test", "10.0.0.7", 2147484), Hostent::GHBN_SUCCESS, {"10.0.0.7"},
         ACE_Time_Value(-2147483, -296000), "a.test", ""},
        {"no question", ARES_SUCCESS,
         dns::cat({dns::header(0, dns::RESPONSE_FLAGS, 0, 1), dns::a(dns::name("x.test"), "10.0.0.9", 5)}),
         Hostent::GHBN_SUCCESS, {"10.0.0.9"}, ACE_Time_Value(5), "a.test",
         "HostNameServer::DNSARecordWork::aresCallback : strHostName=, pCallback->m_strHostname=a.test"},
        {"A record of 5 bytes", ARES_SUCCESS,
         dns::response("a.test", {goodA, dns::record(dns::pointer(12), dns::TYPE_A, 60, dns::Bytes(5, 7))}),
         Hostent::GHBN_OTHER_ERROR, {"10.0.0.1"}, ACE_Time_Value::zero, "???hostname???", "aresCallback : aptr == 0"},
        {"no data", ARES_ENODATA, answerA(), Hostent::GHBN_NO_ADDRESS, {}, ACE_Time_Value::zero, "a.test", ""},
        {"not found", ARES_ENOTFOUND, nxdomain, Hostent::GHBN_OTHER_ERROR, {}, ACE_Time_Value::zero, "a.test",
         "HostNameServer::DNSARecordWork::aresCallback : id=4660, opcode=QUERY, rcode=NXDOMAIN"},
        {"time-out with an answer", ARES_ETIMEOUT, answerA(), Hostent::GHBN_TIMEOUT, {}, {}, "a.test", ""},
        // Without a whole header the length check comes first, whatever the status.
        {"time-out without answer", ARES_ETIMEOUT, dns::Bytes(11, 0), Hostent::GHBN_OTHER_ERROR, {},
         ACE_Time_Value::zero, "a.test",
         "HostNameServer::DNSARecordWork::aresCallback : alen < HFIXEDSZ. Possible cause : c-ares failed to build "
         "the DNS query. alen=11, HFIXEDSZ=12"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        corvane_test::LogCapture log;
        Heard heard;
        deliver(heard, "a.test", row.aresStatus, row.answer);
        const bool timedOut = row.status == Hostent::GHBN_TIMEOUT;
        EXPECT_EQ(heard.results.load(), timedOut ? 0 : 1);
        EXPECT_EQ(heard.timeouts.load(), timedOut ? 1 : 0);
        EXPECT_EQ(heard.destroyed.load(), 1);
        EXPECT_EQ(heard.name, row.toldName);
        EXPECT_EQ(heard.status, timedOut ? Hostent::GHBN_OTHER_ERROR : row.status);  // as the recorder began
        EXPECT_EQ(heard.addresses, row.addresses);
        EXPECT_EQ(heard.ttl, row.ttl);
        EXPECT_EQ(heard.recordName, row.aresStatus == ARES_ETIMEOUT ? "" : "a.test");
        EXPECT_EQ(log.count(row.logged), *row.logged ? 1u : 0u);
        const bool renamed = std::string(row.logged).find("strHostName=") != std::string::npos;
        EXPECT_EQ(log.contains(Tarvik::DEBUG_LOG_LEVEL, "strHostName="), renamed);
    }
    EXPECT_EQ(live(corvane_test::kDnsContainerAccount), 0);
}

TEST_F(DnsAnswer, OutcomeReachesTheCacheUnderTheRequestedName) {
    set("corvane.net.HostNameServer.cacheSuccess", "true");
    set("corvane.net.HostNameServer.cacheFailures", "true");
    set("corvane.net.HostNameServer.cacheFlushTimeoutMs", "10000");
    ASSERT_TRUE(Net::initializeLibrary());
    const struct {
        const char* name;
        int aresStatus;
        dns::Bytes answer;
        const char* logged;
    } rows[] = {
        {"a.test", ARES_SUCCESS, oneA("other.test", "10.0.0.9", 42),
         "HostNameServer::cacheSuccess : using specified TTL 42000ms"},
        {"zero.test", ARES_SUCCESS, oneA("zero.test", "10.0.0.5", 0),
         "HostNameServer::cacheSuccess : no TTL specified -> using default value 10000ms"},
        // The placeholder name of a bad record notwithstanding.
        {"bad.test", ARES_SUCCESS,
         dns::response("bad.test", {dns::record(dns::pointer(12), dns::TYPE_A, 60, dns::Bytes(5, 7))}),
         "HostNameServer::cacheFailure : cached failure of bad.test"},
        {"slow.test", ARES_ETIMEOUT, answerA(), "HostNameServer::cacheFailure : cached failure of slow.test"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        corvane_test::LogCapture log;
        Heard heard;
        deliver(heard, row.name, row.aresStatus, row.answer, true);
        EXPECT_EQ(log.count(row.logged), 1u);
        EXPECT_EQ(heard.told(), 1);
    }
    Hostent h;
    Hostent::GetHostByNameStatus status;
    bool usable = false;
    EXPECT_TRUE(HostNameServerPeer::getHostentInCache(server(), "a.test", h, status, usable));
    EXPECT_TRUE(usable);
    EXPECT_FALSE(HostNameServerPeer::getHostentInCache(server(), "other.test", h, status, usable));
}

TEST_F(DnsAnswer, EveryTruncationOrCorruptionGivesExactlyOneFailure) {
    // Offsets in answerCnameAA(): header 0-11 (question count 4-5, answer count 6-7), question 12-27,
    // CNAME from 28: owner pointer 28-29, type 30, class 32, TTL 34, data length 38-39, data from 40.
    const dns::Bytes good = answerCnameAA();
    const auto with = [&good](size_t offset, uint8_t first, uint8_t second) {
        dns::Bytes out = good;
        out.at(offset) = first;
        out.at(offset + 1) = second;
        return out;
    };
    std::vector<dns::Bytes> rows = {
        with(6, 0, 4),         // one answer more than there are
        with(4, 0xff, 0xff),   // most questions
        with(38, 0xff, 0xff),  // CNAME data longer than the answer
        with(28, 0xc0, 28),    // owner pointer to itself
        with(12, 0xc0, 12),    // question name pointer to itself
    };
    for (size_t length = 0; length < good.size(); ++length) rows.emplace_back(good.begin(), good.begin() + length);
    for (const dns::Bytes& answer : rows) {
        SCOPED_TRACE(::testing::PrintToString(answer));
        Heard heard;
        deliver(heard, "www.a.test", ARES_SUCCESS, answer);
        EXPECT_EQ(heard.results.load(), 1);
        EXPECT_EQ(heard.destroyed.load(), 1);
        EXPECT_EQ(heard.status, Hostent::GHBN_OTHER_ERROR);
    }
    // Fewer answers than there are: the rest is not read.
    Heard fewer;
    deliver(fewer, "www.a.test", ARES_SUCCESS, with(6, 0, 2));
    EXPECT_EQ(fewer.status, Hostent::GHBN_SUCCESS);
    EXPECT_EQ(fewer.addresses, std::vector<std::string>{"10.0.0.2"});
    EXPECT_EQ(fewer.ttl, ACE_Time_Value(120));
}

}  // namespace
