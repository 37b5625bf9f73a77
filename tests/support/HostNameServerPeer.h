// Test access to the resolver's private cache operations and DNS answer callback.
#pragma once

#include <ace/Guard_T.h>

#include <string>
#include <vector>

#include "net/HostNameServer.h"
#include "platform/AresReactorTask.h"

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

    // The DNS answer callback fed bytes and a c-ares status for a query of name; cb (owned) hears the outcome.
    static void dnsAnswer(HostNameServer& s, const std::string& name, HostNameServer::GetHostByNameCallback* cb,
                          bool useCache, int status, const std::vector<unsigned char>& answer) {
        HostNameServer::deliverDnsAnswerForTest(s, name.c_str(), cb, useCache, status, answer.data(),
                                                static_cast<int>(answer.size()));
    }
    // A synchronous resolution (on the running pool) whose DNS answer is the given bytes and c-ares status.
    static bool resolveWithDnsAnswer(HostNameServer& s, const std::string& name, int status,
                                     const std::vector<unsigned char>& answer, Hostent& out,
                                     Hostent::GetHostByNameStatus& st, ACE_Time_Value timeout) {
        return HostNameServer::resolveWithDnsAnswerForTest(s, name.c_str(), status, answer.data(),
                                                           static_cast<int>(answer.size()), out, st, timeout);
    }
    // Takes a stopped resolver out of DNS mode, so that the next configuration starts afresh.
    static void leaveDnsMode(HostNameServer& s) {
        if (!s.isDnsMode()) return;
        AresReactorTask::getInstance().setChannel(nullptr);
        s.releaseAresChannel();
    }
};

}  // namespace Tarvik
