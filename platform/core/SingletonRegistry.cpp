#include "platform/SingletonRegistry.h"

#include <mutex>
#include <utility>
#include <vector>

namespace Tarvik {

namespace {
struct Entry {
    std::string key;
    void* object;
    SingletonRegistry::Deleter deleter;
};
std::mutex& entriesMutex() {
    static std::mutex* s_pMutex = new std::mutex;
    return *s_pMutex;
}
std::vector<Entry>& entries() {
    static std::vector<Entry>* s_pEntries = new std::vector<Entry>;
    return *s_pEntries;
}
}  // namespace

SingletonRegistry& SingletonRegistry::getInstance() {
    static SingletonRegistry s_registry;  // its destructor is the teardown at exit
    return s_registry;
}

SingletonRegistry::~SingletonRegistry() { teardown(); }

void* SingletonRegistry::find(const std::string& in_strKey) {
    std::lock_guard<std::mutex> guard(entriesMutex());
    for (const Entry& entry : entries()) {
        if (entry.key == in_strKey) return entry.object;
    }
    return nullptr;
}

void* SingletonRegistry::registerObject(const std::string& in_strKey, void* in_pObject,
                                        Deleter in_deleter) {
    std::lock_guard<std::mutex> guard(entriesMutex());
    for (const Entry& entry : entries()) {
        if (entry.key == in_strKey) return entry.object;
    }
    entries().push_back({in_strKey, in_pObject, in_deleter});
    return in_pObject;
}

void SingletonRegistry::teardown() {
    for (;;) {
        Entry last;
        {
            std::lock_guard<std::mutex> guard(entriesMutex());
            if (entries().empty()) return;
            last = entries().back();
            entries().pop_back();
        }
        // Deleted outside the lock: a destructor may look up another singleton.
        if (last.deleter) last.deleter(last.object);
    }
}

ACE_Recursive_Thread_Mutex& OnDemandSingletonNoT::sGetMutex() {
    static ACE_Recursive_Thread_Mutex* s_pMutex = new ACE_Recursive_Thread_Mutex;
    return *s_pMutex;
}

}  // namespace Tarvik
