#include "runtime/store/hashed_cursor.h"

#include <algorithm>
#include <cstring>

#include "runtime/store/hashed_format.h"
#include "runtime/store/hashed_records.h"

namespace velda::store {
namespace {

constexpr std::size_t MaxFetchedEntries = 256;
constexpr std::size_t MaxFetchedBytes = 64 * 1024;  // one entry may be longer

}  // namespace

Result<std::optional<std::string_view>> HashedCursor::next_key() {
    auto there = advance(false);
    if (!there) return there.error();
    if (!*there) return std::optional<std::string_view>();
    return std::optional<std::string_view>({buffer_.get() + current_ + sizeof(EntryHead), head_at(current_).key_bytes});
}

Result<std::optional<Cursor::Item>> HashedCursor::next_item() {
    auto there = advance(true);
    if (!there) return there.error();
    if (!*there) return std::optional<Item>();
    const EntryHead head = head_at(current_);
    const char *key = buffer_.get() + current_ + sizeof head;
    return std::optional<Item>({{key, head.key_bytes}, {key + head.key_bytes, head.record_bytes}});
}

// Moves to the next entry; false at the end.
Result<bool> HashedCursor::advance(bool with_records) {
    const bool wrong_kind = with_records && !with_records_;
    if (next_ == used_ && at_end_ && (!wrong_kind || started_)) return false;
    if (next_ == used_ || wrong_kind) {
        if (auto fetched = fetch(with_records); !fetched) return fetched.error();
        if (used_ == 0) return false;
    }
    started_ = true;
    current_ = next_;
    const EntryHead head = head_at(current_);
    next_ = current_ + sizeof head + head.key_bytes + (with_records_ ? head.record_bytes : 0);
    return true;
}

Result<void> HashedCursor::fetch(bool with_records) {
    const std::string behind = started_ ? position() : std::string();
    used_ = current_ = next_ = 0;
    with_records_ = with_records;
    at_end_ = false;
    const int rc = environment_->read([&](Reader &reader) { return fetch_behind(behind, reader, with_records); });
    if (rc == 0) return {};
    at_end_ = true;
    started_ = false;
    used_ = 0;
    return lmdb_error(rc, "cannot select from file", path_);
}

int HashedCursor::fetch_behind(const std::string &behind, Reader &reader, bool with_records) {
    MDB_cursor *const cursor = reader.records;
    if (!with_records) {
        reader.trail.clear();
        reader.trail_at = 0;
    }
    MDB_val at = value_of(behind);
    MDB_val data;
    int rc = mdb_cursor_get(cursor, &at, &data, started_ ? MDB_SET_RANGE : MDB_FIRST);
    if (rc == 0 && started_ && view_of(at) == behind) rc = mdb_cursor_get(cursor, &at, &data, MDB_NEXT);
    std::size_t entries = 0;
    for (; rc == 0; rc = mdb_cursor_get(cursor, &at, &data, MDB_NEXT)) {
        std::string_view key, record;
        if (!entry_parts(at, data, key, record)) return MDB_CORRUPTED;
        append(view_of(at), key, with_records ? record : std::string_view());
        if (!with_records) reader.trail.push_back({value_of(key), value_of(record)});
        if (++entries == MaxFetchedEntries || used_ >= MaxFetchedBytes) return 0;
    }
    at_end_ = rc == MDB_NOTFOUND;
    return at_end_ ? 0 : rc;
}

// The stored key of the entry that was handed out last.
std::string HashedCursor::position() const {
    const EntryHead head = head_at(current_);
    const std::string_view key(buffer_.get() + current_ + sizeof head, head.key_bytes);
    if (is_plain_key(key)) return std::string(key);
    std::string stored = long_stored_key(key);
    set_long_number(stored, head.long_number);
    return stored;
}

void HashedCursor::append(std::string_view stored_key, std::string_view key, std::string_view record) {
    const std::size_t needed = used_ + sizeof(EntryHead) + key.size() + record.size();
    if (needed > capacity_) {
        const std::size_t capacity = std::max(needed, std::min<std::size_t>(2 * capacity_, MaxFetchedBytes) + 4096);
        auto larger = std::make_unique_for_overwrite<char[]>(capacity);
        if (used_ > 0) std::memcpy(larger.get(), buffer_.get(), used_);
        buffer_ = std::move(larger);
        capacity_ = capacity;
    }
    const EntryHead head{static_cast<std::uint32_t>(key.size()), static_cast<std::uint32_t>(record.size()),
                         is_long_stored_key(stored_key) ? long_number(stored_key) : 0};
    char *target = buffer_.get() + used_;
    std::memcpy(target, &head, sizeof head);
    key.copy(target + sizeof head, key.size());
    record.copy(target + sizeof head + key.size(), record.size());
    used_ = needed;
}

HashedCursor::EntryHead HashedCursor::head_at(std::size_t at) const {
    EntryHead head;
    std::memcpy(&head, buffer_.get() + at, sizeof head);
    return head;
}

}  // namespace velda::store
