// logger_context.h - what the journal's logic keeps for each session, and its chief helpers. Private to the subsystem.
#pragma once

#include <string>

#include "runtime/vutil.h"

namespace velda::journal {

// The block that was read last: proven to be one of the set's use of that time. `size` is how much of it the file has.
struct HeldBlock {
    const char *bytes = nullptr;  // null: none
    int64_t size = 0;
    int32_t file = 0;
    int64_t offset = 0;  // of its first byte
    int64_t set_time = 0;
};

struct LoggerContext {
    VELDALoggerConfig *config = VELDA_LOGGER_NOT_MAPPED;  // the mapped configuration
    VRunFile *configHandle = nullptr;       // the configuration file, opened for the record locks of status slots
    unsigned char *recordBuffer = nullptr;  // of the reading layer; from VELDAmalloc, grown and not shrunk
    int32_t recordCapacity = 0;
    int32_t recordBytes = 0;     // how much of the buffer the last read filled
    const unsigned char *heldRecord = nullptr;  // the record read last, where it stands in a block that is held
    bool hasRecord = false;      // that is a whole record, which may be given out again
    uint32_t unfinishedPid = 0;  // who wrote the record that was last found unfinished or damaged; 0: not known
    int32_t openSet = -1;        // the set whose files are open; -1: none
    int64_t openSetTime = 0;     // which use of the set
    int32_t openFileCount = 0;
    VRunFile *files[VELDA_LOGGER_FILES] = {};    // in configuration order, unnamed slots skipped
    VRunFrame *frames[VELDA_LOGGER_FILES] = {};  // of each file the piece most recently read
    HeldBlock block;                             // in one of them
    int64_t lastTime = 0;                        // update time of the last record read
    std::string operand;                         // of the specification token that is being parsed
    std::string command;                         // that token
    VAR *errorText = nullptr;                    // where specification errors go; null: standard error
    int32_t passwordAsked = 0;
};

// The calling session's context, made at its first use and freed, with its open files, when the session ends.
LoggerContext &logger_context(DP *dp);

// Maps the configuration if it is not mapped yet. False, with errno set, when that cannot be done.
bool map_logger(DP *dp, LoggerContext &context);

// The same, and makes the configuration when there is none. Ends the command when its lock file cannot be made.
bool ensure_logger(DP *dp);

// The one way that changes reach the file: stamps the record with user, time and port, and writes it to disk.
void LoggerSaveConfig(DP *dp);

// Formats a text and stores it at an attribute (and value, if it is not 0) of a report.
void LoggerStoreField(DP *dp, VAR *result, int attribute, int value, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

// The set in a configuration, 1 to 16; an empty one for any other number.
inline constexpr LogSetInfo EmptySet = {};
inline const LogSetInfo &logger_set(const VELDALoggerConfig &config, int64_t set) {
    return set >= 1 && set <= VELDA_LOGGER_SETS ? config.sets[set - 1] : EmptySet;
}

// Whether the set's file has a name, and the path in a field that need not be zero-ended.
inline bool is_named(const LogFileEntry &entry) { return entry.path[0] != 0; }
std::string logger_text(const char *field, size_t size);

// Bytes that the set holds, from its write position: full rows of blocks, the blocks of the last row, the last block.
double set_size_bytes(const LogSetInfo &set, uint32_t block_size);
int named_files(const LogSetInfo &set);

// The name of the running command: the first word of its sentence.
std::string command_name();

// What an error number of the system means.
std::string error_words(int error);

// Seconds since 1970, UTC.
int64_t present_time();

}  // namespace velda::journal
