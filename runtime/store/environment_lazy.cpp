// Lazy files: the mark on the disk while updates may not be there, and the sync that takes it away.
#include <unistd.h>

#include <cerrno>

#include "runtime/store/boot_id.h"
#include "runtime/store/environment.h"
#include "runtime/store/file_turn.h"

namespace velda::store {
namespace {

constexpr unsigned QuietSweepsBeforeClean = 3;

}  // namespace

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

// The last user syncs once more when it knows that it is the last: another may have been killed behind the sync before.
void Environment::leave_clean() {
    if (durability_ == Durability::Sync || !writable_) return;
    const std::shared_lock gate(gate_);
    if (!lmdb_ || !marked() || fdatasync(descriptor_) < 0 || !become_sole_user()) return;
    MDB_txn *transaction = nullptr;
    if (mdb_txn_begin(lmdb_, nullptr, 0, &transaction) == 0) {  // other threads of this process wait
        if (fdatasync(descriptor_) == 0) {
            label_.set_unclean_boot(0);
            fdatasync(descriptor_);
        }
        mdb_txn_abort(transaction);
    }
    become_shared_user();
}

Result<void> Environment::change_durability(Durability durability) {
    if (durability == durability_) return {};
    if (!writable_) return system_error(EACCES, "cannot change file", path_);
    const Alone alone(*this);
    if (!lmdb_) return system_error(EBUSY, "cannot change file", path_);
    const FileTurn turn(descriptor_);
    if (!become_sole_user())
        return Error{EBUSY, "file '" + path_ + "' is open elsewhere: its durability cannot be changed now"};
    const auto changed = relabel(durability);
    become_shared_user();
    return changed;
}

// Every update is on disk before the label says so.
Result<void> Environment::relabel(Durability durability) {
    if (fdatasync(descriptor_) < 0) return system_error(errno, "cannot change file", path_);
    label_.set_unclean_boot(0);
    label_.set_durability(durability);
    if (fdatasync(descriptor_) < 0) return system_error(errno, "cannot change file", path_);
    drop_readers();
    mdb_env_close(lmdb_);
    lmdb_ = nullptr;
    durability_ = durability;
    return open_lmdb();
}

}  // namespace velda::store
