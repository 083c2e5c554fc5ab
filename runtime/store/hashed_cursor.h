// hashed_cursor.h - SELECT of a hashed file: the keys fetched some hundred at a time, no snapshot held in between.
#pragma once

#include <memory>
#include <string>

#include "runtime/store/driver.h"
#include "runtime/store/environment.h"

namespace velda::store {

class HashedCursor : public Cursor {
  public:
    HashedCursor(std::string path, std::shared_ptr<Environment> environment)
        : path_(std::move(path)), environment_(std::move(environment)) {}

    Result<std::optional<std::string_view>> next_key() override;
    Result<std::optional<Item>> next_item() override;

  private:
    // One fetched entry: its head, then the key, then the record when records are fetched.
    struct EntryHead {
        std::uint32_t key_bytes;
        std::uint32_t record_bytes;
        std::uint32_t long_number;  // of a long key
    };

    Result<bool> advance(bool with_records);
    Result<void> fetch(bool with_records);
    int fetch_behind(const std::string &behind, Reader &reader, bool with_records);
    std::string position() const;
    void append(std::string_view stored_key, std::string_view key, std::string_view record);
    EntryHead head_at(std::size_t at) const;

    std::string path_;
    std::shared_ptr<Environment> environment_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t used_ = 0;     // bytes of the buffer that hold entries
    std::size_t current_ = 0;  // the entry that was handed out last
    std::size_t next_ = 0;     // the entry behind it
    bool started_ = false;     // an entry has been handed out
    bool with_records_ = false;
    bool at_end_ = false;  // nothing follows the fetched entries
};

}  // namespace velda::store
