#include "platform/MemAccount.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <utility>

namespace Tarvik {

namespace {

// Each block starts with a header naming its account and size; 16 bytes keep
// the caller's part aligned as malloc's is.
struct alignas(16) BlockHeader {
    MemAccount* account;
    std::size_t size;
};

struct Registry {
    std::mutex mutex;
    std::map<std::string, MemAccount*> accounts;
};

Registry& registry() {
    static Registry* s_pRegistry = new Registry;  // lives for the process
    return *s_pRegistry;
}

// The test hook's predicate; checked only while s_bFaultHook is set.
std::atomic<bool> s_bFaultHook{false};
std::mutex& faultMutex() {
    static std::mutex* s_pMutex = new std::mutex;
    return *s_pMutex;
}
std::function<bool(std::size_t)>& faultHook() {  // under faultMutex()
    static auto* s_pHook = new std::function<bool(std::size_t)>;
    return *s_pHook;
}

bool refusedForTest(std::size_t in_size) {
    if (!s_bFaultHook.load(std::memory_order_acquire)) return false;
    std::lock_guard<std::mutex> guard(faultMutex());
    return faultHook() && faultHook()(in_size);
}

void* allocateBlock(MemAccount& in_account, std::size_t in_size, std::atomic<long>& in_bytes) {
    if (refusedForTest(in_size)) throw std::bad_alloc();
    void* pRaw = std::malloc(sizeof(BlockHeader) + in_size);
    if (pRaw == nullptr) throw std::bad_alloc();
    BlockHeader* pHeader = static_cast<BlockHeader*>(pRaw);
    pHeader->account = &in_account;
    pHeader->size = in_size;
    in_bytes.fetch_add(static_cast<long>(in_size), std::memory_order_relaxed);
    return pHeader + 1;
}

BlockHeader* headerOf(void* in_p) { return static_cast<BlockHeader*>(in_p) - 1; }

}  // namespace

MemAccount& MemAccount::get(const char* in_szName) {
    Registry& reg = registry();
    std::lock_guard<std::mutex> guard(reg.mutex);
    MemAccount*& pAccount = reg.accounts[in_szName];
    if (pAccount == nullptr) pAccount = new MemAccount(in_szName);
    return *pAccount;
}

std::vector<MemAccount::Snapshot> MemAccount::snapshot() {
    Registry& reg = registry();
    std::lock_guard<std::mutex> guard(reg.mutex);
    std::vector<Snapshot> out;
    for (const auto& entry : reg.accounts) {
        out.push_back({entry.first, entry.second->getLiveObjects(), entry.second->getLiveBytes()});
    }
    return out;
}

void setAllocationFaultForTest(std::function<bool(std::size_t)> in_refuse) {
    std::lock_guard<std::mutex> guard(faultMutex());
    s_bFaultHook.store(static_cast<bool>(in_refuse), std::memory_order_release);
    faultHook() = std::move(in_refuse);
}

void* StaticMemAllocator::allocate(MemAccount& in_account, std::size_t in_size) {
    void* p = allocateBlock(in_account, in_size, in_account.m_bytes);
    in_account.m_objects.fetch_add(1, std::memory_order_relaxed);
    return p;
}

void StaticMemAllocator::deallocate(void* in_p) noexcept {
    if (in_p == nullptr) return;
    BlockHeader* pHeader = headerOf(in_p);
    pHeader->account->m_objects.fetch_sub(1, std::memory_order_release);
    pHeader->account->m_bytes.fetch_sub(static_cast<long>(pHeader->size), std::memory_order_release);
    std::free(pHeader);
}

void* NoSizeMemAllocator::allocate(MemAccount& in_account, std::size_t in_size) {
    return allocateBlock(in_account, in_size, in_account.m_bytes);
}

void* NoSizeMemAllocator::reallocate(MemAccount& in_account, void* in_p, std::size_t in_size) {
    if (in_p == nullptr) return allocate(in_account, in_size);
    BlockHeader* pOld = headerOf(in_p);
    MemAccount* pAccount = pOld->account;
    const std::size_t oldSize = pOld->size;
    void* pRaw = std::realloc(pOld, sizeof(BlockHeader) + in_size);
    if (pRaw == nullptr) throw std::bad_alloc();
    BlockHeader* pHeader = static_cast<BlockHeader*>(pRaw);
    pHeader->size = in_size;
    pAccount->m_bytes.fetch_add(static_cast<long>(in_size) - static_cast<long>(oldSize),
                                std::memory_order_release);
    return pHeader + 1;
}

void NoSizeMemAllocator::deallocate(void* in_p) noexcept {
    if (in_p == nullptr) return;
    BlockHeader* pHeader = headerOf(in_p);
    pHeader->account->m_bytes.fetch_sub(static_cast<long>(pHeader->size), std::memory_order_release);
    std::free(pHeader);
}

}  // namespace Tarvik
