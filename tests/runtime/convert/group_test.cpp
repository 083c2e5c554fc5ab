#include "tests/runtime/convert/fixture.h"

using namespace velda;
using namespace velda::test;

TEST(Group, SkipsAndTakesFields) {
    const Case cases[] = {
        {"a,b,c", "G1,1", "b"},
        {"a,b,c", "G0,1", "a"},
        {"a,b,c", "G,1", "a"},
        {"a,b,c", "G1,2", "b,c"},
        {"a,b,c", "G0,2", "a,b"},
        {"a,b,c", "G2,1", "c"},
        {"a,b,c", "G3,1", ""},
        {"a,b,c", "G9,9", ""},
        {"a,b,c", "G0,9", "a,b,c"},
        {"a b c", "G1 1", "b"},
        {" id x", "G1 1", "id"},
        {"abc", "G0,1", "abc"},
        {"abc", "G1,1", ""},
        {"", "G0,1", ""},
        {"", "G1,1", ""},
        {",,", "G1,1", ""},
        {"a\xFE"
         "b",
         "G1\xFE"
         "1",
         "b"},
        {"a*b*c", "G2*1", "c"},
        {"a,b,", "G2,1", ""},
    };
    expect_output(cases);
}

TEST(Group, BothDirectionsDoTheSame) { EXPECT_EQ(iconv("a,b,c", "G1,1"), "b"); }

TEST(Group, ACodeWithoutDelimiterOrCountIsBad) {
    for (const char *code : {"G", "G1", "G1,", "G,", "G1,0", "G1,x", "G1,1x", "G9999999999,1", "G1,9999999999"})
        EXPECT_TRUE(is_bad_code(code)) << code;
}
