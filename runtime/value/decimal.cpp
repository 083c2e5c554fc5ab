#include "runtime/value/decimal.h"

#include <algorithm>

#include "runtime/value/buffer.h"

namespace velda {

namespace {

constexpr std::uint32_t Base = 1000000000;
constexpr std::size_t BaseDigits = 9;

std::uint32_t power_of_ten(std::size_t exponent) {
    std::uint32_t power = 1;
    for (; exponent > 0; --exponent) power *= 10;
    return power;
}

}  // namespace

Decimal::Decimal(const NumericText &text)
    : negative_(text.negative && !text.is_zero()), decimals_(text.fraction.size()) {
    limbs_ = parse_digits(std::string(text.whole).append(text.fraction));
}

Decimal::Decimal(const Number &number) {
    if (!number.is_scaled) {
        *this = Decimal(number.text);
        return;
    }
    char digits[MaximumNumberText];
    *this = Decimal(parse_numeric(format_scaled(number.scaled, digits)));
}

Decimal::Limbs Decimal::parse_digits(const std::string &digits) {
    Limbs limbs;
    limbs.reserve(digits.size() / BaseDigits + 1);
    for (std::size_t end = digits.size(); end > 0;) {
        const std::size_t begin = end > BaseDigits ? end - BaseDigits : 0;
        std::uint32_t limb = 0;
        for (std::size_t at = begin; at < end; ++at) limb = limb * 10 + static_cast<std::uint32_t>(digits[at] - '0');
        limbs.push_back(limb);
        end = begin;
    }
    trim(limbs);
    return limbs;
}

void Decimal::trim(Limbs &limbs) {
    while (!limbs.empty() && limbs.back() == 0) limbs.pop_back();
}

std::string Decimal::text() const {
    std::string digits;
    for (auto limb = limbs_.rbegin(); limb != limbs_.rend(); ++limb) {
        const std::string part = std::to_string(*limb);
        if (limb != limbs_.rbegin()) digits.append(BaseDigits - part.size(), '0');
        digits += part;
    }
    if (digits.size() <= decimals_) digits.insert(0, decimals_ + 1 - digits.size(), '0');
    const std::size_t point = digits.size() - decimals_;
    const std::string fraction(without_trailing_zeros(std::string_view(digits).substr(point)));
    std::string result = negative_ ? "-" : "";
    result.append(digits, 0, point);
    if (!fraction.empty()) result.append(".").append(fraction);
    return result;
}

int Decimal::compare(const Limbs &left, const Limbs &right) {
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    const auto [l, r] = std::mismatch(left.rbegin(), left.rend(), right.rbegin());
    return l == left.rend() ? 0 : (*l < *r ? -1 : 1);
}

Decimal::Limbs Decimal::add(const Limbs &left, const Limbs &right) {
    Limbs sum;
    std::uint32_t carry = 0;
    for (std::size_t i = 0; i < std::max(left.size(), right.size()) || carry; ++i) {
        carry += (i < left.size() ? left[i] : 0) + (i < right.size() ? right[i] : 0);
        sum.push_back(carry % Base);
        carry /= Base;
    }
    return sum;
}

// `left` is not less than `right`.
Decimal::Limbs Decimal::subtract(const Limbs &left, const Limbs &right) {
    Limbs difference = left;
    std::int64_t borrow = 0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::int64_t limb = static_cast<std::int64_t>(left[i]) - borrow - (i < right.size() ? right[i] : 0);
        borrow = limb < 0;
        difference[i] = static_cast<std::uint32_t>(limb + (borrow ? Base : 0));
    }
    trim(difference);
    return difference;
}

Decimal::Limbs Decimal::multiply(const Limbs &left, const Limbs &right) {
    Limbs product(left.size() + right.size(), 0);
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::uint64_t carry = 0;
        for (std::size_t j = 0; j < right.size() || carry; ++j) {
            carry += product[i + j] + (j < right.size() ? static_cast<std::uint64_t>(left[i]) * right[j] : 0);
            product[i + j] = static_cast<std::uint32_t>(carry % Base);
            carry /= Base;
        }
    }
    trim(product);
    return product;
}

// The quotient replaces `limbs`; the remainder is returned.
std::uint32_t Decimal::divide_small(Limbs &limbs, std::uint32_t divisor) {
    std::uint64_t rest = 0;
    for (auto limb = limbs.rbegin(); limb != limbs.rend(); ++limb) {
        rest = rest * Base + *limb;
        *limb = static_cast<std::uint32_t>(rest / divisor);
        rest %= divisor;
    }
    trim(limbs);
    return static_cast<std::uint32_t>(rest);
}

