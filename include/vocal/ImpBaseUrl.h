// Vocal::ImpBaseUrl and its two classes ImUrl ("im") and PresUrl ("pres"):
// scheme, user and host, without parameters.
#pragma once

#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

namespace Vocal {

class ImpBaseUrl : public BaseUrl {
public:
    // "scheme:" (when the scheme is set), "user@" (when the user is set), host.
    TextBuffer encode() const override;
    // Always null: the user is a text here.
    CountedPtr<BaseUser> getUser() const override { return CountedPtr<BaseUser>(); }
    TextBuffer getUserValue() const override { return m_user; }
    TextBuffer encodeAddress() const override { return encode(); }
    void setUser(CountedPtr<BaseUser>) override {}
    // Stores the text as the user; true.
    bool setUserValue(const TextBuffer& in_user, const TextBuffer& in_userParam) override;
    using BaseUrl::areEqual;
    // Same type, and scheme, user and host equal ignoring case.
    bool areEqual(const BaseUrl* in_pOther) const override;
    // Same type and this user text less, byte-wise; scheme and host take no part.
    bool isLessThan(CountedPtr<BaseUrl> in_other) const override;

    const TextBuffer& getScheme() const { return m_scheme; }
    const TextBuffer& getHost() const { return m_host; }

protected:
    // Sets the scheme that decoding expects.
    explicit ImpBaseUrl(const char* in_szScheme) : m_scheme(in_szScheme) {}
    // Decodes the text; on failure logs at ERR and throws
    // ImpBaseUrlParserException ("failed in Decode", "ImpBaseUrl.cpp", code 0)
    // while the rethrow switch is on.
    void decodeOrThrow(const TextBuffer& in_text);

private:
    // Throws ImpBaseUrlParserException ("Failed in Decode URL", code 3).
    void decode(const TextBuffer& in_text);

    TextBuffer m_scheme;  // the expected scheme, or the scheme as written once decoded
    TextBuffer m_user;    // text ahead of the "@"
    TextBuffer m_host;    // text after the "@"
};

class ImUrl : public ImpBaseUrl {
public:
    ImUrl() : ImpBaseUrl("im") {}
    explicit ImUrl(const TextBuffer& in_text) : ImpBaseUrl("im") { decodeOrThrow(in_text); }
    UrlType getType() const override { return IM_URL; }
    CountedPtr<BaseUrl> duplicate() const override { return CountedPtr<BaseUrl>(new ImUrl(*this)); }
};

class PresUrl : public ImpBaseUrl {
public:
    PresUrl() : ImpBaseUrl("pres") {}
    explicit PresUrl(const TextBuffer& in_text) : ImpBaseUrl("pres") { decodeOrThrow(in_text); }
    UrlType getType() const override { return PRES_URL; }
    CountedPtr<BaseUrl> duplicate() const override { return CountedPtr<BaseUrl>(new PresUrl(*this)); }
};

}  // namespace Vocal
