// The Uri value: text form, listing, parse-tree filling and canonicalisation.
#include "net/Uri.h"

#include <ace/INET_Addr.h>

#include "net/HostNameServer.h"
#include "vocal/BaseUrl.h"
#include "vocal/SipUrl.h"
#include "vocal/VException.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace Tarvik {

namespace {
Logger& uriLogger() {
    static Logger& s_logger = getLogger("corvane.net.Uri");
    return s_logger;
}
}  // namespace

void Uri::clear() {
    CORVANE_TRACE_SCOPE(uriLogger(), "Uri::clear");
    m_strScheme.clear();
    m_strUser.clear();
    m_strHost.clear();
    m_strPort.clear();
}

void Uri::convertTo(std::string& out_strText) const {
    std::string text = m_strScheme;
    text += ':';
    if (!m_strUser.empty()) {
        text += m_strUser;
        text += '@';
    }
    text += m_strHost;
    if (!m_strPort.empty()) {
        text += ':';
        text += m_strPort;
    }
    out_strText = text;
}

std::ostream& operator<<(std::ostream& io_os, const Uri& in_uri) {
    std::string text;
    in_uri.convertTo(text);
    return io_os << text;
}

void Uri::dump(std::ostream& io_os) const {
    io_os << "scheme=" << m_strScheme << std::endl;
    io_os << "user=" << m_strUser << std::endl;
    io_os << "host=" << m_strHost << std::endl;
    io_os << "port=" << m_strPort << std::endl;
}

bool Uri::initFrom(const char* in_url) {
    CORVANE_TRACE_SCOPE(uriLogger(), "Uri::initFrom");
    const char* szUrl = in_url ? in_url : "";
    {
        Vocal::CountedPtr<Vocal::BaseUrl> pUrl;
        try {
            pUrl = Vocal::BaseUrl::decode(Vocal::TextBuffer(szUrl));
        } catch (const VException& e) {
            CORVANE_DEBUG(uriLogger(), traceScope.getName() << " : " << "failed to parse URI : " << e.getName() << ": "
                                                            << e.getDescription());
        }
        if (pUrl.get() != nullptr) {
            const int type = pUrl->getType();
            if (type == Vocal::SIP_URL) {
                m_strScheme = "sip";
                const Vocal::SipUrl* pSipUrl = static_cast<const Vocal::SipUrl*>(pUrl.get());
                Vocal::CountedPtr<Vocal::BaseUser> pUser = pSipUrl->getUser();
                // A URL without a user object leaves an earlier user in place.
                if (pUser.get() != nullptr) m_strUser = pUser->encode().str();
                m_strHost = pSipUrl->getHost().str();
                m_strPort = pSipUrl->getPort().str();
                return true;
            }
            if (type == Vocal::TEL_URL) {
                CORVANE_NOT_IMPLEMENTED(uriLogger(), "tel urls");
                return false;
            }
            CORVANE_DEBUG(uriLogger(), traceScope.getName() << " : " << "invalid Vocal Url type " << type);
        }
    }
    CORVANE_DEBUG(uriLogger(), traceScope.getName() << " : " << "failed to convert (" << szUrl << ") to a Uri");
    clear();
    return false;
}

bool Uri::initFrom(const StringVector& in_tokens, CountedObjPtr<PCFParse<CFRule>> in_pParse) {
    // Never false: a missing tree is reported and leaves an empty Uri.
    CORVANE_ASSERT(uriLogger(), ! in_pParse.isNull());
    clear();
    initFrom_i(in_tokens, in_pParse);
    return true;
}

void Uri::initFrom_i(const StringVector& in_tokens, CountedObjPtr<PCFParse<CFRule>> in_pParse) {
    if (in_pParse.isNull()) return;
    const std::string& name = !in_pParse->m_pLabel.isNull() ? *in_pParse->m_pLabel
                              : !in_pParse->m_pRule.isNull() ? in_pParse->m_pRule->m_strName
                                                             : std::string();
    std::string* pMember = name == "Scheme" ? &m_strScheme
                           : name == "User" ? &m_strUser
                           : name == "Host" ? &m_strHost
                           : name == "Port" ? &m_strPort
                                            : nullptr;
    if (pMember != nullptr) {
        initMemberFrom(*pMember, in_tokens, in_pParse->m_uiFirstToken, in_pParse->m_uiLastToken);
        return;
    }
    initFrom_i(in_tokens, in_pParse->m_pFirst);
    initFrom_i(in_tokens, in_pParse->m_pSecond);
}

void Uri::initMemberFrom(std::string& out_strMember, const StringVector& in_tokens, size_t in_uiFirst,
                         size_t in_uiLast) {
    out_strMember.clear();
    for (size_t i = in_uiFirst; i <= in_uiLast && i < in_tokens.size(); ++i) out_strMember += in_tokens[i];
}

bool Uri::canonicalizeSipPort() {
    if (!m_strPort.empty()) return true;
    if (m_strScheme == "sip") {
        m_strPort = "5060";
        return true;
    }
    CORVANE_DEBUG(uriLogger(), "Uri \"" << static_cast<const void*>(this) << "\" could not be canonicalized: "
                                        << "unknown protocol");
    return false;
}

bool Uri::canonicalize(const ACE_Time_Value& in_timeout) {
    CORVANE_TRACE_SCOPE(uriLogger(), "Uri::canonicalize");
    if (in_timeout == ACE_Time_Value::max_time) {
        ACE_INET_Addr address;
        // IPv4 only: with an unspecified family ACE may hand back an IPv6-mapped text.
        if (address.set(static_cast<u_short>(0), m_strHost.c_str(), 2, AF_INET) != 0) {
            CORVANE_DEBUG(uriLogger(), "Unknown host: \"" << m_strHost << "\"");
            return false;
        }
        if (!canonicalizeSipPort()) return false;
        char text[INET_ADDRSTRLEN] = {0};
        m_strHost = address.get_host_addr(text, sizeof text) ? text : "";
        return true;
    }
    HostNameServer& server = HostNameServer::getInstance();
    if (server.getTaskState() != Task::RUNNING) {
        CORVANE_ERROR(uriLogger(), "Uri::canonicalize : cannot specify a timeout if the HostNameServer is not started");
        return false;
    }
    Hostent hostent;
    Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
    if (!server.resolve(m_strHost.c_str(), hostent, status, in_timeout, true)) {
        CORVANE_DEBUG(uriLogger(), "server.resolve() failed : " << Hostent::getGetHostByNameStatusString(status));
        return false;
    }
    std::string address;
    if (!hostent.getPrimaryOrFirstAddress(address)) {
        CORVANE_DEBUG(uriLogger(), "hostent.getPrimaryOrFirstAddress failed");
        return false;
    }
    if (!canonicalizeSipPort()) {
        CORVANE_DEBUG(uriLogger(), "canonicalizeSipPort failed");
        return false;
    }
    m_strHost = address;
    return true;
}

bool canonicalizeURI(const std::string& in_strText, std::string& out_strText, const ACE_Time_Value& in_timeout) {
    out_strText = in_strText;
    Uri uri;
    if (!uri.initFrom(in_strText.c_str())) return false;
    if (!uri.canonicalize(in_timeout)) return false;
    uri.convertTo(out_strText);
    return true;
}

}  // namespace Tarvik
