#include "runtime/rawio/raw_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "runtime/lock/record_lock.h"
#include "runtime/process/context.h"

static_assert(VELDA_OPEN_READ == O_RDONLY && VELDA_OPEN_READ_WRITE == O_RDWR && VELDA_OPEN_CREATE == O_CREAT);
static_assert(VELDA_OPEN_NEW == (O_CREAT | O_EXCL) && VELDA_OPEN_TRUNCATE == O_TRUNC);

VRunFile::VRunFile(int open_fd, std::string full_path, velda::store::FileIdentity file_identity)
    : fd(open_fd), path(std::move(full_path)), identity(file_identity) {}

VRunFile::~VRunFile() { close(fd); }

velda::Result<std::size_t> VRunFile::read_at(std::int64_t offset, char *buffer, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(fd, buffer + done, count - done, offset + static_cast<std::int64_t>(done));
        if (got == 0) break;
        if (got > 0)
            done += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            return velda::system_error(errno, "cannot read", path);
    }
    return done;
}

velda::Result<void> VRunFile::write_at(std::int64_t offset, std::string_view bytes, std::size_t *done) const {
    std::size_t written = 0;
    int error = 0;
    while (written < bytes.size() && error == 0) {
        const ssize_t put =
            pwrite(fd, bytes.data() + written, bytes.size() - written, offset + static_cast<std::int64_t>(written));
        if (put >= 0)
            written += static_cast<std::size_t>(put);
        else if (errno != EINTR)
            error = errno;
    }
    if (done) *done = written;
    if (error != 0) return velda::system_error(error, "cannot write", path);
    return {};
}

velda::Result<std::int64_t> VRunFile::size_bytes() const {
    struct stat status;
    if (fstat(fd, &status) != 0) return velda::system_error(errno, "cannot read the status of", path);
    return static_cast<std::int64_t>(status.st_size);
}

