#include "journal/duplicator/dup_batch.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace velda::journal {

namespace {

constexpr std::size_t MostBytes = std::size_t{4} << 20;
// Larger batches would hardly be faster, and leave a list of free pages behind that slows down every later commit.
constexpr std::size_t MostUpdates = 1000;
constexpr std::size_t UpdatesBetweenLooks = 64;  // at the clock
constexpr std::int64_t LongestWaitMilliseconds = 150;
constexpr std::size_t MostGroupsKept = 16;  // from one batch to the next, with their room

std::size_t shared_bytes(const std::vector<FileUpdate> &updates) {
    const std::string_view first = updates.front().key;
    std::size_t shared = first.size();
    for (const FileUpdate &update : updates) {
        const std::size_t most = std::min(shared, update.key.size());
        shared = static_cast<std::size_t>(
            std::mismatch(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(most), update.key.begin()).first -
            first.begin());
    }
    return shared;
}

// Eight bytes of a key as a number that sorts as they do.
std::uint64_t head_of(std::string_view key, std::size_t from) {
    unsigned char bytes[8] = {};
    if (from < key.size()) key.copy(reinterpret_cast<char *>(bytes), sizeof bytes, from);
    return static_cast<std::uint64_t>(vgetlong64(bytes));
}

}  // namespace

UpdateBatch::UpdateBatch() : bytes_(std::make_unique_for_overwrite<char[]>(MostBytes)) {}

std::string_view UpdateBatch::keep_bytes(std::string_view bytes) {
    assert(used_ + bytes.size() <= MostBytes);
    char *const kept = bytes_.get() + used_;
    bytes.copy(kept, bytes.size());
    used_ += bytes.size();
    return {kept, bytes.size()};
}

UpdateBatch::Group *UpdateBatch::group_of(const FileUpdate &update) {
    if (last_group_ >= groups_.size() || groups_[last_group_].file != update.file) {
        const auto [known, is_new] = group_of_file_.try_emplace(update.file, groups_.size());
        if (is_new) groups_.push_back({update.file, update.flags, std::string(update.file_name), {}});
        last_group_ = known->second;
    }
    Group &group = groups_[last_group_];
    if (group.updates.empty()) group.flags = update.flags;
    return update.is_delete || group.flags == update.flags ? &group : nullptr;
}

void UpdateBatch::forget(const VediControlBlock *file) {
    if (!group_of_file_.contains(file)) return;
    assert(empty() || applying_);  // a failure of the batch itself may end the run
    is_stale_ = true;
    if (!applying_) clear();
}

bool UpdateBatch::add(const FileUpdate &update) {
    const std::uint32_t size = record_size(update.record);
    const std::string_view record(reinterpret_cast<const char *>(update.record), size);
    const bool has_own_data = update.data.data() < record.data() || update.data.data() >= record.data() + size;
    if (used_ + size + (has_own_data ? update.data.size() : 0) > MostBytes) return false;
    Group *const group = group_of(update);
    if (!group) return false;
    const std::string_view kept = keep_bytes(record);
    FileUpdate copy = update;
    copy.record = reinterpret_cast<const unsigned char *>(kept.data());
    copy.key = kept.substr(static_cast<std::size_t>(update.key.data() - record.data()), update.key.size());
    copy.data = has_own_data
                    ? keep_bytes(update.data)
                    : kept.substr(static_cast<std::size_t>(update.data.data() - record.data()), update.data.size());
    copy.file_name = {};  // the group has it
    group->updates.push_back(copy);
    if (count_++ == 0) first_added_ = steady_milliseconds();
    last_time_ = std::max(last_time_, record_time(update.record));
    return true;
}

bool UpdateBatch::has_room(std::size_t updates, std::size_t record_bytes) const {
    return count_ + updates <= MostUpdates && used_ + record_bytes <= MostBytes;
}

bool UpdateBatch::is_due() const {
    if (count_ >= MostUpdates) return true;
    return count_ % UpdatesBetweenLooks == 0 && count_ > 0 &&
           steady_milliseconds() - first_added_ >= LongestWaitMilliseconds;
}

void UpdateBatch::sort_keys(const std::vector<FileUpdate> &updates) {
    const std::size_t shared = shared_bytes(updates);
    order_.clear();
    for (std::uint32_t i = 0; i < updates.size(); ++i) order_.push_back({head_of(updates[i].key, shared), i});
    std::sort(order_.begin(), order_.end(), [&](const SortEntry &left, const SortEntry &right) {
        if (left.head != right.head) return left.head < right.head;
        const int compared = updates[left.index].key.compare(updates[right.index].key);
        return compared != 0 ? compared < 0 : left.index < right.index;
    });
}

// The updates in the order of their keys; of several for one key the last one counts.
void UpdateBatch::collect(const std::vector<FileUpdate> &updates) {
    sort_keys(updates);
    changes_.clear();
    for (std::size_t i = 0; i < order_.size(); ++i) {
        const FileUpdate &update = updates[order_[i].index];
        if (i + 1 < order_.size() && order_[i].head == order_[i + 1].head &&
            update.key == updates[order_[i + 1].index].key)
            continue;
        changes_.push_back({update.key.data(), static_cast<std::uint32_t>(update.key.size()),
                            static_cast<std::uint32_t>(update.data.size()),
                            update.is_delete ? nullptr : update.data.data()});
    }
}

void UpdateBatch::apply_group(DP *dp, const Group &group) {
    collect(group.updates);
    if (velda_apply_updates(dp, group.file, group.flags, changes_.data(),
                            static_cast<std::uint32_t>(changes_.size())) == 0) {
        std::int64_t bytes = 0;
        for (const FileUpdate &update : group.updates) bytes += record_size(update.record);
        count_output(dp, bytes, static_cast<std::int64_t>(group.updates.size()));
        return;
    }
    // Something in it cannot be: one by one in their order, so that each failure is told and all else is done.
    for (FileUpdate update : group.updates) {
        if (dup_context(dp).exiting) return;
        update.file_name = group.file_name;
        apply_update(dp, update);
    }
}

void UpdateBatch::clear() {
    used_ = 0;
    count_ = 0;
    applying_ = false;
    for (Group &group : groups_) group.updates.clear();
    if (!std::exchange(is_stale_, false) && groups_.size() <= MostGroupsKept) return;
    groups_.clear();
    group_of_file_.clear();
}

void UpdateBatch::apply(DP *dp) {
    if (applying_) return;
    applying_ = true;
    // Also when a failure ends the run: what is behind it is not applied then.
    struct Clearing {
        UpdateBatch &batch;
        ~Clearing() { batch.clear(); }
    } const clearing{*this};
    for (const Group &group : groups_)
        if (!group.updates.empty() && !dup_context(dp).exiting) apply_group(dp, group);
}

}  // namespace velda::journal
