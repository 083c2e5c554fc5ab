#include "runtime/lock/lock_table.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include "runtime/lock/death_point.h"
#include "runtime/lock/owner_life.h"
#include "runtime/lock/owner_notes.h"

namespace velda::lock {

namespace {

// How long a waiter sleeps when nothing wakes it: it looks again in case the one who should have woken it died just
// then.
constexpr std::chrono::milliseconds SafetyLimit{1000};
// The same while the holder's life cannot be watched, because it is just being reaped.
constexpr std::chrono::milliseconds ReapedSoon{5};

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

void make_room(std::vector<Unit> &held) {
    if (held.size() == held.capacity()) held.reserve(std::max<std::size_t>(64, 2 * held.capacity()));
}

bool is_noted(const Owner &owner, const Entry &entry, Unit unit) {
    return entry.owner_position < owner.held.size() && owner.held[entry.owner_position] == unit;
}

void note_held(Owner &owner, Entry &entry, Unit unit) {
    entry.owner_position = static_cast<std::uint32_t>(owner.held.size());
    owner.held.push_back(unit);
    owner.slot->lock_count.store(owner.held.size(), std::memory_order_relaxed);
}

}  // namespace

Result<std::unique_ptr<LockTable>> LockTable::attach(const std::string &path) {
    auto registration = Registration::attach(path);
    if (!registration) return registration.error();
    return std::unique_ptr<LockTable>(new LockTable(std::move(*registration)));
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
    make_room(owner.held);
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
    note_held(owner, entry, *unit);
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
    make_room(owner.held);
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

// --- an owner's road ---------------------------------------------------------------------------------------

Result<Owner> LockTable::register_owner(pid_t pid, std::uint32_t context) {
    for (std::size_t number = 0;; ++number) {
        const std::size_t ready = segment_->owner_slots_ready();
        if (number >= ready) {
            if (auto added = segment_->add_owner_slots(ready); !added) return added.error();
        }
        OwnerSlot &slot = segment_->owner(number);
        if (life_of(slot) == Life::Lives) continue;
        const int result = pthread_mutex_trylock(&slot.life);
        if (result == EOWNERDEAD) {
            reap_slot(slot);
            pthread_mutex_consistent(&slot.life);
        } else if (result != 0) {
            continue;
        }
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
    result.was_held = is_noted(owner, entry, unit);
    if (!result.was_held) note_held(owner, entry, unit);
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
        if (control.interrupted()) {
            if (!withdraw(owner)) continue;
            result.result = LockResult::Interrupted;
            return result;
        }
        sleep_in_line(result, words);
    }
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
    for (std::size_t i = owner.held.size(); i-- > 0;) {
        const Unit unit = owner.held[i];
        const Entry &entry = segment_->entry(unit);
        if (!chosen(entry)) continue;
        WakeList wakes;
        const StripeGuard guard(*this, stripe_of(entry.hash));
        forget_held(owner, unit);
        if (entry.owner.load(std::memory_order_relaxed) == owner.id) pass_on(guard.stripe, unit, wakes);
    }
}

// The last lock of the list takes the place of the one that goes. Both are the owner's own, so no other looks at their
// places.
void LockTable::forget_held(Owner &owner, Unit unit) {
    const Entry &entry = segment_->entry(unit);
    if (!is_noted(owner, entry, unit)) return;
    const Unit last = owner.held.back();
    owner.held[entry.owner_position] = last;
    segment_->entry(last).owner_position = entry.owner_position;
    owner.held.pop_back();
    owner.slot->lock_count.store(owner.held.size(), std::memory_order_relaxed);
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
