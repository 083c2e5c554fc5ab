// D: dates. A code is compiled into a DateCode; dates that people write are read as tokens, runs of digits or letters.
#include "runtime/convert/calendar.h"
#include "runtime/convert/clock.h"
#include "runtime/convert/conversion.h"
#include "runtime/convert/decimal_text.h"
#include "runtime/convert/text.h"

namespace velda::conversions {
namespace {

enum class DatePart { Whole, Day, Month, MonthName, Year, Quarter, Weekday, WeekdayName, DayOfYear };

struct DateCode {
    DatePart part = DatePart::Whole;
    int year_digits = 4;
    char separator = 0;      // 0: "21 NOV 2026"; else the month is a number
    bool day_first = false;  // E: day before month
};

struct PartName {
    std::string_view code;
    DatePart part;
};
constexpr PartName PartNames[] = {
    {"D", DatePart::Day},     {"M", DatePart::Month},        {"MA", DatePart::MonthName}, {"Q", DatePart::Quarter},
    {"W", DatePart::Weekday}, {"WA", DatePart::WeekdayName}, {"J", DatePart::DayOfYear},  {"Y", DatePart::Year},
    {"Y2", DatePart::Year},   {"Y4", DatePart::Year},
};

constexpr int MaximumYearDigits = 4;
// Two digits name a year from 1930 to 2029.
constexpr int FirstYearOfLastCentury = 30;

std::optional<DateCode> parse_code(std::string_view rest) {
    DateCode code;
    for (const PartName &name : PartNames) {
        if (rest != name.code) continue;
        code.part = name.part;
        if (is_digit(rest.back())) code.year_digits = rest.back() - '0';
        return code;
    }
    if (!rest.empty() && is_digit(rest[0])) {
        code.year_digits = rest[0] - '0';
        if (code.year_digits > MaximumYearDigits) return std::nullopt;
        rest.remove_prefix(1);
    }
    if (!rest.empty() && !is_letter_or_digit(rest[0]) && !is_mark(rest[0])) {
        code.separator = rest[0];
        rest.remove_prefix(1);
    }
    if (rest == "E") {
        code.day_first = true;
        rest = {};
    }
    if (!rest.empty()) return std::nullopt;
    return code;
}

// --- output --------------------------------------------------------------------------------------------------------

// The last `width` digits of `number`, with zeros in front.
std::string padded(int number, int width) {
    std::string digits(static_cast<std::size_t>(width), '0');
    for (std::size_t at = digits.size(); at-- > 0; number /= 10) digits[at] = static_cast<char>('0' + number % 10);
    return digits;
}

std::string whole_date(const DateCode &code, const CivilDate &date) {
    const std::string separator(1, code.separator ? code.separator : ' ');
    const std::string day = padded(date.day, 2);
    std::string result;
    if (code.separator == 0)
        result = day + separator + std::string(MonthNames[static_cast<std::size_t>(date.month) - 1].substr(0, 3));
    else if (code.day_first)
        result = day + separator + padded(date.month, 2);
    else
        result = padded(date.month, 2) + separator + day;
    if (code.year_digits > 0) result += separator + padded(date.year, code.year_digits);
    return result;
}

std::string date_text(const DateCode &code, const CivilDate &date, std::int64_t number) {
    switch (code.part) {
        case DatePart::Whole:
            return whole_date(code, date);
        case DatePart::Day:
            return padded(date.day, 2);
        case DatePart::Month:
            return padded(date.month, 2);
        case DatePart::MonthName:
            return std::string(MonthNames[static_cast<std::size_t>(date.month) - 1]);
        case DatePart::Year:
            return padded(date.year, code.year_digits);
        case DatePart::Quarter:
            return std::to_string((date.month + 2) / 3);
        case DatePart::Weekday:
            return std::to_string(day_of_week(number));
        case DatePart::WeekdayName:
            return std::string(WeekdayNames[static_cast<std::size_t>(day_of_week(number)) - 1]);
        case DatePart::DayOfYear:
            return std::to_string(day_of_year(date));
    }
    return {};
}

Converted write_date(const DateCode &code, std::string_view value) {
    if (value.empty()) return {};
    const auto number = DecimalText::parse(value);
    const auto day = number ? number->floor() : std::nullopt;
    const auto date = day ? civil_date(*day) : std::nullopt;
    if (!date) return unsuitable(value, Direction::Output);
    return {date_text(code, *date, *day)};
}

// --- input ---------------------------------------------------------------------------------------------------------

constexpr std::size_t MaximumTokens = 3;

struct Tokens {
    std::string_view token[MaximumTokens];
    std::size_t count = 0;
    char separator = 0;  // the first one, 0 when there is none
};

std::string_view take_token(std::string_view &text) {
    const bool digits = is_digit(text[0]);
    std::size_t length = 1;
    while (length < text.size() && (digits ? is_digit(text[length]) : is_letter(text[length]))) ++length;
    const std::string_view token = text.substr(0, length);
    text.remove_prefix(length);
    return token;
}

// Up to three runs of digits or letters with separators of punctuation between them.
std::optional<Tokens> split_date(std::string_view text) {
    Tokens tokens;
    text = without_outer_blanks(text);
    while (!text.empty()) {
        if (!is_letter_or_digit(text[0]) || tokens.count == MaximumTokens) return std::nullopt;
        tokens.token[tokens.count++] = take_token(text);
        while (!text.empty() && is_printable(text[0]) && !is_letter_or_digit(text[0])) {
            if (!tokens.separator) tokens.separator = text[0];
            text.remove_prefix(1);
            if (text.empty()) return std::nullopt;
        }
    }
    return tokens;
}

// A month by at least three letters of its name; 0 when there is none.
int month_of_name(std::string_view name) {
    constexpr std::size_t ShortestName = 3;
    if (name.size() < ShortestName) return 0;
    for (std::size_t month = 0; month < MonthNames.size(); ++month) {
        const std::string_view whole = MonthNames[month].substr(0, name.size());
        const auto same = [](char a, char b) { return a == to_upper(b); };
        if (std::equal(whole.begin(), whole.end(), name.begin(), name.end(), same)) return static_cast<int>(month) + 1;
    }
    return 0;
}

std::optional<int> year_of(std::string_view digits) {
    const auto number = small_number(digits);
    if (!number || digits.size() == 3 || digits.size() > 4) return std::nullopt;
    if (digits.size() == 4) return number;
    return *number < FirstYearOfLastCentury ? *number + 2000 : *number + 1900;
}

// A date without a year is one of this year.
std::optional<int> year_or_this(std::string_view digits) {
    if (!digits.empty()) return year_of(digits);
    const auto today = civil_date(local_now().day);
    return today ? std::optional<int>(today->year) : std::nullopt;
}

std::optional<std::int64_t> checked_date(std::optional<int> year, std::optional<int> month, std::optional<int> day) {
    if (!year || !month || !day) return std::nullopt;
    return day_number({*year, *month, *day});
}

// "21 NOV 2026", "NOV 21 2026", "2026 NOV 21"; the year may be missing behind the first two.
std::optional<std::int64_t> named_month_date(const Tokens &tokens, std::size_t month_at) {
    const int month = month_of_name(tokens.token[month_at]);
    if (month == 0 || tokens.count < 2 || month_at > 1) return std::nullopt;
    std::string_view day = tokens.token[month_at == 0 ? 1 : 0];
    std::string_view year = tokens.count == MaximumTokens ? tokens.token[2] : std::string_view();
    if (day.size() == 4) std::swap(day, year);
    if (!all_digits(day) || !all_digits(year) || day.size() > 2) return std::nullopt;
    return checked_date(year_or_this(year), month, small_number(day));
}

// Which of two numbers is the day. E puts it first. A code with a separator reads what it writes, month first. A plain
// code goes by what was written: 21-11-2026 and 21.11.2026 have the day first, 11/21/2026 the month.
bool day_comes_first(const DateCode &code, char separator) {
    if (code.day_first) return true;
    return code.separator == 0 && (separator == '-' || separator == '.');
}

// "11/21/2026", "21-11-2026", "2026-11-21", "11/21". An order that gives no month is turned round.
std::optional<std::int64_t> numeric_date(const DateCode &code, const Tokens &tokens) {
    const auto &token = tokens.token;
    if (tokens.count == MaximumTokens && token[0].size() == 4)
        return checked_date(year_of(token[0]), small_number(token[1]), small_number(token[2]));
    if (tokens.count < 2 || token[0].size() > 2 || token[1].size() > 2) return std::nullopt;
    auto month = small_number(token[0]);
    auto day = small_number(token[1]);
    if (day_comes_first(code, tokens.separator)) std::swap(month, day);
    constexpr int LastMonth = 12;
    if (*month > LastMonth) std::swap(month, day);
    return checked_date(year_or_this(token[2]), month, day);
}

// "20261121"
std::optional<std::int64_t> compact_date(std::string_view digits) {
    constexpr std::size_t CompactLength = 8;
    if (digits.size() != CompactLength || !all_digits(digits)) return std::nullopt;
    return checked_date(year_of(digits.substr(0, 4)), small_number(digits.substr(4, 2)),
                        small_number(digits.substr(6, 2)));
}

std::optional<std::int64_t> parse_date(const DateCode &code, std::string_view text) {
    const auto tokens = split_date(text);
    if (!tokens || tokens->count == 0) return std::nullopt;
    if (tokens->count == 1) return compact_date(tokens->token[0]);
    for (std::size_t at = 0; at < tokens->count; ++at) {
        if (is_letter(tokens->token[at][0])) return named_month_date(*tokens, at);
    }
    return numeric_date(code, *tokens);
}

Converted read_date(const DateCode &code, std::string_view value) {
    if (value.empty()) return {};
    const auto number = parse_date(code, value);
    if (!number) return unsuitable(value, Direction::Input);
    return {std::to_string(*number)};
}

}  // namespace

CompiledStep compile_date(std::string_view rest) {
    const auto code = parse_code(rest);
    if (!code) return std::nullopt;
    return [code = *code](std::string_view value, Direction direction) {
        return direction == Direction::Output ? write_date(code, value) : read_date(code, value);
    };
}

}  // namespace velda::conversions
