#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/SingletonRegistry.h"

using namespace Tarvik;

namespace {

void deleteInt(void* in_p) { delete static_cast<int*>(in_p); }

// A key no earlier run of the test in this process used.
std::string freshKey(const char* in_szBase) {
    static std::atomic<int> s_iRun{0};
    return std::string(in_szBase) + "." + std::to_string(++s_iRun);
}

// Deleters that say what they tear down, for the child process of the exit tests.
template <char N>
void announce(void* in_p) {
    if (N == 'C') {  // a deleter may look up an older singleton: it is still there
        const bool bOlderThere = SingletonRegistry::getInstance().find("test.exit.A") != nullptr;
        std::fprintf(stderr, "deleted C, A %s\n", bOlderThere ? "still there" : "gone");
    } else {
        std::fprintf(stderr, "deleted %c\n", N);
    }
    delete static_cast<int*>(in_p);
}

}  // namespace

TEST(SingletonRegistry, FirstRegistrationWins) {
    SingletonRegistry& registry = SingletonRegistry::getInstance();
    const std::string key = freshKey("test.registry.First");
    EXPECT_EQ(registry.find(key), nullptr);
    int* first = new int(1);
    EXPECT_EQ(registry.registerObject(key, first, deleteInt), first);
    int* second = new int(2);
    EXPECT_EQ(registry.registerObject(key, second, deleteInt), first);
    delete second;  // refused: still the caller's
    EXPECT_EQ(registry.find(key), first);
    EXPECT_EQ(&SingletonRegistry::getInstance(), &registry);
}

TEST(SingletonRegistry, RacingCreatorsAllGetTheOneRegisteredObject) {
    const int kThreads = 8;
    const std::string key = freshKey("test.registry.Race");
    std::vector<void*> got(kThreads, nullptr);
    std::atomic<int> losers{0};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            int* mine = new int(t);
            void* registered = SingletonRegistry::getInstance().registerObject(key, mine, deleteInt);
            if (registered != mine) {
                ++losers;
                delete mine;
            }
            got[t] = registered;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::set<void*>(got.begin(), got.end()).size(), 1u);
    EXPECT_EQ(losers, kThreads - 1);
    EXPECT_EQ(SingletonRegistry::getInstance().find(key), got[0]);
}

TEST(SingletonRegistry, OnDemandMutexIsOneRecursiveMutex) {
    ACE_Recursive_Thread_Mutex& mutex = OnDemandSingletonNoT::sGetMutex();
    EXPECT_EQ(&OnDemandSingletonNoT::sGetMutex(), &mutex);
    ASSERT_EQ(mutex.acquire(), 0);
    EXPECT_EQ(mutex.acquire(), 0);  // the same thread may take it again, another may not
    std::thread([&] { EXPECT_EQ(mutex.tryacquire(), -1); }).join();
    mutex.release();
    mutex.release();
}

TEST(SingletonRegistry, TeardownAtExitRunsNewestFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SingletonRegistry& registry = SingletonRegistry::getInstance();
            registry.registerObject("test.exit.A", new int(1), announce<'A'>);
            registry.registerObject("test.exit.B", new int(2), announce<'B'>);
            registry.registerObject("test.exit.C", new int(3), announce<'C'>);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "deleted C, A still there\ndeleted B\ndeleted A\n");
}

TEST(SingletonRegistry, TeardownEmptiesTheRegistryAndDeletesEachObjectOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SingletonRegistry& registry = SingletonRegistry::getInstance();
            registry.registerObject("test.exit.A", new int(1), announce<'A'>);
            registry.registerObject("test.exit.B", new int(2), announce<'B'>);
            registry.teardown();
            const bool bEmpty = registry.find("test.exit.A") == nullptr && registry.find("test.exit.B") == nullptr;
            std::fprintf(stderr, "%s\n", bEmpty ? "empty" : "not empty");
            registry.teardown();  // nothing left to delete twice
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "deleted B\ndeleted A\nempty\n$");
}
