// The stream of bytes through the blocks and files of a set.
#include "journal/log_bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "journal/journal.h"
#include "journal/log_record.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

namespace {

constexpr int NotReadable = 2;

int64_t block_size_of(const LoggerContext &context) { return context.config->blockSize; }

void close_files(DP *dp, VRunFile **handles) {
    std::for_each_n(handles, VELDA_LOGGER_FILES, [dp](VRunFile *&handle) {
        VRunFileIOClose(dp, handle);
        handle = nullptr;
    });
}

VRunFile *open_file(DP *dp, const LogFileEntry &entry, uint32_t block_size) {
    const std::string path = logger_text(entry.path, sizeof entry.path);
    VRunFile *const file = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ_WRITE, 0);
    const int error = !file ? errno : VRunFileIOEnableLink(dp, file, block_size * BlocksOfPiece);
    if (error == 0) return file;
    VRunFileIOClose(dp, file);
    errno = error;
    VELDAperror(dp, path.c_str());
    errno = error;
    return nullptr;
}

int open_set(DP *dp, LoggerContext &context, int32_t set) {
    release_blocks(dp, context);
    context.openSet = -1;
    context.openSetTime = logger_set(*context.config, set).timeFirst;
    const int count = LoggerOpenSetFiles(dp, set, context.files);
    context.openFileCount = std::max(count, 0);
    if (count < 0) return errno;
    if (count == 0) return NotReadable;
    context.openSet = set;
    return 0;
}

// Who may see data proves it by the environment, and once in each session by the journal's password.
int check_right(DP *dp, LoggerContext &context) {
    const char *const allowed = VELDAgetenv(dp, "ALLOWLOGDATA");
    if (!allowed) return 0;
    if (std::strcmp(allowed, "on") != 0) {
        VELDAfprintf(dp, stderr, "\nThe environment variable ALLOWLOGDATA is not set correctly\n");
        return NotReadable;
    }
    if (context.passwordAsked != 0 || context.config->password[0] == 0) return 0;
    if (VELDALoggerTestPassword(dp) == 0) return 0;
    VELDAfprintf(dp, stderr, "\nThe journal password is incorrect\n");
    return NotReadable;
}

// Positions come from keys: one that no file has is no position.
bool is_in_set(const LoggerContext &context, const LogPosition &position) {
    constexpr int64_t LargestOffset = int64_t{1} << 60;
    return position.file >= 0 && position.file < context.openFileCount && position.offset >= 0 &&
           position.offset < LargestOffset;
}

bool holds(const VRunFrame *piece, int64_t offset) {
    return piece && offset >= piece->offset && offset < piece->offset + piece->length;
}

int read_piece(DP *dp, LoggerContext &context, int32_t file, int64_t offset) {
    VRunFrame *&piece = context.frames[file];
    if (piece) VRunFileIOLinkRelease(dp, context.files[file], piece);
    piece = nullptr;
    context.block = HeldBlock{};
    const int64_t piece_size = block_size_of(context) * BlocksOfPiece;
    const int error = VRunFileIOFrameRead(dp, context.files[file], offset - offset % piece_size, &piece);
    // A file that ends before the block is a damaged one: recovery may find what other files of the set hold.
    return error == ENODATA ? VELDA_LOGGER_DAMAGED : error;
}

bool has_block_marker(const char *block) {
    return std::memcmp(block, BlockMarker.data(), ComparedBlockMarkerBytes) == 0 ||
           std::memcmp(block, FirstBlockMarker.data(), ComparedBlockMarkerBytes) == 0;
}

int64_t set_time(const LoggerContext &context) { return logger_set(*context.config, context.openSet).timeFirst; }

int check_block(const HeldBlock &block) {
    if (block.size < static_cast<int64_t>(BlockHeader::Bytes)) return VELDA_LOGGER_DAMAGED;
    if (vgetlong64(block.bytes + BlockHeader::TimeFirst) != block.set_time) return VELDA_LOGGER_DAMAGED;
    return has_block_marker(block.bytes) ? 0 : VELDA_LOGGER_DAMAGED;
}

// Makes the block of a file at an offset the one that is held.
int load_block(DP *dp, LoggerContext &context, int32_t file, int64_t offset) {
    if (!holds(context.frames[file], offset))
        if (const int error = read_piece(dp, context, file, offset)) return error;
    context.block = HeldBlock{};
    const VRunFrame &piece = *context.frames[file];
    if (!holds(&piece, offset)) return VELDA_LOGGER_DAMAGED;  // the file ends before it
    const int64_t size = std::min<int64_t>(piece.offset + piece.length - offset, block_size_of(context));
    const HeldBlock block{piece.bytes + (offset - piece.offset), size, file, offset, set_time(context)};
    const int error = check_block(block);
    if (error == 0) context.block = block;
    return error;
}

