#include "runtime/file/statement.h"

#include <cerrno>

#include "runtime/process/stop.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

constexpr std::size_t ShownKeyBytes = 80;

// Rows in the order of Action.
constexpr std::string_view MessageKeys[] = {"FILE_READ", "FILE_WRITE",  "FILE_DELETE",  "FILE_CLEAR",
                                            "FILE_LOCK", "FILE_SELECT", "FILE_READNEXT"};

std::string failure_message(Action action, std::string_view file, std::string_view key, const Error &error) {
    std::string message(MessageKeys[static_cast<std::size_t>(action)]);
    for (const std::string &part : {shown_in_message(file), shown_in_message(key), error.message}) {
        message += VM;
        message += part;
    }
    return message;
}

}  // namespace

int statement_code(int error_number) {
    switch (error_number) {
        case EACCES:
        case EPERM:
        case EROFS:
            return VELDA_ERROR_PERMISSION;
        default:
            return error_number;
    }
}

void note_code(const Statement &statement, int code) {
    statement.dp->last_error = code;
    if (statement.setting) velda_store_integer(statement.dp, statement.setting, code);
}

int take_else_path(const Statement &statement, int error_number) {
    note_code(statement, statement_code(error_number));
    return ElsePath;
}

int fail(const Statement &statement, Action action, std::string_view file, std::string_view key, const Error &error) {
    const int code = statement_code(error.number);
    // The texts are copied first: the setting variable may be the cell that holds one of them.
    const std::string message = failure_message(action, file, key, error);
    note_code(statement, code);
    if (statement.flags & VELDA_REPORT_ERRORS) return ErrorReported;
    fail_command(statement.dp, code, message);
}

std::string shown_in_message(std::string_view text) {
    std::string shown(text.substr(0, ShownKeyBytes));
    for (char &byte : shown) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7F || code >= 0xFA) byte = '.';
    }
    if (text.size() > ShownKeyBytes) shown += "...";
    return shown;
}

VediControlBlock *block_of(DP *dp, const VAR *file) {
    if (!file) file = &dp->state<FileState>().default_file;
    if (!file->is_file()) return nullptr;
    auto *const block = reinterpret_cast<VediControlBlock *>(file->text);
    return store::is_open(block) ? block : nullptr;
}

store::ControlBlockContent *content_of_cell(DP *dp, const VAR *file) {
    VediControlBlock *const block = block_of(dp, file);
    return block ? &store::content_of(*block) : nullptr;
}

Error not_open_error() { return {EBADF, "the variable holds no open file"}; }

Result<void> check_key(std::string_view key) {
    if (key.empty()) return Error{EINVAL, "the key is empty"};
    if (key.size() > store::MaxKeyBytes)
        return Error{ENAMETOOLONG, "the key has " + std::to_string(key.size()) + " bytes, at most " +
                                       std::to_string(store::MaxKeyBytes) + " are possible"};
    return {};
}

Result<void> check_record(std::string_view record) {
    if (record.size() <= store::MaxRecordBytes) return {};
    return Error{EFBIG, "the record has " + std::to_string(record.size()) + " bytes, at most " +
                            std::to_string(store::MaxRecordBytes) + " are possible"};
}

char *CellBuffer::prepare(std::size_t size_bytes) {
    return velda_prepare_text(dp_, &cell_, static_cast<int>(size_bytes));
}

}  // namespace velda::file
