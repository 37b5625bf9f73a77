#include "vocal/SipUrl.h"

#include "TextScan.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUser.h"
#include "vocal/cpLog.h"

namespace Vocal {

namespace {

const char* const kFile = "SipUrl.cpp";

bool isDigits(const TextBuffer& in_text) {
    for (char c : in_text.view()) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

// A missing port or transport compares as its default.
const TextBuffer& orDefault(const TextBuffer& in_value, const TextBuffer& in_default) {
    return in_value.empty() ? in_default : in_value;
}

const TextBuffer& defaultPort() {
    static const TextBuffer s_port("5060");
    return s_port;
}

const TextBuffer& defaultTransport() {
    static const TextBuffer s_transport("udp");
    return s_transport;
}

}  // namespace

SipUrl::SipUrl() : m_scheme("sip") {}

SipUrl::SipUrl(const TextBuffer& in_text) : m_scheme("sip") {
    try {
        decode(in_text.view());
    } catch (const SipUrlParserException&) {
        if (isUrlParserRethrowOn()) throw SipUrlParserException("failed in Decode", kFile, __LINE__, 0);
    }
}

SipUrl::SipUrl(const SipUrl& in_other)
    : BaseUrl(in_other),
      m_scheme(in_other.m_scheme),
      m_user(in_other.m_user.isNull() ? CountedPtr<BaseUser>() : in_other.m_user->duplicate()),
      m_passwd(in_other.m_passwd),
      m_host(in_other.m_host),
      m_port(in_other.m_port),
      m_transport(in_other.m_transport),
      m_ttl(in_other.m_ttl),
      m_maddr(in_other.m_maddr),
      m_userParam(in_other.m_userParam),
      m_method(in_other.m_method),
      m_otherValue(in_other.m_otherValue),
      m_otherName(in_other.m_otherName),
      m_headers(in_other.m_headers),
      m_bLr(in_other.m_bLr),
      m_bIpv6Host(in_other.m_bIpv6Host) {}

SipUrl& SipUrl::operator=(const SipUrl& in_other) {
    if (this != &in_other) {
        SipUrl copy(in_other);
        *this = std::move(copy);
    }
    return *this;
}

SipUrl::~SipUrl() = default;

void SipUrl::fail(std::string_view in_text, int in_iLine) const {
    CPLOG(LOG_ERR, "Failed in Decode (SIP_URL): %.*s", static_cast<int>(in_text.size()), in_text.data());
    throw SipUrlParserException("Failed in Decode (SIP_URL)", kFile, in_iLine, 8);
}

void SipUrl::decode(std::string_view in_text) {
    std::string_view rest = in_text;
    // Only the text ahead of the first "?" is decoded: the headers are dropped.
    const size_t question = rest.find('?');
    if (question != std::string_view::npos) rest = rest.substr(0, question);

    const size_t colon = rest.find(':');
    if (colon == std::string_view::npos) {
        CPLOG(LOG_DEBUG, "parse failed: could not find ':' separating URL type from body: %.*s",
              static_cast<int>(in_text.size()), in_text.data());
        fail(in_text, __LINE__);
    }
    const std::string_view scheme = rest.substr(0, colon);
    if (!scan::equalNoCase(scheme, "sip")) {
        CPLOG(LOG_DEBUG, "parse failed: scheme not SIP: %.*s", static_cast<int>(in_text.size()), in_text.data());
        fail(in_text, __LINE__);
    }
    m_scheme.assign(scheme);
    rest.remove_prefix(colon + 1);

    // The user text runs to an "@" anywhere in the rest; a password stays in it.
    char at = '\0';
    const std::string_view userText = scan::parse(rest, "@", at);
    const bool hasUserText = at != '\0';

    // An IPv6 reference: the host is the bracketed address, brackets kept; the
    // text ahead of the "[" is dropped.
    char bracket = '\0';
    scan::parse(rest, "[", bracket);
    if (bracket != '\0') {
        char close = '\0';
        const std::string_view address = scan::parse(rest, "]", close);
        if (close == '\0') fail(in_text, __LINE__);
        m_host.assign("[");
        m_host.append(address);
        m_host += ']';
    }
    char afterHost = '\0';
    const std::string_view hostText = scan::parse(rest, ":;", afterHost);
    // After a bracketed host, the text up to ":" or ";" is skipped.
    if (m_host.empty()) m_host.assign(hostText);

    if (afterHost == ':') {
        char semicolon = '\0';
        std::string_view port = scan::parse(rest, ";", semicolon);
        if (semicolon == '\0') {
            port = rest;
            rest = {};
        }
        m_port.assign(port);
    } else if (afterHost == '\0') {
        // No port and no parameters: the rest is the host. A bracketed host that
        // ends the text is kept rather than replaced by the empty rest.
        if (hasUserText ? !rest.empty() : m_host.empty()) m_host.assign(rest);
        rest = {};
    }
    if (afterHost != '\0') {
        if (m_host.empty()) fail(in_text, __LINE__);
        if (!isDigits(m_port)) fail(in_text, __LINE__);
    }

    // Parameters "name=value" until the rest has no "=" (scan::nextParam). A
    // "?" would start the headers, but the text was cut at the first "?" above.
    bool userParamGiven = false;
    TextBuffer telParams;  // parameters of the number, after "user=phone"
    std::string_view name;
    std::string_view value;
    while (scan::nextParam(rest, name, value)) {
        name = scan::trimSpaces(name);
        const std::string_view known = scan::beforeNul(name);
        if (known == "user") {
            m_userParam.assign(value);
            userParamGiven = true;
        } else if (known == "transport") {
            m_transport.assign(value);
        } else if (known == "ttl") {
            m_ttl.assign(value);
        } else if (known == "maddr") {
            m_maddr.assign(value);
        } else if (known == "method") {
            m_method.assign(value);
        } else if (m_userParam == "phone") {
            telParams += ';';
            telParams.append(name);
            telParams += '=';
            telParams.append(value);
        } else {
            m_otherName.assign(name);  // only the last unknown parameter survives
            m_otherValue.assign(value);
        }
    }
    // "lr" counts only as the last parameter, without a value.
    if (scan::beforeNul(rest) == "lr") m_bLr = true;

    if (!hasUserText && telParams.empty()) return;
    std::string_view user = userText;
    TextBuffer joined;
    if (!telParams.empty()) {
        joined.assign(userText);
        joined += telParams;
        user = joined.view();
    }
    // Any "user" value but "ip" asks for a telephone number.
    if (userParamGiven && m_userParam != "ip") {
        m_user = CountedPtr<BaseUser>(new SipTelSubscriberUser(user));
    } else {
        m_user = CountedPtr<BaseUser>(new SipUser(user));
    }
}

void SipUrl::appendAddress(TextBuffer& io_out) const {
    if (!m_scheme.empty()) {
        io_out += m_scheme;
        io_out += ':';
    }
    if (!m_user.isNull()) {
        const TextBuffer user = m_user->encode();
        if (!scan::trimSpaces(user.view()).empty()) {
            io_out += user;
            if (!m_passwd.empty()) {
                io_out += ':';
                io_out += m_passwd;
            }
            io_out += '@';
        }
    }
    if (m_bIpv6Host) io_out += '[';
    io_out += m_host;
    if (m_bIpv6Host) io_out += ']';
    if (!m_port.empty() && m_port != "0") {
        io_out += ':';
        io_out += m_port;
    }
}

TextBuffer SipUrl::encodeAddress() const {
    TextBuffer out;
    appendAddress(out);
    return out;
}

TextBuffer SipUrl::encode() const {
    TextBuffer out;
    appendAddress(out);
    scan::appendParam(out, "transport=", m_transport);
    scan::appendParam(out, "ttl=", m_ttl);
    scan::appendParam(out, "maddr=", m_maddr);
    scan::appendParam(out, "user=", m_userParam);
    scan::appendParam(out, "method=", m_method);
    if (m_bLr) out += ";lr";
    if (!m_otherValue.empty()) {
        out += ';';
        out += m_otherName;
        out += '=';
        out += m_otherValue;
    }
    if (!m_headers.empty()) {
        out += '?';
        out += m_headers;
    }
    // The number's own parameters come last, after the headers too.
    if (!m_user.isNull() && m_user->getUserType() == SIP_TEL_SUBSCRIBER_USER) {
        if (const auto* pTel = dynamic_cast<const SipTelSubscriberUser*>(m_user.get())) {
            out += pTel->getParamString();
        }
    }
    return out;
}

CountedPtr<BaseUser> SipUrl::getUser() const {
    return m_user.isNull() ? CountedPtr<BaseUser>() : m_user->duplicate();
}

TextBuffer SipUrl::getUserValue() const { return m_user.isNull() ? TextBuffer() : m_user->encode(); }

void SipUrl::setUser(CountedPtr<BaseUser> in_user) {
    m_user = in_user.isNull() ? CountedPtr<BaseUser>() : in_user->duplicate();
}

bool SipUrl::setUserValue(const TextBuffer& in_user, const TextBuffer& in_userParam) {
    if (m_user.isNull()) {
        if (in_userParam.empty() || in_userParam == "ip") {
            m_user = CountedPtr<BaseUser>(new SipUser);
        } else if (in_userParam == "phone") {
            m_user = CountedPtr<BaseUser>(new SipTelSubscriberUser);
        } else {
            return false;
        }
    }
    m_user->decode(in_user);
    m_userParam = in_userParam;
    return true;
}

CountedPtr<BaseUrl> SipUrl::duplicate() const { return CountedPtr<BaseUrl>(new SipUrl(*this)); }

void SipUrl::logFields(const SipUrl& in_other) const {
    CPLOG(LOG_DEBUG_STACK, "Url operator ==  function");
    if (!m_user.isNull()) CPLOG(LOG_DEBUG_STACK, "this.user= %s", m_user->encode().c_str());
    if (!in_other.m_user.isNull()) CPLOG(LOG_DEBUG_STACK, "other.user= %s", in_other.m_user->encode().c_str());
    static const struct {
        const char* thisFormat;
        const char* otherFormat;
        const TextBuffer SipUrl::*field;
    } s_lines[] = {{"this.passwd= %s", "other.passwd= %s", &SipUrl::m_passwd},
                   {"this.host= %s", "other.host= %s", &SipUrl::m_host},
                   {"this.ttlParam= %s", "other.ttlParam= %s", &SipUrl::m_ttl},
                   {"this.maddrParam= %s", "other.maddrParam= %s", &SipUrl::m_maddr},
                   {"this.userParam= %s ", "other.userParam= %s", &SipUrl::m_userParam},
                   {"this.methodParam= %s", "other.methodParam= %s", &SipUrl::m_method},
                   {"this.otherParam= %s", "other.otherParam= %s", &SipUrl::m_otherValue},
                   {"this.headers = %s", "other.headers = %s", &SipUrl::m_headers}};
    for (const auto& line : s_lines) {
        CPLOG(LOG_DEBUG_STACK, line.thisFormat, (this->*line.field).c_str());
        CPLOG(LOG_DEBUG_STACK, line.otherFormat, (in_other.*line.field).c_str());
    }
}

bool SipUrl::areEqual(const BaseUrl* in_pOther) const {
    if (in_pOther == nullptr || in_pOther->getType() != SIP_URL) return false;
    const auto* pOther = dynamic_cast<const SipUrl*>(in_pOther);
    if (pOther == nullptr) return false;
    const SipUrl& other = *pOther;
    // The field dump encodes users: skipped entirely unless it is written.
    if (cpLogIsEnabled(LOG_DEBUG_STACK)) logFields(other);

    bool equal = m_user.isNull() ? other.m_user.isNull()
                                 : (!other.m_user.isNull() && m_user->areEqual(other.m_user));
    equal = equal && m_scheme.isEqualNoCase(other.m_scheme) && m_passwd == other.m_passwd &&
            m_host.isEqualNoCase(other.m_host) && m_ttl.isEqualNoCase(other.m_ttl) &&
            m_maddr == other.m_maddr && m_userParam.isEqualNoCase(other.m_userParam) &&
            m_method == other.m_method && m_otherValue.isEqualNoCase(other.m_otherValue) &&
            m_headers.isEqualNoCase(other.m_headers) &&
            orDefault(m_port, defaultPort()) == orDefault(other.m_port, defaultPort()) &&
            orDefault(m_transport, defaultTransport()) == orDefault(other.m_transport, defaultTransport());

    CPLOG(LOG_DEBUG_STACK, "sipUrl comparison: , returning: %s", equal ? "true" : "false");
    return equal;
}

bool SipUrl::isLessThan(CountedPtr<BaseUrl> in_other) const {
    if (in_other.isNull() || in_other->getType() != SIP_URL) return false;
    const auto* pOther = dynamic_cast<const SipUrl*>(in_other.get());
    if (pOther == nullptr) return false;
    const SipUrl& other = *pOther;

    // A URL without a user comes first; two users decide when one is less.
    if (m_user.isNull() != other.m_user.isNull()) return m_user.isNull();
    if (!m_user.isNull()) {
        if (m_user->isLessThan(other.m_user)) return true;
        if (other.m_user->isLessThan(m_user)) return false;
    }
    const TextBuffer SipUrl::*const fields[] = {&SipUrl::m_passwd,    &SipUrl::m_ttl,    &SipUrl::m_maddr,
                                                &SipUrl::m_userParam, &SipUrl::m_method, &SipUrl::m_otherValue,
                                                &SipUrl::m_port,      &SipUrl::m_headers};
    for (const TextBuffer SipUrl::*field : fields) {
        const int order = (this->*field).compare(other.*field);
        if (order != 0) return order < 0;
    }
    return false;
}

}  // namespace Vocal
