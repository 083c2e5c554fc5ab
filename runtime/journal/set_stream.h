// set_stream.h - the files of the set that is being written, as one process has them: mapped windows into the stream of
// blocks. Used under the append lock only. Private to the folder.
//
// The stream is stored to through shared mappings: a reader of the files sees each store at once, and it outlives the
// process. Disk space is allocated ahead of the stores, since a store into a page without space would be lost.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/journal/config_record.h"
#include "runtime/journal/writer_state.h"

namespace velda::journal {

inline constexpr std::size_t BlockBytes = VELDA_LOGGER_BLOCK_BYTES;

// Where the stream stands after `size` more bytes of records.
std::uint64_t stream_behind(std::uint64_t stream, std::uint64_t size);

class SetStream {
  public:
    SetStream() = default;
    SetStream(const SetStream &) = delete;
    SetStream &operator=(const SetStream &) = delete;

    // Around the work of one holder of the append lock. A process that was forked in the midst of it, by another thread,
    // has begun with half-made files: it leaves them alone and opens its own.
    void enter();
    void leave() { is_entered_.store(false, std::memory_order_release); }

    // Opens the files of this use of the set, unless they are open. Error 5 names a file that is gone or is not the
    // one that was written to.
    Result<void> use(const LogSetInfo &set, const WrittenTo &written);
    // Error 5 when one of the open files has lost its name to another file, or none has it, or it was cut short.
    Result<void> check_files(std::uint64_t stream) const;
    // Closes the files; the next use opens them anew.
    void forget();
    // Opens anew without closing what was open.
    void abandon();
    int files() const { return count_; }

    // Makes sure that the stream has disk space up to `end`. Error 28 when the disk or the set is full.
    Result<void> make_room(const LogSetInfo &set, WriterState &state, std::uint64_t end);

    // Stores bytes at the stream's position, beginning blocks on the way, and moves it on. The room was made. 0, or an
    // error number: see failure().
    int put(std::uint64_t &stream, std::string_view bytes, const LogSetInfo &set, WriterState &state);
    // Shows in the first block how far the set is written.
    void show(const LogSetInfo &set);
    // Has the processor fetch what the next record will be stored to: another one's cache may have it.
    void fetch_ahead(std::uint64_t stream) const;
    // What went wrong in put: it is stored in the midst of the stores, where nothing may be built up.
    Error failure(int number) const;

    // Which of the files holds the byte, from 0, and at which offset.
    int file_of(std::uint64_t stream) const { return static_cast<int>(stream / BlockBytes % count_); }
    std::int64_t offset_of(std::uint64_t stream) const {
        return static_cast<std::int64_t>(stream / BlockBytes / count_ * BlockBytes + stream % BlockBytes);
    }

    // Makes what was stored durable. 0 or the error.
    int sync() const;
    // Second descriptors of the files, to be closed by the caller: of all, or of those that hold a byte of the stream
    // from `begin` to `end`. Error 24 and none when there are too many open files.
    Result<std::vector<int>> duplicates() const { return duplicates(0, ~std::uint64_t{0}); }
    Result<std::vector<int>> duplicates(std::uint64_t begin, std::uint64_t end) const;

  private:
    static constexpr std::uint64_t WindowRows = 256;

    struct File {
        int descriptor = -1;
        std::string path;
        std::int64_t max_size = -1;
        char *window = nullptr;  // rows [number * WindowRows, ...)
        std::uint64_t number = 0;
        std::uint64_t ready_rows = 0;  // rows of the window, from its first, whose pages are there
        std::uint64_t step_rows = 0;   // how many more are made ready at once
    };

    void reset();
    Result<void> open_files(const LogSetInfo &set, const WrittenTo &written);
    Result<void> open_file(File &file, const LogFileEntry &entry, bool is_begun, bool is_first);
    Result<void> allocate(File &file, std::uint64_t rows_before, std::uint64_t rows);
    char *block(std::uint64_t number);
    bool map_window(File &file, std::uint64_t number);
    bool make_ready(File &file, std::uint64_t row);
    static void clear(std::uint64_t number, char *at, const WriterState &state);
    int clear_first_blocks(const WriterState &state);
    int begin_block(std::uint64_t number, char *at, const LogSetInfo &set, WriterState &state);

    std::atomic<bool> is_entered_{false};
    std::int64_t time_first_ = 0;
    int count_ = 0;
    char *first_block_ = nullptr;  // of the set, mapped for itself: it is stored to again and again
    std::uint64_t rows_ = 0;       // that have disk space, as far as this process knows
    const File *failed_ = nullptr;
    char *block_ = nullptr;  // the one that was stored to last; null: none
    std::uint64_t block_number_ = 0;
    std::array<File, VELDA_LOGGER_FILES> files_;
};

}  // namespace velda::journal
