// The process-wide resolver: a HostNameServer shared by every client of the
// library, started by initializeLibrary and stopped by closeLibrary.
#pragma once

#include "net/HostNameServer.h"
#include "platform/SharedTaskImpl.h"

namespace Tarvik {

class StaticHostNameServer : public HostNameServer, private SharedTaskImpl {
    CORVANE_STATIC_ALLOCATOR("StaticHostNameServer")

public:
    StaticHostNameServer();
    // Stops the task and waits for its threads while the whole object still
    // stands: a thread ending its run calls the object's virtual hooks.
    ~StaticHostNameServer() override;

    bool start() override { return SharedTaskImpl::start(); }
    bool kill() override { return SharedTaskImpl::kill(); }
    bool stop() override { return SharedTaskImpl::stop(); }
    bool waitUntilDone() override { return SharedTaskImpl::waitUntilDone(); }

    // Both refuse, with an ERROR, while the resolver is not RUNNING.
    bool resolve(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback, ACE_Time_Value in_timeout,
                 bool in_bUseCache) override;
    bool resolve(const char* in_szHostname, Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                 ACE_Time_Value in_timeout, bool in_bUseCache) override;

private:
    // Configures from the process-wide configuration, starts the task and
    // polls for RUNNING up to 10 times, 50 ms apart.
    bool sharedStart() override;
    bool sharedStop() override { return stopTask(); }
    bool sharedKill() override { return killTask(); }
    bool sharedWaitUntilDone() override { return waitTask(); }
    bool isRunning() const;
};

}  // namespace Tarvik
