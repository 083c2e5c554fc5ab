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
};

struct WriterState {
    std::atomic<std::uint64_t> boot;  // the run of the machine in which the locks were made
    pthread_mutex_t append_lock;
    std::atomic<std::uint32_t> valid;  // which of the two holds
    WrittenTo written[2];
    std::uint64_t allocated_rows;  // rows of blocks that every file of the set has disk space for
};
static_assert(sizeof(WriterState) <= sizeof(VELDALoggerConfig::writer));
static_assert(offsetof(VELDALoggerConfig, writer) % alignof(WriterState) == 0);

inline WriterState &writer_state(VELDALoggerConfig &config) { return *reinterpret_cast<WriterState *>(config.writer); }

}  // namespace velda::journal
