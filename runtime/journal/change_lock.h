// change_lock.h - the two locks around the configuration record. Private to the folder.
//
// Between processes each is a lock on one byte of the lock file, which the kernel drops with its holder; between the
// sessions of one process it is a word. A forked child holds nothing of its parent's.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "runtime/vdefc.h"

namespace velda::journal {

enum class LockByte { Table = 0, Change = 1, Writer = 2 };
inline constexpr int LockBytes = 3;

// The lock file of one configuration, opened once in a process: closing any handle of it would drop the locks.
class LockFile {
  public:
    explicit LockFile(const std::string &path);
    LockFile(const LockFile &) = delete;
    LockFile &operator=(const LockFile &) = delete;

    // Waits for the lock. 0 or the error number.
    int take(LockByte byte, const DP *dp);
    // False when somebody has it.
    bool try_take(LockByte byte, const DP *dp);
    void leave(LockByte byte);

  private:
    int set(LockByte byte, short type, int command) const;

    int file_ = -1;
    int open_error_ = 0;
    std::atomic<std::uint64_t> holders_[LockBytes] = {};  // session of this process; 0: none
};

// One session's hold of a lock: taken with the first `take`, left with the last `leave`.
class HeldLock {
  public:
    int take(DP *dp, LockFile &file, LockByte byte);
    int leave();
    // Leaves the lock however often it was taken.
    void leave_all();

  private:
    LockFile *file_ = nullptr;
    LockByte byte_ = LockByte::Table;
    int depth_ = 0;
    pid_t process_ = 0;
};

}  // namespace velda::journal
