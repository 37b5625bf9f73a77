// Vocal::TelUrl: a "tel" URL, the scheme and a telephone-subscriber user.
#pragma once

#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

namespace Vocal {

class TelUrl : public BaseUrl {
public:
    // Scheme "tel", no user.
    TelUrl();
    // Decodes the text. On failure logs at ERR and throws TelUrlParserException
    // ("failed in Decode", "TelUrl.cpp", code 0) while the rethrow switch is on.
    explicit TelUrl(const TextBuffer& in_text);
    TelUrl(const TelUrl& in_other);
    TelUrl& operator=(const TelUrl& in_other);
    TelUrl& operator=(TelUrl&& in_other) = default;

    // Scheme, ":", then the user's text when there is a user.
    TextBuffer encode() const override;
    CountedPtr<BaseUser> getUser() const override;
    TextBuffer getUserValue() const override;
    // The user's text, without the scheme.
    TextBuffer encodeAddress() const override { return getUserValue(); }
    // Keeps the given user when it is a SipTelSubscriberUser; any other user
    // (or null) leaves the URL's user as it was.
    void setUser(CountedPtr<BaseUser> in_user) override;
    // Decodes in_user into the user object (made when there is none); true.
    bool setUserValue(const TextBuffer& in_user, const TextBuffer& in_userParam) override;
    UrlType getType() const override { return TEL_URL; }
    CountedPtr<BaseUrl> duplicate() const override;
    using BaseUrl::areEqual;
    // Schemes equal ignoring case and, when both have a user, equal users.
    bool areEqual(const BaseUrl* in_pOther) const override;
    // Scheme first (byte-wise), then the users; a greater scheme does not end
    // the test.
    bool isLessThan(CountedPtr<BaseUrl> in_other) const override;

    const TextBuffer& getScheme() const { return m_scheme; }

private:
    // Throws TelUrlParserException ("Failed in Decode (TEL_URL)", code 8).
    void decode(const TextBuffer& in_text);

    TextBuffer m_scheme;          // "tel", or the scheme as written once decoded
    CountedPtr<BaseUser> m_user;  // a SipTelSubscriberUser; null until decoded
};

}  // namespace Vocal
