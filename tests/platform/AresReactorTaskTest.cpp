#include <arpa/inet.h>
#include <ares.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/AresReactorTask.h"
#include "support/AresChannel.h"
#include "support/AssertCapture.h"
#include "support/DnsResponder.h"

using namespace std::chrono_literals;
using corvane_test::AresChannel;
using corvane_test::DnsResponder;
using Tarvik::AresReactorTask;
using Tarvik::Task;
namespace dns = corvane_test::dns;

namespace {

AresReactorTask& task() { return AresReactorTask::getInstance(); }

// Every callback of every search; each search has its own Outcome, which must end with calls == 1.
class Tally {
public:
    struct Outcome {
        Tally* tally = nullptr;
        int calls = 0;
        int status = -1;
        bool nullAnswer = true;
        std::vector<unsigned char> answer;
        std::thread::id thread;
    };
    Outcome* add() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_outcomes.emplace_back();
        m_outcomes.back().tally = this;
        return &m_outcomes.back();
    }
    static void callback(void* in_pArg, int in_iStatus, int, unsigned char* in_abuf, int in_alen) {
        Outcome* o = static_cast<Outcome*>(in_pArg);
        {
            std::lock_guard<std::mutex> guard(o->tally->m_mutex);
            ++o->calls;
            o->status = in_iStatus;
            o->nullAnswer = in_abuf == nullptr;
            o->answer.assign(in_abuf, in_abuf == nullptr ? in_abuf : in_abuf + in_alen);
            o->thread = std::this_thread::get_id();
            ++o->tally->m_calls;
        }
        o->tally->m_changed.notify_all();
    }
    bool waitFor(const Outcome* in_pOutcome) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, 20s, [&] { return in_pOutcome->calls > 0; });
    }
    bool waitForCalls(size_t in_count, std::chrono::milliseconds in_limit = 20s) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, in_limit, [&] { return m_calls >= in_count; });
    }
    size_t calls() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_calls;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Outcome> m_outcomes;  // outcomes never move
    size_t m_calls = 0;
};

Tally::Outcome* search(Tally& io_tally, const std::string& in_name) {
    Tally::Outcome* outcome = io_tally.add();
    task().search(in_name.c_str(), 1 /*IN*/, 1 /*A*/, &Tally::callback, outcome);
    return outcome;
}

std::vector<Tally::Outcome*> searchNumbered(Tally& io_tally, const std::string& in_prefix, int in_count) {
    std::vector<Tally::Outcome*> outcomes;
    for (int i = 0; i < in_count; ++i) outcomes.push_back(search(io_tally, in_prefix + std::to_string(i) + ".test"));
    return outcomes;
}

// Hands the channel to the process-wide task and starts it; stops, joins and takes the channel back.
struct RunningTask {
    explicit RunningTask(const AresChannel& in_channel) {
        EXPECT_EQ(in_channel.error(), "");
        EXPECT_TRUE(task().setChannel(in_channel.get()));
        EXPECT_TRUE(task().start());
    }
    ~RunningTask() {
        task().stop();
        task().waitUntilDone();
        task().setChannel(nullptr);
    }
};

// Searches each case's name, waits for every callback, then stops and joins the task.
template <class Cases>
std::vector<Tally::Outcome*> searchEachAndStop(Tally& io_tally, const Cases& in_cases) {
    std::vector<Tally::Outcome*> outcomes;
    for (const auto& c : in_cases) outcomes.push_back(search(io_tally, c.name));
    EXPECT_TRUE(io_tally.waitForCalls(outcomes.size()));
    task().stop();
    EXPECT_TRUE(task().waitUntilDone());
    return outcomes;
}

std::vector<std::string> addressesOf(const std::vector<unsigned char>& in_answer) {
    std::vector<std::string> out;
    ares_addrttl ttls[16];
    int count = 16;
    if (ares_parse_a_reply(in_answer.data(), static_cast<int>(in_answer.size()), nullptr, ttls, &count) != ARES_SUCCESS)
        return out;
    for (int i = 0; i < count; ++i) {
        char text[INET_ADDRSTRLEN];
        out.push_back(inet_ntop(AF_INET, &ttls[i].ipaddr, text, sizeof text));
    }
    return out;
}

template <class Server>
void startServer(Server& io_server) {
    std::string error;
    ASSERT_TRUE(io_server.start(&error)) << error;
}

}  // namespace

