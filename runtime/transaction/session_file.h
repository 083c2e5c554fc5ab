// session_file.h - records of an open file as one session sees and changes them: the road that every statement and
// every call of the driver layer takes to the records of a database file. Private to the runtime.
//
// Outside of a transaction these are the driver's calls. Inside one, updates are held in the session until its end:
// reads and walks of the session find them, other sessions do not.
#pragma once

#include "runtime/store/control_block.h"

namespace velda::transaction {

// As the calls of the same name of store::OpenFile.
Result<bool> read_record(DP *dp, store::ControlBlockContent &file, std::string_view key, store::RecordBuffer &into,
                         store::TransferMode mode);
Result<bool> record_exists(DP *dp, store::ControlBlockContent &file, std::string_view key);
Result<void> write_record(DP *dp, store::ControlBlockContent &file, std::string_view key, std::string_view record,
                          store::TransferMode mode);
Result<bool> remove_record(DP *dp, store::ControlBlockContent &file, std::string_view key);
Result<void> apply_updates(DP *dp, store::ControlBlockContent &file, const std::vector<store::Update> &updates,
                           store::TransferMode mode);
Result<void> clear_file(DP *dp, store::ControlBlockContent &file);
Result<std::unique_ptr<store::Cursor>> select_records(DP *dp, store::ControlBlockContent &file,
                                                      store::TransferMode mode);

// A session opens a file: what dead sessions left half made is finished first.
void before_open(DP *dp);

}  // namespace velda::transaction
