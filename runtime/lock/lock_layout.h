// lock_layout.h - the lock table as it lies in the shared segment. Private to the folder.
//
// The segment is one mapped file in memory, and everything in it is addressed by its place in the file: a page is 4,096
// bytes, a unit 64. It holds a header, 256 stripes, the owner slots and notes, and then extents, which belong to one stripe each
// and are cut into blocks. A lock is one block: an Entry and its key.
//
// One rule makes the table survive a process that dies at any instruction: the word `Entry::owner` alone says whether a
// block is a lock, and `OwnerSlot::waiting_for` alone says whether an owner waits. Each is one store, made after
// everything that it vouches for. Buckets, free lists, queues and counts follow from those words and are rebuilt from
// them (LockTable::rebuild) when a stripe's mutex is found to have died with its holder.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace velda::lock {

inline constexpr std::uint64_t SegmentMagic = 0x4B434F4C41444C56u;  // "VLDALOCK"
inline constexpr std::uint32_t SegmentVersion = 2;

inline constexpr std::size_t PageBytes = 4096;
inline constexpr std::size_t UnitBytes = 64;
inline constexpr std::size_t UnitsPerPage = PageBytes / UnitBytes;
inline constexpr std::size_t StripeCount = 256;
inline constexpr std::size_t OwnerLimit = 32768;
inline constexpr std::size_t CommitPlaces = 16;
inline constexpr std::size_t OwnersPerGroup = 64;  // slots that are given storage together
inline constexpr std::size_t MappedBytes = std::size_t{16} << 30;

// Blocks come in sizes of 128 bytes times a power of two; the largest holds an entry with a key of 64 KiB.
inline constexpr std::size_t SmallestBlockBytes = 128;
inline constexpr std::size_t SizeClassCount = 11;
inline constexpr std::size_t MaxExtentBytes = std::size_t{1} << 20;
inline constexpr std::size_t ExtentLimit = 208;  // of one stripe

constexpr std::size_t block_bytes(std::size_t size_class) { return SmallestBlockBytes << size_class; }
constexpr std::uint32_t block_units(std::size_t size_class) {
    return static_cast<std::uint32_t>(block_bytes(size_class) / UnitBytes);
}

// Places of blocks, in units from the start of the segment; 0 is none.
using Unit = std::uint32_t;

// An owner: its slot in the low 16 bits, a number never used before above them; 0 is nobody.
using OwnerId = std::uint64_t;
constexpr std::size_t slot_of(OwnerId id) { return id & 0xFFFF; }

struct SegmentHeader {
    std::atomic<std::uint64_t> magic;  // written last
    std::uint32_t version;
    std::uint32_t reserved;
    std::uint64_t boot;                   // the machine's run that made it: what it says of owners ends with that run
    std::atomic<std::uint64_t> end_page;  // first page not given to anything
    std::atomic<std::uint64_t> next_generation;    // for OwnerId
    std::atomic<std::uint64_t> next_ticket;        // for OwnerSlot::ticket
    std::atomic<std::uint32_t> owner_slots_ready;  // slots that have storage and a mutex
    std::uint32_t reserved2;
    pthread_mutex_t owner_groups;  // held while slots are made ready
    char registered_in[2048];      // path of the file that names this segment, cut to that length
    // Owners that are making the updates of a transaction; 0: a free place. What the dead among them left is finished
    // before their locks are passed on.
    alignas(64) std::atomic<OwnerId> commits[CommitPlaces];
    // How many were begun since the segment was made, from 1: who saw no commit under way need not look again until this
    // has changed.
    alignas(64) std::atomic<std::uint64_t> commits_begun;
    std::atomic<std::uint32_t> leftovers_finished;  // what commits of earlier segments left has been finished
};
static_assert(sizeof(SegmentHeader) <= PageBytes);

// The entry that an owner is queued at, unit 0 when it does not wait, and the stripe that the entry belongs to.
struct alignas(8) WaitPlace {
    Unit unit;
    std::uint32_t stripe;
};
static_assert(std::atomic<WaitPlace>::is_always_lock_free);

