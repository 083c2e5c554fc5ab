#include "runtime/port/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "runtime/base/global_directory.h"

namespace velda::port {

namespace {

// Not in the directory of the file itself: what lies there is a record to whoever reads the directory.
Result<std::string> new_temporary_path() {
    static std::atomic<unsigned> count{0};
    const auto directory = global_subdirectory("tmp");
    if (!directory) return directory.error();
    return *directory + "/port_" + std::to_string(getpid()) + "_" + std::to_string(++count);
}

int write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return errno;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

}  // namespace

Result<void> write_whole_file(const std::string &path, std::string_view bytes) {
    const auto temporary = new_temporary_path();
    if (!temporary) return temporary.error();
    const int file = open(temporary->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0) return system_error(errno, "cannot write", *temporary);
    share_like_directory(file, std::filesystem::path(path).parent_path().string());
    int failed = write_all(file, bytes);
    if (close(file) != 0 && failed == 0) failed = errno;
    if (failed == 0 && rename(temporary->c_str(), path.c_str()) != 0) failed = errno;
    if (failed == 0) return {};
    unlink(temporary->c_str());
    return system_error(failed, "cannot write", path);
}

std::optional<std::string> read_whole_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) return std::nullopt;
    return bytes;
}

}  // namespace velda::port
