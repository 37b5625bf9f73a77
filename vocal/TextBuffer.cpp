#include "vocal/TextBuffer.h"

#include "TextScan.h"

namespace Vocal {

bool TextBuffer::isEqualNoCase(std::string_view in_other) const {
    return scan::equalNoCase(m_str, in_other);
}

int TextBuffer::match(const char* in_szDelimiter, TextBuffer* out_text, bool in_bRemove) {
    std::string_view rest = m_str;
    std::string_view before;
    const int result = scan::match(rest, in_szDelimiter, before, in_bRemove);
    if (result == NOT_FOUND) return result;
    std::string ahead(before);  // copied first: out_text may be this buffer
    if (in_bRemove) m_str.erase(0, m_str.size() - rest.size());
    if (out_text != nullptr) *out_text = TextBuffer(std::move(ahead));
    return result;
}

TextBuffer TextBuffer::parse(const char* in_szSet, char* out_cMatched) {
    std::string_view rest = m_str;
    char matched = '\0';
    TextBuffer before(scan::parse(rest, in_szSet, matched));
    if (matched != '\0') m_str.erase(0, m_str.size() - rest.size());
    if (out_cMatched != nullptr) *out_cMatched = matched;
    return before;
}

void TextBuffer::removeSpaces() {
    const std::string_view trimmed = scan::trimSpaces(m_str);
    if (trimmed.size() == m_str.size()) return;
    m_str.erase(0, static_cast<size_t>(trimmed.data() - m_str.data()));
    m_str.resize(trimmed.size());
}

}  // namespace Vocal
