#include "runtime/convert/decimal_text.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "runtime/convert/text.h"
#include "runtime/value/numeric_text.h"

namespace velda::conversions {

std::optional<DecimalText> DecimalText::parse(std::string_view text) {
    const NumericText number = parse_numeric(without_outer_blanks(text));
    if (!number.numeric) return std::nullopt;
    DecimalText result;
    result.negative_ = number.negative;
    result.digits_.append(number.whole.empty() ? "0" : number.whole).append(number.fraction);
    result.places_ = number.fraction.size();
    return result;
}

void DecimalText::shift(int power) {
    if (power >= 0) {
        const auto up = static_cast<std::size_t>(power);
        if (up > places_) digits_.append(up - places_, '0');
        places_ -= std::min(up, places_);
        return;
    }
    places_ += static_cast<std::size_t>(-power);
    if (digits_.size() <= places_) digits_.insert(0, places_ + 1 - digits_.size(), '0');
}

void DecimalText::round(int places) {
    const auto wanted = static_cast<std::size_t>(places);
    if (places_ <= wanted) {
        digits_.append(wanted - places_, '0');
        places_ = wanted;
        return;
    }
    const std::size_t kept = digits_.size() - (places_ - wanted);
    const bool up = digits_[kept] >= '5';
    digits_.resize(kept);
    places_ = wanted;
    if (!up) return;
    for (std::size_t at = kept; at-- > 0;) {
        if (digits_[at] != '9') {
            ++digits_[at];
            return;
        }
        digits_[at] = '0';
    }
    digits_.insert(0, 1, '1');
}

std::string DecimalText::integer_digits() const {
    const std::string_view integer = std::string_view(digits_).substr(0, digits_.size() - places_);
    const std::size_t first = integer.find_first_not_of('0');
    return first == std::string_view::npos ? "0" : std::string(integer.substr(first));
}

std::string DecimalText::fraction_digits() const { return digits_.substr(digits_.size() - places_); }

std::string DecimalText::text() const {
    std::string result = is_negative() ? "-" : "";
    result += integer_digits();
    if (places_ > 0) result.append(".").append(fraction_digits());
    return result;
}

std::optional<std::int64_t> DecimalText::floor() const {
    const std::string integer = integer_digits();
    constexpr std::size_t SafeDigits = 18;
    if (integer.size() > SafeDigits) return std::nullopt;
    std::int64_t value = 0;
    std::from_chars(integer.data(), integer.data() + integer.size(), value);
    if (!is_negative()) return value;
    const bool has_fraction = fraction_digits().find_first_not_of('0') != std::string::npos;
    return has_fraction ? -value - 1 : -value;
}

namespace {

constexpr std::string_view DigitNames = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Rewrites digits of one base (values, most significant first) in another, by repeated division.
std::vector<std::uint32_t> rebase(std::vector<std::uint32_t> digits, std::uint32_t from, std::uint32_t to) {
    std::vector<std::uint32_t> result;
    auto first = digits.begin();
    while (first != digits.end()) {
        std::uint64_t remainder = 0;
        for (auto digit = first; digit != digits.end(); ++digit) {
            const std::uint64_t value = remainder * from + *digit;
            *digit = static_cast<std::uint32_t>(value / to);
            remainder = value % to;
        }
        result.push_back(static_cast<std::uint32_t>(remainder));
        first = std::find_if(first, digits.end(), [](std::uint32_t digit) { return digit != 0; });
    }
    std::reverse(result.begin(), result.end());
    return result;
}

std::optional<std::uint32_t> digit_value(char character, int base) {
    const std::size_t value = DigitNames.find(to_upper(character));
    if (value == std::string_view::npos || value >= static_cast<std::size_t>(base)) return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

std::optional<std::string> change_base(std::string_view digits, int from, int to) {
    if (digits.empty() || digits.size() > MaximumRadixDigits) return std::nullopt;
    std::vector<std::uint32_t> values;
    for (const char character : digits) {
        const auto value = digit_value(character, from);
        if (!value) return std::nullopt;
        values.push_back(*value);
    }
    std::string result;
    for (const std::uint32_t value : rebase(std::move(values), from, to)) result += DigitNames[value];
    const std::size_t first = result.find_first_not_of('0');
    return first == std::string::npos ? "0" : result.substr(first);
}

}  // namespace

std::optional<std::string> to_base(const DecimalText &number, int base) {
    auto digits = change_base(number.integer_digits(), 10, base);
    if (digits && number.is_negative() && *digits != "0") digits->insert(0, 1, '-');
    return digits;
}

std::optional<std::string> from_base(std::string_view digits, int base) {
    const bool negative = !digits.empty() && digits[0] == '-';
    auto result = change_base(digits.substr(negative ? 1 : 0), base, 10);
    if (result && negative && *result != "0") result->insert(0, 1, '-');
    return result;
}

}  // namespace velda::conversions
