// A list of texts, and the tokenizer that fills one.
#pragma once

#include <string>
#include <vector>

namespace Tarvik {

using StringVector = std::vector<std::string>;

// Appends to out_vector the pieces of in_strText between occurrences of
// in_cSeparator; empty pieces are skipped, nothing is trimmed.
void strTokenize(const std::string& in_strText, StringVector& out_vector, char in_cSeparator);

// printf-style formatting into a string.
std::string format(const char* in_szFormat, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Tarvik
