// The resolver's DNS answer callback fed as by c-ares (byte 0: status in bits 0-2, caching in bit 3): one
// notification comes, named as asked (or as the placeholder, on a failure); then the callback is deleted.
#include <ares.h>

#include <string>

#include "fuzz/FuzzLogging.h"
#include "platform/GlobalConfig.h"
#include "support/HostNameServerPeer.h"

using Tarvik::Hostent;
using Tarvik::HostNameServer;

struct Checker : HostNameServer::GetHostByNameCallback {
    explicit Checker(int& io_told) : told(io_told) {}
    ~Checker() override { told += 100; }
    bool onGhbnTimeout(const char* in_szName) override {
        return onGhbnResult(in_szName, Hostent(), Hostent::GHBN_TIMEOUT, ACE_Time_Value());
    }
    bool onGhbnResult(const char* in_szName, const Hostent&, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value) override {
        const std::string name = in_szName;
        const bool placeholder = in_status == Hostent::GHBN_OTHER_ERROR && name == "???hostname???";
        told += name == "fuzz.test" || placeholder ? 1 : 1000;
        return true;
    }
    int& told;  // 1 per good notification, 100 once deleted
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int kStatuses[8] = {ARES_SUCCESS,    ARES_ENODATA,      ARES_ETIMEOUT,  ARES_ENOTFOUND,
                                     ARES_ECANCELLED, ARES_ECONNREFUSED, ARES_ESERVFAIL, ARES_EBADRESP};
    static const bool s_configured = [] {
        std::string error;
        Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();  // both cache flags on
        config.setValue(HostNameServer::getCacheSuccessParamName(), "true", error);
        config.setValue(HostNameServer::getCacheFailuresParamName(), "true", error);
        return logEverythingToNowhere() && HostNameServer::getInstance().configure(config.getConfig());
    }();
    if (!s_configured || size < 1 || size > 65536) return 0;
    int told = 0;
    Tarvik::HostNameServerPeer::dnsAnswer(HostNameServer::getInstance(), "fuzz.test", new Checker(told),
                                          (data[0] & 8) != 0, kStatuses[data[0] & 7], {data + 1, data + size});
    if (told != 101) __builtin_trap();
    return 0;
}
