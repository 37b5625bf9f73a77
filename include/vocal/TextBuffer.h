// The URL model's byte string: owned by value, always NUL-terminated, with the
// delimiter scanning that the URL parsers consume their input with.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Vocal {

class TextBuffer {
public:
    // Results of match().
    enum MatchResult {
        FOUND = 0,       // delimiter found after some text
        NOT_FOUND = -1,  // delimiter absent: input unchanged
        FIRST = -2       // delimiter found at position 0: the text ahead is empty
    };

    TextBuffer() = default;
    TextBuffer(const char* in_sz) : m_str(in_sz ? in_sz : "") {}  // NOLINT: texts convert freely
    TextBuffer(const char* in_p, int in_iLength) : m_str(in_p, static_cast<size_t>(in_iLength)) {}
    TextBuffer(std::string in_str) : m_str(std::move(in_str)) {}  // NOLINT
    explicit TextBuffer(std::string_view in_view) : m_str(in_view) {}

    int length() const { return static_cast<int>(m_str.size()); }
    int capacity() const { return static_cast<int>(m_str.capacity()); }
    bool empty() const { return m_str.empty(); }
    void clear() { m_str.clear(); }
    const char* c_str() const { return m_str.c_str(); }
    const char* data() const { return m_str.data(); }
    char operator[](int in_iIndex) const { return m_str[static_cast<size_t>(in_iIndex)]; }
    const std::string& str() const { return m_str; }
    std::string_view view() const { return m_str; }
    std::string toString() const { return m_str; }

    TextBuffer& assign(std::string_view in_view) {
        m_str.assign(in_view.data(), in_view.size());
        return *this;
    }
    TextBuffer& append(std::string_view in_view) {
        m_str.append(in_view.data(), in_view.size());
        return *this;
    }
    TextBuffer& operator+=(const TextBuffer& in_other) { m_str += in_other.m_str; return *this; }
    TextBuffer& operator+=(const char* in_sz) { m_str += in_sz; return *this; }
    TextBuffer& operator+=(char in_c) { m_str += in_c; return *this; }

    // Byte-wise, case-sensitive comparisons of unsigned byte values up to the
    // terminating NUL.
    int compare(const char* in_sz) const { return std::strcmp(m_str.c_str(), in_sz); }
    int compare(const TextBuffer& in_other) const { return compare(in_other.c_str()); }

    // True when both texts have the same length and are equal ignoring ASCII case.
    bool isEqualNoCase(std::string_view in_other) const;
    bool isEqualNoCase(const TextBuffer& in_other) const { return isEqualNoCase(in_other.view()); }
    bool isEqualNoCase(const char* in_sz) const { return isEqualNoCase(std::string_view(in_sz)); }

    // Finds the first occurrence of the whole delimiter. On FOUND out_text gets
    // the text ahead of it, on FIRST the empty text; with in_bRemove the text up
    // to and including the delimiter leaves this buffer. NOT_FOUND leaves both
    // this buffer and out_text as they were.
    int match(const char* in_szDelimiter, TextBuffer* out_text, bool in_bRemove);
    // Cuts the text ahead of the first byte of the set, together with that byte,
    // and returns it; out_cMatched gets the byte. When no byte of the set occurs
    // the result is empty, this buffer stays whole and out_cMatched is '\0'.
    TextBuffer parse(const char* in_szSet, char* out_cMatched);
    // Removes leading and trailing blanks (the space character only).
    void removeSpaces();

private:
    std::string m_str;  // the bytes; std::string keeps them NUL-terminated
};

inline bool operator==(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) == 0; }
inline bool operator!=(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) != 0; }
inline bool operator<(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) < 0; }
inline bool operator==(const TextBuffer& a, const char* b) { return a.compare(b) == 0; }
inline bool operator!=(const TextBuffer& a, const char* b) { return a.compare(b) != 0; }

inline TextBuffer operator+(TextBuffer a, const TextBuffer& b) { return a += b; }
inline TextBuffer operator+(TextBuffer a, const char* b) { return a += b; }

}  // namespace Vocal
