// held_updates.h - what a transaction holds: for each file the last update of each record. Private to the folder.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "runtime/store/driver.h"

namespace velda::transaction {

// Keys and records that one transaction may hold.
inline constexpr std::size_t MaxHeldBytes = std::size_t{256} << 20;

struct HeldUpdate {
    std::optional<std::string> record;  // absent: the record is deleted
    store::TransferMode mode = store::TransferMode::Default;
    bool journalled = true;
    std::uint64_t order = 0;  // among the updates of the transaction
};

// A key may be asked for by a view.
struct KeyHash : std::hash<std::string_view> {
    using is_transparent = void;
};
using UpdatesByKey = std::unordered_map<std::string, HeldUpdate, KeyHash, std::equal_to<>>;

struct HeldFile {
    explicit HeldFile(std::shared_ptr<store::OpenFile> opened) : file(std::move(opened)) {}

    const HeldUpdate *find(std::string_view key) const {
        const auto found = updates.find(key);
        return found == updates.end() ? nullptr : &found->second;
    }

    const std::shared_ptr<store::OpenFile> file;
    UpdatesByKey updates;
};

class HeldUpdates {
  public:
    // The file's updates; null when there are none.
    std::shared_ptr<HeldFile> find(const store::FileIdentity &file) const;
    const HeldUpdate *find(const store::FileIdentity &file, std::string_view key) const {
        const HeldFile *const held = file_of(file);
        return held ? held->find(key) : nullptr;
    }

    // Holds an update, in place of the one that was held of the record. An error when that would be too much; nothing
    // has changed then.
    Result<void> hold(const std::shared_ptr<store::OpenFile> &file, std::string_view key, HeldUpdate update);

    const std::vector<std::shared_ptr<HeldFile>> &files() const { return files_; }
    std::size_t size_bytes() const { return size_bytes_; }

  private:
    HeldFile *file_of(const store::FileIdentity &file) const;

    std::vector<std::shared_ptr<HeldFile>> files_;  // few: they are looked through
    std::size_t size_bytes_ = 0;
    std::uint64_t next_order_ = 0;
};

// The record as a read in `read_mode` finds it once the update is made.
std::string as_read(const store::OpenFile &file, const HeldUpdate &update, store::TransferMode read_mode);

// A walk over a file as the session sees it: the records of `base` under the updates held of the file.
std::unique_ptr<store::Cursor> overlaid_cursor(std::unique_ptr<store::Cursor> base, std::shared_ptr<HeldFile> held,
                                               store::TransferMode read_mode);

}  // namespace velda::transaction
