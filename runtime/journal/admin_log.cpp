// VediLoggerError: entries of the administration log.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/journal/configuration.h"
#include "runtime/journal/notify.h"
#include "runtime/port/port.h"
#include "runtime/process/process.h"

namespace velda::journal {

namespace {

std::string formatted(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

std::string time_stamp() {
    const time_t now = time(nullptr);
    tm parts;
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// Line feeds inside a text stay, but no line of it can pass for an entry: entries begin at the margin.
std::string entry_text(std::string_view text) {
    constexpr std::string_view Indentation = "     ";
    while (text.ends_with('\n')) text.remove_suffix(1);
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at] == '\r' ? ' ' : text[at];
        result += byte;
        if (byte == '\n' && text[at + 1] != ' ') result += Indentation;
    }
    return result;
}

std::string log_entry(DP *dp, int severity, std::string_view text) {
    return time_stamp() + " port " + std::to_string(VELDAGetPortNumber(dp)) + " pid " + std::to_string(getpid()) +
           " severity " + std::to_string(severity) + ": " + entry_text(text);
}

std::string text_of(const char *field, std::size_t size) { return {field, strnlen(field, size)}; }

// True when the whole entry is in the log. A pipe that nobody empties is no reason to wait.
bool append_entry(const std::string &path, const std::string &entry) {
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (file < 0) return false;
    const std::string line = entry + "\n";
    ssize_t written;
    do {
        written = write(file, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    return close(file) == 0 && written == static_cast<ssize_t>(line.size());
}

void report(DP *dp, int severity, const std::string &text) {
    const Configuration *const configuration = configuration_or_null(dp);
    const std::string entry = log_entry(dp, severity, text);
    const std::string path = configuration ? text_of(configuration->record->adminLogPath, VELDA_LOGGER_PATH_BYTES) : "";
    if (path.empty() || !append_entry(path, entry))
        VELDAWriteLogFile(dp, VELDA_SYSTEM_LOG, 0, 0, entry.data(), static_cast<int>(entry.size()));
    if (!configuration) return;
    const std::string program = text_of(configuration->record->adminLogNotifyProgram, VELDA_LOGGER_PATH_BYTES);
    if (!program.empty()) start_notify_program(program, severity, entry);
}

}  // namespace
}  // namespace velda::journal

void VediLoggerError(DP *dp, int severity, const char *format, ...) {
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = velda::journal::formatted(format, arguments);
    va_end(arguments);
    velda::journal::report(dp, severity, text);
    errno = error;
}
