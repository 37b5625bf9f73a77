// The library's configuration parameters, registered when the library is loaded.
#include <cstdlib>
#include <mutex>

#include "net/Net.h"
#include "platform/Exception.h"
#include "platform/Logger.h"
#include "platform/ParameterInfoDB.h"
#include "platform/SingletonRegistry.h"

namespace Tarvik {
namespace Net {

namespace {

Logger& paramDefsLogger() {
    static Logger& s_logger = getLogger("corvane.infra.ParamDefs");
    return s_logger;
}

struct ParameterRow {
    const char* name;
    int type;
    const char* defaultValue;  // null: no registered default
    const char* description;
};

const ParameterRow kParameters[] = {
    {"corvane.net.HostNameServer.cacheFlushTimeoutMs", PARAM_TYPE_INTEGER, nullptr,
     "The interval in milliseconds at which the host name resolution cache forgets past "
     "resolution requests"},
    {"corvane.net.HostNameServer.cacheFailures", PARAM_TYPE_BOOLEAN, nullptr,
     "When set to true, host name resolution failures are remembered in the cache"},
    {"corvane.net.HostNameServer.cacheSuccess", PARAM_TYPE_BOOLEAN, nullptr,
     "When set to true, host name resolution that succeed are remembered in the cache"},
    {"corvane.net.HostNameServer.numThread", PARAM_TYPE_INTEGER, "3",
     "The number of threads used to implement host name resolution. Sets a limit on the "
     "number of concurrent resolutions that can take place"},
    {"corvane.net.HostNameServer.DNSServerIPAddrList", PARAM_TYPE_TEXT, nullptr,
     "A comma separated list of DNS server IP addresses. When this parameter is set, DNS A "
     "record queries will be performed in place of the default which is to rely on the "
     "platform's gethostbyname() C function. When using DNS, make sure ALL hosts specified in "
     "your routing rules have an entry in the DNS server, INCLUDING the host on which this "
     "application is running. This parameter can also be set to use-host-dns-list to make the "
     "application discover the DNS servers of this host."},
    {"corvane.net.primaryIPAddress", PARAM_TYPE_TEXT, nullptr,
     "Specifies which IP address on a multi-homed server should be considered the primary one."},
};

// The marker whose registration says that this library's parameters are in
// the database; another copy of the library finds it and registers nothing.
char* paramDefsSingleton() {
    static std::once_flag s_once;
    static char* s_pMarker = nullptr;
    std::call_once(s_once, [] {
        char* pNew = static_cast<char*>(std::malloc(1));
        addParametersToDB();
        void* pFound = SingletonRegistry::getInstance().registerObject(
            "ParamDefs::Singleton", pNew, [](void* p) { std::free(p); });
        if (pFound != pNew) std::free(pNew);
        s_pMarker = static_cast<char*>(pFound);
    });
    return s_pMarker;
}

// Created when the library is loaded, before any client call.
struct ParamDefsAtLoad {
    ParamDefsAtLoad() {
        paramDefsLogger();
        paramDefsSingleton();
    }
} s_paramDefsAtLoad;

}  // namespace

bool addParametersToDB() {
    ParameterInfoDB& db = ParameterInfoDB::getNonConstInstance();
    try {
        for (const ParameterRow& row : kParameters) {
            db.registerParameter(row.name, row.type, row.defaultValue, false, false, false,
                                 row.description);
        }
    } catch (const Tarvik::Exception& e) {
        CORVANE_ERROR(paramDefsLogger(), e.getText());
        return false;
    }
    return true;
}

}  // namespace Net
}  // namespace Tarvik
