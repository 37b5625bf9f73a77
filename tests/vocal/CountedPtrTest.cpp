#include <gtest/gtest.h>

#include "vocal/CountedPtr.h"

using Vocal::CountedPtr;

namespace {

struct Base {
    virtual ~Base() = default;
};

struct Probe : Base {
    explicit Probe(int* in_pLive) : pLive(in_pLive) { ++*pLive; }
    ~Probe() override { --*pLive; }
    int* pLive;
};

TEST(CountedPtr, OwnersShareOneCountAndTheLastDestroys) {
    int live = 0;
    {
        CountedPtr<Probe> first(new Probe(&live));
        EXPECT_EQ(first.getCount(), 1);
        {
            CountedPtr<Base> second(first);  // derived to base shares the count
            CountedPtr<Base> third = second;
            EXPECT_EQ(first.getCount(), 3);
            EXPECT_EQ(first.get(), third.get());
        }
        EXPECT_EQ(first.getCount(), 1);
    }
    EXPECT_EQ(live, 0);
}

TEST(CountedPtr, AssignmentAndMoveReleaseAndTransferOwnershipAndNullHasNoCount) {
    int live = 0;
    CountedPtr<Base> a(new Probe(&live));
    CountedPtr<Base> b(new Probe(&live));
    a = b;  // a's object goes, b's is shared
    EXPECT_EQ(live, 1);
    EXPECT_EQ(a.getCount(), 2);
    a = a;  // NOLINT: self-assignment keeps it
    EXPECT_EQ(live, 1);
    CountedPtr<Base> c(std::move(b));
    EXPECT_TRUE(b.isNull());
    EXPECT_EQ(c.getCount(), 2);
    a.reset();
    c = CountedPtr<Base>();
    EXPECT_EQ(live, 0);
    const CountedPtr<Base> empty;
    const CountedPtr<Base> copy(empty);
    EXPECT_FALSE(static_cast<bool>(copy));
    EXPECT_EQ(copy.getCount(), 0);
    EXPECT_TRUE(copy == empty);
}

}  // namespace
