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
    // The waiter is left to its own deadline, which reports the time-out.
    bool onGhbnTimeout(const char*) override {
        m_producer.expire();
        return true;
    }
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

namespace Tarvik {

// One DNS A-record query, sent from a pool thread through the platform's DNS
// task; the answer arrives on the DNS task's thread.
class HostNameServer::DNSARecordWork : public AddTimeoutToBlockingOpTask::Work<HostNameServer::GHBNResult> {
    CORVANE_STATIC_ALLOCATOR("HostNameServer::DNSARecordWork")

public:
    using FutureCallback = HostNameServer::GHBNFutureCallback;
    class CallbackContainer;

    // Without a callback the work makes a FutureCallback for its waiter.
    DNSARecordWork(HostNameServer& in_server, const char* in_szHostname, GetHostByNameCallback* in_pCallback,
                   bool in_bUseCache);
    ~DNSARecordWork() override;
    // Hands the callback to a container and sends the query; does not wait.
    bool doWork() override;
    // The c-ares answer callback: parses the answer and tells the container.
    static void aresCallback(void* in_pArg, int in_iStatus, int in_iTimeouts, unsigned char* in_pAnswer,
                             int in_iLength);

private:
    HostNameServer& m_server;                 // the owning resolver
    const std::string m_strHostname;          // the name to query
    GetHostByNameCallback* m_pCallback;       // owned until handed to the container; null afterwards
    const bool m_bUseCache;                   // store the answer in the cache
};

}  // namespace Tarvik
