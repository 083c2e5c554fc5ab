// CRC-32C: by the processor's own instruction where it has one, else by tables, eight bytes at a time.
#include "runtime/journal/record_crc.h"

#include <algorithm>
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
// The instruction takes three cycles and may be started in each: three parts of the bytes are counted side by side, and
// the results joined by multiplying with what the bytes behind a part do to it.
constexpr std::size_t LongestPart = 64 * Stride;

// The effect of one more zero bit.
constexpr std::uint32_t shifted(std::uint32_t crc) { return (crc >> 1) ^ (crc & 1 ? Polynomial : 0); }

// Shifts[n]: x to the power of 64 n - 33, reflected, so that a product with it needs no more than one reduction by the
// instruction itself.
using Shifts = std::array<std::uint32_t, 2 * LongestPart / Stride + 1>;

constexpr Shifts make_shifts() {
    Shifts shifts{};
    std::uint32_t power = 0x80000000;  // x to the power of 0
    std::size_t exponent = 0;
    for (std::size_t n = 1; n < shifts.size(); ++n) {
        for (; exponent < 64 * n - 33; ++exponent) power = shifted(power);
        shifts[n] = power;
    }
    return shifts;
}

using TwoWords = long long __attribute__((vector_size(16)));

constexpr Shifts PartShifts = make_shifts();

__attribute__((target("sse4.2,pclmul"))) std::uint64_t moved_on(std::uint64_t crc, std::size_t strides) {
    const auto product =
        __builtin_ia32_pclmulqdq128(TwoWords{static_cast<long long>(crc), 0}, TwoWords{PartShifts[strides], 0}, 0);
    return __builtin_ia32_crc32di(0, static_cast<std::uint64_t>(product[0]));
}

__attribute__((target("sse4.2,pclmul"))) std::uint32_t crc_by_instruction(std::uint32_t crc, const unsigned char *at,
                                                                          std::size_t size) {
    const auto word_at = [](const unsigned char *bytes) {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    };
    std::uint64_t first = crc;
    while (size >= 6 * Stride) {
        const std::size_t part = std::min(size / 3 / Stride * Stride, LongestPart);
        std::uint64_t second = 0, third = 0;
        for (const unsigned char *const end = at + part; at != end; at += Stride) {
            first = __builtin_ia32_crc32di(first, word_at(at));
            second = __builtin_ia32_crc32di(second, word_at(at + part));
            third = __builtin_ia32_crc32di(third, word_at(at + 2 * part));
        }
        first = moved_on(first, 2 * part / Stride) ^ moved_on(second, part / Stride) ^ third;
        at += 2 * part;
        size -= 3 * part;
    }
    for (; size >= Stride; at += Stride, size -= Stride) first = __builtin_ia32_crc32di(first, word_at(at));
    crc = static_cast<std::uint32_t>(first);
    for (; size > 0; ++at, --size) crc = __builtin_ia32_crc32qi(crc, *at);
    return crc;
}
#endif

using CrcFunction = std::uint32_t (*)(std::uint32_t, const unsigned char *, std::size_t);

CrcFunction best_function() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("pclmul")) return crc_by_instruction;
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
    unsigned char header[RecordHeader::Bytes];
    std::memcpy(header, record, sizeof header);
    std::memset(header + RecordHeader::Reserved, 0, sizeof(std::uint32_t));
    std::uint32_t crc = crc32c(0, header, sizeof header);
    crc = crc32c(crc, record + sizeof header, size - sizeof header);
    return crc == 0 ? 1 : crc;
}

}  // namespace velda::journal
