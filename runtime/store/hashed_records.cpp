#include "runtime/store/hashed_records.h"

#include <cerrno>

#include "runtime/store/hashed_format.h"

namespace velda::store {

KeyHash long_key_hash = strong_key_hash;

namespace {

constexpr unsigned MaxLongNumber = 0xFFFF;

// Walks the entries of a long key's family. On success the cursor stands on the key's own entry; on MDB_NOTFOUND
// `stored` carries the first number that is free.
int find_long(MDB_cursor *cursor, std::string_view key, std::string &stored, std::string_view &record) {
    stored = long_stored_key(key);
    MDB_val at = value_of(stored);
    MDB_val data;
    unsigned free_number = 0;
    int rc = mdb_cursor_get(cursor, &at, &data, MDB_SET_RANGE);
    for (; rc == 0; rc = mdb_cursor_get(cursor, &at, &data, MDB_NEXT)) {
        const std::string_view found = view_of(at);
        if (!is_long_stored_key(found) || long_family(found) != long_family(stored)) break;
        LongData parts;
        if (!parse_long_data(view_of(data), parts)) return MDB_CORRUPTED;
        if (parts.key == key) {
            stored = found;
            record = parts.record;
            return 0;
        }
        if (long_number(found) == free_number) ++free_number;
    }
    if (rc != 0 && rc != MDB_NOTFOUND) return rc;
    if (free_number > MaxLongNumber) return ENOSPC;
    set_long_number(stored, free_number);
    return MDB_NOTFOUND;
}

// A cursor of a write transaction, closed with its scope.
struct UpdateCursor {
    UpdateCursor(MDB_txn *transaction, MDB_dbi records) : result(mdb_cursor_open(transaction, records, &cursor)) {}
    ~UpdateCursor() {
        if (cursor) mdb_cursor_close(cursor);
    }
    UpdateCursor(const UpdateCursor &) = delete;
    UpdateCursor &operator=(const UpdateCursor &) = delete;
    MDB_cursor *cursor = nullptr;
    int result;
};

int put_long(MDB_txn *transaction, MDB_dbi records, std::string_view key, std::string_view record) {
    std::string stored;
    std::string_view before;
    {
        const UpdateCursor update(transaction, records);
        if (update.result) return update.result;
        const int rc = find_long(update.cursor, key, stored, before);
        if (rc != 0 && rc != MDB_NOTFOUND) return rc;
    }
    MDB_val at = value_of(stored);
    MDB_val data{LongHeadBytes + key.size() + record.size(), nullptr};
    if (const int rc = mdb_put(transaction, records, &at, &data, MDB_RESERVE)) return rc;
    char *target = static_cast<char *>(data.mv_data);
    const auto key_bytes = static_cast<std::uint32_t>(key.size());
    std::memcpy(target, &key_bytes, LongHeadBytes);
    key.copy(target + LongHeadBytes, key.size());
    record.copy(target + LongHeadBytes + key.size(), record.size());
    return 0;
}

}  // namespace

int find_record(MDB_cursor *cursor, std::string_view key, std::string_view &record) {
    if (!is_plain_key(key)) {
        std::string stored;
        return find_long(cursor, key, stored, record);
    }
    MDB_val at = value_of(key);
    MDB_val data;
    const int rc = mdb_cursor_get(cursor, &at, &data, MDB_SET);
    if (rc == 0) record = view_of(data);
    return rc;
}

int put_record(MDB_txn *transaction, MDB_dbi records, std::string_view key, std::string_view record) {
    if (!is_plain_key(key)) return put_long(transaction, records, key, record);
    MDB_val at = value_of(key);
    MDB_val data = value_of(record);
    return mdb_put(transaction, records, &at, &data, 0);
}

int remove_record(MDB_txn *transaction, MDB_dbi records, std::string_view key) {
    if (is_plain_key(key)) {
        MDB_val at = value_of(key);
        return mdb_del(transaction, records, &at, nullptr);
    }
    const UpdateCursor update(transaction, records);
    if (update.result) return update.result;
    std::string stored;
    std::string_view before;
    const int rc = find_long(update.cursor, key, stored, before);
    return rc ? rc : mdb_cursor_del(update.cursor, 0);
}

int make_updates(MDB_txn *transaction, MDB_dbi records, const std::vector<Update> &updates) {
    // One cursor for all puts: a key that belongs on the page of the one before needs no search from the root.
    const UpdateCursor puts(transaction, records);
    if (puts.result) return puts.result;
    for (const Update &update : updates) {
        int rc;
        if (!update.record) {
            rc = remove_record(transaction, records, update.key);
            if (rc == MDB_NOTFOUND) rc = 0;
        } else if (is_plain_key(update.key)) {
            MDB_val at = value_of(update.key);
            MDB_val data = value_of(*update.record);
            rc = mdb_cursor_put(puts.cursor, &at, &data, 0);
        } else {
            rc = put_long(transaction, records, update.key, *update.record);
        }
        if (rc) return rc;
    }
    return 0;
}

bool entry_parts(const MDB_val &stored_key, const MDB_val &data, std::string_view &key, std::string_view &record) {
    key = view_of(stored_key);
    record = view_of(data);
    if (!is_long_stored_key(key)) return true;
    LongData parts;
    if (!parse_long_data(record, parts)) return false;
    key = parts.key;
    record = parts.record;
    return true;
}

}  // namespace velda::store
