#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "vocal/TextBuffer.h"

using Vocal::TextBuffer;

namespace {

struct MatchCase {
    const char* input;
    const char* delimiter;
    bool remove;
    int result;
    const char* out;   // expected output text (unchanged "-" marker when NOT_FOUND)
    const char* rest;  // input afterwards
};

TEST(TextBuffer, MatchFindsTheWholeDelimiterAndCutsOnlyWhenAsked) {
    const MatchCase cases[] = {
        {"sip:alice", ":", false, TextBuffer::FOUND, "sip", "sip:alice"},
        {"sip:alice", ":", true, TextBuffer::FOUND, "sip", "alice"},
        {":alice", ":", false, TextBuffer::FIRST, "", ":alice"},
        {":alice", ":", true, TextBuffer::FIRST, "", "alice"},
        {"alice", ":", true, TextBuffer::NOT_FOUND, "-", "alice"},
        {"a;b;;c", ";;", true, TextBuffer::FOUND, "a;b", "c"},       // the whole delimiter, not one byte of it
        {"a;b", ";;", true, TextBuffer::NOT_FOUND, "-", "a;b"},
        {"x:y:z", ":", true, TextBuffer::FOUND, "x", "y:z"},           // the first occurrence
    };
    for (const MatchCase& c : cases) {
        TextBuffer input(c.input);
        TextBuffer out("-");
        EXPECT_EQ(input.match(c.delimiter, &out, c.remove), c.result) << c.input;
        EXPECT_EQ(out.str(), c.out) << c.input;
        EXPECT_EQ(input.str(), c.rest) << c.input;
    }
}

struct ParseCase {
    const char* input;
    const char* set;
    const char* result;
    char matched;
    const char* rest;
};

TEST(TextBuffer, ParseCutsAtTheFirstByteOfTheSet) {
    const ParseCase cases[] = {
        {"host:5060;lr", ":;", "host", ':', "5060;lr"},
        {"host;lr:1", ":;", "host", ';', "lr:1"},
        {";lr", ";", "", ';', "lr"},
        {"hostA", ":;", "", '\0', "hostA"},  // none: empty result, input whole
        {"", "=", "", '\0', ""},
        {"a=b=c", "=", "a", '=', "b=c"},
    };
    for (const ParseCase& c : cases) {
        TextBuffer input(c.input);
        char matched = 'x';
        EXPECT_EQ(input.parse(c.set, &matched).str(), c.result) << c.input;
        EXPECT_EQ(matched, c.matched) << c.input;
        EXPECT_EQ(input.str(), c.rest) << c.input;
    }
}

TEST(TextBuffer, ScanningKeepsBytesPastAnEmbeddedNul) {
    TextBuffer input(std::string("a\0b:c", 5));
    TextBuffer out;
    EXPECT_EQ(input.match(":", &out, true), TextBuffer::FOUND);
    EXPECT_EQ(out.length(), 3);
    EXPECT_EQ(input.str(), "c");
}

TEST(TextBuffer, RemoveSpacesTrimsOnlyBlanksAtBothEnds) {
    const std::pair<const char*, const char*> cases[] = {
        {"  transport ", "transport"}, {"a b", "a b"}, {"\ttab\t", "\ttab\t"}, {"   ", ""}, {"", ""}};
    for (const auto& c : cases) {
        TextBuffer text(c.first);
        text.removeSpaces();
        EXPECT_EQ(text.str(), c.second) << '"' << c.first << '"';
    }
}

TEST(TextBuffer, NoCaseEqualityNeedsEqualLength) {
    EXPECT_TRUE(TextBuffer("SiP").isEqualNoCase("sip"));
    EXPECT_TRUE(TextBuffer("").isEqualNoCase(""));
    EXPECT_FALSE(TextBuffer("sips").isEqualNoCase("sip"));
    EXPECT_FALSE(TextBuffer("sip").isEqualNoCase("sips"));
    // Only ASCII letters fold: '@' (0x40) and '`' (0x60) differ by the case bit.
    EXPECT_FALSE(TextBuffer("@").isEqualNoCase("`"));
    EXPECT_FALSE(TextBuffer("[").isEqualNoCase("{"));
}

TEST(TextBuffer, ComparisonsUseUnsignedBytesAndAreCaseSensitive) {
    EXPECT_TRUE(TextBuffer("Alice") < TextBuffer("alice"));
    EXPECT_TRUE(TextBuffer("z") < TextBuffer("\xe9"));  // 0xe9 is greater than 'z'
    EXPECT_FALSE(TextBuffer("\xe9") < TextBuffer("z"));
    EXPECT_TRUE(TextBuffer("") < TextBuffer("a"));
    EXPECT_TRUE(TextBuffer("abc") == TextBuffer("abc"));
    EXPECT_TRUE(TextBuffer("abc") != TextBuffer("abC"));
    // Comparisons stop at the terminating NUL.
    EXPECT_TRUE(TextBuffer(std::string("a\0x", 3)) == TextBuffer("a"));
}

TEST(TextBuffer, LongTextsGrowOnTheHeapAndCopiesAndMovesKeepEveryByte) {
    TextBuffer text("0123456789");
    const std::string expected = "01234567890123456789012345678901234567890123456789012345678901234567890123456789";
    for (int i = 0; i < 7; ++i) text += TextBuffer("0123456789");
    EXPECT_EQ(text.str(), expected);
    EXPECT_GE(text.capacity(), text.length());
    EXPECT_EQ(text.c_str()[text.length()], '\0');

    TextBuffer copy(text);
    TextBuffer moved(std::move(copy));
    EXPECT_EQ(moved.str(), expected);
    EXPECT_TRUE(copy.empty());  // NOLINT: a moved-from text is empty
    EXPECT_STREQ(copy.c_str(), "");
    copy = moved;
    EXPECT_EQ(copy.str(), expected);
    TextBuffer shortText("short");
    shortText = std::move(moved);
    EXPECT_EQ(shortText.str(), expected);
    moved = TextBuffer("again");  // a moved-from text is usable
    EXPECT_EQ(moved.str(), "again");

    // Appending a text to itself while it grows.
    TextBuffer twice("abcdefghijklmnopqrstuvwxyz");
    twice += twice;
    EXPECT_EQ(twice.str(), "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz");
    // Cutting a long text into itself.
    EXPECT_EQ(twice.match("z", &twice, true), TextBuffer::FOUND);
    EXPECT_EQ(twice.str(), "abcdefghijklmnopqrstuvwxy");
    twice.clear();
    EXPECT_EQ(twice.length(), 0);
    EXPECT_STREQ(twice.c_str(), "");
}

TEST(TextBuffer, TextLongerThanItsLengthHoldsIsRefusedBeforeAnyByteIsRead) {
    // Only the size is looked at: the bytes behind it are never read.
    const char small[] = "x";
    volatile size_t hugeSize = size_t(1) << 31;  // unknown to the compiler, which would warn of the copy
    const std::string_view huge(small, hugeSize);
    TextBuffer text("kept");
    EXPECT_THROW(text.assign(huge), std::length_error);
    EXPECT_THROW(text.append(huge), std::length_error);
    EXPECT_THROW(TextBuffer{huge}, std::length_error);
    EXPECT_EQ(text.str(), "kept");
    volatile size_t justTooLongSize = TextBuffer::kMaxLength - 3;
    const std::string_view justTooLong(small, justTooLongSize);
    EXPECT_THROW(text.append(justTooLong), std::length_error);
    EXPECT_EQ(text.str(), "kept");
}

}  // namespace
