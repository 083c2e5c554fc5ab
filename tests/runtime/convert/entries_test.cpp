// The entries, on cells.
#include <iconv.h>

#include "runtime/convert/clock.h"
#include "runtime/convert/facade.h"
#include "tests/runtime/convert/fixture.h"
#include "tests/support/marks.h"

using namespace velda;
using velda::test::TimeZone;

namespace {

constexpr std::int64_t Moment = 1795269909;  // 21 November 2026, 14:05:09 UTC, day 21510

class ConvertEntries : public testing::Test {
  protected:
    DP *dp = velda_getdp();
    VAR target;
};

}  // namespace

TEST_F(ConvertEntries, TodayAndTheTimeOfDayAreLocal) {
    const FixedClock clock(Moment);
    {
        const TimeZone zone("UTC");
        EXPECT_EQ(VLibGInternalLocalDate(dp), 21510);
        EXPECT_EQ(VLibGInternalLocalTime(dp), 50709);
    }
    const TimeZone zone("XST-10:30");
    EXPECT_EQ(today(), 21511);
    EXPECT_EQ(time_of_day(), 2109);
}

TEST_F(ConvertEntries, LocalTimeOfAUtcSecondCountsFromTheUtcMidnight) {
    const std::pair<const char *, int> rows[] = {{"UTC", 1}, {"XST-1", 3601}, {"XST+5", -17999}, {"XST-14", 50401}};
    for (const auto &[zone_name, expected] : rows) {
        const TimeZone zone(zone_name);
        EXPECT_EQ(VLibGInternalLocalTimeFromUTCt(dp, 1), expected) << zone_name;
        EXPECT_EQ(VLibGInternalLocalTimeFromUTCt(dp, 86400 * 10 + 1), expected) << zone_name;
        EXPECT_EQ(VLibGInternalLocalTimeFromUTCt(dp, 1 - 86400), expected) << zone_name;
    }
}

TEST_F(ConvertEntries, AUtcStampIsSplitIntoLocalDayAndTime) {
    const TimeZone zone("XST+15");
    int day = 0;
    int seconds = 0;
    VELDAConvertUnixTimeToVELDA(dp, Moment, &day, &seconds);
    EXPECT_EQ(day, 21509);
    EXPECT_EQ(seconds, 83109);
    VELDAConvertUnixTimeToVELDA(dp, Moment, nullptr, nullptr);
}

TEST_F(ConvertEntries, TimedateIsTheTimeAndTheDate) {
    const TimeZone zone("UTC");
    const FixedClock clock(Moment);
    EXPECT_EQ(VLibGTIMEDATE_BB(dp, &target), &target);
    EXPECT_EQ(target.view(), "14:05:09 21 NOV 2026");
    EXPECT_EQ(timedate().view(), "14:05:09 21 NOV 2026");
}

TEST_F(ConvertEntries, ATimestampHasFourDecimalsOfASecond) {
    const FixedClock clock(Moment, 12'345'678);
    VLibGTIMESTAMP_BB(dp, &target);
    EXPECT_EQ(target.view(), "1795269909.0123");
    EXPECT_TRUE(target.is_numeric());
}

TEST_F(ConvertEntries, AscTimeIsTheLineOfTheCLibrary) {
    std::tm time{};
    const std::time_t moment = Moment;
    gmtime_r(&moment, &time);
    EXPECT_STREQ(VELDAAscTime(dp, &time), "Sat Nov 21 14:05:09 2026\n");
    time.tm_mday = 1;
    EXPECT_STREQ(VELDAAscTime(dp, &time), "Sat Nov  1 14:05:09 2026\n");
    time.tm_mon = 12;
    EXPECT_STREQ(VELDAAscTime(dp, &time), "");
    EXPECT_STREQ(VELDAAscTime(dp, nullptr), "");
}

TEST_F(ConvertEntries, ConvRunReportsItsStatus) {
    const VAR date = "21 NOV 2026";
    const VAR nonsense = "xyz";
    const VAR date_code = "D";
    const VAR bad_code = "ZZ";
    EXPECT_EQ(VLibGConvRun2(dp, nullptr, &target, &date, &date_code, VELDA_CONVERT_INPUT, 0), VELDA_CONVERSION_DONE);
    EXPECT_EQ(target.view(), "21510");
    EXPECT_EQ(VLibGConvRun2(dp, nullptr, &target, &nonsense, &date_code, VELDA_CONVERT_INPUT, 0),
              VELDA_CONVERSION_BAD_VALUE);
    EXPECT_EQ(target.view(), "");
    EXPECT_EQ(VLibGConvRun2(dp, nullptr, &target, &nonsense, &date_code, VELDA_CONVERT_OUTPUT, 0),
              VELDA_CONVERSION_BAD_VALUE);
    EXPECT_EQ(target.view(), "xyz");
    EXPECT_EQ(VLibGConvRun2(dp, nullptr, &target, &date, &bad_code, VELDA_CONVERT_OUTPUT, 0),
              VELDA_CONVERSION_BAD_CODE);
    EXPECT_EQ(target.view(), "\xFF");
}

