// segment.h - the mapped file that holds the lock table: its header, its owner slots and its pages. Private to the
// folder.
#pragma once

#include <memory>
#include <string>

#include "runtime/base/result.h"
#include "runtime/lock/bucket_array.h"
#include "runtime/lock/lock_layout.h"

namespace velda::lock {

// The file is mapped whole and once: the mapping reaches far beyond the end of the file, so that pages which any
// process adds can be used by all at once. A page is given storage before it is used, so a full disk is an error and
// not a signal. While it is mapped the file is locked shared (flock).
class Segment {
  public:
    // Makes a new file with an empty table, for the system of that registration (see registration.h).
    static Result<std::unique_ptr<Segment>> create(const std::string &path, const std::string &registration);
    // Maps an existing file; it may be anything.
    static Result<std::unique_ptr<Segment>> open(const std::string &path);
    ~Segment();
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    // It is a lock table, of whatever version.
    bool is_table() const;
    // It is a table of this version, made in this run of the machine.
    bool is_current() const;
    // Some owner's thread lives. Ask only of a current one.
    bool anyone_lives() const;

    // Says that this process uses the segment no more; the mapping stays. True when no other process uses it: a forked
    // child does, whether or not it has looked at it.
    bool give_up_use();

    SegmentHeader &header() const { return *at<SegmentHeader>(0); }
    Stripe &stripe(std::size_t number) const { return at<Stripe>(StripesOffset)[number]; }
    OwnerSlot &owner(std::size_t slot) const { return at<OwnerSlot>(OwnersOffset)[slot]; }
    OwnerNotes &notes(std::size_t slot) const { return at<OwnerNotes>(NotesOffset)[slot]; }
    Entry &entry(Unit unit) const { return *at<Entry>(std::size_t{unit} * UnitBytes); }
    BucketArray buckets(Buckets place) const {
        return {at<Bucket>(std::size_t{place.page} * PageBytes), place.count_log2};
    }
    bool has_unit(Unit unit) const;

    // Slots [0, count) can be used; the caller asks before it looks at one.
    std::size_t owner_slots_ready() const { return header().owner_slots_ready.load(std::memory_order_acquire); }
    // Makes one more group of slots ready, unless there are already more than `known`.
    Result<void> add_owner_slots(std::size_t known);

    // The first of `count` fresh pages, filled with zeros; an error when the disk or the mapping is full.
    Result<std::uint32_t> reserve_pages(std::uint32_t count);

    const std::string &path() const { return path_; }

  private:
    Segment(std::string path, int file, char *base) : path_(std::move(path)), file_(file), base_(base) {}

    template <class T>
    T *at(std::size_t offset) const {
        return reinterpret_cast<T *>(base_ + offset);
    }
    static Result<std::unique_ptr<Segment>> map(const std::string &path, int file);
    Result<void> announce_use();
    Result<void> give_storage(std::size_t offset, std::size_t size_bytes);
    Result<void> format(const std::string &registration);

    std::string path_;
    int file_;
    char *base_;
    int use_ = -1;  // holds the file's lock
};

// flock that goes on after a signal.
bool lock_file(int file, int operation);

// Prepares a mutex that processes share and that survives its holder.
void make_robust(pthread_mutex_t &mutex);

}  // namespace velda::lock
