// Reading the resolver configuration from files of the test's own.
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TempFile.h"
#include "net/ResolverConfig.h"

using corvane_test::TempFile;
using Tarvik::Net::ResolverConfig;

namespace {

struct PathOverride {
    explicit PathOverride(const std::string& in_strPath) { Tarvik::Net::setResolverConfigPathForTest(in_strPath); }
    ~PathOverride() { Tarvik::Net::setResolverConfigPathForTest(""); }
};

std::string nameServers(int in_iFirst, int in_iCount) {
    std::string text;
    for (int i = in_iFirst; i < in_iFirst + in_iCount; ++i) text += "nameserver 10.0.0." + std::to_string(i) + "\n";
    return text;
}

std::vector<std::string> dotted(int in_iFirst, int in_iCount) {
    std::vector<std::string> out;
    for (int i = in_iFirst; i < in_iFirst + in_iCount; ++i) out.push_back("10.0.0." + std::to_string(i));
    return out;
}

TEST(ResolverConfig, ReadsServersInFileOrderAndThePrimaryDomain) {
    const struct {
        const char* label;
        std::string content;
        std::vector<std::string> servers;
        std::string domain;
        bool tooMany = false;  // more servers were named than are kept
        int error = 0;         // errno of a file that cannot be read
    } rows[] = {
        {"empty file", "", {}, ""},
        {"servers in order", "nameserver 10.0.0.3\nnameserver 10.0.0.1\nnameserver 10.0.0.2\n",
         {"10.0.0.3", "10.0.0.1", "10.0.0.2"}, ""},
        {"ten servers kept", nameServers(1, 10), dotted(1, 10), ""},
        {"an eleventh and later left out", nameServers(1, 12), dotted(1, 10), "", true},
        {"IPv6 servers left out and not counted",
         "nameserver ::1\n" + nameServers(1, 5) + "nameserver fe80::1%eth0\nnameserver 2001:db8::53\n" +
             nameServers(6, 6),
         dotted(1, 10), "", true},
        {"malformed addresses left out",
         "nameserver 10.0.0.999\nnameserver\nnameserver \nnameserver 10.0.0.1x\nnameserver 10.0.0.4\n",
         {"10.0.0.4"}, ""},
        {"short forms written in full", "nameserver 127.1\n", {"127.0.0.1"}, ""},
        {"rest of the line ignored", "nameserver 10.0.0.1 10.0.0.2 # primary\n", {"10.0.0.1"}, ""},
        {"tabs and CRLF", "nameserver\t\t10.0.0.1\r\ndomain\texample.org\r\n", {"10.0.0.1"}, "example.org"},
        {"comments and odd lines",
         "# nameserver 10.0.0.1\n; nameserver 10.0.0.2\n  nameserver 10.0.0.3\nnameserver10.0.0.4\n"
         "nameservers 10.0.0.5\noptions ndots:2\nnameserver 10.0.0.6",
         {"10.0.0.6"}, ""},
        {"domain line", "domain example.org\n", {}, "example.org"},
        {"first search entry", "search a.example b.example\n", {}, "a.example"},
        {"domain wins over search, after it", "search a.example\ndomain example.org\n", {}, "example.org"},
        {"last domain line", "domain one.example\ndomain two.example\n", {}, "two.example"},
        {"trailing dot dropped", "domain example.org.\n", {}, "example.org"},
        {"root domain is none", "domain .\nsearch a.example\n", {}, "a.example"},
        {"empty domain line ignored", "domain\ndomain   \n", {}, ""},
        {"missing file", "-", {}, "", false, ENOENT},
        {"a folder", "/", {}, "", false, EISDIR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        TempFile file(row.content);
        const std::string unreadable = row.error == ENOENT ? TempFile::uniquePath() : testing::TempDir();
        PathOverride path(row.error == 0 ? file.path() : unreadable);
        ResolverConfig config;
        config.dnsServers = {"stale"};
        config.domain = "stale";
        errno = 0;
        EXPECT_EQ(Tarvik::Net::readResolverConfig(config), row.error == 0);
        EXPECT_EQ(row.error ? errno : 0, row.error);
        EXPECT_EQ(config.dnsServers, row.servers);
        EXPECT_EQ(config.domain, row.domain);
        EXPECT_EQ(config.bTooManyServers, row.tooMany);
    }
}

}  // namespace
