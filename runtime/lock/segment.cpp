#include "runtime/lock/segment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/lock/death_point.h"
#include "runtime/lock/owner_life.h"

namespace velda::lock {

namespace {

constexpr int AttachTries = 100;

// Names this run of the machine.
std::string boot_id() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id.substr(0, sizeof SegmentHeader::boot_id - 1);
}

int lock_file(int file, int operation) {
    int result;
    do result = flock(file, operation);
    while (result != 0 && errno == EINTR);
    return result;
}

// The file's permissions are those of its directory, less the right to search: who may use the system may lock.
int open_segment_file(const std::string &path) {
    const int existing = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (existing >= 0 || errno != ENOENT) return existing;
    const int made = open(path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT, 0600);
    if (made < 0) return made;
    struct stat directory;
    const std::string parent = std::filesystem::path(path).parent_path().string();
    if (stat(parent.c_str(), &directory) == 0) {
        [[maybe_unused]] const int group_kept = fchown(made, static_cast<uid_t>(-1), directory.st_gid);
        [[maybe_unused]] const int mode_set = fchmod(made, directory.st_mode & 0666);
    }
    return made;
}

std::uint64_t inode_of(int file) {
    struct stat status;
    return fstat(file, &status) == 0 ? status.st_ino : 0;
}

std::size_t size_of(int file) {
    struct stat status;
    return fstat(file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

}  // namespace

void make_robust(pthread_mutex_t &mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

Result<std::unique_ptr<Segment>> Segment::attach(const std::string &path) {
    const int file = open_segment_file(path);
    if (file < 0) return system_error(errno, "cannot open lock table", path);
    void *base = mmap(nullptr, MappedBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, file, 0);
    if (base == MAP_FAILED) {
        const int reason = errno;
        close(file);
        return system_error(reason, "cannot map lock table", path);
    }
    madvise(base, MappedBytes, MADV_DONTDUMP);
    std::unique_ptr<Segment> segment(new Segment(path, file, static_cast<char *>(base)));
    for (int tries = 0; tries < AttachTries; ++tries) {
        const auto joined = segment->join();
        if (!joined) return joined.error();
        if (*joined) return segment;
    }
    return system_error(EAGAIN, "cannot attach lock table", path);
}

Segment::~Segment() {
    munmap(base_, MappedBytes);
    close(file_);
}

// Who uses the segment holds its file's lock shared; who can have it alone is the only one. False: try again, another
// process began to make it anew and did not finish.
Result<bool> Segment::join() {
    if (lock_file(file_, LOCK_EX | LOCK_NB) == 0) {
        if (!is_current() || !anyone_lives()) {
            if (auto formatted = format(); !formatted) return formatted.error();
        }
    }
    if (lock_file(file_, LOCK_SH) != 0) return system_error(errno, "cannot attach lock table", path_);
    if (is_current()) return true;
    const bool other_version = size_of(file_) >= PageBytes &&
                               header().magic.load(std::memory_order_acquire) == SegmentMagic &&
                               header().version != SegmentVersion;
    if (other_version)
        return Error{EBUSY, "lock table '" + path_ + "' is in use by another version: end its sessions first"};
    lock_file(file_, LOCK_UN);
    return false;
}

bool Segment::is_current() const {
    if (size_of(file_) < OwnersOffset) return false;
    const SegmentHeader &found = header();
    return found.magic.load(std::memory_order_acquire) == SegmentMagic && found.version == SegmentVersion &&
           found.inode == inode_of(file_) &&
           boot_id() == std::string(found.boot_id, strnlen(found.boot_id, sizeof found.boot_id));
}

// A process that closed all its descriptors has given up the file's lock, but not its life as an owner.
bool Segment::anyone_lives() const {
    for (std::size_t slot = 0; slot < owner_slots_ready(); ++slot) {
        if (life_of(owner(slot)) == Life::Lives) return true;
    }
    return false;
}

Result<void> Segment::format() {
    if (ftruncate(file_, 0) != 0) return system_error(errno, "cannot empty lock table", path_);
    if (auto stored = give_storage(0, OwnersOffset); !stored) return stored;
    SegmentHeader &fresh = header();
    fresh.version = SegmentVersion;
    fresh.inode = inode_of(file_);
    boot_id().copy(fresh.boot_id, sizeof fresh.boot_id - 1);
    fresh.end_page = ExtentsOffset / PageBytes;
    fresh.next_generation = 1;
    fresh.next_ticket = 1;
    make_robust(fresh.owner_groups);
    for (std::size_t number = 0; number < StripeCount; ++number) make_robust(stripe(number).mutex);
    fresh.magic.store(SegmentMagic, std::memory_order_release);
    return {};
}

bool Segment::has_unit(Unit unit) const {
    const std::size_t page = unit / UnitsPerPage;
    return page >= ExtentsOffset / PageBytes && page < header().end_page.load(std::memory_order_relaxed);
}

Result<void> Segment::give_storage(std::size_t offset, std::size_t size_bytes) {
    int failed;
    do failed = posix_fallocate(file_, static_cast<off_t>(offset), static_cast<off_t>(size_bytes));
    while (failed == EINTR);
    if (failed != 0) return system_error(failed, "cannot grow lock table", path_);
    return {};
}

Result<void> Segment::add_owner_slots(std::size_t known) {
    pthread_mutex_t &mutex = header().owner_groups;
    // The death of an earlier holder left nothing half done: a group counts only when it is complete.
    if (pthread_mutex_lock(&mutex) == EOWNERDEAD) pthread_mutex_consistent(&mutex);
    Result<void> result;
    if (owner_slots_ready() <= known) {
        if (known + OwnersPerGroup > OwnerLimit)
            result = Error{EUSERS, "lock table '" + path_ + "' has no room for another session"};
        else
            result = give_storage(OwnersOffset + known * sizeof(OwnerSlot), OwnersPerGroup * sizeof(OwnerSlot));
        if (result) {
            for (std::size_t slot = known; slot < known + OwnersPerGroup; ++slot) make_robust(owner(slot).life);
            death_point();
            header().owner_slots_ready.store(static_cast<std::uint32_t>(known + OwnersPerGroup),
                                             std::memory_order_release);
        }
    }
    death_point();
    pthread_mutex_unlock(&mutex);
    return result;
}

Result<std::uint32_t> Segment::reserve_pages(std::uint32_t count) {
    std::uint64_t first = header().end_page.fetch_add(count);
    Result<void> stored;
    if ((first + count) * PageBytes > MappedBytes)
        stored = Error{ENOMEM, "lock table '" + path_ + "' is full"};
    else
        stored = give_storage(first * PageBytes, std::size_t{count} * PageBytes);
    if (!stored) {
        // Gives the place back, so that failing again and again does not use up the mapping.
        std::uint64_t end = first + count;
        header().end_page.compare_exchange_strong(end, first);
        return stored.error();
    }
    return static_cast<std::uint32_t>(first);
}

}  // namespace velda::lock
