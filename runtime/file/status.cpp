// status.cpp - IOCTL, STATUS, FILEINFO, DIR and the unique key: what a program asks about files and paths.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "runtime/convert/convert.h"
#include "runtime/file/statement.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

// --- modes ---------------------------------------------------------------------------------------------------------

// One word of a mode text: what it sets and to what.
struct ModeWord {
    std::string_view word;
    store::TransferMode store::ControlBlockContent::*mode;
    store::TransferMode value;
};

constexpr ModeWord ModeWords[] = {
    {"RB", &store::ControlBlockContent::read_mode, store::TransferMode::Binary},
    {"RT", &store::ControlBlockContent::read_mode, store::TransferMode::Text},
    {"WB", &store::ControlBlockContent::write_mode, store::TransferMode::Binary},
    {"WT", &store::ControlBlockContent::write_mode, store::TransferMode::Text},
};

const ModeWord *find_mode_word(std::string_view word) {
    const auto *const found =
        std::find_if(std::begin(ModeWords), std::end(ModeWords), [&](const ModeWord &row) { return row.word == word; });
    return found == std::end(ModeWords) ? nullptr : found;
}

// Sets the modes named in `text`: all of them, or none when a word is unknown.
bool set_modes(store::ControlBlockContent &content, std::string_view text) {
    store::TransferMode read_mode = content.read_mode, write_mode = content.write_mode;
    while (true) {
        const std::size_t comma = text.find(',');
        const ModeWord *const row = find_mode_word(text.substr(0, comma));
        if (!row) {
            content.read_mode = read_mode;
            content.write_mode = write_mode;
            return false;
        }
        content.*(row->mode) = row->value;
        if (comma == std::string_view::npos) return true;
        text.remove_prefix(comma + 1);
    }
}

// The word that names the mode; "" for the driver's default.
std::string_view mode_word(store::TransferMode store::ControlBlockContent::*mode, store::TransferMode value) {
    for (const ModeWord &row : ModeWords) {
        if (row.mode == mode && row.value == value) return row.word;
    }
    return {};
}

// --- status --------------------------------------------------------------------------------------------------------

VAR joined_values(const std::vector<std::string> &words) {
    std::string joined;
    for (const std::string &word : words) {
        if (!joined.empty()) joined += VM;
        joined += word;
    }
    return joined;
}

std::string octal(int mode) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%04o", static_cast<unsigned>(mode));
    return digits;
}

Result<VAR> status_of(const store::ControlBlockContent &content, const VediControlBlock &block) {
    const auto status = content.file->status();
    if (!status) return status.error();
    const store::FileIdentity identity = content.file->identity();
    const bool lazy = status->settings.durability == store::Durability::Lazy;
    const bool logged = !(block.flags & VEDI_FILE_NOT_JOURNALLED);
    VAR result("");
    result(VELDA_STATUS_TYPE) = status->type;
    result(VELDA_STATUS_RECORDS) = status->records;
    result(VELDA_STATUS_SIZE) = status->size_bytes;
    result(VELDA_STATUS_DURABILITY) = lazy ? "lazy" : "sync";
    result(VELDA_STATUS_LOGGED) = logged ? 1 : 0;
    result(VELDA_STATUS_PERMISSIONS) = octal(status->settings.permissions);
    result(VELDA_STATUS_OPTIONS) = joined_values(status->settings.options);
    result(VELDA_STATUS_FLAGS) = joined_values(status->flags);
    result(VELDA_STATUS_READ_MODE) = mode_word(&store::ControlBlockContent::read_mode, content.read_mode);
    result(VELDA_STATUS_WRITE_MODE) = mode_word(&store::ControlBlockContent::write_mode, content.write_mode);
    result(VELDA_STATUS_INODE) = identity.inode;
    result(VELDA_STATUS_DEVICE) = identity.device;
    result(VELDA_STATUS_NAME) = content.name;
    result(VELDA_STATUS_PATH) = status->path;
    return result;
}

