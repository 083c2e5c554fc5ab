#include "runtime/file/select_list.h"

#include <algorithm>

#include "runtime/value/value.h"

namespace velda::file {
namespace {

void destroy_list(Handle *handle) { delete static_cast<SelectList *>(handle); }

std::string_view list_text(const Handle *handle) {
    // Gathering the keys of a stream changes how they are kept, not which they are.
    return const_cast<SelectList *>(static_cast<const SelectList *>(handle))->text();
}

constexpr HandleOperations ListOperations = {destroy_list, list_text};

}  // namespace

SelectList::SelectList(std::string keys) : keys_(std::move(keys)) {
    operations = &ListOperations;
    if (!keys_.empty()) position_ = 0;
}

SelectList::SelectList(std::shared_ptr<store::OpenFile> file, std::unique_ptr<store::Cursor> cursor,
                       store::TransferMode mode)
    : file_(std::move(file)), cursor_(std::move(cursor)), mode_(mode) {
    operations = &ListOperations;
}

std::optional<std::string_view> SelectList::next_of_array() {
    if (position_ == std::string::npos) return std::nullopt;
    const std::size_t end = keys_.find(AM, position_);
    const std::string_view key = std::string_view(keys_).substr(position_, end - position_);
    position_ = end == std::string::npos ? end : end + 1;
    return key;
}

Result<std::optional<std::string_view>> SelectList::next_of_stream() {
    auto key = cursor_->next_key();
    if (key && *key) ++read_;
    if (key && !*key) cursor_.reset();
    return key;
}

Result<std::optional<std::string_view>> SelectList::next_from_source() {
    if (cursor_) return next_of_stream();
    auto key = next_of_array();
    if (!key && error_) return *std::exchange(error_, std::nullopt);
    return key;
}

Result<std::optional<std::string_view>> SelectList::next() {
    if (left_ && *left_ > 0) --*left_;
    if (!ahead_) return next_from_source();
    current_ = std::move(*ahead_);
    ahead_.reset();
    return std::optional<std::string_view>(current_);
}

Result<std::optional<store::Cursor::Item>> SelectList::next_item() {
    if (left_ && *left_ > 0) --*left_;
    auto item = cursor_->next_item();
    if (item && *item) ++read_;
    if (item && !*item) cursor_.reset();
    return item;
}

Result<bool> SelectList::at_end() {
    if (ahead_) return false;
    auto key = next_from_source();
    if (!key) return key.error();
    if (!*key) return true;
    ahead_ = std::string(**key);
    return false;
}

Result<std::uint64_t> SelectList::count_now() {
    if (!cursor_) {
        const bool any = position_ != std::string::npos;
        const auto rest = any ? std::string_view(keys_).substr(position_) : std::string_view();
        return static_cast<std::uint64_t>(std::count(rest.begin(), rest.end(), AM)) + (any ? 1 : 0) + (ahead_ ? 1 : 0);
    }
    const auto status = file_->status();
    if (!status) return status.error();
    const std::uint64_t handed_out = read_ - (ahead_ ? 1 : 0);
    return status->records - std::min(status->records, handed_out);
}

Result<std::uint64_t> SelectList::count_left() {
    const auto end = at_end();
    if (!end) return end.error();
    if (*end) return 0;
    if (!left_) {
        const auto count = count_now();
        if (!count) return count.error();
        left_ = *count;
    }
    // There is a next key, whatever others have deleted since.
    return std::max<std::uint64_t>(*left_, 1);
}

std::string_view SelectList::text() {
    if (!cursor_ && !ahead_)
        return position_ == std::string::npos ? std::string_view() : std::string_view(keys_).substr(position_);
    std::string gathered;
    bool any = false;
    for (;;) {
        auto key = next();
        if (!key) error_ = key.error();
        if (!key || !*key) break;
        if (any) gathered += AM;
        gathered += **key;
        any = true;
    }
    cursor_.reset();
    left_.reset();
    keys_ = std::move(gathered);
    position_ = any ? 0 : std::string::npos;
    return keys_;
}

void store_list(DP *dp, VAR &cell, std::unique_ptr<SelectList> list) {
    if (cell.form & VELDA_MASK_RELEASE) VLibBStoreFreeVar_VB(dp, &cell);
    cell.form = VELDA_FORM_LIST;
    cell.formExtra = 0;
    // The cell's text is the handle that begins the list.
    cell.text = reinterpret_cast<char *>(static_cast<Handle *>(list.release()));
    cell.length = 0;
}

}  // namespace velda::file
