#include "runtime/lock/record_lock.h"

#include <cerrno>

#include "runtime/lock/session_owner.h"
#include "runtime/port/session_port.h"
#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"

namespace velda {

namespace {

using lock::Attempt;
using lock::LockName;
using lock::SessionOwner;

std::string text_of(int number) { return std::to_string(number); }

// The context as an owner whom reports can name.
Result<SessionOwner *> ready_owner(DP *dp) {
    SessionOwner &session = dp->state<SessionOwner>();
    if (session.is_ready() && session.port_taken) return &session;
    if (auto port = session_port(dp); !port) return port.error();
    return &session;
}

// The context when it may hold anything, null when it never took a lock.
SessionOwner *existing_owner(DP *dp) {
    SessionOwner &session = dp->state<SessionOwner>();
    return session.is_ready() ? &session : nullptr;
}

LockOutcome failure(Error error) {
    LockOutcome outcome;
    outcome.result = LockResult::Failed;
    outcome.error = std::move(error);
    return outcome;
}

LockOutcome take(DP *dp, const LockName &name, Wait wait) {
    if (name.key.size() > store::MaxKeyBytes)
        return failure({ENAMETOOLONG, "cannot lock a key of " + std::to_string(name.key.size()) +
                                          " bytes: the longest has " + std::to_string(store::MaxKeyBytes)});
    auto session = ready_owner(dp);
    if (!session) return failure(session.error());
    SessionOwner &owner = **session;
    Attempt attempt;
    if (wait == Wait::No)
        attempt = owner.table().take(owner.owner(), name);
    else
        attempt = owner.table().take_waiting(
            owner.owner(), name, {[dp] { return interrupt_pending(dp); }, dp->event_counter, break_key_word()});
    LockOutcome outcome;
    outcome.result = attempt.result;
    outcome.was_held = attempt.was_held;
    outcome.holder = attempt.holder_shown;
    outcome.error = std::move(attempt.error);
    return outcome;
}

bool give_back(DP *dp, const LockName &name) {
    SessionOwner *session = existing_owner(dp);
    if (!session) return false;
    if (session->owner().keeps_records && name.kind == LockKind::Record)
        return session->table().keep(session->owner(), name);
    return session->table().release(session->owner(), name);
}

void give_back_if(DP *dp, const std::function<bool(const lock::Entry &)> &chosen) {
    SessionOwner *session = existing_owner(dp);
    if (!session) return;
    lock::Owner &owner = session->owner();
    if (!owner.keeps_records) return session->table().release_if(owner, chosen);
    const auto is_record = [](const lock::Entry &entry) {
        return static_cast<LockKind>(entry.kind) == LockKind::Record;
    };
    session->table().keep_if(owner, [&](const auto &entry) { return is_record(entry) && chosen(entry); });
    session->table().release_if(owner, [&](const auto &entry) { return !is_record(entry) && chosen(entry); });
}

}  // namespace

LockOutcome lock_record(DP *dp, const store::FileIdentity &file, std::string_view key, Wait wait) {
    return take(dp, {LockKind::Record, file, key}, wait);
}

bool unlock_record(DP *dp, const store::FileIdentity &file, std::string_view key) {
    return give_back(dp, {LockKind::Record, file, key});
}

bool may_hold_records(DP *dp) {
    SessionOwner *session = existing_owner(dp);
    return session && session->owner().held.size() > (session->port_taken ? 1 : 0);
}

Result<void> begin_keeping(DP *dp) {
    auto session = ready_owner(dp);
    if (!session) return session.error();
    (*session)->owner().keeps_records = true;
    return {};
}

void end_keeping(DP *dp) {
    SessionOwner *session = existing_owner(dp);
    if (!session) return;
    session->owner().keeps_records = false;
    session->table().release_kept(session->owner());
}

LockOutcome lock_execution(DP *dp, int number, Wait wait) {
    return take(dp, {LockKind::Execution, {}, text_of(number)}, wait);
}

bool unlock_execution(DP *dp, int number) { return give_back(dp, {LockKind::Execution, {}, text_of(number)}); }

// The port is the session's for as long as it lives, whatever a program releases.
void unlock_all(DP *dp) {
    give_back_if(dp, [](const lock::Entry &entry) { return static_cast<LockKind>(entry.kind) != LockKind::Port; });
}

void unlock_all(DP *dp, LockKind kind) {
    give_back_if(dp, [kind](const lock::Entry &entry) { return static_cast<LockKind>(entry.kind) == kind; });
}

void unlock_file(DP *dp, const store::FileIdentity &file) {
    give_back_if(dp, [file](const lock::Entry &entry) {
        return static_cast<LockKind>(entry.kind) == LockKind::Record && entry.device == file.device &&
               entry.inode == file.inode;
    });
}

bool holds_record(DP *dp, const store::FileIdentity &file, std::string_view key) {
    SessionOwner *session = existing_owner(dp);
    return session && session->table().holds(session->owner(), {LockKind::Record, file, key});
}

namespace {

std::optional<LockOwner> living_holder(DP *dp, const LockName &name, bool others_only) {
    SessionOwner *session = existing_owner(dp);
    if (!session) {
        if (auto made = dp->state<SessionOwner>().make_ready(); !made) return std::nullopt;
        session = existing_owner(dp);
    }
    const auto id = session->table().holder(name);
    if (!id || (others_only && *id == session->owner().id)) return std::nullopt;
    return session->table().shown(*id);
}

}  // namespace

std::optional<LockOwner> record_holder(DP *dp, const store::FileIdentity &file, std::string_view key) {
    return living_holder(dp, {LockKind::Record, file, key}, false);
}

std::optional<LockOwner> other_holder(DP *dp, const store::FileIdentity &file, std::string_view key) {
    return living_holder(dp, {LockKind::Record, file, key}, true);
}

Result<std::vector<LockInfo>> all_locks() {
    const auto table = lock::system_lock_table();
    if (!table) return table.error();
    auto locks = (*table)->all_locks();
    std::erase_if(locks, [](const LockInfo &lock) { return lock.kind == LockKind::Port; });
    return locks;
}

Result<std::vector<LockOwnerInfo>> all_lock_owners() {
    const auto table = lock::system_lock_table();
    if (!table) return table.error();
    return (*table)->all_owners();
}

}  // namespace velda
