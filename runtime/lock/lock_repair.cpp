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
    if (life_of(slot) != Life::Ended) return false;
    const int result = pthread_mutex_trylock(&slot.life);
    if (result == EOWNERDEAD) {
        reap_slot(slot);
        pthread_mutex_consistent(&slot.life);
    } else if (result != 0) {
        return false;
    }
    pthread_mutex_unlock(&slot.life);
    return true;
}

// The caller holds the slot's life, which its owner left behind.
void LockTable::reap_slot(OwnerSlot &slot) {
    const OwnerId id = slot.id.load(std::memory_order_acquire);
    if (const WaitPlace place = slot.waiting_for.load(std::memory_order_acquire); place.unit != 0) {
        WakeList wakes;
        const StripeGuard guard(*this, place.stripe);
        if (slot.waiting_for.load(std::memory_order_relaxed).unit != 0) dequeue(slot, wakes);
    }
    death_point();
    for (std::size_t number = 0; id != 0 && number < StripeCount; ++number) {
        if (slot.stripes[number / 64].load(std::memory_order_acquire) >> (number % 64) & 1) reap_stripe(number, id);
        death_point();
    }
    slot.port = -1;
    slot.id.store(0, std::memory_order_release);
    death_point();
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

}  // namespace velda::lock
