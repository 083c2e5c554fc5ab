// log_bytes.h - the journal as a stream of bytes through the blocks and files of a set. Private to the subsystem. Files
// are counted from 0. A result is 0 or an error number; VELDA_LOGGER_DAMAGED means a block that is damaged, missing or
// of another use of the set.
#pragma once

#include "journal/logger_context.h"

namespace velda::journal {

// A place in a set: index of the file and offset in it. A place at a block boundary stands for the end of the block in
// front of it.
struct LogPosition {
    int32_t file = 0;
    int64_t offset = 0;
    bool operator==(const LogPosition &) const = default;
};

// The bytes that a set's blocks may have: room for the description in the first one, and what the runtime can hold of a
// piece, which is so many blocks of one file.
inline constexpr uint32_t SmallestLogBlock = 4096, LargestLogBlock = 1024 * 1024, BlocksOfPiece = 16;

// How far into its block an offset lies. Block sizes are powers of two, as a rule, and a division is dear.
inline int64_t offset_in_block(int64_t offset, int64_t block_size) {
    return (block_size & (block_size - 1)) == 0 ? offset & (block_size - 1) : offset % block_size;
}

// Where the next byte lies: a position at a block boundary is moved onto the data of the block that follows.
LogPosition at_data(LogPosition position, int32_t files, int64_t block_size);

// How far into the block that is held a position of the open set lies; 0 when it lies elsewhere, or at a boundary, or
// when the set may have been emptied since the block was proven.
inline int64_t place_in_held_block(const LoggerContext &context, const LogPosition &position) {
    const HeldBlock &block = context.block;
    const int64_t in_block = position.offset - block.offset;
    const bool is_inside = block.bytes && position.file == block.file && in_block > 0 &&
                           in_block < static_cast<int64_t>(context.config->blockSize) &&
                           block.set_time == logger_set(*context.config, context.openSet).timeFirst;
    return is_inside ? in_block : 0;
}

// Moves over `count` bytes of data of the set whose files are open.
void LoggerAdvance(DP *dp, int32_t *file, int64_t *offset, int64_t count);

// Reads `count` bytes of a set and moves the position behind them; on an error the position stays. 2 when the set has
// no files, or the data may not be read here: ALLOWLOGDATA has a wrong value, or the journal's password was not given;
// 22 when the configuration has no usable block size.
int LoggerReadBytes(DP *dp, int32_t *file, int32_t set, int64_t *offset, unsigned char *buffer, int64_t count);

// Puts the record that was read last into the record buffer, before its block may go: what is told of damage behind it
// tells of it too.
void keep_held_record(LoggerContext &context);

// The two parts of it: the set's files opened and the reader's right proven; and the reading itself.
int begin_reading(DP *dp, LoggerContext &context, int32_t set);
int read_bytes(DP *dp, LoggerContext &context, LogPosition &position, unsigned char *buffer, int64_t count);

// Opens the files of a set into 16 handles, which are closed before; how many, or -1 with errno when one cannot be
// opened. 0 for set 0, and with errno 2 for a set that has no files.
int LoggerOpenSetFiles(DP *dp, int32_t set, VRunFile **handles);

// Whether blocks are held, which may be older than the files; and to give them up. A block that a record came into since
// it was read fails the record's checks: then the read is made again without it.
bool holds_blocks(const LoggerContext &context);
void release_blocks(DP *dp, LoggerContext &context);

}  // namespace velda::journal
