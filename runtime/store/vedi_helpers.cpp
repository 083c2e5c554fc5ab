// The driver layer's small helpers, and its calls for plain files.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/memory/memory.h"
#include "runtime/store/hash.h"
#include "runtime/store/path.h"
#include "runtime/store/vedi_call.h"

namespace {

unsigned char folded(char byte) {
    return static_cast<unsigned char>(byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte);
}

template <class Call>
auto until_uninterrupted(Call &&call) {
    auto rc = call();
    while (rc < 0 && errno == EINTR) rc = call();
    return rc;
}

}  // namespace

uint32_t VediBaseHashUINT(const char *text, uint32_t length, int kind) {
    if (!(kind & VEDI_HASH_CASE_BLIND))
        return static_cast<uint32_t>(velda::store::hash_bytes({text, length}, static_cast<std::uint64_t>(kind)));
    std::string blind(text, length);
    for (char &byte : blind) byte = static_cast<char>(folded(byte));
    return static_cast<uint32_t>(velda::store::hash_bytes(blind, static_cast<std::uint64_t>(kind)));
}

int VediBaseUmemcmp(const char *left, const char *right, uint32_t length) {
    for (uint32_t i = 0; i < length; ++i)
        if (const int difference = folded(left[i]) - folded(right[i])) return difference;
    return 0;
}

char *VediBaseReadMalloc(DP *dp, const char *path, uint64_t *size) {
    const velda::store::Descriptor file(VediWin32open(path, O_RDONLY | O_NONBLOCK, 0));
    struct stat status;
    if (file.number() < 0 || fstat(file.number(), &status) < 0) return nullptr;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return nullptr;
    }
    const auto wanted = static_cast<std::size_t>(status.st_size);
    char *const bytes = static_cast<char *>(VELDAmalloc_readrecord(dp, wanted, "vedi", __LINE__));
    if (!bytes) {
        errno = ENOMEM;
        return nullptr;
    }
    std::size_t got = 0;
    while (got < wanted) {
        const ssize_t count = until_uninterrupted([&] { return read(file.number(), bytes + got, wanted - got); });
        if (count < 0) {
            const int failed = errno;
            VELDAfree(dp, bytes, "vedi", __LINE__);
            errno = failed;
            return nullptr;
        }
        if (count == 0) break;  // another program cut it meanwhile
        got += static_cast<std::size_t>(count);
    }
    bytes[got] = '\0';
    *size = got;
    return bytes;
}

int VediBaseCheckFileSizePath(DP *dp, const char *path, uint64_t *total_bytes, uint64_t *free_bytes) {
    struct statvfs disk;
    if (until_uninterrupted([&] { return statvfs(path, &disk); }) < 0)
        return velda::store::fail_call(dp, velda::system_error(errno, "cannot tell the disk of", path));
    *total_bytes = static_cast<uint64_t>(disk.f_blocks) * disk.f_frsize;
    *free_bytes = static_cast<uint64_t>(disk.f_bfree) * disk.f_frsize;
    return 0;
}

int VediWin32stat(const char *path, struct stat *status) { return stat(path, status); }

int VediWin32lstat(const char *path, struct stat *status) { return lstat(path, status); }

int VediWin32fstat(int descriptor, struct stat *status) { return fstat(descriptor, status); }

int VediWin32open(const char *path, int flags, int mode) {
    return until_uninterrupted([&] { return open(path, flags | O_CLOEXEC, static_cast<mode_t>(mode)); });
}

int VediWin32close(int descriptor) { return close(descriptor); }

int64_t VediWin32lseek(int descriptor, int64_t offset, int whence) { return lseek(descriptor, offset, whence); }

int VediWin32truncate(const char *path, int64_t size) {
    return until_uninterrupted([&] { return truncate(path, size); });
}

int VediWin32ftruncate(int descriptor, int64_t size) {
    return until_uninterrupted([&] { return ftruncate(descriptor, size); });
}

int VediWin32mkdir(const char *path, int mode) { return mkdir(path, static_cast<mode_t>(mode)); }

int VediWin32chmod(const char *path, int mode) { return chmod(path, static_cast<mode_t>(mode)); }

int VediWin32umask(int mask) { return static_cast<int>(umask(static_cast<mode_t>(mask))); }
