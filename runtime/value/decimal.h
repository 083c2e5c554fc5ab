// decimal.h - decimal numbers of any size, exact. Private to the runtime.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/value/number.h"

namespace velda {

// The message of a division by zero, whose result is 0.
void report_division_by_zero(DP *dp);

class Decimal {
  public:
    Decimal() = default;
    explicit Decimal(const NumericText &text);
    // The value of a cell's number; 0 when it is not numeric.
    explicit Decimal(const Number &number);

    bool is_zero() const { return limbs_.empty(); }
    // Without an exponent, leading zeros or trailing zeros of the fraction; never "-0".
    std::string text() const;

    Decimal operator-() const;
    friend Decimal operator+(const Decimal &left, const Decimal &right);
    friend Decimal operator-(const Decimal &left, const Decimal &right) { return left + -right; }
    friend Decimal operator*(const Decimal &left, const Decimal &right);
    // The quotient cut off after `decimals` decimals. The divisor is not zero.
    friend Decimal quotient(const Decimal &left, const Decimal &right, std::size_t decimals);
    // What the integer quotient leaves, with the sign of `left`.
    friend Decimal remainder(const Decimal &left, const Decimal &right);

    // Cut off, or rounded with halves away from zero, after `decimals` decimals.
    Decimal cut(std::size_t decimals) const;
    Decimal rounded(std::size_t decimals) const;

  private:
    // Nine digits a limb, the lowest limb first, no zero limb at the top.
    using Limbs = std::vector<std::uint32_t>;

    static Limbs parse_digits(const std::string &digits);
    static void trim(Limbs &limbs);
    static int compare(const Limbs &left, const Limbs &right);
    static Limbs add(const Limbs &left, const Limbs &right);
    static Limbs subtract(const Limbs &left, const Limbs &right);
    static Limbs multiply(const Limbs &left, const Limbs &right);
    static std::uint32_t divide_small(Limbs &limbs, std::uint32_t divisor);
    static Limbs divide(Limbs left, Limbs right, Limbs &rest);
    static Limbs scaled_up(const Limbs &limbs, std::size_t places);

    bool negative_ = false;
    std::size_t decimals_ = 0;  // the value is the limbs' integer divided by 10 to this power
    Limbs limbs_;
};

}  // namespace velda
