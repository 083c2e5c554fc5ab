#include "runtime/convert/calendar.h"

#include <chrono>

namespace velda {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

namespace {
constexpr int FirstYear = 1;
constexpr int LastYear = 9999;

constexpr year_month_day calendar_day(const CivilDate &date) {
    return year_month_day(std::chrono::year(date.year), std::chrono::month(static_cast<unsigned>(date.month)),
                          std::chrono::day(static_cast<unsigned>(date.day)));
}

constexpr std::int64_t number_of(const year_month_day &date) {
    return sys_days(date).time_since_epoch().count() + UnixEpochDay;
}

constexpr std::int64_t FirstDay = number_of(calendar_day({FirstYear, 1, 1}));
constexpr std::int64_t LastDay = number_of(calendar_day({LastYear, 12, 31}));
static_assert(number_of(calendar_day({1967, 12, 31})) == 0);
}  // namespace

std::optional<CivilDate> civil_date(std::int64_t day_number) {
    if (day_number < FirstDay || day_number > LastDay) return std::nullopt;
    const year_month_day date{sys_days(days(day_number - UnixEpochDay))};
    return CivilDate{static_cast<int>(date.year()), static_cast<int>(static_cast<unsigned>(date.month())),
                     static_cast<int>(static_cast<unsigned>(date.day()))};
}

std::optional<std::int64_t> day_number(const CivilDate &date) {
    if (date.year < FirstYear || date.year > LastYear || date.month < 1 || date.month > 12) return std::nullopt;
    if (date.day < 1 || date.day > 31) return std::nullopt;
    const year_month_day day = calendar_day(date);
    if (!day.ok()) return std::nullopt;
    return number_of(day);
}

int day_of_year(const CivilDate &date) {
    return static_cast<int>(number_of(calendar_day(date)) - number_of(calendar_day({date.year, 1, 1}))) + 1;
}

int day_of_week(std::int64_t day_number) {
    // Day 0 was a Sunday.
    const int after_sunday = static_cast<int>(((day_number % 7) + 7) % 7);
    return after_sunday == 0 ? 7 : after_sunday;
}

}  // namespace velda
