// Getting over a damaged record.
#include <algorithm>
#include <cstring>

#include "journal/log_bytes.h"
#include "journal/log_record.h"
#include "journal/log_select.h"

namespace velda::journal {

namespace {

constexpr int64_t LongestScan = 1048576;
constexpr int NothingFound = 22;

// The texts of the record in the buffer, as far as it was read.
RecordTexts buffered_texts(const LoggerContext &context, const LogHeader &header) {
    const int64_t there = context.recordBytes - static_cast<int64_t>(RecordHeader::Bytes);
    const int64_t size = std::clamp<int64_t>(header.strings_size, 0, std::max<int64_t>(there, 0));
    return record_texts(
        {reinterpret_cast<const char *>(context.recordBuffer) + RecordHeader::Bytes, static_cast<size_t>(size)});
}

void log_last_record(DP *dp, const LoggerContext &context, const LogHeader &header) {
    const RecordTexts texts = buffered_texts(context, header);
    const auto text = [&texts](RecordString which) { return std::string(texts[static_cast<size_t>(which)]); };
    VediLoggerError(dp, 1,
                    "Log File Error\nLast record PID is : %d\nLast record type is : %d\n"
                    "Last record Port Number is : %d\nLast record Record Size is : %d\n"
                    "Last record Strings Size is : %d\nFilename is : %s\nRecord Name is : %s\n"
                    "Application Name is : %s\nO/S Name is : %s\nTTYName Name is : %s\nAppID Name is : %s\n"
                    "Source and Line Number is : %s %s\n",
                    static_cast<int>(header.pid), header.type, header.port, header.record_size, header.strings_size,
                    text(RecordString::FileName).c_str(), text(RecordString::Key).c_str(),
                    text(RecordString::ApplicationName).c_str(), text(RecordString::UserName).c_str(),
                    text(RecordString::TerminalName).c_str(), text(RecordString::ApplicationId).c_str(),
                    text(RecordString::SourceFile).c_str(), text(RecordString::SourceLine).c_str());
}

enum class Found { Marker, Nothing, BadBlock, Error };

// Whether the marker of a record stands at the position. Deliberately not the one of an enciphered record. `error` is
// set for Error.
Found look(DP *dp, LoggerContext &context, LogPosition position, int &error) {
    unsigned char bytes[RecordMarker.size()];
    error = read_bytes(dp, context, position, bytes, 1);
    if (error != 0) return error == VELDA_LOGGER_DAMAGED ? Found::BadBlock : Found::Error;
    if (bytes[0] != static_cast<unsigned char>(RecordMarker[0])) return Found::Nothing;
    error = read_bytes(dp, context, position, bytes + 1, sizeof bytes - 1);
    if (error != 0) return error == VELDA_LOGGER_DAMAGED ? Found::Nothing : Found::Error;
    return std::memcmp(bytes, RecordMarker.data(), sizeof bytes) == 0 ? Found::Marker : Found::Nothing;
}

// How far the search goes on: from a block that is none to its end, since every byte of it would fail.
int64_t step_behind(const LoggerContext &context, const LogPosition &at, Found found) {
    if (found != Found::BadBlock) return 1;
    const int64_t block_size = context.config->blockSize;
    return block_size - at_data(at, context.openFileCount, block_size).offset % block_size;
}

int scan(DP *dp, LoggerContext &context, LogSelect &select) {
    LoggerAdvance(dp, &select.file, &select.offset, 1);
    LogPosition at{select.file, select.offset};
    for (int64_t skipped = 0, step = 0; skipped < LongestScan; skipped += step) {
        int error = 0;
        const Found found = look(dp, context, at, error);
        if (found == Found::Error) return error;
        if (found == Found::Marker) {
            VELDAfprintf(dp, stderr, "Log file skipped %d bytes after detecting incomplete record\n",
                         static_cast<int>(skipped));
            LoggerAdvance(dp, &select.file, &select.offset, skipped);
            return VELDA_LOGGER_DAMAGED;
        }
        step = step_behind(context, at, found);
        LoggerAdvance(dp, &at.file, &at.offset, step);
    }
    return NothingFound;
}

}  // namespace

int LoggerRecover(DP *dp, LogSelect *select) {
    LoggerContext &context = logger_context(dp);
    context.hasRecord = false;
    // Loads the block. The rest of the buffer stays, with the header that was read last.
    LogPosition here{select->file, select->offset};
    if (const int error = begin_reading(dp, context, select->set)) return error;
    if (!ensure_record_buffer(dp, context, 0)) return errno;
    read_bytes(dp, context, here, context.recordBuffer, 1);
    const LogHeader header(context.recordBuffer);
    log_last_record(dp, context, header);
    if (!skips_damaged_records()) {
        VediLoggerError(dp, 1, "Terminating vlogdup\n");
        return ReadingStopped;
    }
    // Deliberately the count of set 1, whichever set is read. A size that no record has leads nowhere: then the marker
    // of the next record is looked for.
    const bool is_whole = logger_set(*context.config, 1).recordCount >= select->recordsRead + 1;
    if (!is_whole || !has_possible_sizes(header)) return scan(dp, context, *select);
    LoggerAdvance(dp, &select->file, &select->offset, header.record_size);
    ++select->recordsRead;
    return VELDA_LOGGER_DAMAGED;
}

}  // namespace velda::journal
