// lock_table.h - the locks of a system in shared memory. Private to the runtime's lock, port and
// transaction folders.
//
// A lock's name (kind, file, key) has a hash; its first byte picks a stripe, which has a mutex, a bucket array and the
// blocks of its locks. An owner is a slot of the segment together with the owner's own list of its locks. Nobody waits
// for a lock while holding a stripe's mutex; who must wait joins the queue of the entry and sleeps on its slot's word.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/futex.h"
#include "runtime/lock/record_lock.h"
#include "runtime/lock/registration.h"

namespace velda::lock {

struct LockName {
    LockKind kind = LockKind::Record;
    store::FileIdentity file;
    std::string_view key;
};
std::uint64_t hash_of(const LockName &name);
constexpr std::size_t stripe_of(std::uint64_t hash) { return hash >> 56; }
static_assert(StripeCount == 256);

// The class of the smallest block that holds an entry with such a key.
std::size_t size_class_for(std::size_t key_bytes);

// A lock in the list of its owner.
struct HeldLock {
    Unit unit = 0;
    bool is_kept = false;  // it ends with the owner's transaction, whatever is released before
};

// A registered owner, in the process that it lives in. Used by its own thread only.
struct Owner {
    OwnerId id = 0;
    OwnerSlot *slot = nullptr;
    std::vector<HeldLock> held;  // its locks; Entry::owner_position is the index here
    bool keeps_records = false;  // in a transaction: record locks that it takes are kept

    bool has(const Entry &entry, Unit unit) const;
    void make_room();  // for one more, so that note() cannot fail
    void note(Entry &entry, Unit unit);
};

// What an attempt came to.
struct Attempt {
    LockResult result = LockResult::Granted;
    bool was_held = false;
    OwnerId holder = 0;      // Busy
    LockOwner holder_shown;  // Busy
    bool first_in_line = false;
    Error error;  // Failed
};

// The reason to give up a wait, asked before each sleep, and two words that change when the answer may have changed.
struct WaitControl {
    std::function<bool()> interrupted;
    std::atomic<std::uint32_t> &events;
    std::atomic<std::uint32_t> &signals;
};

class LockTable;

// What sees to a commit that a dead owner left half made (runtime/transaction): true when it is finished. Called without
// any stripe held, by one at a time for an owner. Null: nobody does.
inline bool (*finish_commit)(LockTable &table, OwnerId dead) = nullptr;

// The same for what users of an earlier segment of the system left.
inline void (*finish_leftovers)(LockTable &table) = nullptr;

class LockTable {
  public:
    // The table of the system whose registration is the file `path`, in an existing directory.
    static Result<std::unique_ptr<LockTable>> attach(const std::string &path);
    // Removes the table if nobody uses it any more; at the end of a process, when no owner of it is left.
    void leave() { registration_->leave(); }

    // Makes the calling thread an owner. `context` tells owners of one process apart in reports.
    Result<Owner> register_owner(pid_t pid, std::uint32_t context);
    // Releases everything and gives the slot back.
    void retire(Owner &owner);
    // False when the owner was taken for dead and reaped: its thread ended while its context lived on.
    bool is_registered(const Owner &owner) const;

    Attempt take(Owner &owner, const LockName &name);
    Attempt take_waiting(Owner &owner, const LockName &name, const WaitControl &control);
    bool release(Owner &owner, const LockName &name);
    // Releases the owner's locks that `chosen` picks; it may look at nothing but the entry's name.
    void release_if(Owner &owner, const std::function<bool(const Entry &)> &chosen);
    // Instead of releasing a lock, or those that `chosen` picks: marks them as kept. False when it is not held.
    bool keep(Owner &owner, const LockName &name);
    void keep_if(Owner &owner, const std::function<bool(const Entry &)> &chosen);
    // Releases what is kept.
    void release_kept(Owner &owner);

    bool holds(const Owner &owner, const LockName &name);
    // The living holder.
    std::optional<OwnerId> holder(const LockName &name);
    LockOwner shown(OwnerId id) const;
    OwnerSlot *slot_of_owner(OwnerId id) const;

    // What an owner tells of itself, to be shown by others; longer text is cut to MaxNoteBytes.
    void set_notes(const Owner &owner, std::string_view text);
    std::string notes_of(OwnerId id) const;
    // The living owners, after what the dead held was dropped.
    std::vector<OwnerId> owners();

    // Drops what the dead held.
    void reap_all();

    // Notes that an owner is making the updates of a transaction: should it die, what it left is finished before its
    // locks are passed on. False when too many are doing so.
    bool note_commit(const Owner &owner);
    // The updates are made, or none is.
    void forget_commit(OwnerId id);
    // A number that changes with every commit that begins.
    std::uint64_t commits_begun() const { return segment_->header().commits_begun.load(std::memory_order_acquire); }
    // Whether anyone is noted.
    bool any_commit() const;
    // Whether this owner is noted.
    bool has_commit(OwnerId id) const;
    // Finishes the commits of the dead. False when one cannot be finished now.
    bool finish_commits();
    // The same, with those that users of earlier segments left: what each new owner does first.
    void finish_what_was_left();
    // Whether what users of earlier segments left is finished.
    bool are_leftovers_finished() const { return segment_->header().leftovers_finished.load() != 0; }
    void note_leftovers_finished() { segment_->header().leftovers_finished.store(1); }
    // The directory that makes the system.
    std::string system_directory() const;
    std::vector<LockInfo> all_locks();
    std::vector<LockOwnerInfo> all_owners();

