#include "platform/StringVector.h"

#include <cstdarg>
#include <cstdio>

namespace Tarvik {

void strTokenize(const std::string& in_strText, StringVector& out_vector, char in_cSeparator) {
    std::string::size_type start = 0;
    while (start <= in_strText.size()) {
        std::string::size_type end = in_strText.find(in_cSeparator, start);
        if (end == std::string::npos) end = in_strText.size();
        if (end > start) out_vector.push_back(in_strText.substr(start, end - start));
        start = end + 1;
    }
}

std::string format(const char* in_szFormat, ...) {
    va_list args;
    va_start(args, in_szFormat);
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(nullptr, 0, in_szFormat, copy);
    va_end(copy);
    std::string out;
    if (needed > 0) {
        out.resize(static_cast<size_t>(needed) + 1);
        std::vsnprintf(&out[0], out.size(), in_szFormat, args);
        out.resize(static_cast<size_t>(needed));
    }
    va_end(args);
    return out;
}

}  // namespace Tarvik
