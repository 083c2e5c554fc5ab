// session_owner.h - a context as an owner in the lock table of its system. Private to the runtime's lock, port
// and transaction folders.
#pragma once

#include "runtime/lock/lock_table.h"

namespace velda::lock {

// The state of a context: where its system's table is, and its slot there. A forked child has a copy that it must not
// use: the slot is the parent's.
class SessionOwner {
  public:
    explicit SessionOwner(DP &dp) : dp_(dp) {}
    ~SessionOwner();
    SessionOwner(const SessionOwner &) = delete;
    SessionOwner &operator=(const SessionOwner &) = delete;

    // Registers the context if it is none yet, or no longer is: its thread ended, or the process is a forked child.
    Result<void> make_ready();
    // Whether table and owner can be used.
    bool is_ready() const;

    LockTable &table() { return *table_; }
    Owner &owner() { return owner_; }

    // The context's port was asked for, so that reports can name it.
    bool port_taken = false;

  private:
    void forget();

    DP &dp_;
    LockTable *table_ = nullptr;
    Owner owner_;
    unsigned process_generation_ = 0;
};

// The table of the system of the global directory as it is named now; attached once and kept for the life of the
// process.
Result<LockTable *> system_lock_table();

// Changes in a forked child.
unsigned process_generation();

}  // namespace velda::lock
