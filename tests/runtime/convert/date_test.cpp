#include "runtime/convert/calendar.h"
#include "runtime/convert/clock.h"
#include "tests/runtime/convert/fixture.h"

using namespace velda;
using namespace velda::test;
using conversions::Status;

namespace {
// 21 November 2026, 14:05:09 UTC; its day number is 21510.
constexpr std::int64_t Moment = 1795269909;
}  // namespace

TEST(Calendar, DayZeroIsTheLastOfDecember1967) { EXPECT_EQ(day_number({1967, 12, 31}), 0); }

TEST(Calendar, TheUnixEpochIsDay732) { EXPECT_EQ(day_number({1970, 1, 1}), 732); }

TEST(Calendar, LeapYearsFollowTheGregorianRules) {
    EXPECT_TRUE(day_number({2024, 2, 29}));
    EXPECT_TRUE(day_number({2000, 2, 29}));
    EXPECT_FALSE(day_number({2023, 2, 29}));
    EXPECT_FALSE(day_number({1900, 2, 29}));
    EXPECT_FALSE(day_number({2100, 2, 29}));
}

TEST(Calendar, EveryDayOfTwelveCenturiesComesBack) {
    CivilDate last{1399, 12, 31};
    for (std::int64_t day = *day_number({1400, 1, 1}); day <= *day_number({2600, 12, 31}); ++day) {
        const auto date = civil_date(day);
        ASSERT_TRUE(date);
        ASSERT_EQ(day_number(*date), day);
        const bool next_day = date->day == last.day + 1 && date->month == last.month && date->year == last.year;
        const bool next_month = date->day == 1 && (date->month == last.month + 1 || date->year == last.year + 1);
        ASSERT_TRUE(next_day || next_month) << day;
        last = *date;
    }
}

TEST(Calendar, YearsBeyond9999AndBefore1AreNoDates) {
    EXPECT_TRUE(civil_date(*day_number({9999, 12, 31})));
    EXPECT_FALSE(civil_date(*day_number({9999, 12, 31}) + 1));
    EXPECT_FALSE(civil_date(*day_number({1, 1, 1}) - 1));
    EXPECT_FALSE(day_number({10000, 1, 1}));
    EXPECT_FALSE(civil_date(INT64_MAX));
    EXPECT_FALSE(civil_date(INT64_MIN));
}

TEST(DateOutput, TheCodesWriteTheirForms) {
    const Case cases[] = {
        {"21510", "D", "21 NOV 2026"},
        {"21510", "D4", "21 NOV 2026"},
        {"21510", "D2", "21 NOV 26"},
        {"21510", "D0", "21 NOV"},
        {"21510", "D1", "21 NOV 6"},
        {"21510", "D3", "21 NOV 026"},
        {"21510", "D2/", "11/21/26"},
        {"21510", "D4/", "11/21/2026"},
        {"21510", "D/", "11/21/2026"},
        {"21510", "D4-", "11-21-2026"},
        {"21510", "D2/E", "21/11/26"},
        {"21510", "D4-E", "21-11-2026"},
        {"21510", "D4.E", "21.11.2026"},
        {"21510", "D0/", "11/21"},
        {"21510", "D0/E", "21/11"},
        {"21510", "D4 ", "11 21 2026"},
        {"21510", "DE", "21 NOV 2026"},
        {"21510", "D2:", "11:21:26"},
        {"21510", "DD", "21"},
        {"21510", "DM", "11"},
        {"21510", "DMA", "NOVEMBER"},
        {"21510", "DY", "2026"},
        {"21510", "DY2", "26"},
        {"21510", "DY4", "2026"},
        {"21510", "DQ", "4"},
        {"21510", "DW", "6"},
        {"21510", "DWA", "SATURDAY"},
        {"21510", "DJ", "325"},
        {"0", "D", "31 DEC 1967"},
        {"1", "D", "01 JAN 1968"},
        {"0", "DW", "7"},
        {"1", "DW", "1"},
        {"-1", "DW", "6"},
        {"-1", "D", "30 DEC 1967"},
        {"-24835", "D", "01 JAN 1900"},
        {"11748", "D", "29 FEB 2000"},
        {"11748.9", "D", "29 FEB 2000"},
        {"2933628", "D", "31 DEC 9999"},
        {"1", "DQ", "1"},
        {" 21510 ", "D", "21 NOV 2026"},
        {"", "D", ""},
    };
    expect_output(cases);
}

TEST(DateOutput, WidthsAreThoseOfTheReportColumns) {
    EXPECT_EQ(oconv("21510", "D").size(), 11u);
    EXPECT_EQ(oconv("21510", "D2").size(), 9u);
    EXPECT_EQ(oconv("21510", "D0").size(), 6u);
}

TEST(DateOutput, APointAloneIsTheNumberZero) { EXPECT_EQ(oconv(".", "D"), "31 DEC 1967"); }

TEST(DateOutput, AValueThatIsNoDayNumberIsLeftUnchanged) {
    for (const char *value : {"abc", "12x", "1]2", "999999999999999999999", "2933629", "-800000", "--1"}) {
        EXPECT_EQ(oconv(value, "D"), value);
        EXPECT_EQ(oconv_status(value, "D"), Status::BadValue);
    }
}

