#include "runtime/value/number.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "runtime/value/buffer.h"

namespace velda {

namespace {

constexpr std::size_t SafeWholeDigits = 19;  // any number of so many digits fits 64 bits without a sign

// Writes digits with a point `decimals` places from their end; trailing zeros of the fraction go. `digits` has no sign
// and no leading zeros, zero being "0" or "". Returns the text in `target`.
std::string_view place_point(bool negative, std::string_view digits, std::size_t decimals, char *target) {
    const std::size_t whole_length = digits.size() > decimals ? digits.size() - decimals : 0;
    const std::size_t leading_zeros = digits.size() < decimals ? decimals - digits.size() : 0;
    const std::string_view whole = digits.substr(0, whole_length);
    const std::string_view fraction = without_trailing_zeros(digits.substr(whole_length));
    char *at = target;
    if (negative && !(without_leading_zeros(whole).empty() && fraction.empty())) *at++ = '-';
    if (whole.empty()) *at++ = '0';
    at = std::copy(whole.begin(), whole.end(), at);
    if (!fraction.empty()) {
        *at++ = '.';
        at = std::fill_n(at, leading_zeros, '0');
        at = std::copy(fraction.begin(), fraction.end(), at);
    }
    return {target, static_cast<std::size_t>(at - target)};
}

std::string_view format_image(double image, std::size_t precision, char *target) {
    constexpr std::size_t MostDecimals = 18;  // what the target has room for beside the longest whole part
    if (!std::isfinite(image)) return place_point(false, "", 0, target);
    char digits[MaximumNumberText];
    const int length = std::snprintf(digits, sizeof digits, "%.0f", std::fabs(image));
    return place_point(image < 0, {digits, static_cast<std::size_t>(length)}, std::min(precision, MostDecimals),
                       target);
}

// The digits of a value without a sign, from the end of `buffer` backwards.
std::string_view unsigned_digits(unsigned __int128 value, char (&buffer)[40]) {
    char *const end = buffer + sizeof buffer;
    char *at = end;
    for (; value > UINT64_MAX; value /= 10) *--at = static_cast<char>('0' + static_cast<int>(value % 10));
    for (auto rest = static_cast<std::uint64_t>(value); rest; rest /= 10) *--at = static_cast<char>('0' + rest % 10);
    return {at, static_cast<std::size_t>(end - at)};
}

bool is_exact_image(double image) {
    return std::fabs(image) <= static_cast<double>(ExactImage) &&
           image == static_cast<double>(static_cast<std::int64_t>(image));
}

// The nearest double to the value times 10000, for a text that no integer holds.
double image_of_long(const NumericText &text) {
    std::string spelled = text.negative ? "-" : "";
    spelled.append(text.whole).append(".").append(text.fraction).append("e4");
    double image = 0;
    if (std::from_chars(spelled.data(), spelled.data() + spelled.size(), image).ec == std::errc::result_out_of_range)
        image = text.whole.empty() ? 0.0 : HUGE_VAL * (text.negative ? -1 : 1);
    return image;
}

// Keeps the number beside the string that it was found in.
void keep_number(const VAR &cell, std::string_view text, const NumericText &parsed) {
    Scaled scaled;
    std::uint16_t form = VELDA_FORM_NONCANONICAL;
    cell.integer = 0;
    if (scale_text(parsed, scaled)) {
        cell.image = scaled == 0 && parsed.negative ? -0.0 : static_cast<double>(scaled);
        const Scaled whole = scaled / ScaleFactor;
        const bool fits = parsed.fraction.empty() ? whole >= INT64_MIN && whole <= INT64_MAX
                                                  : scaled >= -ExactImage && scaled <= ExactImage;
        if (fits && is_canonical_spelling(text, parsed)) {
            form = VELDA_FORM_CANONICAL;
            if (parsed.fraction.empty()) {
                form |= VELDA_FORM_INTEGER;
                cell.integer = static_cast<std::int64_t>(whole);
            }
        }
    } else {
        cell.image = image_of_long(parsed);
    }
    cell.precision = VELDA_PRECISION;
    cell.form |= form;
}

bool has_number(const VAR &cell) { return cell.form & (VELDA_FORM_INTEGER | VELDA_MASK_HAS_IMAGE); }

bool has_text(const VAR &cell) { return cell.form & (VELDA_FORM_OWNED | VELDA_FORM_CONSTANT | VELDA_FORM_INDIRECT); }

Number scaled_number(Scaled value) {
    Number result;
    result.numeric = true;
    result.scaled = value;
    return result;
}

int compare_digits(std::string_view left, std::string_view right) {
    const int order = left.compare(right);
    return (order > 0) - (order < 0);
}

// Without regard to sign: whole parts have no leading zeros, so the longer one is greater.
int compare_magnitudes(const NumericText &left, const NumericText &right) {
    if (left.whole.size() != right.whole.size()) return left.whole.size() < right.whole.size() ? -1 : 1;
    if (const int order = compare_digits(left.whole, right.whole)) return order;
    return compare_digits(left.fraction, right.fraction);
}

int compare_texts(const NumericText &left, const NumericText &right) {
    const bool left_negative = left.negative && !left.is_zero();
    const bool right_negative = right.negative && !right.is_zero();
    if (left_negative != right_negative) return left_negative ? -1 : 1;
    return left_negative ? compare_magnitudes(right, left) : compare_magnitudes(left, right);
}

}  // namespace

bool scale_text(const NumericText &text, Scaled &scaled) {
    if (text.whole.size() > SafeWholeDigits || text.fraction.size() > ScaleDecimals) return false;
    std::uint64_t whole = 0;
    for (char digit : text.whole) whole = whole * 10 + static_cast<std::uint64_t>(digit - '0');
    int fraction = 0;
    for (std::size_t place = 0; place < ScaleDecimals; ++place)
        fraction = fraction * 10 + (place < text.fraction.size() ? text.fraction[place] - '0' : 0);
    scaled = static_cast<Scaled>(whole) * ScaleFactor + fraction;
    if (text.negative) scaled = -scaled;
    return true;
}

bool is_numeric(const VAR &cell) {
    if (has_number(cell)) return true;
    if (cell.formExtra & VELDA_EXTRA_CONSTANT || !has_text(cell)) return false;
    const std::string_view text = text_of(cell);
    const NumericText parsed = parse_numeric(text);
    if (parsed.numeric && cell.form != VELDA_FORM_LIST) keep_number(cell, text, parsed);
    return parsed.numeric;
}

Number number_of(const VAR &cell) {
    if (cell.form & VELDA_FORM_INTEGER) return scaled_number(static_cast<Scaled>(cell.integer) * ScaleFactor);
    const bool image_tells = cell.form & (VELDA_FORM_IMAGE | VELDA_FORM_CANONICAL) && cell.precision == VELDA_PRECISION;
    if (image_tells && is_exact_image(cell.image)) return scaled_number(static_cast<std::int64_t>(cell.image));
    Number result;
    result.text = parse_numeric(text_of(cell));
    result.numeric = result.text.numeric;
    result.is_scaled = !result.numeric || scale_text(result.text, result.scaled);
    return result;
}

int compare_numbers(const Number &left, const Number &right) {
    if (left.is_scaled && right.is_scaled) return (left.scaled > right.scaled) - (left.scaled < right.scaled);
    char digits[MaximumNumberText];
    if (left.is_scaled) return compare_texts(parse_numeric(format_scaled(left.scaled, digits)), right.text);
    if (right.is_scaled) return compare_texts(left.text, parse_numeric(format_scaled(right.scaled, digits)));
    return compare_texts(left.text, right.text);
}

std::int64_t integer_part(const Number &number) {
    Scaled value = number.scaled / ScaleFactor;
    if (!number.is_scaled) {
        NumericText whole = number.text;
        whole.fraction = {};
        if (!scale_text(whole, value)) return whole.negative ? INT64_MIN : INT64_MAX;
        value /= ScaleFactor;
    }
    if (value > INT64_MAX) return INT64_MAX;
    if (value < INT64_MIN) return INT64_MIN;
    return static_cast<std::int64_t>(value);
}

std::string_view format_scaled(Scaled value, char (&digits)[MaximumNumberText]) {
    char buffer[40];
    const bool negative = value < 0;
    const auto magnitude = negative ? -static_cast<unsigned __int128>(value) : static_cast<unsigned __int128>(value);
    return place_point(negative, unsigned_digits(magnitude, buffer), ScaleDecimals, digits);
}

std::string_view format_number(const VAR &cell, char (&digits)[MaximumNumberText]) {
    if (cell.form & VELDA_FORM_INTEGER) {
        const auto result = std::to_chars(digits, digits + sizeof digits, cell.integer);
        return {digits, static_cast<std::size_t>(result.ptr - digits)};
    }
    return format_image(cell.image, cell.precision, digits);
}

void store_scaled(VAR &target, Scaled value) {
    const Scaled whole = value / ScaleFactor;
    if (whole * ScaleFactor == value && whole >= INT64_MIN && whole <= INT64_MAX) {
        velda_store_integer(nullptr, &target, static_cast<std::int64_t>(whole));
    } else if (value >= -ExactImage && value <= ExactImage) {
        release_cell(target);
        target.form = VELDA_FORM_IMAGE;
        target.formExtra = 0;
        target.precision = VELDA_PRECISION;
        target.image = static_cast<double>(value);
    } else {
        char digits[MaximumNumberText];
        store_text(target, format_scaled(value, digits));
    }
}

void store_float(VAR &target, double value) {
    const double image = std::round(value * VELDA_SCALE);
    if (std::fabs(image) <= static_cast<double>(ExactImage)) {
        store_scaled(target, static_cast<std::int64_t>(image));
        return;
    }
    release_cell(target);
    target.form = VELDA_FORM_IMAGE;
    target.formExtra = 0;
    target.precision = VELDA_PRECISION;
    target.image = image;
}

}  // namespace velda

