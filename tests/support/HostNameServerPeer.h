// Test access to the resolver's private cache operations.
#pragma once

#include <ace/Guard_T.h>

#include "net/HostNameServer.h"

namespace Tarvik {

class HostNameServerPeer {
public:
    static bool getHostentInCache(HostNameServer& s, const char* name, Hostent& out, Hostent::GetHostByNameStatus& st,
                                  bool& usable) {
        return s.getHostentInCache(name, out, st, usable);
    }
    static void updateCache(HostNameServer& s, const std::string& name, const Hostent& h,
                            Hostent::GetHostByNameStatus st, ACE_Time_Value ttl) {
        s.updateCache(name, h, st, ttl);
    }
    static void updateCacheFailure(HostNameServer& s, const std::string& name, Hostent::GetHostByNameStatus st) {
        s.updateCache(name, st);
    }
    static size_t cacheSize(HostNameServer& s) {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(s.getCacheLock());
        return s.m_cache.size();
    }
    static ACE_Time_Value defaultTtl(const HostNameServer& s) { return s.m_cacheFlushTimeout; }
};

}  // namespace Tarvik
