#include "tests/runtime/convert/fixture.h"
#include "tests/support/marks.h"

using namespace velda;
using namespace velda::test;
using conversions::Status;

TEST(Characters, TheCodesChangeTheText) {
    const Case cases[] = {
        {"Ab9 c-\xE4", "MCU", "AB9 C-\xE4"},
        {"AB9 C-\xC4", "MCL", "ab9 c-\xC4"},
        {"hELLO wORLD", "MCT", "Hello World"},
        {"o'brien-SMITH", "MCT", "O'Brien-Smith"},
        {"a1b2-3", "MCN", "123"},
        {"a1b2-3", "MC/N", "ab-"},
        {"a1b2-3", "MCA", "ab"},
        {"a1b2-3", "MC/A", "12-3"},
        {"a1b2-3", "MCB", "a1b23"},
        {"a1b2-3", "MC/B", "-"},
        {"a\tb\x7F"
         "c\x80~ ",
         "MCP", "a.b.c.~ "},
        {"a\tb\x7F"
         "c\x80~ ",
         "MCP.", "a.b.c.~ "},
        {"a\tb", "MCPU", "A.B"},
        {"", "MCU", ""},
        {"", "MCP", ""},
        {"a\tb", "MCPN", "a.09b"},
        {"AB\n", "MX", "41420A"},
        {"", "MX", ""},
        {"-", "MX", "2D"},
        {"aa-bb-aa", "MCC;aa;x", "x-bb-x"},
        {"a b", "MCC; ;", "ab"},
        {"aaa", "MCC;aa;a", "aa"},
    };
    expect_output(cases);
}

TEST(Characters, MarksAreNotPrintable) { EXPECT_EQ(oconv(marks("a^b]c\\d"), "MCP."), "a.b.c.d"); }

TEST(Characters, MarksAreShownInHexadecimal) { EXPECT_EQ(oconv(marks("a^b"), "MX"), "61FE62"); }

TEST(Characters, TheZeroByteIsATextByte) {
    EXPECT_EQ(oconv(std::string_view("a\0b", 3), "MX"), "610062");
    EXPECT_EQ(oconv(std::string_view("a\0b", 3), "MCP"), "a.b");
    EXPECT_EQ(iconv("610062", "MX"), std::string("a\0b", 3));
}

TEST(Characters, MostCodesDoTheSameInBothDirections) {
    for (const char *code : {"MCU", "MCL", "MCT", "MCN", "MC/N", "MCA", "MC/A", "MCB", "MC/B", "MCP", "MCP.", "MCPU"})
        EXPECT_EQ(iconv("x9 Y\t", code), oconv("x9 Y\t", code)) << code;
}

TEST(Hexadecimal, McdxWritesANumberOfAnySize) {
    const Case cases[] = {
        {"255", "MCDX", "FF"},   {"0", "MCDX", "0"},      {"16", "MCD", "10"},
        {"-255", "MCDX", "-FF"}, {"255.9", "MCDX", "FF"}, {"", "MCDX", ""},
        {"FF", "MCXD", "255"},   {"ff", "MCX", "255"},    {"18446744073709551616", "MCDX", "10000000000000000"},
    };
    expect_output(cases);
}

TEST(Hexadecimal, McdxReadsWhatItWrites) {
    const Case cases[] = {
        {"FF", "MCDX", "255"}, {"ff", "MCDX", "255"}, {"-FF", "MCDX", "-255"}, {"00", "MCDX", "0"}, {"", "MCDX", ""},
    };
    expect_input(cases);
}

TEST(Hexadecimal, WhatIsNoNumberIsRefused) {
    EXPECT_EQ(oconv("xyz", "MCDX"), "xyz");
    EXPECT_EQ(oconv_status("xyz", "MCDX"), Status::BadValue);
    for (const char *value : {"G", "-", "1 2", "0x1"})
        EXPECT_EQ(iconv_status(value, "MCDX"), Status::BadValue) << value;
}

TEST(Hexadecimal, ANumberTooLongToConvertIsRefusedAtOnce) {
    EXPECT_EQ(oconv_status(std::string(1'000'000, '9'), "MCDX"), Status::BadValue);
}

TEST(Hexadecimal, MxOnInputRefusesOddAndForeignDigits) {
    for (const char *value : {"4", "4G", "41 42"}) {
        EXPECT_EQ(iconv(value, "MX"), "");
        EXPECT_EQ(iconv_status(value, "MX"), Status::BadValue);
    }
}

TEST(Characters, RandomTextComesBackFromHexadecimalAndFromPoints) {
    std::mt19937_64 random = seeded_random();
    for (int count = 0; count < 2000; ++count) {
        const std::string text = random_bytes(random, 60);
        ASSERT_EQ(iconv(oconv(text, "MX"), "MX"), text);
        ASSERT_EQ(oconv(iconv(text, "MY"), "MY"), text);
    }
    EXPECT_EQ(iconv(oconv("a\t\xFE.", "MCPN"), "MCPN"), "a\t\xFE.");
}

TEST(Characters, OtherCodesAreBad) {
    for (const char *code :
         {"MC", "MCZ", "MCUX", "MZ", "M", "MC/", "MCC", "MCC;", "MCC;;x", "MXX", "mcu", "X", "U0ff0", "MCP.."})
        EXPECT_TRUE(is_bad_code(code)) << code;
}
