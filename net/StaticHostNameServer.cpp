#include "net/StaticHostNameServer.h"

#include "net/HostNameServerLog.h"

#include <ace/TSS_T.h>

#include "platform/AresReactorTask.h"
#include "platform/Assertion.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"
#include "platform/SingletonRegistry.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace Tarvik {

namespace {

Logger& serverLogger() { return hostNameServerLogger(); }

struct SingletonSlot {
    StaticHostNameServer* pServer = nullptr;  // this thread's copy of the singleton's address
    unsigned generation = 0;                  // s_generation when pServer was stored
};

// Counts the resolvers destroyed by the singleton registry: a slot written
// before the last teardown holds a freed address and is not used.
std::atomic<unsigned> s_generation{0};

// How long a start waits for the threads of a run that was stopped without
// waiting (a thread may be inside the operating system's resolver).
const std::chrono::milliseconds kEndOfRunBound(10000);

}  // namespace

StaticHostNameServer::StaticHostNameServer() : HostNameServer(1), SharedTaskImpl(true) {
    setName("Static HostNameServer");
}

StaticHostNameServer::~StaticHostNameServer() {
    stopTask();
    waitTask();
}

HostNameServer& HostNameServer::getInstance() {
    // Lives for the process. Given a first value, the slot makes its key here,
    // under the static's guard, rather than lazily on each thread's first use.
    static ACE_TSS<SingletonSlot>* s_pSlot = new ACE_TSS<SingletonSlot>(new SingletonSlot);
    SingletonSlot* pSlot = *s_pSlot;
    StaticHostNameServer** ppSingleton = &pSlot->pServer;
    if (*ppSingleton != nullptr && pSlot->generation == s_generation.load(std::memory_order_acquire)) {
        return **ppSingleton;
    }

    StaticHostNameServer* pFound = nullptr;
    unsigned generation = 0;
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(OnDemandSingletonNoT::sGetMutex());
        generation = s_generation.load(std::memory_order_relaxed);
        SingletonRegistry& registry = SingletonRegistry::getInstance();
        pFound = static_cast<StaticHostNameServer*>(registry.find("StaticHostNameServer"));
        if (pFound == nullptr) {
            // The DNS task is registered first, so the registry destroys it
            // after the resolver, whose last thread stops it on its way out.
            AresReactorTask::getInstance();
            StaticHostNameServer* pNewObj = new StaticHostNameServer;
            pFound = static_cast<StaticHostNameServer*>(
                registry.registerObject("StaticHostNameServer", pNewObj, [](void* p) {
                    s_generation.fetch_add(1, std::memory_order_acq_rel);
                    delete static_cast<StaticHostNameServer*>(p);
                }));
            CORVANE_ASSERT(serverLogger(), pFound == pNewObj);
        }
    }
    CORVANE_ASSERT(serverLogger(), pFound != 0);
    *ppSingleton = pFound;
    pSlot->generation = generation;
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
    // A close does not wait: the threads of its run may still be ending, and
    // the pool is resized only once they have.
    if (!waitForEndOfRun(kEndOfRunBound)) return false;
    TSHandle<ROConfiguration> hConfig = GlobalConfig::getInstance().getConfig();
    if (!configure(hConfig) || !startTask()) return false;
    for (int poll = 0; poll < 10; ++poll) {
        const Task::State state = getTaskState();
        if (state == Task::RUNNING) return true;
        // The run ended before it was ready (its entry failed and stopped it).
        if (state == Task::STOPPING_STATE || state == Task::STOPPED_STATE) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    CORVANE_ERROR(serverLogger(), "failed to initialize Net library. Failed to start HostNameServer");
    // Undone, so that it serves nobody and the next start begins afresh.
    stopTask();
    waitTask();
    return false;
}

}  // namespace Tarvik
