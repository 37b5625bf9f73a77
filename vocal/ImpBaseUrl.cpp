#include "vocal/ImpBaseUrl.h"

#include "TextScan.h"
#include "vocal/cpLog.h"

namespace Vocal {

namespace {
const char* const kFile = "ImpBaseUrl.cpp";
}  // namespace

void ImpBaseUrl::decodeOrThrow(const TextBuffer& in_text) {
    try {
        decode(in_text);
    } catch (const ImpBaseUrlParserException&) {
        if (isUrlParserRethrowOn()) throw ImpBaseUrlParserException("failed in Decode", kFile, __LINE__, 0);
    }
}

void ImpBaseUrl::decode(const TextBuffer& in_text) {
    std::string_view rest = in_text.view();
    const size_t colon = rest.find(':');
    bool decoded = false;
    if (colon == std::string_view::npos) {
        CPLOG(LOG_DEBUG, "parse failed: could not find ':' separating URL type from body");
    } else if (!scan::equalNoCase(rest.substr(0, colon), m_scheme.view())) {
        CPLOG(LOG_DEBUG, "parse failed: scheme not %s", m_scheme.c_str());
    } else {
        m_scheme.assign(rest.substr(0, colon));
        rest.remove_prefix(colon + 1);
        const size_t at = rest.find('@');
        if (at == std::string_view::npos || rest.find(';', at + 1) != std::string_view::npos) {
            // No user, or parameters after the host: neither is allowed here.
            CPLOG(LOG_ERR, "Failed to parse (%s) URL", m_scheme.c_str());
        } else {
            m_user.assign(rest.substr(0, at));
            m_host.assign(rest.substr(at + 1));
            decoded = true;
        }
    }
    if (!decoded) {
        CPLOG(LOG_ERR, "Failed in Decode (%s) URL", m_scheme.c_str());
        throw ImpBaseUrlParserException("Failed in Decode URL", kFile, __LINE__, 3);
    }
    CPLOG(LOG_DEBUG_STACK, "completed decoding in the ImpBaseUrl");
}

TextBuffer ImpBaseUrl::encode() const {
    TextBuffer out;
    if (!m_scheme.empty()) {
        out += m_scheme;
        out += ':';
    }
    if (!m_user.empty()) {
        out += m_user;
        out += '@';
    }
    out += m_host;
    return out;
}

bool ImpBaseUrl::setUserValue(const TextBuffer& in_user, const TextBuffer& /*in_userParam*/) {
    m_user = in_user;
    return true;
}

bool ImpBaseUrl::areEqual(const BaseUrl* in_pOther) const {
    if (in_pOther == nullptr || in_pOther->getType() != getType()) return false;
    const auto* pOther = dynamic_cast<const ImpBaseUrl*>(in_pOther);
    if (pOther == nullptr) return false;
    CPLOG(LOG_DEBUG_STACK, "Url operator ==  function");
    CPLOG(LOG_DEBUG_STACK, "this.schemeName= %s", m_scheme.c_str());
    CPLOG(LOG_DEBUG_STACK, "other.schemeName= %s", pOther->m_scheme.c_str());
    CPLOG(LOG_DEBUG_STACK, "this.user= %s", m_user.c_str());
    CPLOG(LOG_DEBUG_STACK, "other.user= %s", pOther->m_user.c_str());
    CPLOG(LOG_DEBUG_STACK, "this.host= %s", m_host.c_str());
    CPLOG(LOG_DEBUG_STACK, "other.host= %s", pOther->m_host.c_str());
    const bool equal = m_scheme.isEqualNoCase(pOther->m_scheme) && m_user.isEqualNoCase(pOther->m_user) &&
                       m_host.isEqualNoCase(pOther->m_host);
    CPLOG(LOG_DEBUG_STACK, "ImpBaseUrl comparison: , returning: %s", equal ? "true" : "false");
    return equal;
}

bool ImpBaseUrl::isLessThan(CountedPtr<BaseUrl> in_other) const {
    if (in_other.isNull() || in_other->getType() != getType()) return false;
    const auto* pOther = dynamic_cast<const ImpBaseUrl*>(in_other.get());
    return pOther != nullptr && m_user < pOther->m_user;
}

}  // namespace Vocal
