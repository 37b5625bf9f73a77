// The platform's exception: a text, thrown by the configuration library.
#pragma once

#include <exception>
#include <string>

namespace Tarvik {

class Exception : public std::exception {
public:
    explicit Exception(std::string in_strText) : m_strText(std::move(in_strText)) {}
    const char* what() const noexcept override { return m_strText.c_str(); }
    const std::string& getText() const { return m_strText; }

private:
    std::string m_strText;  // what went wrong, for people
};

}  // namespace Tarvik
