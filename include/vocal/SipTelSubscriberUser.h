// Vocal::SipTelSubscriberUser: a telephone number with its parameters, the
// user of a TelUrl and of a SipUrl whose "user" parameter asks for one.
#pragma once

#include <string_view>

#include "vocal/BaseUser.h"

namespace Vocal {

// One-character texts of the telephone-number alphabet: pause, wait, star,
// hash and the DTMF letters. The decoder does not check numbers against them.
extern const TextBuffer TEL_PAUSE;   // "p"
extern const TextBuffer TEL_WAIT;    // "w"
extern const TextBuffer TEL_STAR;    // "*"
extern const TextBuffer TEL_HASH;    // "#"
extern const TextBuffer TEL_DTMF_A;  // "A"
extern const TextBuffer TEL_DTMF_B;  // "B"
extern const TextBuffer TEL_DTMF_C;  // "C"
extern const TextBuffer TEL_DTMF_D;  // "D"

class SipTelSubscriberUser : public BaseUser {
public:
    SipTelSubscriberUser() = default;
    // Decodes the text; throws SipTelSubscriberUserParserException if that fails
    // (decoding accepts every text).
    explicit SipTelSubscriberUser(const TextBuffer& in_text);
    explicit SipTelSubscriberUser(std::string_view in_text);

    // "+" makes the number global (text ahead of the first "+" is lost); the
    // number runs to the first ";", then "name=value" parameters follow:
    // "isub", "postd", "phone-context", "tsp", and one other, the last kept.
    // Fields that the text does not set keep their values. Always true.
    bool decode(const TextBuffer& in_text) override;
    // "+" when global, then the number.
    TextBuffer encode() const override;
    CountedPtr<BaseUser> duplicate() const override;
    int getUserType() const override { return SIP_TEL_SUBSCRIBER_USER; }
    // Another telephone-subscriber user with the same global flag and fields.
    bool areEqual(CountedPtr<BaseUser> in_other) const override;
    // True as soon as one of number, isub, postd, phoneContext, tsp, otherName,
    // otherValue is less than the other's; a greater field does not stop the
    // test, so two users can each be less than the other.
    bool isLessThan(CountedPtr<BaseUser> in_other) const override;

    // ";isub=...;postd=...;phone-context=...;tsp=..." for the fields that are
    // set, then ";name=value" of the other parameter: what SipUrl::encode appends.
    TextBuffer getParamString() const;
    // "+number;isub=..;postd=..;phone-context<v>;tsp<v>;name=value", built on
    // the first request and returned unchanged from then on.
    TextBuffer getGlobalForm() const;
    // "number;isdn=<isub>;postd=..;phone-context=..;tsp=..;name=value", cached
    // the same way.
    TextBuffer getLocalForm() const;

    bool isGlobal() const { return m_bGlobal; }
    const TextBuffer& getNumber() const { return m_number; }
    const TextBuffer& getIsub() const { return m_isub; }
    const TextBuffer& getPostd() const { return m_postd; }
    const TextBuffer& getPhoneContext() const { return m_phoneContext; }
    const TextBuffer& getTsp() const { return m_tsp; }
    const TextBuffer& getOtherName() const { return m_otherName; }
    const TextBuffer& getOtherValue() const { return m_otherValue; }

private:
    bool decodeView(std::string_view in_text);  // always true
    // Appends ";" + otherName + "=" + otherValue when both are set.
    void appendOtherParam(TextBuffer& io_out) const;
    // The global ("+number;isub=..") or local ("number;isdn=..") rendering.
    TextBuffer renderForm(bool in_bGlobal) const;

    bool m_bGlobal = false;                  // the number was written with a leading "+"
    mutable bool m_bGlobalFormBuilt = false; // m_globalForm is valid
    mutable bool m_bLocalFormBuilt = false;  // m_localForm is valid
    mutable TextBuffer m_globalForm;         // cache of getGlobalForm()
    mutable TextBuffer m_localForm;          // cache of getLocalForm()
    TextBuffer m_number;                     // the number without "+", not validated
    TextBuffer m_isub;                       // "isub" parameter
    TextBuffer m_postd;                      // "postd" parameter
    TextBuffer m_phoneContext;               // "phone-context" parameter
    TextBuffer m_tsp;                        // "tsp" parameter
    TextBuffer m_otherName;                  // name of the one other parameter kept (the last)
    TextBuffer m_otherValue;                 // its value
};

}  // namespace Vocal
