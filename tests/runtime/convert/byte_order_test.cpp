#include "runtime/convert/convert.h"
#include "tests/runtime/convert/fixture.h"

TEST(ByteOrder, IntegersStandMostSignificantByteFirst) {
    char bytes[8];
    vputint32(bytes, 0x01020304);
    EXPECT_EQ(std::string(bytes, 4), std::string("\1\2\3\4"));
    vputlong64(bytes, 0x0102030405060708);
    EXPECT_EQ(std::string(bytes, 8), std::string("\1\2\3\4\5\6\7\10"));
    EXPECT_EQ(vgetint32("\xFF\xFF\xFF\xFE"), -2);
    EXPECT_EQ(vgetlong64("\0\0\0\0\0\0\1\0"), 256);
}

TEST(ByteOrder, EveryIntegerComesBackAtAnyAlignment) {
    std::mt19937_64 random = velda::test::seeded_random();
    for (int count = 0; count < 1000; ++count) {
        char buffer[24];
        char *at = buffer + random() % 8;
        const auto long_value = static_cast<std::int64_t>(random());
        vputlong64(at, long_value);
        ASSERT_EQ(vgetlong64(at), long_value);
        const auto int_value = static_cast<std::int32_t>(random());
        vputint32(at, int_value);
        ASSERT_EQ(vgetint32(at), int_value);
    }
    char buffer[8];
    for (const std::int64_t value : {INT64_MIN, INT64_MAX, std::int64_t{-1}, std::int64_t{0}}) {
        vputlong64(buffer, value);
        EXPECT_EQ(vgetlong64(buffer), value);
    }
    for (const std::int32_t value : {INT32_MIN, INT32_MAX, -1, 0}) {
        vputint32(buffer, value);
        EXPECT_EQ(vgetint32(buffer), value);
    }
}
