// One record of a set: found, checked, held in the session's buffer.
#include "journal/log_record.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "journal/duplicator/duplicator.h"
#include "journal/log_bytes.h"
#include "journal/log_reading.h"
#include "journal/log_select.h"
#include "runtime/journal/record_crc.h"

namespace velda::journal {

namespace {

constexpr int OutsideOfSet = 2;

// A size up to this is believed; a larger one is held against the size of the set's files.
constexpr int32_t CommonRecordSize = 1 << 16;

// What is asked for: a place in a set and, unless 0, the stamp of the record there.
struct Wanted {
    int32_t set;
    LogPosition place;
    int64_t time;
    bool is_in_held_blocks = false;  // which may be older than the record
};

bool is_wanted(const LogHeader &header, const Wanted &wanted) {
    return header.offset == wanted.place.offset && header.file == wanted.place.file && header.set == wanted.set &&
           header.time == wanted.time;
}

int64_t size_of_files(DP *dp, const LoggerContext &context) {
    return std::accumulate(context.files, context.files + context.openFileCount, int64_t{0},
                           [dp](int64_t sum, const VRunFile *file) {
                               VRunFileStatus status{};
                               return VRunFileIOGetStatus(dp, file, &status) == 0 ? sum + status.size_bytes : sum;
                           });
}

// A header that lies must not make the reader allocate more than the set could hold.
bool can_stand_in_set(DP *dp, const LoggerContext &context, const LogHeader &header) {
    return has_possible_sizes(header) &&
           (header.record_size <= CommonRecordSize || header.record_size <= size_of_files(dp, context));
}

int check_time(DP *dp, const LoggerContext &context, const Wanted &wanted, const LogHeader &header) {
    const LogSetInfo &set = logger_set(*context.config, wanted.set);
    if (header.time >= set.timeFirst && (header.time <= set.timeLast || set.timeLast == 0)) return 0;
    if (wanted.is_in_held_blocks) return VELDA_LOGGER_DAMAGED;  // the half of a header that is there by now
    VediLoggerError(dp, 0,
                    "Time update is now outside of start and end of logset \n Record time update is %x\n"
                    " Set time.first is %x\n  Set time last is %x\n ",
                    static_cast<unsigned>(header.time), static_cast<unsigned>(set.timeFirst),
                    static_cast<unsigned>(set.timeLast));
    return OutsideOfSet;
}

int check_header(DP *dp, const LoggerContext &context, const Wanted &wanted, const LogHeader &header) {
    if (wanted.time != 0 && header.time != wanted.time) return VELDA_LOGGER_DAMAGED;
    if (!header.has_marker) return VELDA_LOGGER_DAMAGED;
    if (const int error = check_time(dp, context, wanted, header)) return error;
    return can_stand_in_set(dp, context, header) ? 0 : VELDA_LOGGER_DAMAGED;
}

// The trailer is written last. A record that carries a checksum must also agree with it and stand where it says, so that
// a torn write, an old sector or a file in the wrong place of the stripe is no record.
bool is_finished(const LoggerContext &context, const Wanted &wanted, const LogHeader &header,
                 const unsigned char *record) {
    const unsigned char *const trailer = record + header.record_size - RecordTrailerBytes;
    if (std::memcmp(record + RecordHeader::UpdateTime, trailer, RecordTrailerBytes) != 0) return false;
    const bool is_in_place = header.crc == 0 || stands_at(header, wanted.place.file, wanted.place.offset,
                                                          context.openFileCount, context.config->blockSize);
    return is_in_place && agrees_with_crc(header, record);
}

int read_record(DP *dp, LoggerContext &context, const Wanted &wanted) {
    LogPosition at = wanted.place;
    if (const int error = read_bytes(dp, context, at, context.recordBuffer, RecordHeader::Bytes)) return error;
    context.recordBytes = RecordHeader::Bytes;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    const LogHeader header(context.recordBuffer);
    context.lastTime = header.time;
    if (const int error = check_header(dp, context, wanted, header)) return error;
    if (!ensure_record_buffer(dp, context, header.record_size)) return errno;
    const int error = read_bytes(dp, context, at, context.recordBuffer + RecordHeader::Bytes,
                                 header.record_size - static_cast<int64_t>(RecordHeader::Bytes));
    if (error != 0) return error;
    context.recordBytes = header.record_size;
    if (is_finished(context, wanted, header, context.recordBuffer)) return 0;
    context.unfinishedPid = header.pid;
    return VELDA_LOGGER_DAMAGED;
}

// A block that was held may have been written to since: what fails in it is read again from the files.
int read_fresh_record(DP *dp, LoggerContext &context, const Wanted &wanted) {
    if (const int error = begin_reading(dp, context, wanted.set)) return error;
    const bool were_held = holds_blocks(context);
    Wanted at_first = wanted;
    at_first.is_in_held_blocks = were_held;
    const int error = read_record(dp, context, at_first);
    if (error != VELDA_LOGGER_DAMAGED || !were_held) return error;
    release_blocks(dp, context);
    return read_record(dp, context, wanted);
}

// A stream goes forward only.
const unsigned char *find_in_stream(DP *dp, LogSelect *select, const Wanted &wanted, VELDALoggerCallback callback) {
    const unsigned char *record = nullptr;
    do record = LoggerReadDevice(dp, select, callback);
    while (record && !is_wanted(LogHeader(record), wanted));
    return record;
}

bool ends_text(char c) { return (c & 0xFE) == 0xFE; }

// The highest bit of each byte of eight that ends a text.
uint64_t ends_in_word(const char *bytes) {
    constexpr uint64_t LowBits = 0x0101010101010101, AllButHighest = 0x7F7F7F7F7F7F7F7F;
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    const uint64_t zero_where_end = ~(word | LowBits);
    return ~(((zero_where_end & AllButHighest) + AllButHighest) | zero_where_end | AllButHighest);
}

size_t text_end(std::string_view area) {
    size_t at = 0;
    if constexpr (std::endian::native == std::endian::little)
        for (; at + sizeof(uint64_t) <= area.size(); at += sizeof(uint64_t))
            if (const uint64_t ends = ends_in_word(area.data() + at))
                return at + static_cast<size_t>(std::countr_zero(ends) / 8);
    while (at < area.size() && !ends_text(area[at])) ++at;
    return at;
}

}  // namespace

RecordTexts record_texts(std::string_view area) {
    RecordTexts texts;
    for (std::string_view &text : texts) {
        text = area.substr(0, text_end(area));
        area.remove_prefix(std::min(text.size() + 1, area.size()));
    }
    return texts;
}

LogParts::LogParts(const unsigned char *record) : LogParts(LogHeader(record), record) {}

LogParts::LogParts(const LogHeader &the_header, const unsigned char *record) : header(the_header) {
    const RecordAreas areas(header, record);
    strings = areas.strings;
    payload = areas.payload;
    texts = record_texts(strings);
}

std::string_view record_type_name(uint8_t type) {
    return type < RecordTypeNames.size() ? RecordTypeNames[type] : RecordTypeNames[0];
}

// The right to read the set was proven when its block was read.
const unsigned char *record_in_held_block(DP *dp, LoggerContext &context, int32_t set, const LogPosition &place) {
    const int64_t in_block = place_in_held_block(context, place);
    const int64_t there = context.block.size - in_block;
    if (in_block == 0 || set != context.openSet || there < SmallestRecord) return nullptr;
    const auto *const record = reinterpret_cast<const unsigned char *>(context.block.bytes + in_block);
    const LogHeader header(record);
    const Wanted wanted{.set = set, .place = place, .time = 0, .is_in_held_blocks = true};
    if (check_header(dp, context, wanted, header) != 0 || header.record_size > there) return nullptr;
    if (!is_finished(context, wanted, header, record)) return nullptr;
    context.hasRecord = false;  // the record buffer has another, or none
    context.heldRecord = record;
    context.lastTime = header.time;
    return record;
}

bool ensure_record_buffer(DP *dp, LoggerContext &context, int64_t size) {
    if (context.recordBuffer && size <= context.recordCapacity) return true;
    const int64_t wanted = std::max<int64_t>(size + context.config->blockSize, SmallestRecord);
    if (wanted > INT32_MAX) return errno = ENOMEM, false;
    void *const grown = VELDArealloc(dp, context.recordBuffer, static_cast<size_t>(wanted), "vutil.logger", __LINE__);
    if (!grown) return errno = ENOMEM, false;
    if (!context.recordBuffer) std::memset(grown, 0, SmallestRecord);  // no record was read before
    context.recordBuffer = static_cast<unsigned char *>(grown);
    context.recordCapacity = static_cast<int32_t>(wanted);
    return true;
}

bool stands_at(const LogHeader &header, int32_t file, int64_t offset, int32_t files, int64_t block_size) {
    if (header.offset == offset && header.file == file) return true;
    return header.offset >= 0 &&
           at_data({header.file, header.offset}, files, block_size) == at_data({file, offset}, files, block_size);
}

bool agrees_with_crc(const LogHeader &header, const unsigned char *record) {
    if (header.crc == 0) return header.strings_size > 0;
    return header.crc == record_crc(record, static_cast<size_t>(header.record_size));
}

}  // namespace velda::journal

using namespace velda::journal;

const unsigned char *VELDALoggerReadRecord(DP *dp, LogSelect *select, int32_t file, int32_t set, int64_t offset,
                                           int64_t time, VELDALoggerCallback callback) {
    LoggerContext &context = logger_context(dp);
    const Wanted wanted{set, {file, offset}, time};
    if (context.hasRecord && is_wanted(LogHeader(context.recordBuffer), wanted)) return context.recordBuffer;
    context.hasRecord = false;
    context.unfinishedPid = 0;
    if (!map_logger(dp, context)) {
        VELDAfprintf(dp, stderr, "Error! Velda Journaler not defined\n");
        errno = ENOENT;
        return nullptr;
    }
    if (!ensure_record_buffer(dp, context, 0)) return nullptr;
    if (select && (select->deviceType & StreamDevices) != 0) return find_in_stream(dp, select, wanted, callback);
    if (const int error = read_fresh_record(dp, context, wanted)) {
        errno = error;
        return nullptr;
    }
    context.hasRecord = true;
    return context.recordBuffer;
}
