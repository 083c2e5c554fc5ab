// log_blocks.h - the blocks of a source in the order of its stream, read in pieces. Private to the subsystem.
#pragma once

#include <optional>
#include <vector>

#include "journal/log_bytes.h"
#include "journal/log_scan.h"

namespace velda::journal {

enum class BlockState {
    Good,
    Absent,  // behind the end of the file
    Zeros,
    Earlier,  // of an earlier use of the set
    Bad
};

struct BlockView {
    std::int64_t number = -1;
    const unsigned char *bytes = nullptr;
    std::int64_t size = 0;  // of the bytes that are there
    BlockState state = BlockState::Absent;
    LogPlace place;  // of its first byte
    std::int64_t data_begin() const;
};

class LogBlocks {
  public:
    LogBlocks(DP *dp, const LogSource &source) : dp_(dp), source_(source) {}
    ~LogBlocks();
    LogBlocks(const LogBlocks &) = delete;
    LogBlocks &operator=(const LogBlocks &) = delete;

    Result<void> open();

    // A block of the stream. It stays until the next call. A file that cannot be read is an error in failure().
    const BlockView &view(std::int64_t number) { return current_.number == number ? current_ : load(number); }
    // What is wrong with a block that is not good.
    std::string reason(const BlockView &view) const;
    // How many blocks the stream has at most, from the sizes of the files.
    std::int64_t count() const;
    LogPlace place(std::int64_t stream) const;
    // Which block a place of the stream is in, and how far: as a rule the block that was asked for last.
    std::int64_t number_of(std::int64_t stream) const {
        const std::int64_t in_current = stream - current_.number * block_size();
        return in_current >= 0 && in_current < block_size() ? current_.number : stream / block_size();
    }
    std::int64_t in_block(std::int64_t stream) const { return offset_in_block(stream, block_size()); }
    std::int64_t block_size() const { return source_.block_size; }
    // Reads from the files again what comes next.
    void forget();
    const std::optional<Error> &failure() const { return failure_; }

  private:
    // So much is read at once: the pieces of some files stay in the processor's cache until they have been looked at.
    static constexpr std::int64_t PieceBytes = std::int64_t{64} * 1024;

    // An open file, and what was read of it last.
    struct File {
        VRunFile *handle = nullptr;
        std::vector<unsigned char> piece;
        std::int64_t begin = 0, size = 0;
    };

    const BlockView &load(std::int64_t number);
    void read_piece(File &file, std::int64_t offset);
    bool has_right_marker(const BlockView &view) const;
    bool has_right_numbers(const BlockView &view) const;
    BlockState state_of(const BlockView &view) const;

    DP *dp_;
    const LogSource &source_;
    std::vector<File> files_;
    BlockView current_;
    std::optional<Error> failure_;
};

// "WHAT 'PATH': reason".
Error file_error(int number, const char *what, const std::string &path);

bool are_zeros(const unsigned char *bytes, std::int64_t size);

}  // namespace velda::journal
