#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/ManageableTaskImplBase.h"
#include "platform/Thread.h"
#include "support/BoundedWait.h"
#include "support/LogCapture.h"

using namespace Tarvik;
using corvane_test::Gate;
using corvane_test::waitFor;

namespace {

struct RequestCounts {
    std::atomic<int> created{0};
    std::atomic<int> called{0};
    std::atomic<int> destroyed{0};
    std::atomic<int> destroyedUncalled{0};  // dropped at stop or refused
};

// A request body that says it runs, then waits for the gate.
std::function<void()> blockOn(Gate& io_gate, std::atomic<bool>& io_running) {
    return [g = &io_gate, r = &io_running] { *r = true, g->wait(); };
}

class CountedRequest : public ACE_Method_Request {
public:
    explicit CountedRequest(RequestCounts& io_counts, std::function<void()> in_body = {})
        : m_counts(io_counts), m_body(std::move(in_body)) {
        ++m_counts.created;
    }
    ~CountedRequest() override {
        if (!m_bCalled) ++m_counts.destroyedUncalled;
        ++m_counts.destroyed;
    }
    int call() override {
        m_bCalled = true;
        if (m_body) m_body();
        ++m_counts.called;
        return 0;
    }

private:
    RequestCounts& m_counts;
    std::function<void()> m_body;
    bool m_bCalled = false;
};

// A pool that counts its hooks; stopped and joined before its parts go.
class HookedPool : public StaticReactorTaskImpl {
public:
    explicit HookedPool(size_t in_uiThreads) : StaticReactorTaskImpl("test.HookedPool") {
        setNumThread(in_uiThreads);
    }
    ~HookedPool() override {
        stop();
        waitUntilDone();
    }
    bool startAndWaitRunning() {
        return start() && waitFor([this] { return getTaskState() == Task::RUNNING; });
    }

    std::atomic<int> entries{0};
    std::atomic<int> exits{0};
    std::function<void()> entryBody;  // runs inside the entry hook
    std::function<void()> exitBody;   // runs inside the exit hook

protected:
    void onSvcEntry() override {
        ++entries;
        if (entryBody) entryBody();
        StaticReactorTaskImpl::onSvcEntry();
    }
    void onSvcExit() override {
        ++exits;
        if (exitBody) exitBody();
    }
};

}  // namespace

TEST(ReactorPool, HooksRunOncePerRunWhateverTheThreadCountAndARestartJoinsTheRunBefore) {
    for (size_t threads : {1u, 3u, 8u}) {
        SCOPED_TRACE(threads);
        HookedPool pool(threads);
        RequestCounts counts;
        for (int run = 1; run <= 3; ++run) {
            ASSERT_TRUE(pool.startAndWaitRunning());
            EXPECT_FALSE(pool.start());  // already running
            EXPECT_EQ(pool.exits, run - 1);  // the run before ended before this one began
            for (int i = 0; i < 40; ++i) ASSERT_TRUE(pool.enqueue(new CountedRequest(counts), "test"));
            ASSERT_TRUE(waitFor([&] { return counts.called == 40 * run; }));
            pool.stop();  // the next start comes without a wait
        }
        ASSERT_TRUE(pool.waitUntilDone());
        EXPECT_EQ(pool.entries, 3);
        EXPECT_EQ(pool.exits, 3);
        EXPECT_EQ(pool.getTaskState(), Task::STOPPED_STATE);
        EXPECT_EQ(counts.destroyed, counts.created);
    }
}

TEST(ReactorPool, NoRequestRunsBeforeTheEntryHookReturns) {
    HookedPool pool(4);
    std::atomic<bool> entryDone{false};
    std::atomic<int> early{0};
    pool.entryBody = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));  // time for another thread to take work
        entryDone = true;
    };
    RequestCounts counts;
    ASSERT_TRUE(pool.start());
    for (int i = 0; i < 20; ++i) {
        pool.enqueue(new CountedRequest(counts, [&] { early += !entryDone; }), "test");
    }
    ASSERT_TRUE(waitFor([&] { return counts.called == 20; }));
    EXPECT_EQ(early, 0);
    EXPECT_EQ(pool.entries, 1);
}

