#include "tests/runtime/convert/fixture.h"
#include "tests/support/marks.h"

using namespace velda;
using namespace velda::test;
using conversions::Status;

TEST(Conversion, AnEmptyCodeChangesNothing) {
    EXPECT_EQ(oconv("abc", ""), "abc");
    EXPECT_EQ(oconv_status("abc", ""), Status::Done);
}

TEST(Conversion, SeveralCodesRunFromLeftToRight) { EXPECT_EQ(oconv("x,21510", marks("G1,1]D2]MCL")), "21 nov 26"); }

TEST(Conversion, ABadCodeAmongSeveralMakesAllBad) {
    EXPECT_EQ(oconv("abc", marks("MCU]ZZ")), "\xFF");
    EXPECT_EQ(oconv_status("abc", marks("MCU]ZZ")), Status::BadCode);
    EXPECT_EQ(oconv("abc", marks("MCU]]MCL")), "\xFF");
}

TEST(Conversion, TheFirstValueThatDoesNotSuitEndsTheRow) {
    EXPECT_EQ(oconv("abc", marks("D]MCU")), "abc");
    EXPECT_EQ(iconv("abc", marks("D]MCU")), "");
}

TEST(Decimals, MdPutsThePointAndRoundsHalvesAway) {
    const Case cases[] = {
        {"12345", "MD2", "123.45"},
        {"-12345", "MD2", "-123.45"},
        {"5", "MD2", "0.05"},
        {"0", "MD2", "0.00"},
        {"1234567", "MD2,", "12,345.67"},
        {"1234567", "MD2,$", "$12,345.67"},
        {"12345", "MD0", "12345"},
        {"12345", "MD23", "12.35"},
        {"12345", "MD03", "12"},
        {"-12345", "MD2E", "<123.45>"},
        {"-12345", "MD2C", "123.45CR"},
        {"-12345", "MD2M", "123.45-"},
        {"0", "MD2Z", ""},
        {"", "MD2", ""},
        {"999", "MD12", "10.0"},
        {"123456789012345678901234567890", "MD2", "1234567890123456789012345678.90"},
    };
    expect_output(cases);
}

TEST(Decimals, MdReadsBackAsAnInteger) {
    const Case cases[] = {
        {"123.45", "MD2", "12345"},
        {"-123.45", "MD2", "-12345"},
        {"12,345.67", "MD2,", "1234567"},
        {"$12,345.67", "MD2,$", "1234567"},
        {"<123.45>", "MD2E", "-12345"},
        {"123.45CR", "MD2C", "-12345"},
        {"123.45-", "MD2M", "-12345"},
        {"1", "MD2", "100"},
        {"0.015", "MD2", "2"},
        {"", "MD2", ""},
    };
    expect_input(cases);
}

TEST(Decimals, MdOfWhatIsNoNumberIsRefused) {
    EXPECT_EQ(oconv("abc", "MD2"), "abc");
    EXPECT_EQ(iconv("abc", "MD2"), "");
    EXPECT_EQ(oconv_status("abc", "MD2"), Status::BadValue);
}

TEST(Decimals, MdNeedsItsDecimals) {
    EXPECT_TRUE(is_bad_code("MD"));
    EXPECT_TRUE(is_bad_code("MDX"));
    EXPECT_TRUE(is_bad_code("MD2#5"));
}

TEST(Decimals, MlAndMrLayOutByAMask) {
    const Case cases[] = {
        {"abc", "ML#5", "abc  "},
        {"abc", "MR#5", "  abc"},
        {"12345", "MR2#10", "    123.45"},
        {"12345", "MR2,$#10", "   $123.45"},
        {"7", "MR%4", "0007"},
        {"123456789", "ML###-##-####", "123-45-6789"},
    };
    expect_output(cases);
    EXPECT_EQ(iconv("    123.45", "MR2#10"), "12345");
    EXPECT_EQ(iconv("abc", "ML#5"), "abc");
    EXPECT_TRUE(is_bad_code("ML"));
}
