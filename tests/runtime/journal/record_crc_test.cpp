// The checksum of a record.
#include "runtime/journal/record_crc.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/seed.h"

using namespace velda::journal;

namespace {

// One bit at a time.
std::uint32_t plain_crc(const std::string &bytes) {
    std::uint32_t crc = ~0u;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0x82F63B78u : 0);
    }
    return ~crc;
}

const unsigned char *bytes_of(const std::string &text) { return reinterpret_cast<const unsigned char *>(text.data()); }

TEST(RecordCrc, IsCrc32cOfCastagnoli) { EXPECT_EQ(crc32c(0, "123456789", 9), 0xE3069283u); }

TEST(RecordCrc, BothWaysOfCountingAgreeWithThePlainOne) {
    auto random = velda::test::seeded_random();
    for (int n = 0; n < 2000; ++n) {
        const std::string bytes = velda::test::random_bytes(random, n % 10 ? 400 : 9000);
        EXPECT_EQ(crc32c(0, bytes.data(), bytes.size()), plain_crc(bytes));
        EXPECT_EQ(crc32c_by_tables(0, bytes.data(), bytes.size()), plain_crc(bytes));
        const std::size_t cut = random() % (bytes.size() + 1);
        EXPECT_EQ(crc32c(crc32c(0, bytes.data(), cut), bytes.data() + cut, bytes.size() - cut), plain_crc(bytes));
    }
}

TEST(RecordCrc, TakesTheFieldItselfAsZero) {
    std::string record(300, 'r');
    std::string zeroed = record;
    zeroed.replace(40, 4, 4, '\0');
    EXPECT_EQ(record_crc(bytes_of(record), record.size()), plain_crc(zeroed));
    record[41] = 'x';
    EXPECT_EQ(record_crc(bytes_of(record), record.size()), plain_crc(zeroed));
    record[44] = 'x';
    EXPECT_NE(record_crc(bytes_of(record), record.size()), plain_crc(zeroed));
}

}  // namespace
