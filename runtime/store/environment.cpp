#include "runtime/store/environment.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "runtime/store/boot_id.h"
#include "runtime/store/environment_table.h"
#include "runtime/store/file_turn.h"
#include "runtime/store/hashed_format.h"
#include "runtime/store/page_walk.h"

namespace velda::store {
namespace {

constexpr std::uint64_t MiB = 1 << 20;
constexpr unsigned MaxReaders = 2048;
constexpr int MaxNamedTrees = 4;
constexpr unsigned QuietSweepsBeforeClean = 3;

// A sync file's map costs address space only; a lazy file is as large as its map.
std::uint64_t first_sync_map_bytes = 1024 * MiB;
std::uint64_t first_lazy_map_bytes = MiB / 4;

constexpr unsigned LazyFlags = MDB_WRITEMAP | MDB_MAPASYNC | MDB_NOSYNC;

std::uint64_t whole_pages(std::uint64_t bytes) {
    return (bytes + lmdb::PageBytes - 1) / lmdb::PageBytes * lmdb::PageBytes;
}

// The map after `bytes`: double while it is small, then a quarter more.
std::uint64_t next_map_bytes(std::uint64_t bytes) {
    return whole_pages(bytes < 256 * MiB ? bytes * 2 : bytes + bytes / 4);
}

}  // namespace

void set_first_map_bytes(std::uint64_t sync_bytes, std::uint64_t lazy_bytes) {
    first_sync_map_bytes = whole_pages(sync_bytes);
    first_lazy_map_bytes = whole_pages(lazy_bytes);
}

Gate::Gate() {
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    pthread_rwlock_init(&lock_, &attributes);
    pthread_rwlockattr_destroy(&attributes);
}

Error lmdb_error(int rc, std::string_view what, const std::string &path) {
    if (rc > 0) return system_error(rc, what, path);
    const bool damage =
        rc == MDB_CORRUPTED || rc == MDB_PAGE_NOTFOUND || rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH;
    std::string message = std::string(what) + " '" + path + "': " + mdb_strerror(rc);
    if (damage) message += "; restore it, or see CHECK-FILE";
    return {damage ? NeedsCheck : rc == MDB_READERS_FULL ? EAGAIN : EIO, std::move(message)};
}

// --- opening and closing ---

Result<std::unique_ptr<Environment>> Environment::open(const std::string &path) {
    std::unique_ptr<Environment> environment(new Environment(path));
    if (auto opened = environment->open_file(); !opened) return opened.error();
    return environment;
}

Environment::~Environment() {
    leave_clean();
    close();
}

Result<void> Environment::open_file() {
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (auto opened = open_descriptor(); !opened) return opened;
        bool replaced = false;
        auto opened = open_in_turn(replaced);
        if (!opened || replaced) close();
        if (!replaced) return opened;
    }
    return system_error(EBUSY, "cannot open file", path_);
}

Result<void> Environment::open_in_turn(bool &replaced) {
    const FileTurn turn(descriptor_);
    struct stat now;
    replaced = stat(path_.c_str(), &now) < 0 || now.st_ino != identity_.inode || now.st_dev != identity_.device;
    if (replaced) return {};
    auto head = read_file_head(descriptor_, path_);
    if (!head) return head.error();
    return open_marked(*head);
}

// Opens again what this process lost, or what belonged to the parent of this process. It must be the same file.
int Environment::reopen() {
    const FileIdentity before = identity_;
    close();
    const auto opened = open_file();
    if (opened && identity_ == before) return 0;
    const int failed = opened ? ESTALE : opened.error().number;
    close();
    identity_ = before;
    return failed;
}

Result<void> Environment::open_descriptor() {
    writable_ = true;
    descriptor_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor_ < 0 && (errno == EACCES || errno == EROFS || errno == EPERM)) {
        writable_ = false;
        descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (descriptor_ < 0) return system_error(errno, "cannot open file", path_);
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return system_error(errno, "cannot open file", path_);
    identity_ = {status.st_dev, status.st_ino};
    return {};
}

