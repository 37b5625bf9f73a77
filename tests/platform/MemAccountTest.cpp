// Memory accounts: live objects and bytes per name, exact under concurrent
// allocation, zero again once everything is freed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "platform/MemAccount.h"
#include "support/BoundedWait.h"

using namespace Tarvik;

namespace {

class Widget {
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.Widget")

public:
    char payload[40] = {};
};

class Gadget {
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.Gadget")

public:
    long long value = 0;
};

// A second class counted under the same name as Gadget.
class GadgetPart {
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.Gadget")

public:
    int value = 0;
};

class PolymorphicBase {
public:
    virtual ~PolymorphicBase() = default;
};

// Deleted through its base: the derived class's operator delete must be found.
class CountedDerived : public PolymorphicBase {
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.CountedDerived")

public:
    char payload[24] = {};
};

struct Counts {
    long objects;
    long bytes;
};

Counts countsOf(const char* in_szName) {
    MemAccount& account = MemAccount::get(in_szName);
    return {account.getLiveObjects(), account.getLiveBytes()};
}

}  // namespace

TEST(MemAccount, ObjectsAndBytesAreCountedPerNameAndReturnToZero) {
    const Counts before = countsOf("test.MemAccount.Widget");
    ASSERT_EQ(before.objects, 0);
    std::vector<Widget*> widgets;
    for (int i = 0; i < 3; ++i) widgets.push_back(new Widget);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 3);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").bytes, static_cast<long>(3 * sizeof(Widget)));

    Gadget* gadget = new Gadget;
    GadgetPart* part = new GadgetPart;
    EXPECT_EQ(countsOf("test.MemAccount.Gadget").objects, 2);
    EXPECT_EQ(countsOf("test.MemAccount.Gadget").bytes, static_cast<long>(sizeof(Gadget) + sizeof(GadgetPart)));
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 3);  // other names are untouched

    for (Widget* w : widgets) delete w;
    delete gadget;
    delete part;
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 0);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").bytes, 0);
    EXPECT_EQ(countsOf("test.MemAccount.Gadget").objects, 0);
    EXPECT_EQ(countsOf("test.MemAccount.Gadget").bytes, 0);
}

TEST(MemAccount, ArraysAndDeletionThroughABaseAreCountedBackToZero) {
    Widget* array = new Widget[5];
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 1);  // one allocation
    EXPECT_GE(countsOf("test.MemAccount.Widget").bytes, static_cast<long>(5 * sizeof(Widget)));
    delete[] array;
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 0);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").bytes, 0);

    PolymorphicBase* base = new CountedDerived;
    EXPECT_EQ(countsOf("test.MemAccount.CountedDerived").objects, 1);
    delete base;
    EXPECT_EQ(countsOf("test.MemAccount.CountedDerived").objects, 0);
    EXPECT_EQ(countsOf("test.MemAccount.CountedDerived").bytes, 0);
}

TEST(MemAccount, BlocksAreAlignedLikeMalloc) {
    std::vector<std::unique_ptr<Gadget>> gadgets;
    for (int i = 0; i < 16; ++i) {
        gadgets.emplace_back(new Gadget);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(gadgets.back().get()) % alignof(std::max_align_t), 0u);
    }
    MemAccount& buffers = MemAccount::get("test.MemAccount.Buffers");
    for (std::size_t size : {1u, 7u, 16u, 33u}) {
        void* p = NoSizeMemAllocator::allocate(buffers, size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u);
        NoSizeMemAllocator::deallocate(p);
    }
}

