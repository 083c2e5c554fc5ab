#include "runtime/lock/segment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "runtime/base/global_directory.h"
#include "runtime/lock/death_point.h"
#include "runtime/lock/owner_life.h"
#include "runtime/store/boot_id.h"

namespace velda::lock {

namespace {

std::size_t size_of(int file) {
    struct stat status;
    return fstat(file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

}  // namespace

bool lock_file(int file, int operation) {
    int result;
    do {
        result = flock(file, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void make_robust(pthread_mutex_t &mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

Result<std::unique_ptr<Segment>> Segment::map(const std::string &path, int file) {
    void *base = mmap(nullptr, MappedBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, file, 0);
    if (base == MAP_FAILED) {
        const int reason = errno;
        close(file);
        return system_error(reason, "cannot map lock table", path);
    }
    madvise(base, MappedBytes, MADV_DONTDUMP);
    std::unique_ptr<Segment> segment(new Segment(path, file, static_cast<char *>(base)));
    if (auto locked = segment->announce_use(); !locked) return locked.error();
    return segment;
}

Result<std::unique_ptr<Segment>> Segment::open(const std::string &path) {
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) return system_error(errno, "cannot open lock table", path);
    return map(path, file);
}

Result<std::unique_ptr<Segment>> Segment::create(const std::string &path, const std::string &registration) {
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, 0600);
    if (file < 0) return system_error(errno, "cannot make lock table", path);
    auto segment = map(path, file);
    if (!segment) return segment;
    share_like_directory(file, std::filesystem::path(registration).parent_path().string());
    if (auto formatted = (*segment)->format(registration); !formatted) {
        unlink(path.c_str());
        return formatted.error();
    }
    return segment;
}

Segment::~Segment() {
    munmap(base_, MappedBytes);
    close(file_);
    if (use_ >= 0) close(use_);
}

// Not with the descriptor of the mapping, which keeps its locks as long as it is mapped.
Result<void> Segment::announce_use() {
    use_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (use_ < 0 || !lock_file(use_, LOCK_SH)) return system_error(errno, "cannot lock lock table", path_);
    return {};
}

bool Segment::give_up_use() {
    if (use_ >= 0) close(use_);
    use_ = -1;
    const int again = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (again < 0) return false;
    const bool alone = lock_file(again, LOCK_EX | LOCK_NB);
    close(again);
    return alone;
}

bool Segment::is_table() const {
    return size_of(file_) >= OwnersOffset && header().magic.load(std::memory_order_acquire) == SegmentMagic;
}

bool Segment::is_current() const {
    const SegmentHeader &found = header();
    return is_table() && found.version == SegmentVersion && found.boot == store::current_boot();
}

bool Segment::anyone_lives() const {
    for (std::size_t slot = 0; slot < owner_slots_ready(); ++slot) {
        if (life_of(owner(slot)) == Life::Lives) return true;
    }
    return false;
}

Result<void> Segment::format(const std::string &registration) {
    if (auto stored = give_storage(0, OwnersOffset); !stored) return stored;
    SegmentHeader &fresh = header();
    fresh.version = SegmentVersion;
    fresh.boot = store::current_boot();
    registration.copy(fresh.registered_in, sizeof fresh.registered_in - 1);
    fresh.end_page = ExtentsOffset / PageBytes;
    fresh.next_generation = 1;
    fresh.next_ticket = 1;
    fresh.commits_begun = 1;
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
        if (result)
            result = give_storage(NotesOffset + known * sizeof(OwnerNotes), OwnersPerGroup * sizeof(OwnerNotes));
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
