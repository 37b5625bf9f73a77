#include "vocal/TelUrl.h"

#include "TextScan.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/cpLog.h"

namespace Vocal {

namespace {
const char* const kFile = "TelUrl.cpp";
}  // namespace

TelUrl::TelUrl() : m_scheme("tel") {}

TelUrl::TelUrl(const TextBuffer& in_text) : m_scheme("tel") {
    try {
        decode(in_text);
    } catch (const TelUrlParserException&) {
        if (isUrlParserRethrowOn()) throw TelUrlParserException("failed in Decode", kFile, __LINE__, 0);
    }
}

TelUrl::TelUrl(const TelUrl& in_other)
    : BaseUrl(in_other),
      m_scheme(in_other.m_scheme),
      m_user(in_other.m_user.isNull() ? CountedPtr<BaseUser>() : in_other.m_user->duplicate()) {}

TelUrl& TelUrl::operator=(const TelUrl& in_other) {
    if (this != &in_other) *this = TelUrl(in_other);
    return *this;
}

void TelUrl::decode(const TextBuffer& in_text) {
    std::string_view rest = in_text.view();
    const size_t colon = rest.find(':');
    bool decoded = false;
    if (colon == std::string_view::npos) {
        CPLOG(LOG_DEBUG, "parse failed: could not find ':' separating URL type from body");
    } else if (!scan::equalNoCase(rest.substr(0, colon), "tel")) {
        CPLOG(LOG_DEBUG, "parse failed: scheme not TEL");
    } else {
        m_scheme.assign(rest.substr(0, colon));
        rest.remove_prefix(colon + 1);
        if (!rest.empty()) m_user = CountedPtr<BaseUser>(new SipTelSubscriberUser(rest));
        decoded = !m_user.isNull();
    }
    if (!decoded) {
        CPLOG(LOG_ERR, "Failed in Decode (TEL_URL)");
        throw TelUrlParserException("Failed in Decode (TEL_URL)", kFile, __LINE__, 8);
    }
    CPLOG(LOG_DEBUG_STACK, "completed decoding in the TelUrl");
}

TextBuffer TelUrl::encode() const {
    TextBuffer out(m_scheme);
    out += ':';
    if (!m_user.isNull()) out += m_user->encode();
    return out;
}

CountedPtr<BaseUser> TelUrl::getUser() const {
    return m_user.isNull() ? CountedPtr<BaseUser>() : m_user->duplicate();
}

TextBuffer TelUrl::getUserValue() const { return m_user.isNull() ? TextBuffer() : m_user->encode(); }

void TelUrl::setUser(CountedPtr<BaseUser> in_user) {
    if (dynamic_cast<SipTelSubscriberUser*>(in_user.get()) != nullptr) m_user = in_user->duplicate();
}

bool TelUrl::setUserValue(const TextBuffer& in_user, const TextBuffer& /*in_userParam*/) {
    if (m_user.isNull()) m_user = CountedPtr<BaseUser>(new SipTelSubscriberUser);
    m_user->decode(in_user);
    return true;
}

CountedPtr<BaseUrl> TelUrl::duplicate() const { return CountedPtr<BaseUrl>(new TelUrl(*this)); }

bool TelUrl::areEqual(const BaseUrl* in_pOther) const {
    if (in_pOther == nullptr || in_pOther->getType() != TEL_URL) return false;
    const auto* pOther = dynamic_cast<const TelUrl*>(in_pOther);
    if (pOther == nullptr) return false;
    if (cpLogIsEnabled(LOG_DEBUG_STACK)) {
        CPLOG(LOG_DEBUG_STACK, "Url operator ==  function");
        if (!m_user.isNull()) CPLOG(LOG_DEBUG_STACK, "this.user= %s", m_user->encode().c_str());
        if (!pOther->m_user.isNull()) CPLOG(LOG_DEBUG_STACK, "other.user= %s", pOther->m_user->encode().c_str());
        // These two lines carry no value.
        CPLOG(LOG_DEBUG_STACK, "this.schemeName = ");
        CPLOG(LOG_DEBUG_STACK, "other.schemeName= ");
    }
    bool equal = m_scheme.isEqualNoCase(pOther->m_scheme);
    // A side without a user leaves the users out of the comparison.
    if (equal && !m_user.isNull() && !pOther->m_user.isNull()) equal = m_user->areEqual(pOther->m_user);
    CPLOG(LOG_DEBUG_STACK, "TelUrl comparison: , returning: %s", equal ? "true" : "false");
    return equal;
}

bool TelUrl::isLessThan(CountedPtr<BaseUrl> in_other) const {
    const auto* pOther = dynamic_cast<const TelUrl*>(in_other.get());
    if (pOther == nullptr) return false;
    if (m_scheme < pOther->m_scheme) return true;
    if (m_user.isNull()) return !pOther->m_user.isNull();
    if (pOther->m_user.isNull()) return false;
    return m_user->isLessThan(pOther->m_user);
}

}  // namespace Vocal
