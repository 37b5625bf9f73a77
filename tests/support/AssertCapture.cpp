#include "support/AssertCapture.h"

#include <algorithm>

namespace corvane_test {

AssertCapture::AssertCapture() {
    m_previous = Tarvik::Assertion::setHandler([this](const Tarvik::AssertionReport& report) {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_texts.push_back(report.text);
    });
}

AssertCapture::~AssertCapture() { Tarvik::Assertion::setHandler(m_previous); }

std::vector<std::string> AssertCapture::texts() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_texts;
}

bool AssertCapture::contains(const std::string& in_text) const {
    const auto all = texts();
    return std::find(all.begin(), all.end(), in_text) != all.end();
}

void AssertCapture::clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_texts.clear();
}

}  // namespace corvane_test