// A context that may hold locks. The thread that registered it holds `life` as long as it lives: the kernel lets go of
// a robust mutex when its holder dies, so a `life` that can be had is the proof that the owner is gone.
struct alignas(64) OwnerSlot {
    pthread_mutex_t life;
    std::atomic<OwnerId> id;  // 0: the slot is free
    std::atomic<std::int32_t> pid;
    std::atomic<std::uint32_t> context;
    std::atomic<std::int32_t> port;        // -1: none yet
    std::atomic<std::uint32_t> wake_word;  // counts wakes; the owner sleeps on it
    std::atomic<std::uint64_t> lock_count;
    std::atomic<WaitPlace> waiting_for;
    std::uint64_t ticket;       // order of the queue
    std::uint16_t next_waiter;  // behind this one in the entry's queue: slot + 1, 0 none
    std::uint16_t reserved;
    std::atomic<std::uint32_t> message_count;              // messages sent to the owner's port
    std::atomic<std::uint64_t> stripes[StripeCount / 64];  // stripes that the owner may have locks or a wait in
};
static_assert(sizeof(OwnerSlot) == 128);

// What an owner tells of itself to whoever looks: a short text (see owner_notes.h).
struct alignas(64) OwnerNotes {
    std::atomic<std::uint32_t> version;  // odd while the text is being changed
    std::atomic<std::uint32_t> size_bytes;
    std::atomic<std::uint64_t> words[127];
};
static_assert(sizeof(OwnerNotes) == 1024);
inline constexpr std::size_t MaxNoteBytes = sizeof OwnerNotes::words;

struct Entry {
    std::atomic<OwnerId> owner;  // 0: the block is free
    std::uint64_t device;
    std::uint64_t inode;
    std::uint64_t hash;
    Unit next;  // in the free list
    std::uint32_t key_bytes : 24;
    std::uint32_t kind : 8;
    std::uint16_t first_waiter;  // slot + 1, 0 none
    std::uint16_t last_waiter;
    std::uint32_t owner_position;  // in the owner's own list of its locks; only the owner uses it
    std::int64_t taken_seconds;
    char key[8];  // and on to the end of the block
};
inline constexpr std::size_t EntryHeaderBytes = offsetof(Entry, key);
static_assert(EntryHeaderBytes == 56 && sizeof(Entry) == 64);
static_assert(block_bytes(SizeClassCount - 1) >= EntryHeaderBytes + 65536);

// A run of pages that belongs to a stripe and is cut into blocks of one size.
struct alignas(8) Extent {
    std::uint32_t page;
    std::uint16_t pages;
    std::uint8_t size_class;
    std::uint8_t used;
};
static_assert(sizeof(Extent) == 8 && std::atomic<Extent>::is_always_lock_free);

// One place of a stripe's bucket array (see bucket_array.h); unit 0 is an empty one.
struct Bucket {
    Unit unit;
    std::uint32_t tag;
};
static_assert(sizeof(Bucket) == 8);

// Where a stripe's bucket array lies; it has 2 to the power `count_log2` places.
struct alignas(8) Buckets {
    std::uint32_t page;
    std::uint32_t count_log2;
};
static_assert(std::atomic<Buckets>::is_always_lock_free);

struct alignas(64) Stripe {
    pthread_mutex_t mutex;
    std::atomic<Buckets> buckets;  // page 0: none yet
    std::uint32_t entries;
    std::uint32_t reserved;
    Unit free_blocks[SizeClassCount];
    struct Fresh {
        Unit next;
        Unit end;
    } fresh[SizeClassCount];  // blocks of the newest extent that were never used
    std::atomic<Extent> extents[ExtentLimit];
};
// An odd number of cache lines, so that the first lines of the stripes do not fall on one another in the cache.
static_assert(sizeof(Stripe) / 64 % 2 == 1);

inline constexpr std::size_t StripesOffset = PageBytes;
inline constexpr std::size_t OwnersOffset = StripesOffset + StripeCount * sizeof(Stripe);
inline constexpr std::size_t NotesOffset = OwnersOffset + OwnerLimit * sizeof(OwnerSlot);
inline constexpr std::size_t ExtentsOffset = NotesOffset + OwnerLimit * sizeof(OwnerNotes);
static_assert(OwnersOffset % PageBytes == 0 && NotesOffset % PageBytes == 0 && ExtentsOffset % PageBytes == 0);
static_assert(OwnersPerGroup * sizeof(OwnerSlot) % PageBytes == 0);

}  // namespace velda::lock
