// log_record.h - the parts of a record in memory. Private to the subsystem. What a record says of itself is believed
// only within the bytes that are there.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "journal/log_reading.h"
#include "journal/logger_context.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

// The header's fields in the byte order of the machine.
struct LogHeader {
    VELDA_EXPORT explicit LogHeader(const unsigned char *record);

    bool has_marker = false, is_encrypted = false;
    int64_t time, offset;
    uint32_t pid, crc;
    uint8_t type, flags, set, file;
    int32_t port, record_size, strings_size;
};

// Whether a record of these sizes can be: it has room for header, strings and trailer.
bool has_possible_sizes(const LogHeader &header);

// The bytes between header and trailer; empty where the sizes are impossible.
struct RecordAreas {
    VELDA_EXPORT RecordAreas(const LogHeader &header, const unsigned char *record);
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

// Makes the record buffer at least that large. False, with errno, when there is no memory; the buffer stays as it was.
bool ensure_record_buffer(DP *dp, LoggerContext &context, int64_t size);

// Whether the record stands where it says. The place may be told by the end of the block in front.
bool stands_at(const LogHeader &header, int32_t file, int64_t offset, int32_t files, int64_t block_size);

// Whether a whole record agrees with the checksum that it carries; one without a checksum does.
bool agrees_with_crc(const LogHeader &header, const unsigned char *record);

// Gets over a damaged record. 2014 when the selection stands where reading may be tried again; 2013 when damage ends the
// reading; 22 when nothing that could be a record follows; or the error of the read.
int LoggerRecover(DP *dp, LogSelect *select);

}  // namespace velda::journal
