#include "net/StaticHostNameServer.h"

#include "net/HostNameServerLog.h"

#include <ace/TSS_T.h>

#include "platform/Assertion.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/SingletonRegistry.h"

#include <chrono>
#include <thread>

namespace Tarvik {

namespace {

Logger& serverLogger() { return hostNameServerLogger(); }

struct SingletonSlot {
    StaticHostNameServer* pServer = nullptr;  // this thread's copy of the singleton's address
};

}  // namespace

StaticHostNameServer::StaticHostNameServer() : HostNameServer(1), SharedTaskImpl(true) {
    setName("Static HostNameServer");
}

HostNameServer& HostNameServer::getInstance() {
    static ACE_TSS<SingletonSlot>* s_pSlot = new ACE_TSS<SingletonSlot>;  // lives for the process
    StaticHostNameServer** ppSingleton = &(*s_pSlot)->pServer;
    if (*ppSingleton != nullptr) return **ppSingleton;

    StaticHostNameServer* pFound = nullptr;
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(OnDemandSingletonNoT::sGetMutex());
        SingletonRegistry& registry = SingletonRegistry::getInstance();
        pFound = static_cast<StaticHostNameServer*>(registry.find("StaticHostNameServer"));
        if (pFound == nullptr) {
            StaticHostNameServer* pNewObj = new StaticHostNameServer;
            pFound = static_cast<StaticHostNameServer*>(registry.registerObject(
                "StaticHostNameServer", pNewObj, [](void* p) { delete static_cast<StaticHostNameServer*>(p); }));
            CORVANE_ASSERT(serverLogger(), pFound == pNewObj);
        }
    }
    CORVANE_ASSERT(serverLogger(), pFound != 0);
    *ppSingleton = pFound;
    return *pFound;
}

bool StaticHostNameServer::isRunning() const {
    if (getTaskState() == Task::RUNNING) return true;
    CORVANE_ERROR(serverLogger(), "StaticHostNameServer is not in the RUNNING state. Did you initialize the Net library?");
    return false;
}

bool StaticHostNameServer::resolve(const char* in_szHostname, GetHostByNameCallback* in_pNewCallback,
                                   ACE_Time_Value in_timeout, bool in_bUseCache) {
    if (!isRunning()) return false;
    return HostNameServer::resolve(in_szHostname, in_pNewCallback, in_timeout, in_bUseCache);
}

bool StaticHostNameServer::resolve(const char* in_szHostname, Hostent& out_hostent,
                                   Hostent::GetHostByNameStatus& out_status, ACE_Time_Value in_timeout,
                                   bool in_bUseCache) {
    if (!isRunning()) return false;
    return HostNameServer::resolve(in_szHostname, out_hostent, out_status, in_timeout, in_bUseCache);
}

bool StaticHostNameServer::sharedStart() {
    TSHandle<ROConfiguration> hConfig = GlobalConfig::getInstance().getConfig();
    if (!configure(hConfig) || !startTask()) return false;
    for (int poll = 0; poll < 10; ++poll) {
        if (getTaskState() == Task::RUNNING) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    CORVANE_ERROR(serverLogger(), "failed to initialize Net library. Failed to start HostNameServer");
    return false;
}

}  // namespace Tarvik
