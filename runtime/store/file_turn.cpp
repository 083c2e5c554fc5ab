#include "runtime/store/file_turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace velda::store {
namespace {

// Locked bytes far behind the end of any file.
constexpr off_t UserByte = off_t{1} << 61;
constexpr off_t SizeByte = UserByte + 1;

int lock_byte(int descriptor, int command, short type, off_t byte, short *found = nullptr) {
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    int rc;
    do rc = fcntl(descriptor, command, &range);
    while (rc < 0 && errno == EINTR);
    if (found) *found = range.l_type;
    return rc;
}

}  // namespace

FileTurn::FileTurn(int descriptor) : descriptor_(descriptor) {
    while (flock(descriptor_, LOCK_EX) < 0 && errno == EINTR) {
    }
}

FileTurn::~FileTurn() { flock(descriptor_, LOCK_UN); }

SizeTurn::SizeTurn(int descriptor) : descriptor_(descriptor) {
    if (descriptor_ >= 0) lock_byte(descriptor_, F_OFD_SETLKW, F_WRLCK, SizeByte);
}

SizeTurn::~SizeTurn() {
    if (descriptor_ >= 0) lock_byte(descriptor_, F_OFD_SETLK, F_UNLCK, SizeByte);
}

bool take_user_lock(int descriptor, bool writable) {
    if (writable) return lock_byte(descriptor, F_OFD_SETLK, F_WRLCK, UserByte) == 0;
    short found = F_UNLCK;
    return lock_byte(descriptor, F_OFD_GETLK, F_WRLCK, UserByte, &found) == 0 && found == F_UNLCK;
}

void share_user_lock(int descriptor) { lock_byte(descriptor, F_OFD_SETLKW, F_RDLCK, UserByte); }

}  // namespace velda::store