TEST(ReactorPool, ExitHookRunsInTheLastThreadOut) {
    HookedPool pool(4);
    Gate gate;
    std::atomic<int> started{0}, finished{0}, finishedAtExit{-1};
    pool.exitBody = [&] { finishedAtExit = finished.load(); };
    RequestCounts counts;
    ASSERT_TRUE(pool.startAndWaitRunning());
    for (int i = 0; i < 4; ++i) {
        pool.enqueue(new CountedRequest(counts,
                                        [&, i] {  // later threads finish later: a first-out exit hook shows
                                            ++started;
                                            gate.wait();
                                            std::this_thread::sleep_for(std::chrono::milliseconds(5 * i));
                                            ++finished;
                                        }),
                     "test");
    }
    ASSERT_TRUE(waitFor([&] { return started == 4; }));
    pool.stop();
    gate.open();
    ASSERT_TRUE(pool.waitUntilDone());
    EXPECT_EQ(pool.exits, 1);
    EXPECT_EQ(finishedAtExit, 4);
}

TEST(ReactorPool, StopDestroysQueuedRequestsWithoutRunningThem) {
    HookedPool pool(1);
    Gate gate;
    std::atomic<bool> blockerRunning{false};
    RequestCounts blocker, queued;
    ASSERT_TRUE(pool.startAndWaitRunning());
    ASSERT_TRUE(pool.enqueue(new CountedRequest(blocker, blockOn(gate, blockerRunning)), "blocker"));
    ASSERT_TRUE(waitFor([&] { return blockerRunning.load(); }));
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(pool.enqueue(new CountedRequest(queued), "queued"));

    pool.stop();
    // Dropped requests are destroyed by stop itself, before the running one ends.
    EXPECT_EQ(queued.destroyed, 5);
    EXPECT_EQ(queued.called, 0);
    gate.open();
    ASSERT_TRUE(pool.waitUntilDone());
    EXPECT_EQ(blocker.called, 1);
    EXPECT_EQ(blocker.destroyed, 1);
    EXPECT_EQ(queued.called, 0);
}

TEST(ReactorPool, RefusedRequestIsDestroyedAtOnce) {
    enum When { NEVER_STARTED, STOPPING, STOPPED };
    for (When when : {NEVER_STARTED, STOPPING, STOPPED}) {
        SCOPED_TRACE(when);
        HookedPool pool(1);
        Gate gate;
        RequestCounts blocker;
        if (when != NEVER_STARTED) {
            ASSERT_TRUE(pool.startAndWaitRunning());
            std::atomic<bool> running{false};
            pool.enqueue(new CountedRequest(blocker, blockOn(gate, running)), "blocker");
            ASSERT_TRUE(waitFor([&] { return running.load(); }));
            pool.stop();
            if (when == STOPPED) {
                gate.open();
                pool.waitUntilDone();
            }
        }
        RequestCounts refused;
        EXPECT_FALSE(pool.enqueue(new CountedRequest(refused), "refused"));
        EXPECT_EQ(refused.destroyed, 1);
        EXPECT_EQ(refused.called, 0);
        EXPECT_FALSE(pool.enqueue(nullptr, "null"));
        gate.open();
    }
}

TEST(ReactorPool, PoolThreadCannotWaitForNorRestartItsOwnPool) {
    HookedPool pool(2);
    RequestCounts counts;
    std::atomic<int> waitResult{-1}, startResult{-1}, insidePool{-1};
    ASSERT_TRUE(pool.startAndWaitRunning());
    EXPECT_FALSE(pool.isPoolThread());
    pool.enqueue(new CountedRequest(counts, [&] {
        insidePool = pool.isPoolThread();
        waitResult = pool.waitUntilDone();
        startResult = pool.start();
    }), "test");
    ASSERT_TRUE(waitFor([&] { return counts.called == 1; }));
    EXPECT_EQ(insidePool, 1);
    EXPECT_EQ(waitResult, 0);
    EXPECT_EQ(startResult, 0);
    EXPECT_EQ(pool.entries, 1);
}

TEST(ReactorPool, ThreadCountIsFixedWhileRunningAndConfigureRefusesANullHandle) {
    HookedPool pool(2);
    EXPECT_FALSE(pool.setNumThread(0));
    EXPECT_FALSE(pool.configure(TSHandle<ROConfiguration>()));
    ASSERT_TRUE(pool.startAndWaitRunning());
    EXPECT_FALSE(pool.setNumThread(5));
    pool.stop();
    pool.waitUntilDone();
    EXPECT_TRUE(pool.setNumThread(5));
    EXPECT_EQ(pool.getNumThread(), 5u);
}