TEST_F(ConvertEntries, AStoreKeepsACodeUntilAnotherComesAndIsFreed) {
    void *store = nullptr;
    const VAR day = 21510;
    for (const auto &[code, expected] : {std::pair("D2", "21 NOV 26"), std::pair("D0", "21 NOV"),
                                         std::pair("D2", "21 NOV 26"), std::pair("", "21510")}) {
        const VAR code_cell = code;
        VLibGConvRun2(dp, &store, &target, &day, &code_cell, VELDA_CONVERT_OUTPUT, 0);
        EXPECT_EQ(target.view(), expected) << code;
        ASSERT_NE(store, nullptr);
    }
    VLibGConvCCBFree(dp, &store);
    EXPECT_EQ(store, nullptr);
    VLibGConvCCBFree(dp, &store);
    VLibGConvCCBFree(dp, nullptr);
}

TEST_F(ConvertEntries, TheTargetMayBeTheSourceTheCodeAndTheMask) {
    VAR cell = 21510;
    const VAR code = "D2";
    VLibGConvRun2(dp, nullptr, &cell, &cell, &code, VELDA_CONVERT_OUTPUT, 0);
    EXPECT_EQ(cell.view(), "21 NOV 26");
    VAR mask = "L#3";
    VLibGFORMAT_BBBBB(dp, &mask, &cell, &mask, nullptr);
    EXPECT_EQ(mask.view(), "21 ");
    VAR number = 10;
    VLibGDTX_BBBB(dp, &number, &number, &number);
    EXPECT_EQ(number.view(), "10");
}

TEST_F(ConvertEntries, AnUnassignedCellIsTheEmptyText) {
    const VAR unassigned;
    const VAR code = "D";
    EXPECT_EQ(VLibGConvRun2(dp, nullptr, &target, &unassigned, &code, VELDA_CONVERT_OUTPUT, 0), VELDA_CONVERSION_DONE);
    EXPECT_EQ(target.view(), "");
    EXPECT_EQ(oconv("abc", unassigned).view(), "abc");
    EXPECT_EQ(format(unassigned, "R%4").view(), "0000");
}

TEST_F(ConvertEntries, NumbersAreConvertedByTheirText) {
    EXPECT_EQ(oconv(50709, "MTS").view(), "14:05:09");
    EXPECT_EQ(oconv(VAR(12.5), "MX").view(), "31322E35");
    EXPECT_EQ(format(7, "R%4").view(), "0007");
    EXPECT_EQ(format(VAR(1.5), "R2#6").view(), "  1.50");
    EXPECT_EQ(iconv_value("21-NOV-2026", "D").view(), "21510");
}

TEST_F(ConvertEntries, FormatReportsItsStatus) {
    VAR status;
    const VAR text = "abc";
    for (const auto &[mask, expected_text, expected_status] :
         {std::tuple("L#5", "abc  ", VELDA_CONVERSION_DONE), std::tuple("R2#5", "  abc", VELDA_CONVERSION_BAD_VALUE),
          std::tuple("?", "abc", VELDA_CONVERSION_BAD_CODE), std::tuple("", "abc", VELDA_CONVERSION_BAD_CODE)}) {
        const VAR mask_cell = mask;
        EXPECT_EQ(VLibGFORMAT_BBBBB(dp, &target, &text, &mask_cell, &status), &target);
        EXPECT_EQ(target.view(), expected_text) << mask;
        EXPECT_EQ(status.to_integer(), expected_status) << mask;
    }
}

TEST_F(ConvertEntries, DtxWritesAnyBase) {
    struct Row {
        const char *number;
        const char *base;
        const char *expected;
    };
    const Row rows[] = {
        {"255", "16", "FF"},
        {"255", "", "FF"},
        {"255", "2", "11111111"},
        {"35", "36", "Z"},
        {"-8", "8", "-10"},
        {"0", "2", "0"},
        {"12.9", "16", "C"},
        {"abc", "16", ""},
        {"5", "1", ""},
        {"5", "37", ""},
        {"5", "x", ""},
        {"", "16", ""},
        {"-0.5", "16", "0"},
        {"340282366920938463463374607431768211456", "16", "100000000000000000000000000000000"},
    };
    for (const Row &row : rows) EXPECT_EQ(to_base(row.number, row.base).view(), row.expected) << row.number;
    const VAR number = 255;
    EXPECT_EQ(VLibGDTX_BBBB(dp, &target, &number, nullptr)->view(), "FF");
}

TEST_F(ConvertEntries, EbcdicBecomesAsciiAsTheCLibraryKnowsIt) {
    const iconv_t converter = iconv_open("LATIN1", "IBM037");
    ASSERT_NE(converter, reinterpret_cast<iconv_t>(-1));
    std::string ebcdic;
    for (int byte = 0; byte < 256; ++byte) ebcdic += static_cast<char>(byte);
    std::string expected(256, '\0');
    char *in = ebcdic.data();
    char *out = expected.data();
    std::size_t in_left = ebcdic.size();
    std::size_t out_left = expected.size();
    ASSERT_NE(::iconv(converter, &in, &in_left, &out, &out_left), static_cast<std::size_t>(-1));
    iconv_close(converter);
    const VAR source = ebcdic;
    EXPECT_EQ(VLibGASCII_BBB(dp, &target, &source), &target);
    EXPECT_EQ(target.view(), expected);
    const VAR hello = "\xC8\x85\x93\x93\x96";
    EXPECT_EQ(VLibGASCII_BBB(dp, &target, &hello)->view(), "Hello");
}
