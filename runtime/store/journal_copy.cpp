#include "runtime/store/journal_copy.h"

#include <vector>

namespace velda::store {

namespace {

constexpr std::size_t BatchBytes = std::size_t{1} << 20;
constexpr std::size_t BatchRecords = 1000;

// Records that wait to be journalled together.
class Batch {
  public:
    explicit Batch(const std::string &path) : path_(path) {}

    Result<void> add(std::string_view key, std::string_view record) {
        records_.push_back({std::string(key), std::string(record)});
        bytes_ += key.size() + record.size();
        return records_.size() >= BatchRecords || bytes_ >= BatchBytes ? flush() : Result<void>();
    }
    Result<void> flush() {
        std::vector<Update> updates;
        for (const auto &[key, record] : records_) updates.push_back({key, record});
        auto journalled = updates.empty() ? Result<void>() : journal_updates(path_, updates, TransferMode::Binary);
        records_.clear();
        bytes_ = 0;
        return journalled;
    }

  private:
    const std::string &path_;
    std::vector<std::pair<std::string, std::string>> records_;
    std::size_t bytes_ = 0;
};

}  // namespace

Result<void> journal_copy(OpenFile &copy, const std::string &to) {
    if (!journal_wants_updates()) return {};
    auto settings = copy.settings();
    if (!settings) return settings.error();
    if (!settings->journalled) return {};
    if (auto journalled = journal_create(to, copy.type(), *settings); !journalled) return journalled;
    auto cursor = copy.select(TransferMode::Binary);
    if (!cursor) return cursor.error();
    Batch batch(to);
    for (;;) {
        const auto item = (*cursor)->next_item();
        if (!item) return item.error();
        if (!*item) return batch.flush();
        if (auto added = batch.add((*item)->key, (*item)->record); !added) return added;
    }
}

}  // namespace velda::store
