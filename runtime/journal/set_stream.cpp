#include "runtime/journal/set_stream.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "runtime/convert/convert.h"
#include "runtime/journal/bus_error.h"
#include "runtime/journal/injection.h"
#include "runtime/journal/log_format.h"
#include "runtime/journal/set_file.h"

namespace velda::journal {

namespace {

constexpr std::uint64_t LeastAllocatedRows = 16;  // 64 KiB of each file
constexpr std::uint64_t MostAllocatedRows = 256;  // at once
constexpr std::uint64_t LeastReadyRows = 2;
constexpr std::uint64_t MostReadyRows = 64;

std::size_t header_bytes(std::uint64_t block) { return block == 0 ? FirstBlockData : BlockHeader::Bytes; }

// The compiler's own prefetch is for reading, as long as it may not assume a newer processor.
void fetch_for_store([[maybe_unused]] const char *at) {
#if defined(__x86_64__)
    asm volatile("prefetchw %0" ::"m"(*at));
#endif
}

// Writes zeros over rows. Then the page cache has their pages, in units of a write, and a store into one of them costs a
// fraction of a store into a page that has only space on disk; and a sync finds blocks that are in use already. Larger
// units would cost less yet, but of them a sync writes all.
int clear_rows(int file, off_t begin, off_t end) {
    static char zeros[1 << 16];  // never stored to, so all of it is one page of memory
    while (begin < end) {
        const ssize_t put = pwrite(file, zeros, std::min<std::size_t>(sizeof zeros, end - begin), begin);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return errno;
        begin += put;
    }
    return 0;
}

// A set's file that is not there or not usable must not look like a missing record.
Error set_file_error(int number, std::string_view what, const std::string &path) {
    Error error = system_error(number, what, path);
    if (number == ENOENT) error.number = EIO;
    return error;
}

}  // namespace

std::uint64_t stream_behind(std::uint64_t stream, std::uint64_t size) {
    while (size > 0) {
        const std::uint64_t block = stream / BlockBytes;
        if (stream % BlockBytes == 0) stream += header_bytes(block);
        const std::uint64_t left = (block + 1) * BlockBytes - stream;
        if (size <= left) return stream + size;
        size -= left;
        stream += left;
        // Whole blocks at once: a record may have a million of them.
        constexpr std::uint64_t DataBytes = BlockBytes - BlockHeader::Bytes;
        const std::uint64_t whole = (size - 1) / DataBytes;
        stream += whole * BlockBytes;
        size -= whole * DataBytes;
    }
    return stream;
}

// --- the files -----------------------------------------------------------------------------------------------------

Result<void> SetStream::use(const LogSetInfo &set, const WrittenTo &written) {
    if (count_ > 0 && time_first_ == written.time_first) return {};
    forget();
    catch_bus_errors();
    if (auto opened = open_files(set, written); !opened) {
        forget();
        return opened;
    }
    time_first_ = written.time_first;
    return {};
}

Result<void> SetStream::open_files(const LogSetInfo &set, const WrittenTo &written) {
    int named = 0;
    for (const LogFileEntry &entry : set.files) named += entry.path[0] != 0;
    const std::uint64_t blocks = (written.stream + BlockBytes - 1) / BlockBytes;
    for (const LogFileEntry &entry : set.files) {
        if (entry.path[0] == 0) continue;
        const bool is_begun = blocks > static_cast<std::uint64_t>(count_);
        // It belongs to the stream at once, so that forget() closes it.
        File &file = files_[count_++];
        if (auto opened = open_file(file, entry, is_begun, count_ == 1); !opened) return opened;
        if (!is_begun) continue;
        char head[BlockHeader::Bytes];
        if (pread(file.descriptor, head, sizeof head, 0) != static_cast<ssize_t>(sizeof head) ||
            vgetlong64(head + BlockHeader::TimeFirst) != written.time_first)
            return Error{EIO, "journal file '" + file.path + "' is not the one that its set was written to"};
    }
    if (named == 0) return Error{EIO, "the current set of the journal has no files"};
    return {};
}

Result<void> SetStream::open_file(File &file, const LogFileEntry &entry, bool is_begun, bool is_first) {
    file = File{};
    file.path = path_of(entry);
    file.max_size = entry.maxSize;
    const int injected = injected_failure(Step::Open);
    file.descriptor = injected != 0 ? -1 : open(file.path.c_str(), O_RDWR | O_CLOEXEC);
    if (injected != 0) return set_file_error(injected, "cannot open journal file", file.path);
    if (file.descriptor < 0)
        return set_file_error(errno, errno == ENOENT ? "cannot find journal file" : "cannot open journal file",
                              file.path);
    struct stat status;
    if (fstat(file.descriptor, &status) < 0) return set_file_error(errno, "cannot open journal file", file.path);
    if (!S_ISREG(status.st_mode)) return Error{EIO, "journal file '" + file.path + "' is not a plain file"};
    if (is_begun && status.st_size < static_cast<off_t>(BlockBytes))
        return Error{EIO, "journal file '" + file.path + "' was cut short"};
    if (!is_first) return {};
    void *const page = mmap(nullptr, BlockBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor, 0);
    if (page == MAP_FAILED) return set_file_error(errno, "cannot map journal file", file.path);
    first_block_ = static_cast<char *>(page);
    return {};
}

Result<void> SetStream::check_files(std::uint64_t stream) const {
    const std::uint64_t blocks = (stream + BlockBytes - 1) / BlockBytes;
    for (int number = 0; number < count_; ++number) {
        const File &file = files_[number];
        struct stat open_file, named_file;
        if (fstat(file.descriptor, &open_file) < 0 || stat(file.path.c_str(), &named_file) < 0)
            return set_file_error(errno, "cannot find journal file", file.path);
        if (open_file.st_ino != named_file.st_ino || open_file.st_dev != named_file.st_dev)
            return Error{EIO, "journal file '" + file.path + "' was replaced by another file"};
        const std::uint64_t rows = (blocks + count_ - 1 - static_cast<std::uint64_t>(number)) / count_;
        if (static_cast<std::uint64_t>(open_file.st_size) < rows * BlockBytes)
            return Error{EIO, "journal file '" + file.path + "' was cut short"};
    }
    return {};
}

void SetStream::enter() {
    if (is_entered_.load(std::memory_order_relaxed)) abandon();
    is_entered_.store(true, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void SetStream::forget() {
    for (int number = 0; number < count_; ++number) {
        File &file = files_[number];
        if (file.window) munmap(file.window, WindowRows * BlockBytes);
        if (file.descriptor >= 0) close(file.descriptor);
        file = File{};
    }
    if (first_block_) munmap(first_block_, BlockBytes);
    reset();
}

void SetStream::abandon() {
    for (File &file : files_) std::construct_at(&file);  // what it holds may be damaged
    reset();
}

void SetStream::reset() {
    first_block_ = block_ = nullptr;
    count_ = 0;
    time_first_ = 0;
    rows_ = 0;
}

// --- room ----------------------------------------------------------------------------------------------------------

Result<void> SetStream::make_room(const LogSetInfo &, WriterState &state, std::uint64_t end) {
    if (end <= state.allocated_rows * count_ * BlockBytes) {
        rows_ = state.allocated_rows;
        return {};
    }
    const std::uint64_t rows = ((end + BlockBytes - 1) / BlockBytes + count_ - 1) / count_;
    const std::uint64_t step = std::clamp(state.allocated_rows, LeastAllocatedRows, MostAllocatedRows);
    for (const std::uint64_t wanted : {std::max(rows, state.allocated_rows + step), rows}) {
        Result<void> allocated;
        for (int number = 0; number < count_ && allocated; ++number)
            allocated = allocate(files_[number], state.allocated_rows, wanted);
        if (allocated) {
            rows_ = state.allocated_rows = wanted;
            return {};
        }
        if (wanted == rows) return allocated;
    }
    return {};
}

Result<void> SetStream::allocate(File &file, std::uint64_t rows_before, std::uint64_t rows) {
    const auto begin = static_cast<off_t>(rows_before * BlockBytes), end = static_cast<off_t>(rows * BlockBytes);
    if (file.max_size > 0 && end > file.max_size)
        return Error{ENOSPC, "journal file '" + file.path + "' is full: it may have " + std::to_string(file.max_size) +
                                 " bytes; switch to another set"};
    int failed = injected_failure(Step::Allocate);
    if (failed == 0) {
        do failed = posix_fallocate(file.descriptor, begin, end - begin);
        while (failed == EINTR);
    }
    if (failed == 0) failed = injected_failure(Step::Clear);
    if (failed == 0) failed = clear_rows(file.descriptor, begin, end);
    if (failed == 0) return {};
    if (file.max_size < 1) (void)!ftruncate(file.descriptor, std::max<off_t>(begin, BlockBytes));
    return set_file_error(failed, "cannot extend journal file", file.path);
}

// --- stores --------------------------------------------------------------------------------------------------------

char *SetStream::block(std::uint64_t number) {
    File &file = files_[number % count_];
    const std::uint64_t row = number / count_;
    if (!file.window || file.number != row / WindowRows) {
        if (!map_window(file, row / WindowRows)) return nullptr;
    }
    const std::uint64_t row_of_window = row % WindowRows;
    if (row_of_window >= file.ready_rows && !make_ready(file, row)) return nullptr;
    return file.window + row_of_window * BlockBytes;
}

bool SetStream::map_window(File &file, std::uint64_t number) {
    constexpr std::size_t Bytes = WindowRows * BlockBytes;
    if (file.window) munmap(file.window, Bytes);
    file.window = nullptr;
    if (&file == &files_[block_number_ % count_]) block_ = nullptr;
    failed_ = &file;
    if (const int failed = injected_failure(Step::Map)) {
        errno = failed;
        return false;
    }
    void *const window =
        mmap(nullptr, Bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor, static_cast<off_t>(number * Bytes));
    file.window = window == MAP_FAILED ? nullptr : static_cast<char *>(window);
    file.number = number;
    file.ready_rows = 0;
    return file.window != nullptr;
}

// Brings pages in before they are stored to, several at once, which costs less than a fault for each.
bool SetStream::make_ready(File &file, std::uint64_t row) {
    const std::uint64_t first = row % WindowRows;
    const std::uint64_t left = std::min(WindowRows - first, rows_ - row);
    file.step_rows = std::clamp(file.step_rows * 2, LeastReadyRows, MostReadyRows);
    const std::uint64_t count = std::min(file.step_rows, left);
    failed_ = &file;
    if (const int failed = injected_failure(Step::Ready)) {
        errno = failed;
        return false;
    }
    int result;
    do result = madvise(file.window + first * BlockBytes, count * BlockBytes, MADV_POPULATE_WRITE);
    while (result != 0 && errno == EINTR);
    if (result != 0 && errno != EINVAL) return false;  // EINVAL: this kernel does not know it
    file.ready_rows = first + count;
    return true;
}

// Behind the blocks that were begun, the allocation has left zeros. Who died over a block may have left anything in it.
void SetStream::clear(std::uint64_t number, char *at, const WriterState &state) {
    if (number < state.begun_blocks) std::memset(at, 0, BlockBytes);
}

int SetStream::begin_block(std::uint64_t number, char *at, const LogSetInfo &set, WriterState &state) {
    clear(number, at, state);
    if (number == 0)
        if (const int failed = clear_first_blocks(state)) return failed;
    state.begun_blocks = std::max(state.begun_blocks, number + 1);
    const std::string_view marker = number == 0 ? FirstBlockMarker : BlockMarker;
    std::memcpy(at + BlockHeader::Marker, marker.data(), marker.size());
    vputlong64(at + BlockHeader::TimeFirst, set.timeFirst);
    if (number == 0) {
        std::memcpy(at + FirstBlockSetInfo, &set, sizeof set);
        return 0;
    }
    vputint32(at + BlockHeader::BlockNumber, static_cast<std::int32_t>(number));
    vputint32(at + BlockHeader::BlockSize, static_cast<std::int32_t>(BlockBytes));
    return 0;
}

// A file is named with a byte in its first block, which would look like damage as long as the stream is not there.
int SetStream::clear_first_blocks(const WriterState &state) {
    const std::uint64_t end = std::min<std::uint64_t>(state.begun_blocks, count_);
    for (std::uint64_t number = 1; number < end; ++number) {
        char *const at = block(number);
        if (!at) return errno;
        clear(number, at, state);
    }
    return 0;
}

int SetStream::put(std::uint64_t &stream, std::string_view bytes, const LogSetInfo &set, WriterState &state) {
    while (!bytes.empty()) {
        const std::uint64_t number = stream / BlockBytes;
        if (!block_ || block_number_ != number) {
            block_ = block(number);
            if (!block_) return errno;
            block_number_ = number;
        }
        if (stream % BlockBytes == 0) {
            if (const int failed = begin_block(number, block_, set, state)) return failed;
            stream += header_bytes(number);
        }
        const std::size_t in_block = stream % BlockBytes;
        const std::size_t part = std::min(bytes.size(), BlockBytes - in_block);
        std::copy_n(bytes.data(), part, block_ + in_block);
        stream += part;
        bytes.remove_prefix(part);
    }
    return 0;
}

void SetStream::fetch_ahead(std::uint64_t stream) const {
    constexpr std::size_t CacheLine = 64, Ahead = 16 * CacheLine;
    if (!block_) return;
    const std::size_t begin = stream % BlockBytes, end = std::min(begin + Ahead, BlockBytes);
    for (std::size_t at = begin; at < end; at += CacheLine) fetch_for_store(block_ + at);
}

void SetStream::show(const LogSetInfo &set) {
    char *const copy = first_block_ + FirstBlockSetInfo;
    constexpr std::size_t Begin = offsetof(LogSetInfo, timeLast), End = offsetof(LogSetInfo, archivedTime);
    std::memcpy(copy + Begin, reinterpret_cast<const char *>(&set) + Begin, End - Begin);
}

Error SetStream::failure(int number) const {
    return set_file_error(number, "cannot write to journal file", failed_ ? failed_->path : files_[0].path);
}

int SetStream::sync() const {
    int first_error = 0;
    for (int number = 0; number < count_; ++number) {
        const int failed = injected_failure(Step::Sync);
        if ((failed != 0 || fdatasync(files_[number].descriptor) != 0) && first_error == 0)
            first_error = failed != 0 ? failed : errno;
    }
    return first_error;
}

Result<std::vector<int>> SetStream::duplicates(std::uint64_t begin, std::uint64_t end) const {
    std::vector<int> descriptors;
    const std::uint64_t first = begin / BlockBytes, behind = end / BlockBytes + (end % BlockBytes != 0);
    for (std::uint64_t number = first; number < behind && number < first + count_; ++number) {
        const File &file = files_[number % count_];
        descriptors.push_back(fcntl(file.descriptor, F_DUPFD_CLOEXEC, 0));
        if (descriptors.back() >= 0) continue;
        Error error = set_file_error(errno, "cannot sync journal file", file.path);
        descriptors.pop_back();
        for (const int descriptor : descriptors) close(descriptor);
        return error;
    }
    return descriptors;
}

}  // namespace velda::journal
