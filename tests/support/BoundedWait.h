// Bounded waits for tests of asynchronous code: a test waits for an event
// for at most a few seconds and fails instead of hanging.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace corvane_test {

// Polls in_pred until it holds or in_limit has passed; returns its last value.
template <class Pred>
bool waitFor(Pred in_pred, std::chrono::milliseconds in_limit = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + in_limit;
    while (!in_pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return in_pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A one-way gate: threads wait (bounded) until it is opened.
class Gate {
public:
    void open() {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_bOpen = true;
        }
        m_cond.notify_all();
    }
    // True when the gate opened within the limit.
    bool wait(std::chrono::milliseconds in_limit = std::chrono::seconds(5)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cond.wait_for(lock, in_limit, [this] { return m_bOpen; });
    }

private:
    std::mutex m_mutex;               // guards m_bOpen
    std::condition_variable m_cond;   // signalled when the gate opens
    bool m_bOpen = false;             // the gate was opened
};

}  // namespace corvane_test
