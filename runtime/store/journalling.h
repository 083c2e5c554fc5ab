// journalling.h - what the drivers tell the journal: every change of a journalled file, in the turn in which it is made
// and before it is there, so that the journal's order is the order of the changes. The drivers call these functions,
// runtime/journal implements them. Private to the runtime.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/vdefc.h"

namespace velda::store {

// For which session the calling thread changes a file, and how. Made around a call of a driver, on the stack; without
// one it is the thread's own session.
class UpdateScope {
  public:
    UpdateScope(DP *dp, bool journalled)
        : UpdateScope(dp, journalled, innermost ? innermost->flags : 0, innermost ? innermost->value : 0) {}
    // `flags` and `value` are what a WRITE or DELETE record carries beside the transfer mode; scopes within keep them.
    UpdateScope(DP *dp, bool journalled, std::uint32_t flags, std::uint32_t value)
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

// The session that the calling thread's updates belong to.
DP *updating_session();

// Waits, outside of every turn, while the journal is suspended. A few nanoseconds when it is not.
Result<void> journal_wait();

// Whether updates are journalled at present.
bool journal_wants_updates();

// While one lives a change of set or status waits, so the functions below never ask for another try. Made outside of
// every turn.
class JournalBatch {
  public:
    JournalBatch();
    ~JournalBatch();
    JournalBatch(const JournalBatch &) = delete;
    JournalBatch &operator=(const JournalBatch &) = delete;
    // An error when the wait for it was interrupted.
    const Result<void> &allowed() const { return allowed_; }

  private:
    DP *session_ = nullptr;
    Result<void> allowed_;
};

// Number of the error by which the functions below ask for another try: the caller leaves its turn, calls journal_wait
// and begins again.
inline constexpr int JournalSuspended = -1;

// Appends a record for each update, in order and one behind the other. On an error nothing was appended.
Result<void> journal_updates(std::string_view path, std::span<const Update> updates, TransferMode mode);
Result<void> journal_clear(std::string_view path);

// Where the journal stands: which use of which set, and how far its stream is written. Zeros while it is inactive.
struct JournalPosition {
    std::int64_t use = 0;
    std::uint64_t stream = 0;
};
JournalPosition journal_position();

// The keys of a file's records between two positions, of one append (0: the end is not known, but the records stand
// one behind the other). nullopt when one of them is a CLEARFILE. None when the set was emptied since.
Result<std::optional<std::vector<std::string>>> journalled_keys(std::string_view path, JournalPosition begin,
                                                                std::uint64_t end);

// Append a record about a whole file. The caller has a JournalBatch.
Result<void> journal_create(std::string_view path, std::string_view type, const FileSettings &settings);
Result<void> journal_destroy(std::string_view path);
Result<void> journal_move(std::string_view from, std::string_view to);
// `words` are those of VediIOCTL's command 21. Called outside of every turn.
Result<void> journal_settings(std::string_view path, std::string_view words);

// True when the caller should begin again: with journal_wait.
inline bool journal_asks_again(const Error &error) { return error.number == JournalSuspended; }

}  // namespace velda::store
