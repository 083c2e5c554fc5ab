#include "runtime/journal/sync.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/base/process_number.h"
#include "runtime/base/service_thread.h"
#include "runtime/journal/append_lock.h"
#include "runtime/journal/injection.h"
#include "runtime/journal/writer.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/process.h"

namespace velda::journal {

namespace {

class SyncLock {
  public:
    explicit SyncLock(pthread_mutex_t &mutex) : mutex_(mutex) {
        if (pthread_mutex_lock(&mutex_) == EOWNERDEAD) pthread_mutex_consistent(&mutex_);
    }
    ~SyncLock() { pthread_mutex_unlock(&mutex_); }
    SyncLock(const SyncLock &) = delete;
    SyncLock &operator=(const SyncLock &) = delete;

  private:
    pthread_mutex_t &mutex_;
};

bool covers(const WrittenTo &synced, const WrittenTo &wanted) {
    return synced.time_first > wanted.time_first ||
           (synced.time_first == wanted.time_first && synced.stream >= wanted.stream);
}

// One file after the other would wait for the disk once for each: in one go they wait together.
class FilesToSync {
  public:
    explicit FilesToSync(std::vector<int> descriptors) : descriptors_(std::move(descriptors)) {}
    ~FilesToSync() {
        for (const int descriptor : descriptors_) close(descriptor);
    }
    FilesToSync(const FilesToSync &) = delete;
    FilesToSync &operator=(const FilesToSync &) = delete;

    // 0, or the error of one of them.
    int sync() {
        for (std::size_t n = 0; n < descriptors_.size(); ++n) note(injected_failure(Step::Sync));
        std::vector<std::thread> helpers;
        for (std::size_t n = 1; n < descriptors_.size(); ++n) start(helpers, descriptors_[n]);
        if (!descriptors_.empty()) sync_file(descriptors_[0]);
        for (std::thread &helper : helpers) helper.join();
        return error_.load();
    }

  private:
    void start(std::vector<std::thread> &helpers, int descriptor) {
        try {
            helpers.push_back(service_thread([this, descriptor] { sync_file(descriptor); }));
        } catch (const std::system_error &) {  // no thread is to be had
            sync_file(descriptor);
        }
    }
    void sync_file(int descriptor) {
        if (fdatasync(descriptor) != 0) note(errno);
    }
    void note(int error) {
        int none = 0;
        if (error != 0) error_.compare_exchange_strong(none, error);
    }

