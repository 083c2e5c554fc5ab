#include "journal/logger_context.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <system_error>

#include "journal/session_block.h"

namespace velda::journal {

namespace {

void close_context(DP *dp, LoggerContext &context) {
    for (VRunFile *&file : context.files) VRunFileIOClose(dp, file);
    VRunFileIOClose(dp, context.configHandle);
    VELDAfree(dp, context.recordBuffer, "vutil.logger", __LINE__);
}

}  // namespace

LoggerContext &logger_context(DP *dp) { return SessionBlock<LoggerContext, close_context>::of(dp, "vutil.logger"); }

bool map_logger(DP *dp, LoggerContext &context) {
    if (context.config == VELDA_LOGGER_NOT_MAPPED) context.config = VediLoggerInit(dp, 1);
    return context.config != VELDA_LOGGER_NOT_MAPPED;
}

void LoggerSaveConfig(DP *dp) {
    VELDALoggerConfig &config = *logger_context(dp).config;
    std::snprintf(config.updatedUser, sizeof config.updatedUser, "%s", system_number(1015).str().c_str());
    config.updatedTime = static_cast<uint64_t>(present_time());
    config.updatedPort = static_cast<uint32_t>(VELDAGetPortNumber(dp));
    ++config.updateCount;
    VediLoggerMisc(dp, VELDA_LOGGER_PUBLISH);
    constexpr int Failure = 2;
    if (VediLoggerMisc(dp, VELDA_LOGGER_SAVE) != 0) VediLoggerError(dp, Failure, "%s", velda_logger_error(dp));
}

void LoggerStoreField(DP *, VAR *result, int attribute, int value, const char *format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    (*result)(attribute, value) = text;
}

std::string logger_text(const char *field, size_t size) { return {field, std::find(field, field + size, '\0')}; }

double set_size_bytes(const LogSetInfo &set, uint32_t block_size) {
    double size = static_cast<double>(set.fileOffset) * named_files(set);
    if (set.currentFile > 0) size += static_cast<double>(block_size) * (set.currentFile - 1.0);
    return size + set.blockPosition;
}

int named_files(const LogSetInfo &set) {
    return static_cast<int>(std::count_if(std::begin(set.files), std::end(set.files), is_named));
}

std::string command_name() { return system_number(1000)(1).str(); }

std::string error_words(int error) { return std::generic_category().message(error); }

int64_t present_time() { return static_cast<int64_t>(std::time(nullptr)); }

}  // namespace velda::journal