// Long division, a limb of the quotient at a time. Both operands are first multiplied so that the top limb of the
// divisor is large: then a limb guessed from the top limbs is at most two too great.
Decimal::Limbs Decimal::divide(Limbs left, Limbs right, Limbs &rest) {
    if (compare(left, right) < 0) {
        rest = left;
        return {};
    }
    if (right.size() == 1) {
        const std::uint32_t remainder = divide_small(left, right[0]);
        rest = remainder ? Limbs{remainder} : Limbs{};
        return left;
    }
    const std::uint32_t factor = Base / (right.back() + 1);
    right = multiply(right, {factor});
    left = multiply(left, {factor});
    Limbs result(left.size(), 0);
    Limbs part;
    for (std::size_t i = left.size(); i-- > 0;) {
        part.insert(part.begin(), left[i]);
        trim(part);
        const std::uint64_t high = part.size() > right.size() ? part[right.size()] : 0;
        const std::uint64_t low = part.size() > right.size() - 1 ? part[right.size() - 1] : 0;
        std::uint64_t guess = std::min<std::uint64_t>((high * Base + low) / right.back(), Base - 1);
        Limbs product = multiply(right, {static_cast<std::uint32_t>(guess)});
        for (; compare(part, product) < 0; --guess) product = subtract(product, right);
        part = subtract(part, product);
        result[i] = static_cast<std::uint32_t>(guess);
    }
    trim(result);
    divide_small(part, factor);
    rest = part;
    return result;
}

Decimal::Limbs Decimal::scaled_up(const Limbs &limbs, std::size_t places) {
    Limbs result = multiply(limbs, {power_of_ten(places % BaseDigits)});
    if (!result.empty()) result.insert(result.begin(), places / BaseDigits, 0);
    return result;
}

Decimal Decimal::operator-() const {
    Decimal result = *this;
    result.negative_ = !negative_ && !is_zero();
    return result;
}

Decimal operator+(const Decimal &left, const Decimal &right) {
    Decimal result;
    result.decimals_ = std::max(left.decimals_, right.decimals_);
    const Decimal::Limbs l = Decimal::scaled_up(left.limbs_, result.decimals_ - left.decimals_);
    const Decimal::Limbs r = Decimal::scaled_up(right.limbs_, result.decimals_ - right.decimals_);
    if (left.negative_ == right.negative_) {
        result.limbs_ = Decimal::add(l, r);
        result.negative_ = left.negative_;
    } else {
        const bool left_wins = Decimal::compare(l, r) >= 0;
        result.limbs_ = left_wins ? Decimal::subtract(l, r) : Decimal::subtract(r, l);
        result.negative_ = left_wins ? left.negative_ : right.negative_;
    }
    if (result.is_zero()) result.negative_ = false;
    return result;
}

Decimal operator*(const Decimal &left, const Decimal &right) {
    Decimal result;
    result.limbs_ = Decimal::multiply(left.limbs_, right.limbs_);
    result.decimals_ = left.decimals_ + right.decimals_;
    result.negative_ = left.negative_ != right.negative_ && !result.is_zero();
    return result;
}

Decimal quotient(const Decimal &left, const Decimal &right, std::size_t decimals) {
    Decimal result;
    Decimal::Limbs rest;
    result.limbs_ = Decimal::divide(Decimal::scaled_up(left.limbs_, right.decimals_ + decimals),
                                    Decimal::scaled_up(right.limbs_, left.decimals_), rest);
    result.decimals_ = decimals;
    result.negative_ = left.negative_ != right.negative_ && !result.is_zero();
    return result;
}

Decimal remainder(const Decimal &left, const Decimal &right) { return left - right * quotient(left, right, 0); }

Decimal Decimal::cut(std::size_t decimals) const {
    if (decimals >= decimals_) return *this;
    Decimal result = *this;
    Limbs rest;
    result.limbs_ = divide(limbs_, scaled_up({1}, decimals_ - decimals), rest);
    result.decimals_ = decimals;
    if (result.is_zero()) result.negative_ = false;
    return result;
}

Decimal Decimal::rounded(std::size_t decimals) const {
    if (decimals >= decimals_) return *this;
    Decimal half;
    half.limbs_ = {5};
    half.decimals_ = decimals + 1;
    half.negative_ = negative_;
    return (*this + half).cut(decimals);
}

}  // namespace velda

using namespace velda;

VAR *VLibDSMATH_BBBBII(DP *dp, VAR *target, const VAR *left, const VAR *right, int operation, int decimals) {
    const Decimal l(number_of(*left));
    const Decimal r(number_of(*right));
    const bool divides = operation == VELDA_SMATH_DIVIDE || operation == VELDA_SMATH_MODULO;
    Decimal result;
    if (divides && r.is_zero())
        report_division_by_zero(dp);
    else if (operation == VELDA_SMATH_ADD)
        result = l + r;
    else if (operation == VELDA_SMATH_SUBTRACT)
        result = l - r;
    else if (operation == VELDA_SMATH_MULTIPLY)
        result = l * r;
    else if (operation == VELDA_SMATH_DIVIDE)
        result = quotient(l, r, decimals < 0 ? 0 : static_cast<std::size_t>(decimals));
    else if (operation == VELDA_SMATH_MODULO)
        result = remainder(l, r);
    store_text(*target, result.text());
    return target;
}
