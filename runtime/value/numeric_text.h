// numeric_text.h - which texts are numbers, and their digits. Private to the runtime.
#pragma once

#include <cstddef>
#include <string_view>

#include "runtime/value/classes.h"

namespace velda {

// A numeric text taken apart: leading zeros of the whole part and trailing zeros of the fraction are left out, so zero
// has neither. `negative` tells the sign as written, also of "-0".
struct NumericText {
    bool numeric = false;
    bool negative = false;
    std::string_view whole;
    std::string_view fraction;

    constexpr bool is_zero() const { return whole.empty() && fraction.empty(); }
};

constexpr std::string_view without_leading_zeros(std::string_view digits) {
    while (!digits.empty() && digits.front() == '0') digits.remove_prefix(1);
    return digits;
}

constexpr std::string_view without_trailing_zeros(std::string_view digits) {
    while (!digits.empty() && digits.back() == '0') digits.remove_suffix(1);
    return digits;
}

// An optional sign, digits, an optional point and digits, but not nothing: ".", "-" and "+" are numeric and zero.
constexpr NumericText parse_numeric(std::string_view text) {
    NumericText result;
    if (text.empty()) return result;
    std::size_t at = text.front() == '-' || text.front() == '+';
    const std::size_t whole_begin = at;
    while (at < text.size() && is_digit(text[at])) ++at;
    const std::size_t whole_end = at;
    if (at < text.size() && text[at] == '.') ++at;
    const std::size_t fraction_begin = at;
    if (fraction_begin > whole_end)
        while (at < text.size() && is_digit(text[at])) ++at;
    if (at < text.size()) return result;
    result.numeric = true;
    result.negative = text.front() == '-';
    result.whole = without_leading_zeros(text.substr(whole_begin, whole_end - whole_begin));
    result.fraction = without_trailing_zeros(text.substr(fraction_begin));
    return result;
}

// True when a number of that value is written exactly as `text`, which `parsed` was made from; its size is not looked
// at.
constexpr bool is_canonical_spelling(std::string_view text, const NumericText &parsed) {
    if (parsed.is_zero()) return text == "0";
    if (text.front() == '+') return false;
    if (!parsed.fraction.empty() && text.back() == '0') return false;
    const std::size_t whole_length = parsed.whole.empty() ? 1 : parsed.whole.size();
    const std::size_t fraction_length = parsed.fraction.empty() ? 0 : parsed.fraction.size() + 1;
    return text.size() == parsed.negative + whole_length + fraction_length;
}

}  // namespace velda