    // Checks what must hold in every stripe: "" or the first fault found, in words.
    std::string find_fault();

    // Of the segment in memory.
    const std::string &path() const { return segment_->path(); }

  private:
    // Owners to be woken once no stripe is held: declare it before the guard. What it has no room for is woken at once.
    class WakeList {
      public:
        WakeList() = default;
        ~WakeList();
        WakeList(const WakeList &) = delete;
        WakeList &operator=(const WakeList &) = delete;
        void add(OwnerSlot &slot);

      private:
        OwnerSlot *slots_[4];
        std::size_t count_ = 0;
    };

    // Holds a stripe's mutex. When the last holder died with it, the stripe is rebuilt first.
    class StripeGuard {
      public:
        StripeGuard(LockTable &table, std::size_t number);
        ~StripeGuard() { pthread_mutex_unlock(&stripe.mutex); }
        StripeGuard(const StripeGuard &) = delete;
        StripeGuard &operator=(const StripeGuard &) = delete;
        Stripe &stripe;
    };

    // Calls `visit` with every block of the stripe's extents and its size class.
    template <class Visit>
    static void for_each_block(const Stripe &stripe, Visit visit) {
        for (const auto &place : stripe.extents) {
            const Extent extent = place.load(std::memory_order_acquire);
            if (!extent.used) return;
            const std::uint32_t units = block_units(extent.size_class);
            const Unit first = extent.page * static_cast<Unit>(UnitsPerPage);
            const Unit blocks = extent.pages * static_cast<Unit>(UnitsPerPage) / units;
            for (Unit i = 0; i < blocks; ++i) visit(first + i * units, std::size_t{extent.size_class});
        }
    }

    explicit LockTable(std::unique_ptr<Registration> registration)
        : registration_(std::move(registration)), segment_(&registration_->segment()) {}

    void expect(std::uint64_t hash) const;

    // --- one stripe, its mutex held (lock_table.cpp) ---
    Unit find(const Stripe &stripe, const LockName &name, std::uint64_t hash) const;
    Attempt insert(Stripe &stripe, const LockName &name, std::uint64_t hash, Owner &owner);
    void fill(Entry &entry, const LockName &name, std::uint64_t hash);
    void enter(Stripe &stripe, Unit unit);
    void leave(Stripe &stripe, Unit unit);
    void pass_on(Stripe &stripe, Unit unit, WakeList &wakes);
    bool pass_to_first(Entry &entry, WakeList &wakes);
    void enqueue(Entry &entry, Unit unit, Owner &owner);
    void dequeue(OwnerSlot &slot, WakeList &wakes);

    // --- an owner's road through them (lock_owner.cpp) ---
    enum class WhenBusy { GiveUp, Queue };
    Attempt attempt(Owner &owner, const LockName &name, std::uint64_t hash, WhenBusy when_busy);
    Attempt found_held(Owner &owner, Unit unit);
    Attempt found_busy(Owner &owner, Unit unit, WhenBusy when_busy);
    bool withdraw(Owner &owner);
    bool waits_in_circle(const Owner &owner, OwnerId holder) const;
    void forget_held(Owner &owner, Unit unit);
    void release_at(Owner &owner, std::size_t position);
    void sleep_in_line(const Attempt &busy, std::span<WatchedWord, 4> words);
    bool is_orphan(const Entry &entry) const;
    OwnerSlot &waiter(std::uint16_t slot_and_one) const { return segment_->owner(slot_and_one - 1u); }

    // --- blocks of a stripe (lock_blocks.cpp) ---
    Result<Unit> allocate_block(Stripe &stripe, std::size_t size_class);
    void free_block(Stripe &stripe, Unit unit);
    Result<void> add_extent(Stripe &stripe, std::size_t size_class);
    Result<void> make_room_in_buckets(Stripe &stripe);
    BucketArray buckets_of(const Stripe &stripe) const {
        return segment_->buckets(stripe.buckets.load(std::memory_order_relaxed));
    }

    // --- reports (lock_report.cpp) ---
    LockInfo describe(const Entry &entry) const;
    std::string fault_in_buckets(const Stripe &stripe, std::size_t stripe_number) const;
    std::string fault_in_entry(const Stripe &stripe, std::size_t stripe_number, Unit unit) const;
    std::string fault_in_blocks(const Stripe &stripe) const;
    std::string fault_in_queue(const Entry &entry, Unit unit) const;

    // --- the dead (lock_repair.cpp) ---
    void rebuild(std::size_t stripe_number) noexcept;
    void rebuild_buckets(Stripe &stripe);
    void rebuild_queues(std::size_t stripe_number);
    void requeue(OwnerSlot &slot);
    bool reap_if_dead(OwnerId id);
    bool reap_slot(OwnerSlot &slot);

    void reap_stripe(std::size_t stripe_number, OwnerId id);

    std::unique_ptr<Registration> registration_;
    Segment *segment_;
};

}  // namespace velda::lock
