#include "runtime/transaction/session_transaction.h"

#include <unistd.h>

#include <cerrno>

#include "runtime/process/interrupt.h"
#include "runtime/transaction/finish.h"

namespace velda::transaction {
namespace {

[[maybe_unused]] const bool recovery_installed = install_recovery();

}  // namespace

Result<void> SessionTransaction::begin(int level, const VAR *remark) {
    if (open()) return Error{EALREADY, "a transaction is active already: it must end before another one begins"};
    if (dp_->process != getpid()) return Error{EINVAL, "the session is one of another process"};
    if (left_ != Left::Nothing) {
        if (auto finished = finish_own_commit(dp_); !finished)
            return Error{finished.error().number,
                         "the last transaction is not yet taken back: " + finished.error().message};
        left_ = Left::Nothing;
    }
    if (auto keeping = begin_keeping(dp_); !keeping) return keeping.error();
    table_ = &dp_->state<lock::SessionOwner>().table();
    forks_ = lock::process_generation();
    open_ = std::make_unique<OpenTransaction>();
    open_->level = level;
    if (remark) open_->remarks.begin = *remark;
    return {};
}

Result<void> SessionTransaction::commit(const VAR *remark) {
    if (!open()) return Error{EINVAL, "no transaction is active: there is nothing to commit"};
    struct AtEnd {
        SessionTransaction &session;
        ~AtEnd() { session.end(); }
    } const at_end{*this};
    if (remark) open_->remarks.end = *remark;
    return make_updates(dp_, open_->updates, open_->remarks, left_);
}

Result<void> SessionTransaction::abort() {
    if (!open()) return Error{EINVAL, "no transaction is active: there is nothing to abort"};
    end();
    return {};
}

// Walks that were begun in the transaction look at its files; they go on with what the files hold now. Where updates
// are still to be taken back their records stay locked.
void SessionTransaction::end() {
    for (const auto &held : open_->updates.files()) held->updates.clear();
    open_.reset();
    if (left_ == Left::Nothing) end_keeping(dp_);
}

void SessionTransaction::watch_commits() {
    if (!table_) {
        const auto table = lock::system_lock_table();
        if (!table) return;
        table_ = *table;
    }
    settle();
}

void SessionTransaction::finish_what_was_left() {
    if (left_ != Left::Nothing && is_in_own_process()) {
        if (!finish_own_commit(dp_)) return;
        left_ = Left::Nothing;
        if (!open_) end_keeping(dp_);
    }
    const std::uint64_t begun = table_->commits_begun();
    table_->finish_what_was_left();
    if (table_->are_leftovers_finished() && !table_->any_commit()) settled_at_ = begun;
}

void end_level(DP *dp, int level) {
    auto &session = dp->state<SessionTransaction>();
    if (const OpenTransaction *const open = session.open(); open && open->level >= level) (void)session.abort();
}

Result<void> lock_for_update(DP *dp, const store::FileIdentity &file, std::string_view key) {
    for (;;) {
        LockOutcome outcome = lock_record(dp, file, key, Wait::Yes);
        if (outcome.granted()) return {};
        if (outcome.result == LockResult::Failed) return outcome.error;
        poll_interrupt(dp);
    }
}

}  // namespace velda::transaction
