// DNS mode of the resolver: A-record queries through c-ares.
#include "net/HostNameServer.h"

namespace Tarvik {

bool HostNameServer::configureCAres(const TSHandle<ROConfiguration>&) { return true; }

bool HostNameServer::startAresTask() { return true; }

void HostNameServer::stopAresTask() {}

void HostNameServer::releaseAresChannel() {}

bool HostNameServer::getDNSARecords(const char* in_szHostname, Hostent& out_hostent,
                                    Hostent::GetHostByNameStatus& out_status, ACE_Time_Value in_timeout,
                                    bool in_bUseCache) {
    return getHostByName(in_szHostname, out_hostent, out_status, in_timeout, in_bUseCache);
}

}  // namespace Tarvik