TEST(DateInput, TheUsualFormsAreRead) {
    const Case cases[] = {
        {"21 NOV 2026", "D", "21510"},    {"21-NOV-2026", "D", "21510"},   {"21NOV2026", "D", "21510"},
        {"21nov26", "D", "21510"},        {"21/Nov/26", "D", "21510"},     {"21 November 2026", "D", "21510"},
        {"21 NOVEM 2026", "D", "21510"},  {"NOV 21 2026", "D", "21510"},   {"Nov 21, 2026", "D", "21510"},
        {"2026 NOV 21", "D", "21510"},    {"2026-11-21", "D", "21510"},    {"20261121", "D", "21510"},
        {"11/21/2026", "D", "21510"},     {"11/21/26", "D2/", "21510"},    {"21/11/2026", "D", "21510"},
        {"21-11-2026", "D", "21510"},     {"21.11.2026", "D", "21510"},    {"  21 NOV 2026  ", "D", "21510"},
        {"1-1-1970", "D", "732"},         {"31 DEC 1967", "D", "0"},       {"30 DEC 1967", "D", "-1"},
        {"29 FEB 2024", "D", "20514"},    {"31 DEC 9999", "D", "2933628"}, {"1 JAN 1900", "D", "-24835"},
        {"21 NOV 2026", "D2/E", "21510"}, {"21 NOV 2026", "DMA", "21510"}, {"", "D", ""},
    };
    expect_input(cases);
}

TEST(DateInput, TwoDigitsOfAYearMean1930To2029) {
    EXPECT_EQ(oconv(iconv("1 JAN 29", "D"), "D"), "01 JAN 2029");
    EXPECT_EQ(oconv(iconv("1 JAN 30", "D"), "D"), "01 JAN 1930");
    EXPECT_EQ(oconv(iconv("1 JAN 00", "D"), "D"), "01 JAN 2000");
    EXPECT_EQ(oconv(iconv("1 JAN 99", "D"), "D"), "01 JAN 1999");
}

TEST(DateInput, ADateWithoutAYearIsOfThisYear) {
    const TimeZone zone("UTC");
    const FixedClock clock(Moment);
    EXPECT_EQ(iconv("21 NOV", "D"), "21510");
    EXPECT_EQ(iconv("NOV 21", "D"), "21510");
    EXPECT_EQ(iconv("11/21", "D"), "21510");
    EXPECT_EQ(iconv("21-11", "D"), "21510");
}

TEST(DateInput, APlainCodeTakesTheDayFirstBehindHyphensAndPoints) {
    EXPECT_EQ(oconv(iconv("03-02-2026", "D"), "D"), "03 FEB 2026");
    EXPECT_EQ(oconv(iconv("03.02.2026", "D"), "D"), "03 FEB 2026");
    EXPECT_EQ(oconv(iconv("03/02/2026", "D"), "D"), "02 MAR 2026");
    EXPECT_EQ(oconv(iconv("03/02/2026", "DE"), "D"), "03 FEB 2026");
}

TEST(DateInput, ACodeWithASeparatorReadsWhatItWrites) {
    for (const char *code : {"D4-", "D4/", "D4.", "D4-E", "D4/E", "D4.E", "D4 ", "D4", "D", "D2/", "D2-E", "D2"}) {
        for (int day = 20000; day < 20800; day += 7)
            ASSERT_EQ(iconv(oconv(std::to_string(day), code), code), std::to_string(day)) << code;
    }
}

TEST(DateInput, EveryDayNumberComesBackFromItsText) {
    std::mt19937_64 random = seeded_random();
    for (int count = 0; count < 20000; ++count) {
        const auto day = std::to_string(static_cast<int>(random() % 3650000) - 718000);
        const std::string text = oconv(day, "D4");
        ASSERT_EQ(iconv(text, "D"), day) << text;
    }
}

TEST(DateInput, WhatIsNoDateGivesTheEmptyText) {
    for (const char *value : {"123",
                              "ABC",
                              "NOV",
                              "21",
                              "31 FEB 2026",
                              "29 FEB 2023",
                              "32 JAN 2026",
                              "0 JAN 2026",
                              "21 NO 2026",
                              "21 NOVEMBERS 2026",
                              "21 NOV 26 1",
                              "13/13/2026",
                              "21 NOV 202",
                              "21 NOV 20266",
                              "00/00/0000",
                              "2026-13-01",
                              "-5",
                              "21--",
                              "NOV 2026",
                              "21 NOV 2026.",
                              "1/2/3/4",
                              "99999999",
                              "D",
                              "\xFE",
                              "21\xFD"
                              "11\xFD"
                              "2026"}) {
        EXPECT_EQ(iconv(value, "D"), "") << value;
        EXPECT_EQ(iconv_status(value, "D"), Status::BadValue) << value;
    }
}

TEST(DateCode, OtherLettersAndDigitsAreBadCodes) {
    for (const char *code : {"D5", "D9", "DX", "D4/X", "D2/EE", "D22", "DMB", "DY3", "D*1", "DWAX", "D4\xFE", "d4"})
        EXPECT_TRUE(is_bad_code(code)) << code;
}