namespace velda::rawio {

static_assert(VELDA_OPEN_READ == O_RDONLY && VELDA_OPEN_READ_WRITE == O_RDWR && VELDA_OPEN_CREATE == O_CREAT);
static_assert(VELDA_OPEN_NEW == (O_CREAT | O_EXCL) && VELDA_OPEN_TRUNCATE == O_TRUNC);

int result_of(const Error &error) {
    errno = error.number;
    return error.number;
}

int result_of(const Result<void> &result) { return result ? 0 : result_of(result.error()); }

namespace {

int fail(int error) { return result_of(Error{error, {}}); }

std::string native_path(const char *path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

std::string full_path(const std::string &path) {
    std::error_code failed;
    const auto canonical = std::filesystem::canonical(path, failed);
    return failed ? path : canonical.string();
}

VRunFile *open_file(const std::string &path, int mode, int permissions) {
    constexpr int DefaultPermissions = 0666;
    const int fd = open(path.c_str(), mode | O_CLOEXEC, permissions == 0 ? DefaultPermissions : permissions);
    if (fd < 0) return nullptr;
    struct stat status;
    const int failed = fstat(fd, &status) != 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
    if (failed != 0) {
        close(fd);
        errno = failed;
        return nullptr;
    }
    return new VRunFile(fd, full_path(path), {status.st_dev, status.st_ino});
}

// Adds what comes next in the file to `ahead`; false at the end.
Result<bool> read_ahead(VRunFile &file) {
    constexpr std::size_t Step = 64 * 1024;
    file.ahead.erase(0, file.ahead_used);
    file.ahead_used = 0;
    const std::size_t had = file.ahead.size();
    file.ahead.resize(had + Step);
    const auto got = file.read_at(file.line_offset, file.ahead.data() + had, Step);
    file.ahead.resize(had + (got ? *got : 0));
    if (!got) return got.error();
    file.line_offset += static_cast<std::int64_t>(*got);
    return *got > 0;
}

// The next line in `line`; false at the end of the file.
Result<bool> next_line(VRunFile &file) {
    std::size_t searched = 0, end;
    while ((end = file.ahead.find('\n', file.ahead_used + searched)) == std::string::npos) {
        searched = file.ahead.size() - file.ahead_used;
        const auto more = read_ahead(file);
        if (!more) return more.error();
        if (*more) continue;
        if (file.ahead.empty()) return false;
        end = file.ahead.size();
        break;
    }
    file.line.assign(file.ahead, file.ahead_used, end - file.ahead_used);
    file.ahead_used = std::min(end + 1, file.ahead.size());
    if (file.line.ends_with('\r')) file.line.pop_back();
    return true;
}

int lock_key(DP *dp, const VRunFile &file, std::string_view key, Wait wait) {
    const LockOutcome outcome = lock_record(dp, file.identity, key, wait);
    switch (outcome.result) {
        case LockResult::Granted:
            return 0;
        case LockResult::Busy:
            return fail(EWOULDBLOCK);
        case LockResult::Interrupted:
            return fail(EINTR);
        default:
            return result_of(outcome.error);
    }
}

}  // namespace
}  // namespace velda::rawio

using namespace velda::rawio;

VRunFile *VRunFileIOOpen(DP *, const char *path, int mode, int permissions) {
    return open_file(native_path(path), mode, permissions);
}

int VRunFileIOClose(DP *, VRunFile *file) {
    delete file;
    return 0;
}

int VRunFileIORead(DP *, VRunFile *file, int64_t offset, void *buffer, size_t count, size_t *done) {
    const auto got = file->read_at(offset, static_cast<char *>(buffer), count);
    if (done) *done = got ? *got : 0;
    if (!got) return result_of(got.error());
    return *got == count ? 0 : fail(ENODATA);
}

int VRunFileIOWrite(DP *, VRunFile *file, int64_t offset, const void *buffer, size_t count, size_t *done) {
    return result_of(file->write_at(offset, {static_cast<const char *>(buffer), count}, done));
}

int VRunFileIOSync(DP *, VRunFile *file) { return fsync(file->fd) == 0 ? 0 : errno; }

int VRunFileIOGetLine(DP *, VRunFile *file, const char **line, size_t *length) {
    const auto found = next_line(*file);
    if (!found) return result_of(found.error());
    if (!*found) return fail(ENODATA);
    *line = file->line.c_str();
    *length = file->line.size();
    return 0;
}

int VRunFileIOGetFd(DP *, const VRunFile *file) { return file->fd; }

uint64_t VRunFileIOGetDevice(DP *, const VRunFile *file) { return file->identity.device; }

uint64_t VRunFileIOGetIno(DP *, const VRunFile *file) { return file->identity.inode; }

const char *VRunFileIOGetFullPath(DP *, const VRunFile *file) { return file->path.c_str(); }

int VRunFileIOGetStatus(DP *, const VRunFile *file, VRunFileStatus *status) {
    struct stat now;
    if (fstat(file->fd, &now) != 0) return errno;
    *status = {now.st_size, now.st_mtim.tv_sec, now.st_dev, now.st_ino,
               now.st_mode, now.st_uid,         now.st_gid, static_cast<uint32_t>(now.st_nlink)};
    return 0;
}

int64_t VRunFileIOLockHash(DP *, const char *key, size_t key_length) {
    return static_cast<int64_t>(velda::lock_hash({key, key_length}));
}

int VRunFileIOLockRecord(DP *dp, VRunFile *file, const char *key, size_t key_length, int mode) {
    constexpr int Take = 1, Try = 2, Release = 4;
    const std::string_view text(key, key_length);
    switch (mode) {
        case Take:
            return lock_key(dp, *file, text, velda::Wait::Yes);
        case Try:
            return lock_key(dp, *file, text, velda::Wait::No);
        case Release:
            return velda::unlock_record(dp, file->identity, text) ? 0 : fail(ENOENT);
        default:
            return fail(EINVAL);
    }
}
