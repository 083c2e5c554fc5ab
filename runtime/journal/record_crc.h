// record_crc.h - the checksum that a record carries in the reserved field of its header.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/vdefc.h"

namespace velda::journal {

// CRC-32C of `size` bytes; `before` is the result for the bytes in front of them, 0 at the start.
VELDA_EXPORT std::uint32_t crc32c(std::uint32_t before, const void *bytes, std::size_t size);
// The same without the processor's instruction.
std::uint32_t crc32c_by_tables(std::uint32_t before, const void *bytes, std::size_t size);

// What RecordHeader::Reserved holds: the CRC-32C of the whole record of `size` bytes, header and trailer included, that
// field taken as 0. Never 0, which stands for a record without a checksum: 1 takes its place. `size` is that of a header
// at least.
VELDA_EXPORT std::uint32_t record_crc(const unsigned char *record, std::size_t size);

}  // namespace velda::journal
