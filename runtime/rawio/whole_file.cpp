// Lengths of files and the space of the file systems they lie on.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "runtime/rawio/raw_file.h"

static_assert(VELDA_OPEN_READ == O_RDONLY && VELDA_OPEN_READ_WRITE == O_RDWR && VELDA_OPEN_CREATE == O_CREAT);
static_assert(VELDA_OPEN_NEW == (O_CREAT | O_EXCL) && VELDA_OPEN_TRUNCATE == O_TRUNC);

namespace {

std::string native(const char *path) {
    std::string result(path);
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

template <class Step>
int repeat_interrupted(Step step) {
    int result;
    do {
        result = step();
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

}  // namespace

int VediWin32truncate(DP *, const char *path, int64_t length) {
    return repeat_interrupted([&] { return truncate(native(path).c_str(), length); });
}

int VediWin32ftruncate(DP *, VRunFile *file, int64_t length) {
    return repeat_interrupted([&] { return ftruncate(file->fd, length); });
}

int VediBaseCheckFileSizePath(DP *, const char *path, int64_t *total, int64_t *available) {
    struct statvfs space;
    const std::string name = native(path);
    if (const int error = repeat_interrupted([&] { return statvfs(name.c_str(), &space); })) return error;
    *total = static_cast<int64_t>(space.f_blocks) * static_cast<int64_t>(space.f_frsize);
    *available = static_cast<int64_t>(space.f_bavail) * static_cast<int64_t>(space.f_frsize);
    return 0;
}
