#include "runtime/convert/number_format.h"

#include "runtime/convert/text.h"

namespace velda::conversions {
namespace {

// What stands around the digits of a negative and of any other number.
struct SignStyle {
    char letter;
    std::string_view before_negative, after_negative;
    std::string_view before_positive, after_positive;
};
constexpr SignStyle SignStyles[] = {
    {0, "-", "", "", ""},     {'C', "", "CR", "", "  "}, {'D', "", "  ", "", "DB"},
    {'E', "<", ">", "", " "}, {'M', "", "-", "", " "},   {'N', "", "", "", ""},
};

const SignStyle *sign_style(char letter) {
    for (const SignStyle &style : SignStyles) {
        if (style.letter == letter) return &style;
    }
    return nullptr;
}

std::string with_thousands(std::string digits) {
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
    return digits;
}

bool take_leading_sign(std::string_view &text) {
    if (!text.starts_with('-') && !text.starts_with('<')) return false;
    text.remove_prefix(1);
    return true;
}

// Takes what the sign styles put behind a number; true when it means below zero.
bool take_trailing_sign(std::string_view &text) {
    for (const SignStyle &style : SignStyles) {
        for (const std::string_view mark : {style.after_negative, style.after_positive}) {
            if (without_outer_blanks(mark).empty() || !text.ends_with(mark)) continue;
            text.remove_suffix(mark.size());
            return mark == style.after_negative;
        }
    }
    return false;
}

bool take_option(char letter, NumberFormat &format) {
    switch (letter) {
        case 'Z':
            return format.blank_when_zero = true;
        case ',':
            return format.thousands = true;
        case '$':
            return format.currency = true;
        default:
            break;
    }
    if (letter == 0 || !sign_style(letter)) return false;
    format.sign_style = letter;
    return true;
}

}  // namespace

NumberFormat NumberFormat::take(std::string_view &text, bool scale_is_decimals) {
    NumberFormat format;
    const auto digit = [&]() -> std::optional<int> {
        if (text.empty() || !is_digit(text[0])) return std::nullopt;
        const int value = text[0] - '0';
        text.remove_prefix(1);
        return value;
    };
    format.decimals = digit();
    const auto scale = format.decimals ? digit() : std::nullopt;
    format.scale = scale.value_or(scale_is_decimals ? format.decimals.value_or(0) : 0);
    while (!text.empty() && take_option(text[0], format)) text.remove_prefix(1);
    return format;
}

std::string NumberFormat::write(DecimalText number) const {
    number.shift(-scale);
    if (decimals) number.round(*decimals);
    if (blank_when_zero && number.is_zero()) return {};
    std::string digits = number.integer_digits();
    if (thousands) digits = with_thousands(std::move(digits));
    if (!number.fraction_digits().empty()) digits.append(".").append(number.fraction_digits());
    if (currency) digits.insert(0, 1, '$');
    const SignStyle &style = *conversions::sign_style(sign_style);
    const bool negative = number.is_negative();
    digits.insert(0, negative ? style.before_negative : style.before_positive);
    return digits.append(negative ? style.after_negative : style.after_positive);
}

std::optional<std::string> NumberFormat::read(std::string_view text) const {
    text = without_outer_blanks(text);
    const bool leading_sign = take_leading_sign(text);
    const bool negative = take_trailing_sign(text) || leading_sign;
    std::string digits = negative ? "-" : "";
    for (const char c : text) {
        if (c != '$' && c != ',') digits += c;
    }
    auto number = DecimalText::parse(digits);
    if (!number) return std::nullopt;
    number->shift(scale);
    number->round(0);
    return number->text();
}

}  // namespace velda::conversions
