// The system's log, one line a record, appended by any number of processes; and blocks of the journal's files.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "runtime/base/global_directory.h"
#include "runtime/journal/set_file.h"
#include "runtime/port/port.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/process/session_names.h"

namespace {

std::string time_stamp() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts;
    gmtime_r(&now.tv_sec, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// One line whatever the text holds.
std::string log_line(DP *dp, std::string_view text) {
    std::string line = time_stamp() + " port " + std::to_string(VELDAGetPortNumber(dp)) + " " + velda::user_name() +
                       " " + std::to_string(getpid()) + ": ";
    for (const char byte : text) {
        if (byte == '\n')
            line += "\\n";
        else if (byte == '\r')
            line += "\\r";
        else
            line += byte;
    }
    return line + "\n";
}

// The whole line in one write, which the kernel appends as a whole.
int append_line(const std::string &path, std::string_view line) {
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return errno;
    ssize_t written;
    do {
        written = write(file, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    int error = written < 0 ? errno : 0;
    if (written >= 0 && static_cast<std::size_t>(written) != line.size()) error = ENOSPC;
    if (close(file) != 0 && error == 0) error = errno;
    return error;
}

}  // namespace

int VELDAWriteLogFile(DP *dp, int set, int file, int64_t offset, const void *buffer, int size) {
    if (size < 0 || (!buffer && size > 0)) return EINVAL;
    const std::string_view text(static_cast<const char *>(buffer), static_cast<std::size_t>(size));
    if (set != VELDA_SYSTEM_LOG) return velda::journal::write_set_file(dp, set, file, offset, text);
    const auto directory = velda::global_subdirectory("log");
    if (!directory) return directory.error().number;
    return append_line(*directory + "/system.log", log_line(dp, text));
}

int NTLogMessage(DP *dp, const char *text) {
    return VELDAWriteLogFile(dp, VELDA_SYSTEM_LOG, 0, 0, text, static_cast<int>(std::string_view(text).size()));
}
