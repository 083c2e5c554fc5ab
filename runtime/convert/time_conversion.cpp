// MT: times of day, and lengths of time on output.
#include "runtime/convert/conversion.h"
#include "runtime/convert/decimal_text.h"
#include "runtime/convert/text.h"

namespace velda::conversions {
namespace {

struct TimeCode {
    bool twelve_hours = false;  // H
    bool seconds = false;       // S
    char separator = ':';
};

constexpr int SecondsPerHour = 3600;
constexpr int SecondsPerMinute = 60;
constexpr int NoonHour = 12;
constexpr int LastHour = 24;

std::optional<TimeCode> parse_code(std::string_view rest) {
    TimeCode code;
    if (rest.starts_with('H')) {
        code.twelve_hours = true;
        rest.remove_prefix(1);
    }
    if (rest.starts_with('S')) {
        code.seconds = true;
        rest.remove_prefix(1);
    }
    if (rest.size() == 1 && !is_letter_or_digit(rest[0]) && !is_mark(rest[0])) {
        code.separator = rest[0];
        rest = {};
    }
    if (!rest.empty()) return std::nullopt;
    return code;
}

std::string two_digits(std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

std::string time_text(const TimeCode &code, std::int64_t seconds) {
    std::int64_t hours = seconds / SecondsPerHour;
    std::string_view half;
    if (code.twelve_hours) {
        half = hours % LastHour < NoonHour ? "AM" : "PM";
        hours = hours % NoonHour == 0 ? NoonHour : hours % NoonHour;
    }
    std::string result = two_digits(hours) + code.separator + two_digits(seconds / SecondsPerMinute % 60);
    if (code.seconds) result += code.separator + two_digits(seconds % SecondsPerMinute);
    return result.append(half);
}

// A length of time beyond a day shows its hours, "25:00"; a negative one has its sign in front.
Converted write_time(const TimeCode &code, std::string_view value) {
    if (value.empty()) return {};
    const auto number = DecimalText::parse(value);
    const auto seconds = number ? number->floor() : std::nullopt;
    if (!seconds) return unsuitable(value, Direction::Output);
    if (*seconds < 0) return {"-" + time_text(code, -*seconds)};
    return {time_text(code, *seconds)};
}

// --- input ---------------------------------------------------------------------------------------------------------

enum class Half { None, Morning, Afternoon };

// Takes "AM", "PM", "A" or "P", in either case, off the end.
Half take_half(std::string_view &text) {
    std::string_view head = text;
    if (!head.empty() && to_upper(head.back()) == 'M') head.remove_suffix(1);
    if (head.empty()) return Half::None;
    const char letter = to_upper(head.back());
    if (letter != 'A' && letter != 'P') return Half::None;
    text = without_outer_blanks(head.substr(0, head.size() - 1));
    return letter == 'A' ? Half::Morning : Half::Afternoon;
}

// Up to three numbers of one or two digits with one character that is no digit between each.
std::optional<int> seconds_of(std::string_view text, Half half) {
    constexpr int Units = 3;
    int unit[Units] = {};
    for (int at = 0; at < Units; ++at) {
        const std::string_view digits = take_digits(text);
        if (digits.empty() || digits.size() > 2) return std::nullopt;
        unit[at] = *small_number(digits);
        if (text.empty()) break;
        if (is_letter_or_digit(text[0]) || !is_printable(text[0]) || at == Units - 1) return std::nullopt;
        text.remove_prefix(1);
    }
    if (half != Half::None) {
        if (unit[0] < 1 || unit[0] > NoonHour) return std::nullopt;
        unit[0] = unit[0] % NoonHour + (half == Half::Afternoon ? NoonHour : 0);
    }
    if (unit[1] > 59 || unit[2] > 59) return std::nullopt;
    const int seconds = unit[0] * SecondsPerHour + unit[1] * SecondsPerMinute + unit[2];
    if (seconds > LastHour * SecondsPerHour) return std::nullopt;
    return seconds;
}

Converted read_time(std::string_view value) {
    if (value.empty()) return {};
    std::string_view text = without_outer_blanks(value);
    const Half half = take_half(text);
    const auto seconds = seconds_of(text, half);
    if (!seconds) return unsuitable(value, Direction::Input);
    return {std::to_string(*seconds)};
}

}  // namespace

CompiledStep compile_time(std::string_view rest) {
    const auto code = parse_code(rest);
    if (!code) return std::nullopt;
    return [code = *code](std::string_view value, Direction direction) {
        return direction == Direction::Output ? write_time(code, value) : read_time(value);
    };
}

}  // namespace velda::conversions
