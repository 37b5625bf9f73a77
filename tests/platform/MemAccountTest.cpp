#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
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

class GadgetPart {  // counted under Gadget's name
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.Gadget")

public:
    int value = 0;
};

struct PolymorphicBase {
    virtual ~PolymorphicBase() = default;
};

class CountedDerived : public PolymorphicBase {  // deleted through its base
    CORVANE_STATIC_ALLOCATOR("test.MemAccount.CountedDerived")

public:
    char payload[24] = {};
};

// Live objects and bytes of an account.
std::pair<long, long> countsOf(const char* in_szName) {
    MemAccount& account = MemAccount::get(in_szName);
    return {account.getLiveObjects(), account.getLiveBytes()};
}

std::pair<long, long> counts(long in_lObjects, size_t in_uiBytes) { return {in_lObjects, static_cast<long>(in_uiBytes)}; }

}  // namespace

TEST(MemAccount, ObjectsAndBytesAreCountedPerNameAndReturnToZero) {
    ASSERT_EQ(countsOf("test.MemAccount.Widget"), counts(0, 0));
    std::vector<Widget*> widgets;
    for (int i = 0; i < 3; ++i) widgets.push_back(new Widget);
    Gadget* gadget = new Gadget;
    GadgetPart* part = new GadgetPart;
    Widget* array = new Widget[5];
    PolymorphicBase* base = new CountedDerived;
    EXPECT_EQ(countsOf("test.MemAccount.Gadget"), counts(2, sizeof(Gadget) + sizeof(GadgetPart)));
    EXPECT_EQ(countsOf("test.MemAccount.CountedDerived"), counts(1, sizeof(CountedDerived)));
    EXPECT_EQ(countsOf("test.MemAccount.Widget").first, 4);  // an array is one allocation
    EXPECT_GE(countsOf("test.MemAccount.Widget").second, static_cast<long>(8 * sizeof(Widget)));
    delete[] array;
    EXPECT_EQ(countsOf("test.MemAccount.Widget"), counts(3, 3 * sizeof(Widget)));
    for (Widget* w : widgets) delete w;
    delete gadget;
    delete part;
    delete base;
    for (const char* name : {"test.MemAccount.Widget", "test.MemAccount.Gadget", "test.MemAccount.CountedDerived"})
        EXPECT_EQ(countsOf(name), counts(0, 0)) << name;
    // The snapshot lists every used account, sorted by name.
    EXPECT_EQ(&MemAccount::get("test.MemAccount.Widget"), &Widget::getMemAccount());
    std::vector<std::string> names;
    for (const MemAccount::Snapshot& s : MemAccount::snapshot()) {
        names.push_back(s.name);
        if (s.name.rfind("test.MemAccount.", 0) == 0 && s.name != "test.MemAccount.ConcurrentBuffers") {
            EXPECT_EQ(s.objects, 0) << s.name;
            EXPECT_EQ(s.bytes, 0) << s.name;
        }
    }
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::count(names.begin(), names.end(), "test.MemAccount.Gadget"), 1);
}

TEST(MemAccount, BuffersCountBytesThroughReallocationAndKeepTheirContentsAndAlignment) {
    const auto aligned = [](const void* in_p) {
        return reinterpret_cast<std::uintptr_t>(in_p) % alignof(std::max_align_t) == 0;
    };
    std::unique_ptr<Gadget> gadget(new Gadget);
    EXPECT_TRUE(aligned(gadget.get()));
    MemAccount& account = MemAccount::get("test.MemAccount.Buffers");
    ASSERT_EQ(account.getLiveBytes(), 0);
    char* p = static_cast<char*>(NoSizeMemAllocator::allocate(account, 10));
    EXPECT_TRUE(aligned(p));
    std::memcpy(p, "abcdefghi", 10);
    EXPECT_EQ(account.getLiveBytes(), 10);
    EXPECT_EQ(account.getLiveObjects(), 0);  // buffers are bytes, not objects
    p = static_cast<char*>(NoSizeMemAllocator::reallocate(account, p, 4000));
    EXPECT_TRUE(aligned(p));
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
    const int kThreads = 6, kRounds = 5000, kKeptPerThread = 100;
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
    EXPECT_EQ(countsOf("test.MemAccount.Widget"), counts(kThreads * kKeptPerThread, kThreads * kKeptPerThread * sizeof(Widget)));
    EXPECT_EQ(countsOf("test.MemAccount.ConcurrentBuffers"), counts(0, 0));
    for (auto& list : kept)
        for (Widget* w : list) delete w;
    EXPECT_EQ(countsOf("test.MemAccount.Widget"), counts(0, 0));
}

TEST(MemAccount, CountReachingZeroPublishesWhatTheFreeingThreadDidBefore) {
    // Tests wait for an account to reach zero, then tear down what the freed objects used (TSan checks).
    for (int round = 0; round < 10; ++round) {
        int objectsSeen = 0, bytesSeen = 0;  // plain data, written before the object is freed
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
