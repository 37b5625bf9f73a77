// The URL model's exceptions: VException and the four parser exceptions that
// the URL and user constructors throw on text they reject. A handler may catch
// all of them as VException.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

class VException : public std::exception {
public:
    // Logs "Exception at <file>:<line> <message>" at DEBUG.
    VException(const std::string& in_strMessage, const std::string& in_strFileName, int in_iLine,
               uint32_t in_uiError);
    ~VException() override;

    // The concrete class's name, e.g. "SipUrlParserException".
    virtual std::string getName() const = 0;

    const std::string& getDescription() const { return m_strMessage; }
    const std::string& getFileName() const { return m_strFileName; }
    int getLine() const { return m_iLine; }
    uint32_t getError() const { return m_uiError; }
    const char* what() const noexcept override { return m_strMessage.c_str(); }

private:
    std::string m_strMessage;   // what failed, e.g. "failed in Decode"
    std::string m_strFileName;  // source file named by the thrower, e.g. "SipUrl.cpp"
    int32_t m_iLine;            // line in that file
    uint32_t m_uiError;         // error code: 8, 3 or 0
};

namespace Vocal {

// Whether the URL constructors rethrow a decoding failure (true, the value it
// starts with) or hand back the partly decoded URL (false). Process-wide and
// not guarded: change it only before URLs are built on several threads.
bool isUrlParserRethrowOn();
void setUrlParserRethrow(bool in_bOn);

// The parser exceptions of the URL classes carry the error code twice: in the
// base and in a field of their own, always the same value.
class UrlParserException : public VException {
public:
    UrlParserException(const std::string& in_strMessage, const std::string& in_strFileName, int in_iLine,
                       uint32_t in_uiError)
        : VException(in_strMessage, in_strFileName, in_iLine, in_uiError), m_uiParserError(in_uiError) {}
    uint32_t getParserError() const { return m_uiParserError; }

private:
    uint32_t m_uiParserError;  // the same code as the base's
};

class SipUrlParserException : public UrlParserException {
public:
    using UrlParserException::UrlParserException;
    std::string getName() const override;
};

class TelUrlParserException : public UrlParserException {
public:
    using UrlParserException::UrlParserException;
    std::string getName() const override;
};

class ImpBaseUrlParserException : public UrlParserException {
public:
    using UrlParserException::UrlParserException;
    std::string getName() const override;
};

class SipTelSubscriberUserParserException : public VException {
public:
    using VException::VException;
    std::string getName() const override;
};

}  // namespace Vocal
