#include "runtime/store/directory_mark.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/store/boot_id.h"
#include "runtime/store/driver.h"

namespace velda::store {
namespace {

constexpr char MarkName[] = ".velda-mark";
constexpr std::chrono::seconds SyncPeriod{2};

std::uint64_t read_mark(int descriptor) {
    std::uint64_t boot = 0;
    return pread(descriptor, &boot, sizeof boot, 0) == static_cast<ssize_t>(sizeof boot) ? boot : 0;
}

int write_mark(int descriptor, std::uint64_t boot) {
    if (pwrite(descriptor, &boot, sizeof boot, 0) != static_cast<ssize_t>(sizeof boot)) return errno ? errno : EIO;
    return fsync(descriptor) < 0 ? errno : 0;
}

}  // namespace

Result<void> DirectoryMark::check() {
    const Descriptor mark(openat(directory_, MarkName, O_RDONLY | O_CLOEXEC));
    const std::uint64_t boot = mark.number() < 0 ? 0 : read_mark(mark.number());
    if (boot == 0) return {};
    if (boot == current_boot()) {
        (void)enter();  // not for a reader without permission
        return {};
    }
    return Error{NeedsCheck, "file '" + path_ +
                                 "' is lazy and was in use when the machine stopped: updates may be missing; "
                                 "CHECK-FILE it, or restore it"};
}

DirectoryMark::Update::Update(DirectoryMark &mark, bool lazy) : mark_(mark) {
    if (!lazy) return;
    lock_ = std::shared_lock(mark_.mutex_);
    while (allowed_ && mark_.entered_ != getpid()) {
        lock_.unlock();
        allowed_ = mark_.enter();
        lock_.lock();
    }
}

DirectoryMark::Update::~Update() {
    if (lock_.owns_lock() && allowed_) mark_.sync_when_due();
}

Result<void> DirectoryMark::enter() {
    const std::lock_guard lock(mutex_);
    if (entered_ == getpid()) return {};
    auto mark = std::make_unique<Descriptor>(openat(directory_, MarkName, O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (mark->number() < 0) return system_error(errno, "cannot mark file", path_);
    share_user_lock(mark->number());  // waits while the last one to leave clears the mark
    if (read_mark(mark->number()) != current_boot()) {
        errno = 0;
        int failed = write_mark(mark->number(), current_boot());
        if (failed == 0 && fsync(directory_) < 0) failed = errno;
        if (failed) return system_error(failed, "cannot mark file", path_);
    }
    mark_ = std::move(mark);
    last_sync_ = std::chrono::steady_clock::now().time_since_epoch().count();
    entered_ = getpid();
    return {};
}

void DirectoryMark::sync_when_due() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    auto last = last_sync_.load();
    const auto due = std::chrono::duration_cast<std::chrono::steady_clock::duration>(SyncPeriod).count();
    if (now - last >= due && last_sync_.compare_exchange_strong(last, now)) syncfs(directory_);
}

Result<void> DirectoryMark::leave_clean() {
    const std::lock_guard lock(mutex_);
    if (entered_ != getpid()) return {};
    if (syncfs(directory_) < 0) return system_error(errno, "cannot sync file", path_);
    if (take_user_lock(mark_->number(), true)) write_mark(mark_->number(), 0);
    mark_.reset();
    entered_ = 0;
    return {};
}

Result<void> DirectoryMark::clear() {
    if (check()) return {};
    if (syncfs(directory_) < 0) return system_error(errno, "cannot sync file", path_);
    const Descriptor mark(openat(directory_, MarkName, O_RDWR | O_CLOEXEC));
    if (mark.number() < 0) return system_error(errno, "cannot clear the mark of file", path_);
    errno = 0;
    if (const int failed = write_mark(mark.number(), 0))
        return system_error(failed, "cannot clear the mark of file", path_);
    return {};
}

}  // namespace velda::store
