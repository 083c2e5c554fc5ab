// environment.h - one LMDB environment: one hashed file, open once in this process however many cells hold it.
//
// The hard parts of LMDB's use are settled here, once: readers kept ready between reads, the map grown on demand (here
// or by another process), the mark and the periodic sync of lazy files, a forked child, a failed commit. What lies in
// the trees is the business of HashedFile.
#pragma once

#include <lmdb.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/store/file_label.h"

namespace velda::store {

// Shared by all updates of this process, exclusive for what may not run beside one (growing, reopening). A waiting
// exclusive user goes before new shared ones, so a thread never takes it twice.
class Gate {
  public:
    Gate();
    ~Gate() { pthread_rwlock_destroy(&lock_); }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;
    void lock() { pthread_rwlock_wrlock(&lock_); }
    void unlock() { pthread_rwlock_unlock(&lock_); }
    void lock_shared() { pthread_rwlock_rdlock(&lock_); }
    bool try_lock_shared() { return pthread_rwlock_tryrdlock(&lock_) == 0; }
    void unlock_shared() { pthread_rwlock_unlock(&lock_); }

  private:
    pthread_rwlock_t lock_;
};

// A read transaction with its cursor on the records, kept from one read to the next. Between reads its snapshot may
// stay for some milliseconds: while no writer has committed, the next read goes on in it and the cursor is already
// near.
//
// A SELECT that fetches keys leaves their records' places behind, the trail: READNEXT and READ in turn then find each
// record without a search. The places are good as long as the snapshot.
struct Reader {
    struct Place {
        MDB_val key;
        MDB_val record;
    };

    // The record of the key that follows the one found last on the trail; null when this is not that key.
    const MDB_val *next_on_trail(std::string_view key) {
        if (trail_at >= trail.size()) return nullptr;
        const Place &place = trail[trail_at];
        if (key != std::string_view(static_cast<const char *>(place.key.mv_data), place.key.mv_size)) return nullptr;
        ++trail_at;
        return &place.record;
    }

    MDB_txn *transaction = nullptr;
    MDB_cursor *records = nullptr;
    bool holds_snapshot = false;
    std::uint32_t uses = 0;
    std::uint32_t uses_at_last_sweep = 0;
    std::uint64_t snapshot = 0;  // number of the transaction that it shows
    std::vector<Place> trail;
    std::size_t trail_at = 0;
};

class Environment {
  public:
    // Opens the file at `path` (absolute, no symbolic links). Only the environment table calls this: LMDB must not open
    // one file twice in a process.
    static Result<std::unique_ptr<Environment>> open(const std::string &path);

    // Lays out a new, empty file at `path`, which is nobody's yet; the settings become its first control record.
    static Result<void> lay_out(const std::string &path, const FileSettings &settings);

    // The last share is gone: syncs and cleans the mark of a lazy file, closes.
    ~Environment();
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

    const std::string &path() const { return path_; }
    FileIdentity identity() const { return identity_; }
    Durability durability() const { return durability_; }
    bool writable() const { return writable_; }
    MDB_dbi records() const { return records_; }
    MDB_dbi control() const { return control_; }

    // Runs `body(reader)` in the newest snapshot and returns its LMDB result (0, MDB_NOTFOUND, an error). `body` is not
    // run when the snapshot cannot be had.
    template <class Body>
    int read(Body &&body) {
        for (;;) {
            ReadTurn turn(*this);
            if (turn.result == 0) return guarded(body, *turn.reader);
            int rc = turn.end();
            if (!repair(rc, turn.seen_map_bytes, 0)) return rc;
        }
    }

    // Runs `body(transaction)` in a write transaction, commits when it returns 0, else drops every change. It runs
    // again, from its start, when the map had to grow: by `room_bytes` at least.
    template <class Body>
    int update(std::size_t room_bytes, Body &&body) {
        for (;;) {
            UpdateTurn turn(*this);
            if (turn.result == 0) turn.finish(guarded(body, turn.transaction));
            int rc = turn.end();
            if (rc == 0 || !repair(rc, turn.seen_map_bytes, room_bytes)) return rc;
        }
    }

    // Every returned update is on disk when this returns; the mark of a lazy file goes when no update came meanwhile.
    Result<void> sync();

    // Closes, relabels and opens again. Error 16 when another process has the file open.
    Result<void> change_durability(Durability durability);

    // Whether changes are journalled, as the last change of the settings by any process left it.
    bool is_journalled() const { return !label_.is_mapped() || label_.is_journalled(); }
    // What the label keeps of the last journalled change. Used in an update only.
    JournalledChange &journalled_change() { return label_.journalled(); }
    // True when the last change that was journalled is not committed: it is under way, or did not come about.
    bool may_lack_a_change() const { return label_.journalled().transaction > last_transaction(); }
    void set_journalled(bool journalled) { label_.set_journalled(journalled); }

    // A consistent copy of the file into `descriptor`, while others write.
    Result<void> copy_to(int descriptor);

    // --- for the environment table and its housekeeper ---

