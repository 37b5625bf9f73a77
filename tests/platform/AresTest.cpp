#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Ares.h"
#include "support/DnsResponder.h"

namespace dns = corvane_test::dns;
using Tarvik::Ares::display_question;

namespace {

// "a.test IN A" then "b.<pointer to test> IN AAAA", then one A answer.
const std::vector<unsigned char> kAnswer = {
    0x12, 0x34, 0x81, 0x80, 0x00, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,  // header: 2 questions, 1 answer
    0x01, 'a', 0x04, 't', 'e', 's', 't', 0x00, 0x00, 0x01, 0x00, 0x01,        // at 12: a.test IN A
    0x01, 'b', 0xC0, 0x0E, 0x00, 0x1C, 0x00, 0x01,                            // at 24: b.test IN AAAA
    0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x3C, 0x00, 0x04, 0x0A, 0x00, 0x00, 0x01,
};
constexpr int kQuestion1End = 24;
constexpr int kQuestion2End = 32;

struct Parsed {
    const unsigned char* end;
    std::string name;
    std::string text;
};

Parsed parse(const std::vector<unsigned char>& in_message, size_t in_offset, int in_alen) {
    Parsed parsed{nullptr, "unchanged", "unchanged"};
    parsed.end = display_question(in_message.data() + in_offset, in_message.data(), in_alen, parsed.name, parsed.text);
    return parsed;
}

}  // namespace

TEST(AresDisplayQuestion, ReadsEachQuestionAndFailsOnEveryTruncation) {
    for (int alen = 0; alen <= static_cast<int>(kAnswer.size()); ++alen) {
        SCOPED_TRACE(alen);
        const Parsed first = parse(kAnswer, 12, alen);
        if (alen < kQuestion1End) {
            EXPECT_EQ(first.end, nullptr);
            EXPECT_EQ(first.name, "unchanged");
            EXPECT_EQ(first.text, "unchanged");
        } else {
            EXPECT_EQ(first.end, kAnswer.data() + kQuestion1End);
            EXPECT_EQ(first.name, "a.test");
            EXPECT_EQ(first.text, "a.test IN A");
        }
        // The compressed question reads bytes before it: it needs its own end only.
        const Parsed second = parse(kAnswer, kQuestion1End, alen);
        if (alen < kQuestion2End) {
            EXPECT_EQ(second.end, nullptr);
            EXPECT_EQ(second.text, "unchanged");
        } else {
            EXPECT_EQ(second.end, kAnswer.data() + kQuestion2End);
            EXPECT_EQ(second.name, "b.test");
            EXPECT_EQ(second.text, "b.test IN AAAA");
        }
    }
}

TEST(AresDisplayQuestion, FailsOnCorruptedNamesAndPositions) {
    const auto header = dns::header(1, dns::RESPONSE_FLAGS, 1, 0);
    const struct {
        const char* what;
        std::vector<unsigned char> message;
        long offset;  // where the question is said to start
    } cases[] = {
        {"label longer than the message", dns::cat({header, {0x3F, 'a', 'b'}}), 12},
        {"pointer beyond the message", dns::cat({header, {0xC0, 0xFF, 0x00, 0x01, 0x00, 0x01}}), 12},
        {"pointer to itself", dns::cat({header, {0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01}}), 12},
        {"two pointers in a loop",
         dns::cat({header, {0xC0, 0x0E, 0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01}}), 12},
        {"no type and class", dns::cat({header, dns::name("a.test")}), 12},
        {"only the type", dns::cat({header, dns::name("a.test"), dns::u16(1)}), 12},
        {"position at the end", dns::cat({header, dns::question("a.test")}), 24},
        {"position past the end", dns::cat({header, dns::question("a.test")}), 30},
        {"position before the message", dns::cat({header, dns::question("a.test")}), -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::string name = "unchanged";
        std::string text = "unchanged";
        // Inside a larger buffer, positions outside the message are still valid pointers.
        std::vector<unsigned char> storage(c.message.size() + 64);
        std::copy(c.message.begin(), c.message.end(), storage.begin() + 16);
        const unsigned char* abuf = storage.data() + 16;
        EXPECT_EQ(display_question(abuf + c.offset, abuf, static_cast<int>(c.message.size()), name, text), nullptr);
        EXPECT_EQ(name, "unchanged");
        EXPECT_EQ(text, "unchanged");
    }
    std::string name;
    std::string text;
    EXPECT_EQ(display_question(nullptr, kAnswer.data(), static_cast<int>(kAnswer.size()), name, text), nullptr);
    EXPECT_EQ(display_question(kAnswer.data() + 12, nullptr, static_cast<int>(kAnswer.size()), name, text), nullptr);
    EXPECT_EQ(display_question(kAnswer.data() + 12, kAnswer.data(), -5, name, text), nullptr);
}

TEST(AresDisplayQuestion, PrintsClassesAndTypesByNameOrNumber) {
    const struct {
        std::string name;
        uint16_t type;
        uint16_t dnsClass;
        const char* text;
    } cases[] = {
        {"a.test", 5, 1, "a.test IN CNAME"},      {"a.test", 33, 1, "a.test IN SRV"},
        {"a.test", 35, 1, "a.test IN NAPTR"},     {"a.test", 255, 255, "a.test ANY ANY"},
        {"a.test", 16, 3, "a.test CH TXT"},       {"a.test", 99, 1, "a.test IN TYPE99"},
        {"a.test", 1, 42, "a.test CLASS42 A"},    {"", 2, 1, ". IN NS"},
        {"A.Test", 1, 1, "A.Test IN A"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const auto message =
            dns::cat({dns::header(1, dns::RESPONSE_FLAGS, 1, 0), dns::question(c.name, c.type, c.dnsClass)});
        const Parsed parsed = parse(message, 12, static_cast<int>(message.size()));
        EXPECT_EQ(parsed.end, message.data() + message.size());
        EXPECT_EQ(parsed.name, c.name);
        EXPECT_EQ(parsed.text, c.text);
    }
}

TEST(AresCodes, NameEveryOpcodeAndRcode) {
    const std::pair<int, const char*> opcodes[] = {{0, "QUERY"}, {1, "IQUERY"}, {2, "STATUS"}, {4, "NOTIFY"},
                                                   {5, "UPDATE"}, {15, "UNKNOWN15"}};
    const std::pair<int, const char*> rcodes[] = {{0, "NOERROR"}, {1, "FORMERR"}, {2, "SERVFAIL"}, {3, "NXDOMAIN"},
                                                  {4, "NOTIMP"}, {5, "REFUSED"}, {15, "UNKNOWN15"}};
    for (const auto& row : opcodes) EXPECT_STREQ(Tarvik::Ares::opcodes[row.first], row.second);
    for (const auto& row : rcodes) EXPECT_STREQ(Tarvik::Ares::rcodes[row.first], row.second);
}
