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
#include "runtime/store/path.h"
#include "runtime/store/settings_text.h"

namespace velda::store {
namespace {

constexpr std::uint64_t MiB = 1 << 20;
constexpr int MaxNamedTrees = 4;

// A sync file's map costs address space only; a lazy file is as large as its map.
std::uint64_t first_sync_map_bytes = 1024 * MiB;
std::uint64_t first_lazy_map_bytes = MiB / 4;

// Of all processes together; 64 bytes of the lock file each.
unsigned max_readers = 2048;

constexpr unsigned LazyFlags = MDB_WRITEMAP | MDB_MAPASYNC | MDB_NOSYNC;

}  // namespace

void set_first_map_bytes(std::uint64_t sync_bytes, std::uint64_t lazy_bytes) {
    first_sync_map_bytes = whole_pages(sync_bytes);
    first_lazy_map_bytes = whole_pages(lazy_bytes);
}

void set_max_readers(unsigned readers) { max_readers = readers; }

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
    if (auto mapped = map_file(); !mapped) return mapped;
    int dead = 0;
    mdb_reader_check(lmdb_, &dead);
    return open_trees_amid_writers();
}

Result<void> Environment::map_file() {
    const bool lazy = durability_ == Durability::Lazy;
    // LMDB cuts a lazy file to the size of the map it is given, so nobody may make it larger meanwhile.
    const SizeTurn size_turn(lazy && writable_ ? descriptor_ : -1);
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return system_error(errno, "cannot open file", path_);
    const std::uint64_t size_bytes = whole_pages(static_cast<std::uint64_t>(status.st_size));
    map_bytes_ = lazy ? std::max(size_bytes, first_lazy_map_bytes) : std::max(size_bytes * 2, first_sync_map_bytes);
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
    return {};
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
    mdb_env_set_maxreaders(lmdb_, max_readers);
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
    const auto open_both = [&](MDB_txn *reading) {
        const int failed = mdb_dbi_open(reading, RecordsTree, 0, &records_);
        return failed ? failed : mdb_dbi_open(reading, ControlTree, 0, &control_);
    };
    rc = guarded(open_both, transaction);
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

Result<void> Environment::lay_out(const std::string &path, const FileSettings &file_settings) {
    const int permissions = file_settings.permissions;
    const std::string settings = settings_text(file_settings);
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
    if (rc == 0) result = write_file_label(descriptor, file_settings.durability, file_settings.journalled, path);
    if (rc == 0 && result && set_special_modes(descriptor, permissions) < 0) rc = errno;
    if (rc == 0 && result && fsync(descriptor) < 0) rc = errno;
    mdb_env_close(lmdb);
    if (rc) return lmdb_error(rc, "cannot make file", path);
    return result;
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

bool Environment::become_sole_user() { return take_user_lock(descriptor_, writable_); }

void Environment::become_shared_user() { share_user_lock(descriptor_); }

void Environment::forget_parent() {
    // What other threads of the parent held at the fork stays as it was, so nothing is called on it: the locks are made
    // anew, LMDB's handles and the parent's maps are left where they are.
    new (&gate_) Gate;
    new (&readers_mutex_) std::mutex;
    hot_reader_ = nullptr;
    new (&idle_readers_) std::vector<Reader *>;
    idle_count_ = 0;
    reader_count_ = 0;
    lmdb_ = nullptr;
    new (&label_) MappedLabel;
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
    has_unsynced_ = false;
}

}  // namespace velda::store
