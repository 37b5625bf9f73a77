#include "support/HostLookupHook.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>
#include <thread>

namespace corvane_test {

HostLookupHook::HostLookupHook() {
    Tarvik::Hostent::setHostLookupForTest(
        [this](const char* name, hostent* result, char* buffer, size_t, hostent** out, int* herrno) {
            return lookUp(name, result, buffer, out, herrno);
        });
}

HostLookupHook::~HostLookupHook() {
    release();
    Tarvik::Hostent::setHostLookupForTest({});
    // Lookups still sleeping in the pool hold `this`: wait for them (bounded).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (m_iFinished.load() < m_iLookups.load() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void HostLookupHook::release() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bBlocking = false;
    }
    m_cond.notify_all();
}

int HostLookupHook::lookUp(const char* name, hostent* result, char* buffer, hostent** out, int* herrno) {
    ++m_iLookups;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait_for(lock, std::chrono::seconds(10), [this] { return !m_bBlocking; });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(m_delayMs.load()));
    *out = nullptr;
    in_addr address{};
    const bool local = std::strcmp(name, "localhost") == 0;
    if (m_iFailure.load() == 0 && (local ? inet_aton("127.0.0.1", &address) : inet_aton(name, &address))) {
        // Lay the record out in the caller's buffer as the C library does: no alias, one address, the name.
        char** pointers = reinterpret_cast<char**>(buffer);
        char* p = buffer + 3 * sizeof(char*);
        std::memcpy(p, &address, 4);
        std::strcpy(p + 4, name);
        pointers[0] = nullptr;
        pointers[1] = p;
        pointers[2] = nullptr;
        *result = hostent{p + 4, pointers, AF_INET, 4, pointers + 1};
        *out = result;
    }
    if (*out == nullptr) *herrno = m_iFailure.load() != 0 ? m_iFailure.load() : HOST_NOT_FOUND;
    ++m_iFinished;
    return *out != nullptr ? 0 : ENOENT;
}

}  // namespace corvane_test
