#include "runtime/transaction/session_transaction.h"

#include <unistd.h>

#include <cerrno>

#include "runtime/process/interrupt.h"
#include "runtime/transaction/commit.h"

namespace velda::transaction {

bool SessionTransaction::is_in_own_process() const { return dp_->process == getpid(); }

Result<void> SessionTransaction::begin(int level) {
    if (open()) return Error{EALREADY, "a transaction is active already: it must end before another one begins"};
    if (!is_in_own_process()) return Error{EINVAL, "the session is one of another process"};
    if (auto keeping = begin_keeping(dp_); !keeping) return keeping.error();
    open_ = std::make_unique<OpenTransaction>();
    open_->level = level;
    return {};
}

Result<void> SessionTransaction::commit() {
    if (!open()) return Error{EINVAL, "no transaction is active: there is nothing to commit"};
    auto made = make_updates(dp_, open_->updates);
    end();
    return made;
}

Result<void> SessionTransaction::abort() {
    if (!open()) return Error{EINVAL, "no transaction is active: there is nothing to abort"};
    end();
    return {};
}

// Walks that were begun in the transaction look at its files; they go on with what the files hold now.
void SessionTransaction::end() {
    for (const auto &held : open_->updates.files()) held->updates.clear();
    open_.reset();
    end_keeping(dp_);
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
