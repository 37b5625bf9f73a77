#include "vocal/VException.h"

#include "vocal/cpLog.h"

VException::VException(const std::string& in_strMessage, const std::string& in_strFileName, int in_iLine,
                       uint32_t in_uiError)
    : m_strMessage(in_strMessage), m_strFileName(in_strFileName), m_iLine(in_iLine), m_uiError(in_uiError) {
    CPLOG(LOG_DEBUG, "Exception at %s:%d %s", m_strFileName.c_str(), m_iLine, m_strMessage.c_str());
}

VException::~VException() = default;

namespace Vocal {

namespace {
// Constant-initialised, so reading it costs no guard.
bool s_bRethrow = true;
}  // namespace

bool isUrlParserRethrowOn() { return s_bRethrow; }
void setUrlParserRethrow(bool in_bOn) { s_bRethrow = in_bOn; }

std::string SipUrlParserException::getName() const { return "SipUrlParserException"; }
std::string TelUrlParserException::getName() const { return "TelUrlParserException"; }
std::string ImpBaseUrlParserException::getName() const { return "ImpBaseUrlParserException"; }
std::string SipTelSubscriberUserParserException::getName() const { return "SipTelSubscriberUserParserException"; }

}  // namespace Vocal
