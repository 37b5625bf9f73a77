#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/SharedTaskImpl.h"

using namespace Tarvik;

namespace {

class CountingSharedTask : public SharedTaskImpl {
public:
    explicit CountingSharedTask(bool in_bStopOnLastUser) : SharedTaskImpl(in_bStopOnLastUser) {}

    std::atomic<int> starts{0}, stops{0}, kills{0}, waits{0};
    std::atomic<bool> startSucceeds{true};
    std::atomic<int> running{0};  // hook starts minus hook stops; never above 1

protected:
    bool sharedStart() override {
        ++starts;
        if (!startSucceeds) return false;
        ++running;
        return true;
    }
    bool sharedStop() override {
        ++stops;
        if (running > 0) --running;
        return true;
    }
    bool sharedKill() override {
        ++kills;
        running = 0;
        return true;
    }
    bool sharedWaitUntilDone() override {
        ++waits;
        return true;
    }
};

}  // namespace

TEST(SharedTask, CallSequencesReachTheHooksOnlyWhenTheyShould) {
    // Each step: 's'tart, 'f' (start whose hook fails), sto'p', 'k'ill or 'w'ait, its result,
    // then the users and hook counts (start, stop, kill, wait) after it.
    struct Step {
        char op;
        bool result;
        int users, starts, stops, kills, waits;
    };
    const struct {
        const char* what;
        bool stopOnLastUser;
        std::vector<Step> steps;
    } cases[] = {
        {"two users: only the last stop reaches the hook", true,
         {{'s', true, 1, 1, 0, 0, 0}, {'s', true, 2, 1, 0, 0, 0}, {'p', true, 1, 1, 0, 0, 0},
          {'w', false, 1, 1, 0, 0, 0}, {'p', true, 0, 1, 1, 0, 0}, {'w', true, 0, 1, 1, 0, 1}}},
        {"restart after the last stop starts again", true,
         {{'s', true, 1, 1, 0, 0, 0}, {'p', true, 0, 1, 1, 0, 0}, {'s', true, 1, 2, 1, 0, 0},
          {'p', true, 0, 2, 2, 0, 0}}},
        {"every stop reaches the hook when not waiting for the last user", false,
         {{'s', true, 1, 1, 0, 0, 0}, {'s', true, 2, 1, 0, 0, 0}, {'p', true, 0, 1, 1, 0, 0},
          {'w', true, 0, 1, 1, 0, 1}, {'s', true, 1, 2, 1, 0, 1}}},
        {"kill forgets every user", true,
         {{'s', true, 1, 1, 0, 0, 0}, {'s', true, 2, 1, 0, 0, 0}, {'k', true, 0, 1, 0, 1, 0},
          {'w', true, 0, 1, 0, 1, 1}, {'s', true, 1, 2, 0, 1, 1}}},
        {"a failed start leaves no user and the next start tries again", true,
         {{'f', false, 0, 1, 0, 0, 0}, {'f', false, 0, 2, 0, 0, 0}, {'s', true, 1, 3, 0, 0, 0}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CountingSharedTask task(c.stopOnLastUser);
        int index = 0;
        for (const Step& step : c.steps) {
            SCOPED_TRACE(std::string("step ") + std::to_string(index++) + " " + step.op);
            bool result = false;
            task.startSucceeds = step.op != 'f';
            switch (step.op) {
                case 's':
                case 'f': result = task.start(); break;
                case 'p': result = task.stop(); break;
                case 'k': result = task.kill(); break;
                case 'w': result = task.waitUntilDone(); break;
            }
            EXPECT_EQ(result, step.result);
            EXPECT_EQ(task.getUserCount(), step.users);
            EXPECT_EQ(task.starts, step.starts);
            EXPECT_EQ(task.stops, step.stops);
            EXPECT_EQ(task.kills, step.kills);
            EXPECT_EQ(task.waits, step.waits);
        }
    }
}

TEST(SharedTask, ConcurrentUsersBalanceStartsAndStops) {
    CountingSharedTask task(true);
    std::atomic<int> overlap{0};
    std::vector<std::thread> users;
    for (int t = 0; t < 6; ++t) {
        users.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                if (!task.start()) continue;
                if (task.running != 1) ++overlap;  // a user holds the task: it is started once
                task.stop();
            }
        });
    }
    for (std::thread& u : users) u.join();
    EXPECT_EQ(overlap, 0);
    EXPECT_EQ(task.getUserCount(), 0);
    EXPECT_EQ(task.starts, task.stops);
    EXPECT_EQ(task.running, 0);
}