using namespace velda;

int VLibDNUM_IB(DP *, const VAR *value) { return is_numeric(*value); }

int VLibBCONVCOND_IB(DP *, const VAR *value) {
    if (!(value->form & VELDA_FORM_INTEGER) && !is_numeric(*value)) return !text_of(*value).empty();
    return (value->form & VELDA_MASK_HAS_IMAGE) ? value->image != 0.0 : number_of(*value).scaled != 0;
}

int64_t velda_to_integer(const VAR *value) { return integer_part(number_of(*value)); }

int VLibBCONV_IB(DP *, const VAR *value) {
    const std::int64_t whole = velda_to_integer(value);
    if (whole > INT32_MAX) return INT32_MAX;
    if (whole < INT32_MIN) return INT32_MIN;
    return static_cast<int>(whole);
}

double VLibBCONV_FB(DP *, const VAR *value) {
    if (value->form & VELDA_FORM_INTEGER) return static_cast<double>(value->integer);
    if (!is_numeric(*value)) return 0.0;
    if (!(value->form & VELDA_MASK_HAS_IMAGE)) return static_cast<double>(velda_to_integer(value));  // a select list
    return value->image / std::pow(10.0, value->precision);
}

const char *VLibBCONV_SFB(DP *, const VAR *value) {
    const std::string_view text = text_of(*value);
    if (value->form & VELDA_FORM_OWNED) value->text[text.size()] = 0;
    if (value->form & (VELDA_FORM_OWNED | VELDA_FORM_CONSTANT)) return text.data();
    if (text.empty()) return "";
    // Text that lies elsewhere gets a copy in the cell, which has the room for the zero byte.
    VAR &cell = const_cast<VAR &>(*value);
    store_text(cell, std::string(text));
    return VLibBCONV_SFB(nullptr, value);
}

void velda_store_float(VAR *target, double value) { store_float(*target, value); }
