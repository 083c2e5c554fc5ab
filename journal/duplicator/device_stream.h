// device_stream.h - what the reading and the writing side of a stream of blocks share. Private to the folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "journal/log_select.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

// Limits of what a stream may ask its reader to believe. They are rules of the reader, not of the format: what lies
// beyond them is taken for damage.
inline constexpr std::size_t LargestRecordBytes = (std::size_t{1} << 30) + (std::size_t{1} << 20);
inline constexpr std::size_t LargestBodyBytes = LargestRecordBytes / 3 * 4 + 64;  // in base 64
inline constexpr std::size_t LargestKeyBytes = std::size_t{64} << 10;

static_assert(SmallestBlockBytes == BlockHeader::Bytes + RecordHeader::Bytes);

inline std::string_view marker_at(const unsigned char *bytes) {
    return {reinterpret_cast<const char *>(bytes), RecordMarker.size()};
}
inline bool is_block_marker(const unsigned char *bytes) {
    return marker_at(bytes).substr(0, ComparedBlockMarkerBytes) == BlockMarker.substr(0, ComparedBlockMarkerBytes);
}

// Whether the 48 bytes of a record header are one: a marker, and sizes that agree with each other.
bool is_record_header(const unsigned char *bytes);
// Whether header and trailer of a record have the same stamp.
bool is_whole(const unsigned char *record, std::size_t size);

// --- envelopes ---

struct EnvelopeHeader {
    std::size_t body_bytes;
    std::size_t key_bytes;
    int scheme;
};

// The header of an envelope, when the 24 bytes are one. The encrypted marker also opens a record of a log set whose data
// are enciphered, which may stand on a stream as it is: there the scheme's first byte is the record's type, never 0.
std::optional<EnvelopeHeader> envelope_header(const unsigned char *bytes);

// The record as an envelope; "" when the cipher failed, and velda_crypt_error tells why.
std::string sealed(DP *dp, const LogSelect &output, std::string_view record);
// The record in an envelope's key and body; none when they were changed, or are of another key.
std::optional<std::string> opened(DP *dp, const EnvelopeHeader &header, std::string_view key, std::string_view body);

}  // namespace velda::journal
