// What a turn may need before it can be taken again: a larger map, or the file opened anew.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "runtime/store/environment.h"
#include "runtime/store/file_turn.h"

namespace velda::store {
namespace {

// The map after `bytes`: double while it is small, then a quarter more.
std::uint64_t next_map_bytes(std::uint64_t bytes) {
    constexpr std::uint64_t Large = 256 << 20;
    return whole_pages(bytes < Large ? bytes * 2 : bytes + bytes / 4);
}

}  // namespace

// True when the failed turn should be taken again. No transaction of this process runs meanwhile.
bool Environment::repair(int &rc, std::uint64_t seen_map_bytes, std::size_t room_bytes) {
    if (rc != MDB_MAP_FULL && rc != MDB_MAP_RESIZED && rc != MDB_PANIC && rc != NotOpen) return false;
    const Alone alone(*this);
    if (rc == MDB_MAP_FULL || rc == MDB_MAP_RESIZED)
        rc = map_bytes_ != seen_map_bytes ? 0 : grow(room_bytes);  // unless another thread has done it
    else
        rc = rc == NotOpen && lmdb_ ? 0 : reopen();
    return rc == 0;
}

// Called alone, or before anyone else knows the environment.
int Environment::grow(std::size_t room_bytes) {
    int dead = 0;
    mdb_reader_check(lmdb_, &dead);  // a killed reader may be why no page could be used again
    for (Reader *reader : idle_readers_) let_go(*reader);
    MDB_envinfo information;
    mdb_env_info(lmdb_, &information);
    const std::uint64_t used = (information.me_last_pgno + 1) * lmdb::PageBytes;
    const std::uint64_t needed = whole_pages(used + room_bytes + room_bytes / 8);
    const bool lazy = durability_ == Durability::Lazy;
    const SizeTurn size_turn(lazy && writable_ ? descriptor_ : -1);
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return errno;
    const std::uint64_t file_bytes = lazy ? whole_pages(status.st_size) : 0;
    std::uint64_t wanted = std::max({needed, file_bytes, next_map_bytes(std::max(map_bytes_, used))});
    if (file_bytes > map_bytes_ && file_bytes >= needed) wanted = file_bytes;  // another process has grown it
    if (lazy && writable_) {
        int failed = reserve(wanted);
        if (failed == ENOSPC && std::max(needed, file_bytes) > map_bytes_)
            failed = reserve(wanted = std::max(needed, file_bytes));
        if (failed) return failed;
    }
    if (const int rc = mdb_env_set_mapsize(lmdb_, wanted)) {
        close();  // LMDB has lost its map; the next use opens the file anew
        return rc;
    }
    map_bytes_ = wanted;
    return 0;
}

// Allocates the file's disk space up to `size_bytes`: a store into an unallocated page of a map would kill the process
// when the disk is full.
int Environment::reserve(std::uint64_t size_bytes) {
    struct stat status;
    if (fstat(descriptor_, &status) < 0) return errno;
    const auto file_bytes = static_cast<std::uint64_t>(status.st_size);
    if (file_bytes >= size_bytes && static_cast<std::uint64_t>(status.st_blocks) * 512 >= size_bytes) return 0;
    int rc;
    do rc = fallocate(descriptor_, 0, 0, static_cast<off_t>(size_bytes)) < 0 ? errno : 0;
    while (rc == EINTR);
    if (rc != 0 && rc != EOPNOTSUPP) (void)!ftruncate(descriptor_, status.st_size);  // gives back what it got
    if (rc != EOPNOTSUPP) return rc;
    static const char zeros[64 * 1024] = {};
    for (std::uint64_t at = file_bytes; at < size_bytes;) {
        const ssize_t put = pwrite(descriptor_, zeros, std::min<std::uint64_t>(sizeof zeros, size_bytes - at), at);
        if (put < 0 && errno != EINTR) return errno;
        if (put > 0) at += put;
    }
    return 0;
}

}  // namespace velda::store