Result<void> Environment::open_marked(const FileHead &head) {
    durability_ = static_cast<Durability>(head.label.durability);
    if (durability_ == Durability::Lazy && head.label.unclean_boot != 0 && head.label.unclean_boot != current_boot())
        return Error{NeedsCheck, "file '" + path_ +
                                     "' is lazy and was in use when the machine stopped: updates may be missing; "
                                     "CHECK-FILE it, or restore it"};
    if (auto mapped = label_.map(descriptor_, writable_, path_); !mapped) return mapped;
    const bool sole_user = become_sole_user();
    if (auto checked = check_lock_file(sole_user); !checked) return checked;
    if (auto opened = open_lmdb(); !opened) return opened;
    struct stat lock_file;
    if (sole_user && writable_ && stat((path_ + "-lock").c_str(), &lock_file) == 0)
        label_.set_lock_inode(lock_file.st_ino);
    become_shared_user();
    has_unsynced_ = writable_ && marked();
    if (has_unsynced_) watch_updates();
    return {};
}

// All users of a file must share one lock file. It stands beside the file under its name, so a file that was renamed or
// linked by hand while others use it would get a second one.
Result<void> Environment::check_lock_file(bool sole_user) {
    if (sole_user || label_.lock_inode() == 0) return {};
    struct stat lock_file;
    if (stat((path_ + "-lock").c_str(), &lock_file) == 0 && lock_file.st_ino == label_.lock_inode()) return {};
    return Error{EBUSY, "file '" + path_ +
                            "' is in use under another name: it was renamed or linked while open; close it there"};
}

Result<void> Environment::open_lmdb() {
    const bool lazy = durability_ == Durability::Lazy;
    // LMDB cuts a lazy file to the size of the map it is given, so nobody may make it larger meanwhile.
    const SizeTurn size_turn(lazy && writable_ ? descriptor_ : -1);
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return system_error(errno, "cannot open file", path_);
    const auto size_bytes = static_cast<std::uint64_t>(status.st_size);
    map_bytes_ = lazy ? std::max(whole_pages(size_bytes), first_lazy_map_bytes)
                      : std::max(whole_pages(size_bytes) * 2, first_sync_map_bytes);
    if (lazy && writable_) {
        if (const int failed = reserve(map_bytes_))
            return system_error(failed, "cannot reserve disk space for file", path_);
    }
    const unsigned flags = MDB_NOSUBDIR | MDB_NOTLS | (lazy ? LazyFlags : 0);
    int rc = try_open_lmdb(flags | (writable_ ? 0 : MDB_RDONLY));
    if (rc == EACCES || rc == EROFS) {  // no lock file of ours to be had: read, without one if need be
        writable_ = false;
        rc = try_open_lmdb(flags | MDB_RDONLY);
        if (rc == EACCES || rc == EROFS) rc = try_open_lmdb(flags | MDB_RDONLY | MDB_NOLOCK);
    }
    if (rc) return lmdb_error(rc, "cannot open file", path_);
    int dead = 0;
    mdb_reader_check(lmdb_, &dead);
    return open_trees_amid_writers();
}

// A writer that commits twice between the snapshot and the look at the file's head spoils the look: it is taken again.
Result<void> Environment::open_trees_amid_writers() {
    constexpr int Attempts = 1000;
    for (int attempt = 1;; ++attempt) {
        auto opened = open_trees();
        if (opened || opened.error().number != EAGAIN || attempt == Attempts) return opened;
        sched_yield();
    }
}

int Environment::try_open_lmdb(unsigned flags) {
    if (lmdb_) mdb_env_close(lmdb_);
    lmdb_ = nullptr;
    if (const int rc = mdb_env_create(&lmdb_)) return rc;
    mdb_env_set_maxdbs(lmdb_, MaxNamedTrees);
    mdb_env_set_maxreaders(lmdb_, MaxReaders);
    mdb_env_set_mapsize(lmdb_, map_bytes_);
    mdb_env_set_assert(lmdb_, report_damage);
    struct stat status;
    fstat(descriptor_, &status);
    const mode_t mode = status.st_mode & 0777;
    const std::string lock_path = path_ + "-lock";
    const bool makes_lock = !(flags & MDB_NOLOCK) && access(lock_path.c_str(), F_OK) != 0;
    const int rc = mdb_env_open(lmdb_, path_.c_str(), flags, mode);
    // Whoever may read the file must be able to write its lock file. It is not opened here: closing it again would drop
    // LMDB's own locks on it.
    if (rc == 0 && makes_lock) (void)!chmod(lock_path.c_str(), mode | ((mode & 0444) >> 1));
    return rc;
}

