// The cost of resolving a dotted literal three ways: the operating system's
// call alone (direct), through the resolver's pool with a time-out (pool),
// and the bare hand-off of the same call to one long-lived worker thread
// over a mutex and a condition variable, waited for with a deadline (floor).
// The resolver adds what lies between floor and pool.
#include <benchmark/benchmark.h>

#include <netdb.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "platform/GlobalConfig.h"

namespace {

const char* const kLiteral = "10.0.0.1";  // parsed by the C library: nothing is sent

// One gethostbyname_r of the literal; false when it failed.
bool lookUpLiteral() {
    hostent result;
    hostent* pResult = nullptr;
    char buffer[8192];
    int hErrno = 0;
    return ::gethostbyname_r(kLiteral, &result, buffer, sizeof buffer, &pResult, &hErrno) == 0 &&
           pResult != nullptr;
}

void resolveLiteralDirect(benchmark::State& io_state) {
    for (auto _ : io_state) {
        if (!lookUpLiteral()) {
            io_state.SkipWithError("gethostbyname_r failed");
            break;
        }
    }
}
BENCHMARK(resolveLiteralDirect)->Name("ResolveLiteral/direct");

void resolveLiteralPool(benchmark::State& io_state) {
    std::string error;
    if (!Tarvik::GlobalConfig::getInstance().setValue("corvane.net.HostNameServer.numThread", "1", error)) {
        io_state.SkipWithError(error.c_str());
        return;
    }
    if (!Tarvik::Net::initializeLibrary()) {
        io_state.SkipWithError("initializeLibrary failed");
        return;
    }
    Tarvik::HostNameServer& server = Tarvik::HostNameServer::getInstance();
    Tarvik::Hostent hostent;
    Tarvik::Hostent::GetHostByNameStatus status = Tarvik::Hostent::GHBN_SUCCESS;
    const ACE_Time_Value timeout(2, 0);
    for (auto _ : io_state) {
        if (!server.resolve(kLiteral, hostent, status, timeout, false)) {
            io_state.SkipWithError(Tarvik::Hostent::getGetHostByNameStatusString(status));
            break;
        }
    }
    Tarvik::Net::forcedCloseLibrary();
}
BENCHMARK(resolveLiteralPool)->Name("ResolveLiteral/pool");

// A long-lived worker that runs the lookup for one caller at a time.
class HandOffWorker {
public:
    HandOffWorker() : m_thread([this] { run(); }) {}
    ~HandOffWorker() {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_bQuit = true;
        }
        m_requestCond.notify_one();
        m_thread.join();
    }

    // Hands the lookup over and waits for it, at most until the deadline.
    bool lookUp(std::chrono::steady_clock::time_point in_deadline) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_bRequest = true;
        m_bDone = false;
        m_requestCond.notify_one();
        if (!m_doneCond.wait_until(lock, in_deadline, [this] { return m_bDone; })) return false;
        return m_bResult;
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_requestCond.wait(lock, [this] { return m_bRequest || m_bQuit; });
            if (m_bQuit) return;
            m_bRequest = false;
            lock.unlock();
            const bool bResult = lookUpLiteral();
            lock.lock();
            m_bResult = bResult;
            m_bDone = true;
            m_doneCond.notify_one();
        }
    }

    std::mutex m_mutex;                   // guards the flags below
    std::condition_variable m_requestCond;  // signalled on a request and on quit
    std::condition_variable m_doneCond;     // signalled when a lookup is done
    bool m_bRequest = false;              // a lookup waits for the worker
    bool m_bDone = false;                 // the last lookup is done
    bool m_bResult = false;               // result of the last lookup
    bool m_bQuit = false;                 // the worker should end
    std::thread m_thread;                 // the worker; declared last, started last
};

void resolveLiteralFloor(benchmark::State& io_state) {
    HandOffWorker worker;
    for (auto _ : io_state) {
        if (!worker.lookUp(std::chrono::steady_clock::now() + std::chrono::seconds(2))) {
            io_state.SkipWithError("hand-off failed");
            break;
        }
    }
}
BENCHMARK(resolveLiteralFloor)->Name("ResolveLiteral/floor");

}  // namespace
