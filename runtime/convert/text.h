// text.h - small questions about bytes that several conversions ask, beside those of value/classes.h.
#pragma once

#include <algorithm>
#include <optional>
#include <string_view>

#include "runtime/value/classes.h"
#include "runtime/vdefc.h"

namespace velda::conversions {

constexpr bool is_mark(char c) { return static_cast<unsigned char>(c) >= static_cast<unsigned char>(TM); }

// True also for "".
inline bool all_digits(std::string_view text) { return std::all_of(text.begin(), text.end(), is_digit); }

inline std::string_view without_outer_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Takes the digits that begin `text` off it and returns them.
inline std::string_view take_digits(std::string_view &text) {
    std::size_t count = 0;
    while (count < text.size() && is_digit(text[count])) ++count;
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

// The value of one to nine digits; none for anything else.
inline std::optional<int> small_number(std::string_view digits) {
    if (digits.empty() || digits.size() > 9 || !all_digits(digits)) return std::nullopt;
    int value = 0;
    for (const char digit : digits) value = value * 10 + (digit - '0');
    return value;
}

}  // namespace velda::conversions
