// table_fixture.h - a lock table of its own in a scratch directory, and children that die in the middle of changing it.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "runtime/lock/death_point.h"
#include "runtime/lock/lock_table.h"
#include "tests/support/scratch.h"

namespace velda::test {

inline constexpr store::FileIdentity TableFile{3, 5};

inline lock::LockName record_name(const std::string &key) { return {LockKind::Record, TableFile, key}; }

class TableTest : public testing::Test {
  protected:
    void SetUp() override {
        auto attached = lock::LockTable::attach(directory_ / "table");
        ASSERT_TRUE(attached) << attached.error().message;
        table_ = std::move(*attached);
        owner_ = new_owner();
    }
    void TearDown() override {
        if (table_) table_->retire(owner_);
    }

    lock::Owner new_owner() {
        static std::atomic<std::uint32_t> context{0};
        auto owner = table_->register_owner(getpid(), ++context);
        if (!owner) throw std::runtime_error(owner.error().message);
        return std::move(*owner);
    }
    bool take(lock::Owner &owner, const std::string &key) {
        return table_->take(owner, record_name(key)).result == LockResult::Granted;
    }
    bool release(lock::Owner &owner, const std::string &key) { return table_->release(owner, record_name(key)); }
    LockResult wait_for(lock::Owner &owner, const std::string &key, std::function<bool()> interrupted) {
        return table_->take_waiting(owner, record_name(key), {std::move(interrupted), events_, signals_}).result;
    }
    LockResult wait_for(lock::Owner &owner, const std::string &key) {
        return wait_for(owner, key, [] { return false; });
    }

    // Keys that share a stripe, so that what is said of one stripe can be forced.
    static std::vector<std::string> keys_of_stripe(std::size_t stripe, std::size_t count) {
        std::vector<std::string> keys;
        for (int i = 0; keys.size() < count; ++i) {
            std::string key = "key" + std::to_string(i);
            if (lock::stripe_of(lock::hash_of(record_name(key))) == stripe) keys.push_back(std::move(key));
        }
        return keys;
    }

    // Runs `body` in a child as an owner of its own.
    pid_t spawn(const std::function<void(lock::Owner &)> &body) {
        const pid_t child = fork();
        if (child != 0) return child;
        lock::Owner owner = new_owner();
        body(owner);
        _exit(0);
    }
    // The same with the child's death at its n-th step; true when it died before the end of `body`.
    bool dies_at_step(int n, const std::function<void(lock::Owner &)> &body) {
        const pid_t child = spawn([&](lock::Owner &owner) {
            lock::steps_to_live = n;
            body(owner);
        });
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "exit " << WEXITSTATUS(status);
        return WIFSIGNALED(status);
    }
    // A child that is an owner already and stands before `body` until it is resumed.
    pid_t spawn_stopped(const std::function<void(lock::Owner &)> &body) {
        const pid_t child = spawn([&](lock::Owner &owner) {
            raise(SIGSTOP);
            body(owner);
        });
        await_stop(child);
        return child;
    }
    static void await_stop(pid_t child) { waitpid(child, nullptr, WUNTRACED); }
    static void stop(pid_t child) {
        kill(child, SIGSTOP);
        await_stop(child);
    }
    // Lets it run to its end; true when it died before that.
    static bool resumed_dies(pid_t child) {
        int status = 0;
        kill(child, SIGCONT);
        waitpid(child, &status, 0);
        return WIFSIGNALED(status);
    }
    static void kill_child(pid_t child) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    static bool ends_well(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    // Waits until so many owners are in some queue.
    void await_waiters(std::size_t count) {
        for (int tries = 0; tries < 5000; ++tries) {
            std::size_t waiting = 0;
            for (const LockOwnerInfo &owner : table_->all_owners()) waiting += owner.waits;
            if (waiting == count) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        FAIL() << "no " << count << " waiters";
    }

    // After deaths: the table is whole, and each of the keys can be had.
    void expect_whole_and_free(const std::vector<std::string> &keys) {
        table_->reap_all();
        EXPECT_EQ(table_->find_fault(), "");
        for (const std::string &key : keys) EXPECT_TRUE(take(owner_, key)) << key;
        EXPECT_EQ(table_->find_fault(), "");
        for (const std::string &key : keys) release(owner_, key);
        EXPECT_EQ(table_->find_fault(), "");
    }

    ScratchDirectory directory_;
    std::unique_ptr<lock::LockTable> table_;
    lock::Owner owner_;
    std::atomic<std::uint32_t> events_{0};
    std::atomic<std::uint32_t> signals_{0};
};

// Memory that children share with the test.
template <class T>
class SharedMemory {
  public:
    SharedMemory()
        : content_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T()) {}
    ~SharedMemory() { munmap(content_, sizeof(T)); }
    SharedMemory(const SharedMemory &) = delete;
    SharedMemory &operator=(const SharedMemory &) = delete;
    T *operator->() { return content_; }
    T &operator*() { return *content_; }

  private:
    T *content_;
};

}  // namespace velda::test
