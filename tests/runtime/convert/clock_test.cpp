#include "runtime/convert/clock.h"

#include "tests/runtime/convert/fixture.h"

using namespace velda;
using velda::test::TimeZone;

namespace {
constexpr std::int64_t Moment = 1795269909;  // 21 November 2026, 14:05:09 UTC, day 21510
}

TEST(Clock, AFixedClockStandsStill) {
    const FixedClock clock(Moment, 5);
    EXPECT_EQ(utc_now().tv_sec, Moment);
    EXPECT_EQ(utc_now().tv_nsec, 5);
}

TEST(Clock, TheClockOfTheSystemRunsOtherwise) {
    const std::time_t before = std::time(nullptr);
    const std::time_t now = utc_now().tv_sec;
    EXPECT_GE(now, before - 1);
    EXPECT_LE(now, std::time(nullptr) + 1);
}

TEST(Clock, TheLocalDayAndTimeFollowTz) {
    struct Row {
        const char *zone;
        std::int64_t day;
        int seconds;
        std::int64_t offset;
    };
    const Row rows[] = {
        {"UTC", 21510, 50709, 0},
        {"XST-10:30", 21511, 2109, 37800},
        {"XST+15", 21509, 83109, -54000},
    };
    for (const Row &row : rows) {
        const TimeZone zone(row.zone);
        const LocalMoment local = local_moment(Moment);
        EXPECT_EQ(local.day, row.day) << row.zone;
        EXPECT_EQ(local.seconds, row.seconds) << row.zone;
        EXPECT_EQ(local.offset_seconds, row.offset) << row.zone;
    }
}

TEST(Clock, SummerTimeCountsByTheDate) {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(local_moment(Moment).offset_seconds, 3600);
    EXPECT_EQ(local_moment(1782864000).offset_seconds, 7200);  // 1 July 2026
}

TEST(Clock, MomentsBefore1970AndFarAwayHaveADay) {
    const TimeZone zone("UTC");
    EXPECT_EQ(local_moment(-1).day, 731);
    EXPECT_EQ(local_moment(-1).seconds, 86399);
    EXPECT_EQ(local_moment(-732LL * 86400).day, 0);
    EXPECT_EQ(local_moment(253402300799).day, 2933628);  // the last second of 9999
    EXPECT_GT(local_moment(INT64_MAX / 2).day, 0);
}