TEST(ReactorPool, EveryRequestRunsOrIsDestroyedExactlyOnceWhenStopRacesEnqueue) {
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        RequestCounts counts;
        std::atomic<int> accepted{0};
        {
            HookedPool pool(3);
            ASSERT_TRUE(pool.startAndWaitRunning());
            std::vector<std::thread> producers;
            for (int p = 0; p < 4; ++p) {
                producers.emplace_back([&] {
                    for (int i = 0; i < 500; ++i) {
                        if (pool.enqueue(new CountedRequest(counts), "race")) ++accepted;
                    }
                });
            }
            waitFor([&] { return counts.created >= 600; });
            pool.stop();
            for (std::thread& t : producers) t.join();
            ASSERT_TRUE(pool.waitUntilDone());
        }
        EXPECT_EQ(counts.created, 2000);
        EXPECT_EQ(counts.destroyed, 2000);
        EXPECT_EQ(counts.called + counts.destroyedUncalled, 2000);
        EXPECT_LE(counts.called, accepted);
    }
}

TEST(ReactorPool, DestroyedWhileRunningJoinsItsThreadsAndFreesQueuedRequests) {
    RequestCounts counts;
    Gate gate;
    {
        StaticReactorTaskImpl pool("test.PlainPool");
        pool.setNumThread(2);
        ASSERT_TRUE(pool.start());
        ASSERT_TRUE(waitFor([&] { return pool.getTaskState() == Task::RUNNING; }));
        for (int i = 0; i < 2; ++i) pool.enqueue(new CountedRequest(counts, [&] { gate.wait(); }), "block");
        for (int i = 0; i < 10; ++i) pool.enqueue(new CountedRequest(counts), "queued");
        ASSERT_TRUE(waitFor([&] { return counts.created == 12; }));
        gate.open();
    }
    EXPECT_EQ(counts.destroyed, 12);
}

TEST(ReactorPool, StopDuringTheEntryHookIsNotUndoneByIt) {
    HookedPool pool(2);
    Gate entryGate, exitGate;
    std::atomic<bool> inExit{false};
    pool.entryBody = [&] { entryGate.wait(); };
    pool.exitBody = [&] {
        inExit = true;
        exitGate.wait();
    };
    ASSERT_TRUE(pool.start());
    ASSERT_TRUE(waitFor([&] { return pool.entries == 1; }));
    pool.stop();
    EXPECT_EQ(pool.getTaskState(), Task::STOPPING_STATE);
    entryGate.open();  // the entry hook now declares the task ready
    ASSERT_TRUE(waitFor([&] { return inExit.load(); }));
    EXPECT_EQ(pool.getTaskState(), Task::STOPPING_STATE);
    exitGate.open();
    ASSERT_TRUE(pool.waitUntilDone());
    EXPECT_EQ(pool.getTaskState(), Task::STOPPED_STATE);
}

TEST(ReactorPool, StartMayBeCalledHoldingALockTheEntryHookTakes) {
    // Start takes no lock the hooks run under (TSan reports any lock-order cycle).
    std::mutex hookLock;
    HookedPool pool(2);
    pool.entryBody = [&] { std::lock_guard<std::mutex> guard(hookLock); };
    for (int run = 1; run <= 2; ++run) {
        {
            std::lock_guard<std::mutex> guard(hookLock);
            ASSERT_TRUE(pool.start());
        }
        ASSERT_TRUE(waitFor([&] { return pool.getTaskState() == Task::RUNNING; }));
        pool.stop();
        ASSERT_TRUE(pool.waitUntilDone());
    }
    EXPECT_EQ(pool.entries, 2);
}

TEST(ReactorPool, FailedThreadCreationUndoesTheStartAndTheNextStartWorks) {
    // Threads made before the refusal -> the error's count of missing threads.
    for (int made : {0, 2}) {
        SCOPED_TRACE(made);
        corvane_test::LogCapture capture;
        HookedPool pool(4);
        std::atomic<int> attempts{0};
        setThreadCreationFaultForTest([&] { return attempts++ >= made; });
        EXPECT_FALSE(pool.start());
        setThreadCreationFaultForTest({});
        ASSERT_TRUE(pool.waitUntilDone());
        EXPECT_EQ(pool.getTaskState(), Task::STOPPED_STATE);
        EXPECT_EQ(pool.exits, made == 0 ? 0 : 1);  // the last thread out of a partial start runs the exit hook
        EXPECT_TRUE(capture.contains(40000, "StaticReactorTaskImpl::start : test.HookedPool : cannot make a thread (" +
                                                          std::to_string(4 - made) + " missing) : " + std::strerror(EAGAIN)));
        RequestCounts counts;
        EXPECT_FALSE(pool.enqueue(new CountedRequest(counts), "refused"));
        EXPECT_EQ(counts.destroyed, 1);
        ASSERT_TRUE(pool.startAndWaitRunning());
        ASSERT_TRUE(pool.enqueue(new CountedRequest(counts), "test"));
        ASSERT_TRUE(waitFor([&] { return counts.called == 1; }));
    }
}
