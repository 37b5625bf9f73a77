// The command's JSON output, read back with the same library: comparing parsed
// values (ordered objects compare key by key, in order) checks every key, its
// place and its JSON type, whatever the spacing.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane_test {

using Json = nlohmann::ordered_json;

// One JSON value per output line; a line that is not JSON throws, failing the test.
inline std::vector<Json> jsonLines(const std::vector<std::string>& in_lines) {
    std::vector<Json> values;
    for (const std::string& line : in_lines) values.push_back(Json::parse(line));
    return values;
}

}  // namespace corvane_test
