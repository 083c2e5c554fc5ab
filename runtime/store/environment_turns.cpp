// The turns of readers and writers: transactions of one environment from the threads of this process.
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/store/environment.h"
#include "runtime/store/environment_table.h"

namespace velda::store {

Gate::Gate() {
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    pthread_rwlock_init(&lock_, &attributes);
    pthread_rwlockattr_destroy(&attributes);
}

// --- transactions ---

Environment::ReadTurn::ReadTurn(Environment &its) : environment(its), reader(its.take_reader()) {
    if (!reader) {
        result = NotOpen;
        return;
    }
    seen_map_bytes = its.map_bytes_;
    result = guarded([&](Reader &taken) { return its.freshen(taken); }, *reader);
}

int Environment::ReadTurn::end() {
    if (reader) environment.put_reader(reader);
    reader = nullptr;
    return result;
}

Environment::UpdateTurn::UpdateTurn(Environment &its)
    : environment(its), gate(its.gate_), seen_map_bytes(its.map_bytes_) {
    if (!its.lmdb_) {
        result = NotOpen;
    } else if (!its.writable_) {
        result = EACCES;
    } else {
        its.release_own_snapshots();
        result = mdb_txn_begin(its.lmdb_, nullptr, 0, &transaction);
        if (result == 0 && its.durability_ == Durability::Lazy) result = its.mark_unclean();
    }
}

void Environment::UpdateTurn::finish(int body_result) {
    result = body_result;
    if (result) return;
    result = environment.commit(transaction);
    transaction = nullptr;
    if (result || environment.durability_ == Durability::Sync) return;
    if (!environment.has_unsynced_.exchange(true)) watch_updates();
}

int Environment::commit(MDB_txn *transaction) {
    try {
        return cause_of(mdb_txn_commit(transaction));
    } catch (const DamageFound &) {
        mdb_txn_abort(transaction);
        return MDB_CORRUPTED;
    }
}

// LMDB tells of a write that was cut short as an I/O error; this tells what cut it short.
int Environment::cause_of(int rc) const {
    if (rc != EIO) return rc;
    constexpr unsigned long FewBlocks = 8;
    struct statvfs disk;
    if (fstatvfs(descriptor_, &disk) == 0 && (geteuid() == 0 ? disk.f_bfree : disk.f_bavail) < FewBlocks) return ENOSPC;
    struct stat status;
    rlimit limit;
    if (fstat(descriptor_, &status) == 0 && getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
        static_cast<rlim_t>(status.st_size) + lmdb::PageBytes > limit.rlim_cur)
        return EFBIG;
    return rc;
}

int Environment::UpdateTurn::end() {
    if (transaction) mdb_txn_abort(transaction);
    transaction = nullptr;
    if (gate.owns_lock()) gate.unlock();
    return result;
}

std::uint64_t Environment::last_transaction() const {
    MDB_envinfo information;
    mdb_env_info(lmdb_, &information);
    return information.me_last_txnid;
}

// --- readers ---

// Null when the environment is not open.
Reader *Environment::take_reader() {
    if (Reader *reader = hot_reader_.exchange(nullptr)) return reader;
    const std::lock_guard lock(readers_mutex_);
    if (!lmdb_) return nullptr;
    if (idle_readers_.empty()) {
        ++reader_count_;
        return new Reader;
    }
    Reader *const reader = idle_readers_.back();
    idle_readers_.pop_back();
    idle_count_ = idle_readers_.size();
    return reader;
}

// Whoever waits to be alone holds the mutex, and takes a reader from the hot place as soon as one is there.
void Environment::put_reader(Reader *reader) {
    ++reader->uses;
    const bool holds_snapshot = reader->holds_snapshot;
    for (Reader *nobody = nullptr; !hot_reader_.compare_exchange_strong(nobody, reader); nobody = nullptr) {
        const std::unique_lock lock(readers_mutex_, std::try_to_lock);
        if (!lock.owns_lock()) continue;
        idle_readers_.push_back(reader);
        idle_count_ = idle_readers_.size();
        break;
    }
    if (holds_snapshot) watch_snapshots();
}

Environment::Alone::Alone(Environment &its) : gate_(its.gate_), readers_(its.readers_mutex_) {
    for (unsigned turn = 0; its.idle_readers_.size() < its.reader_count_; ++turn) {
        if (Reader *reader = its.hot_reader_.exchange(nullptr))
            its.idle_readers_.push_back(reader);
        else if (turn < 100)
            sched_yield();
        else
            usleep(100);
    }
    its.idle_count_ = its.idle_readers_.size();
}

// Gives the reader the newest snapshot; when it has that already, nothing is to be done.
int Environment::freshen(Reader &reader) {
    if (reader.holds_snapshot) {
        if (last_transaction() == reader.snapshot) return 0;
        let_go(reader);
    }
    int rc = reader.transaction ? mdb_txn_renew(reader.transaction) : begin_reading(reader);
    if (rc) return rc;
    reader.holds_snapshot = true;
    reader.snapshot = mdb_txn_id(reader.transaction);
    if (reader.records) return mdb_cursor_renew(reader.transaction, reader.records);
    return mdb_cursor_open(reader.transaction, records_, &reader.records);
}

int Environment::begin_reading(Reader &reader) {
    int rc = mdb_txn_begin(lmdb_, nullptr, MDB_RDONLY, &reader.transaction);
    if (rc == MDB_READERS_FULL) {  // slots of killed processes
        int dead = 0;
        mdb_reader_check(lmdb_, &dead);
        rc = mdb_txn_begin(lmdb_, nullptr, MDB_RDONLY, &reader.transaction);
    }
    return rc;
}

void Environment::let_go(Reader &reader) {
    if (reader.holds_snapshot) mdb_txn_reset(reader.transaction);
    reader.holds_snapshot = false;
    reader.trail.clear();
    reader.trail_at = 0;
}

// A writer would keep every page that its own process's idle readers might still show.
void Environment::release_own_snapshots() {
    if (Reader *reader = hot_reader_.exchange(nullptr)) {
        let_go(*reader);
        put_reader(reader);
    }
    if (idle_count_.load(std::memory_order_relaxed) == 0) return;
    const std::lock_guard lock(readers_mutex_);
    for (Reader *reader : idle_readers_) let_go(*reader);
}

bool Environment::sweep_readers(bool all) {
    const std::shared_lock gate(gate_, std::try_to_lock);
    if (!gate.owns_lock()) return true;
    if (!lmdb_) return false;
    const std::uint64_t newest = last_transaction();
    bool left = false;
    const auto sweep = [&](Reader &reader) {
        if (all || reader.uses == reader.uses_at_last_sweep || reader.snapshot != newest) let_go(reader);
        reader.uses_at_last_sweep = reader.uses;
        left |= reader.holds_snapshot;
    };
    if (Reader *reader = hot_reader_.exchange(nullptr)) {
        sweep(*reader);
        --reader->uses;  // put_reader counts a use that was none
        put_reader(reader);
    }
    const std::lock_guard lock(readers_mutex_);
    for (Reader *reader : idle_readers_) sweep(*reader);
    return left;
}

// Called alone, or before anyone else knows the environment.
void Environment::drop_readers() {
    if (Reader *reader = hot_reader_.exchange(nullptr)) idle_readers_.push_back(reader);
    for (Reader *reader : idle_readers_) {
        if (reader->records) mdb_cursor_close(reader->records);
        if (reader->transaction) mdb_txn_abort(reader->transaction);
        delete reader;
    }
    idle_readers_.clear();
    idle_count_ = 0;
    reader_count_ = 0;
}

}  // namespace velda::store
