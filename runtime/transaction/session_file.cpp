#include "runtime/transaction/session_file.h"

namespace velda::transaction {

Result<bool> read_record(DP *, store::ControlBlockContent &file, std::string_view key, store::RecordBuffer &into,
                         store::TransferMode mode) {
    return file.file->read(key, into, mode);
}

Result<bool> record_exists(DP *, store::ControlBlockContent &file, std::string_view key) {
    return file.file->exists(key);
}

Result<void> write_record(DP *, store::ControlBlockContent &file, std::string_view key, std::string_view record,
                          store::TransferMode mode) {
    return file.file->write(key, record, mode);
}

Result<bool> remove_record(DP *, store::ControlBlockContent &file, std::string_view key) {
    return file.file->remove(key);
}

Result<void> apply_updates(DP *, store::ControlBlockContent &file, const std::vector<store::Update> &updates,
                           store::TransferMode mode) {
    return file.file->apply(updates, mode);
}

Result<void> clear_file(DP *, store::ControlBlockContent &file) { return file.file->clear(); }

Result<std::unique_ptr<store::Cursor>> select_records(DP *, store::ControlBlockContent &file,
                                                      store::TransferMode mode) {
    return file.file->select(mode);
}

}  // namespace velda::transaction
