#include "runtime/base/global_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace velda {

namespace {

std::string configured_directory() {
    if (const char *named = getenv("VELDAGLOBALDIR"); named && *named) return named;
    if (geteuid() == 0) return "/var/lib/velda";
    const char *home = getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.velda";
}

}  // namespace

std::string global_directory() {
    std::error_code failed;
    const std::string named = configured_directory();
    const auto absolute = std::filesystem::absolute(named, failed);
    return failed ? named : absolute.string();
}

Result<std::string> global_subdirectory(const std::string &name) {
    const std::string parent = global_directory();
    struct stat status;
    if (stat((parent + "/" + name).c_str(), &status) == 0) return parent + "/" + name;
    std::error_code failed;
    std::filesystem::create_directories(parent, failed);
    if (failed) return system_error(failed.value(), "cannot make global directory", parent);
    return shared_subdirectory(parent, name);
}

Result<std::string> shared_subdirectory(const std::string &parent, const std::string &name) {
    const std::string path = parent + "/" + name;
    struct stat status;
    if (stat(path.c_str(), &status) == 0) return path;
    if (stat(parent.c_str(), &status) != 0) return system_error(errno, "cannot read global directory", parent);
    if (mkdir(path.c_str(), 0700) != 0) {
        if (errno != EEXIST) return system_error(errno, "cannot make directory", path);
        return path;
    }
    // A mask of the process must not shut the system's other users out. The group may be one that this user cannot
    // give.
    [[maybe_unused]] const int group_kept = chown(path.c_str(), static_cast<uid_t>(-1), status.st_gid);
    if (chmod(path.c_str(), status.st_mode & 07777) != 0) return system_error(errno, "cannot set permissions of", path);
    return path;
}

void share_like_directory(int file, const std::string &directory) {
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) return;
    [[maybe_unused]] const int group_kept = fchown(file, static_cast<uid_t>(-1), status.st_gid);
    [[maybe_unused]] const int mode_set = fchmod(file, status.st_mode & 0666);
}

}  // namespace velda
