// dup_batch.h - updates that wait to be applied together. Private to the duplicator.
//
// With exclusive use of the database nobody else asks for the records of its files, so consecutive updates may reach a
// file in one commit and in the order of their keys, which costs a fraction of a commit each. What can be observed stays:
// a failed update is reported by itself, the counters count what was applied, and the batch is applied before anything
// but an update, before a wait and before a milestone.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "journal/duplicator/dup_record.h"

namespace velda::journal {

// One update of the database, as the runtime is to be told.
struct FileUpdate {
    VediControlBlock *file = nullptr;
    std::string_view file_name;             // as it is here
    const unsigned char *record = nullptr;  // where it comes from
    std::string_view key;
    std::string_view data;
    std::uint32_t flags = 0;
    std::uint32_t value = 0;
    bool is_delete = false;
};

class UpdateBatch {
  public:
    UpdateBatch();

    bool empty() const { return count_ == 0; }
    // Keeps a copy of the update. False, and nothing is kept, when there is no room until the batch has been applied.
    bool add(const FileUpdate &update);
    // The file is about to be closed. None of its updates waits.
    void forget(const VediControlBlock *file);
    // Whether so many more updates, of records of so many bytes in all, find room in it.
    bool has_room(std::size_t updates, std::size_t record_bytes) const;
    // Whether it is time to apply: it is full, or has waited long enough.
    bool is_due() const;
    // Applies all and reports what fails. Does nothing while it is at it.
    void apply(DP *dp);
    // The stamp of the latest update kept.
    std::int64_t last_time() const { return last_time_; }

  private:
    // The updates of one file that are written in one way.
    struct Group {
        VediControlBlock *file;
        std::uint32_t flags;
        std::string file_name;
        std::vector<FileUpdate> updates;
    };
    // Keys sort by eight bytes behind those that all of them share, nearly always without a look at the keys.
    struct SortEntry {
        std::uint64_t head;
        std::uint32_t index;
    };

    // Null when updates of the file wait that are written in another way.
    Group *group_of(const FileUpdate &update);
    std::string_view keep_bytes(std::string_view bytes);
    void sort_keys(const std::vector<FileUpdate> &updates);
    void collect(const std::vector<FileUpdate> &updates);
    void apply_group(DP *dp, const Group &group);
    void clear();

    std::unique_ptr<char[]> bytes_;
    std::size_t used_ = 0;
    std::size_t count_ = 0;
    std::int64_t first_added_ = 0;  // milliseconds of the steady clock
    std::int64_t last_time_ = 0;
    bool applying_ = false;
    bool is_stale_ = false;  // groups name a file that was closed
    std::vector<Group> groups_;
    std::unordered_map<const VediControlBlock *, std::size_t> group_of_file_;
    std::size_t last_group_ = 0;
    std::vector<SortEntry> order_;
    std::vector<VELDAUpdate> changes_;
};

// Applies one update now and reports a failure.
void apply_update(DP *dp, const FileUpdate &update);

}  // namespace velda::journal
