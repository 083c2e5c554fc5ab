// logger_admin.h - what the administrator's operations share. Private to the subsystem.
#pragma once

#include <cstring>
#include <string>

#include "journal/journal.h"
#include "journal/logger_context.h"

namespace velda::journal {

// How LoggerOpenFile treats a file that does not exist: any value below 0 asks, any above 0 makes it.
enum CreateMode { FailIfAbsent = 0, AskIfAbsent = -1, MakeIfAbsent = 1 };

// Opens a log file for reading and writing. Null after a message, with errno set.
VRunFile *LoggerOpenFile(DP *dp, const char *path, int create_mode);

// Whether a set can be used: it is one, it has files, and they can all be opened. Missing files are asked about, also
// by a quiet check, which leaves out only its own messages.
int LoggerCheckSet(DP *dp, int set, bool quiet);

// Empties a set; its blocks carry this time from now on.
void LoggerResetSet(DP *dp, int set, int64_t time);

// A path as it is kept: with this system's separators, by which the writer of records opens it.
std::string path_to_keep(const VAR &path);

// 0, or 22 after a message.
int check_set_number(DP *dp, int set);
int check_file_number(DP *dp, int file);
int check_not_current(DP *dp, int set);
int check_path_length(DP *dp, const std::string &path);
int check_absolute(DP *dp, const std::string &path);

// 17 after a message when a slot that `is_compared` accepts (set and file, from 1) has this path; else 0.
template <class IsCompared>
int check_no_duplicate(DP *dp, const std::string &path, IsCompared is_compared);

// Writes to standard error: a message that begins with the running command's name, or with "Error!".
template <class... Values>
void tell(DP *dp, const char *format, const Values &...values) {
    VELDAfprintf(dp, stderr, format, command_name().c_str(), values...);
}

// Maps the configuration, made if there is none. False only without a journal under MULTIAPP.
bool define_logger(DP *dp);

// The lock of a change of sets, for a scope: no other administrator switches to a set, or changes it, meanwhile. Whoever
// may ask the operator does that before.
class ChangeLock {
  public:
    explicit ChangeLock(DP *dp) : dp_(dp) { VediLoggerMisc(dp_, VELDA_LOGGER_BEGIN_CHANGE); }
    ~ChangeLock() { VediLoggerMisc(dp_, VELDA_LOGGER_END_CHANGE); }
    ChangeLock(const ChangeLock &) = delete;
    ChangeLock &operator=(const ChangeLock &) = delete;

  private:
    DP *dp_;
};

// Copies a text into a field of fixed size that ends with a zero byte; what exceeds it is dropped.
void store_path(char (&field)[VELDA_LOGGER_PATH_BYTES], const std::string &text);

template <class IsCompared>
int check_no_duplicate(DP *dp, const std::string &path, IsCompared is_compared) {
    constexpr int Exists = 17;
    const VELDALoggerConfig &config = *logger_context(dp).config;
    for (int set = 1; set <= VELDA_LOGGER_SETS; ++set) {
        for (int file = 1; file <= VELDA_LOGGER_FILES; ++file) {
            const LogFileEntry &entry = config.sets[set - 1].files[file - 1];
            if (!is_compared(set, file) || logger_text(entry.path, sizeof entry.path) != path) continue;
            tell(dp, "%s: Error! File name %s already exists in file %d in set %d\n", path.c_str(), file, set);
            return Exists;
        }
    }
    return 0;
}

}  // namespace velda::journal
