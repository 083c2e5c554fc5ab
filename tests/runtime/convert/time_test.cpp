#include "tests/runtime/convert/fixture.h"

using namespace velda;
using namespace velda::test;
using conversions::Status;

TEST(TimeOutput, TheCodesWriteTheirForms) {
    const Case cases[] = {
        {"50709", "MT", "14:05"},
        {"50709", "MTS", "14:05:09"},
        {"50709", "MTH", "02:05PM"},
        {"50709", "MTHS", "02:05:09PM"},
        {"50709", "MT.", "14.05"},
        {"50709", "MTS-", "14-05-09"},
        {"0", "MT", "00:00"},
        {"0", "MTS", "00:00:00"},
        {"0", "MTH", "12:00AM"},
        {"43200", "MTH", "12:00PM"},
        {"43199", "MTHS", "11:59:59AM"},
        {"46800", "MTH", "01:00PM"},
        {"86399", "MTS", "23:59:59"},
        {"86399", "MTHS", "11:59:59PM"},
        {"59", "MT", "00:00"},
        {"59.9", "MTS", "00:00:59"},
        {"", "MTS", ""},
        {" 60", "MT", "00:01"},
    };
    expect_output(cases);
}

TEST(TimeOutput, ALengthOfTimeBeyondADayShowsItsHours) {
    EXPECT_EQ(oconv("86400", "MTS"), "24:00:00");
    EXPECT_EQ(oconv("90061", "MTS"), "25:01:01");
    EXPECT_EQ(oconv("360000", "MT"), "100:00");
    EXPECT_EQ(oconv("86400", "MTH"), "12:00AM");
}

TEST(TimeOutput, ANegativeTimeHasItsSignInFront) { EXPECT_EQ(oconv("-61", "MTS"), "-00:01:01"); }

TEST(TimeOutput, AValueThatIsNoNumberIsLeftUnchanged) {
    EXPECT_EQ(oconv("noon", "MT"), "noon");
    EXPECT_EQ(oconv_status("noon", "MT"), Status::BadValue);
    EXPECT_EQ(oconv_status("99999999999999999999", "MTS"), Status::BadValue);
}

TEST(TimeInput, TheUsualFormsAreRead) {
    const Case cases[] = {
        {"14:05", "MT", "50700"},
        {"14:05:09", "MT", "50709"},
        {"14:05:09", "MTS", "50709"},
        {"2:05PM", "MT", "50700"},
        {"2:05 pm", "MT", "50700"},
        {"02:05:09P", "MTH", "50709"},
        {"12AM", "MT", "0"},
        {"12PM", "MT", "43200"},
        {"12:30AM", "MT", "1800"},
        {"9", "MT", "32400"},
        {"9:5", "MT", "32700"},
        {"14.05", "MT", "50700"},
        {"24:00", "MT", "86400"},
        {"00:00:00", "MTS", "0"},
        {" 14:05 ", "MT", "50700"},
        {"10:00:00", "MTS", "36000"},
        {"", "MT", ""},
    };
    expect_input(cases);
}

TEST(TimeInput, WhatIsNoTimeOfDayGivesTheEmptyText) {
    for (const char *value : {"123", "25:00", "24:00:01", "14:60", "14:05:60", "14:05:09:01", "13PM", "0AM", "PM", "A",
                              "M", "14:", ":05", "1a:05", "-1:00", "1:2:3x", "14::05",
                              "\xFE"
                              "1"}) {
        EXPECT_EQ(iconv(value, "MTS"), "") << value;
        EXPECT_EQ(iconv_status(value, "MTS"), Status::BadValue) << value;
    }
}

TEST(TimeInput, EverySecondOfADayComesBackFromItsText) {
    for (int second = 0; second < 86400; second += 7) {
        const std::string value = std::to_string(second);
        ASSERT_EQ(iconv(oconv(value, "MTS"), "MTS"), value);
        ASSERT_EQ(iconv(oconv(value, "MTHS"), "MTHS"), value);
    }
}

TEST(TimeCode, OtherLettersAreBadCodes) {
    for (const char *code : {"MTX", "MTSH", "MT::", "MTSS", "MTH1", "MT\xFB"}) EXPECT_TRUE(is_bad_code(code)) << code;
}
