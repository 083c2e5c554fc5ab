// decimal_text.h - numbers of any length as decimal digits, for conversions that must not lose a digit. Private to the
// runtime.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velda::conversions {

// A decimal number: `digits` read as an integer, divided by 10 to the power `places`. There is always at least one
// digit before the decimal point.
class DecimalText {
  public:
    // Reads what a cell takes for a number, with blanks around it; none when the text is not one.
    static std::optional<DecimalText> parse(std::string_view text);

    bool is_negative() const { return negative_ && !is_zero(); }
    bool is_zero() const { return digits_.find_first_not_of('0') == std::string::npos; }

    // Multiplies by 10 to `power`, or divides when it is negative.
    void shift(int power);
    // Rounds to `places` decimals, halves away from zero, and pads with zeros to that many.
    void round(int places);

    std::string integer_digits() const;   // without leading zeros, at least "0"
    std::string fraction_digits() const;  // "" when there is no fraction
    std::string text() const;             // "-1.5"

    // The largest integer that is not above the number; none when it does not fit.
    std::optional<std::int64_t> floor() const;

  private:
    bool negative_ = false;
    std::string digits_;
    std::size_t places_ = 0;
};

// The integer part of `number` in `base`, 2 to 36; none when it has more than MaximumRadixDigits digits.
std::optional<std::string> to_base(const DecimalText &number, int base);

// The decimal text of digits written in `base`, in either case, with an optional "-"; none when the text is "", has a
// character that is no digit of the base, or has more than MaximumRadixDigits digits.
std::optional<std::string> from_base(std::string_view digits, int base);

// Changing the base takes quadratic time, so it has a limit that no honest number reaches.
inline constexpr std::size_t MaximumRadixDigits = 2000;

}  // namespace velda::conversions
