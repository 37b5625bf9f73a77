// Reading the resolver configuration from files of the test's own.
#include <cerrno>

#include <gtest/gtest.h>

#include "TempFile.h"
#include "net/ResolverConfig.h"

using corvane_test::TempFile;

namespace {

std::string nameServers(int in_iFirst, int in_iCount, std::vector<std::string>* out_pDotted = nullptr) {
    std::string text;
    for (int i = in_iFirst; i < in_iFirst + in_iCount; ++i) {
        text += "nameserver 10.0.0." + std::to_string(i) + "\n";
        if (out_pDotted != nullptr) out_pDotted->push_back("10.0.0." + std::to_string(i));
    }
    return text;
}

TEST(ResolverConfig, ReadsServersInFileOrderAndThePrimaryDomain) {
    std::vector<std::string> ten;
    const std::string eleven = nameServers(1, 10, &ten) + nameServers(11, 1);
    const struct {
        const char* label;
        std::string content;  // "-": no such file, "/": a folder
        std::vector<std::string> servers;
        std::string domain;
        bool tooMany = false;  // more servers were named than are kept
    } rows[] = {
        {"servers in order", "nameserver 10.0.0.3\nnameserver 10.0.0.1\n", {"10.0.0.3", "10.0.0.1"}, ""},
        {"ten servers kept", nameServers(1, 10), ten, ""},
        {"an eleventh left out", eleven, ten, "", true},
        {"IPv6 servers not counted", "nameserver ::1\nnameserver fe80::1%eth0\n" + eleven, ten, "", true},
        {"malformed, short, with more on the line",
         "nameserver 10.0.0.999\nnameserver\nnameserver 10.0.0.1x\nnameserver 127.1 10.0.0.2 # primary\n",
         {"127.0.0.1"}, ""},
        {"comments, odd lines, tabs and CRLF",
         "# nameserver 10.0.0.1\n; nameserver 10.0.0.2\n  nameserver 10.0.0.3\nnameserver10.0.0.4\n"
         "nameservers 10.0.0.5\noptions ndots:2\ndomain\texample.org\r\nnameserver\t10.0.0.6",
         {"10.0.0.6"}, "example.org"},
        {"first search entry", "search a.example b.example\n", {}, "a.example"},
        {"last of domain and search lines", "search a.example\ndomain one.example\ndomain two.example.\n", {},
         "two.example"},
        {"root and empty domains are none", "domain .\nsearch a.example\ndomain   \n", {}, "a.example"},
        {"missing file", "-", {}, ""},
        {"a folder", "/", {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        TempFile file(row.content);
        const std::string path = row.content == "-" ? TempFile::uniquePath() : file.path();
        Tarvik::Net::setResolverConfigPathForTest(row.content == "/" ? testing::TempDir() : path);
        Tarvik::Net::ResolverConfig config;
        config.dnsServers = {"stale"};
        config.domain = "stale";
        errno = 0;
        const bool unreadable = row.content == "-" || row.content == "/";
        EXPECT_EQ(Tarvik::Net::readResolverConfig(config), !unreadable);
        EXPECT_EQ(unreadable ? errno : 0, row.content == "-" ? ENOENT : unreadable ? EISDIR : 0);
        EXPECT_EQ(config.dnsServers, row.servers);
        EXPECT_EQ(config.domain, row.domain);
        EXPECT_EQ(config.bTooManyServers, row.tooMany);
    }
    Tarvik::Net::setResolverConfigPathForTest("");
}

}  // namespace
