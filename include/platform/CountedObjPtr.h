// A shared pointer with a thread-safe count; null is a valid value.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace Tarvik {

template <class T>
class CountedObjPtr {
public:
    CountedObjPtr() = default;
    explicit CountedObjPtr(T* in_p) : m_p(in_p), m_pCount(in_p ? new std::atomic<long>(1) : nullptr) {}
    CountedObjPtr(const CountedObjPtr& in_other) : m_p(in_other.m_p), m_pCount(in_other.m_pCount) {
        if (m_pCount) m_pCount->fetch_add(1, std::memory_order_relaxed);
    }
    CountedObjPtr(CountedObjPtr&& in_other) noexcept : m_p(in_other.m_p), m_pCount(in_other.m_pCount) {
        in_other.m_p = nullptr;
        in_other.m_pCount = nullptr;
    }
    CountedObjPtr& operator=(CountedObjPtr in_other) noexcept {
        std::swap(m_p, in_other.m_p);
        std::swap(m_pCount, in_other.m_pCount);
        return *this;
    }
    ~CountedObjPtr() { release(); }

    bool isNull() const { return m_p == nullptr; }
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    long useCount() const { return m_pCount ? m_pCount->load() : 0; }
    void reset() { CountedObjPtr().swapWith(*this); }

private:
    void swapWith(CountedObjPtr& io_other) {
        std::swap(m_p, io_other.m_p);
        std::swap(m_pCount, io_other.m_pCount);
    }
    void release() {
        if (m_pCount && m_pCount->fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete m_p;
            delete m_pCount;
        }
        m_p = nullptr;
        m_pCount = nullptr;
    }

    T* m_p = nullptr;                     // the shared object, or null
    std::atomic<long>* m_pCount = nullptr;  // holders of m_p; null exactly when m_p is
};

}  // namespace Tarvik
