// record_lock.h - locks as the runtime's other families take them. Private to the runtime.
//
// One table in shared memory holds every lock of the system (see lock_table.h for how). A context (DP) owns its locks;
// two contexts of one process are two owners, and a forked child owns nothing of its parent's. Waiters of a record are
// served first come, first served. A call costs well below a microsecond when it need not wait; the first call of a
// context registers it as an owner, which takes its port number.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/vdefc.h"

namespace velda {

enum class LockKind : std::uint8_t { Record = 1, Execution = 2, Port = 3 };

enum class Wait { No, Yes };

enum class LockResult {
    Granted,      // this context holds the lock now (or held it already: holding does not count)
    Busy,         // another context holds it and the caller did not want to wait
    Interrupted,  // the wait ended because an interrupt is pending for this context; nothing was taken
    Failed        // the table cannot be used or cannot grow: LockOutcome::error says why
};

// Who holds a lock or waits for one.
struct LockOwner {
    int port = -1;
    pid_t pid = 0;
    std::uint32_t context = 0;  // DP::serial in that process
};

struct [[nodiscard]] LockOutcome {
    LockResult result = LockResult::Granted;
    bool was_held = false;  // Granted: this context held the lock before the call
    LockOwner holder;       // Busy: who holds it
    Error error;            // Failed

    bool granted() const { return result == LockResult::Granted; }
};

// Takes the lock of a record, whether or not the record exists. Keys are 0 to 65,536 bytes.
LockOutcome lock_record(DP *dp, const store::FileIdentity &file, std::string_view key, Wait wait);

// Releases the lock of a record. False when this context did not hold it.
bool unlock_record(DP *dp, const store::FileIdentity &file, std::string_view key);

// True when this context may hold a lock on a record: what a batch of updates asks before it releases each of theirs.
bool may_hold_records(DP *dp);

// From here on the record locks that this context takes are kept until end_keeping(), which releases them: an unlock of
// one tells whether it is held and does no more. One that was held before is kept once it is unlocked. What a
// transaction asks; the port and execution locks are not concerned.
Result<void> begin_keeping(DP *dp);
void end_keeping(DP *dp);

// Execution locks, the same.
LockOutcome lock_execution(DP *dp, int number, Wait wait);
bool unlock_execution(DP *dp, int number);

// Releases all record and execution locks of this context, or those of one kind, or the record locks of one file.
void unlock_all(DP *dp);
void unlock_all(DP *dp, LockKind kind);
void unlock_file(DP *dp, const store::FileIdentity &file);

// True when this context holds the lock of the record.
bool holds_record(DP *dp, const store::FileIdentity &file, std::string_view key);

// Who holds the lock of the record: nullopt when nobody who lives does. It may change before the caller looks at it.
std::optional<LockOwner> record_holder(DP *dp, const store::FileIdentity &file, std::string_view key);

// As record_holder, but nullopt when this context is the holder: what a read that reports locked records asks.
std::optional<LockOwner> other_holder(DP *dp, const store::FileIdentity &file, std::string_view key);

// One lock as reports show it.
struct LockInfo {
    LockKind kind = LockKind::Record;
    store::FileIdentity file;  // zeros for execution locks
    std::string key;           // an execution lock's number as text
    LockOwner holder;
    std::int64_t taken_seconds = 0;  // since 1970, UTC
    std::vector<LockOwner> waiters;  // in the order in which they will be served
};

// Every record and execution lock of the system, by port, then in no order. Locks of the dead are dropped first.
Result<std::vector<LockInfo>> all_locks();

// Every context that the table knows as an owner, with the number of locks it holds and whether it waits.
struct LockOwnerInfo {
    LockOwner owner;
    std::uint64_t locks = 0;
    bool waits = false;
};
Result<std::vector<LockOwnerInfo>> all_lock_owners();

// The hash by which a key is found, the same in every process. Not an identity: the table compares whole keys.
std::uint64_t lock_hash(std::string_view key);

}  // namespace velda
