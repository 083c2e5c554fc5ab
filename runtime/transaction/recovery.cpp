// The commits of the dead: found by the lock table before it passes on a dead owner's locks, by new sessions, and by
// every statement on a file.
#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "runtime/lock/segment.h"
#include "runtime/store/path.h"
#include "runtime/transaction/finish.h"
#include "runtime/transaction/steps.h"

namespace velda::transaction {
namespace {

// After a failure, as of a full disk, nobody in this process tries again for so long.
constexpr std::int64_t RetryNanoseconds = 200'000'000;
std::atomic<std::int64_t> retry_at{0};

std::int64_t now_nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

bool may_try() { return now_nanoseconds() >= retry_at.load(std::memory_order_relaxed); }
void note_failure() { retry_at.store(now_nanoseconds() + RetryNanoseconds, std::memory_order_relaxed); }

// One at a time finishes what the dead left. Given back by an unlock: a child that is forked meanwhile shares the lock.
class DirectoryTurn {
  public:
    explicit DirectoryTurn(const std::string &directory)
        : directory_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          is_taken_(directory_.number() >= 0 && lock::lock_file(directory_.number(), LOCK_EX)) {}
    ~DirectoryTurn() {
        if (is_taken_) lock::lock_file(directory_.number(), LOCK_UN);
    }
    DirectoryTurn(const DirectoryTurn &) = delete;
    DirectoryTurn &operator=(const DirectoryTurn &) = delete;
    bool is_taken() const { return is_taken_; }

  private:
    const store::Descriptor directory_;
    const bool is_taken_;
};

// Nothing that goes wrong here may reach the statement that came by: the commit stays unfinished.
template <class Work>
bool try_to(Work &&work) {
    const Finishing finishing;
    if (!finishing.is_first() || !may_try()) return false;
    try {
        if (work()) return true;
    } catch (...) {
    }
    note_failure();
    return false;
}

bool finish_commit_of(lock::LockTable &table, lock::OwnerId dead) {
    return try_to([&] {
        const auto directory = redo_directory(table);
        if (!directory) return false;
        const DirectoryTurn turn(*directory);
        if (!turn.is_taken()) return false;
        if (!table.has_commit(dead)) return true;
        const std::string path = redo_path(table, *directory, dead);
        unlink((path + std::string(UnfinishedEnding)).c_str());
        death_point();
        if (!finish_redo(path)) return false;
        death_point();
        table.forget_commit(dead);
        return true;
    });
}

bool finish_file(const std::filesystem::path &path) {
    if (path.extension() == RedoEnding) return static_cast<bool>(finish_redo(path.string()));
    if (path.extension() == UnfinishedEnding) unlink(path.c_str());
    return true;
}

void finish_leftovers_in(lock::LockTable &table) {
    try_to([&] {
        const auto directory = redo_directory(table);
        if (!directory) return false;
        const DirectoryTurn turn(*directory);
        if (!turn.is_taken()) return false;
        if (table.are_leftovers_finished()) return true;
        const std::string own = std::filesystem::path(table.path()).filename();
        bool all = true;
        for (const auto &entry : std::filesystem::directory_iterator(*directory))
            if (!entry.path().filename().string().starts_with(own)) all = finish_file(entry.path()) && all;
        if (all) table.note_leftovers_finished();
        return all;
    });
}

}  // namespace

bool install_recovery() {
    lock::finish_commit = finish_commit_of;
    lock::finish_leftovers = finish_leftovers_in;
    return true;
}

}  // namespace velda::transaction
