// Where the blocks of a stripe come from: its free lists, then the newest extent, then a new extent.
#include <algorithm>
#include <cassert>
#include <cstring>

#include "runtime/lock/death_point.h"
#include "runtime/lock/lock_table.h"

namespace velda::lock {

namespace {

constexpr std::uint32_t FirstBucketsLog2 = 9;  // one page

std::uint32_t pages_of(std::size_t size_bytes) {
    return static_cast<std::uint32_t>((size_bytes + PageBytes - 1) / PageBytes);
}

std::size_t class_of_entry(const Entry &entry) { return size_class_for(entry.key_bytes); }

}  // namespace

std::size_t size_class_for(std::size_t key_bytes) {
    std::size_t size_class = 0;
    while (block_bytes(size_class) < EntryHeaderBytes + key_bytes) ++size_class;
    return size_class;
}

Result<Unit> LockTable::allocate_block(Stripe &stripe, std::size_t size_class) {
    if (const Unit unit = stripe.free_blocks[size_class]) {
        stripe.free_blocks[size_class] = segment_->entry(unit).next;
        return unit;
    }
    Stripe::Fresh &fresh = stripe.fresh[size_class];
    if (fresh.next == fresh.end) {
        if (auto added = add_extent(stripe, size_class); !added) return added.error();
    }
    const Unit unit = fresh.next;
    fresh.next += block_units(size_class);
    return unit;
}

void LockTable::free_block(Stripe &stripe, Unit unit) {
    Entry &entry = segment_->entry(unit);
    Unit &first = stripe.free_blocks[class_of_entry(entry)];
    entry.next = first;
    first = unit;
}

// The blocks of a class double with each extent, up to a limit, so that a stripe needs few extents.
Result<void> LockTable::add_extent(Stripe &stripe, std::size_t size_class) {
    std::size_t place = 0;
    std::size_t existing_bytes = 0;
    for (; place < ExtentLimit; ++place) {
        const Extent extent = stripe.extents[place].load(std::memory_order_relaxed);
        if (!extent.used) break;
        if (extent.size_class == size_class) existing_bytes += extent.pages * PageBytes;
    }
    if (place == ExtentLimit) return Error{ENOMEM, "lock table '" + path() + "' is full"};
    const std::uint32_t pages = pages_of(std::max(std::min(existing_bytes, MaxExtentBytes), block_bytes(size_class)));
    const auto page = segment_->reserve_pages(pages);
    if (!page) return page.error();
    death_point();
    const Extent extent{*page, static_cast<std::uint16_t>(pages), static_cast<std::uint8_t>(size_class), 1};
    stripe.extents[place].store(extent, std::memory_order_release);
    death_point();
    const Unit first = *page * static_cast<Unit>(UnitsPerPage);
    stripe.fresh[size_class] = {first, first + pages * static_cast<Unit>(UnitsPerPage)};
    return {};
}

// Keeps at least two buckets for a lock. The old array's pages are not used again: together they are no larger than the
// new one. Without storage for a larger array the old one is filled further.
Result<void> LockTable::make_room_in_buckets(Stripe &stripe) {
    const Buckets old = stripe.buckets.load(std::memory_order_relaxed);
    const std::uint64_t count = old.page == 0 ? 0 : std::uint64_t{1} << old.count_log2;
    if (stripe.entries < count / 2) return {};
    const std::uint32_t count_log2 = old.page == 0 ? FirstBucketsLog2 : old.count_log2 + 1;
    const auto page = segment_->reserve_pages(pages_of(sizeof(Bucket) << count_log2));
    if (!page) return stripe.entries < count / 8 * 7 ? Result<void>() : Result<void>(page.error());
    const Buckets larger{*page, count_log2};
    if (old.page != 0) {
        BucketArray filled = segment_->buckets(larger);
        segment_->buckets(old).for_each([&](const Bucket &bucket) { filled.insert(bucket.unit, bucket.tag); });
    }
    death_point();
    stripe.buckets.store(larger, std::memory_order_release);
    death_point();
    return {};
}

}  // namespace velda::lock
