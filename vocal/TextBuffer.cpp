#include "vocal/TextBuffer.h"

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

#include "TextScan.h"

namespace Vocal {

void TextBuffer::throwTooLong(size_t in_uiKept, size_t in_uiAdded) {
    throw std::length_error("TextBuffer: a text of " + std::to_string(in_uiKept) + " + " + std::to_string(in_uiAdded) +
                            " bytes is longer than the " + std::to_string(kMaxLength) + " bytes a TextBuffer holds");
}

void TextBuffer::grow(int32_t in_iLength, bool in_bKeep) {
    int32_t capacity = m_iCapacity;
    while (capacity < in_iLength) capacity = capacity < (INT32_MAX - 1) / 2 ? capacity * 2 + 1 : INT32_MAX - 1;
    char* p = static_cast<char*>(std::malloc(static_cast<size_t>(capacity) + 1));
    if (p == nullptr) throw std::bad_alloc();
    if (in_bKeep) std::memcpy(p, m_p, static_cast<size_t>(m_iLength) + 1);
    release();
    m_p = p;
    m_iCapacity = capacity;
    if (!in_bKeep) {
        m_iLength = 0;
        m_p[0] = '\0';
    }
}

TextBuffer& TextBuffer::appendGrowing(std::string_view in_view) {
    const std::string copy(in_view);  // in_view may point into the buffer that grows
    const int32_t length = m_iLength;
    grow(length + static_cast<int32_t>(copy.size()), true);
    std::memcpy(m_p + length, copy.data(), copy.size());
    m_iLength = length + static_cast<int32_t>(copy.size());
    m_p[m_iLength] = '\0';
    return *this;
}

void TextBuffer::take(TextBuffer& io_other) noexcept {
    if (io_other.onHeap()) {
        m_p = io_other.m_p;
        m_iCapacity = io_other.m_iCapacity;
        io_other.m_p = io_other.m_inline;
        io_other.m_iCapacity = kInlineCapacity;
    } else {
        std::memcpy(m_inline, io_other.m_inline, static_cast<size_t>(io_other.m_iLength) + 1);
    }
    m_iLength = io_other.m_iLength;
    io_other.m_iLength = 0;
    io_other.m_p[0] = '\0';
}

void TextBuffer::freeHeap() noexcept { std::free(m_p); }

void TextBuffer::release() noexcept {
    if (onHeap()) freeHeap();
    m_p = m_inline;
    m_iCapacity = kInlineCapacity;
    m_iLength = 0;
    m_inline[0] = '\0';
}

bool TextBuffer::isEqualNoCase(std::string_view in_other) const { return scan::equalNoCase(view(), in_other); }

int TextBuffer::match(const char* in_szDelimiter, TextBuffer* out_text, bool in_bRemove) {
    std::string_view rest = view();
    std::string_view before;
    const int result = scan::match(rest, in_szDelimiter, before, in_bRemove);
    if (result == NOT_FOUND) return result;
    TextBuffer ahead(before);  // copied first: out_text may be this buffer
    if (in_bRemove) assign(rest);
    if (out_text != nullptr) *out_text = std::move(ahead);
    return result;
}

TextBuffer TextBuffer::parse(const char* in_szSet, char* out_cMatched) {
    std::string_view rest = view();
    char matched = '\0';
    TextBuffer before(scan::parse(rest, in_szSet, matched));
    if (matched != '\0') assign(rest);
    if (out_cMatched != nullptr) *out_cMatched = matched;
    return before;
}

void TextBuffer::removeSpaces() { assign(scan::trimSpaces(view())); }

}  // namespace Vocal
