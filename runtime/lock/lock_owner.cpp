// An owner's road through the table: registering, taking, waiting, releasing.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "runtime/lock/death_point.h"
#include "runtime/lock/lock_table.h"
#include "runtime/lock/owner_life.h"
#include "runtime/lock/owner_notes.h"

namespace velda::lock {

namespace {

// How long a waiter sleeps when nothing wakes it: it looks again in case the one who should have woken it died just
// then.
constexpr std::chrono::milliseconds SafetyLimit{1000};
// The same while the holder's life cannot be watched, because it is just being reaped.
constexpr std::chrono::milliseconds ReapedSoon{5};
// How long a circle of waiters must stand before one of them is refused.
constexpr std::chrono::milliseconds CircleStands{2};

Error wait_in_circle() {
    return {EDEADLK,
            "the session that has the lock waits for one of this transaction: end the transaction and try again"};
}

}  // namespace

void Owner::make_room() {
    if (held.size() == held.capacity()) held.reserve(std::max<std::size_t>(64, 2 * held.capacity()));
}

bool Owner::has(const Entry &entry, Unit unit) const {
    return entry.owner_position < held.size() && held[entry.owner_position].unit == unit;
}

void Owner::note(Entry &entry, Unit unit) {
    entry.owner_position = static_cast<std::uint32_t>(held.size());
    held.push_back({unit, keeps_records && static_cast<LockKind>(entry.kind) == LockKind::Record});
    slot->lock_count.store(held.size(), std::memory_order_relaxed);
}

Result<Owner> LockTable::register_owner(pid_t pid, std::uint32_t context) {
    for (std::size_t number = 0;; ++number) {
        const std::size_t ready = segment_->owner_slots_ready();
        if (number >= ready) {
            if (auto added = segment_->add_owner_slots(ready); !added) return added.error();
        }
        OwnerSlot &slot = segment_->owner(number);
        // A dead owner's commit is finished by an owner, not on the way to become one.
        if (life_of(slot) == Life::Lives || has_commit(slot.id.load(std::memory_order_acquire))) continue;
        const int result = pthread_mutex_trylock(&slot.life);
        if (result != 0 && result != EOWNERDEAD) continue;
        reap_slot(slot);
        if (result == EOWNERDEAD) pthread_mutex_consistent(&slot.life);
        slot.pid = pid;
        slot.context = context;
        slot.port = -1;
        slot.lock_count = 0;
        slot.message_count = 0;
        for (auto &word : slot.stripes) word = 0;
        write_notes(segment_->notes(number), "");
        death_point();
        Owner owner;
        owner.id = segment_->header().next_generation.fetch_add(1) << 16 | number;
        owner.slot = &slot;
        slot.id.store(owner.id, std::memory_order_release);
        death_point();
        return owner;
    }
}

void LockTable::retire(Owner &owner) {
    if (is_registered(owner)) {
        release_if(owner, [](const Entry &) { return true; });
        owner.slot->port = -1;
        owner.slot->id.store(0, std::memory_order_release);
        death_point();
        // Refused when another thread registered the owner: then the slot is freed when that thread ends.
        pthread_mutex_unlock(&owner.slot->life);
    }
    owner = Owner();
}

bool LockTable::is_registered(const Owner &owner) const {
    return owner.id != 0 && owner.slot->id.load(std::memory_order_acquire) == owner.id;
}

// The entry's owner left without it. Repair after a death is the only way there, and hardly that.
bool LockTable::is_orphan(const Entry &entry) const {
    const OwnerId id = entry.owner.load(std::memory_order_relaxed);
    return segment_->owner(slot_of(id)).id.load(std::memory_order_acquire) != id;
}

Attempt LockTable::attempt(Owner &owner, const LockName &name, std::uint64_t hash, WhenBusy when_busy) {
    WakeList wakes;
    const StripeGuard guard(*this, stripe_of(hash));
    for (;;) {
        const Unit unit = find(guard.stripe, name, hash);
        if (unit == 0) return insert(guard.stripe, name, hash, owner);
        const Entry &entry = segment_->entry(unit);
        if (entry.owner.load(std::memory_order_relaxed) == owner.id) return found_held(owner, unit);
        if (!is_orphan(entry)) return found_busy(owner, unit, when_busy);
        pass_on(guard.stripe, unit, wakes);
    }
}

// The lock is the owner's: from before, or since the last holder passed it on.
Attempt LockTable::found_held(Owner &owner, Unit unit) {
    Attempt result;
    Entry &entry = segment_->entry(unit);
    result.was_held = owner.has(entry, unit);
    if (!result.was_held) owner.note(entry, unit);
    return result;
}

Attempt LockTable::found_busy(Owner &owner, Unit unit, WhenBusy when_busy) {
    Attempt result;
    Entry &entry = segment_->entry(unit);
    result.result = LockResult::Busy;
    result.holder = entry.owner.load(std::memory_order_relaxed);
    result.holder_shown = shown(result.holder);
    if (when_busy == WhenBusy::Queue) {
        if (owner.slot->waiting_for.load(std::memory_order_relaxed).unit == 0) enqueue(entry, unit, owner);
        result.first_in_line = &waiter(entry.first_waiter) == owner.slot;
    }
    return result;
}

Attempt LockTable::take(Owner &owner, const LockName &name) {
    const std::uint64_t hash = hash_of(name);
    expect(hash);
    for (;;) {
        Attempt result = attempt(owner, name, hash, WhenBusy::GiveUp);
        if (result.result != LockResult::Busy || !reap_if_dead(result.holder)) return result;
    }
}

Attempt LockTable::take_waiting(Owner &owner, const LockName &name, const WaitControl &control) {
    const std::uint64_t hash = hash_of(name);
    for (;;) {
        WatchedWord words[4] = {{&owner.slot->wake_word, owner.slot->wake_word.load()},
                                {&control.events, control.events.load()},
                                {&control.signals, control.signals.load()}};
        Attempt result = attempt(owner, name, hash, WhenBusy::Queue);
        if (result.result != LockResult::Busy) return result;
        if (reap_if_dead(result.holder)) continue;
        const bool in_circle = owner.keeps_records && waits_in_circle(owner, result.holder);
        if (in_circle || control.interrupted()) {
            if (!withdraw(owner)) continue;
            result.result = in_circle ? LockResult::Failed : LockResult::Interrupted;
            if (in_circle) result.error = wait_in_circle();
            return result;
        }
        sleep_in_line(result, words);
    }
}

// Whether the holder waits, through others or at once, for a lock of this owner. The chain is read without a mutex, so it
// counts only when it is found twice: one that leads round stays as it is.
bool LockTable::waits_in_circle(const Owner &owner, OwnerId holder) const {
    constexpr int LongestChain = 64;
    const auto ticket_sum = [&]() -> std::uint64_t {
        std::uint64_t sum = 0;
        OwnerId at = holder;
        for (int links = 0; links < LongestChain; ++links) {
            const OwnerSlot &slot = segment_->owner(slot_of(at));
            const WaitPlace place = slot.waiting_for.load(std::memory_order_acquire);
            if (slot.id.load(std::memory_order_acquire) != at || !segment_->has_unit(place.unit)) return 0;
            sum += slot.ticket + 1;
            at = segment_->entry(place.unit).owner.load(std::memory_order_acquire);
            if (at == owner.id) return sum;
            if (at == 0) return 0;
        }
        return 0;
    };
    const std::uint64_t first = ticket_sum();
    if (first == 0) return false;
    std::this_thread::sleep_for(CircleStands);
    return ticket_sum() == first;
}

// Ends a wait. False when the lock was passed to the owner before that.
bool LockTable::withdraw(Owner &owner) {
    const WaitPlace place = owner.slot->waiting_for.load();
    if (place.unit == 0) return false;
    WakeList wakes;
    const StripeGuard guard(*this, place.stripe);
    if (owner.slot->waiting_for.load(std::memory_order_relaxed).unit == 0) return false;
    dequeue(*owner.slot, wakes);
    return true;
}

// The first in line wakes when the holder dies; the others wake when they become first. The last word is free for that.
void LockTable::sleep_in_line(const Attempt &busy, std::span<WatchedWord, 4> words) {
    std::size_t count = words.size() - 1;
    auto limit = SafetyLimit;
    if (busy.first_in_line) {
        if (const auto life = watch_life(segment_->owner(slot_of(busy.holder))))
            words[count++] = *life;
        else
            limit = ReapedSoon;
    }
    sleep_on(words.first(count), limit);
}

bool LockTable::release(Owner &owner, const LockName &name) {
    const std::uint64_t hash = hash_of(name);
    expect(hash);
    WakeList wakes;
    const StripeGuard guard(*this, stripe_of(hash));
    const Unit unit = find(guard.stripe, name, hash);
    if (unit == 0 || segment_->entry(unit).owner.load(std::memory_order_relaxed) != owner.id) return false;
    forget_held(owner, unit);
    pass_on(guard.stripe, unit, wakes);
    return true;
}

void LockTable::release_if(Owner &owner, const std::function<bool(const Entry &)> &chosen) {
    for (std::size_t i = owner.held.size(); i-- > 0;)
        if (chosen(segment_->entry(owner.held[i].unit))) release_at(owner, i);
}

void LockTable::release_at(Owner &owner, std::size_t position) {
    const Unit unit = owner.held[position].unit;
    const Entry &entry = segment_->entry(unit);
    WakeList wakes;
    const StripeGuard guard(*this, stripe_of(entry.hash));
    forget_held(owner, unit);
    if (entry.owner.load(std::memory_order_relaxed) == owner.id) pass_on(guard.stripe, unit, wakes);
}

bool LockTable::keep(Owner &owner, const LockName &name) {
    const std::uint64_t hash = hash_of(name);
    const StripeGuard guard(*this, stripe_of(hash));
    const Unit unit = find(guard.stripe, name, hash);
    if (unit == 0 || !owner.has(segment_->entry(unit), unit)) return false;
    owner.held[segment_->entry(unit).owner_position].is_kept = true;
    return true;
}

void LockTable::keep_if(Owner &owner, const std::function<bool(const Entry &)> &chosen) {
    for (HeldLock &lock : owner.held)
        if (chosen(segment_->entry(lock.unit))) lock.is_kept = true;
}

void LockTable::release_kept(Owner &owner) {
    for (std::size_t i = owner.held.size(); i-- > 0;)
        if (owner.held[i].is_kept) release_at(owner, i);
}

// The last lock of the list takes the place of the one that goes. Both are the owner's own, so no other looks at their
// places.
void LockTable::forget_held(Owner &owner, Unit unit) {
    const Entry &entry = segment_->entry(unit);
    if (!owner.has(entry, unit)) return;
    const HeldLock last = owner.held.back();
    owner.held[entry.owner_position] = last;
    segment_->entry(last.unit).owner_position = entry.owner_position;
    owner.held.pop_back();
    owner.slot->lock_count.store(owner.held.size(), std::memory_order_relaxed);
}

}  // namespace velda::lock
