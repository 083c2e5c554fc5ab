// A set that was copied elsewhere: marked in the configuration and in the first block of the copy.
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "journal/logger_admin.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

namespace {

constexpr char Module[] = "vutil.logger";

// Whether the file named is the set's own, by what it is and not by its spelling.
bool is_own_file(DP *dp, const LogFileEntry &entry, const VRunFile *named) {
    if (!is_named(entry)) return false;
    VRunFile *const own = VRunFileIOOpen(dp, logger_text(entry.path, sizeof entry.path).c_str(), VELDA_OPEN_READ, 0);
    if (!own) return false;
    const bool same = VRunFileIOGetIno(dp, own) == VRunFileIOGetIno(dp, named) &&
                      VRunFileIOGetDevice(dp, own) == VRunFileIOGetDevice(dp, named);
    VRunFileIOClose(dp, own);
    return same;
}

// The file that was named is stamped: the set's own through the log's writer, a copy of it directly.
int write_block(DP *dp, int set, int number, VRunFile *file, const char *block) {
    const LogFileEntry &entry = logger_context(dp).config->sets[set - 1].files[number - 1];
    if (is_own_file(dp, entry, file)) return VELDAWriteLogFile(dp, set, number, 0, block, VELDA_LOGGER_BLOCK_BYTES);
    return VRunFileIOWrite(dp, file, 0, block, VELDA_LOGGER_BLOCK_BYTES, nullptr);
}

int stamp(DP *dp, int set, int number, VRunFile *file, char *block, const std::string &location) {
    const int read_error = VRunFileIORead(dp, file, 0, block, VELDA_LOGGER_BLOCK_BYTES, nullptr);
    if (read_error != 0) return read_error == ENODATA ? EINVAL : read_error;
    LogSetInfo &info = logger_context(dp).config->sets[set - 1];
    info.archivedTime = present_time();
    std::memset(info.archiveLocation, 0, sizeof info.archiveLocation);
    std::memcpy(info.archiveLocation, location.data(), std::min(location.size(), sizeof info.archiveLocation));
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0, "Log set %d archived to location %s\n", set, location.c_str());
    std::memcpy(block + FirstBlockSetInfo, &info, sizeof info);
    const int write_error = write_block(dp, set, number, file, block);
    const int sync_error = VRunFileIOSync(dp, file);
    return write_error != 0 ? write_error : sync_error;
}

int check_archive(DP *dp, int set, int file) {
    if (const int error = check_set_number(dp, set)) return error;
    if (logger_context(dp).config->currentSet == static_cast<uint32_t>(set)) {
        VELDAfprintf(dp, stderr, "Error! Attempting to archive the current set\n");
        return EINVAL;
    }
    return check_file_number(dp, file);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerSetArchive(DP *dp, int32_t set, int32_t file, const VAR *path, const VAR *location) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) {
        tell(dp, "%s: Error number %d reading the logger configuration", errno);
        return EINVAL;
    }
    const ChangeLock lock(dp);
    if (const int error = check_archive(dp, set, file)) return error;
    VRunFile *const opened = VRunFileIOOpen(dp, path->str().c_str(), VELDA_OPEN_READ_WRITE, 0);
    if (!opened) return errno;
    int error = ENOMEM;
    if (void *const block = VELDAmalloc(dp, VELDA_LOGGER_BLOCK_BYTES, Module, __LINE__)) {
        error = stamp(dp, set, file, opened, static_cast<char *>(block), location->str());
        VELDAfree(dp, block, Module, __LINE__);
    } else {
        VediLoggerError(dp, 2, "Out of memory to log update");
    }
    VRunFileIOClose(dp, opened);
    return error;
}
