// Hands the input to the resolver's DNS answer callback as c-ares would: the
// first byte picks the c-ares status (low 3 bits) and whether the outcome goes
// to the cache (bit 3); the rest is the answer. Every input must give exactly
// one notification, under the requested name or the placeholder name, and
// addresses only with a success.
#include <ares.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include "net/HostNameServer.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "support/HostNameServerPeer.h"

namespace {

using Tarvik::Hostent;
using Tarvik::HostNameServer;

const char* const kName = "fuzz.test";

struct Heard {
    int told = 0;
    int destroyed = 0;
    bool nameOk = true;
    bool addressesOk = true;
};

class Checker : public HostNameServer::GetHostByNameCallback {
public:
    explicit Checker(Heard& io_heard) : m_heard(io_heard) {}
    ~Checker() override { ++m_heard.destroyed; }
    bool onGhbnTimeout(const char* in_szHostname) override {
        ++m_heard.told;
        m_heard.nameOk = std::strcmp(in_szHostname, kName) == 0;
        return true;
    }
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value) override {
        ++m_heard.told;
        m_heard.nameOk = std::strcmp(in_szHostname, kName) == 0 ||
                         (in_status == Hostent::GHBN_OTHER_ERROR && std::strcmp(in_szHostname, "???hostname???") == 0);
        // Addresses come with a success, or with the failure of a later record.
        m_heard.addressesOk = in_hostent.getNumAddress() == 0 || in_status == Hostent::GHBN_SUCCESS ||
                              in_status == Hostent::GHBN_OTHER_ERROR;
        std::string address;
        for (size_t i = 0; i < in_hostent.getNumAddress(); ++i) m_heard.addressesOk &= in_hostent.getAddress(i, address);
        return true;
    }

private:
    Heard& m_heard;
};

// Every message is built (DEBUG and TRACE included) and dropped; both cache
// flags are on, so that outcomes reach the cache's paths.
HostNameServer& setUp() {
    Tarvik::initializeLogging();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(Tarvik::TRACE_LOG_LEVEL);
    std::string error;
    Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();
    config.setValue(HostNameServer::getCacheSuccessParamName(), "true", error);
    config.setValue(HostNameServer::getCacheFailuresParamName(), "true", error);
    HostNameServer& server = HostNameServer::getInstance();
    if (!server.configure(config.getConfig())) __builtin_trap();
    return server;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static HostNameServer& s_server = setUp();
    static const int kStatuses[8] = {ARES_SUCCESS,    ARES_ENODATA,      ARES_ETIMEOUT,  ARES_ENOTFOUND,
                                     ARES_ECANCELLED, ARES_ECONNREFUSED, ARES_ESERVFAIL, ARES_EBADRESP};
    if (size < 1 || size > 65536) return 0;
    const int status = kStatuses[data[0] & 7];
    const bool bUseCache = (data[0] & 8) != 0;
    const std::vector<unsigned char> answer(data + 1, data + size);
    Heard heard;
    Tarvik::HostNameServerPeer::dnsAnswer(s_server, kName, new Checker(heard), bUseCache, status, answer);
    if (heard.told != 1 || heard.destroyed != 1 || !heard.nameOk || !heard.addressesOk) __builtin_trap();
    return 0;
}
