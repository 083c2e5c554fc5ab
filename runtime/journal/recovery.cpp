#include "runtime/journal/recovery.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/convert/convert.h"
#include "runtime/journal/log_format.h"
#include "runtime/journal/record_crc.h"
#include "runtime/journal/set_file.h"
#include "runtime/journal/set_stream.h"

namespace velda::journal {

namespace {

// The stream of a set, read from its files block by block.
class StreamReader {
  public:
    explicit StreamReader(const LogSetInfo &set) : stamp_(set.timeFirst) {
        for (const LogFileEntry &entry : set.files)
            if (entry.path[0] != 0)
                files_.push_back({path_of(entry), open(path_of(entry).c_str(), O_RDONLY | O_CLOEXEC)});
    }
    ~StreamReader() {
        for (const File &file : files_)
            if (file.descriptor >= 0) close(file.descriptor);
    }
    StreamReader(const StreamReader &) = delete;
    StreamReader &operator=(const StreamReader &) = delete;

    // Reads on from the position. False when the bytes are not there: see error().
    bool take(std::uint64_t &stream, char *into, std::size_t size) {
        while (size > 0) {
            const std::uint64_t number = stream / BlockBytes;
            if (!load(number)) return false;
            if (stream % BlockBytes == 0) stream += number == 0 ? FirstBlockData : BlockHeader::Bytes;
            const std::size_t part = std::min(size, BlockBytes - stream % BlockBytes);
            std::memcpy(into, block_.data() + stream % BlockBytes, part);
            into += part;
            size -= part;
            stream += part;
        }
        return true;
    }
    int files() const { return static_cast<int>(files_.size()); }
    // Of the disk, which says nothing about where the records end.
    const Result<void> &error() const { return error_; }

  private:
    struct File {
        std::string path;
        int descriptor;
    };

    bool load(std::uint64_t number) {
        if (number == loaded_) return true;
        loaded_ = ~std::uint64_t{0};
        const File &file = files_[number % files_.size()];
        const auto offset = static_cast<off_t>(number / files_.size() * BlockBytes);
        ssize_t got;
        do got = pread(file.descriptor, block_.data(), BlockBytes, offset);
        while (got < 0 && errno == EINTR);
        if (got < 0) error_ = system_error(errno == ENOENT ? EIO : errno, "cannot read journal file", file.path);
        if (got != static_cast<ssize_t>(BlockBytes)) return false;
        const std::string_view marker = number == 0 ? FirstBlockMarker : BlockMarker;
        if (std::memcmp(block_.data(), marker.data(), ComparedBlockMarkerBytes) != 0) return false;
        if (vgetlong64(block_.data() + BlockHeader::TimeFirst) != stamp_) return false;
        loaded_ = number;
        return true;
    }

    const std::int64_t stamp_;
    std::vector<File> files_;
    std::array<char, BlockBytes> block_;
    std::uint64_t loaded_ = ~std::uint64_t{0};
    Result<void> error_;
};

// One record behind the other.
class Walk {
  public:
    Walk(const LogSetInfo &set, int number, const WrittenTo &from) : reader_(set), number_(number), to_(from) {}

    // False at the end of the whole records.
    bool next() {
        std::uint64_t stream = to_.stream;
        if (!reader_.take(stream, header_.data(), header_.size()) || !is_header(stream)) return false;
        if (!is_whole(stream)) return false;
        to_ = {to_.time_first, stream, to_.records + 1, vgetlong64(header_.data() + RecordHeader::UpdateTime)};
        return true;
    }
    const WrittenTo &to() const { return to_; }
    const char *header() const { return header_.data(); }
    // The strings of the record, as far as they are kept.
    std::string_view strings() const { return strings_; }
    const Result<void> &error() const { return reader_.error(); }

  private:
    std::uint32_t word(std::size_t at) const { return static_cast<std::uint32_t>(vgetint32(header_.data() + at)); }

