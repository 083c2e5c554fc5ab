// select_list.h - a list of keys: what a cell of form VELDA_FORM_LIST addresses. Private to the family.
//
// The keys come from a dynamic array that the list owns, or stream from a file's cursor. Reading a streaming list as
// text gathers the keys that are left into such an array, and only then do they cost memory.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/base/handle.h"
#include "runtime/base/result.h"
#include "runtime/store/driver.h"

namespace velda::file {

class SelectList final : public Handle {
  public:
    // One key an attribute; "" is no key at all.
    explicit SelectList(std::string keys);
    // The keys of a file, by a cursor that reads records in `mode`. The list keeps the file open.
    SelectList(std::shared_ptr<store::OpenFile> file, std::unique_ptr<store::Cursor> cursor,
               store::TransferMode mode = store::TransferMode::Default);

    // The next key, nullopt at the end; valid until the next call.
    Result<std::optional<std::string_view>> next();

    // The next key with its record, nullopt at the end; valid until the next call. Only for a list that reads_items().
    Result<std::optional<store::Cursor::Item>> next_item();
    // True while the next key comes from this file's own cursor, which can read the record with it.
    bool reads_items(const store::OpenFile &file, store::TransferMode mode) const {
        const bool same_records = mode_ == mode || file.type() != "UD";  // directory files alone know modes
        return cursor_ && !ahead_ && file_.get() == &file && same_records;
    }

    // True when no key is left. May read one key ahead.
    Result<bool> at_end();

    // Keys that are left: exact for an array, the file's number of records less those read for a stream.
    Result<std::uint64_t> count_left();

    // The keys that are left as a dynamic array. An error that ends the gathering is what next() gives behind the keys
    // gathered so far.
    std::string_view text();

    const std::shared_ptr<store::OpenFile> &file() const { return file_; }

    // The list behind a cell of form VELDA_FORM_LIST.
    static SelectList &of(const VAR &cell) { return static_cast<SelectList &>(*handle_of(cell)); }

  private:
    Result<std::optional<std::string_view>> next_from_source();
    std::optional<std::string_view> next_of_array();
    Result<std::optional<std::string_view>> next_of_stream();
    Result<std::uint64_t> count_now();

    std::string keys_;
    std::size_t position_ = std::string::npos;  // of the next key in keys_; npos at the end
    std::shared_ptr<store::OpenFile> file_;
    std::unique_ptr<store::Cursor> cursor_;  // null: the keys are in keys_
    store::TransferMode mode_ = store::TransferMode::Default;
    std::optional<Error> error_;             // what stopped the gathering
    std::optional<std::string> ahead_;       // a key read ahead of its turn
    std::string current_;                    // the key handed out last, when it had been read ahead
    std::uint64_t read_ = 0;                 // keys taken from the cursor
    std::optional<std::uint64_t> left_;      // once it was asked for
};

// Makes the cell the only one that addresses `list`.
void store_list(DP *dp, VAR &cell, std::unique_ptr<SelectList> list);

}  // namespace velda::file
