// journalling.h - what the drivers tell the journal: every change of a journalled file, in the turn in which it is made
// and before it is there, so that the journal's order is the order of the changes. The drivers call these functions,
// runtime/journal implements them. Private to the runtime.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/vdefc.h"

namespace velda::store {

// For which session the calling thread changes a file, and how. Made around a call of a driver, on the stack; without
// one it is the thread's own session.
class UpdateScope {
  public:
    // `flags` and `value` are what a WRITE or DELETE record carries beside the transfer mode.
    UpdateScope(DP *dp, bool journalled, std::uint32_t flags = 0, std::uint32_t value = 0)
        : dp(dp), journalled(journalled), flags(flags), value(value), outer_(innermost) {
        innermost = this;
    }
    ~UpdateScope() { innermost = outer_; }
    UpdateScope(const UpdateScope &) = delete;
    UpdateScope &operator=(const UpdateScope &) = delete;

    static const UpdateScope *current() { return innermost; }

    DP *const dp;
    const bool journalled;
    const std::uint32_t flags;
    const std::uint32_t value;

  private:
    const UpdateScope *const outer_;
    static inline thread_local const UpdateScope *innermost = nullptr;
};

// Waits, outside of every turn, while the journal is suspended. A few nanoseconds when it is not.
Result<void> journal_wait();

// Number of the error by which the functions below ask for another try: the caller leaves its turn, calls journal_wait
// and begins again.
inline constexpr int JournalSuspended = -1;

// Appends a record for each update, in order and one behind the other. On an error nothing was appended.
Result<void> journal_updates(std::string_view path, std::span<const Update> updates, TransferMode mode);
Result<void> journal_clear(std::string_view path);

}  // namespace velda::store