// Moves onto data and holds its block.
int enter_block(DP *dp, LoggerContext &context, LogPosition &at, int64_t &in_block) {
    const int64_t block_size = block_size_of(context);
    if (is_in_set(context, at)) at = at_data(at, context.openFileCount, block_size);
    if (!is_in_set(context, at)) return VELDA_LOGGER_DAMAGED;
    in_block = offset_in_block(at.offset, block_size);
    return load_block(dp, context, at.file, at.offset - in_block);
}

}  // namespace

LogPosition at_data(LogPosition position, int32_t files, int64_t block_size) {
    if (offset_in_block(position.offset, block_size) != 0) return position;
    if (position.file != 0 || position.offset != 0) {
        if (++position.file < files)
            position.offset -= block_size;
        else
            position.file = 0;
    }
    const bool is_first = position.file == 0 && position.offset == 0;
    position.offset += static_cast<int64_t>(is_first ? FirstBlockData : BlockHeader::Bytes);
    return position;
}

void LoggerAdvance(DP *dp, int32_t *file, int64_t *offset, int64_t count) {
    const LoggerContext &context = logger_context(dp);
    const int64_t block_size = block_size_of(context);
    LogPosition position{*file, *offset};
    if (const int64_t in_block = place_in_held_block(context, position);
        in_block != 0 && in_block + count <= block_size) {
        *offset += count;
        return;
    }
    while (count > 0) {
        position = at_data(position, context.openFileCount, block_size);
        const int64_t part = std::min(count, block_size - offset_in_block(position.offset, block_size));
        position.offset += part;
        count -= part;
    }
    *file = position.file;
    *offset = position.offset;
}

int LoggerReadBytes(DP *dp, int32_t *file, int32_t set, int64_t *offset, unsigned char *buffer, int64_t count) {
    LoggerContext &context = logger_context(dp);
    if (const int error = begin_reading(dp, context, set)) return error;
    LogPosition position{*file, *offset};
    const int error = read_bytes(dp, context, position, buffer, count);
    *file = position.file;
    *offset = position.offset;
    return error;
}

void keep_held_record(LoggerContext &context) {
    const unsigned char *const record = std::exchange(context.heldRecord, nullptr);
    if (!record || !context.recordBuffer || context.hasRecord) return;
    context.recordBytes = std::min(LogHeader(record).record_size, context.recordCapacity);
    std::memcpy(context.recordBuffer, record, static_cast<size_t>(context.recordBytes));
}

int begin_reading(DP *dp, LoggerContext &context, int32_t set) {
    keep_held_record(context);
    // Another use of the set may have other files.
    if (context.openSet != set || context.openSetTime != logger_set(*context.config, set).timeFirst)
        if (const int error = open_set(dp, context, set)) return error;
    const uint32_t block_size = context.config->blockSize;
    if (block_size < SmallestLogBlock || block_size > LargestLogBlock) return EINVAL;
    return check_right(dp, context);
}

int read_bytes(DP *dp, LoggerContext &context, LogPosition &position, unsigned char *buffer, int64_t count) {
    const int64_t block_size = block_size_of(context);
    LogPosition at = position;
    while (count > 0) {
        int64_t in_block = place_in_held_block(context, at);
        if (in_block == 0)
            if (const int error = enter_block(dp, context, at, in_block)) return error;
        const int64_t part = std::min(count, block_size - in_block);
        if (in_block + part > context.block.size) return VELDA_LOGGER_DAMAGED;
        std::memcpy(buffer, context.block.bytes + in_block, static_cast<size_t>(part));
        buffer += part;
        at.offset += part;
        count -= part;
    }
    position = at;
    return 0;
}

int LoggerOpenSetFiles(DP *dp, int32_t set, VRunFile **handles) {
    close_files(dp, handles);
    if (set == 0) return 0;
    const VELDALoggerConfig &config = *logger_context(dp).config;
    int count = 0;
    for (const LogFileEntry &entry : logger_set(config, set).files) {
        if (!is_named(entry)) continue;
        handles[count] = open_file(dp, entry, config.blockSize);
        if (!handles[count++]) {
            const int error = errno;
            close_files(dp, handles);
            errno = error;
            return -1;
        }
    }
    if (count > 0) return count;
    VELDAfprintf(dp, stderr, "Error! Set %d has no files that can be opened\n", set);
    errno = NotReadable;
    return 0;
}

bool holds_blocks(const LoggerContext &context) {
    return std::any_of(context.frames, context.frames + context.openFileCount,
                       [](const VRunFrame *piece) { return piece != nullptr; });
}

void release_blocks(DP *dp, LoggerContext &context) {
    for (int32_t file = 0; file < VELDA_LOGGER_FILES; ++file) {
        if (context.frames[file]) VRunFileIOLinkRelease(dp, context.files[file], context.frames[file]);
        context.frames[file] = nullptr;
    }
    context.block = HeldBlock{};
}

}  // namespace velda::journal
