// bucket_array.h - how a stripe finds its locks: an open hash table of places and tags. Private to the folder.
//
// The tag is the low half of a lock's hash. It gives the bucket where the search begins and rules out nearly every
// other lock before its entry is looked at: with millions of locks, a search touches one cache line that is not in the
// cache.
#pragma once

#include <cstdint>

#include "runtime/lock/death_point.h"
#include "runtime/lock/lock_layout.h"

namespace velda::lock {

constexpr std::uint32_t tag_of(std::uint64_t hash) { return static_cast<std::uint32_t>(hash); }

// A view of the array in the segment. It never gets full: LockTable::make_room_in_buckets sees to that.
class BucketArray {
  public:
    BucketArray(Bucket *first, std::uint32_t count_log2)
        : first_(first), mask_(static_cast<std::uint32_t>((std::uint64_t{1} << count_log2) - 1)) {}

    // The first place of that tag which `matches` accepts, 0 when there is none.
    template <class Matches>
    Unit find(std::uint32_t tag, Matches matches) const {
        for (std::uint32_t i = tag & mask_; first_[i].unit != 0; i = (i + 1) & mask_) {
            if (first_[i].tag == tag && matches(first_[i].unit)) return first_[i].unit;
        }
        return 0;
    }

    void insert(Unit unit, std::uint32_t tag) {
        std::uint32_t i = tag & mask_;
        while (first_[i].unit != 0) i = (i + 1) & mask_;
        first_[i].tag = tag;
        death_point();
        first_[i].unit = unit;
    }

    // The buckets behind move up, so that no search ends too early.
    void erase(Unit unit, std::uint32_t tag) {
        std::uint32_t hole = tag & mask_;
        while (first_[hole].unit != unit) hole = (hole + 1) & mask_;
        for (std::uint32_t i = (hole + 1) & mask_; first_[i].unit != 0; i = (i + 1) & mask_) {
            const std::uint32_t home = first_[i].tag & mask_;
            if (((i - home) & mask_) < ((i - hole) & mask_)) continue;
            first_[hole] = first_[i];
            death_point();
            hole = i;
        }
        first_[hole].unit = 0;
    }

    template <class Visit>
    void for_each(Visit visit) const {
        for (std::uint64_t i = 0; i <= mask_; ++i) {
            if (first_[i].unit != 0) visit(first_[i]);
        }
    }

    void clear() {
        for (std::uint64_t i = 0; i <= mask_; ++i) first_[i] = {};
    }

    void prefetch(std::uint32_t tag) const { __builtin_prefetch(&first_[tag & mask_], 1); }

  private:
    Bucket *first_;
    std::uint32_t mask_;
};

}  // namespace velda::lock
