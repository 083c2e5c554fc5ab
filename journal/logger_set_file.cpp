// The files of a set: named, removed.
#include <cerrno>

#include "journal/logger_admin.h"

namespace velda::journal {

namespace {

struct FileSlot {
    int set;
    int file;
    LogFileEntry &entry;
};

int remove_file(DP *dp, const FileSlot &slot) {
    const ChangeLock lock(dp);
    if (const int error = check_not_current(dp, slot.set)) return error;
    LoggerResetSet(dp, slot.set, 0);
    store_path(slot.entry.path, "");
    slot.entry.createdTime = present_time();
    slot.entry.maxSize = -1;
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0, "File %d for log set %d REMOVED", slot.file, slot.set);
    return 0;
}

int check_path(DP *dp, const FileSlot &slot, const std::string &path) {
    if (const int error = check_path_length(dp, path)) return error;
    const auto is_other = [&](int set, int file) { return set != slot.set || file != slot.file; };
    if (const int error = check_no_duplicate(dp, path, is_other)) return error;
    return check_absolute(dp, path);
}

// Another administrator may have changed something since the checks, the last of which may have been a question.
int check_again(DP *dp, const FileSlot &slot, const std::string &path) {
    if (const int error = check_not_current(dp, slot.set)) return error;
    return check_path(dp, slot, path);
}

// The file has its first block at once: the set is empty, and its space is known to be there.
int store_file(DP *dp, const FileSlot &slot, const std::string &path, VRunFile *file) {
    VRunFileStatus status;
    if (const int error = VRunFileIOGetStatus(dp, file, &status)) {
        VELDAperror(dp, path.c_str());
        return error;
    }
    store_path(slot.entry.path, path);
    slot.entry.createdTime = present_time();
    LoggerResetSet(dp, slot.set, 0);
    slot.entry.maxSize = -1;
    const int64_t block_size = logger_context(dp).config->blockSize;
    int error = VediWin32ftruncate(VRunFileIOGetFd(dp, file), block_size) == 0 ? 0 : errno;
    if (error == 0) error = VRunFileIOWrite(dp, file, block_size - 1, "x", 1, nullptr);
    if (error != 0) VELDAperror(dp, path.c_str());
    return error;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerSetFile(DP *dp, int32_t set, int32_t file, int32_t create_mode, const VAR *path) {
    if (!define_logger(dp)) return ENOENT;
    if (const int error = check_set_number(dp, set)) return error;
    if (const int error = check_file_number(dp, file)) return error;
    if (const int error = check_not_current(dp, set)) return error;
    const FileSlot slot{set, file, logger_context(dp).config->sets[set - 1].files[file - 1]};
    const std::string name = path_to_keep(*path);
    if (name.empty()) return remove_file(dp, slot);
    if (const int error = check_path(dp, slot, name)) return error;

    VRunFile *const opened = LoggerOpenFile(dp, name.c_str(), create_mode);
    if (!opened) return errno;
    const ChangeLock lock(dp);
    int error = check_again(dp, slot, name);
    if (error == 0) {
        error = store_file(dp, slot, name, opened);
        LoggerSaveConfig(dp);
    }
    VRunFileIOClose(dp, opened);
    if (error == 0) VediLoggerError(dp, 0, "File %d for log set %d changed to %s", file, set, name.c_str());
    return error;
}
