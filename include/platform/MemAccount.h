// Memory accounts: objects the library allocates for itself are counted per
// account name (live objects and bytes), so tests and --stats can see leaks.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Tarvik {

class MemAccount {
public:
    explicit MemAccount(const char* in_szName) : m_strName(in_szName) {}
    const std::string& getName() const { return m_strName; }
    // A count read here sees everything a thread did before the free it counts
    // (frees release, reads acquire), so a count of zero may be waited for.
    long getLiveObjects() const { return m_objects.load(std::memory_order_acquire); }
    long getLiveBytes() const { return m_bytes.load(std::memory_order_acquire); }

    // The account of a name, created on first use; accounts live for the process.
    static MemAccount& get(const char* in_szName);

    struct Snapshot {
        std::string name;
        long objects;
        long bytes;
    };
    // Every account ever used, sorted by name.
    static std::vector<Snapshot> snapshot();

private:
    friend class StaticMemAllocator;
    friend class NoSizeMemAllocator;
    const std::string m_strName;
    std::atomic<long> m_objects{0};  // live objects (class allocations)
    std::atomic<long> m_bytes{0};    // live bytes, objects and buffers together
};

// Test hook: every later accounted allocation asks in_refuse (given the size)
// first and throws std::bad_alloc when it answers true; null removes the hook.
void setAllocationFaultForTest(std::function<bool(std::size_t)> in_refuse);

// Allocation of whole objects under an account (used by the class operators
// that CORVANE_STATIC_ALLOCATOR declares).
class StaticMemAllocator {
public:
    static void* allocate(MemAccount& in_account, std::size_t in_size);
    static void deallocate(void* in_p) noexcept;
};

// Size-less buffers under an account (names, arrays): allocate, reallocate, deallocate.
class NoSizeMemAllocator {
public:
    static void* allocate(MemAccount& in_account, std::size_t in_size);
    static void* reallocate(MemAccount& in_account, void* in_p, std::size_t in_size);
    static void deallocate(void* in_p) noexcept;
};

}  // namespace Tarvik

// Declares the class's allocation operators (single, array, placement) so that
// its objects are counted under the account `name`.
#define CORVANE_STATIC_ALLOCATOR(name)                                                         \
public:                                                                                        \
    static const char* getMemAccountName() { return name; }                                    \
    static ::Tarvik::MemAccount& getMemAccount() {                                             \
        static ::Tarvik::MemAccount& s_account = ::Tarvik::MemAccount::get(name);              \
        return s_account;                                                                      \
    }                                                                                          \
    static void* operator new(std::size_t in_size) {                                           \
        return ::Tarvik::StaticMemAllocator::allocate(getMemAccount(), in_size);               \
    }                                                                                          \
    static void* operator new[](std::size_t in_size) {                                         \
        return ::Tarvik::StaticMemAllocator::allocate(getMemAccount(), in_size);               \
    }                                                                                          \
    static void* operator new(std::size_t, void* in_p) noexcept { return in_p; }               \
    static void operator delete(void* in_p) noexcept { ::Tarvik::StaticMemAllocator::deallocate(in_p); } \
    static void operator delete[](void* in_p) noexcept { ::Tarvik::StaticMemAllocator::deallocate(in_p); } \
    static void operator delete(void*, void*) noexcept {}
