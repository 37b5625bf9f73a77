// The URL model's shared pointer: the object plus a separately allocated
// reference count. The count is made only when a second owner appears, so an
// object with one owner costs no extra allocation. Counts are plain integers:
// a CountedPtr and its copies belong to one thread at a time.
#pragma once

#include <cstdint>
#include <utility>

namespace Vocal {

template <class T>
class CountedPtr {
public:
    CountedPtr() = default;
    // Takes ownership of in_p (which may be null).
    explicit CountedPtr(T* in_p) : m_p(in_p) {}
    CountedPtr(const CountedPtr& in_other) : m_p(in_other.m_p), m_pCount(in_other.share()) {}
    CountedPtr(CountedPtr&& in_other) noexcept : m_p(in_other.m_p), m_pCount(in_other.m_pCount) {
        in_other.m_p = nullptr;
        in_other.m_pCount = nullptr;
    }
    template <class U>
    CountedPtr(const CountedPtr<U>& in_other)  // NOLINT: derived to base, like raw pointers
        : m_p(in_other.m_p), m_pCount(in_other.share()) {}
    template <class U>
    CountedPtr(CountedPtr<U>&& in_other) noexcept  // NOLINT
        : m_p(in_other.m_p), m_pCount(in_other.m_pCount) {
        in_other.m_p = nullptr;
        in_other.m_pCount = nullptr;
    }
    ~CountedPtr() { release(); }

    CountedPtr& operator=(CountedPtr in_other) noexcept {
        std::swap(m_p, in_other.m_p);
        std::swap(m_pCount, in_other.m_pCount);
        return *this;
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    bool isNull() const { return m_p == nullptr; }
    explicit operator bool() const { return m_p != nullptr; }
    // Number of owners: 0 for null, 1 while the count has not been made.
    int32_t getCount() const { return m_p == nullptr ? 0 : (m_pCount == nullptr ? 1 : *m_pCount); }
    // Drops this owner's reference (the object goes with the last one).
    void reset() { release(); }

private:
    template <class U>
    friend class CountedPtr;

    // Counts one more owner, making the count on the first copy.
    int32_t* share() const {
        if (m_p == nullptr) return nullptr;
        if (m_pCount == nullptr) {
            m_pCount = new int32_t(0);
            ++*m_pCount;  // this owner
        }
        ++*m_pCount;      // the new one
        return m_pCount;
    }
    void release() {
        if (m_p != nullptr && (m_pCount == nullptr || --*m_pCount == 0)) {
            delete m_p;  // virtual destructor: the object's own class is destroyed
            delete m_pCount;
        }
        m_p = nullptr;
        m_pCount = nullptr;
    }

    T* m_p = nullptr;                  // the object, null for an empty pointer
    mutable int32_t* m_pCount = nullptr;  // owners, made on the first copy; null while alone
};

template <class T, class U>
bool operator==(const CountedPtr<T>& a, const CountedPtr<U>& b) { return a.get() == b.get(); }
template <class T, class U>
bool operator!=(const CountedPtr<T>& a, const CountedPtr<U>& b) { return a.get() != b.get(); }

}  // namespace Vocal
