#include "runtime/transaction/session_file.h"

#include <cerrno>

#include "runtime/store/journalling.h"
#include "runtime/transaction/session_transaction.h"

namespace velda::transaction {
namespace {

// Changes made through a block that says so stay out of the journal.
bool is_journalled(store::ControlBlockContent &file) {
    return !(store::block_of(file).flags & VEDI_FILE_NOT_JOURNALLED);
}

// The session's transaction, or null; what every call here asks first.
OpenTransaction *settled(DP *dp) {
    auto &session = dp->state<SessionTransaction>();
    session.settle();
    return session.open();
}

// What the session's transaction holds of a record, or null.
const HeldUpdate *held_update(DP *dp, const store::ControlBlockContent &file, std::string_view key) {
    const OpenTransaction *const open = settled(dp);
    return open ? open->updates.find(file.file->identity(), key) : nullptr;
}

void copy_into(store::RecordBuffer &into, std::string_view record) {
    char *const target = into.prepare(record.size());
    record.copy(target, record.size());
}

// The checks that the driver would make, since the commit must not fail by them.
Result<void> check_update(const store::OpenFile &file, const store::Update &update) {
    const std::string name(file.path());
    if (!file.writable()) return system_error(EACCES, "cannot write to file", name);
    if (update.key.size() > store::MaxKeyBytes)
        return Error{EINVAL,
                     "file '" + name + "': a key of " + std::to_string(update.key.size()) + " bytes is too long"};
    if (update.record && update.record->size() > store::MaxRecordBytes)
        return Error{
            EFBIG, "file '" + name + "': a record of " + std::to_string(update.record->size()) + " bytes is too large"};
    return {};
}

Result<void> hold(DP *dp, store::ControlBlockContent &file, const store::Update &update, store::TransferMode mode) {
    if (auto possible = check_update(*file.file, update); !possible) return possible;
    if (auto locked = lock_for_update(dp, file.file->identity(), update.key); !locked) return locked;
    HeldUpdate held;
    if (update.record) held.record.emplace(*update.record);
    held.mode = mode;
    held.journalled = is_journalled(file);
    // The wait for the lock may have run a trap that ended the transaction.
    OpenTransaction *const open = open_transaction(dp);
    if (!open) return Error{ECANCELED, "the transaction was ended during a wait for the record's lock"};
    return open->updates.hold(file.file, update.key, std::move(held));
}

}  // namespace

void before_open(DP *dp) { dp->state<SessionTransaction>().watch_commits(); }

Result<bool> read_record(DP *dp, store::ControlBlockContent &file, std::string_view key, store::RecordBuffer &into,
                         store::TransferMode mode) {
    const HeldUpdate *const held = held_update(dp, file, key);
    if (!held) return file.file->read(key, into, mode);
    if (!held->record) return false;
    if (held->mode == mode)
        copy_into(into, *held->record);
    else
        copy_into(into, as_read(*file.file, *held, mode));
    return true;
}

Result<bool> record_exists(DP *dp, store::ControlBlockContent &file, std::string_view key) {
    if (const HeldUpdate *const held = held_update(dp, file, key)) return held->record.has_value();
    return file.file->exists(key);
}

Result<void> write_record(DP *dp, store::ControlBlockContent &file, std::string_view key, std::string_view record,
                          store::TransferMode mode) {
    if (settled(dp)) return hold(dp, file, {key, record}, mode);
    const store::UpdateScope scope(dp, is_journalled(file));
    return file.file->write(key, record, mode);
}

Result<bool> remove_record(DP *dp, store::ControlBlockContent &file, std::string_view key) {
    if (!settled(dp)) {
        const store::UpdateScope scope(dp, is_journalled(file));
        return file.file->remove(key);
    }
    if (auto locked = lock_for_update(dp, file.file->identity(), key); !locked) return locked.error();
    const auto exists = record_exists(dp, file, key);
    if (!exists || !*exists) return exists;
    if (auto held = hold(dp, file, {key, std::nullopt}, file.write_mode); !held) return held.error();
    return true;
}

Result<void> apply_updates(DP *dp, store::ControlBlockContent &file, const std::vector<store::Update> &updates,
                           store::TransferMode mode) {
    if (!settled(dp)) {
        const store::UpdateScope scope(dp, is_journalled(file));
        return file.file->apply(updates, mode);
    }
    for (const store::Update &update : updates)
        if (auto held = hold(dp, file, update, mode); !held) return held;
    return {};
}

Result<void> clear_file(DP *dp, store::ControlBlockContent &file) {
    if (settled(dp))
        return Error{EBUSY, "file '" + std::string(file.file->path()) + "' cannot be cleared within a transaction"};
    const store::UpdateScope scope(dp, is_journalled(file));
    return file.file->clear();
}

Result<std::unique_ptr<store::Cursor>> select_records(DP *dp, store::ControlBlockContent &file,
                                                      store::TransferMode mode) {
    const OpenTransaction *const open = settled(dp);
    auto cursor = file.file->select(mode);
    const auto held = open ? open->updates.find(file.file->identity()) : nullptr;
    if (!cursor || !held) return cursor;
    return overlaid_cursor(std::move(*cursor), held, mode);
}

}  // namespace velda::transaction
