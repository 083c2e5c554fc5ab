// hashed_records.h - one record found, put and removed in LMDB's trees, whatever the length of its key. All return an
// LMDB result.
#pragma once

#include <lmdb.h>

#include <string_view>
#include <vector>

#include "runtime/store/driver.h"

namespace velda::store {

// Places `cursor` on the record and shows its bytes, valid until the transaction ends or changes.
int find_record(MDB_cursor *cursor, std::string_view key, std::string_view &record);

int put_record(MDB_txn *transaction, MDB_dbi records, std::string_view key, std::string_view record);

// MDB_NOTFOUND when there is none.
int remove_record(MDB_txn *transaction, MDB_dbi records, std::string_view key);

// All of a batch, in order; a record to be removed may be absent.
int make_updates(MDB_txn *transaction, MDB_dbi records, const std::vector<Update> &updates);

// The key that a stored entry stands for, and its record; false when a long key's data are damaged.
bool entry_parts(const MDB_val &stored_key, const MDB_val &data, std::string_view &key, std::string_view &record);

}  // namespace velda::store
