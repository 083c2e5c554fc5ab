// recovery.h - how far a set is written, found out from its files. Private to the folder.
#pragma once

#include <functional>
#include <string_view>

#include "runtime/base/result.h"
#include "runtime/journal/config_record.h"
#include "runtime/journal/writer_state.h"

namespace velda::journal {

int files_with_names(const LogSetInfo &set);

// The stamp of the set's first block; 0 when it cannot be read.
std::int64_t first_block_stamp(const LogSetInfo &set);

// Walks the records of the present use of set `number` from where it is known to be on disk and gives the end of the
// last whole one: what lies behind was not on disk when the machine stopped. A read error is one.
Result<WrittenTo> find_end(const LogSetInfo &set, int number, const WrittenTo &synced);

// Calls `visit` for each whole record behind a position of the set, with its header, file name and key, until it gives
// false or the records end.
using RecordVisitor =
    std::function<bool(const char *header, std::string_view file, std::string_view key, std::uint64_t end)>;
void visit_records(const LogSetInfo &set, int number, std::uint64_t from, const RecordVisitor &visit);

}  // namespace velda::journal
