// writer_state.h - what the writers of all processes share, in the configuration's field `writer`. Private to the folder.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "runtime/journal/config_record.h"

namespace velda::journal {

// How far a use of a set is written: always as one whole append left it. `stream` counts the bytes of the set's blocks
// in their order, headers and all; a multiple of the block size means that the next block is not begun.
struct WrittenTo {
    std::int64_t time_first;  // the use of the set; 0: none
    std::uint64_t stream;
    std::int64_t records;
    std::int64_t time_last;

    bool operator==(const WrittenTo &) const = default;
};

// The last warning of this use of the set about its space.
struct SpaceWarning {
    std::int64_t use;
    std::int64_t time;       // 0: none yet
    std::int64_t looked_at;  // when the disk was last asked
    std::uint32_t percent;
    std::uint32_t reserved;
};

// The last failure that the administration log tells of.
struct ToldFailure {
    std::int64_t time;  // 0: appends have succeeded since
    std::int32_t number;
    std::uint32_t reserved;
};

// A session between the codes 16 and 17 of VediLoggerMisc, or between a transaction's start and end.
struct UnderWaySlot {
    std::atomic<std::uint64_t> process;         // 0: free; else its number, and in the upper half when it began
    std::atomic<std::uint32_t> count;           // how deep the session is in such pairs
    std::atomic<std::uint32_t> in_transaction;  // between the records of its start and end
};

// What a change of set that holds the writers leaves behind for whoever finds it abandoned.
struct HeldWriters {
    std::uint32_t is_held;
    std::uint32_t status;  // before
    std::uint32_t set;     // current before
    std::uint32_t reserved;
};

// The lines that every append touches come first.
struct WriterState {
    pthread_mutex_t append_lock;
    alignas(64) WrittenTo written[2];
    alignas(64) std::atomic<std::uint64_t> boot;  // the run of the machine in which the locks were made
    std::atomic<std::uint32_t> valid;             // which of the two holds
    std::uint64_t allocated_rows;                 // rows of blocks that every file of the set has disk space for
    std::int64_t closed_use;  // time_first of a use that ends with an EOF record: no more is appended to it
    HeldWriters held;         // changed under the change lock
    std::atomic<std::uint32_t>
        needs_recovery;  // the machine stopped since: how far the set is written must be found out
    SpaceWarning warned;
    ToldFailure told;
    pthread_mutex_t sync_lock;
    WrittenTo synced;        // on disk, changed under sync_lock
    std::int64_t last_sync;  // when that was reached; 0: never
    static constexpr int UnderWaySlots = 128;
    UnderWaySlot under_way[UnderWaySlots];
    std::uint64_t begun_blocks;  // blocks behind so many hold zeros, as far as there is disk space
};
static_assert(sizeof(WriterState) <= sizeof(VELDALoggerConfig::writer));
static_assert(offsetof(VELDALoggerConfig, writer) % alignof(WriterState) == 0);

inline WriterState &writer_state(VELDALoggerConfig &config) { return *reinterpret_cast<WriterState *>(config.writer); }

// A field of the configuration, or of the writers' state, that others may change or look at meanwhile.
template <class Word>
Word load_word(const Word &field) {
    return std::atomic_ref(const_cast<Word &>(field)).load(std::memory_order_relaxed);
}
template <class Word>
void store_word(Word &field, Word value) {
    std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

inline WrittenTo load_written(const WrittenTo &place) {
    return {load_word(place.time_first), load_word(place.stream), load_word(place.records), load_word(place.time_last)};
}
inline void store_written(WrittenTo &place, const WrittenTo &written) {
    store_word(place.time_first, written.time_first);
    store_word(place.stream, written.stream);
    store_word(place.records, written.records);
    store_word(place.time_last, written.time_last);
}

// How far the set is written, for those who do not hold the append lock: as some append left it. What two looks agree on
// was not changed between them.
inline WrittenTo written_now(const WriterState &state) {
    const auto look = [&] { return load_written(state.written[state.valid.load(std::memory_order_acquire)]); };
    for (WrittenTo before = look();;) {
        const WrittenTo after = look();
        if (before == after) return after;
        before = after;
    }
}

// Makes that known. The append lock is held.
inline void publish_written(WriterState &state, const WrittenTo &written) {
    const std::uint32_t other = 1 - state.valid.load(std::memory_order_relaxed);
    store_written(state.written[other], written);
    state.valid.store(other, std::memory_order_release);
}

}  // namespace velda::journal
