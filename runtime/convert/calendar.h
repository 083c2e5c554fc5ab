// calendar.h - day numbers and dates of the Gregorian calendar. Private to the runtime.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace velda {

inline constexpr std::int64_t UnixEpochDay = 732;  // 1 January 1970; day 0 is 31 December 1967
inline constexpr int SecondsPerDay = 86400;

struct CivilDate {
    int year = 0;   // 1 to 9999
    int month = 0;  // 1 to 12
    int day = 0;    // 1 to 31
};

// The date of a day number; none outside the years 1 to 9999.
std::optional<CivilDate> civil_date(std::int64_t day_number);

// The day number of a date; none when the calendar has no such date, such as 29 February 2023 or month 13.
std::optional<std::int64_t> day_number(const CivilDate &date);

int day_of_year(const CivilDate &date);
int day_of_week(std::int64_t day_number);  // Monday is 1, Sunday 7

inline constexpr std::array<std::string_view, 12> MonthNames = {"JANUARY",   "FEBRUARY", "MARCH",    "APRIL",
                                                                "MAY",       "JUNE",     "JULY",     "AUGUST",
                                                                "SEPTEMBER", "OCTOBER",  "NOVEMBER", "DECEMBER"};

inline constexpr std::array<std::string_view, 7> WeekdayNames = {"MONDAY", "TUESDAY",  "WEDNESDAY", "THURSDAY",
                                                                 "FRIDAY", "SATURDAY", "SUNDAY"};

}  // namespace velda
