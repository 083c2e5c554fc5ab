// writer.h - appending records to the set that is being written. Private to the folder.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/journal/configuration.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

// A record, but for what its place in the set decides. `body` is everything between header and trailer less the data,
// which a large record keeps where it is.
struct NewRecord {
    RecordType type;
    std::uint8_t flags = 0;
    bool is_encrypted = false;
    std::uint32_t strings_size = 0;
    std::string_view body;
    std::string_view data;
};

// Whether an append has to respect the suspended status.
enum class Hold { WhileSuspended, Never };

// Appends the records one behind the other, all or none, in the name of the session. Error store::JournalSuspended when
// the journal is suspended. Nothing is appended, and that is no error, when it has become inactive.
Result<void> append_records(DP *dp, Configuration &configuration, std::span<const NewRecord> records, Hold hold);

// Secures disk space for so many bytes of records behind what is written. Error 28 when there is none.
Result<void> secure_room(DP *dp, Configuration &configuration, std::uint64_t size_bytes);

// Puts an EOF record behind the current set, which the next append of this use would overwrite, and makes the files of
// the set durable.
Result<void> append_end_of_set(DP *dp, Configuration &configuration);

// Files of the current set that a sync has to reach, to be closed by the caller, and how far the set was written when
// they were taken.
struct OpenForSync {
    std::vector<int> descriptors;
    WrittenTo written;
};
// The files that hold records behind `synced`; with `all` every file, so that the first block's description is among
// what reaches the disk.
Result<OpenForSync> open_for_sync(Configuration &configuration, const WrittenTo &synced, bool all);

// Returns when no append is under way that began before.
void wait_for_append(DP *dp, Configuration &configuration);

}  // namespace velda::journal