TEST(AresReactorTask, EveryServerBehaviourGivesExactlyOneCallback) {
    const int kAnyError = -1;
    DnsResponder responder("127.53.1.1");
    const auto answered = dns::response("answered.test", {dns::a(dns::pointer(12), "10.1.0.1", 60)});
    responder.answer("answered.test", answered);
    responder.answer("nx.test", dns::response("nx.test", {}, dns::RCODE_NXDOMAIN));
    responder.answer("servfail.test", dns::response("servfail.test", {}, dns::RCODE_SERVFAIL));
    responder.never("silent.test");
    responder.answerLate("late.test", dns::response("late.test", {dns::a(dns::pointer(12), "10.1.0.2", 60)}), 50ms);
    responder.answerLate("toolate.test", dns::response("toolate.test", {}), 3000ms);
    responder.script("wrongid.test",  // the wrong id is dropped, the right one that follows taken
                     {{dns::response("wrongid.test", {dns::a(dns::pointer(12), "10.9.9.9", 60)}), 0ms,
                       DnsResponder::Id::WRONG},
                      {dns::response("wrongid.test", {dns::a(dns::pointer(12), "10.1.0.3", 60)}), 30ms,
                       DnsResponder::Id::PATCH}});
    responder.answer("short.test", {0x12, 0x34, 0x81, 0x80, 0x00});  // shorter than a header
    startServer(responder);
    AresChannel channel(responder.address(), 300, 2);  // two tries end after about 0.9 s
    RunningTask running(channel);

    const struct {
        const char* name;
        int status;
        std::vector<std::string> addresses;
        int queries;
    } cases[] = {
        {"answered.test", ARES_SUCCESS, {"10.1.0.1"}, 1}, {"nx.test", ARES_ENOTFOUND, {}, 1},
        {"servfail.test", kAnyError, {}, 2},              {"silent.test", ARES_ETIMEOUT, {}, 2},
        {"late.test", ARES_SUCCESS, {"10.1.0.2"}, 1},     {"toolate.test", ARES_ETIMEOUT, {}, 2},
        {"wrongid.test", ARES_SUCCESS, {"10.1.0.3"}, 1},  {"short.test", ARES_ETIMEOUT, {}, 2},
    };
    Tally tally;
    const auto outcomes = searchEachAndStop(tally, cases);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        const Tally::Outcome& o = *outcomes[i];
        SCOPED_TRACE(c.name);
        EXPECT_EQ(o.calls, 1);
        if (c.status == kAnyError) {
            EXPECT_NE(o.status, ARES_SUCCESS);
            EXPECT_NE(o.status, ARES_ECANCELLED);
        } else {
            EXPECT_EQ(o.status, c.status) << ares_strerror(o.status);
        }
        EXPECT_NE(o.thread, std::this_thread::get_id());
        if (c.status == ARES_SUCCESS) {
            EXPECT_EQ(addressesOf(o.answer), c.addresses);
        }
        EXPECT_EQ(responder.queryCount(c.name), c.queries);
    }
    // The answer is handed over byte for byte, with the query's id.
    auto expected = answered;
    expected[0] = outcomes[0]->answer[0];
    expected[1] = outcomes[0]->answer[1];
    EXPECT_EQ(outcomes[0]->answer, expected);
    const auto queries = responder.queries();
    ASSERT_FALSE(queries.empty());
    EXPECT_EQ(queries[0].type, dns::TYPE_A);
    EXPECT_EQ(queries[0].dnsClass, dns::CLASS_IN);
}

TEST(AresReactorTask, StopCancelsQueriesInFlightOnceEach) {
    DnsResponder responder("127.53.1.3");
    startServer(responder);  // answers nothing
    AresChannel channel(responder.address(), 10000, 1);
    RunningTask running(channel);
    Tally tally;
    const auto outcomes = searchNumbered(tally, "hang", 10);
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(responder.waitForQueries("hang" + std::to_string(i) + ".test", 1, 10s));
    EXPECT_EQ(tally.calls(), 0u);
    EXPECT_TRUE(task().stop());
    ASSERT_TRUE(task().waitUntilDone());
    EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    for (const Tally::Outcome* o : outcomes) {
        EXPECT_EQ(o->calls, 1);
        EXPECT_EQ(o->status, ARES_ECANCELLED);
        EXPECT_TRUE(o->nullAnswer);
        EXPECT_NE(o->thread, std::this_thread::get_id());
    }
}

