// Reading the system's resolver configuration, the way the C library's
// resolver reads it: a keyword at the start of a line, then blanks, then the
// value; lines starting with '#' or ';' are comments.
#include "net/ResolverConfig.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/Logger.h"

namespace Tarvik {
namespace Net {

namespace {

const char* const kSystemResolverConfigPath = "/etc/resolv.conf";

Logger& resolverConfigLogger() {
    static Logger& s_logger = getLogger("corvane.net.ResolverConfig");
    return s_logger;
}

std::mutex& pathMutex() {
    static std::mutex s_mutex;
    return s_mutex;
}

// The file to read; empty means the system's. Guarded by pathMutex().
std::string& pathOverride() {
    static std::string s_strPath;
    return s_strPath;
}

std::string resolverConfigPath() {
    std::lock_guard<std::mutex> guard(pathMutex());
    return pathOverride().empty() ? std::string(kSystemResolverConfigPath) : pathOverride();
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// When in_strLine starts with the keyword followed by a blank, the rest of the
// line after the blanks; else false.
bool matchKeyword(const std::string& in_strLine, const char* in_szKeyword, std::string& out_strRest) {
    const size_t length = std::strlen(in_szKeyword);
    if (in_strLine.compare(0, length, in_szKeyword) != 0 || in_strLine.size() <= length ||
        !isBlank(in_strLine[length])) {
        return false;
    }
    size_t start = length;
    while (start < in_strLine.size() && isBlank(in_strLine[start])) ++start;
    out_strRest = in_strLine.substr(start);
    return true;
}

// The blank-separated words of a value.
StringVector words(const std::string& in_strText) {
    StringVector out;
    size_t i = 0;
    while (i < in_strText.size()) {
        while (i < in_strText.size() && isBlank(in_strText[i])) ++i;
        const size_t start = i;
        while (i < in_strText.size() && !isBlank(in_strText[i])) ++i;
        if (i > start) out.push_back(in_strText.substr(start, i - start));
    }
    return out;
}

// A domain name as the FQDN wants it: no trailing dot; the root domain is none.
std::string withoutTrailingDot(std::string in_strDomain) {
    if (!in_strDomain.empty() && in_strDomain.back() == '.') in_strDomain.pop_back();
    return in_strDomain;
}

void addNameServer(const std::string& in_strValue, ResolverConfig& io_config) {
    const StringVector parts = words(in_strValue);
    if (parts.empty()) return;
    const std::string& text = parts.front();  // the rest of the line is ignored
    in_addr address;
    if (inet_aton(text.c_str(), &address) == 0) {
        CORVANE_DEBUG(resolverConfigLogger(),
                      "readResolverConfig : not an IPv4 name server, left out: " << text);
        return;
    }
    if (io_config.dnsServers.size() >= kMaxResolverConfigServers) {
        io_config.bTooManyServers = true;
        CORVANE_DEBUG(resolverConfigLogger(),
                      "readResolverConfig : more than " << kMaxResolverConfigServers
                                                        << " name servers, left out: " << text);
        return;
    }
    char dotted[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, dotted, sizeof(dotted));
    io_config.dnsServers.push_back(dotted);
}

}  // namespace

bool readResolverConfig(ResolverConfig& out_config) {
    static Logger& s_logger = resolverConfigLogger();
    CORVANE_TRACE_SCOPE(s_logger, "readResolverConfig");
    out_config = ResolverConfig();

    const std::string path = resolverConfigPath();
    FILE* pFile = std::fopen(path.c_str(), "re");
    if (pFile == nullptr) {
        const int error = errno;
        CORVANE_DEBUG(s_logger, traceScope.getName() << " : cannot open " << path << ": "
                                                     << std::strerror(error));
        errno = error;
        return false;
    }

    std::string domainLine;   // value of the last "domain" line naming a domain
    std::string searchFirst;  // first entry of the last "search" line naming one
    char* pLine = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    while ((length = getline(&pLine, &capacity, pFile)) >= 0) {
        std::string line(pLine, static_cast<size_t>(length));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        std::string value;
        if (matchKeyword(line, "nameserver", value)) {
            addNameServer(value, out_config);
        } else if (matchKeyword(line, "domain", value)) {
            const StringVector parts = words(value);
            if (!parts.empty()) domainLine = withoutTrailingDot(parts.front());
        } else if (matchKeyword(line, "search", value)) {
            const StringVector parts = words(value);
            if (!parts.empty()) searchFirst = withoutTrailingDot(parts.front());
        }
    }
    const int error = std::ferror(pFile) ? errno : 0;
    std::free(pLine);
    std::fclose(pFile);
    if (error != 0) {
        CORVANE_DEBUG(s_logger, traceScope.getName() << " : cannot read " << path << ": "
                                                     << std::strerror(error));
        out_config = ResolverConfig();
        errno = error;
        return false;
    }
    out_config.domain = !domainLine.empty() ? domainLine : searchFirst;
    return true;
}

void setResolverConfigPathForTest(const std::string& in_strPath) {
    std::lock_guard<std::mutex> guard(pathMutex());
    pathOverride() = in_strPath;
}

}  // namespace Net
}  // namespace Tarvik
