#include "runtime/store/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "runtime/store/path.h"

namespace velda::store {
namespace {

int read_bytes(int descriptor, char *target, std::size_t size, std::size_t &got) {
    got = 0;
    while (got < size) {
        const ssize_t count = pread(descriptor, target + got, size - got, static_cast<off_t>(got));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return 0;
        got += static_cast<std::size_t>(count);
    }
    return 0;
}

int write_bytes(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(descriptor, content.data(), content.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

// The mode and, where permitted, the owner of the file that is replaced.
void take_over_mode(int directory, const std::string &name, int descriptor) {
    struct stat before;
    if (fstatat(directory, name.c_str(), &before, AT_SYMLINK_NOFOLLOW) < 0 || !S_ISREG(before.st_mode)) return;
    if (geteuid() == 0) (void)!fchown(descriptor, before.st_uid, before.st_gid);
    (void)!fchmod(descriptor, before.st_mode & 07777);
}

}  // namespace

int read_whole_file(int directory, const std::string &name, RecordBuffer &into) {
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    const Descriptor file(openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.number() < 0) return errno == ENXIO || errno == ENOTDIR || errno == ELOOP ? ENOENT : errno;
    struct stat status;
    if (fstat(file.number(), &status) < 0) return errno;
    if (!S_ISREG(status.st_mode)) return ENOENT;
    if (static_cast<std::uint64_t>(status.st_size) > MaxRecordBytes) return EFBIG;
    const auto size = static_cast<std::size_t>(status.st_size);
    std::size_t got;
    char *const target = into.prepare(size);
    if (const int rc = read_bytes(file.number(), target, size, got)) return rc;
    if (got < size) {  // another program cut it meanwhile
        const std::string content(target, got);
        content.copy(into.prepare(got), got);
    }
    return 0;
}

std::string temporary_name() {
    static std::atomic<unsigned> count{0};
    return std::string(TemporaryPrefix) + std::to_string(getpid()) + "-r" + std::to_string(++count);
}

int write_new_file(int directory, const std::string &name, std::string_view content, const ReplaceOptions &options) {
    Descriptor file(
        openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, options.mode));
    if (file.number() < 0) return errno;
    int rc = write_bytes(file.number(), content);
    if (rc == 0 && options.durable && fsync(file.number()) < 0) rc = errno;
    if (file.close() < 0 && rc == 0) rc = errno;
    if (rc) unlinkat(directory, name.c_str(), 0);
    return rc;
}

int replace_file(int directory, const std::string &name, std::string_view content, const ReplaceOptions &options) {
    const std::string temporary = temporary_name();
    if (const int rc = write_new_file(directory, temporary, content, options)) return rc;
    if (options.keep_mode) {
        const Descriptor file(openat(directory, temporary.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
        if (file.number() >= 0) take_over_mode(directory, name, file.number());
    }
    int failed = options.before_it_counts ? (*options.before_it_counts)() : 0;
    if (failed == 0 && renameat(directory, temporary.c_str(), directory, name.c_str()) < 0) failed = errno;
    if (failed != 0) {
        unlinkat(directory, temporary.c_str(), 0);
        return failed;
    }
    if (options.durable && fsync(directory) < 0) return errno;
    return 0;
}

}  // namespace velda::store
