#include "runtime/lock/lock_table.h"

#include <cassert>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "runtime/lock/death_point.h"
#include "runtime/lock/owner_life.h"

namespace velda::lock {

namespace {

std::int64_t now_seconds() {
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec;
}

bool has_name(const Entry &entry, const LockName &name) {
    return entry.device == name.file.device && entry.inode == name.file.inode &&
           entry.kind == static_cast<std::uint32_t>(name.kind) && entry.key_bytes == name.key.size() &&
           (name.key.empty() || std::memcmp(entry.key, name.key.data(), name.key.size()) == 0);
}

// The owner's reapers will look into this stripe.
void mark_stripe(OwnerSlot &slot, std::size_t number) {
    std::atomic<std::uint64_t> &word = slot.stripes[number / 64];
    const std::uint64_t bit = std::uint64_t{1} << (number % 64);
    const std::uint64_t marked = word.load(std::memory_order_relaxed);
    if (!(marked & bit)) word.store(marked | bit, std::memory_order_release);
}

}  // namespace

Result<std::unique_ptr<LockTable>> LockTable::attach(const std::string &path) {
    auto registration = Registration::attach(path);
    if (!registration) return registration.error();
    return std::unique_ptr<LockTable>(new LockTable(std::move(*registration)));
}

std::string LockTable::system_directory() const {
    return std::filesystem::path(registration_->path()).parent_path().parent_path().string();
}

// The bucket is on its way from memory while the mutex is taken. Without the mutex the array may just have been
// replaced: then the hint is wrong, and that is all.
void LockTable::expect(std::uint64_t hash) const {
    const Stripe &stripe = segment_->stripe(stripe_of(hash));
    buckets_of(stripe).prefetch(tag_of(hash));
}

LockTable::StripeGuard::StripeGuard(LockTable &table, std::size_t number) : stripe(table.segment_->stripe(number)) {
    const int result = pthread_mutex_lock(&stripe.mutex);
    if (result == EOWNERDEAD) {
        table.rebuild(number);
        pthread_mutex_consistent(&stripe.mutex);
    }
    assert(result == 0 || result == EOWNERDEAD);
}

LockTable::WakeList::~WakeList() {
    for (std::size_t i = 0; i < count_; ++i) {
        death_point();
        wake_sleepers(slots_[i]->wake_word);
    }
}

void LockTable::WakeList::add(OwnerSlot &slot) {
    slot.wake_word.fetch_add(1);
    if (count_ < std::size(slots_))
        slots_[count_++] = &slot;
    else
        wake_sleepers(slot.wake_word);
}

// --- one stripe --------------------------------------------------------------------------------------------

Unit LockTable::find(const Stripe &stripe, const LockName &name, std::uint64_t hash) const {
    if (stripe.buckets.load(std::memory_order_relaxed).page == 0) return 0;
    return buckets_of(stripe).find(tag_of(hash), [&](Unit unit) {
        const Entry &entry = segment_->entry(unit);
        return entry.hash == hash && has_name(entry, name);
    });
}

void LockTable::fill(Entry &entry, const LockName &name, std::uint64_t hash) {
    entry.device = name.file.device;
    entry.inode = name.file.inode;
    entry.hash = hash;
    entry.key_bytes = static_cast<std::uint32_t>(name.key.size()) & 0xFFFFFF;
    entry.kind = static_cast<std::uint32_t>(name.kind) & 0xFF;
    entry.first_waiter = entry.last_waiter = 0;
    entry.taken_seconds = now_seconds();
    if (!name.key.empty()) std::memcpy(entry.key, name.key.data(), name.key.size());
}

Attempt LockTable::insert(Stripe &stripe, const LockName &name, std::uint64_t hash, Owner &owner) {
    Attempt result;
    owner.make_room();
    auto made = make_room_in_buckets(stripe);
    const auto unit = made ? allocate_block(stripe, size_class_for(name.key.size())) : Result<Unit>(made.error());
    if (!unit) {
        result.result = LockResult::Failed;
        result.error = unit.error();
        return result;
    }
    death_point();
    Entry &entry = segment_->entry(*unit);
    fill(entry, name, hash);
    death_point();
    mark_stripe(*owner.slot, stripe_of(hash));
    death_point();
    entry.owner.store(owner.id, std::memory_order_release);
    death_point();
    enter(stripe, *unit);
    owner.note(entry, *unit);
    return result;
}

void LockTable::enter(Stripe &stripe, Unit unit) {
    buckets_of(stripe).insert(unit, tag_of(segment_->entry(unit).hash));
    death_point();
    ++stripe.entries;
}

void LockTable::leave(Stripe &stripe, Unit unit) {
    buckets_of(stripe).erase(unit, tag_of(segment_->entry(unit).hash));
    death_point();
    --stripe.entries;
}

// The holder has no more right to the lock: the first living waiter has it, or nobody.
void LockTable::pass_on(Stripe &stripe, Unit unit, WakeList &wakes) {
    Entry &entry = segment_->entry(unit);
    death_point();
    if (pass_to_first(entry, wakes)) return;
    entry.owner.store(0, std::memory_order_release);
    death_point();
    leave(stripe, unit);
    death_point();
    free_block(stripe, unit);
    death_point();
}

bool LockTable::pass_to_first(Entry &entry, WakeList &wakes) {
    while (entry.first_waiter != 0) {
        OwnerSlot &first = waiter(entry.first_waiter);
        const bool lives = life_of(first) == Life::Lives;
        if (lives) {
            entry.taken_seconds = now_seconds();
            entry.owner.store(first.id.load(std::memory_order_relaxed), std::memory_order_release);
            death_point();
        }
        dequeue(first, wakes);
        if (lives) {
            wakes.add(first);
            return true;
        }
    }
    return false;
}

void LockTable::enqueue(Entry &entry, Unit unit, Owner &owner) {
    OwnerSlot &slot = *owner.slot;
    const auto slot_and_one = static_cast<std::uint16_t>(slot_of(owner.id) + 1);
    owner.make_room();
    slot.ticket = segment_->header().next_ticket.fetch_add(1, std::memory_order_relaxed);
    slot.next_waiter = 0;
    mark_stripe(slot, stripe_of(entry.hash));
    death_point();
    slot.waiting_for.store({unit, static_cast<std::uint32_t>(stripe_of(entry.hash))}, std::memory_order_release);
    death_point();
    (entry.last_waiter == 0 ? entry.first_waiter : waiter(entry.last_waiter).next_waiter) = slot_and_one;
    death_point();
    entry.last_waiter = slot_and_one;
}

// Takes a waiter out of its entry's queue; who becomes first in line is woken to watch the holder.
void LockTable::dequeue(OwnerSlot &slot, WakeList &wakes) {
    Entry &entry = segment_->entry(slot.waiting_for.load(std::memory_order_relaxed).unit);
    std::uint16_t before = 0;
    std::uint16_t *place = &entry.first_waiter;
    while (*place != 0 && &waiter(*place) != &slot) {
        before = *place;
        place = &waiter(*place).next_waiter;
    }
    if (*place != 0) {
        *place = slot.next_waiter;
        death_point();
        if (slot.next_waiter == 0) entry.last_waiter = before;
        death_point();
    }
    slot.waiting_for.store({0, 0}, std::memory_order_release);
    death_point();
    if (before == 0 && entry.first_waiter != 0) wakes.add(waiter(entry.first_waiter));
}

// --- questions ---------------------------------------------------------------------------------------------

bool LockTable::holds(const Owner &owner, const LockName &name) {
    const std::uint64_t hash = hash_of(name);
    const StripeGuard guard(*this, stripe_of(hash));
    const Unit unit = find(guard.stripe, name, hash);
    return unit != 0 && segment_->entry(unit).owner.load(std::memory_order_relaxed) == owner.id;
}

std::optional<OwnerId> LockTable::holder(const LockName &name) {
    const std::uint64_t hash = hash_of(name);
    for (;;) {
        OwnerId id = 0;
        {
            const StripeGuard guard(*this, stripe_of(hash));
            if (const Unit unit = find(guard.stripe, name, hash); unit != 0 && !is_orphan(segment_->entry(unit)))
                id = segment_->entry(unit).owner.load(std::memory_order_relaxed);
        }
        if (id == 0) return std::nullopt;
        if (!reap_if_dead(id)) return id;
    }
}

LockOwner LockTable::shown(OwnerId id) const {
    const OwnerSlot &slot = segment_->owner(slot_of(id));
    return {slot.port.load(std::memory_order_relaxed), slot.pid.load(std::memory_order_relaxed),
            slot.context.load(std::memory_order_relaxed)};
}

OwnerSlot *LockTable::slot_of_owner(OwnerId id) const { return &segment_->owner(slot_of(id)); }

}  // namespace velda::lock
