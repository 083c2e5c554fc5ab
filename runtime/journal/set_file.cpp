#include "runtime/journal/set_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/journal/configuration.h"

namespace velda::journal {

namespace {

int write_at(int file, std::int64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t put = pwrite(file, bytes.data(), bytes.size(), offset);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return errno;
        bytes.remove_prefix(static_cast<std::size_t>(put));
        offset += put;
    }
    return fdatasync(file) == 0 ? 0 : errno;
}

int write_file(const std::string &path, std::int64_t offset, std::string_view bytes) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) return errno;
    const int error = write_at(file, offset, bytes);
    const int close_error = close(file) == 0 ? 0 : errno;
    return error != 0 ? error : close_error;
}

}  // namespace

std::string path_of(const LogFileEntry &entry) { return {entry.path, strnlen(entry.path, sizeof entry.path)}; }

int write_set_file(DP *dp, int set, int file, std::int64_t offset, std::string_view bytes) {
    const auto configuration = configuration_of(dp);
    if (!configuration) return configuration.error().number;
    if (set < 1 || set > VELDA_LOGGER_SETS || file < 1 || file > VELDA_LOGGER_FILES || offset < 0) return EINVAL;
    const std::string path = path_of((*configuration)->record->sets[set - 1].files[file - 1]);
    return path.empty() ? ENOENT : write_file(path, offset, bytes);
}

}  // namespace velda::journal