// The trees' roots are looked at before LMDB follows them, in a snapshot that keeps their pages as they are.
Result<void> Environment::open_trees() {
    MDB_txn *transaction = nullptr;
    int rc = mdb_txn_begin(lmdb_, nullptr, MDB_RDONLY, &transaction);
    if (rc == MDB_MAP_RESIZED) {
        if ((rc = grow(0)) == 0) rc = mdb_txn_begin(lmdb_, nullptr, MDB_RDONLY, &transaction);
    }
    if (rc) return lmdb_error(rc, "cannot open file", path_);
    if (auto checked = check_trees(mdb_txn_id(transaction)); !checked) {
        mdb_txn_abort(transaction);
        return checked;
    }
    rc = mdb_dbi_open(transaction, RecordsTree, 0, &records_);
    if (rc == 0) rc = mdb_dbi_open(transaction, ControlTree, 0, &control_);
    if (rc == 0)
        rc = mdb_txn_commit(transaction);
    else
        mdb_txn_abort(transaction);
    if (rc) return lmdb_error(rc, "cannot open file", path_);
    return {};
}

Result<void> Environment::check_trees(std::uint64_t transaction) {
    auto head = read_file_head(descriptor_, path_);
    if (!head) return head.error();
    return check_before_use(descriptor_, *head, transaction, path_);
}

void Environment::close() {
    drop_readers();
    if (lmdb_) mdb_env_close(lmdb_);
    lmdb_ = nullptr;
    label_.unmap();
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
}

Result<void> Environment::lay_out(const std::string &path, Durability durability, int permissions,
                                  std::string_view settings) {
    MDB_env *lmdb = nullptr;
    int rc = mdb_env_create(&lmdb);
    if (rc) return lmdb_error(rc, "cannot make file", path);
    mdb_env_set_maxdbs(lmdb, MaxNamedTrees);
    rc = mdb_env_open(lmdb, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, static_cast<mode_t>(permissions & 0777));
    MDB_txn *transaction = nullptr;
    if (rc == 0) rc = mdb_txn_begin(lmdb, nullptr, 0, &transaction);
    MDB_dbi tree = 0;
    if (rc == 0) rc = mdb_dbi_open(transaction, RecordsTree, MDB_CREATE, &tree);
    if (rc == 0) rc = mdb_dbi_open(transaction, ControlTree, MDB_CREATE, &tree);
    MDB_val key{SettingsKey.size(), const_cast<char *>(SettingsKey.data())};
    MDB_val data{settings.size(), const_cast<char *>(settings.data())};
    if (rc == 0) rc = mdb_put(transaction, tree, &key, &data, 0);
    if (rc == 0)
        rc = mdb_txn_commit(transaction);
    else if (transaction)
        mdb_txn_abort(transaction);
    Result<void> result;
    mdb_filehandle_t descriptor = -1;
    if (rc == 0) rc = mdb_env_get_fd(lmdb, &descriptor);
    if (rc == 0) result = write_file_label(descriptor, durability, path);
    if (rc == 0 && result && fsync(descriptor) < 0) rc = errno;
    mdb_env_close(lmdb);
    if (rc) return lmdb_error(rc, "cannot make file", path);
    return result;
}

// --- transactions ---

Environment::ReadTurn::ReadTurn(Environment &its) : environment(its), gate(its.gate_), seen_map_bytes(its.map_bytes_) {
    if (!its.lmdb_) {
        result = NotOpen;
        return;
    }
    reader = its.take_reader();
    result = reader ? its.freshen(*reader) : ENOMEM;
}

