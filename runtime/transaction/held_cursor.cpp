// A walk over a file under the updates that a transaction holds of it.
//
// The keys that are held when the walk begins are left out of the file's own walk and come at its end, so each is seen
// once, wherever the file has it and whatever the transaction or its end does to it meanwhile.
#include <string>
#include <unordered_set>

#include "runtime/transaction/held_updates.h"

namespace velda::transaction {
namespace {

class OverlaidCursor final : public store::Cursor {
  public:
    OverlaidCursor(std::unique_ptr<store::Cursor> base, std::shared_ptr<HeldFile> held, store::TransferMode read_mode)
        : base_(std::move(base)), held_(std::move(held)), read_mode_(read_mode) {
        for (const auto &[key, update] : held_->updates) keys_.insert(key);
        next_ = keys_.begin();
    }

    Result<std::optional<std::string_view>> next_key() override {
        while (!base_at_end_) {
            auto key = base_->next_key();
            if (!key) return key.error();
            base_at_end_ = !*key;
            if (*key && !keys_.contains(**key)) return key;
        }
        for (; next_ != keys_.end(); ++next_) {
            const auto exists = exists_now(*next_);
            if (!exists) return exists.error();
            if (*exists) return std::optional<std::string_view>(*next_++);
        }
        return std::optional<std::string_view>();
    }

    Result<std::optional<Item>> next_item() override {
        while (!base_at_end_) {
            auto item = base_->next_item();
            if (!item) return item.error();
            base_at_end_ = !*item;
            if (*item && !keys_.contains((*item)->key)) return item;
        }
        for (; next_ != keys_.end(); ++next_) {
            const auto found = read_now(*next_);
            if (!found) return found.error();
            if (*found) return std::optional<Item>(Item{*next_++, record_});
        }
        return std::optional<Item>();
    }

  private:
    using Keys = std::unordered_set<std::string, KeyHash, std::equal_to<>>;

    // The updates are gone from `held_` when the transaction has ended: then the file itself is asked.
    Result<bool> exists_now(std::string_view key) const {
        if (const HeldUpdate *const update = held_->find(key)) return update->record.has_value();
        return held_->file->exists(key);
    }

    Result<bool> read_now(std::string_view key) {
        if (const HeldUpdate *const update = held_->find(key)) {
            if (update->record) record_ = as_read(*held_->file, *update, read_mode_);
            return update->record.has_value();
        }
        store::StringBuffer buffer(record_);
        return held_->file->read(key, buffer, read_mode_);
    }

    const std::unique_ptr<store::Cursor> base_;
    const std::shared_ptr<HeldFile> held_;
    const store::TransferMode read_mode_;
    Keys keys_;
    Keys::const_iterator next_;
    bool base_at_end_ = false;
    std::string record_;
};

}  // namespace

std::unique_ptr<store::Cursor> overlaid_cursor(std::unique_ptr<store::Cursor> base, std::shared_ptr<HeldFile> held,
                                               store::TransferMode read_mode) {
    return std::make_unique<OverlaidCursor>(std::move(base), std::move(held), read_mode);
}

}  // namespace velda::transaction