TEST(MemAccount, BuffersCountBytesThroughReallocationAndKeepTheirContents) {
    const char* const name = "test.MemAccount.Buffers";
    MemAccount& account = MemAccount::get(name);
    ASSERT_EQ(account.getLiveBytes(), 0);
    char* p = static_cast<char*>(NoSizeMemAllocator::allocate(account, 10));
    std::memcpy(p, "abcdefghi", 10);
    EXPECT_EQ(account.getLiveBytes(), 10);
    EXPECT_EQ(account.getLiveObjects(), 0);  // buffers are bytes, not objects
    p = static_cast<char*>(NoSizeMemAllocator::reallocate(account, p, 4000));
    EXPECT_EQ(account.getLiveBytes(), 4000);
    EXPECT_STREQ(p, "abcdefghi");
    p = static_cast<char*>(NoSizeMemAllocator::reallocate(account, p, 3));
    EXPECT_EQ(account.getLiveBytes(), 3);
    void* fresh = NoSizeMemAllocator::reallocate(account, nullptr, 8);  // null reallocates as allocate
    EXPECT_EQ(account.getLiveBytes(), 11);
    NoSizeMemAllocator::deallocate(p);
    NoSizeMemAllocator::deallocate(fresh);
    NoSizeMemAllocator::deallocate(nullptr);
    StaticMemAllocator::deallocate(nullptr);
    EXPECT_EQ(account.getLiveBytes(), 0);
}

TEST(MemAccount, ConcurrentAllocationsLeaveExactCounts) {
    const int kThreads = 6;
    const int kRounds = 5000;
    const int kKeptPerThread = 100;
    std::vector<std::vector<Widget*>> kept(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            MemAccount& buffers = MemAccount::get("test.MemAccount.ConcurrentBuffers");
            for (int i = 0; i < kRounds; ++i) {
                Widget* w = new Widget;
                void* b = NoSizeMemAllocator::allocate(buffers, 16);
                b = NoSizeMemAllocator::reallocate(buffers, b, 32);
                if (i < kKeptPerThread) {
                    kept[t].push_back(w);
                } else {
                    delete w;
                }
                NoSizeMemAllocator::deallocate(b);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, kThreads * kKeptPerThread);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").bytes, static_cast<long>(kThreads * kKeptPerThread * sizeof(Widget)));
    EXPECT_EQ(countsOf("test.MemAccount.ConcurrentBuffers").bytes, 0);
    for (auto& list : kept) {
        for (Widget* w : list) delete w;
    }
    EXPECT_EQ(countsOf("test.MemAccount.Widget").objects, 0);
    EXPECT_EQ(countsOf("test.MemAccount.Widget").bytes, 0);
}

TEST(MemAccount, SnapshotListsEveryUsedAccountSortedByName) {
    delete new Widget;
    delete new Gadget;
    MemAccount& same = MemAccount::get("test.MemAccount.Widget");
    EXPECT_EQ(&same, &Widget::getMemAccount());
    EXPECT_STREQ(Widget::getMemAccountName(), "test.MemAccount.Widget");
    const std::vector<MemAccount::Snapshot> all = MemAccount::snapshot();
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end(),
                               [](const MemAccount::Snapshot& a, const MemAccount::Snapshot& b) { return a.name < b.name; }));
    int found = 0;
    for (const MemAccount::Snapshot& s : all) {
        if (s.name == "test.MemAccount.Widget" || s.name == "test.MemAccount.Gadget") {
            ++found;
            EXPECT_EQ(s.objects, 0);
            EXPECT_EQ(s.bytes, 0);
        }
    }
    EXPECT_EQ(found, 2);
}

TEST(MemAccount, CountReachingZeroPublishesWhatTheFreeingThreadDidBefore) {
    // Tests wait for an account to reach zero and then tear down what the
    // freed objects used: the count must order those accesses (seen by TSan).
    for (int round = 0; round < 20; ++round) {
        int objectsSeen = 0;  // plain data, written before the object is freed
        int bytesSeen = 0;
        Widget* counted = new Widget;
        std::thread freer([&] {
            objectsSeen = 1;
            bytesSeen = 1;
            delete counted;
        });
        ASSERT_TRUE(corvane_test::waitFor([] { return Widget::getMemAccount().getLiveObjects() == 0; }));
        EXPECT_EQ(objectsSeen, 1);
        ASSERT_TRUE(corvane_test::waitFor([] { return Widget::getMemAccount().getLiveBytes() == 0; }));
        EXPECT_EQ(bytesSeen, 1);
        freer.join();
    }
}
