#include "support/HostLookupHook.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>
#include <thread>

namespace corvane_test {

HostLookupHook::HostLookupHook() {
    Tarvik::Hostent::setHostLookupForTest(
        [this](const char* name, hostent* result, char* buffer, size_t length, hostent** out, int* herrno) {
            return lookUp(name, result, buffer, length, out, herrno);
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

void HostLookupHook::setBlocking(bool in_bBlocking) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_bBlocking = in_bBlocking;
}

void HostLookupHook::release() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bBlocking = false;
    }
    m_cond.notify_all();
}

int HostLookupHook::lookUp(const char* name, hostent* result, char* buffer, size_t length, hostent** out,
                           int* herrno) {
    ++m_iLookups;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait_for(lock, std::chrono::seconds(10), [this] { return !m_bBlocking; });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(m_delayMs.load()));
    int rc = 0;
    *out = nullptr;
    in_addr address{};
    const int failure = m_iFailure.load();
    if (failure != 0) {
        *herrno = failure;
        rc = ENOENT;
    } else if (std::strcmp(name, "localhost") == 0 || inet_aton(name, &address)) {
        if (std::strcmp(name, "localhost") == 0) inet_aton("127.0.0.1", &address);
        // Lay the record out in the caller's buffer as the C library does.
        const size_t nameLength = std::strlen(name) + 1;
        char* p = buffer;
        char** aliases = reinterpret_cast<char**>(p);
        aliases[0] = nullptr;
        p += sizeof(char*);
        char** addrList = reinterpret_cast<char**>(p);
        p += 2 * sizeof(char*);
        std::memcpy(p, &address, 4);
        addrList[0] = p;
        addrList[1] = nullptr;
        p += 4;
        std::memcpy(p, name, nameLength);
        (void)length;
        result->h_name = p;
        result->h_aliases = aliases;
        result->h_addrtype = AF_INET;
        result->h_length = 4;
        result->h_addr_list = addrList;
        *out = result;
    } else {
        *herrno = HOST_NOT_FOUND;
        rc = ENOENT;
    }
    ++m_iFinished;
    return rc;
}

}  // namespace corvane_test
