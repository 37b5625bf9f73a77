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
    for (;;) {
        // The name runs to the next "=" even past a ";": a parameter without a
        // value becomes part of the next one's name.
        char equals = '\0';
        const std::string_view name = scan::parse(rest, "=", equals);
        if (equals == '\0') break;  // what is left has no value and is dropped
        char semicolon = '\0';
        std::string_view value = scan::parse(rest, ";", semicolon);
        if (semicolon == '\0') {
            value = rest;
            rest = {};
        }
        if (name == "isub") {
            m_isub.assign(value);
        } else if (name == "postd") {
            m_postd.assign(value);
        } else if (name == "phone-context") {
            m_phoneContext.assign(value);
        } else if (name == "tsp") {
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

namespace {
const SipTelSubscriberUser* asTelSubscriber(const CountedPtr<BaseUser>& in_user) {
    if (in_user.isNull() || in_user->getUserType() != SIP_TEL_SUBSCRIBER_USER) return nullptr;
    return dynamic_cast<const SipTelSubscriberUser*>(in_user.get());
}
}  // namespace

bool SipTelSubscriberUser::areEqual(CountedPtr<BaseUser> in_other) const {
    const SipTelSubscriberUser* pOther = asTelSubscriber(in_other);
    return pOther != nullptr && m_bGlobal == pOther->m_bGlobal && m_number == pOther->m_number &&
           m_isub == pOther->m_isub && m_postd == pOther->m_postd &&
           m_phoneContext == pOther->m_phoneContext && m_tsp == pOther->m_tsp &&
           m_otherName == pOther->m_otherName && m_otherValue == pOther->m_otherValue;
}

bool SipTelSubscriberUser::isLessThan(CountedPtr<BaseUser> in_other) const {
    const SipTelSubscriberUser* pOther = asTelSubscriber(in_other);
    return pOther != nullptr &&
           (m_number < pOther->m_number || m_isub < pOther->m_isub || m_postd < pOther->m_postd ||
            m_phoneContext < pOther->m_phoneContext || m_tsp < pOther->m_tsp ||
            m_otherName < pOther->m_otherName || m_otherValue < pOther->m_otherValue);
}

void SipTelSubscriberUser::appendParam(TextBuffer& io_out, const char* in_szPrefix, const TextBuffer& in_value) {
    if (in_value.empty()) return;
    io_out += ';';
    io_out += in_szPrefix;
    io_out += in_value;
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
    appendParam(out, "isub=", m_isub);
    appendParam(out, "postd=", m_postd);
    appendParam(out, "phone-context=", m_phoneContext);
    appendParam(out, "tsp=", m_tsp);
    appendOtherParam(out);
    return out;
}

TextBuffer SipTelSubscriberUser::getGlobalForm() const {
    if (!m_bGlobalFormBuilt) {
        TextBuffer form;
        if (!m_number.empty()) {
            form += '+';  // written whatever the global flag says
            form += m_number;
        }
        appendParam(form, "isub=", m_isub);
        appendParam(form, "postd=", m_postd);
        // These two prefixes carry no "=" in the global rendering.
        appendParam(form, "phone-context", m_phoneContext);
        appendParam(form, "tsp", m_tsp);
        appendOtherParam(form);
        m_globalForm = form;
        m_bGlobalFormBuilt = true;
    }
    return m_globalForm;
}

TextBuffer SipTelSubscriberUser::getLocalForm() const {
    if (!m_bLocalFormBuilt) {
        TextBuffer form(m_number);
        appendParam(form, "isdn=", m_isub);  // the isub value under the name "isdn"
        appendParam(form, "postd=", m_postd);
        appendParam(form, "phone-context=", m_phoneContext);
        appendParam(form, "tsp=", m_tsp);
        appendOtherParam(form);
        m_localForm = form;
        m_bLocalFormBuilt = true;
    }
    return m_localForm;
}

}  // namespace Vocal
