// Redo records: bytes as they come, and the same under a header that fits them, so that what lies behind it is read too.
// Whatever is read lies within the bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/journal/record_crc.h"
#include "runtime/transaction/redo_record.h"

namespace {

using namespace velda;
using namespace velda::transaction;

void check(bool holds) {
    if (!holds) std::abort();
}

std::size_t checked_size(std::string_view whole, std::string_view part) {
    check(part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size()));
    return part.size();
}

// The parts do not overlap: they and their headers are the whole.
void check_redo(std::string_view bytes, const Redo &redo) {
    std::size_t size = sizeof(RedoHeader);
    check(redo.batches.size() == redo.header.batches);
    for (const RedoBatch &batch : redo.batches) {
        size += sizeof(BatchHeader) + checked_size(bytes, batch.path);
        for (const RedoUpdate &update : batch.updates)
            size += sizeof(UpdateHeader) + checked_size(bytes, update.key) +
                    checked_size(bytes, update.record.value_or("")) + checked_size(bytes, update.before.value_or(""));
    }
    check(size == bytes.size());
}

std::string with_header(std::string_view body) {
    RedoHeader header{};
    std::string bytes(sizeof header, '\0');
    // The number of batches is the input's own.
    if (!body.empty()) header.batches = static_cast<unsigned char>(body.front()) % 8;
    bytes += body.substr(body.empty() ? 0 : 1);
    RedoMagic.copy(header.magic, sizeof header.magic);
    header.size_bytes = bytes.size();
    header.body_checksum = journal::crc32c(0, bytes.data() + sizeof header, bytes.size() - sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    header.checksum = journal::crc32c(0, bytes.data() + ChecksummedFrom, sizeof header - ChecksummedFrom);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    if (const auto redo = parse_redo(input)) check_redo(input, *redo);
    const std::string bytes = with_header(input);
    if (const auto redo = parse_redo(bytes)) check_redo(bytes, *redo);
    return 0;
}
