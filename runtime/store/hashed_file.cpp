#include "runtime/store/hashed_file.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include "runtime/store/hashed_cursor.h"
#include "runtime/store/hashed_format.h"
#include "runtime/store/hashed_records.h"
#include "runtime/store/journalling.h"
#include "runtime/store/settings_text.h"

#include <sys/stat.h>

namespace velda::store {
namespace {

// What a small update may need beside its record: copies of the pages on the way to it.
constexpr std::size_t UpdateRoomBytes = 256 * 1024;

std::string control_key(std::uint32_t number) {
    std::string key(5, 'C');
    for (int i = 0; i < 4; ++i) key[1 + i] = static_cast<char>(number >> (8 * (3 - i)));
    return key;
}

}  // namespace

Result<void> check_sizes(std::string_view key, std::size_t record_bytes, std::string_view path) {
    if (key.size() > MaxKeyBytes)
        return Error{EINVAL, "file '" + std::string(path) + "': a key of " + std::to_string(key.size()) +
                                 " bytes is longer than " + std::to_string(MaxKeyBytes)};
    if (record_bytes > MaxRecordBytes)
        return Error{EFBIG, "file '" + std::string(path) + "': a record of " + std::to_string(record_bytes) +
                                " bytes is larger than " + std::to_string(MaxRecordBytes)};
    return {};
}

// Journals a change; the label tells where, should this process or its commit fail before the change is there.
template <class Journal>
Result<void> HashedFile::journal_noted(std::uint64_t transaction, Journal &&journal) {
    const JournalPosition begin = journal_position();
    JournalledChange &noted = environment_->journalled_change();
    if (begin.use != 0) noted = {transaction, begin.use, begin.stream, 0};
    Result<void> journalled = journal();
    if (begin.use == 0) return journalled;
    const JournalPosition end = journal_position();
    if (!journalled)
        noted.transaction = 0;
    else  // the set may have been changed before the append
        noted = {transaction, end.use, end.use == begin.use ? begin.stream : 0, end.stream};
    return journalled;
}

// A change that the journal tells of but that did not come about: its writer died or its commit failed. The journal
// learns what the records are.
Result<void> HashedFile::journal_unfinished(MDB_txn *transaction) {
    JournalledChange &noted = environment_->journalled_change();
    if (noted.transaction == 0 || noted.transaction != mdb_txn_id(transaction)) return {};
    auto keys = journalled_keys(path_, {noted.use, noted.begin}, noted.end);
    if (!keys) return keys.error();
    auto journalled = *keys ? journal_present(transaction, **keys) : journal_all_present(transaction);
    if (journalled) noted.transaction = 0;
    return journalled;
}

Result<void> HashedFile::journal_present(MDB_txn *transaction, const std::vector<std::string> &keys) {
    std::vector<Update> updates;
    MDB_cursor *cursor = nullptr;
    int rc = mdb_cursor_open(transaction, environment_->records(), &cursor);
    for (std::size_t n = 0; n < keys.size() && rc == 0; ++n) {
        std::string_view record;
        rc = find_record(cursor, keys[n], record);
        if (rc == 0)
            updates.push_back({keys[n], record});
        else if (rc == MDB_NOTFOUND)
            updates.push_back({keys[n], std::nullopt}), rc = 0;
    }
    if (cursor) mdb_cursor_close(cursor);
    if (rc != 0) return failure(rc, "cannot read from file");
    return updates.empty() ? Result<void>() : journal_updates(path_, updates, TransferMode::Default);
}

// After a CLEARFILE that did not come about.
Result<void> HashedFile::journal_all_present(MDB_txn *transaction) {
    constexpr std::size_t BatchRecords = 100;
    MDB_cursor *cursor = nullptr;
    int rc = mdb_cursor_open(transaction, environment_->records(), &cursor);
    if (rc != 0) return failure(rc, "cannot read from file");
    Result<void> journalled;
    std::vector<Update> updates;
    MDB_val key, data;
    for (rc = mdb_cursor_get(cursor, &key, &data, MDB_FIRST); rc == 0 && journalled;
         rc = mdb_cursor_get(cursor, &key, &data, MDB_NEXT)) {
        Update update{};
        std::string_view record;
        if (!entry_parts(key, data, update.key, record)) continue;
        update.record = record;
        updates.push_back(update);
        if (updates.size() < BatchRecords) continue;
        journalled = journal_updates(path_, updates, TransferMode::Default);
        updates.clear();
    }
    mdb_cursor_close(cursor);
    if (journalled && !updates.empty()) journalled = journal_updates(path_, updates, TransferMode::Default);
    return journalled;
}

void HashedFile::settle() {
    if (!environment_->writable() || !environment_->is_journalled() || !journal_wants_updates()) return;
    if (!environment_->may_lack_a_change()) return;
    constexpr int NothingChanged = -2;
    environment_->update(UpdateRoomBytes, [&](MDB_txn *transaction) {
        (void)journal_unfinished(transaction);  // else with the next update
        return NothingChanged;
    });
}

// Makes a change in the file's write turn and journals it there, before it is committed.
template <class Change, class Journal>
Result<void> HashedFile::change(std::size_t room_bytes, std::string_view failed, Change &&change, Journal &&journal) {
    constexpr int Refused = -2;            // by the journal; beside LMDB's own results
    std::optional<JournalledChange> told;  // what the label notes of this change
    for (;;) {
        if (environment_->is_journalled())
            if (auto may_go = journal_wait(); !may_go) return may_go;
        Result<void> journalled;
        const int rc = environment_->update(room_bytes, [&](MDB_txn *transaction) {
            const std::size_t number = mdb_txn_id(transaction);
            // Once more after a commit that found the map full, unless the label still notes this very change: another
            // process that had the turn meanwhile has taken it back in the journal, even if it changed nothing itself.
            const JournalledChange &noted = environment_->journalled_change();
            const bool is_told = told && noted == *told && noted.transaction == number;
            const bool is_asked_for = environment_->is_journalled() && !is_told;
            if (is_asked_for) journalled = journal_unfinished(transaction);
            if (!journalled) return Refused;
            if (const int unchanged = change(transaction)) return unchanged;
            if (is_asked_for) journalled = journal_noted(number, journal);
            if (!journalled) return Refused;
            told = noted;
            return 0;
        });
        if (rc == 0) return {};
        if (rc != Refused && told) settle();
        if (rc != Refused) return failure(rc, failed);
        if (journalled.error().number != JournalSuspended) return journalled;
    }
}

Result<bool> HashedFile::read(std::string_view key, RecordBuffer &into, TransferMode) {
    if (key.size() > MaxKeyBytes) return check_sizes(key, 0, path_).error();
    const int rc = environment_->read([&](Reader &reader) {
        std::string_view record;
        if (const MDB_val *place = reader.next_on_trail(key))
            record = view_of(*place);
        else if (const int missed = find_record(reader.records, key, record))
            return missed;
        record.copy(into.prepare(record.size()), record.size());
        return 0;
    });
    if (rc == 0) return true;
    if (rc == MDB_NOTFOUND) return false;
    return failure(rc, "cannot read from file");
}

Result<bool> HashedFile::exists(std::string_view key) {
    if (key.size() > MaxKeyBytes) return check_sizes(key, 0, path_).error();
    const int rc = environment_->read([&](Reader &reader) {
        std::string_view record;
        return find_record(reader.records, key, record);
    });
    if (rc == 0) return true;
    if (rc == MDB_NOTFOUND) return false;
    return failure(rc, "cannot read from file");
}

Result<void> HashedFile::write(std::string_view key, std::string_view record, TransferMode mode) {
    if (auto sized = check_sizes(key, record.size(), path_); !sized) return sized;
    const Update update{key, record};
    return change(
        UpdateRoomBytes + key.size() + record.size(), "cannot write to file",
        [&](MDB_txn *transaction) { return put_record(transaction, environment_->records(), key, record); },
        [&] {
            return journal_updates(path_, {&update, 1}, mode);
        });
}

Result<bool> HashedFile::remove(std::string_view key) {
    if (key.size() > MaxKeyBytes) return check_sizes(key, 0, path_).error();
    const Update update{key, std::nullopt};
    bool found = true;
    const auto removed = change(
        UpdateRoomBytes, "cannot delete from file",
        [&](MDB_txn *transaction) {
            const int rc = remove_record(transaction, environment_->records(), key);
            found = rc != MDB_NOTFOUND;
            return rc;
        },
        [&] {
            return journal_updates(path_, {&update, 1}, TransferMode::Default);
        });
    if (!found) return false;
    if (!removed) return removed.error();
    return true;
}

Result<void> HashedFile::apply(const std::vector<Update> &updates, TransferMode mode) {
    if (updates.empty()) return {};
    std::size_t room_bytes = UpdateRoomBytes;
    for (const Update &update : updates) {
        const std::size_t record_bytes = update.record ? update.record->size() : 0;
        if (auto sized = check_sizes(update.key, record_bytes, path_); !sized) return sized;
        room_bytes += update.key.size() + record_bytes;
    }
    return change(
        room_bytes, "cannot write to file",
        [&](MDB_txn *transaction) { return make_updates(transaction, environment_->records(), updates); },
        [&] { return journal_updates(path_, updates, mode); });
}

Result<void> HashedFile::clear() {
    return change(
        UpdateRoomBytes, "cannot clear file",
        [&](MDB_txn *transaction) { return mdb_drop(transaction, environment_->records(), 0); },
        [&] { return journal_clear(path_); });
}

Result<std::unique_ptr<Cursor>> HashedFile::select(TransferMode) {
    return std::unique_ptr<Cursor>(std::make_unique<HashedCursor>(path_, environment_));
}

// --- control records ---

Result<std::optional<std::string>> HashedFile::read_control(std::string_view key) {
    std::optional<std::string> block;
    const int rc = environment_->read([&](Reader &reader) {
        MDB_val at = value_of(key);
        MDB_val data;
        const int found = mdb_get(reader.transaction, environment_->control(), &at, &data);
        if (found == 0) block.emplace(view_of(data));
        return found;
    });
    if (rc && rc != MDB_NOTFOUND) return failure(rc, "cannot read from file");
    return block;
}

Result<void> HashedFile::write_control(std::string_view key, std::string_view block) {
    if (auto sized = check_sizes({}, block.size(), path_); !sized) return sized;
    const int rc = environment_->update(UpdateRoomBytes + block.size(), [&](MDB_txn *transaction) {
        MDB_val at = value_of(key);
        MDB_val data = value_of(block);
        return mdb_put(transaction, environment_->control(), &at, &data, 0);
    });
    if (rc) return failure(rc, "cannot write to file");
    return {};
}

Result<std::optional<std::string>> HashedFile::control_read(std::uint32_t number) {
    return read_control(control_key(number));
}

Result<void> HashedFile::control_write(std::uint32_t number, std::string_view block) {
    return write_control(control_key(number), block);
}

Result<bool> HashedFile::control_remove(std::uint32_t number) {
    const std::string key = control_key(number);
    const int rc = environment_->update(UpdateRoomBytes, [&](MDB_txn *transaction) {
        MDB_val at = value_of(key);
        return mdb_del(transaction, environment_->control(), &at, nullptr);
    });
    if (rc == 0) return true;
    if (rc == MDB_NOTFOUND) return false;
    return failure(rc, "cannot write to file");
}

// --- settings and status ---

Result<FileSettings> HashedFile::settings() {
    auto text = read_control(SettingsKey);
    if (!text) return text.error();
    return parse_settings_text(text->value_or(""), environment_->durability());
}

Result<void> HashedFile::change_settings(const FileSettings &settings) {
    if (auto changed = environment_->change_durability(settings.durability); !changed) return changed;
    if (auto written = write_control(SettingsKey, settings_text(settings)); !written) return written;
    environment_->set_journalled(settings.journalled);
    return {};
}

Result<FileStatus> HashedFile::status() {
    FileStatus status{std::string(type()), path_, {}, 0, 0, {}};
    auto its_settings = settings();
    if (!its_settings) return its_settings.error();
    status.settings = *its_settings;
    const int rc = environment_->read([&](Reader &reader) {
        MDB_stat counts;
        const int done = mdb_stat(reader.transaction, environment_->records(), &counts);
        status.records = counts.ms_entries;
        return done;
    });
    if (rc) return failure(rc, "cannot read from file");
    struct stat on_disk;
    if (stat(path_.c_str(), &on_disk) == 0) status.size_bytes = static_cast<std::uint64_t>(on_disk.st_blocks) * 512;
    if (!writable()) status.flags.emplace_back("read-only");
    return status;
}

}  // namespace velda::store
