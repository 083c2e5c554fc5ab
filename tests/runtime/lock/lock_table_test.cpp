#include "runtime/lock/lock_table.h"

#include <filesystem>
#include <map>
#include <random>

#include "tests/runtime/lock/table_fixture.h"
#include "tests/support/seed.h"

using namespace velda;
using namespace velda::test;

class Table : public TableTest {};

TEST_F(Table, RandomOperationsAgreeWithAModel) {
    auto random = seeded_random();
    std::vector<lock::Owner> owners;
    for (int i = 0; i < 4; ++i) owners.push_back(new_owner());
    std::map<std::string, std::size_t> holder;  // the model: who holds which key
    for (int step = 0; step < 100000; ++step) {
        const std::size_t who = random() % owners.size();
        const std::size_t length = random() % 20 == 0 ? random() % 9000 : random() % 3;
        const std::string key = std::to_string(random() % 500) + std::string(length, 'k');
        const auto held = holder.find(key);
        switch (random() % 40) {
            case 0:
                table_->release_if(owners[who], [](const lock::Entry &) { return true; });
                std::erase_if(holder, [who](const auto &item) { return item.second == who; });
                break;
            case 1:
            case 2:
            case 3:
            case 4:
            case 5:
            case 6:
            case 7:
            case 8:
            case 9:
            case 10:
                ASSERT_EQ(release(owners[who], key), held != holder.end() && held->second == who);
                if (held != holder.end() && held->second == who) holder.erase(held);
                break;
            default:
                ASSERT_EQ(take(owners[who], key), held == holder.end() || held->second == who);
                holder.try_emplace(key, who);
        }
    }
    EXPECT_EQ(table_->find_fault(), "");
    const auto locks = table_->all_locks();
    ASSERT_EQ(locks.size(), holder.size());
    for (const LockInfo &found : locks) {
        ASSERT_TRUE(holder.contains(found.key));
        EXPECT_EQ(found.holder.context, owners[holder[found.key]].slot->context);
    }
    for (lock::Owner &owner : owners) table_->retire(owner);
    EXPECT_TRUE(table_->all_locks().empty());
}

TEST_F(Table, HoldsAMillionLocksAndFreesThemAll) {
    constexpr int Million = 1'000'000;
    for (int i = 0; i < Million; ++i) ASSERT_TRUE(take(owner_, "customer*" + std::to_string(i)));
    lock::Owner other = new_owner();
    for (int i = 0; i < Million; i += 999) {
        ASSERT_FALSE(take(other, "customer*" + std::to_string(i)));
        ASSERT_TRUE(table_->holds(owner_, record_name("customer*" + std::to_string(i))));
    }
    EXPECT_TRUE(take(other, "customer*" + std::to_string(Million)));
    EXPECT_EQ(owner_.slot->lock_count, 1'000'000u);
    EXPECT_EQ(table_->find_fault(), "");
    table_->release_if(owner_, [](const lock::Entry &) { return true; });
    EXPECT_EQ(table_->all_locks().size(), 1u);
    EXPECT_EQ(table_->find_fault(), "");
    table_->retire(other);
}

TEST_F(Table, ThreadsThatContendExcludeOneAnother) {
    constexpr int Threads = 4;
    constexpr int Turns = 2000;
    int unprotected = 0;  // guarded by the lock alone
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            lock::Owner owner = new_owner();
            for (int turn = 0; turn < Turns; ++turn) {
                ASSERT_EQ(wait_for(owner, "K"), LockResult::Granted);
                ++unprotected;
                ASSERT_TRUE(release(owner, "K"));
                take(owner, "own" + std::to_string(turn % 10) + "*" + std::to_string(owner.id));
            }
            table_->retire(owner);
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(unprotected, Threads * Turns);
    EXPECT_EQ(table_->find_fault(), "");
}

TEST_F(Table, ASlotIsUsedAgainWithANewIdentity) {
    lock::Owner first = new_owner();
    const lock::OwnerId old = first.id;
    lock::OwnerSlot *const slot = first.slot;
    table_->retire(first);
    lock::Owner second = new_owner();
    EXPECT_EQ(second.slot, slot);
    EXPECT_NE(second.id, old);
    table_->retire(second);
}

TEST_F(Table, ManyOwnersGetSlots) {
    constexpr int Threads = 20;
    constexpr int OwnersEach = 50;
    std::atomic<int> registered{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            std::vector<lock::Owner> owners;
            for (int n = 0; n < OwnersEach; ++n) owners.push_back(new_owner());
            registered += OwnersEach;
            while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            for (lock::Owner &owner : owners) table_->retire(owner);
        });
    }
    while (registered != Threads * OwnersEach) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(table_->all_owners().size(), Threads * OwnersEach + 1u);
    done = true;
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(table_->all_owners().size(), 1u);
}

TEST_F(Table, BlocksOfReleasedLocksAreUsedAgain) {
    const auto size = [&] { return std::filesystem::file_size(table_->path()); };
    const auto churn = [&] {
        for (int i = 0; i < 2000; ++i) {
            ASSERT_TRUE(take(owner_, std::string(static_cast<std::size_t>(i % 300), 'k')));
            ASSERT_TRUE(release(owner_, std::string(static_cast<std::size_t>(i % 300), 'k')));
        }
    };
    churn();
    const auto before = size();
    churn();
    EXPECT_EQ(size(), before);
}

// --- waits -------------------------------------------------------------------------------------------------

TEST_F(Table, AnInterruptedWaitTakesNothingAndLeavesTheLine) {
    ASSERT_TRUE(take(owner_, "K"));
    lock::Owner other = new_owner();
    EXPECT_EQ(wait_for(other, "K", [] { return true; }), LockResult::Interrupted);
    EXPECT_TRUE(release(owner_, "K"));
    EXPECT_FALSE(table_->holds(other, record_name("K")));
    EXPECT_EQ(table_->find_fault(), "");
    EXPECT_TRUE(take(owner_, "K"));
    table_->retire(other);
}

TEST_F(Table, AWordThatMovesEndsTheSleep) {
    ASSERT_TRUE(take(owner_, "K"));
    std::thread waiter([&] {
        lock::Owner owner = new_owner();
        EXPECT_EQ(wait_for(owner, "K", [&] { return events_ != 0; }), LockResult::Interrupted);
        table_->retire(owner);
    });
    await_waiters(1);
    events_ = 1;
    wake_sleepers(events_);
    waiter.join();
}
