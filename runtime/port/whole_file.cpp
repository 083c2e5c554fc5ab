#include "runtime/port/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "runtime/base/global_directory.h"
#include "runtime/store/atomic_file.h"

namespace velda::port {

namespace {

// Not in the directory of the file itself: what lies there is a record to whoever reads the directory.
Result<std::string> new_temporary_path() {
    static std::atomic<unsigned> count{0};
    const auto directory = global_subdirectory("tmp");
    if (!directory) return directory.error();
    return *directory + "/port_" + std::to_string(getpid()) + "_" + std::to_string(++count);
}

int share_like_directory_of(const std::string &temporary, const std::string &path) {
    const int file = open(temporary.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) return errno;
    share_like_directory(file, std::filesystem::path(path).parent_path().string());
    return close(file) == 0 ? 0 : errno;
}

}  // namespace

Result<void> write_whole_file(const std::string &path, std::string_view bytes) {
    const auto temporary = new_temporary_path();
    if (!temporary) return temporary.error();
    const store::ReplaceOptions private_and_quick{.mode = 0600, .keep_mode = false, .durable = false};
    int failed = store::write_new_file(AT_FDCWD, *temporary, bytes, private_and_quick);
    if (failed == 0) failed = share_like_directory_of(*temporary, path);
    if (failed == 0 && rename(temporary->c_str(), path.c_str()) != 0) failed = errno;
    if (failed == 0) return {};
    unlink(temporary->c_str());
    return system_error(failed, "cannot write", path);
}

std::optional<std::string> read_whole_file(const std::string &path) {
    std::string bytes;
    store::StringBuffer into(bytes);
    return store::read_whole_file(AT_FDCWD, path, into) == 0 ? std::optional(bytes) : std::nullopt;
}

}  // namespace velda::port
