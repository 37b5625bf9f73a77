// Vocal::BaseUrl: the root of the URL model. BaseUrl::decode turns a text into
// a SipUrl, TelUrl, ImUrl, PresUrl or UnknownUrl by its scheme.
#pragma once

#include <string>

#include "vocal/BaseUser.h"
#include "vocal/CountedPtr.h"
#include "vocal/TextBuffer.h"

namespace Vocal {

enum UrlType {
    SIP_URL = 0,     // SipUrl
    TEL_URL = 1,     // TelUrl
    IM_URL = 2,      // ImUrl
    PRES_URL = 3,    // PresUrl
    UNKNOWN_URL = 4  // UnknownUrl
};

// "SIP_URL" ... "UNKNOWN_URL"; "" for a value outside the enumeration.
const char* getUrlTypeName(UrlType in_type);

class BaseUrl {
public:
    virtual ~BaseUrl() = default;

    // The whole URL as text.
    virtual TextBuffer encode() const = 0;
    // A fresh copy of the user object; null when the URL has none.
    virtual CountedPtr<BaseUser> getUser() const = 0;
    // The user object's text; empty when there is none.
    virtual TextBuffer getUserValue() const = 0;
    // The URL without its parameters and headers.
    virtual TextBuffer encodeAddress() const = 0;
    virtual void setUser(CountedPtr<BaseUser> in_user) = 0;
    virtual bool setUserValue(const TextBuffer& in_user, const TextBuffer& in_userParam) = 0;
    virtual UrlType getType() const = 0;
    // The URL carries the "lr" parameter.
    virtual bool isLooseRouting() const { return false; }
    virtual CountedPtr<BaseUrl> duplicate() const = 0;
    virtual bool areEqual(const BaseUrl* in_pOther) const = 0;
    // False for a null other, else areEqual on it.
    virtual bool areEqual(CountedPtr<BaseUrl> in_other) const;
    // Strict ordering for sorted containers.
    virtual bool isLessThan(CountedPtr<BaseUrl> in_other) const = 0;
    // encode()'s text as a standard string.
    virtual std::string toString() const;

    // Chooses the class by the scheme ("sip", "tel", "im", "pres" in any case)
    // and builds it from the text; any other text, with or without a scheme,
    // gives an UnknownUrl. Never null. The chosen class's parser exception
    // passes to the caller.
    static CountedPtr<BaseUrl> decode(const TextBuffer& in_text);

protected:
    BaseUrl() = default;
    BaseUrl(const BaseUrl&) = default;
    BaseUrl& operator=(const BaseUrl&) = default;
};

}  // namespace Vocal
