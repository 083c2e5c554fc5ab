// A process may die between any two steps of a change of the table: for every n, a child dies at its n-th step.
#include <random>

#include "tests/runtime/lock/table_fixture.h"
#include "tests/support/seed.h"

using namespace velda;
using namespace velda::test;

namespace {

constexpr int ManySteps = 100000;

}  // namespace

class Death : public TableTest {
  protected:
    // Calls `round` with 1, 2, 3 ... until it says several times that the child outlived its work: once may be because
    // another process was faster. At least `steps` deaths must be seen.
    static void at_every_step(int steps, const std::function<bool(int)> &round) {
        int deaths = 0, survivals = 0;
        for (int n = 1; n < ManySteps && survivals < 4 && !HasFailure(); ++n) {
            if (round(n)) {
                ++deaths;
                survivals = 0;
            } else {
                ++survivals;
            }
        }
        EXPECT_GE(deaths, steps);
    }

    pid_t spawn_waiter(const std::string &key) {
        return spawn([&](lock::Owner &owner) { _exit(wait_for(owner, key) == LockResult::Granted ? 0 : 1); });
    }
    // Holds the keys until it is killed.
    pid_t spawn_holder(const std::vector<std::string> &keys) {
        const pid_t holder = spawn([&](lock::Owner &owner) {
            for (const std::string &key : keys) take(owner, key);
            raise(SIGSTOP);
        });
        await_stop(holder);
        return holder;
    }
};

TEST_F(Death, WhileRegisteringTakingAndReleasingLeavesTheTableWhole) {
    const std::vector<std::string> keys = {"a", "b", std::string(3000, 'x'), std::string(65536, 'y')};
    at_every_step(30, [&](int n) {
        const bool died = dies_at_step(n, [&](lock::Owner &owner) {
            for (const std::string &key : keys) take(owner, key);
            for (const std::string &key : keys) release(owner, key);
            table_->retire(owner);
            lock::Owner again = new_owner();
            take(again, keys[0]);
        });
        expect_whole_and_free(keys);
        return died;
    });
}

TEST_F(Death, WhileTheBucketsGrowLosesNoLockOfOthers) {
    const auto keys = keys_of_stripe(17, 257);
    for (std::size_t i = 0; i < 256; ++i) ASSERT_TRUE(take(owner_, keys[i]));
    // Growth is over as soon as one child has done it: each round needs a table that has not grown.
    for (const int n : {1, 2, 3, 50, 128, 255, 256, 257, 258, 259, 260, 265}) {
        TearDown();
        SetUp();
        for (std::size_t i = 0; i < 256; ++i) ASSERT_TRUE(take(owner_, keys[i]));
        ASSERT_TRUE(dies_at_step(n, [&](lock::Owner &owner) {
            take(owner, keys[256]);
            for (;;) lock::death_point();
        }));
        table_->reap_all();
        EXPECT_EQ(table_->find_fault(), "") << n;
        for (std::size_t i = 0; i < 256; ++i) ASSERT_TRUE(table_->holds(owner_, record_name(keys[i]))) << n;
        EXPECT_TRUE(take(owner_, keys[256])) << n;
    }
}

TEST_F(Death, OfAReleasingHolderLeavesTheLockToTheFirstWaiter) {
    at_every_step(6, [&](int n) {
        const pid_t holder = spawn([&](lock::Owner &owner) {
            if (!take(owner, "K")) _exit(1);
            raise(SIGSTOP);
            lock::steps_to_live = n;
            release(owner, "K");
        });
        await_stop(holder);
        const pid_t first = spawn_waiter("K");
        await_waiters(1);
        const pid_t second = spawn_waiter("K");
        await_waiters(2);
        const bool died = resumed_dies(holder);
        EXPECT_TRUE(ends_well(first)) << n;
        EXPECT_TRUE(ends_well(second)) << n;
        expect_whole_and_free({"K"});
        return died;
    });
}

TEST_F(Death, OfAWaiterWhileItQueuesLeavesTheOthersInLine) {
    at_every_step(4, [&](int n) {
        EXPECT_TRUE(take(owner_, "K"));
        const pid_t before = spawn_waiter("K");
        await_waiters(1);
        const bool died = dies_at_step(n, [&](lock::Owner &owner) {
            wait_for(owner, "K", [] { return true; });  // queues, and leaves the queue again
        });
        const pid_t behind = spawn_waiter("K");
        await_waiters(2);
        EXPECT_EQ(table_->find_fault(), "") << n;
        EXPECT_TRUE(release(owner_, "K"));
        EXPECT_TRUE(ends_well(before)) << n;
        EXPECT_TRUE(ends_well(behind)) << n;
        expect_whole_and_free({"K"});
        return died;
    });
}

