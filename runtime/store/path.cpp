#include "runtime/store/path.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace velda::store {
namespace {

void remove_left_over(const std::string &path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

}  // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

int Descriptor::close() {
    const int rc = ::close(number_);
    number_ = -1;
    return rc;
}

DirectoryTurn::DirectoryTurn(const std::string &directory)
    : directory_(directory.empty() ? -1 : ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      turn_(directory_.number()) {}

void DirectoryTurn::sync() const {
    if (directory_.number() >= 0) fsync(directory_.number());
}

TemporaryPath::TemporaryPath(const std::string &final_path) {
    static std::atomic<unsigned> count{0};
    path_ = parent_directory(final_path);
    if (path_.back() != '/') path_.push_back('/');
    path_.append(TemporaryPrefix).append(std::to_string(getpid())).append("-").append(std::to_string(++count));
    remove_left_over(path_);
}

TemporaryPath::~TemporaryPath() { remove_left_over(path_); }

std::string parent_directory(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string base_name(const std::string &path) { return path.substr(path.rfind('/') + 1); }

bool path_exists(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

int rename_new(const std::string &from, const std::string &to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    // A file system without that call. The directory's turn keeps others of this system away.
    if (path_exists(to)) {
        errno = EEXIST;
        return -1;
    }
    return rename(from.c_str(), to.c_str());
}

int set_special_modes(int descriptor, int permissions) {
    struct stat status;
    if ((permissions & 07000) == 0) return 0;
    if (fstat(descriptor, &status) < 0) return -1;
    return fchmod(descriptor, (status.st_mode & 0777) | static_cast<mode_t>(permissions & 07000));
}

Result<std::string> absolute_path(const std::string &path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved)) return std::string(resolved);
    if (errno != ENOENT) return system_error(errno, "cannot find", path);
    const std::string name = base_name(path);
    if (name.empty() || !realpath(parent_directory(path).c_str(), resolved))
        return system_error(errno, "cannot find", path);
    std::string result = resolved;
    if (result.back() != '/') result.push_back('/');
    return result + name;
}

}  // namespace velda::store
