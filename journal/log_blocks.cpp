#include "journal/log_blocks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace velda::journal {

namespace {

bool has_marker(const BlockView &view, std::string_view marker) {
    return std::memcmp(view.bytes, marker.data(), marker.size()) == 0;
}

std::int64_t stamp_of(const BlockView &view) { return vgetlong64(view.bytes + BlockHeader::TimeFirst); }

std::int64_t word_of(const BlockView &view, std::size_t field) {
    return static_cast<std::uint32_t>(vgetint32(view.bytes + field));
}

std::string_view marker_of(std::int64_t number) { return number == 0 ? FirstBlockMarker : BlockMarker; }

}  // namespace

Error file_error(int number, const char *what, const std::string &path) {
    return {number, std::string(what) + " '" + path + "': " + std::generic_category().message(number)};
}

bool are_zeros(const unsigned char *bytes, std::int64_t size) {
    return size <= 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, static_cast<std::size_t>(size - 1)) == 0);
}

std::int64_t BlockView::data_begin() const {
    return static_cast<std::int64_t>(number == 0 ? FirstBlockData : BlockHeader::Bytes);
}

LogBlocks::~LogBlocks() {
    for (const File &file : files_) VRunFileIOClose(dp_, file.handle);
}

Result<void> LogBlocks::open() {
    for (const std::string &path : source_.paths) {
        VRunFile *const handle = VRunFileIOOpen(dp_, path.c_str(), VELDA_OPEN_READ, 0);
        if (!handle) return file_error(errno, "cannot open journal file", path);
        files_.push_back({.handle = handle, .piece = std::vector<unsigned char>(std::max(PieceBytes, block_size()))});
    }
    return {};
}

const BlockView &LogBlocks::load(std::int64_t number) {
    current_.number = number;
    current_.place = place(number * block_size());
    File &file = files_[current_.place.file];
    const std::int64_t offset = current_.place.offset;
    if (offset < file.begin || offset + block_size() > file.begin + file.size) read_piece(file, offset);
    current_.bytes = file.piece.data() + (offset - file.begin);
    current_.size = std::min(file.begin + file.size - offset, block_size());
    current_.state = state_of(current_);
    return current_;
}

void LogBlocks::read_piece(File &file, std::int64_t offset) {
    std::size_t got = 0;
    const int error = VRunFileIORead(dp_, file.handle, offset, file.piece.data(), file.piece.size(), &got);
    if (error != 0 && error != ENODATA)
        failure_ = file_error(error, "cannot read journal file", VRunFileIOGetFullPath(dp_, file.handle));
    file.begin = offset;
    file.size = static_cast<std::int64_t>(got);
}

// One file of several may begin with either marker.
bool LogBlocks::has_right_marker(const BlockView &view) const {
    return has_marker(view, marker_of(view.number)) || (source_.is_member && has_marker(view, BlockMarker));
}

// The first block of a set does not have these fields: the set's description lies over them. The numbers of a file alone
// are compared with each other.
bool LogBlocks::has_right_numbers(const BlockView &view) const {
    if (has_marker(view, FirstBlockMarker)) return true;
    return word_of(view, BlockHeader::BlockSize) == block_size() &&
           (source_.is_member || word_of(view, BlockHeader::BlockNumber) == (view.number & 0xFFFFFFFF));
}

BlockState LogBlocks::state_of(const BlockView &view) const {
    if (view.size < block_size()) return view.size == 0 ? BlockState::Absent : BlockState::Bad;
    const bool is_block = has_right_marker(view);
    if (is_block && stamp_of(view) == source_.time_first && has_right_numbers(view)) return BlockState::Good;
    if (is_block && stamp_of(view) < source_.time_first) return BlockState::Earlier;
    return are_zeros(view.bytes, view.size) ? BlockState::Zeros : BlockState::Bad;
}

std::string LogBlocks::reason(const BlockView &view) const {
    if (view.size < block_size()) return "the file ends before the block does";
    if (view.state == BlockState::Zeros) return "the block is all zeros";
    if (!has_right_marker(view))
        return has_marker(view, FirstBlockMarker) ? "the first block of a set does not belong here"
               : view.number == 0                 ? "the file does not begin a set"
                                                  : "the block has no block marker";
    if (stamp_of(view) != source_.time_first)
        return "the block is of another use of the set, of time " + std::to_string(stamp_of(view));
    if (!source_.is_member && word_of(view, BlockHeader::BlockNumber) != (view.number & 0xFFFFFFFF))
        return "the block has number " + std::to_string(word_of(view, BlockHeader::BlockNumber)) + ", not " +
               std::to_string(view.number);
    return "the block has size " + std::to_string(word_of(view, BlockHeader::BlockSize));
}

std::int64_t LogBlocks::count() const {
    std::int64_t rows = 0;
    for (const File &file : files_) {
        VRunFileStatus status{};
        if (VRunFileIOGetStatus(dp_, file.handle, &status) != 0) continue;
        rows = std::max(rows, (status.size_bytes + block_size() - 1) / block_size());
    }
    return rows * static_cast<std::int64_t>(files_.size());
}

LogPlace LogBlocks::place(std::int64_t stream) const {
    const std::int64_t block = stream / block_size();
    const auto files = static_cast<std::int64_t>(files_.size());
    return {static_cast<std::size_t>(block % files), block / files * block_size() + stream % block_size()};
}

void LogBlocks::forget() {
    current_ = BlockView{};
    for (File &file : files_) file.size = 0;
}

}  // namespace velda::journal
