// The resolver's DNS answer callback fed as c-ares would: the first byte picks the c-ares status (low
// 3 bits) and caching (bit 3), the rest is the answer. Exactly one notification comes, under the name
// asked for (or the placeholder name, on a failure), with addresses only on a success or a failure.
#include <ares.h>

#include <cstring>
#include <string>

#include "fuzz/FuzzLogging.h"
#include "platform/GlobalConfig.h"
#include "support/HostNameServerPeer.h"

using Tarvik::Hostent;

struct Checker : Tarvik::HostNameServer::GetHostByNameCallback {
    explicit Checker(int& io_told) : told(io_told) {}
    ~Checker() override { told += 100; }
    bool onGhbnTimeout(const char* in_szName) override {
        told += std::strcmp(in_szName, "fuzz.test") == 0 ? 1 : 1000;
        return true;
    }
    bool onGhbnResult(const char* in_szName, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value) override {
        const bool named = std::strcmp(in_szName, "fuzz.test") == 0 ||
                           (in_status == Hostent::GHBN_OTHER_ERROR && std::strcmp(in_szName, "???hostname???") == 0);
        const bool addressed = in_hostent.getNumAddress() == 0 || in_status == Hostent::GHBN_SUCCESS ||
                               in_status == Hostent::GHBN_OTHER_ERROR;
        told += named && addressed ? 1 : 1000;
        return true;
    }
    int& told;  // 1 per good notification, 100 once destroyed
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_configured = [] {
        std::string error;
        Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();  // both cache flags on
        config.setValue(Tarvik::HostNameServer::getCacheSuccessParamName(), "true", error);
        config.setValue(Tarvik::HostNameServer::getCacheFailuresParamName(), "true", error);
        return logEverythingToNowhere() && Tarvik::HostNameServer::getInstance().configure(config.getConfig());
    }();
    static const int kStatuses[8] = {ARES_SUCCESS,    ARES_ENODATA,      ARES_ETIMEOUT,  ARES_ENOTFOUND,
                                     ARES_ECANCELLED, ARES_ECONNREFUSED, ARES_ESERVFAIL, ARES_EBADRESP};
    if (!s_configured) __builtin_trap();
    if (size < 1 || size > 65536) return 0;
    int told = 0;
    Tarvik::HostNameServerPeer::dnsAnswer(Tarvik::HostNameServer::getInstance(), "fuzz.test", new Checker(told),
                                          (data[0] & 8) != 0, kStatuses[data[0] & 7], {data + 1, data + size});
    if (told != 101) __builtin_trap();
    return 0;
}