    const std::vector<int> descriptors_;
    std::atomic<int> error_{0};
};

// The third to fifth word: syncs by time, at transaction ends, and records that they covered.
void count(VELDALoggerConfig &config, SyncReason reason, std::int64_t records) {
    std::uint32_t &syncs = config.statistics[reason == SyncReason::Time ? 2 : 3];
    store_word(syncs, syncs + 1);
    store_word(config.statistics[4], config.statistics[4] + static_cast<std::uint32_t>(records));
}

// --- the keeper: a thread that lives while this process has appended something that no sync has followed ---------------

struct Unsynced {
    Configuration *configuration;
    std::time_t next_try;
};

struct Keeper {
    std::mutex mutex;
    std::vector<Unsynced> unsynced;
    std::atomic<pid_t> process{0};  // in which the thread runs; a forked child has none
    std::atomic<Configuration *> latest{nullptr};
};

Keeper &keeper() {
    static auto &keeper = *new Keeper;
    return keeper;
}

bool is_unsynced(const Configuration &configuration) {
    const WriterState &state = writer_state(*configuration.record);
    return !covers(load_written(state.synced), written_now(state));
}

std::int64_t sync_interval(const Configuration &configuration) {
    return std::max<std::int64_t>(1, load_word(configuration.record->syncSeconds));
}

bool is_sync_due(const Configuration &configuration) {
    return std::time(nullptr) >=
           load_word(writer_state(*configuration.record).last_sync) + sync_interval(configuration);
}

// What cannot be synced now, such as a set whose file is gone, is tried again later.
void sync_if_due(DP *dp, Unsynced &entry) {
    if (std::time(nullptr) < entry.next_try || !is_sync_due(*entry.configuration)) return;
    if (!sync_journal(dp, *entry.configuration, SyncReason::Time))
        entry.next_try = std::time(nullptr) + sync_interval(*entry.configuration);
}

// The thread ends when there is nothing left to do.
bool has_work(std::vector<Unsynced> &entries) {
    Keeper &its = keeper();
    const std::lock_guard guard(its.mutex);
    std::erase_if(its.unsynced, [](const Unsynced &entry) { return !is_unsynced(*entry.configuration); });
    entries = its.unsynced;
    if (!entries.empty()) return true;
    its.latest.store(nullptr);
    its.process.store(0);
    return false;
}

void note_tries(const std::vector<Unsynced> &entries) {
    Keeper &its = keeper();
    const std::lock_guard guard(its.mutex);
    for (const Unsynced &entry : entries)
        for (Unsynced &kept : its.unsynced)
            if (kept.configuration == entry.configuration) kept.next_try = entry.next_try;
}

void keep() {
    constexpr timespec BetweenLooks = {0, 200'000'000};
    DP *const dp = velda_getdp();
    std::vector<Unsynced> entries;
    while (has_work(entries)) {
        for (Unsynced &entry : entries) sync_if_due(dp, entry);
        note_tries(entries);
        nanosleep(&BetweenLooks, nullptr);
    }
}

// A process that ends does what its keeper would do next.
void sync_at_exit() {
    Configuration *const configuration = keeper().latest.load();
    if (!configuration || keeper().process.load() != process_number()) return;
    if (is_unsynced(*configuration) && is_sync_due(*configuration))
        (void)sync_journal(velda_getdp(), *configuration, SyncReason::Time);
}

// A fork waits until the thread is between its looks: the child has no such thread that could leave the mutex.
void hold_keeper() { keeper().mutex.lock(); }
void leave_keeper() { keeper().mutex.unlock(); }

// Registered before the store's handlers, so called behind them: appends take the keeper's mutex within the store's.
[[maybe_unused]] const int fork_handler_installed = pthread_atfork(hold_keeper, leave_keeper, leave_keeper);

void add_to_keeper(Configuration &configuration) {
    Keeper &its = keeper();
    const std::lock_guard guard(its.mutex);
    static const int registered = std::atexit(sync_at_exit);
    (void)registered;
    const bool is_known = std::any_of(its.unsynced.begin(), its.unsynced.end(),
                                      [&](const Unsynced &entry) { return entry.configuration == &configuration; });
    if (!is_known) its.unsynced.push_back({&configuration, 0});
    its.latest.store(&configuration);
    if (its.process.exchange(process_number()) != process_number()) service_thread(keep).detach();
}

}  // namespace

Result<void> sync_journal(DP *dp, Configuration &configuration, SyncReason reason) {
    if (const int failed = prepare_writer_state(dp, configuration))
        return system_error(failed, "cannot lock journal", configuration.path);
    WriterState &state = writer_state(*configuration.record);
    const WrittenTo wanted = written_now(state);
    const SyncLock lock(state.sync_lock);
    if (covers(state.synced, wanted)) return {};
    const WrittenTo before = state.synced;
    auto open = open_for_sync(configuration, before, reason == SyncReason::Time);
    if (!open) return open.error();
    FilesToSync files(std::move(open->descriptors));
    if (const int failed = files.sync()) return system_error(failed, "cannot sync journal", configuration.path);
    store_written(state.synced, open->written);
    store_word<std::int64_t>(state.last_sync, std::time(nullptr));
    const std::int64_t behind = before.time_first == open->written.time_first ? before.records : 0;
    count(*configuration.record, reason, open->written.records - behind);
    return {};
}

void watch_unsynced(Configuration &configuration) {
    const Keeper &its = keeper();
    if (its.latest.load(std::memory_order_relaxed) != &configuration ||
        its.process.load(std::memory_order_relaxed) != process_number())
        add_to_keeper(configuration);
}

}  // namespace velda::journal