    // The header names its own place. An EOF record was put there for a change of set that did not come about.
    bool is_header(std::uint64_t stream_behind_header) const {
        const std::string_view marker(header_.data(), RecordMarker.size());
        if (marker != RecordMarker && marker != EncryptedMarker) return false;
        if (static_cast<RecordType>(header_[RecordHeader::Type]) == RecordType::Eof) return false;
        if (static_cast<unsigned char>(header_[RecordHeader::Set]) != number_) return false;
        if (vgetlong64(header_.data() + RecordHeader::UpdateTime) < to_.time_last) return false;
        const std::uint64_t begin = first_byte(stream_behind_header);
        const std::uint64_t files = static_cast<std::uint64_t>(reader_.files());
        if (static_cast<unsigned char>(header_[RecordHeader::File]) != begin / BlockBytes % files) return false;
        const std::uint64_t offset = begin / BlockBytes / files * BlockBytes + begin % BlockBytes;
        if (vgetlong64(header_.data() + RecordHeader::Offset) != static_cast<std::int64_t>(offset)) return false;
        return word(RecordHeader::RecordSize) >=
               std::uint64_t{RecordHeader::Bytes} + word(RecordHeader::StringsSize) + RecordTrailerBytes;
    }
    std::uint64_t first_byte(std::uint64_t) const {
        if (to_.stream % BlockBytes != 0) return to_.stream;
        return to_.stream + (to_.stream == 0 ? FirstBlockData : BlockHeader::Bytes);
    }

    // Reads the rest, in pieces: it may be a gigabyte.
    bool is_whole(std::uint64_t &stream) {
        constexpr std::uint32_t PieceBytes = 1 << 17;  // holds any strings
        std::array<char, RecordHeader::Bytes> plain = header_;
        vputint32(plain.data() + RecordHeader::Reserved, 0);
        std::uint32_t crc = crc32c(0, plain.data(), plain.size());
        piece_.resize(PieceBytes);
        strings_.clear();
        std::array<char, RecordTrailerBytes> trailer{};
        for (std::uint32_t left = word(RecordHeader::RecordSize) - RecordHeader::Bytes; left > 0;) {
            // The last piece holds the whole trailer.
            const std::uint32_t size = left <= PieceBytes ? left : std::min(PieceBytes, left - 8);
            if (!reader_.take(stream, piece_.data(), size)) return false;
            if (strings_.empty()) strings_.assign(piece_.data(), std::min(size, word(RecordHeader::StringsSize)));
            crc = crc32c(crc, piece_.data(), size);
            left -= size;
            if (left == 0) std::memcpy(trailer.data(), piece_.data() + size - trailer.size(), trailer.size());
        }
        if (crc == 0) crc = 1;
        constexpr std::uint32_t NoChecksum = 0;
        const std::uint32_t told = word(RecordHeader::Reserved);
        return (told == crc || told == NoChecksum) &&
               std::memcmp(trailer.data(), header_.data() + RecordHeader::UpdateTime, trailer.size()) == 0;
    }

    StreamReader reader_;
    const int number_;
    WrittenTo to_;
    std::array<char, RecordHeader::Bytes> header_{};
    std::vector<char> piece_;
    std::string strings_;
};

}  // namespace

int files_with_names(const LogSetInfo &set) {
    return static_cast<int>(std::count_if(std::begin(set.files), std::end(set.files),
                                          [](const LogFileEntry &entry) { return entry.path[0] != 0; }));
}

std::int64_t first_block_stamp(const LogSetInfo &set) {
    const auto named = std::find_if(std::begin(set.files), std::end(set.files),
                                    [](const LogFileEntry &entry) { return entry.path[0] != 0; });
    if (named == std::end(set.files)) return 0;
    const int file = open(path_of(*named).c_str(), O_RDONLY | O_CLOEXEC);
    char head[BlockHeader::Bytes] = {};
    const bool is_read = file >= 0 && pread(file, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head);
    if (file >= 0) close(file);
    return is_read ? vgetlong64(head + BlockHeader::TimeFirst) : 0;
}

Result<WrittenTo> find_end(const LogSetInfo &set, int number, const WrittenTo &synced) {
    const WrittenTo start = synced.time_first == set.timeFirst ? synced : WrittenTo{set.timeFirst, 0, 0, set.timeFirst};
    Walk walk(set, number, start);
    while (walk.next()) {
    }
    if (!walk.error()) return walk.error().error();
    return walk.to();
}

void visit_records(const LogSetInfo &set, int number, std::uint64_t from, const RecordVisitor &visit) {
    constexpr char FieldEnd = '\xFE';
    Walk walk(set, number, {set.timeFirst, from, 0, set.timeFirst});
    while (walk.next()) {
        const std::string_view strings = walk.strings();
        const std::size_t file_end = strings.find(FieldEnd);
        if (file_end == strings.npos) return;
        const std::string_view rest = strings.substr(file_end + 1);
        if (!visit(walk.header(), strings.substr(0, file_end), rest.substr(0, rest.find(FieldEnd)), walk.to().stream))
            return;
    }
}

}  // namespace velda::journal
