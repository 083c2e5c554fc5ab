// CRC-32C: by the processor's own instruction where it has one, else by tables, eight bytes at a time.
#include "runtime/journal/record_crc.h"

#include <array>
#include <cassert>
#include <cstring>

#include "runtime/journal/log_format.h"

namespace velda::journal {

namespace {

constexpr std::uint32_t Polynomial = 0x82F63B78;  // reflected
constexpr std::size_t Stride = 8;

// Tables[n][b]: the effect of byte b when n more bytes follow it.
using CrcTables = std::array<std::array<std::uint32_t, 256>, Stride>;

constexpr CrcTables make_tables() {
    CrcTables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? Polynomial : 0);
        tables[0][byte] = crc;
    }
    for (std::size_t n = 1; n < Stride; ++n)
        for (std::size_t byte = 0; byte < 256; ++byte)
            tables[n][byte] = (tables[n - 1][byte] >> 8) ^ tables[0][tables[n - 1][byte] & 0xFF];
    return tables;
}

constexpr CrcTables Tables = make_tables();

std::uint32_t crc_by_tables(std::uint32_t crc, const unsigned char *at, std::size_t size) {
    for (; size >= Stride; at += Stride, size -= Stride) {
        std::uint32_t next = 0;
        for (std::size_t n = 0; n < Stride; ++n) {
            const std::uint32_t byte = n < 4 ? at[n] ^ ((crc >> (8 * n)) & 0xFF) : at[n];
            next ^= Tables[Stride - 1 - n][byte];
        }
        crc = next;
    }
    for (; size > 0; ++at, --size) crc = (crc >> 8) ^ Tables[0][(crc ^ *at) & 0xFF];
    return crc;
}

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) std::uint32_t crc_by_instruction(std::uint32_t crc, const unsigned char *at,
                                                                   std::size_t size) {
    std::uint64_t wide = crc;
    for (; size >= Stride; at += Stride, size -= Stride) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof word);
        wide = __builtin_ia32_crc32di(wide, word);
    }
    crc = static_cast<std::uint32_t>(wide);
    for (; size > 0; ++at, --size) crc = __builtin_ia32_crc32qi(crc, *at);
    return crc;
}
#endif

using CrcFunction = std::uint32_t (*)(std::uint32_t, const unsigned char *, std::size_t);

CrcFunction best_function() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("sse4.2")) return crc_by_instruction;
#endif
    return crc_by_tables;
}

}  // namespace

std::uint32_t crc32c(std::uint32_t before, const void *bytes, std::size_t size) {
    static const CrcFunction function = best_function();
    return ~function(~before, static_cast<const unsigned char *>(bytes), size);
}

std::uint32_t crc32c_by_tables(std::uint32_t before, const void *bytes, std::size_t size) {
    return ~crc_by_tables(~before, static_cast<const unsigned char *>(bytes), size);
}

std::uint32_t record_crc(const unsigned char *record, std::size_t size) {
    assert(size >= RecordHeader::Bytes);
    constexpr unsigned char Zero[4] = {};
    constexpr std::size_t Behind = RecordHeader::Reserved + sizeof Zero;
    std::uint32_t crc = crc32c(0, record, RecordHeader::Reserved);
    crc = crc32c(crc, Zero, sizeof Zero);
    crc = crc32c(crc, record + Behind, size - Behind);
    return crc == 0 ? 1 : crc;
}

}  // namespace velda::journal
