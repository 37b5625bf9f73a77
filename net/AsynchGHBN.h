// The three small classes that make an asynchronous resolution tell its
// client exactly once: the container guards the client callback, the timeout
// processor brings the time-out, the proxy brings the result.
#pragma once

#include <string>

#include "net/HostNameServer.h"
#include "platform/TaskWithTimersImpl.h"

namespace Tarvik {

// Owns the client callback. The first of its events (result or time-out)
// tells the client; the last destroys the container. Every event runs under
// the resolver's cache lock.
class AsynchGHBNCallbackContainer : public HostNameServer::GetHostByNameCallback {
    CORVANE_STATIC_ALLOCATOR("AsynchGHBNCallbackContainer")

public:
    AsynchGHBNCallbackContainer(HostNameServer& in_server, bool in_bTimerPending,
                                HostNameServer::GetHostByNameCallback* in_pCallback);

    bool onGhbnTimeout(const char* in_szHostname) override;
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value in_ttl) override;
    // The work was destroyed without running (refused or dropped at stop).
    // With a timer pending the client waits for its time-out; without one it
    // hears a GHBN_OTHER_ERROR result.
    void onWorkDropped(const char* in_szHostname);

private:
    ~AsynchGHBNCallbackContainer() override;
    // Counts one event; true when it was the last (the caller then deletes this).
    bool lastEvent();

    ACE_Recursive_Thread_Mutex* m_pLock;                    // the resolver's cache lock
    bool m_bTimerPending;                                   // a time-out event is still to come
    HostNameServer::GetHostByNameCallback* m_pCallback;     // owned; null once the client was told
    int m_iEventsLeft;                                      // events still to come (1 or 2); under m_pLock
};

// The handler of one request's time-out timer. Destroyed without having fired
// (timer dropped), it delivers the time-out itself, so the container's second
// event always arrives.
class AsynchGHBNTimeoutProcessor : public TimeoutProcessor {
    CORVANE_STATIC_ALLOCATOR("AsynchGHBNTimeoutProcessor")

public:
    AsynchGHBNTimeoutProcessor(AsynchGHBNCallbackContainer* in_pContainer, const char* in_szHostname);
    ~AsynchGHBNTimeoutProcessor() override;

    bool handleTimeout(const TimeoutData* in_pData) override;
    bool handleCancel(const TimeoutData*) override { return true; }
    bool handleReschedule(const TimeoutData*) override { return true; }

private:
    AsynchGHBNCallbackContainer* m_pContainer;  // not owned; alive until this delivers its event
    const std::string m_strHostname;            // the requested name
    bool m_bFired;                              // the time-out was delivered
};

// The callback the work owns: forwards the result to the container. Destroyed
// without having been used, it tells the container that the work is gone.
class GetHostByNameCallbackProxy : public HostNameServer::GetHostByNameCallback {
    CORVANE_STATIC_ALLOCATOR("GetHostByNameCallbackProxy")

public:
    GetHostByNameCallbackProxy(AsynchGHBNCallbackContainer* in_pContainer, const char* in_szHostname);
    ~GetHostByNameCallbackProxy() override;

    bool onGhbnTimeout(const char* in_szHostname) override;
    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value in_ttl) override;

private:
    AsynchGHBNCallbackContainer* m_pContainer;  // not owned; null once used
    const std::string m_strHostname;            // the requested name, for a dropped work
};

}  // namespace Tarvik