TEST(AresReactorTask, StopCancelsQueuedRequestsWithoutSendingThem) {
    DnsResponder responder("127.53.1.4");
    responder.answer("gate.test", dns::response("gate.test", {}));
    startServer(responder);
    AresChannel channel(responder.address());
    RunningTask running(channel);
    // The gate's callback holds the loop thread until opened, so later searches stay queued.
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool entered = false, open = false;
        int calls = 0;
    } gate;
    task().search("gate.test", 1, 1,
                  [](void* in_pArg, int, int, unsigned char*, int) {
                      Gate* g = static_cast<Gate*>(in_pArg);
                      std::unique_lock<std::mutex> lock(g->mutex);
                      ++g->calls;
                      g->entered = true;
                      g->changed.notify_all();
                      g->changed.wait_for(lock, 20s, [&] { return g->open; });
                  },
                  &gate);
    {
        std::unique_lock<std::mutex> lock(gate.mutex);
        ASSERT_TRUE(gate.changed.wait_for(lock, 10s, [&] { return gate.entered; }));
    }
    Tally tally;
    const auto queued = searchNumbered(tally, "queued", 20);
    EXPECT_TRUE(task().stop());
    EXPECT_EQ(task().getTaskState(), Task::STOPPING_STATE);
    // While stopping, a search is cancelled before it returns, on the caller's thread.
    Tally::Outcome* late = search(tally, "whilestopping.test");
    EXPECT_EQ(late->calls, 1);
    EXPECT_EQ(late->status, ARES_ECANCELLED);
    EXPECT_EQ(late->thread, std::this_thread::get_id());
    {
        std::lock_guard<std::mutex> guard(gate.mutex);
        gate.open = true;
    }
    gate.changed.notify_all();
    ASSERT_TRUE(task().waitUntilDone());
    EXPECT_EQ(gate.calls, 1);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(queued[i]->calls, 1);
        EXPECT_EQ(queued[i]->status, ARES_ECANCELLED);
        EXPECT_TRUE(queued[i]->nullAnswer);
        EXPECT_NE(queued[i]->thread, std::this_thread::get_id());
        EXPECT_EQ(responder.queryCount("queued" + std::to_string(i) + ".test"), 0);
    }
    EXPECT_EQ(late->calls, 1);
}

TEST(AresReactorTask, SearchWhileNotRunningIsCancelledOnTheCallersThread) {
    corvane_test::AssertCapture asserts;
    ASSERT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    Tally tally;
    Tally::Outcome* neverStarted = search(tally, "a.test");
    DnsResponder responder("127.53.1.5");
    startServer(responder);
    Tally::Outcome* afterStop = nullptr;
    {
        AresChannel channel(responder.address());
        { RunningTask running(channel); }
        afterStop = search(tally, "a.test");
    }
    Tally::Outcome* nullName = tally.add();
    task().search(nullptr, 1, 1, &Tally::callback, nullName);  // still gets its one callback
    task().search("a.test", 1, 1, nullptr, nullptr);           // reported, nothing else happens
    const struct {
        const char* what;
        Tally::Outcome* outcome;
        int status;
    } cases[] = {{"never started", neverStarted, ARES_ECANCELLED},
                 {"after stop", afterStop, ARES_ECANCELLED},
                 {"null name", nullName, ARES_EBADNAME}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.outcome->calls, 1);
        EXPECT_EQ(c.outcome->status, c.status);
        EXPECT_TRUE(c.outcome->nullAnswer);
        EXPECT_EQ(c.outcome->thread, std::this_thread::get_id());
    }
    EXPECT_EQ(responder.totalQueries(), 0);
    EXPECT_EQ(asserts.texts(), (std::vector<std::string>{"in_szName != 0", "in_callback != 0"}));
}

TEST(AresReactorTask, ManyThreadsSearchingAtOnceGetOneCallbackPerSearch) {
    DnsResponder responder("127.53.1.6");
    responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
    startServer(responder);
    AresChannel channel(responder.address(), 2000, 3);
    RunningTask running(channel);
    const int threads = 4, perThread = 50;
    Tally tally;
    std::vector<std::vector<Tally::Outcome*>> outcomes(threads);
    for (auto& list : outcomes)
        for (int i = 0; i < perThread; ++i) list.push_back(tally.add());
    std::vector<std::thread> searchers;
    for (int t = 0; t < threads; ++t) {
        searchers.emplace_back([&, t] {  // at most 16 in flight per thread
            for (int i = 0; i < perThread; ++i) {
                if (i >= 16 && !tally.waitFor(outcomes[t][i - 16])) return;
                task().search(("m" + std::to_string(t * 1000 + i) + ".test").c_str(), 1, 1, &Tally::callback,
                              outcomes[t][i]);
            }
        });
    }
    for (std::thread& searcher : searchers) searcher.join();
    ASSERT_TRUE(tally.waitForCalls(threads * perThread, 60s)) << tally.calls();
    task().stop();
    ASSERT_TRUE(task().waitUntilDone());
    for (const auto& list : outcomes)
        for (const Tally::Outcome* o : list) EXPECT_TRUE(o->calls == 1 && o->status == ARES_ENOTFOUND);
    EXPECT_EQ(tally.calls(), static_cast<size_t>(threads * perThread));
    EXPECT_GE(responder.totalQueries(), threads * perThread);
}

