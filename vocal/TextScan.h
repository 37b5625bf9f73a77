// Delimiter scanning over a view: the same cuts as TextBuffer::match and
// TextBuffer::parse, without copying or erasing, for the parsers' hot path.
#pragma once

#include <cstring>
#include <string_view>

#include "vocal/TextBuffer.h"

namespace Vocal {
namespace scan {

inline char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; }

// Same length and equal ignoring ASCII case.
// The text up to its first NUL byte: texts compare as TextBuffer's comparisons
// do, up to the terminating NUL.
inline std::string_view beforeNul(std::string_view in_text) { return in_text.substr(0, in_text.find('\0')); }

inline bool equalNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && lowerAscii(a[i]) != lowerAscii(b[i])) return false;
    }
    return true;
}

// Index of the first byte of io that is one of the set's bytes, or npos.
inline size_t findAny(std::string_view io, const char* in_szSet) {
    if (in_szSet[0] == '\0') return std::string_view::npos;
    if (in_szSet[1] == '\0') return io.find(in_szSet[0]);
    if (in_szSet[2] == '\0') {
        const char a = in_szSet[0];
        const char b = in_szSet[1];
        for (size_t i = 0; i < io.size(); ++i) {
            if (io[i] == a || io[i] == b) return i;
        }
        return std::string_view::npos;
    }
    return io.find_first_of(in_szSet);
}

// TextBuffer::parse on a view: returns the text ahead of the first byte of the
// set and drops it and the byte from io; out_c is that byte. None found: empty
// result, io whole, out_c '\0'.
inline std::string_view parse(std::string_view& io, const char* in_szSet, char& out_c) {
    const size_t pos = findAny(io, in_szSet);
    if (pos == std::string_view::npos) {
        out_c = '\0';
        return {};
    }
    out_c = io[pos];
    const std::string_view before = io.substr(0, pos);
    io.remove_prefix(pos + 1);
    return before;
}

// TextBuffer::match on a view; results are TextBuffer::MatchResult values.
inline int match(std::string_view& io, std::string_view in_delimiter, std::string_view& out_text,
                 bool in_bRemove) {
    const size_t pos = io.find(in_delimiter);
    if (pos == std::string_view::npos) return -1;
    out_text = io.substr(0, pos);
    if (in_bRemove) io.remove_prefix(pos + in_delimiter.size());
    return pos == 0 ? -2 : 0;
}

// Drops leading and trailing blanks (the space character only).
inline std::string_view trimSpaces(std::string_view in_view) {
    size_t begin = 0;
    size_t end = in_view.size();
    while (begin < end && in_view[begin] == ' ') ++begin;
    while (end > begin && in_view[end - 1] == ' ') --end;
    return in_view.substr(begin, end - begin);
}

// Cuts the next "name=value" parameter off io. The name runs to the next "="
// even past a ";", so a parameter without a value merges into the next one's
// name; the value runs to the next ";" or to the end. False, with io
// untouched, when no "=" is left.
inline bool nextParam(std::string_view& io, std::string_view& out_name, std::string_view& out_value) {
    char equals = '\0';
    out_name = parse(io, "=", equals);
    if (equals == '\0') return false;
    char semicolon = '\0';
    out_value = parse(io, ";", semicolon);
    if (semicolon == '\0') {
        out_value = io;
        io = {};
    }
    return true;
}

// Appends ";" + prefix + value when the value is set.
inline void appendParam(TextBuffer& io_out, const char* in_szPrefix, const TextBuffer& in_value) {
    if (in_value.empty()) return;
    io_out += ';';
    io_out += in_szPrefix;
    io_out += in_value;
}

}  // namespace scan
}  // namespace Vocal
