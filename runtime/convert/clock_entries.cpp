// The entries for date and time.
#include <array>
#include <cinttypes>
#include <cstdio>

#include "runtime/convert/calendar.h"
#include "runtime/convert/clock.h"
#include "runtime/convert/conversion.h"
#include "runtime/convert/convert.h"
#include "runtime/process/context.h"

using velda::LocalMoment;
using velda::conversions::Conversion;
using velda::conversions::Direction;

namespace {

// "Www Mmm dd hh:mm:ss yyyy", a line feed and the zero byte, with room for a year of any size.
struct AscTimeText {
    std::array<char, 64> bytes{};
};

bool in_range(const std::tm &time) {
    return time.tm_wday >= 0 && time.tm_wday <= 6 && time.tm_mon >= 0 && time.tm_mon <= 11 && time.tm_mday >= 1 &&
           time.tm_mday <= 31 && time.tm_hour >= 0 && time.tm_hour <= 23 && time.tm_min >= 0 && time.tm_min <= 59 &&
           time.tm_sec >= 0 && time.tm_sec <= 60;
}

std::string output(const char *code, std::int64_t value) {
    return Conversion(code).run(std::to_string(value), Direction::Output).text;
}

}  // namespace

extern "C" {

int VLibGInternalLocalDate(DP *) { return static_cast<int>(velda::local_now().day); }

int VLibGInternalLocalTime(DP *) { return velda::local_now().seconds; }

int VLibGInternalLocalTimeFromUTCt(DP *, int64_t utc_seconds) {
    constexpr std::int64_t Day = velda::SecondsPerDay;
    const std::int64_t utc_time_of_day = (utc_seconds % Day + Day) % Day;
    return static_cast<int>(utc_time_of_day + velda::local_moment(utc_seconds).offset_seconds);
}

void VELDAConvertUnixTimeToVELDA(DP *, int64_t utc_seconds, int *day, int *seconds) {
    const LocalMoment local = velda::local_moment(utc_seconds);
    if (day) *day = static_cast<int>(local.day);
    if (seconds) *seconds = local.seconds;
}

VAR *VLibGTIMEDATE_BB(DP *, VAR *target) {
    const LocalMoment local = velda::local_now();
    const std::string text = output("MTS", local.seconds) + " " + output("D", local.day);
    *target = std::string_view(text);
    return target;
}

VAR *VLibGTIMESTAMP_BB(DP *, VAR *target) {
    constexpr long NanosecondsPerUnit = 100'000;
    const std::timespec now = velda::utc_now();
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%" PRId64 ".%04ld", static_cast<std::int64_t>(now.tv_sec),
                  now.tv_nsec / NanosecondsPerUnit);
    *target = text.data();
    return target;
}

const char *VELDAAscTime(DP *dp, const struct tm *time) {
    static constexpr const char *Days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char *Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    auto &text = dp->state<AscTimeText>().bytes;
    text[0] = 0;
    if (!time || !in_range(*time)) return text.data();
    std::snprintf(text.data(), text.size(), "%s %s %2d %02d:%02d:%02d %lld\n", Days[time->tm_wday],
                  Months[time->tm_mon], time->tm_mday, time->tm_hour, time->tm_min, time->tm_sec,
                  1900LL + time->tm_year);
    return text.data();
}

}  // extern "C"
