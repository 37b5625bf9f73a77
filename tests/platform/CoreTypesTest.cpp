#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/BoostRegex.h"
#include "platform/CountedObjPtr.h"
#include "platform/PCFParse.h"
#include "platform/StringVector.h"

using namespace Tarvik;

namespace {

struct Tracked {
    explicit Tracked(std::atomic<int>& io_destroyed, int in_iValue = 0) : destroyed(io_destroyed), value(in_iValue) {}
    ~Tracked() { ++destroyed; }
    std::atomic<int>& destroyed;
    int value;
};

template <class Text, class = void>
struct CanSearch : std::false_type {};
template <class Text>
struct CanSearch<Text, decltype(void(std::declval<const BoostRegex&>().search(
                                    std::declval<Text>(), std::declval<boost::smatch&>())))> : std::true_type {};
static_assert(CanSearch<const std::string&>::value && !CanSearch<std::string>::value &&
                  !CanSearch<const char*>::value,
              "search takes only a text the caller keeps: its results point into it");

}  // namespace

TEST(CountedObjPtr, CopiesShareMovesTransferAndTheLastHolderDestroysOnceAcrossThreads) {
    std::atomic<int> destroyed{0};
    {
        CountedObjPtr<Tracked> a(new Tracked(destroyed, 1));
        CountedObjPtr<Tracked> c(std::move(CountedObjPtr<Tracked>(a)));
        EXPECT_EQ(c.useCount(), 2);
        a = a;  // self-assignment keeps the object
        a = CountedObjPtr<Tracked>(new Tracked(destroyed, 2));
        EXPECT_EQ(c.useCount(), 1);
        c.reset();
        EXPECT_EQ(destroyed, 1);
        EXPECT_TRUE(c.isNull());
    }
    EXPECT_EQ(destroyed, 2);
    // Each thread releases its own copy last: the final release is a race.
    for (int round = 0; round < 10; ++round) {
        std::atomic<int> gone{0};
        std::vector<std::thread> threads;
        {
            CountedObjPtr<Tracked> shared(new Tracked(gone, 5));
            for (int t = 0; t < 4; ++t) {
                threads.emplace_back([mine = shared]() mutable {
                    for (int i = 0; i < 1000; ++i) {
                        CountedObjPtr<Tracked> other;
                        other = CountedObjPtr<Tracked>(mine);
                        if (other->value != 5) std::abort();
                    }
                    mine.reset();
                });
            }
        }
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(gone, 1);
    }
}

TEST(StringVector, TokenizeAndFormat) {
    const struct {
        const char* text;
        char separator;
        StringVector expected;
    } cases[] = {
        {"a,b,c", ',', {"kept", "a", "b", "c"}},      {"", ',', {"kept"}},
        {",a,,b,", ',', {"kept", "a", "b"}},          {" a , b ", ',', {"kept", " a ", " b "}},
        {"sip:user@host", ':', {"kept", "sip", "user@host"}},
    };
    for (const auto& c : cases) {
        StringVector out{"kept"};  // tokens are appended
        strTokenize(c.text, out, c.separator);
        EXPECT_EQ(out, c.expected) << c.text;
    }
    EXPECT_EQ(format("%05.1f|%-3s|%x|100%%", 3.14159, "a", 255u), "003.1|a  |ff|100%");
    const std::string big(5000, 'z');
    EXPECT_EQ(format("<%s>", big.c_str()), "<" + big + ">");
}

TEST(BoostRegex, MatchIsWholeTextSearchFindsAPartFromManyThreads) {
    const BoostRegex dotted("([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})");
    const struct {
        const char* text;
        bool matches;
        const char* firstGroup;  // null: not found
    } cases[] = {{"10.0.0.1", true, "10"}, {"host 192.168.1.20 port", false, "192"}, {"10.0.0", false, nullptr}};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                for (const auto& c : cases) {
                    boost::smatch result;
                    const std::string text(c.text);
                    const bool found = dotted.search(text, result);
                    if (dotted.match(c.text) != c.matches || found != (c.firstGroup != nullptr) ||
                        (found && result[1].str() != c.firstGroup))
                        ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(PCFParse, SharedSubtreesLiveAsLongAsTheirLastParent) {
    struct CountedRule : CFRule {
        explicit CountedRule(std::atomic<int>& io_destroyed) : destroyed(io_destroyed) {}
        ~CountedRule() { ++destroyed; }
        std::atomic<int>& destroyed;
    };
    using Node = PCFParse<CountedRule>;
    std::atomic<int> rulesDestroyed{0};
    CountedObjPtr<Node> leaf(new Node), left(new Node), right(new Node);
    leaf->m_pRule = CountedObjPtr<CountedRule>(new CountedRule(rulesDestroyed));
    left->m_pFirst = leaf;
    right->m_pSecond = leaf;  // one subtree under two parents
    leaf.reset();
    left.reset();
    EXPECT_EQ(rulesDestroyed, 0);
    right.reset();
    EXPECT_EQ(rulesDestroyed, 1);
}
