#include <gtest/gtest.h>

#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

struct NameCase {
    const char *name;
    bool dictionary;
    const char *path;
};

class FileNames : public testing::TestWithParam<NameCase> {};
class BadFileNames : public testing::Test {};

TEST_P(FileNames, are_parsed) {
    const auto parsed = parse_file_name(GetParam().name, GetParam().dictionary);
    ASSERT_TRUE(parsed.ok()) << GetParam().name;
    EXPECT_EQ(parsed->path, GetParam().path) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    All, FileNames,
    testing::Values(NameCase{"ORDERS", false, "ORDERS"}, NameCase{"ORDERS", true, "ORDERS]D"},
                    NameCase{"DICT ORDERS", false, "ORDERS]D"}, NameCase{"dict  ORDERS", false, "ORDERS]D"},
                    NameCase{"Dict ORDERS", true, "ORDERS]D"}, NameCase{"DATA ORDERS", false, "ORDERS"},
                    NameCase{"DICT ORDERS]D", false, "ORDERS]D"}, NameCase{"ORDERS]D", true, "ORDERS]D"},
                    NameCase{"ORDERS,OLD", false, "ORDERS]OLD"}, NameCase{"ORDERS,ORDERS", false, "ORDERS"},
                    NameCase{"ORDERS,", false, "ORDERS"}, NameCase{"DICT ORDERS,OLD", false, "ORDERS]D"},
                    NameCase{"dir/ORDERS,OLD", false, "dir/ORDERS]OLD"},
                    NameCase{"dir/ORDERS,ORDERS", false, "dir/ORDERS"}, NameCase{"a,b/ORDERS", false, "a,b/ORDERS"},
                    NameCase{"dir\\sub\\ORDERS", false, "dir/sub/ORDERS"}, NameCase{".", false, "."},
                    NameCase{"..", false, ".."}, NameCase{"/", false, "/"}, NameCase{"dir/", false, "dir"},
                    NameCase{"DICT", false, "DICT"}, NameCase{"DATA", false, "DATA"},
                    NameCase{"DICTIONARY", false, "DICTIONARY"}, NameCase{" ORDERS ", false, "ORDERS"}));

TEST_F(BadFileNames, an_empty_name_is_refused) {
    for (const auto *name : {"", "  ", ",", ",OLD", "dir/,OLD"}) {
        const auto parsed = parse_file_name(name, false);
        ASSERT_FALSE(parsed.ok());
        EXPECT_EQ(parsed.error().number, EINVAL);
        EXPECT_EQ(parsed.error().message, "a file name is missing");
    }
}

TEST_F(BadFileNames, a_zero_byte_is_refused) {
    const auto parsed = parse_file_name(std::string_view("a\0b", 3), false);
    ASSERT_FALSE(parsed.ok());
    EXPECT_EQ(parsed.error().message, "a file name may not hold a zero byte");
}

}  // namespace
}  // namespace velda::store::test