TEST_F(Death, OfAReaperIsMadeGoodByTheNext) {
    const std::vector<std::string> keys = {"A", "B", "C", "D"};
    at_every_step(40, [&](int n) {
        const pid_t dead = spawn_holder(keys);
        const pid_t reaper = spawn_stopped([&](lock::Owner &) {
            lock::steps_to_live = n;
            table_->reap_all();
        });
        std::vector<pid_t> waiters;
        for (const char *key : {"A", "B"}) {
            waiters.push_back(spawn_waiter(key));
            await_waiters(waiters.size());
        }
        for (const pid_t waiter : waiters) stop(waiter);  // they do not reap first
        kill_child(dead);
        const bool died = resumed_dies(reaper);
        for (const pid_t waiter : waiters) EXPECT_FALSE(resumed_dies(waiter)) << n;
        expect_whole_and_free(keys);
        return died;
    });
}

TEST_F(Death, WhileRebuildingAStripeIsMadeGoodByTheNext) {
    const auto keys = keys_of_stripe(99, 6);
    for (std::size_t i = 0; i < 4; ++i) ASSERT_TRUE(take(owner_, keys[i]));
    const pid_t waiter = spawn_waiter(keys[0]);
    await_waiters(1);
    at_every_step(12, [&](int n) {
        const pid_t rebuilder = spawn_stopped([&](lock::Owner &owner) {
            lock::steps_to_live = n;
            take(owner, keys[5]);
        });
        EXPECT_TRUE(dies_at_step(3, [&](lock::Owner &owner) { take(owner, keys[4]); }));  // with the mutex
        const bool died = resumed_dies(rebuilder);
        table_->reap_all();
        EXPECT_EQ(table_->find_fault(), "") << n;
        for (std::size_t i = 0; i < 4; ++i) EXPECT_TRUE(table_->holds(owner_, record_name(keys[i]))) << n;
        return died;
    });
    EXPECT_TRUE(release(owner_, keys[0]));
    EXPECT_TRUE(ends_well(waiter));
}

// --- kills at random ---------------------------------------------------------------------------------------

namespace {

constexpr int Workers = 6;
constexpr int Keys = 3;

struct Arena {
    std::atomic<int> inside[Keys];    // number of the worker that holds the lock, 0 none
    std::atomic<bool> killed[20000];  // by worker number
    std::atomic<int> violations;
    std::atomic<long> grants;
};

}  // namespace

TEST_F(Death, ByKillsAtRandomNeverGivesALockToTwoNorLosesAWaiter) {
    SharedMemory<Arena> arena;
    auto random = seeded_random();
    const auto worker_seed = random();
    int number = 0;
    const auto work = [&](int me) {
        return spawn([&, me](lock::Owner &owner) {
            std::mt19937_64 own(worker_seed + static_cast<unsigned>(me));
            for (;;) {
                const auto key = own() % Keys;
                const std::string name(1, static_cast<char>('a' + key));
                const bool granted = own() % 2 ? wait_for(owner, name) == LockResult::Granted : take(owner, name);
                if (!granted) continue;
                const int before = arena->inside[key].exchange(me);
                if (before != 0 && !arena->killed[before]) ++arena->violations;
                ++arena->grants;
                arena->inside[key] = 0;
                release(owner, name);
            }
        });
    };
    std::vector<std::pair<pid_t, int>> workers;
    for (int i = 0; i < Workers; ++i) {
        ++number;
        workers.emplace_back(work(number), number);
    }
    for (int kills = 0; kills < 400; ++kills) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        auto &[pid, me] = workers[random() % Workers];
        arena->killed[me] = true;
        kill_child(pid);
        me = ++number;
        pid = work(me);
    }
    // Every key is still passed around: no waiter sleeps for ever.
    const long grants = arena->grants;
    for (int tries = 0; tries < 3000 && arena->grants < grants + 100; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_GE(arena->grants, grants + 100);
    for (const auto &[pid, me] : workers) kill_child(pid);
    EXPECT_EQ(arena->violations, 0);
    expect_whole_and_free({"a", "b", "c"});
}
