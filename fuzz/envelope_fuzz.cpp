// Envelopes of enciphered transfers: what is opened is a record, and only what was sealed is opened.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "journal/duplicator/device_stream.h"
#include "runtime/vutil.h"
#include "tests/support/journal_builder.h"

namespace {

using namespace velda::journal;

void require(bool holds) {
    if (!holds) std::abort();
}

std::string_view part(std::string_view bytes, std::size_t at, std::size_t size) {
    return bytes.substr(std::min(at, bytes.size()), size);
}

// Any bytes as an envelope's header, key and body.
void open_any(DP *dp, std::string_view bytes) {
    if (bytes.size() < Envelope::Key) return;
    const auto header = envelope_header(reinterpret_cast<const unsigned char *>(bytes.data()));
    if (!header) return;
    require(header->body_bytes <= LargestBodyBytes && header->key_bytes <= LargestKeyBytes);
    if (const auto record = opened(dp, *header, part(bytes, Envelope::Key, header->key_bytes),
                                   part(bytes, Envelope::Key + header->key_bytes, header->body_bytes)))
        require(is_record_header(reinterpret_cast<const unsigned char *>(record->data())));
}

// A sealed record comes back as it was; with a byte of key or body changed it does not come back as another.
void seal_and_open(DP *dp, std::string_view bytes) {
    LogSelect select;
    select.scheme = VELDA_SCHEME_3DES;
    select.key = part(bytes, 2, 7);
    const std::string record =
        velda::test::record_bytes(velda::test::write_record("F", "k", std::string(bytes)), 1, 0, 0);
    std::string envelope = sealed(dp, select, record);
    const auto header = envelope_header(reinterpret_cast<const unsigned char *>(envelope.data()));
    require(header && envelope.size() == Envelope::Key + header->key_bytes + header->body_bytes);
    const auto open = [&] {
        return opened(dp, *header, part(envelope, Envelope::Key, header->key_bytes),
                      part(envelope, Envelope::Key + header->key_bytes, header->body_bytes));
    };
    require(open() == record);
    const std::size_t at =
        static_cast<std::size_t>(static_cast<unsigned char>(bytes[0])) * 256 + static_cast<unsigned char>(bytes[1]);
    envelope[Envelope::Key + at % (envelope.size() - Envelope::Key)] ^= 1;
    require(!open());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    DP *const dp = velda_getdp();
    open_any(dp, std::string(EncryptedMarker) + std::string(bytes));
    if (size >= 2) seal_and_open(dp, bytes);
    return 0;
}
