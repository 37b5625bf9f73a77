// Vocal::SipUrl: a "sip" URL split into scheme, user, host, port, the five
// well-known parameters and one further parameter; written back in a fixed
// order and compared with defaults (port "5060", transport "udp").
#pragma once

#include <string_view>

#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

namespace Vocal {

class SipUrl : public BaseUrl {
public:
    // Scheme "sip", everything else empty.
    SipUrl();
    // Decodes the text. On failure logs at ERR and throws SipUrlParserException
    // ("failed in Decode", "SipUrl.cpp", code 0) while the rethrow switch is on;
    // with it off the partly decoded URL is kept.
    explicit SipUrl(const TextBuffer& in_text);
    SipUrl(const SipUrl& in_other);
    SipUrl& operator=(const SipUrl& in_other);
    SipUrl& operator=(SipUrl&& in_other) = default;
    ~SipUrl() override;

    TextBuffer encode() const override;
    CountedPtr<BaseUser> getUser() const override;
    TextBuffer getUserValue() const override;
    // Scheme, user, host and port: no parameters.
    TextBuffer encodeAddress() const override;
    // Keeps a duplicate of the user (null stays null).
    void setUser(CountedPtr<BaseUser> in_user) override;
    // Without a user object, an empty or "ip" userParam makes a SipUser and
    // "phone" a SipTelSubscriberUser; any other is refused (false). The user
    // object then decodes in_user and userParam is stored.
    bool setUserValue(const TextBuffer& in_user, const TextBuffer& in_userParam) override;
    UrlType getType() const override { return SIP_URL; }
    bool isLooseRouting() const override { return m_bLr; }
    CountedPtr<BaseUrl> duplicate() const override;
    using BaseUrl::areEqual;
    bool areEqual(const BaseUrl* in_pOther) const override;
    // Orders by user, passwd, ttl, maddr, userParam, method, otherValue, port,
    // headers; scheme, host, transport, otherName and lr take no part.
    bool isLessThan(CountedPtr<BaseUrl> in_other) const override;

    const TextBuffer& getScheme() const { return m_scheme; }
    const TextBuffer& getPasswd() const { return m_passwd; }
    const TextBuffer& getHost() const { return m_host; }
    const TextBuffer& getPort() const { return m_port; }
    const TextBuffer& getTransportParam() const { return m_transport; }
    const TextBuffer& getTtlParam() const { return m_ttl; }
    const TextBuffer& getMaddrParam() const { return m_maddr; }
    const TextBuffer& getUserParam() const { return m_userParam; }
    const TextBuffer& getMethodParam() const { return m_method; }
    const TextBuffer& getOtherName() const { return m_otherName; }
    const TextBuffer& getOtherValue() const { return m_otherValue; }
    // The one unrecognised parameter kept: name and value.
    void getOtherParam(TextBuffer& out_name, TextBuffer& out_value) const {
        out_name = m_otherName;
        out_value = m_otherValue;
    }
    const TextBuffer& getHeaders() const { return m_headers; }
    bool isIpv6Host() const { return m_bIpv6Host; }

    void setHost(const TextBuffer& in_host) { m_host = in_host; }
    void setPort(const TextBuffer& in_port) { m_port = in_port; }
    void setTransportParam(const TextBuffer& in_transport) { m_transport = in_transport; }
    // When set, encode() writes the host inside "[" and "]".
    void setIpv6Host(bool in_bIpv6Host) { m_bIpv6Host = in_bIpv6Host; }

private:
    // Throws SipUrlParserException ("Failed in Decode (SIP_URL)", code 8).
    void decode(std::string_view in_text);
    [[noreturn]] void fail(std::string_view in_text, int in_iLine) const;
    // Scheme, user, host and port: what encode() and encodeAddress() share.
    void appendAddress(TextBuffer& io_out) const;
    // The DEBUG_STACK dump of both URLs' fields that precedes a comparison.
    void logFields(const SipUrl& in_other) const;

    TextBuffer m_scheme;           // "sip", or the scheme as written once decoded
    CountedPtr<BaseUser> m_user;   // the user part; null when the URL has none
    TextBuffer m_passwd;           // password; decoding never fills it
    TextBuffer m_host;             // host; an IPv6 reference keeps its brackets
    TextBuffer m_port;             // port digits; empty when absent
    TextBuffer m_transport;        // "transport" parameter
    TextBuffer m_ttl;              // "ttl" parameter
    TextBuffer m_maddr;            // "maddr" parameter
    TextBuffer m_userParam;        // "user" parameter ("phone", "ip"...)
    TextBuffer m_method;           // "method" parameter
    TextBuffer m_otherValue;       // value of the one unrecognised parameter kept
    TextBuffer m_otherName;        // its name
    TextBuffer m_headers;          // text after "?"; decoding never fills it
    bool m_bLr = false;            // "lr" stood as the last parameter, without a value
    bool m_bIpv6Host = false;      // encode() brackets the host; decoding never sets it
};

}  // namespace Vocal
