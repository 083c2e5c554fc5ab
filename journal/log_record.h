// log_record.h - the parts of a record in memory. Private to the subsystem. What a record says of itself is believed
// only within the bytes that are there.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "journal/log_bytes.h"
#include "journal/log_reading.h"
#include "journal/logger_context.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

// As vgetint32 and vgetlong64, which each record would call nine times.
inline int32_t word_at(const unsigned char *bytes) {
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<int32_t>(std::endian::native == std::endian::little ? __builtin_bswap32(value) : value);
}
inline int64_t long_at(const unsigned char *bytes) {
    uint64_t value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<int64_t>(std::endian::native == std::endian::little ? __builtin_bswap64(value) : value);
}

// The header's fields in the byte order of the machine.
struct LogHeader {
    explicit LogHeader(const unsigned char *record)
        : is_encrypted(std::memcmp(record, EncryptedMarker.data(), EncryptedMarker.size()) == 0),
          time(long_at(record + RecordHeader::UpdateTime)),
          offset(long_at(record + RecordHeader::Offset)),
          pid(static_cast<uint32_t>(word_at(record + RecordHeader::Pid))),
          crc(static_cast<uint32_t>(word_at(record + RecordHeader::Reserved))),
          type(record[RecordHeader::Type]),
          flags(record[RecordHeader::Flags]),
          set(record[RecordHeader::Set]),
          file(record[RecordHeader::File]),
          port(word_at(record + RecordHeader::Port)),
          record_size(word_at(record + RecordHeader::RecordSize)),
          strings_size(word_at(record + RecordHeader::StringsSize)) {
        has_marker = is_encrypted || std::memcmp(record, RecordMarker.data(), RecordMarker.size()) == 0;
    }

    bool has_marker = false, is_encrypted = false;
    int64_t time, offset;
    uint32_t pid, crc;
    uint8_t type, flags, set, file;
    int32_t port, record_size, strings_size;
};

inline constexpr int64_t SmallestRecord = RecordHeader::Bytes + RecordTrailerBytes;

// Whether a record of these sizes can be: it has room for header, strings and trailer.
inline bool has_possible_sizes(const LogHeader &header) {
    return header.record_size >= SmallestRecord && header.strings_size >= 0 &&
           header.strings_size <= header.record_size - SmallestRecord;
}

// The bytes between header and trailer; empty where the sizes are impossible.
struct RecordAreas {
    RecordAreas(const LogHeader &header, const unsigned char *record) {
        if (!has_possible_sizes(header)) return;
        const auto *const behind_header = reinterpret_cast<const char *>(record) + RecordHeader::Bytes;
        const auto size = static_cast<size_t>(header.record_size - SmallestRecord);
        strings = {behind_header, static_cast<size_t>(header.strings_size)};
        payload = {behind_header + strings.size(), size - strings.size()};
    }
    std::string_view strings, payload;
};

using RecordTexts = std::array<std::string_view, RecordStrings>;

// The eight texts of a strings area; those that it does not have are empty, a last one without its end counts.
RecordTexts record_texts(std::string_view area);

// A whole record, taken apart.
struct LogParts {
    VELDA_EXPORT explicit LogParts(const unsigned char *record);
    VELDA_EXPORT LogParts(const LogHeader &header, const unsigned char *record);

    LogHeader header;
    std::string_view strings, payload;
    RecordTexts texts;
};

// The name of a type, "UNKNOWN" for those that have none.
VELDA_EXPORT std::string_view record_type_name(uint8_t type);

// The record at a place of the open set, where it stands in the block that is held; it stays until the next read. Null
// when it does not lie in that block from end to end, or fails a check: what is to be said of it VELDALoggerReadRecord
// finds out.
const unsigned char *record_in_held_block(DP *dp, LoggerContext &context, int32_t set, const LogPosition &place);

// Makes the record buffer at least that large. False, with errno, when there is no memory; the buffer stays as it was.
bool ensure_record_buffer(DP *dp, LoggerContext &context, int64_t size);

// Whether the record stands where it says. The place may be told by the end of the block in front.
bool stands_at(const LogHeader &header, int32_t file, int64_t offset, int32_t files, int64_t block_size);

// Whether a whole record agrees with the checksum that it carries. One without a checksum does, unless it lacks even the
// marks of its strings: so does a record whose sector was lost from the checksum on.
bool agrees_with_crc(const LogHeader &header, const unsigned char *record);

// Gets over a damaged record. 2014 when the selection stands where reading may be tried again; 2013 when damage ends the
// reading; 22 when nothing that could be a record follows; or the error of the read.
int LoggerRecover(DP *dp, LogSelect *select);

}  // namespace velda::journal
