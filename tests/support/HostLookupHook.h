// Replaces the operating system's resolver for one test: answers dotted literals and "localhost" like the real
// one, after an optional delay, or fails with a chosen h_errno. Counts the lookups it served.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "net/Hostent.h"

namespace corvane_test {

class HostLookupHook {
public:
    HostLookupHook();
    ~HostLookupHook();

    void setDelay(std::chrono::milliseconds in_delay) { m_delayMs = in_delay.count(); }
    // Every lookup fails with this h_errno (0: answer normally).
    void setFailure(int in_iHErrno) { m_iFailure = in_iHErrno; }
    // Lookups block until release() is called (bounded: 10 s).
    void setBlocking() { m_bBlocking = true; }
    void release();
    int lookups() const { return m_iLookups.load(); }

private:
    int lookUp(const char* name, hostent* result, char* buffer, hostent** out, int* herrno);

    std::atomic<long> m_delayMs{0};
    std::atomic<int> m_iFailure{0};
    std::atomic<int> m_iLookups{0};
    std::atomic<int> m_iFinished{0};
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_bBlocking = false;  // set before any lookup, cleared under the mutex
};

}  // namespace corvane_test
