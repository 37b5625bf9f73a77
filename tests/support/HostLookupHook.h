// Replaces the operating system's resolver for one test: answers dotted literals and "localhost" like the real
// one, after an optional delay, or fails with a chosen h_errno. Counts the lookups it served.
#pragma once

#include <arpa/inet.h>
#include <netdb.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "net/Hostent.h"

namespace corvane_test {

class HostLookupHook {
public:
    HostLookupHook() {
        Tarvik::Hostent::setHostLookupForTest([this](const char* name, hostent* result, char* buffer, size_t,
                                                     hostent** out, int* herrno) {
            ++m_iLookups;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_cond.wait_for(lock, std::chrono::seconds(10), [this] { return !m_bBlocking; });
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(m_delayMs.load()));
            in_addr address{};
            *out = nullptr;
            const bool local = std::strcmp(name, "localhost") == 0;
            if (m_iFailure == 0 && inet_aton(local ? "127.0.0.1" : name, &address)) {
                // Laid out in the caller's buffer as the C library does: no alias, one address, the name.
                char** pointers = reinterpret_cast<char**>(buffer);
                char* p = buffer + 3 * sizeof(char*);
                std::memcpy(p, &address, 4);
                std::strcpy(p + 4, name);
                pointers[0] = pointers[2] = nullptr;
                pointers[1] = p;
                *result = hostent{p + 4, pointers, AF_INET, 4, pointers + 1};
                *out = result;
            } else {
                *herrno = m_iFailure != 0 ? m_iFailure.load() : HOST_NOT_FOUND;
            }
            ++m_iFinished;
            return *out != nullptr ? 0 : ENOENT;
        });
    }
    ~HostLookupHook() {
        release();
        Tarvik::Hostent::setHostLookupForTest({});
        // Lookups still sleeping in the pool hold `this`: wait for them (bounded).
        for (int i = 0; i < 10000 && m_iFinished < m_iLookups; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    void setDelay(std::chrono::milliseconds in_delay) { m_delayMs = in_delay.count(); }
    void setFailure(int in_iHErrno) { m_iFailure = in_iHErrno; }  // 0: answer normally
    // Lookups block until release() is called (bounded: 10 s).
    void setBlocking() { m_bBlocking = true; }
    void release() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bBlocking = false;
        m_cond.notify_all();
    }
    int lookups() const { return m_iLookups.load(); }

private:
    std::atomic<long> m_delayMs{0};
    std::atomic<int> m_iFailure{0};
    std::atomic<int> m_iLookups{0};
    std::atomic<int> m_iFinished{0};
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_bBlocking = false;  // set before any lookup, cleared under the mutex
};

}  // namespace corvane_test
