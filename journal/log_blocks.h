// log_blocks.h - the blocks of a source in the order of its stream, read in large pieces. Private to the subsystem.
#pragma once

#include <optional>
#include <vector>

#include "journal/log_ahead.h"
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
    LogBlocks(DP *dp, const LogSource &source) : dp_(dp), source_(source), ahead_(dp, PieceBytes) {}
    ~LogBlocks();
    LogBlocks(const LogBlocks &) = delete;
    LogBlocks &operator=(const LogBlocks &) = delete;

    Result<void> open();

    // A block of the stream. It stays until the next call. A file that cannot be read is an error in failure().
    const BlockView &view(std::int64_t number);
    // What is wrong with a block that is not good.
    std::string reason(const BlockView &view) const;
    // How many blocks the stream has at most, from the sizes of the files.
    std::int64_t count() const;
    LogPlace place(std::int64_t stream) const;
    std::int64_t block_size() const { return source_.block_size; }
    // Reads from the files again what comes next.
    void forget();
    const std::optional<Error> &failure() const { return failure_; }

  private:
    static constexpr std::int64_t PieceBytes = std::int64_t{256} * 1024;

    bool has_right_marker(const BlockView &view) const;
    bool has_right_numbers(const BlockView &view) const;
    BlockState state_of(const BlockView &view) const;

    DP *dp_;
    const LogSource &source_;
    std::vector<AheadFile> files_;
    ReadAhead ahead_;
    BlockView current_;
    std::optional<Error> failure_;
};

// "WHAT 'PATH': reason".
Error file_error(int number, const char *what, const std::string &path);

bool are_zeros(const unsigned char *bytes, std::int64_t size);

}  // namespace velda::journal
