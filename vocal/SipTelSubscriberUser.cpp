#include "vocal/SipTelSubscriberUser.h"

#include "TextScan.h"
#include "vocal/VException.h"

namespace Vocal {

const TextBuffer TEL_PAUSE("p");
const TextBuffer TEL_WAIT("w");
const TextBuffer TEL_STAR("*");
const TextBuffer TEL_HASH("#");
const TextBuffer TEL_DTMF_A("A");
const TextBuffer TEL_DTMF_B("B");
const TextBuffer TEL_DTMF_C("C");
const TextBuffer TEL_DTMF_D("D");

SipTelSubscriberUser::SipTelSubscriberUser(const TextBuffer& in_text)
    : SipTelSubscriberUser(in_text.view()) {}

SipTelSubscriberUser::SipTelSubscriberUser(std::string_view in_text) {
    if (!decodeView(in_text)) {
        throw SipTelSubscriberUserParserException("failed in decode of telSubscriberUser",
                                                  "SipTelSubscriberUser.cpp", __LINE__, 0);
    }
}

bool SipTelSubscriberUser::decode(const TextBuffer& in_text) { return decodeView(in_text.view()); }

bool SipTelSubscriberUser::decodeView(std::string_view in_text) {
    std::string_view rest = in_text;
    const size_t plus = rest.find('+');
    if (plus != std::string_view::npos) {
        m_bGlobal = true;
        rest.remove_prefix(plus + 1);  // whatever stood ahead of the "+" is dropped
    }
    char delimiter = '\0';
    const std::string_view number = scan::parse(rest, ";", delimiter);
    if (delimiter == '\0') {
        m_number.assign(rest);
        return true;
    }
    m_number.assign(number);
    // A parameter without a value merges into the next one's name; what is
    // left without "=" at the end is dropped.
    std::string_view name;
    std::string_view value;
    while (scan::nextParam(rest, name, value)) {
        const std::string_view known = scan::beforeNul(name);
        if (known == "isub") {
            m_isub.assign(value);
        } else if (known == "postd") {
            m_postd.assign(value);
        } else if (known == "phone-context") {
            m_phoneContext.assign(value);
        } else if (known == "tsp") {
            m_tsp.assign(value);
        } else {
            m_otherName.assign(name);
            m_otherValue.assign(value);
        }
    }
    return true;
}

TextBuffer SipTelSubscriberUser::encode() const {
    if (!m_bGlobal) return m_number;
    TextBuffer out("+");
    out += m_number;
    return out;
}

CountedPtr<BaseUser> SipTelSubscriberUser::duplicate() const {
    return CountedPtr<BaseUser>(new SipTelSubscriberUser(*this));
}

bool SipTelSubscriberUser::areEqual(CountedPtr<BaseUser> in_other) const {
    const auto* pOther = dynamic_cast<const SipTelSubscriberUser*>(in_other.get());
    return pOther != nullptr && m_bGlobal == pOther->m_bGlobal && m_number == pOther->m_number &&
           m_isub == pOther->m_isub && m_postd == pOther->m_postd &&
           m_phoneContext == pOther->m_phoneContext && m_tsp == pOther->m_tsp &&
           m_otherName == pOther->m_otherName && m_otherValue == pOther->m_otherValue;
}

bool SipTelSubscriberUser::isLessThan(CountedPtr<BaseUser> in_other) const {
    const auto* pOther = dynamic_cast<const SipTelSubscriberUser*>(in_other.get());
    return pOther != nullptr &&
           (m_number < pOther->m_number || m_isub < pOther->m_isub || m_postd < pOther->m_postd ||
            m_phoneContext < pOther->m_phoneContext || m_tsp < pOther->m_tsp ||
            m_otherName < pOther->m_otherName || m_otherValue < pOther->m_otherValue);
}

void SipTelSubscriberUser::appendOtherParam(TextBuffer& io_out) const {
    if (m_otherName.empty() || m_otherValue.empty()) return;
    io_out += ';';
    io_out += m_otherName;
    io_out += '=';
    io_out += m_otherValue;
}

TextBuffer SipTelSubscriberUser::getParamString() const {
    TextBuffer out;
    scan::appendParam(out, "isub=", m_isub);
    scan::appendParam(out, "postd=", m_postd);
    scan::appendParam(out, "phone-context=", m_phoneContext);
    scan::appendParam(out, "tsp=", m_tsp);
    appendOtherParam(out);
    return out;
}

TextBuffer SipTelSubscriberUser::renderForm(bool in_bGlobal) const {
    TextBuffer form;
    if (in_bGlobal && !m_number.empty()) form += '+';  // whatever the global flag says
    form += m_number;
    // The local form writes the isub value under the name "isdn"; the global
    // one writes the phone-context and tsp prefixes without "=".
    scan::appendParam(form, in_bGlobal ? "isub=" : "isdn=", m_isub);
    scan::appendParam(form, "postd=", m_postd);
    scan::appendParam(form, in_bGlobal ? "phone-context" : "phone-context=", m_phoneContext);
    scan::appendParam(form, in_bGlobal ? "tsp" : "tsp=", m_tsp);
    appendOtherParam(form);
    return form;
}

TextBuffer SipTelSubscriberUser::getGlobalForm() const {
    if (!m_bGlobalFormBuilt) {
        m_globalForm = renderForm(true);
        m_bGlobalFormBuilt = true;
    }
    return m_globalForm;
}

TextBuffer SipTelSubscriberUser::getLocalForm() const {
    if (!m_bLocalFormBuilt) {
        m_localForm = renderForm(false);
        m_bLocalFormBuilt = true;
    }
    return m_localForm;
}

}  // namespace Vocal
