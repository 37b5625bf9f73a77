// A URI broken into scheme, user, host and port texts, filled from a URL text
// (parsed by the SIP URL model) or from a grammar parse tree, printed, and
// canonicalised (host resolved to a dotted address, SIP port filled in).
#pragma once

#include <ostream>
#include <string>

#include <ace/Time_Value.h>

#include "platform/CountedObjPtr.h"
#include "platform/PCFParse.h"
#include "platform/StringVector.h"

namespace Tarvik {

class Uri {
public:
    Uri() = default;
    Uri(const Uri&) = default;
    Uri& operator=(const Uri&) = default;
    ~Uri() = default;

    const char* getScheme() const { return m_strScheme.c_str(); }
    const char* getUser() const { return m_strUser.c_str(); }
    const char* getHost() const { return m_strHost.c_str(); }
    const char* getPort() const { return m_strPort.c_str(); }
    void setScheme(const char* in_szScheme) { m_strScheme = in_szScheme; }
    void setUser(const char* in_szUser) { m_strUser = in_szUser; }
    void setHost(const char* in_szHost) { m_strHost = in_szHost; }
    void setPort(const char* in_szPort) { m_strPort = in_szPort; }

    // Empties all four members.
    void clear();
    // Parses a URL text. A SIP URL sets scheme "sip", user (when the URL has
    // one), host and port; a TEL URL is refused and leaves the members alone;
    // anything else is refused and clears them.
    bool initFrom(const char* in_url);
    // Fills the members from the nodes named "Scheme", "User", "Host" and
    // "Port" of a parse tree over in_tokens.
    bool initFrom(const StringVector& in_tokens, CountedObjPtr<PCFParse<CFRule>> in_pParse);

    // scheme ":" [user "@"] host [":" port]
    void convertTo(std::string& out_strText) const;
    // Four lines: "scheme=", "user=", "host=", "port=" each followed by the member.
    void dump(std::ostream& io_os) const;

    // Replaces the host by the dotted address it resolves to and fills a
    // missing SIP port with "5060". ACE_Time_Value::max_time resolves directly
    // (blocking); any other time-out goes through the running resolver.
    bool canonicalize(const ACE_Time_Value& in_timeout);

private:
    bool canonicalizeSipPort();
    void initFrom_i(const StringVector& in_tokens, CountedObjPtr<PCFParse<CFRule>> in_pParse);
    void initMemberFrom(std::string& out_strMember, const StringVector& in_tokens, size_t in_uiFirst,
                        size_t in_uiLast);

    std::string m_strScheme;  // without the colon, e.g. "sip"
    std::string m_strUser;    // without its "@"; empty when absent
    std::string m_strHost;    // host name or dotted address
    std::string m_strPort;    // digits; empty when absent
};

std::ostream& operator<<(std::ostream& io_os, const Uri& in_uri);

// Parses, canonicalises and prints a URI text; on failure out_strText holds the input.
bool canonicalizeURI(const std::string& in_strText, std::string& out_strText, const ACE_Time_Value& in_timeout);

}  // namespace Tarvik