    // Lets go of the snapshots that were not used since the last sweep or are no longer the newest; of every one with
    // `all`. True when some are left.
    bool sweep_readers(bool all);
    // The regular sync of a lazy file. True when there is more to do later.
    bool sweep_updates();
    // In the child of a fork: forgets what belongs to the parent; the next use opens the file anew.
    void forget_parent();
    // Before the process ends or the file closes: syncs a lazy file and takes its mark away when this is its last user.
    void leave_clean();

  private:
    // Thrown when LMDB finds a page that cannot be: it would end the process otherwise. It passes LMDB's frames, whose
    // transaction is then dropped.
    struct DamageFound {};
    [[noreturn]] static void report_damage(MDB_env *, const char *) { throw DamageFound{}; }

    template <class Body, class Argument>
    static int guarded(Body &&body, Argument &&argument) {
        try {
            return body(argument);
        } catch (const DamageFound &) {
            return MDB_CORRUPTED;
        }
    }

    // A reader is a share of the environment: while one is taken nothing is closed or moved, and who wants the
    // environment alone waits until each is given back.
    struct ReadTurn {
        explicit ReadTurn(Environment &environment);
        ~ReadTurn() { end(); }
        int end();
        Environment &environment;
        Reader *reader = nullptr;
        int result = 0;
        std::uint64_t seen_map_bytes = 0;
    };
    struct UpdateTurn {
        explicit UpdateTurn(Environment &environment);
        ~UpdateTurn() { end(); }
        void finish(int body_result);
        int end();
        Environment &environment;
        std::shared_lock<Gate> gate;
        MDB_txn *transaction = nullptr;
        int result = 0;
        std::uint64_t seen_map_bytes;
    };

    // No transaction of this process runs while it lives, and none begins; every reader is among the idle ones.
    class Alone {
      public:
        explicit Alone(Environment &environment);

      private:
        std::unique_lock<Gate> gate_;
        std::unique_lock<std::mutex> readers_;
    };

    explicit Environment(std::string path) : path_(std::move(path)) {}

    Result<void> open_file();
    Result<void> open_descriptor();
    Result<void> open_in_turn(bool &replaced);
    int reopen();
    Result<void> open_marked(const FileHead &head);
    Result<void> check_lock_file(bool sole_user);
    Result<void> open_lmdb();
    Result<void> map_file();
    int try_open_lmdb(unsigned flags);
    Result<void> open_trees_amid_writers();
    Result<void> open_trees();
    Result<void> check_trees(std::uint64_t transaction);
    void close();

    int cause_of(int rc) const;
    int commit(MDB_txn *transaction);
    int mark_unclean();
    Result<void> relabel(Durability durability);
    void clear_mark_if_quiet(std::uint64_t synced_transaction);
    std::uint64_t last_transaction() const;
    bool marked() const { return durability_ == Durability::Lazy && label_.is_mapped() && label_.unclean_boot() != 0; }

    int freshen(Reader &reader);
    Reader *take_reader();
    int begin_reading(Reader &reader);
    void put_reader(Reader *reader);
    static void let_go(Reader &reader);
    void release_own_snapshots();
    void drop_readers();

    bool repair(int &rc, std::uint64_t seen_map_bytes, std::size_t room_bytes);
    int grow(std::size_t room_bytes);
    int reserve(std::uint64_t size_bytes);
    bool become_sole_user();
    void become_shared_user();

    static constexpr int NotOpen = -1;  // beside LMDB's own results: belongs to the parent of this process, or was lost

    std::string path_;
    FileIdentity identity_;
    Durability durability_ = Durability::Sync;
    bool writable_ = false;
    int descriptor_ = -1;  // ours, beside LMDB's: label, user lock, sync
    MappedLabel label_;

    MDB_env *lmdb_ = nullptr;
    MDB_dbi records_ = 0;
    MDB_dbi control_ = 0;
    std::uint64_t map_bytes_ = 0;

    Gate gate_;                                  // of updates and of whoever uses LMDB without a reader
    std::atomic<Reader *> hot_reader_{nullptr};  // the one given back last, for the next to take
    std::mutex readers_mutex_;
    std::vector<Reader *> idle_readers_;
    std::atomic<std::size_t> idle_count_{0};
    std::size_t reader_count_ = 0;           // hot, idle and taken
    std::atomic<bool> has_unsynced_{false};  // updates of a lazy file that no sync has followed
    unsigned quiet_sweeps_ = 0;
};

// The error of an LMDB result: "WHAT 'PATH': reason".
Error lmdb_error(int rc, std::string_view what, const std::string &path);

inline std::uint64_t whole_pages(std::uint64_t bytes) {
    return (bytes + lmdb::PageBytes - 1) / lmdb::PageBytes * lmdb::PageBytes;
}

// Sizes of a file's first map, and how many may read it at once; tests make them small.
void set_max_readers(unsigned readers);
void set_first_map_bytes(std::uint64_t sync_bytes, std::uint64_t lazy_bytes);

}  // namespace velda::store