int Environment::ReadTurn::end() {
    if (reader) environment.put_reader(reader);
    reader = nullptr;
    if (gate.owns_lock()) gate.unlock();
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

Reader *Environment::take_reader() {
    if (Reader *reader = hot_reader_.exchange(nullptr)) return reader;
    const std::lock_guard lock(idle_mutex_);
    if (idle_readers_.empty()) return new Reader;
    Reader *const reader = idle_readers_.back();
    idle_readers_.pop_back();
    idle_count_.store(static_cast<std::uint32_t>(idle_readers_.size()));
    return reader;
}

void Environment::put_reader(Reader *reader) {
    ++reader->uses;
    const bool holds_snapshot = reader->holds_snapshot;
    Reader *nobody = nullptr;
    if (!hot_reader_.compare_exchange_strong(nobody, reader)) {
        const std::lock_guard lock(idle_mutex_);
        idle_readers_.push_back(reader);
        idle_count_.store(static_cast<std::uint32_t>(idle_readers_.size()));
    }
    if (holds_snapshot) watch_snapshots();
}

// Gives the reader the newest snapshot; when it has that already, nothing is to be done.
int Environment::freshen(Reader &reader) {
    if (reader.holds_snapshot) {
        if (last_transaction() == reader.snapshot) return 0;
        let_go(reader);
    }
    int rc = reader.transaction ? mdb_txn_renew(reader.transaction) : make_reader(reader);
    if (rc) return rc;
    reader.holds_snapshot = true;
    reader.snapshot = mdb_txn_id(reader.transaction);
    if (reader.records) return mdb_cursor_renew(reader.transaction, reader.records);
    return mdb_cursor_open(reader.transaction, records_, &reader.records);
}

int Environment::make_reader(Reader &reader) {
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
    const std::lock_guard lock(idle_mutex_);
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
    const std::lock_guard lock(idle_mutex_);
    for (Reader *reader : idle_readers_) sweep(*reader);
    return left;
}

void Environment::drop_readers() {
    if (Reader *reader = hot_reader_.exchange(nullptr)) idle_readers_.push_back(reader);
    for (Reader *reader : idle_readers_) {
        if (reader->records) mdb_cursor_close(reader->records);
        if (reader->transaction) mdb_txn_abort(reader->transaction);
        delete reader;
    }
    idle_readers_.clear();
    idle_count_ = 0;
}

// --- repair: growing, reopening ---

// True when the failed turn should be taken again. No transaction of this process runs meanwhile.
bool Environment::repair(int &rc, std::uint64_t seen_map_bytes, std::size_t room_bytes) {
    if (rc != MDB_MAP_FULL && rc != MDB_MAP_RESIZED && rc != MDB_PANIC && rc != NotOpen) return false;
    const std::lock_guard alone(gate_);
    if (rc == MDB_MAP_FULL || rc == MDB_MAP_RESIZED)
        rc = map_bytes_ != seen_map_bytes ? 0 : grow(room_bytes);  // unless another thread has done it
    else
        rc = rc == NotOpen && lmdb_ ? 0 : reopen();
    return rc == 0;
}

int Environment::grow(std::size_t room_bytes) {
    int dead = 0;
    mdb_reader_check(lmdb_, &dead);  // a killed reader may be why no page could be used again
    release_own_snapshots();
    MDB_envinfo information;
    mdb_env_info(lmdb_, &information);
    const std::uint64_t used = (information.me_last_pgno + 1) * lmdb::PageBytes;
    const std::uint64_t needed = whole_pages(used + room_bytes + room_bytes / 8);
    const bool lazy = durability_ == Durability::Lazy;
    const SizeTurn size_turn(lazy && writable_ ? descriptor_ : -1);
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return errno;
    const std::uint64_t file_bytes = lazy ? whole_pages(status.st_size) : 0;
    std::uint64_t wanted = std::max({needed, file_bytes, next_map_bytes(std::max(map_bytes_, used))});
    if (file_bytes > map_bytes_ && file_bytes >= needed) wanted = file_bytes;  // another process has grown it
    if (lazy && writable_) {
        int failed = reserve(wanted);
        if (failed == ENOSPC && std::max(needed, file_bytes) > map_bytes_)
            failed = reserve(wanted = std::max(needed, file_bytes));
        if (failed) return failed;
    }
    if (const int rc = mdb_env_set_mapsize(lmdb_, wanted)) {
        close();  // LMDB has lost its map; the next use opens the file anew
        return rc;
    }
    map_bytes_ = wanted;
    return 0;
}

// Allocates the file's disk space up to `size_bytes`: a store into an unallocated page of a map would kill the process
// when the disk is full.
int Environment::reserve(std::uint64_t size_bytes) {
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return errno;
    const auto file_bytes = static_cast<std::uint64_t>(status.st_size);
    if (file_bytes >= size_bytes && static_cast<std::uint64_t>(status.st_blocks) * 512 >= size_bytes) return 0;
    int rc;
    do rc = fallocate(descriptor_, 0, 0, static_cast<off_t>(size_bytes)) < 0 ? errno : 0;
    while (rc == EINTR);
    if (rc != 0 && rc != EOPNOTSUPP) (void)!ftruncate(descriptor_, status.st_size);  // gives back what it got
    if (rc != EOPNOTSUPP) return rc;
    static const char zeros[64 * 1024] = {};
    for (std::uint64_t at = file_bytes; at < size_bytes;) {
        const ssize_t put = pwrite(descriptor_, zeros, std::min<std::uint64_t>(sizeof zeros, size_bytes - at), at);
        if (put < 0 && errno != EINTR) return errno;
        if (put > 0) at += put;
    }
    return 0;
}

// --- lazy files ---

// Before the first update that may reach the disk out of order, the disk itself knows that the file is in use.
int Environment::mark_unclean() {
    if (label_.unclean_boot() == current_boot()) return 0;
    label_.set_unclean_boot(current_boot());
    if (fdatasync(descriptor_) == 0) return 0;
    const int failed = errno;
    label_.set_unclean_boot(0);
    return failed;
}

Result<void> Environment::sync() {
    if (durability_ == Durability::Sync || !writable_) return {};
    const std::shared_lock gate(gate_);
    if (!lmdb_) return {};
    const std::uint64_t synced = last_transaction();
    has_unsynced_ = false;
    if (fdatasync(descriptor_) < 0) {
        has_unsynced_ = true;
        return system_error(errno, "cannot sync file", path_);
    }
    clear_mark_if_quiet(synced);
    return {};
}

// In LMDB's write turn nobody commits, so the newest transaction tells whether everything is on disk.
void Environment::clear_mark_if_quiet(std::uint64_t synced_transaction) {
    if (!marked()) return;
    MDB_txn *transaction = nullptr;
    if (mdb_txn_begin(lmdb_, nullptr, 0, &transaction)) return;
    if (last_transaction() == synced_transaction) {
        label_.set_unclean_boot(0);
        fdatasync(descriptor_);
    }
    mdb_txn_abort(transaction);
}

bool Environment::sweep_updates() {
    if (durability_ == Durability::Sync || !writable_) return false;
    {
        const std::shared_lock gate(gate_, std::try_to_lock);
        if (!gate.owns_lock()) return true;
        if (!lmdb_ || !marked()) return false;
        if (has_unsynced_.exchange(false)) {
            quiet_sweeps_ = 0;
            if (fdatasync(descriptor_) < 0) has_unsynced_ = true;
        }
    }
    if (++quiet_sweeps_ < QuietSweepsBeforeClean) return true;
    (void)sync();
    return true;
}

void Environment::leave_clean() {
    if (durability_ == Durability::Sync || !writable_) return;
    const std::shared_lock gate(gate_);
    if (!lmdb_ || !marked() || fdatasync(descriptor_) < 0 || !become_sole_user()) return;
    label_.set_unclean_boot(0);
    fdatasync(descriptor_);
    become_shared_user();
}

Result<void> Environment::change_durability(Durability durability) {
    if (durability == durability_) return {};
    if (!writable_) return system_error(EACCES, "cannot change file", path_);
    if (auto synced = sync(); !synced) return synced;
    const std::lock_guard alone(gate_);
    const FileTurn turn(descriptor_);
    if (!become_sole_user())
        return Error{EBUSY, "file '" + path_ + "' is open elsewhere: its durability cannot be changed now"};
    label_.set_unclean_boot(0);
    label_.set_durability(durability);
    if (fdatasync(descriptor_) < 0) return system_error(errno, "cannot change file", path_);
    drop_readers();
    mdb_env_close(lmdb_);
    lmdb_ = nullptr;
    durability_ = durability;
    auto opened = open_lmdb();
    become_shared_user();
    return opened;
}

Result<void> Environment::copy_to(int descriptor) {
    for (;;) {
        int rc;
        std::uint64_t seen;
        {
            const std::shared_lock gate(gate_);
            seen = map_bytes_;
            rc = lmdb_ ? mdb_env_copyfd(lmdb_, descriptor) : NotOpen;
        }
        if (rc == 0) return {};
        if (lseek(descriptor, 0, SEEK_SET) != 0 || !repair(rc, seen, 0))
            return lmdb_error(rc, "cannot copy file", path_);
    }
}

// --- other users ---

bool Environment::become_sole_user() { return take_user_lock(descriptor_, writable_); }

void Environment::become_shared_user() { share_user_lock(descriptor_); }

void Environment::forget_parent() {
    // What other threads of the parent held at the fork stays as it was, so nothing is called on it: the locks are made
    // anew, LMDB's handles and the parent's maps are left where they are.
    new (&gate_) Gate;
    new (&idle_mutex_) std::mutex;
    hot_reader_ = nullptr;
    new (&idle_readers_) std::vector<Reader *>;
    idle_count_ = 0;
    lmdb_ = nullptr;
    new (&label_) MappedLabel;
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
    has_unsynced_ = false;
}

}  // namespace velda::store
