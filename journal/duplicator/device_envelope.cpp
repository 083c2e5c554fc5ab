// Records as they stand on a stream: their headers, and the envelopes of enciphered transfers.
#include <algorithm>

#include "journal/duplicator/device_stream.h"
#include "journal/log_record.h"
#include "runtime/vutil.h"

namespace velda::journal {

namespace {

std::uint32_t unsigned_at(const unsigned char *bytes) { return static_cast<std::uint32_t>(vgetint32(bytes)); }

// What the cipher made of a text; "" after a failure.
std::string ciphered(DP *dp, VAR *(*cipher)(DP *, VAR *, const VAR *, const VAR *, int), std::string_view text,
                     std::string_view key, int scheme) {
    VAR result;
    const VAR source(text), key_cell(key);
    cipher(dp, &result, &source, &key_cell, scheme);
    return system_number(0).to_integer() == VELDA_CRYPT_DONE ? result.str() : std::string();
}

bool is_record(std::string_view bytes) {
    if (bytes.size() < RecordHeader::Bytes) return false;
    const auto *const record = reinterpret_cast<const unsigned char *>(bytes.data());
    return is_record_header(record) && unsigned_at(record + RecordHeader::RecordSize) == bytes.size();
}

}  // namespace

bool is_record_header(const unsigned char *bytes) {
    const LogHeader header(bytes);
    return header.has_marker && has_possible_sizes(header) &&
           static_cast<std::size_t>(header.record_size) <= LargestRecordBytes;
}

bool is_whole(const unsigned char *record, std::size_t size) {
    const unsigned char *const stamp = record + RecordHeader::UpdateTime;
    return std::equal(stamp, stamp + RecordTrailerBytes, record + size - RecordTrailerBytes);
}

std::optional<EnvelopeHeader> envelope_header(const unsigned char *bytes) {
    if (marker_at(bytes) != EncryptedMarker) return std::nullopt;
    const auto body_bytes = static_cast<std::uint64_t>(vgetlong64(bytes + Envelope::BodyLength));
    const std::uint32_t key_bytes = unsigned_at(bytes + Envelope::KeyLength);
    const int scheme = vgetint32(bytes + Envelope::Scheme);
    const bool is_believable = body_bytes > 0 && body_bytes <= LargestBodyBytes && key_bytes > 0 &&
                               key_bytes <= LargestKeyBytes && velda_scheme_name(velda_getdp(), scheme);
    if (!is_believable) return std::nullopt;
    return EnvelopeHeader{static_cast<std::size_t>(body_bytes), key_bytes, scheme};
}

std::string sealed(DP *dp, const LogSelect &output, std::string_view record) {
    const int scheme = static_cast<int>(output.scheme);
    const std::string body = ciphered(dp, VLibEENCRYPT_BBBBI, record, output.key, scheme);
    if (body.empty()) return {};
    const std::string key =
        ciphered(dp, VLibEENCRYPT_BBBBI, output.key, velda_builtin_key(dp, VELDA_KEY_TRANSFER_KEY), VELDA_SCHEME_RC2);
    if (key.empty()) return {};
    std::string envelope(EncryptedMarker);
    envelope.resize(Envelope::Key);
    vputlong64(envelope.data() + Envelope::BodyLength, static_cast<std::int64_t>(body.size()));
    vputint32(envelope.data() + Envelope::KeyLength, static_cast<std::int32_t>(key.size()));
    vputint32(envelope.data() + Envelope::Scheme, scheme);
    return envelope.append(key).append(body);
}

std::optional<std::string> opened(DP *dp, const EnvelopeHeader &header, std::string_view key, std::string_view body) {
    const char *const key_of_keys = velda_builtin_key(dp, VELDA_KEY_TRANSFER_KEY);
    const std::string body_key = ciphered(dp, VLibEDECRYPT_BBBBI, key, key_of_keys, VELDA_SCHEME_RC2);
    if (system_number(0).to_integer() != VELDA_CRYPT_DONE) return std::nullopt;
    std::string record = ciphered(dp, VLibEDECRYPT_BBBBI, body, body_key, header.scheme);
    if (!is_record(record)) return std::nullopt;
    return record;
}

}  // namespace velda::journal
