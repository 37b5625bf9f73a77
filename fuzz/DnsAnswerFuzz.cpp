// Hands the input to the resolver's DNS answer callback as c-ares would: the
// first byte picks the c-ares status (low 3 bits) and whether the outcome goes
// to the cache (bit 3); the rest is the answer. Every input gives exactly one
// notification, under the requested name or the placeholder name, and
// addresses only with a success (or with the failure of a later record).
#include <ares.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/FuzzLogging.h"
#include "net/HostNameServer.h"
#include "platform/GlobalConfig.h"
#include "support/HostNameServerPeer.h"

namespace {

using Tarvik::Hostent;

struct Checker : Tarvik::HostNameServer::GetHostByNameCallback {
    explicit Checker(int& io_told) : told(io_told) {}
    ~Checker() override { told += 100; }
    bool onGhbnTimeout(const char* in_szHostname) override {
        told += std::strcmp(in_szHostname, "fuzz.test") == 0 ? 1 : 1000;
        return true;
    }
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value) override {
        const bool bPlaceholder = std::strcmp(in_szHostname, "???hostname???") == 0;
        const bool bNameOk = std::strcmp(in_szHostname, "fuzz.test") == 0 ||
                             (in_status == Hostent::GHBN_OTHER_ERROR && bPlaceholder);
        bool bAddressesOk = in_hostent.getNumAddress() == 0 || in_status == Hostent::GHBN_SUCCESS ||
                            in_status == Hostent::GHBN_OTHER_ERROR;
        std::string address;
        for (size_t i = 0; i < in_hostent.getNumAddress(); ++i) bAddressesOk &= in_hostent.getAddress(i, address);
        told += bNameOk && bAddressesOk ? 1 : 1000;
        return true;
    }
    int& told;  // 1 per good notification, 100 once destroyed
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Tarvik::HostNameServer& s_server = [] () -> Tarvik::HostNameServer& {
        logEverythingToNowhere();
        std::string error;
        Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();  // both cache flags on
        config.setValue(Tarvik::HostNameServer::getCacheSuccessParamName(), "true", error);
        config.setValue(Tarvik::HostNameServer::getCacheFailuresParamName(), "true", error);
        if (!Tarvik::HostNameServer::getInstance().configure(config.getConfig())) __builtin_trap();
        return Tarvik::HostNameServer::getInstance();
    }();
    static const int kStatuses[8] = {ARES_SUCCESS,    ARES_ENODATA,      ARES_ETIMEOUT,  ARES_ENOTFOUND,
                                     ARES_ECANCELLED, ARES_ECONNREFUSED, ARES_ESERVFAIL, ARES_EBADRESP};
    if (size < 1 || size > 65536) return 0;
    const std::vector<unsigned char> answer(data + 1, data + size);
    int told = 0;
    Tarvik::HostNameServerPeer::dnsAnswer(s_server, "fuzz.test", new Checker(told), (data[0] & 8) != 0,
                                          kStatuses[data[0] & 7], answer);
    if (told != 101) __builtin_trap();
    return 0;
}
