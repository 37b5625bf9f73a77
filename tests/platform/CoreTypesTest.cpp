#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/BoostRegex.h"
#include "platform/CountedObjPtr.h"
#include "platform/Fallible.h"
#include "platform/PCFParse.h"
#include "platform/StringVector.h"

using namespace Tarvik;

namespace {

struct Tracked {
    explicit Tracked(std::atomic<int>& io_destroyed, int in_iValue = 0)
        : destroyed(io_destroyed), value(in_iValue) {}
    ~Tracked() { ++destroyed; }
    std::atomic<int>& destroyed;
    int value;
};

}  // namespace

TEST(Fallible, HoldsAValueOnlyWhenValid) {
    Fallible<std::string> text(std::string("abc"));
    EXPECT_TRUE(text.isValid());
    EXPECT_EQ(static_cast<const std::string&>(text), "abc");
    text.invalidate();
    EXPECT_FALSE(text.isValid());
    EXPECT_FALSE(Fallible<int>().isValid());
}

TEST(CountedObjPtr, CopiesShareMovesTransferAndTheLastHolderDestroys) {
    std::atomic<int> destroyed{0};
    {
        CountedObjPtr<Tracked> a(new Tracked(destroyed, 1));
        CountedObjPtr<Tracked> b(a);
        EXPECT_EQ(a.useCount(), 2);
        CountedObjPtr<Tracked> c(std::move(b));
        EXPECT_TRUE(b.isNull());
        EXPECT_EQ(c.useCount(), 2);
        a = a;  // self-assignment keeps the object
        EXPECT_EQ(a->value, 1);
        a = CountedObjPtr<Tracked>(new Tracked(destroyed, 2));
        EXPECT_EQ(c.useCount(), 1);
        EXPECT_EQ(destroyed, 0);
        c.reset();
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(CountedObjPtr<Tracked>(c).useCount(), 0);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(CountedObjPtr, ManyThreadsCopyingAndReleasingDestroyTheObjectExactlyOnce) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> destroyed{0};
        std::atomic<int> ready{0};
        const int kThreads = 6;
        std::vector<std::thread> threads;
        {
            CountedObjPtr<Tracked> shared(new Tracked(destroyed, 5));
            for (int t = 0; t < kThreads; ++t) {
                // Each thread releases its own copy last: the final release is a race.
                threads.emplace_back([&ready, mine = shared]() mutable {
                    ++ready;
                    while (ready < kThreads) std::this_thread::yield();
                    for (int i = 0; i < 2000; ++i) {
                        CountedObjPtr<Tracked> copy(mine);
                        CountedObjPtr<Tracked> other;
                        other = copy;
                        if (other->value != 5) std::abort();
                    }
                    mine.reset();
                });
            }
        }
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(destroyed, 1);
    }
}

TEST(StringVector, TokenizeSplitsOnTheSeparatorAndSkipsEmptyPieces) {
    const struct {
        const char* text;
        char separator;
        StringVector expected;
    } cases[] = {
        {"a,b,c", ',', {"a", "b", "c"}},
        {"a", ',', {"a"}},
        {"", ',', {}},
        {",,,", ',', {}},
        {",a,,b,", ',', {"a", "b"}},
        {" a , b ", ',', {" a ", " b "}},  // nothing is trimmed
        {"10.0.0.1", '.', {"10", "0", "0", "1"}},
        {"sip:user@host", ':', {"sip", "user@host"}},
        {"a b\tc", ' ', {"a", "b\tc"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        StringVector out;
        strTokenize(c.text, out, c.separator);
        EXPECT_EQ(out, c.expected);
    }
    StringVector appended{"kept"};
    strTokenize("x;y", appended, ';');
    EXPECT_EQ(appended, (StringVector{"kept", "x", "y"}));
}

TEST(StringVector, FormatWritesWhatPrintfWould) {
    EXPECT_EQ(format("%05.1f|%-3s|%x|100%%", 3.14159, "a", 255u), "003.1|a  |ff|100%");
    const std::string big(5000, 'z');
    EXPECT_EQ(format("<%s>", big.c_str()), "<" + big + ">");
}

TEST(BoostRegex, MatchIsWholeTextSearchFindsAPartWithGroups) {
    const BoostRegex dotted("([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})");
    const struct {
        const char* text;
        bool matches;
        bool found;
        const char* firstGroup;
    } cases[] = {
        {"10.0.0.1", true, true, "10"},
        {"host 192.168.1.20 port", false, true, "192"},
        {"10.0.0", false, false, ""},
        {"", false, false, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(dotted.match(c.text), c.matches);
        boost::smatch result;
        const std::string text(c.text);  // the results point into it
        EXPECT_EQ(dotted.search(text, result), c.found);
        if (c.found) {
            EXPECT_EQ(result[1].str(), c.firstGroup);
        }
    }
}

namespace {
template <class Text, class = void>
struct CanSearch : std::false_type {};
template <class Text>
struct CanSearch<Text, decltype(void(std::declval<const BoostRegex&>().search(
                                    std::declval<Text>(), std::declval<boost::smatch&>())))> : std::true_type {};
}  // namespace

TEST(BoostRegex, SearchRefusesATemporaryTextWhoseResultsWouldDangle) {
    static_assert(CanSearch<const std::string&>::value, "a text the caller keeps can be searched");
    static_assert(CanSearch<std::string&>::value, "a text the caller keeps can be searched");
    static_assert(!CanSearch<std::string>::value, "a temporary text cannot");
    static_assert(!CanSearch<const char*>::value, "a literal would become a temporary text");
}

TEST(BoostRegex, OnePatternMatchesFromManyThreadsAtOnce) {
    const BoostRegex pattern("(sip|sips):([^@]+)@(.+)");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const std::string user = "u" + std::to_string(t * 1000 + i);
                boost::smatch result;
                const std::string text = "x sip:" + user + "@h";
                if (!pattern.search(text, result) || result[2].str() != user) ++wrong;
                if (pattern.match("tel:123")) ++wrong;
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
    leaf->m_uiLastToken = 4;
    left->m_pFirst = leaf;
    right->m_pSecond = leaf;  // one subtree under two parents
    leaf.reset();
    left.reset();
    EXPECT_EQ(rulesDestroyed, 0);
    EXPECT_EQ(right->m_pSecond->m_uiLastToken, 4u);
    right.reset();
    EXPECT_EQ(rulesDestroyed, 1);
}
