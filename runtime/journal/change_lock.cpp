#include "runtime/journal/change_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/process/context.h"

namespace velda::journal {

namespace {

constexpr int ProcessShift = 32;

std::uint64_t session_word(const DP *dp) { return static_cast<std::uint64_t>(getpid()) << ProcessShift | dp->serial; }

// A word that a fork copied names a session of the parent, which does not exist here.
bool is_of_this_process(std::uint64_t session) {
    return session >> ProcessShift == static_cast<std::uint64_t>(getpid());
}

}  // namespace

LockFile::LockFile(const std::string &path) : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    if (file_ < 0) open_error_ = errno;
}

int LockFile::set(LockByte byte, short type, int command) const {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(byte);
    range.l_len = 1;
    int result;
    do {
        result = fcntl(file_, command, &range);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

int LockFile::take(LockByte byte, const DP *dp) {
    if (file_ < 0) return open_error_;
    const std::uint64_t session = session_word(dp);
    std::atomic<std::uint64_t> &holder = holders_[static_cast<int>(byte)];
    for (std::uint64_t seen = holder.load();;) {
        if (seen != 0 && is_of_this_process(seen)) {
            holder.wait(seen);
            seen = holder.load();
        } else if (holder.compare_exchange_strong(seen, session)) {
            break;
        }
    }
    const int error = set(byte, F_WRLCK, F_SETLKW);
    if (error != 0) {
        holder = 0;
        holder.notify_all();
    }
    return error;
}

bool LockFile::try_take(LockByte byte, const DP *dp) {
    if (file_ < 0) return false;
    std::atomic<std::uint64_t> &holder = holders_[static_cast<int>(byte)];
    std::uint64_t seen = holder.load();
    if (seen != 0 && is_of_this_process(seen)) return false;
    if (!holder.compare_exchange_strong(seen, session_word(dp))) return false;
    if (set(byte, F_WRLCK, F_SETLK) == 0) return true;
    holder = 0;
    holder.notify_all();
    return false;
}

void LockFile::leave(LockByte byte) {
    set(byte, F_UNLCK, F_SETLK);
    std::atomic<std::uint64_t> &holder = holders_[static_cast<int>(byte)];
    holder = 0;
    holder.notify_all();
}

int HeldLock::take(DP *dp, LockFile &file, LockByte byte) {
    if (depth_ > 0 && process_ == getpid()) {
        ++depth_;
        return 0;
    }
    depth_ = 0;
    if (const int error = file.take(byte, dp)) return error;
    file_ = &file;
    byte_ = byte;
    depth_ = 1;
    process_ = getpid();
    return 0;
}

int HeldLock::leave() {
    if (depth_ == 0 || process_ != getpid()) return EPERM;
    if (--depth_ == 0) file_->leave(byte_);
    return 0;
}

void HeldLock::leave_all() {
    if (depth_ == 0) return;
    depth_ = 1;
    leave();
}

}  // namespace velda::journal
