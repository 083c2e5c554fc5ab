// What is done about the dead: a stripe whose mutex died with its holder is rebuilt, a dead owner's locks are passed
// on.
#include <cassert>
#include <cerrno>
#include <cstring>

#include "runtime/lock/death_point.h"
#include "runtime/lock/lock_table.h"
#include "runtime/lock/owner_life.h"

namespace velda::lock {

// Runs with the stripe's mutex held. Dying here is no harm: the next one begins again.
void LockTable::rebuild(std::size_t stripe_number) noexcept {
    rebuild_buckets(segment_->stripe(stripe_number));
    death_point();
    rebuild_queues(stripe_number);
    death_point();
}

void LockTable::rebuild_buckets(Stripe &stripe) {
    std::memset(stripe.free_blocks, 0, sizeof stripe.free_blocks);
    std::memset(stripe.fresh, 0, sizeof stripe.fresh);
    stripe.entries = 0;
    if (stripe.buckets.load(std::memory_order_relaxed).page != 0) buckets_of(stripe).clear();
    for_each_block(stripe, [&](Unit unit, std::size_t size_class) {
        Entry &entry = segment_->entry(unit);
        if (entry.owner.load(std::memory_order_acquire) != 0) {
            entry.first_waiter = entry.last_waiter = 0;
            enter(stripe, unit);
        } else {
            entry.next = stripe.free_blocks[size_class];
            stripe.free_blocks[size_class] = unit;
        }
    });
}

void LockTable::rebuild_queues(std::size_t stripe_number) {
    for (std::size_t number = 0; number < segment_->owner_slots_ready(); ++number) {
        OwnerSlot &slot = segment_->owner(number);
        const WaitPlace place = slot.waiting_for.load(std::memory_order_acquire);
        if (place.unit != 0 && place.stripe == stripe_number) requeue(slot);
        death_point();
    }
}

// Puts a waiter back where its ticket says. One that was given the lock, or whose lock went away, stops waiting and
// looks.
void LockTable::requeue(OwnerSlot &slot) {
    const WaitPlace place = slot.waiting_for.load(std::memory_order_relaxed);
    Entry &entry = segment_->entry(place.unit);
    const OwnerId holder = entry.owner.load(std::memory_order_relaxed);
    if (holder == 0 || holder == slot.id.load(std::memory_order_relaxed)) {
        slot.waiting_for.store({0, 0}, std::memory_order_release);
    } else {
        std::uint16_t *at = &entry.first_waiter;
        while (*at != 0 && waiter(*at).ticket < slot.ticket) at = &waiter(*at).next_waiter;
        slot.next_waiter = *at;
        *at = static_cast<std::uint16_t>(&slot - &segment_->owner(0) + 1);
        if (slot.next_waiter == 0) entry.last_waiter = *at;
    }
    slot.wake_word.fetch_add(1);
    wake_sleepers(slot.wake_word);
}

// True when the owner was dead and its locks are passed on; the caller looks again.
bool LockTable::reap_if_dead(OwnerId id) {
    OwnerSlot &slot = segment_->owner(slot_of(id));
    const Life life = life_of(slot);
    // Nobody's, yet not free: its owner is dead, and what it left could not be finished before.
    const bool is_left = life == Life::None && slot.id.load(std::memory_order_acquire) == id;
    if (life != Life::Ended && !is_left) return false;
    const int result = pthread_mutex_trylock(&slot.life);
    if (result != 0 && result != EOWNERDEAD) return false;
    const bool is_reaped = reap_slot(slot);
    if (result == EOWNERDEAD) pthread_mutex_consistent(&slot.life);
    pthread_mutex_unlock(&slot.life);
    return is_reaped;
}

// The caller holds the slot's life, which its owner left behind. False when the owner's commit cannot be finished now:
// then it keeps its locks.
bool LockTable::reap_slot(OwnerSlot &slot) {
    const OwnerId id = slot.id.load(std::memory_order_acquire);
    if (id == 0) return true;
    if (has_commit(id) && finish_commit && !finish_commit(*this, id)) return false;
    death_point();
    if (const WaitPlace place = slot.waiting_for.load(std::memory_order_acquire); place.unit != 0) {
        WakeList wakes;
        const StripeGuard guard(*this, place.stripe);
        if (slot.waiting_for.load(std::memory_order_relaxed).unit != 0) dequeue(slot, wakes);
    }
    death_point();
    for (std::size_t number = 0; number < StripeCount; ++number) {
        if (slot.stripes[number / 64].load(std::memory_order_acquire) >> (number % 64) & 1) reap_stripe(number, id);
        death_point();
    }
    slot.port = -1;
    slot.id.store(0, std::memory_order_release);
    death_point();
    return true;
}

void LockTable::reap_stripe(std::size_t stripe_number, OwnerId id) {
    WakeList wakes;
    const StripeGuard guard(*this, stripe_number);
    for_each_block(guard.stripe, [&](Unit unit, std::size_t) {
        if (segment_->entry(unit).owner.load(std::memory_order_relaxed) == id) pass_on(guard.stripe, unit, wakes);
    });
}

void LockTable::reap_all() {
    for (std::size_t number = 0; number < segment_->owner_slots_ready(); ++number) {
        const OwnerId id = segment_->owner(number).id.load(std::memory_order_acquire);
        if (id != 0) reap_if_dead(id);
    }
}

// --- commits ---

bool LockTable::note_commit(const Owner &owner) {
    for (auto &place : segment_->header().commits) {
        OwnerId free = 0;
        if (place.load(std::memory_order_relaxed) != 0 || !place.compare_exchange_strong(free, owner.id)) continue;
        // Who dies between the two has not begun to do anything yet.
        segment_->header().commits_begun.fetch_add(1, std::memory_order_release);
        return true;
    }
    return false;
}

bool LockTable::any_commit() const {
    OwnerId any = 0;
    for (const auto &place : segment_->header().commits) any |= place.load(std::memory_order_acquire);
    return any != 0;
}

void LockTable::forget_commit(OwnerId id) {
    for (auto &place : segment_->header().commits) {
        OwnerId noted = id;
        if (place.load(std::memory_order_relaxed) == id) place.compare_exchange_strong(noted, 0);
    }
}

bool LockTable::has_commit(OwnerId id) const {
    for (const auto &place : segment_->header().commits)
        if (id != 0 && place.load(std::memory_order_acquire) == id) return true;
    return false;
}

void LockTable::finish_what_was_left() {
    if (!are_leftovers_finished() && finish_leftovers) finish_leftovers(*this);
    if (any_commit()) finish_commits();
}

// An owner whose slot is no longer its own ended in order, with a commit that it could not finish.
bool LockTable::finish_commits() {
    bool are_finished = true;
    for (const auto &place : segment_->header().commits) {
        const OwnerId id = place.load(std::memory_order_acquire);
        if (id == 0) continue;
        const OwnerSlot &slot = segment_->owner(slot_of(id));
        if (slot.id.load(std::memory_order_acquire) != id)
            are_finished = finish_commit && finish_commit(*this, id) && are_finished;
        else if (life_of(slot) != Life::Lives)
            are_finished = reap_if_dead(id) && are_finished;
    }
    return are_finished;
}

}  // namespace velda::lock
