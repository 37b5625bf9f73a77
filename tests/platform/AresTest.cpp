#include <ares.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "platform/Ares.h"
#include "platform/AresReactorTask.h"
#include "support/AresChannel.h"
#include "support/LogCapture.h"
#include "support/BoundedWait.h"
#include "support/DnsResponder.h"

using namespace std::chrono_literals;
using corvane_test::AresChannel;
using corvane_test::DnsResponder;
using corvane_test::waitFor;
using Tarvik::AresReactorTask;
using Tarvik::Task;
namespace dns = corvane_test::dns;

namespace {

AresReactorTask& task() { return AresReactorTask::getInstance(); }

// What one search's callbacks said; calls is written last.
struct Outcome {
    std::atomic<int> calls{0};
    int status = -1;
    bool nullAnswer = true;
    std::thread::id thread;

    static void callback(void* in_pArg, int in_iStatus, int, unsigned char* in_abuf, int) {
        Outcome* o = static_cast<Outcome*>(in_pArg);
        o->status = in_iStatus;
        o->nullAnswer = in_abuf == nullptr;
        o->thread = std::this_thread::get_id();
        ++o->calls;
    }
    void search(const std::string& in_name) {
        task().search(in_name.c_str(), 1 /*IN*/, 1 /*A*/, &Outcome::callback, this);
    }
};

TEST(AresReactorTask, EveryServerBehaviourGivesExactlyOneCallbackOnTheLoopThread) {
    DnsResponder responder("127.53.1.1");
    responder.answer("nx.test", dns::response("nx.test", {}, dns::RCODE_NXDOMAIN));
    responder.never("silent.test");
    responder.answer("answered.test", dns::response("answered.test", {dns::a(dns::pointer(12), "10.1.0.2", 60)}));
    ASSERT_TRUE(responder.start());
    AresChannel channel(responder.address(), 300, 2);  // two tries end after about 0.9 s
    ASSERT_TRUE(task().setChannel(channel.get()) && task().start());
    const struct {
        const char* name;
        int status;
        int queries;
    } cases[] = {
        {"answered.test", ARES_SUCCESS, 1}, {"nx.test", ARES_ENOTFOUND, 1}, {"silent.test", ARES_ETIMEOUT, 2}};
    std::deque<Outcome> outcomes(std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) outcomes[i].search(cases[i].name);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Outcome& o = outcomes[i];
        SCOPED_TRACE(cases[i].name);
        ASSERT_TRUE(waitFor([&o] { return o.calls > 0; }, 20s));
        EXPECT_EQ(o.calls, 1);
        EXPECT_EQ(o.status, cases[i].status) << ares_strerror(o.status);
        EXPECT_EQ(o.nullAnswer, cases[i].status == ARES_ETIMEOUT);
        EXPECT_NE(o.thread, std::this_thread::get_id());
        EXPECT_EQ(responder.queryCount(cases[i].name), cases[i].queries);
    }
    task().stop();
    EXPECT_TRUE(task().waitUntilDone());
    task().setChannel(nullptr);
}

TEST(AresReactorTask, LifecycleRefusesWhatItCannotDoFromAnyThreadAndCancelsASearchWhileNotRunning) {
    corvane_test::LogCapture asserts;
    DnsResponder responder("127.53.1.8");
    responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});  // to every name
    ASSERT_TRUE(responder.start());
    AresChannel channel(responder.address()), other(responder.address());
    std::deque<Outcome> refused(3);
    refused[0].search("a.test");  // never started
    ASSERT_TRUE(task().setChannel(channel.get()));
    ASSERT_TRUE(task().start());
    EXPECT_FALSE(task().start());
    EXPECT_FALSE(task().setChannel(other.get()));  // the channel is the loop's
    // The first callback searches again; the second tries to start, stops, and tries to wait.
    struct Chain {
        Outcome links[2];
        int refused = 0;
        static void callback(void* in_pArg, int in_iStatus, int, unsigned char* in_abuf, int in_alen) {
            Chain* c = static_cast<Chain*>(in_pArg);
            const bool bFirst = c->links[0].calls == 0;
            if (bFirst) {
                task().search("link1.test", 1, 1, &Chain::callback, c);
            } else {
                c->refused += !task().start();
                task().stop();
                c->refused += !task().waitUntilDone();
                errno = EINTR;  // left by an interrupted call: the loop must still read its wake-up once
            }
            Outcome::callback(&c->links[bFirst ? 0 : 1], in_iStatus, 0, in_abuf, in_alen);
        }
    } chain;
    task().search("link0.test", 1, 1, &Chain::callback, &chain);
    ASSERT_TRUE(waitFor([&chain] { return chain.links[1].calls > 0; }, 20s));
    EXPECT_TRUE(waitFor([] { return task().getTaskState() == Task::STOPPED_STATE; }));
    EXPECT_EQ(chain.refused, 2);
    for (const Outcome& link : chain.links) EXPECT_TRUE(link.calls == 1 && link.status == ARES_ENOTFOUND);
    EXPECT_EQ(responder.totalQueries(), 2);
    refused[1].search("a.test");  // after a stop
    task().search(nullptr, 1, 1, &Outcome::callback, &refused[2]);  // still gets its one callback
    task().search("a.test", 1, 1, nullptr, nullptr);                 // reported, nothing else happens
    const int statuses[] = {ARES_ECANCELLED, ARES_ECANCELLED, ARES_EBADNAME};
    for (size_t i = 0; i < refused.size(); ++i) {
        EXPECT_EQ(refused[i].calls, 1) << i;
        EXPECT_EQ(refused[i].status, statuses[i]) << i;
        EXPECT_EQ(refused[i].thread, std::this_thread::get_id()) << i;
    }
    EXPECT_EQ(asserts.assertions(), (std::vector<std::string>{"m_state == STOPPED_STATE", "!isLoopThread()",
                                                         "in_szName != 0", "in_callback != 0"}));
    // Started again without waiting in between: start joins the ended thread.
    ASSERT_TRUE(task().start());
    // Releasing the channel the task runs on stops the task and takes the channel back.
    AresReactorTask::releaseChannel(other.get());
    EXPECT_EQ(task().getTaskState(), Task::RUNNING);
    AresReactorTask::releaseChannel(channel.get());
    EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    EXPECT_FALSE(task().start());  // no channel
}

