// session_transaction.h - the transaction of a session: its begin, its end, and what it holds. Private to the runtime.
#pragma once

#include <memory>
#include <string>

#include "runtime/lock/lock_table.h"
#include "runtime/lock/record_lock.h"
#include "runtime/lock/session_owner.h"
#include "runtime/process/context.h"
#include "runtime/transaction/commit.h"
#include "runtime/transaction/held_updates.h"

namespace velda::transaction {

struct OpenTransaction {
    HeldUpdates updates;
    Remarks remarks;
    int level = 0;  // command level that began it: it ends with that one
};

// The state of a session.
class SessionTransaction {
  public:
    explicit SessionTransaction(DP &dp) : dp_(&dp) {}

    // The active transaction, or null. A forked child is in none.
    OpenTransaction *open() const { return open_ && is_in_own_process() ? open_.get() : nullptr; }

    // Remarks may be null.
    Result<void> begin(int level, const VAR *remark);
    // The transaction is over with either, whatever it comes to.
    Result<void> commit(const VAR *remark);
    Result<void> abort();

    // Makes the session see to the commits of the dead, at the opening of a file: those that are found then are
    // finished.
    void watch_commits();
    // What every statement on a file does first. It reads one word of memory that changes with each commit only.
    void settle() {
        if (table_ && table_->commits_begun() != settled_at_) finish_what_was_left();
    }

    std::string error_text;  // of the last failure

  private:
    bool is_in_own_process() const { return forks_ == lock::process_generation(); }
    void finish_what_was_left();
    void end();

    DP *const dp_;
    unsigned forks_ = 0;  // of the process, at the begin
    std::unique_ptr<OpenTransaction> open_;
    lock::LockTable *table_ = nullptr;
    std::uint64_t settled_at_ = 0;  // commits_begun when nothing was left to be finished; 0: something was
    Left left_ = Left::Nothing;  // of the last commit
};

// The session's active transaction, or null.
inline OpenTransaction *open_transaction(DP *dp) { return dp->state<SessionTransaction>().open(); }

// The end of a command level: aborts the transaction that it began and has not ended.
void end_level(DP *dp, int level);

// Takes the lock of a record that the open transaction is about to update; it is kept to the end. Waits for it, also
// beyond an interrupt whose trap returns. An error when it cannot be had.
Result<void> lock_for_update(DP *dp, const store::FileIdentity &file, std::string_view key);

}  // namespace velda::transaction