TEST(AresReactorTask, LifecycleRefusesWhatItCannotDoAndRestartsWithTheSameOrAnotherChannel) {
    corvane_test::AssertCapture asserts;
    DnsResponder responder("127.53.1.8");
    responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
    startServer(responder);
    AresChannel first(responder.address()), second(responder.address());
    EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    EXPECT_TRUE(task().waitUntilDone());  // never started
    EXPECT_TRUE(task().stop());           // already stopped
    EXPECT_FALSE(task().start());         // no channel
    Tally tally;
    for (ares_channel channel : {first.get(), first.get(), second.get()}) {
        ASSERT_TRUE(task().setChannel(channel));
        ASSERT_TRUE(task().start());
        EXPECT_EQ(task().getTaskState(), Task::RUNNING);
        EXPECT_FALSE(task().start());
        EXPECT_FALSE(task().setChannel(first.get()));  // the channel is the loop's
        EXPECT_FALSE(task().setChannel(nullptr));
        Tally::Outcome* o = search(tally, "a.test");
        ASSERT_TRUE(tally.waitFor(o));
        EXPECT_TRUE(task().stop());
        EXPECT_TRUE(task().waitUntilDone());
        EXPECT_TRUE(task().waitUntilDone());  // twice is fine
        EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
        EXPECT_EQ(o->status, ARES_ENOTFOUND);
    }
    EXPECT_EQ(asserts.texts(), std::vector<std::string>(6, "m_state == STOPPED_STATE"));
    // Started again without waiting in between: start joins the ended thread.
    ASSERT_TRUE(task().start());
    task().stop();
    for (int i = 0; i < 1000 && task().getTaskState() != Task::STOPPED_STATE; ++i) std::this_thread::sleep_for(5ms);
    ASSERT_TRUE(task().start());
    task().stop();
    EXPECT_TRUE(task().waitUntilDone());
    // Releasing the channel the task runs on stops the task and takes the channel back.
    ASSERT_TRUE(task().setChannel(first.get()));
    ASSERT_TRUE(task().start());
    AresReactorTask::releaseChannel(second.get());
    AresReactorTask::releaseChannel(nullptr);
    EXPECT_EQ(task().getTaskState(), Task::RUNNING);
    AresReactorTask::releaseChannel(first.get());
    EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    EXPECT_FALSE(task().start());  // no channel
    EXPECT_TRUE(task().kill());
}

TEST(AresReactorTask, CallbacksMaySearchAgainAndStopButNotStartOrWait) {
    corvane_test::AssertCapture asserts;
    DnsResponder responder("127.53.1.9");
    responder.setDefault({DnsResponder::rcodeReply(dns::RCODE_NXDOMAIN)});
    startServer(responder);
    AresChannel channel(responder.address());
    RunningTask running(channel);
    // Each link searches the next from its callback; the last tries to start, stops, and tries to wait.
    struct Chain {
        Tally tally;
        std::vector<Tally::Outcome*> links;
        size_t next = 0;
        bool startResult = true, waitResult = true;
        static void callback(void* in_pArg, int in_iStatus, int in_iTimeouts, unsigned char* in_abuf, int in_alen) {
            Chain* c = static_cast<Chain*>(in_pArg);
            Tally::Outcome* link = c->links[c->next++];
            if (c->next < c->links.size()) {
                task().search(("link" + std::to_string(c->next) + ".test").c_str(), 1, 1, &Chain::callback, c);
            } else {
                c->startResult = task().start();
                task().stop();
                c->waitResult = task().waitUntilDone();
            }
            Tally::callback(link, in_iStatus, in_iTimeouts, in_abuf, in_alen);
        }
    } chain;
    for (int i = 0; i < 5; ++i) chain.links.push_back(chain.tally.add());
    task().search("link0.test", 1, 1, &Chain::callback, &chain);
    ASSERT_TRUE(task().waitUntilDone());
    ASSERT_TRUE(chain.tally.waitForCalls(chain.links.size()));
    EXPECT_EQ(task().getTaskState(), Task::STOPPED_STATE);
    EXPECT_FALSE(chain.startResult);
    EXPECT_FALSE(chain.waitResult);
    for (size_t i = 0; i < chain.links.size(); ++i) {
        EXPECT_EQ(chain.links[i]->calls, 1);
        EXPECT_EQ(chain.links[i]->status, ARES_ENOTFOUND);
        EXPECT_EQ(responder.queryCount("link" + std::to_string(i) + ".test"), 1);
    }
    EXPECT_EQ(asserts.texts(), std::vector<std::string>{"!isLoopThread()"});
}

TEST(AresReactorTaskDeathTest, ExitWhileRunningCancelsWhatIsInFlight) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // Left for exit to find: the task is torn down with the process's singletons.
            DnsResponder responder("127.53.1.10");
            responder.start();
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
            std::exit(3);
        },
        ::testing::ExitedWithCode(3), "^cancelled\n$");
}
