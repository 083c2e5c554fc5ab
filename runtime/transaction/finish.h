// finish.h - carrying out what a redo record tells: by the session that commits, or by whoever finds it dead. Private to
// the folder.
#pragma once

#include <span>
#include <string>

#include "runtime/lock/lock_table.h"
#include "runtime/transaction/redo_record.h"

namespace velda::transaction {

// The directory of the redo records of the table's system, which is made when it is missing.
Result<std::string> redo_directory(const lock::LockTable &table);

// The path of an owner's redo record.
std::string redo_path(const lock::LockTable &table, const std::string &directory, lock::OwnerId owner);

// What the program says at the begin and the end of its transaction, for the journal.
struct Remarks {
    VAR begin;
    VAR end;
};

// Whether any of the batches goes into the journal.
bool are_journalled(std::span<const Batch> batches);

// Makes the updates of the batches in order, between the begin and the end of a transaction in the journal when any of
// them goes there: then `redo` is not null. On an error some of them may have been made.
Result<void> make_batches(DP *dp, std::span<const Batch> batches, RedoFile *redo, const Remarks &remarks);

// Does what the redo record `path` tells, and removes it: makes its updates, or takes them back where that was begun or
// where they cannot be made. One at a time does so for a record. Done when there is no such record, or one that is not
// whole: it was never committed. On an error the record stays, for another try.
Result<void> finish_redo(const std::string &path);

// Lets the lock table finish the commits of the dead; at the start of the process.
bool install_recovery();

// While a thread finishes a commit, its own or another's, it does not turn to one of the dead as well.
class Finishing {
  public:
    Finishing() : is_first_(!thread_finishes) { thread_finishes = true; }
    ~Finishing() {
        if (is_first_) thread_finishes = false;
    }
    Finishing(const Finishing &) = delete;
    Finishing &operator=(const Finishing &) = delete;
    bool is_first() const { return is_first_; }

  private:
    static inline thread_local bool thread_finishes = false;
    const bool is_first_;
};

}  // namespace velda::transaction