// STATUS and control command 10: the status in the target, or "" and the ELSE path.
int store_status(const Statement &statement, const VAR *file, VAR &target) {
    const VediControlBlock *const block = block_of(statement.dp, file);
    auto status = block ? status_of(store::content_of(*block), *block) : Result<VAR>(not_open_error());
    if (!status) {
        target = "";
        return take_else_path(statement, status.error().number);
    }
    target = std::move(*status);
    return Done;
}

// --- paths and keys ------------------------------------------------------------------------------------------------

std::string_view dir_flags(const struct stat &status) {
    if (S_ISDIR(status.st_mode)) return "D";
    return S_ISREG(status.st_mode) ? "" : "S";
}

std::string native_path(std::string_view path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

// Appends `value` in base 36, at `width` digits.
void append_base36(std::string &text, std::uint64_t value, int width) {
    constexpr std::string_view Digits = "0123456789abcdefghijklmnopqrstuvwxyz";
    const std::size_t start = text.size();
    text.append(static_cast<std::size_t>(width), '0');
    for (std::size_t at = text.size(); at > start; value /= Digits.size()) text[--at] = Digits[value % Digits.size()];
}

// Microseconds since 1970; every call of this process gives a greater number than the one before, whatever the clock
// does.
std::uint64_t next_stamp() {
    static std::atomic<std::uint64_t> last{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto clock = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    std::uint64_t before = last.load(std::memory_order_relaxed), stamp;
    do stamp = std::max(clock, before + 1);
    while (!last.compare_exchange_weak(before, stamp, std::memory_order_relaxed));
    return stamp;
}

}  // namespace
}  // namespace velda::file

using namespace velda::file;

int VLibFIOCTL_IBBB(DP *dp, const VAR *file, const VAR *command, VAR *argument) {
    const Statement statement{dp, 0, nullptr};
    auto *const content = content_of_cell(dp, file);
    if (!content) return take_else_path(statement, not_open_error().number);
    switch (command->to_integer()) {
        case VELDA_IOCTL_MODE:
            return set_modes(*content, text_of(argument)) ? Done : take_else_path(statement, EINVAL);
        case VELDA_IOCTL_STATUS:
            return argument ? store_status(statement, file, *argument) : ElsePath;
        default:
            return take_else_path(statement, EINVAL);
    }
}

int VLibFSTATUS_IBBB(DP *dp, VAR *target, const VAR *file, VAR *setting) {
    return store_status({dp, 0, setting}, file, *target);
}

VAR *VLibFFILEINFO_BBBB(DP *dp, VAR *target, const VAR *file, const VAR *) {
    VAR information("");
    if (const auto *const content = content_of_cell(dp, file)) {
        information(VELDA_FILEINFO_OPEN) = 1;
        information(VELDA_FILEINFO_NAME) = content->name;
        information(VELDA_FILEINFO_TYPE) = content->file->type();
        information(VELDA_FILEINFO_PATH) = content->file->path();
    }
    *target = std::move(information);
    return target;
}

VAR *VLibEDIR_BBB(DP *dp, VAR *target, const VAR *path) {
    struct stat status;
    VAR details("");
    if (stat(native_path(path->view()).c_str(), &status) == 0) {
        int day = 0, seconds = 0;
        VELDAConvertUnixTimeToVELDA(dp, status.st_mtim.tv_sec, &day, &seconds);
        details(VELDA_DIR_SIZE) = status.st_size;
        details(VELDA_DIR_DATE) = day;
        details(VELDA_DIR_TIME) = seconds;
        details(VELDA_DIR_FLAGS) = dir_flags(status);
    } else {
        dp->last_error = statement_code(errno);
    }
    *target = std::move(details);
    return target;
}

VAR *VLibEUNIQUEKEY_BB(DP *, VAR *target) {
    // The process number tells the processes of one microsecond apart; it has at most 22 bits.
    constexpr int StampDigits = 11, ProcessDigits = 5;
    std::string key;
    append_base36(key, next_stamp(), StampDigits);
    append_base36(key, static_cast<std::uint64_t>(getpid()), ProcessDigits);
    *target = key;
    return target;
}
