// What the table tells about itself: its locks and owners for reports, and its faults.
#include <algorithm>
#include <string>

#include "runtime/lock/lock_table.h"
#include "runtime/lock/owner_life.h"
#include "runtime/lock/owner_notes.h"

namespace velda::lock {

LockInfo LockTable::describe(const Entry &entry) const {
    LockInfo info;
    info.kind = static_cast<LockKind>(entry.kind);
    info.file = {entry.device, entry.inode};
    info.key.assign(entry.key, entry.key_bytes);
    info.holder = shown(entry.owner.load(std::memory_order_relaxed));
    info.taken_seconds = entry.taken_seconds;
    for (std::uint16_t next = entry.first_waiter; next != 0; next = waiter(next).next_waiter)
        info.waiters.push_back(shown(waiter(next).id.load(std::memory_order_relaxed)));
    return info;
}

std::vector<LockInfo> LockTable::all_locks() {
    reap_all();
    std::vector<LockInfo> locks;
    for (std::size_t number = 0; number < StripeCount; ++number) {
        const StripeGuard guard(*this, number);
        if (guard.stripe.entries == 0) continue;
        for_each_block(guard.stripe, [&](Unit unit, std::size_t) {
            const Entry &entry = segment_->entry(unit);
            if (entry.owner.load(std::memory_order_relaxed) != 0) locks.push_back(describe(entry));
        });
    }
    std::stable_sort(locks.begin(), locks.end(),
                     [](const LockInfo &a, const LockInfo &b) { return a.holder.port < b.holder.port; });
    return locks;
}

std::vector<OwnerId> LockTable::owners() {
    reap_all();
    std::vector<OwnerId> ids;
    for (std::size_t number = 0; number < segment_->owner_slots_ready(); ++number) {
        const OwnerId id = segment_->owner(number).id.load(std::memory_order_acquire);
        if (id != 0) ids.push_back(id);
    }
    return ids;
}

std::vector<LockOwnerInfo> LockTable::all_owners() {
    std::vector<LockOwnerInfo> infos;
    for (const OwnerId id : owners()) {
        const OwnerSlot &slot = *slot_of_owner(id);
        infos.push_back({shown(id), slot.lock_count.load(std::memory_order_relaxed),
                         slot.waiting_for.load(std::memory_order_relaxed).unit != 0});
    }
    return infos;
}

void LockTable::set_notes(const Owner &owner, std::string_view text) {
    write_notes(segment_->notes(slot_of(owner.id)), text);
}

std::string LockTable::notes_of(OwnerId id) const { return read_notes(segment_->notes(slot_of(id))); }

std::string LockTable::find_fault() {
    for (std::size_t number = 0; number < StripeCount; ++number) {
        const StripeGuard guard(*this, number);
        std::string fault = fault_in_buckets(guard.stripe, number);
        if (fault.empty()) fault = fault_in_blocks(guard.stripe);
        if (!fault.empty()) return "stripe " + std::to_string(number) + ": " + fault;
    }
    return "";
}

// Every bucket names a lock of the stripe, none is named twice, and all together are as many as counted.
std::string LockTable::fault_in_buckets(const Stripe &stripe, std::size_t stripe_number) const {
    if (stripe.buckets.load().page == 0) return stripe.entries == 0 ? "" : "locks without buckets";
    std::uint64_t entered = 0;
    std::string fault;
    buckets_of(stripe).for_each([&](const Bucket &bucket) {
        if (fault.empty()) fault = fault_in_entry(stripe, stripe_number, bucket.unit);
        ++entered;
    });
    if (fault.empty() && entered != stripe.entries) fault = "locks in the buckets are not as many as counted";
    return fault;
}

std::string LockTable::fault_in_entry(const Stripe &stripe, std::size_t stripe_number, Unit unit) const {
    if (!segment_->has_unit(unit)) return "a bucket names a place outside the segment";
    const Entry &entry = segment_->entry(unit);
    if (entry.owner.load() == 0) return "a bucket names a free block";
    if (is_orphan(entry)) return "the owner of a lock is gone";
    const LockName name{static_cast<LockKind>(entry.kind), {entry.device, entry.inode}, {entry.key, entry.key_bytes}};
    if (hash_of(name) != entry.hash || stripe_of(entry.hash) != stripe_number) return "a lock in the wrong stripe";
    if (find(stripe, name, entry.hash) != unit) return "a lock that is not found by its name";
    return fault_in_queue(entry, unit);
}

// Every block is a lock, on its free list, or fresh.
std::string LockTable::fault_in_blocks(const Stripe &stripe) const {
    std::uint64_t locks = 0;
    std::uint64_t unused[SizeClassCount] = {};
    for_each_block(stripe, [&](Unit unit, std::size_t size_class) {
        ++(segment_->entry(unit).owner.load() != 0 ? locks : unused[size_class]);
    });
    if (locks != stripe.entries) return "locks that no bucket names";
    for (std::size_t size_class = 0; size_class < SizeClassCount; ++size_class) {
        const Stripe::Fresh fresh = stripe.fresh[size_class];
        std::uint64_t listed = (fresh.end - fresh.next) / block_units(size_class);
        for (Unit unit = stripe.free_blocks[size_class]; unit != 0 && listed <= unused[size_class];
             unit = segment_->entry(unit).next) {
            if (segment_->entry(unit).owner.load() != 0) return "a lock on a free list";
            ++listed;
        }
        if (listed != unused[size_class]) return "free blocks are lost or listed twice";
    }
    return "";
}

// The queue is in the order of its tickets, and all in it wait for this lock.
std::string LockTable::fault_in_queue(const Entry &entry, Unit unit) const {
    std::uint64_t ticket = 0;
    std::uint16_t last = 0;
    for (std::uint16_t next = entry.first_waiter; next != 0; next = waiter(next).next_waiter) {
        if (waiter(next).waiting_for.load().unit != unit)
            return "a queue holds an owner that does not wait for the lock";
        if (waiter(next).ticket <= ticket) return "a queue out of order";
        if (waiter(next).id.load() == entry.owner.load()) return "the holder waits for its own lock";
        ticket = waiter(next).ticket;
        last = next;
    }
    return last == entry.last_waiter ? "" : "a queue with the wrong end";
}

}  // namespace velda::lock