TEST(AresReactorTaskDeathTest, ExitWhileRunningCancelsWhatIsInFlight) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            DnsResponder responder("127.53.1.10");
            responder.start();
            AresChannel unused(responder.address());
            AresReactorTask::releaseChannel(unused.get());  // before the task exists: nothing to do
            AresChannel channel(responder.address(), 10000, 1);
            task().setChannel(channel.get());
            task().start();
            task().search("hang.test", 1, 1,
                          [](void*, int in_iStatus, int, unsigned char*, int) {
                              std::fprintf(stderr, in_iStatus == ARES_ECANCELLED ? "cancelled\n" : "status %d\n",
                                           in_iStatus);
                          },
                          nullptr);
            responder.waitForQueries("hang.test", 1, 10s);
            std::exit(3);  // the task is torn down with the process's singletons
        },
        ::testing::ExitedWithCode(3), "^cancelled\n$");
}

// "a.test IN A" at 12, then "b.<pointer to test> IN AAAA" at 24, ending at 32.
const dns::Bytes kAnswer = dns::cat({dns::header(0x1234, dns::RESPONSE_FLAGS, 2, 0), dns::question("a.test"),
                                     {0x01, 'b', 0xC0, 0x0E, 0x00, 0x1C, 0x00, 0x01}});

TEST(AresDisplayQuestion, ReadsEachQuestionAndFailsOnEveryTruncationOrCorruption) {
    for (int alen = 0; alen <= static_cast<int>(kAnswer.size()); ++alen) {
        SCOPED_TRACE(alen);
        // The compressed second question reads bytes before it: it needs its own end only.
        for (const auto& q : {std::make_pair(12, 24), std::make_pair(24, 32)}) {
            std::string name = "unchanged", text = "unchanged";
            const unsigned char* end =
                Tarvik::Ares::display_question(kAnswer.data() + q.first, kAnswer.data(), alen, name, text);
            EXPECT_EQ(end, alen < q.second ? nullptr : kAnswer.data() + q.second);
            EXPECT_EQ(name + "|" + text, alen < q.second ? "unchanged|unchanged"
                                         : q.first == 12 ? "a.test|a.test IN A"
                                                         : "b.test|b.test IN AAAA");
        }
    }
    std::string name = "unchanged", text = "unchanged";
    const unsigned char* const q = kAnswer.data() + 12;  // a position before the message is refused too
    EXPECT_EQ(Tarvik::Ares::display_question(q, q + 1, static_cast<int>(kAnswer.size()) - 13, name, text), nullptr);
    EXPECT_EQ(Tarvik::Ares::display_question(q, kAnswer.data(), -5, name, text), nullptr);
    EXPECT_EQ(name + "|" + text, "unchanged|unchanged");
    const struct {
        std::string name;
        uint16_t type, dnsClass;
        const char* text;
    } named[] = {
        {"a.test", 5, 1, "a.test IN CNAME"},      {"a.test", 12, 4, "a.test HS PTR"},
        {"a.test", 35, 254, "a.test NONE NAPTR"}, {"a.test", 255, 255, "a.test ANY ANY"},
        {"a.test", 16, 3, "a.test CH TXT"},       {"a.test", 99, 1, "a.test IN TYPE99"},
        {"a.test", 33, 1, "a.test IN SRV"},       {"a.test", 1, 42, "a.test CLASS42 A"},
        {"", 2, 1, ". IN NS"},                    {"A.Test", 41, 1, "A.Test IN OPT"},
    };
    for (const auto& c : named) {
        const auto message = dns::cat({dns::header(1, 0, 1, 0), dns::question(c.name, c.type, c.dnsClass)});
        const int alen = static_cast<int>(message.size());
        EXPECT_EQ(Tarvik::Ares::display_question(message.data() + 12, message.data(), alen, name, text),
                  message.data() + alen);
        EXPECT_EQ(name + "|" + text, c.name + "|" + c.text);
    }
}

}  // namespace
