// Checks and steps that the administrator's operations share.
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "journal/logger_admin.h"

namespace velda::journal {

namespace {

constexpr int AnyoneMayUse = 438;  // 0666

// The user's leave to make a file.
bool may_create(DP *dp, const char *path) {
    char reply[VELDA_LOGGER_REPLY_BYTES];
    VELDAperror(dp, path);
    const int error =
        VELDALoggerPrompt(dp, reply, "%s: File '%s' cannot be opened.\nDo you want to create this file (Y/N) ? ",
                          command_name().c_str(), path);
    if (error == 0 && (std::strcmp(reply, "Y") == 0 || std::strcmp(reply, "y") == 0)) return true;
    errno = ENOENT;
    return false;
}

int check_range(DP *dp, int number, int limit, const char *format) {
    if (number >= 1 && number <= limit) return 0;
    tell(dp, format, limit);
    return EINVAL;
}

}  // namespace

VRunFile *LoggerOpenFile(DP *dp, const char *path, int create_mode) {
    VRunFile *file = VRunFileIOOpen(dp, path, VELDA_OPEN_READ_WRITE, 0);
    if (file) return file;
    if (errno == ENOENT && create_mode != FailIfAbsent) {
        if (create_mode < 0 && !may_create(dp, path)) return nullptr;
        file = VRunFileIOOpen(dp, path, VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE, AnyoneMayUse);
        if (file) return file;
    }
    const int error = errno;
    VELDAperror(dp, path);
    errno = error;
    return nullptr;
}

int LoggerCheckSet(DP *dp, int set, bool quiet) {
    if (set < 1 || set > VELDA_LOGGER_SETS) return quiet ? EINVAL : check_set_number(dp, set);
    const LogSetInfo &info = logger_context(dp).config->sets[set - 1];
    for (const LogFileEntry &entry : info.files) {
        if (!is_named(entry)) continue;
        VRunFile *const file = LoggerOpenFile(dp, logger_text(entry.path, sizeof entry.path).c_str(), AskIfAbsent);
        if (!file) return errno;
        VRunFileIOClose(dp, file);
    }
    if (named_files(info) > 0) return 0;
    if (!quiet) tell(dp, "%s: Error! No files configured for set number %d\n", set);
    return ENOENT;
}

void LoggerResetSet(DP *dp, int set, int64_t time) {
    VELDALoggerConfig &config = *logger_context(dp).config;
    LogSetInfo &info = config.sets[set - 1];
    info.setState = 0;
    info.timeFirst = info.timeLast = time;
    vputlong64(info.timeFirstPortable, time);
    info.recordCount = 0;
    info.currentFile = 0;
    info.fileOffset = 0;
    config.blockSize = info.blockPosition = VELDA_LOGGER_BLOCK_BYTES;
    info.archivedTime = 0;
    info.archiveLocation[sizeof info.archiveLocation - 1] = 0;
    std::fill(std::begin(config.statistics), std::end(config.statistics), 0u);
    for (const LogFileEntry &entry : info.files) {
        if (!is_named(entry) || entry.maxSize >= 1) continue;
        const std::string path = logger_text(entry.path, sizeof entry.path);
        if (VediWin32truncate(path.c_str(), VELDA_LOGGER_BLOCK_BYTES) != 0) VELDAperror(dp, path.c_str());
    }
}

std::string path_to_keep(const VAR &path) { return convert(path, "\\", "/").str(); }

int check_set_number(DP *dp, int set) {
    return check_range(dp, set, VELDA_LOGGER_SETS,
                       "%s: Error! Invalid value for set number, should be in range 1 to %d\n");
}

int check_file_number(DP *dp, int file) {
    return check_range(dp, file, VELDA_LOGGER_FILES,
                       "%s: Error! Invalid value for log file number , should be in range 1 to %d\n");
}

int check_not_current(DP *dp, int set) {
    if (static_cast<uint32_t>(set) != logger_context(dp).config->currentSet) return 0;
    tell(dp, "%s: Error! Set %d is currently active and the files cannot be amended\n", set);
    return EINVAL;
}

int check_path_length(DP *dp, const std::string &path) {
    constexpr int Longest = VELDA_LOGGER_PATH_BYTES - 1;
    if (path.size() <= Longest) return 0;
    tell(dp, "%s: Error! File name too long , maximum of %d characters\n", Longest);
    return EINVAL;
}

// A drive prefix may stand before the separator.
int check_absolute(DP *dp, const std::string &path) {
    const size_t start = path.size() > 1 && path[1] == ':' ? 2 : 0;
    if (path.size() > start && path[start] == '/') return 0;
    tell(dp, "%s: Error! File name %s MUST be an absolute path name\n", path.c_str());
    return EINVAL;
}

bool define_logger(DP *dp) {
    VELDALoggerGetDefinition(dp);
    return logger_context(dp).config != VELDA_LOGGER_NOT_MAPPED;
}

void store_path(char (&field)[VELDA_LOGGER_PATH_BYTES], const std::string &text) {
    std::memset(field, 0, sizeof field);
    std::memcpy(field, text.data(), std::min(text.size(), sizeof field - 1));
}

}  // namespace velda::journal
