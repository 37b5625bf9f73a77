// The resolver's units of work and the callbacks that carry their results.
#pragma once

#include <string>

#include "net/HostNameServer.h"
#include "platform/CountedObjPtr.h"

namespace Tarvik {

// Hands a result back to a waiting submitter through the shared result.
class HostNameServer::GHBNFutureCallback : public HostNameServer::GetHostByNameCallback {
    CORVANE_STATIC_ALLOCATOR("HostNameServer::DNSARecordWork:: FutureCallback")

public:
    explicit GHBNFutureCallback(const ResultProducer<GHBNResult>& in_producer) : m_producer(in_producer) {}
    bool onGhbnTimeout(const char*) override { return true; }
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value in_ttl) override;

private:
    ResultProducer<GHBNResult> m_producer;  // a producer's hold on the waiter's result
};

// One resolution through the operating system, run on a pool thread.
class HostNameServer::GetHostByNameWork : public AddTimeoutToBlockingOpTask::Work<HostNameServer::GHBNResult> {
    CORVANE_STATIC_ALLOCATOR("HostNameServer::GetHostByNameWork")

public:
    using FutureCallback = HostNameServer::GHBNFutureCallback;

    // Without a callback the work makes a FutureCallback for its waiter.
    GetHostByNameWork(HostNameServer& in_server, const char* in_szHostname, GetHostByNameCallback* in_pCallback,
                      bool in_bUseCache);
    bool doWork() override;

private:
    HostNameServer& m_server;                            // the owning resolver
    const std::string m_strHostname;                     // the name to resolve
    GHBNResult m_result;                                 // filled by doWork
    CountedObjPtr<GetHostByNameCallback> m_pCallback;    // told of the result; never null after construction
    const bool m_bUseCache;                              // store the result in the cache
};

}  // namespace Tarvik
