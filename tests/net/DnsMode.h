// Tests of the resolver's DNS mode: the resolver configuration is a file of the test's own, never the host's,
// and the resolver leaves DNS mode after every test.
#pragma once

#include <fstream>
#include <string>

#include "TempFile.h"
#include "net/HostNameServer.h"
#include "net/Net.h"
#include "net/ResolverConfig.h"
#include "support/DnsResponder.h"
#include "support/Dnsmasq.h"
#include "support/HostNameServerPeer.h"
#include "support/LibraryFixture.h"

namespace corvane_test {

constexpr const char* kDnsWorkAccount = "HostNameServer::DNSARecordWork";
constexpr const char* kDnsContainerAccount = "HostNameServer::DNSARecordWork:: CallbackContainer";
constexpr const char* kDnsFutureAccount = "HostNameServer::DNSARecordWork:: FutureCallback";

class DnsModeTest : public LibraryTest {
protected:
    static constexpr const char* kServersParam = "corvane.net.HostNameServer.DNSServerIPAddrList";

    void SetUp() override { Tarvik::Net::setResolverConfigPathForTest(m_resolverConfig.path()); }
    void TearDown() override {
        LibraryTest::TearDown();
        Tarvik::HostNameServerPeer::leaveDnsMode(server());
        Tarvik::Net::setResolverConfigPathForTest("");
        Tarvik::HostNameServer::setClockForTest(nullptr);
    }
    // Replaces what the resolver configuration file says (a primary domain by default); "-": unreadable.
    void setResolverConfig(const std::string& in_strContent) {
        const std::string path = in_strContent == "-" ? TempFile::uniquePath() : m_resolverConfig.path();
        Tarvik::Net::setResolverConfigPathForTest(path);
        std::ofstream(m_resolverConfig.path(), std::ios::binary | std::ios::trunc) << in_strContent;
    }
    const std::string& resolverConfigPath() const { return m_resolverConfig.path(); }
    // Starts the library with these DNS servers, in DNS mode.
    void startWith(const std::string& in_strServers) {
        set(kServersParam, in_strServers);
        ASSERT_TRUE(Tarvik::Net::initializeLibrary());
        ASSERT_TRUE(server().isDnsMode());
    }
    void restart() {
        Tarvik::Net::forcedCloseLibrary();
        Tarvik::HostNameServerPeer::leaveDnsMode(server());
    }
    static void startServer(DnsResponder& io_responder) {
        // Names without a script (the search domain's tries) hear NXDOMAIN.
        io_responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
        std::string error;
        ASSERT_TRUE(io_responder.start(&error)) << error;
    }
    static void startServer(Dnsmasq& io_dnsmasq) {
        std::string error;
        ASSERT_TRUE(io_dnsmasq.start(&error)) << error;
    }

private:
    TempFile m_resolverConfig{"domain corvane.test\n"};  // read instead of /etc/resolv.conf
};

}  // namespace corvane_test
