// The URL model's byte string: owned by value, always NUL-terminated, with the
// delimiter scanning that the URL parsers consume their input with.
//
// Texts of up to kInlineCapacity bytes live inside the object, so the fields
// of a typical URL (hosts included) are decoded without any allocation; longer
// texts go to a heap buffer that grows on demand.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Vocal {

class TextBuffer {
public:
    // Results of match().
    enum MatchResult {
        FOUND = 0,       // delimiter found after some text
        NOT_FOUND = -1,  // delimiter absent: input unchanged
        FIRST = -2       // delimiter found at position 0: the text ahead is empty
    };

    static constexpr int32_t kInlineCapacity = 31;  // bytes kept inside the object
    // The longest text a buffer holds; a longer one is refused with std::length_error.
    static constexpr size_t kMaxLength = INT32_MAX - 1;

    TextBuffer() noexcept { m_inline[0] = '\0'; }
    TextBuffer(const char* in_sz) : TextBuffer() { assign(in_sz ? std::string_view(in_sz) : std::string_view()); }  // NOLINT
    // A negative length is taken as 0.
    TextBuffer(const char* in_p, int in_iLength) : TextBuffer() {
        if (in_iLength > 0) assign(std::string_view(in_p, static_cast<size_t>(in_iLength)));
    }
    TextBuffer(const std::string& in_str) : TextBuffer() { assign(in_str); }  // NOLINT: texts convert freely
    explicit TextBuffer(std::string_view in_view) : TextBuffer() { assign(in_view); }
    TextBuffer(const TextBuffer& in_other) : TextBuffer() { assign(in_other.view()); }
    TextBuffer(TextBuffer&& in_other) noexcept : TextBuffer() { take(in_other); }
    ~TextBuffer() {
        if (onHeap()) freeHeap();
    }

    TextBuffer& operator=(const TextBuffer& in_other) {
        if (this != &in_other) assign(in_other.view());
        return *this;
    }
    TextBuffer& operator=(TextBuffer&& in_other) noexcept {
        if (this != &in_other) {
            release();
            take(in_other);
        }
        return *this;
    }

    int length() const { return m_iLength; }
    int capacity() const { return m_iCapacity; }
    bool empty() const { return m_iLength == 0; }
    void clear() {
        m_iLength = 0;
        m_p[0] = '\0';
    }
    const char* c_str() const { return m_p; }
    const char* data() const { return m_p; }
    char operator[](int in_iIndex) const { return m_p[in_iIndex]; }
    std::string_view view() const { return std::string_view(m_p, static_cast<size_t>(m_iLength)); }
    std::string str() const { return std::string(m_p, static_cast<size_t>(m_iLength)); }
    std::string toString() const { return str(); }

    TextBuffer& assign(std::string_view in_view) {
        checkLength(0, in_view.size());
        const int32_t length = static_cast<int32_t>(in_view.size());
        if (length > m_iCapacity) grow(length, false);
        if (length != 0) std::memmove(m_p, in_view.data(), in_view.size());
        m_iLength = length;
        m_p[length] = '\0';
        return *this;
    }
    TextBuffer& append(std::string_view in_view) {
        checkLength(static_cast<size_t>(m_iLength), in_view.size());
        const int32_t length = m_iLength + static_cast<int32_t>(in_view.size());
        if (length > m_iCapacity) return appendGrowing(in_view);
        if (!in_view.empty()) std::memmove(m_p + m_iLength, in_view.data(), in_view.size());
        m_iLength = length;
        m_p[length] = '\0';
        return *this;
    }
    TextBuffer& operator+=(const TextBuffer& in_other) { return append(in_other.view()); }
    TextBuffer& operator+=(const char* in_sz) { return append(std::string_view(in_sz)); }
    TextBuffer& operator+=(char in_c) { return append(std::string_view(&in_c, 1)); }

    // Byte-wise, case-sensitive comparisons of unsigned byte values up to the
    // terminating NUL.
    int compare(const char* in_sz) const { return std::strcmp(m_p, in_sz); }
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
    // Throws std::length_error, before anything changes, when in_uiAdded bytes
    // after in_uiKept would make a text longer than kMaxLength.
    static void checkLength(size_t in_uiKept, size_t in_uiAdded) {
        if (in_uiAdded > kMaxLength - in_uiKept) throwTooLong(in_uiKept, in_uiAdded);
    }
    [[noreturn]] static void throwTooLong(size_t in_uiKept, size_t in_uiAdded);
    // Makes room for in_iLength bytes and the NUL, keeping the text when asked.
    void grow(int32_t in_iLength, bool in_bKeep);
    // append() when the text does not fit; in_view may lie in this buffer.
    TextBuffer& appendGrowing(std::string_view in_view);
    // Takes in_other's text, leaving it empty; this buffer must hold no heap buffer.
    void take(TextBuffer& io_other) noexcept;
    // Frees the heap buffer, back to the empty inline text.
    void release() noexcept;
    void freeHeap() noexcept;
    bool onHeap() const { return m_p != m_inline; }

    int32_t m_iLength = 0;                    // bytes of text, without the NUL
    int32_t m_iCapacity = kInlineCapacity;    // bytes that fit in m_p, without the NUL
    char* m_p = m_inline;                     // the text: m_inline or a heap buffer
    char m_inline[kInlineCapacity + 1];       // storage of short texts
};

inline bool operator==(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) == 0; }
inline bool operator!=(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) != 0; }
inline bool operator<(const TextBuffer& a, const TextBuffer& b) { return a.compare(b) < 0; }
inline bool operator==(const TextBuffer& a, const char* b) { return a.compare(b) == 0; }
inline bool operator!=(const TextBuffer& a, const char* b) { return a.compare(b) != 0; }

inline TextBuffer operator+(TextBuffer a, const TextBuffer& b) { return a += b; }
inline TextBuffer operator+(TextBuffer a, const char* b) { return a += b; }

}  // namespace Vocal
