#include "runtime/store/environment_table.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <vector>

#include "runtime/base/service_thread.h"

namespace velda::store {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds SnapshotPeriod{10};
constexpr std::chrono::milliseconds SyncPeriod{2000};

struct ByIdentity {
    bool operator()(const FileIdentity &a, const FileIdentity &b) const {
        return a.device != b.device ? a.device < b.device : a.inode < b.inode;
    }
};

struct Entry {
    std::unique_ptr<Environment> environment;
    int shares = 0;
};

class Table {
  public:
    // Never destroyed: the housekeeper and cells that outlive main() may still use it.
    static Table &instance() {
        static Table *const table = new Table;
        return *table;
    }

    Result<std::shared_ptr<Environment>> acquire(const std::string &path) {
        struct stat status;
        if (stat(path.c_str(), &status) < 0) return system_error(errno, "cannot open file", path);
        const std::lock_guard lock(mutex_);
        auto at = entries_.find({status.st_dev, status.st_ino});
        if (at == entries_.end()) {
            auto opened = Environment::open(path);
            if (!opened) return opened.error();
            const FileIdentity identity = (*opened)->identity();
            at = entries_.try_emplace(identity).first;
            if (!at->second.environment) at->second.environment = std::move(*opened);
        }
        return share(at->second);
    }

    void watch_snapshots() {
        if (!snapshots_.load()) wake(snapshots_);
    }
    void watch_updates() {
        if (!updates_.load()) wake(updates_);
    }
    void release_snapshots() {
        if (snapshots_.load()) sweep_snapshots(true);
    }

  private:
    Table() {
        pthread_atfork([] { instance().before_fork(); }, [] { instance().after_fork(); },
                       [] { instance().in_child(); });
        std::atexit([] { instance().leave_clean(); });
    }

    std::shared_ptr<Environment> share(Entry &entry) {
        ++entry.shares;
        return {entry.environment.get(), [this](Environment *environment) { release(environment); }};
    }

    // Closing happens under the mutex: whoever opens the file again waits until LMDB has let go of it.
    void release(Environment *environment) {
        const std::lock_guard lock(mutex_);
        const auto at = entries_.find(environment->identity());
        if (--at->second.shares == 0) entries_.erase(at);
    }

    std::vector<std::shared_ptr<Environment>> all() {
        const std::lock_guard lock(mutex_);
        std::vector<std::shared_ptr<Environment>> environments;
        for (auto &[identity, entry] : entries_) environments.push_back(share(entry));
        return environments;
    }

    // Short and without waits, so it runs under the mutex.
    bool sweep_snapshots(bool all_of_them) {
        const std::lock_guard lock(mutex_);
        bool left = false;
        for (auto &[identity, entry] : entries_) left |= entry.environment->sweep_readers(all_of_them);
        return left;
    }
    bool sweep_updates() {
        bool left = false;
        for (const auto &environment : all()) left |= environment->sweep_updates();
        return left;
    }

    void wake(std::atomic<bool> &reason) {
        const std::lock_guard lock(wake_mutex_);
        reason.store(true);
        if (!started_) service_thread([this] { keep_house(); }).detach();
        started_ = true;
        wake_.notify_one();
    }

    void keep_house() {
        pthread_setname_np(pthread_self(), "velda-store");
        auto next_sync = Clock::now() + SyncPeriod;
        for (;;) {
            wait_for_work(next_sync);
            if (snapshots_.load()) sweep(snapshots_, [this] { return sweep_snapshots(false); });
            if (Clock::now() < next_sync) continue;
            if (updates_.load()) sweep(updates_, [this] { return sweep_updates(); });
            next_sync = Clock::now() + SyncPeriod;
        }
    }

    void wait_for_work(Clock::time_point &next_sync) {
        std::unique_lock lock(wake_mutex_);
        if (!snapshots_.load() && !updates_.load()) {
            wake_.wait(lock, [this] { return snapshots_.load() || updates_.load(); });
            next_sync = Clock::now() + SyncPeriod;
        }
        const auto until = snapshots_.load() ? Clock::now() + SnapshotPeriod : next_sync;
        const bool had_snapshots = snapshots_.load();
        wake_.wait_until(lock, until, [this, had_snapshots] { return snapshots_.load() != had_snapshots; });
    }

    // The reason is dropped before the sweep, so that whoever raises it during the sweep is seen by the next one.
    template <class Sweep>
    void sweep(std::atomic<bool> &reason, Sweep &&look) {
        reason.store(false);
        if (look()) reason.store(true);
    }

    void leave_clean() {
        for (const auto &environment : all()) environment->leave_clean();
    }

    void before_fork() {
        mutex_.lock();
        wake_mutex_.lock();
    }
    void after_fork() {
        wake_mutex_.unlock();
        mutex_.unlock();
    }
    void in_child() {
        started_ = false;
        snapshots_.store(false);
        updates_.store(false);
        new (&wake_) std::condition_variable;  // its waiter stayed in the parent
        after_fork();
        for (auto &[identity, entry] : entries_) entry.environment->forget_parent();
    }

    std::mutex mutex_;
    std::map<FileIdentity, Entry, ByIdentity> entries_;

    std::mutex wake_mutex_;
    std::condition_variable wake_;
    bool started_ = false;
    std::atomic<bool> snapshots_{false};
    std::atomic<bool> updates_{false};
};

}  // namespace

Result<std::shared_ptr<Environment>> acquire_environment(const std::string &path) {
    return Table::instance().acquire(path);
}

void watch_snapshots() { Table::instance().watch_snapshots(); }
void watch_updates() { Table::instance().watch_updates(); }
void release_snapshots() { Table::instance().release_snapshots(); }

}  // namespace velda::store
