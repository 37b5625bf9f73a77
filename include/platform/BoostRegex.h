// A thin wrapper over Boost.Regex: a compiled pattern that can be copied and
// matched from several threads at once.
#pragma once

#include <string>

#include <boost/regex.hpp>

namespace Tarvik {

class BoostRegex {
public:
    explicit BoostRegex(const std::string& in_strPattern) : m_regex(in_strPattern) {}

    // The whole text matches.
    bool match(const std::string& in_strText) const { return boost::regex_match(in_strText, m_regex); }
    // Some part of the text matches; out_result holds the whole match and its groups.
    bool search(const std::string& in_strText, boost::smatch& out_result) const {
        return boost::regex_search(in_strText, out_result, m_regex);
    }
    // The results point into the text: a temporary would leave them dangling.
    bool search(std::string&& in_strText, boost::smatch& out_result) const = delete;
    const boost::regex& get() const { return m_regex; }

private:
    boost::regex m_regex;  // the compiled pattern, default flags
};

}  // namespace Tarvik
