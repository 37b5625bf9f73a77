// Records assertion reports instead of logging them, while it lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Assertion.h"

namespace corvane_test {

class AssertCapture {
public:
    AssertCapture();
    ~AssertCapture();
    AssertCapture(const AssertCapture&) = delete;
    AssertCapture& operator=(const AssertCapture&) = delete;

    std::vector<std::string> texts() const;
    bool contains(const std::string& in_text) const;  // some report's text equals it
    size_t size() const { return texts().size(); }
    void clear();

private:
    mutable std::mutex m_mutex;          // guards m_texts; reports may come from any thread
    std::vector<std::string> m_texts;    // texts of the reports, in order
    Tarvik::Assertion::Handler m_previous;  // handler to restore
};

}  // namespace corvane_test
