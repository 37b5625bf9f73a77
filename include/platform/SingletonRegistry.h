// The process-wide registry of named objects, torn down at exit in reverse
// order of registration, and the mutex that serialises on-demand creation.
#pragma once

#include <string>

#include <ace/Recursive_Thread_Mutex.h>

namespace Tarvik {

class SingletonRegistry {
public:
    using Deleter = void (*)(void*);

    static SingletonRegistry& getInstance();

    // The object registered under the key, or null.
    void* find(const std::string& in_strKey);
    // Registers the object under the key unless one is there already; returns
    // the object that is registered afterwards (the new one or the earlier one).
    void* registerObject(const std::string& in_strKey, void* in_pObject, Deleter in_deleter);
    // Destroys every registered object, newest first. Runs at exit.
    void teardown();

private:
    SingletonRegistry() = default;
    ~SingletonRegistry();
};

// The recursive mutex under which on-demand singletons are created.
class OnDemandSingletonNoT {
public:
    static ACE_Recursive_Thread_Mutex& sGetMutex();
};

}  // namespace Tarvik
