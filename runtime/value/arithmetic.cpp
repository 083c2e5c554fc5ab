// arithmetic.cpp - the dialect's arithmetic: exact, with results of at most 4 decimals.
#include <atomic>
#include <cstdio>
#include <random>

#include "runtime/value/buffer.h"
#include "runtime/value/decimal.h"
#include "runtime/value/number.h"

namespace velda {

namespace {

void report_to_standard_error(DP *, const char *message) { std::fprintf(stderr, "%s\n", message); }

std::atomic<velda_fault_reporter> fault_reporter{report_to_standard_error};

// Rounds numerator / denominator to an integer, halves away from zero.
Scaled rounded_quotient(Scaled numerator, Scaled denominator) {
    const Scaled whole = numerator / denominator;
    const Scaled rest = numerator % denominator;
    const Scaled twice = (rest < 0 ? -rest : rest) * 2;
    if (twice < (denominator < 0 ? -denominator : denominator)) return whole;
    return (numerator < 0) == (denominator < 0) ? whole + 1 : whole - 1;
}

// One operation of the dialect: on scaled integers while they suffice (the result says whether they did), else on
// decimal numbers, which always do.
struct Operation {
    bool (*scaled)(Scaled left, Scaled right, Scaled &result);
    Decimal (*exact)(const Decimal &left, const Decimal &right);
};

// Operands are below 10^19 times the scale, which leaves room for sums and for a numerator scaled once more.
constexpr Operation Add = {
    [](Scaled left, Scaled right, Scaled &result) { return !__builtin_add_overflow(left, right, &result); },
    [](const Decimal &left, const Decimal &right) { return left + right; }};
constexpr Operation Subtract = {
    [](Scaled left, Scaled right, Scaled &result) { return !__builtin_sub_overflow(left, right, &result); },
    [](const Decimal &left, const Decimal &right) { return left - right; }};
constexpr Operation Multiply = {[](Scaled left, Scaled right, Scaled &result) {
                                    if (__builtin_mul_overflow(left, right, &result)) return false;
                                    result = rounded_quotient(result, ScaleFactor);
                                    return true;
                                },
                                [](const Decimal &left, const Decimal &right) { return left * right; }};
constexpr Operation Divide = {
    [](Scaled left, Scaled right, Scaled &result) {
        result = rounded_quotient(left * ScaleFactor, right);
        return true;
    },
    // One decimal more than the rounding looks at; a half is never mistaken, for what is cut off makes it larger only.
    [](const Decimal &left, const Decimal &right) { return quotient(left, right, ScaleDecimals + 1); }};
constexpr Operation Modulo = {[](Scaled left, Scaled right, Scaled &result) {
                                  result = left % right;
                                  return true;
                              },
                              [](const Decimal &left, const Decimal &right) { return remainder(left, right); }};

VAR *compute(const Operation &operation, VAR *target, const Number &left, const Number &right) {
    Scaled result;
    if (left.is_scaled && right.is_scaled && operation.scaled(left.scaled, right.scaled, result))
        store_scaled(*target, result);
    else
        store_text(*target, operation.exact(Decimal(left), Decimal(right)).rounded(ScaleDecimals).text());
    return target;
}

VAR *compute_quotient(DP *dp, const Operation &operation, VAR *target, const VAR &left, const VAR &right) {
    const Number divisor = number_of(right);
    if (divisor.is_scaled && divisor.scaled == 0) {
        report_division_by_zero(dp);
        velda_store_integer(dp, target, 0);
        return target;
    }
    return compute(operation, target, number_of(left), divisor);
}

bool are_integers(const VAR &left, const VAR &right) { return left.form & right.form & VELDA_FORM_INTEGER; }

Number integer_number(int value) {
    Number number;
    number.scaled = static_cast<Scaled>(value) * ScaleFactor;
    return number;
}

std::uint64_t random_below(std::uint64_t limit) {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    return std::uniform_int_distribution<std::uint64_t>(0, limit - 1)(engine);
}

}  // namespace

void report_division_by_zero(DP *dp) { fault_reporter.load()(dp, "Division by zero: zero used"); }

}  // namespace velda

using namespace velda;

void velda_set_fault_reporter(velda_fault_reporter reporter) {
    fault_reporter = reporter ? reporter : report_to_standard_error;
}

VAR *VLibDMATHADD_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right) {
    std::int64_t sum;
    if (are_integers(*left, *right) && !__builtin_add_overflow(left->integer, right->integer, &sum)) {
        velda_store_integer(dp, target, sum);
        return target;
    }
    return compute(Add, target, number_of(*left), number_of(*right));
}

VAR *VLibDMATHSUB_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right) {
    std::int64_t difference;
    if (are_integers(*left, *right) && !__builtin_sub_overflow(left->integer, right->integer, &difference)) {
        velda_store_integer(dp, target, difference);
        return target;
    }
    return compute(Subtract, target, number_of(*left), number_of(*right));
}

VAR *VLibDMATHMUL_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right) {
    std::int64_t product;
    if (are_integers(*left, *right) && !__builtin_mul_overflow(left->integer, right->integer, &product)) {
        velda_store_integer(dp, target, product);
        return target;
    }
    return compute(Multiply, target, number_of(*left), number_of(*right));
}

VAR *VLibDMATHDIV_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right) {
    return compute_quotient(dp, Divide, target, *left, *right);
}

VAR *VLibDMOD_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right) {
    return compute_quotient(dp, Modulo, target, *left, *right);
}

VAR *VLibDNEG_BBB(DP *, VAR *target, const VAR *value) {
    return compute(Subtract, target, integer_number(0), number_of(*value));
}

VAR *VLibDABS_BBB(DP *, VAR *target, const VAR *value) {
    const Number number = number_of(*value);
    const bool is_negative = number.is_scaled ? number.scaled < 0 : number.text.negative;
    return compute(is_negative ? Subtract : Add, target, integer_number(0), number);
}

VAR *VLibBINT_BBB(DP *, VAR *target, const VAR *value) {
    const Number number = number_of(*value);
    if (number.is_scaled)
        store_scaled(*target, number.scaled / ScaleFactor * ScaleFactor);
    else
        store_text(*target, Decimal(number).cut(0).text());
    return target;
}

VAR *VLibDRND_BBB(DP *dp, VAR *target, const VAR *value) {
    const std::int64_t limit = velda_to_integer(value);
    velda_store_integer(dp, target,
                        limit < 1 ? 0 : static_cast<std::int64_t>(random_below(static_cast<std::uint64_t>(limit))));
    return target;
}

void VLibDPOSTI_VB(DP *dp, VAR *variable) { VLibDPREI_BB(dp, variable); }

void VLibDPOSTD_VB(DP *dp, VAR *variable) {
    if (variable->form == VELDA_FORM_INTEGER && variable->integer > INT64_MIN)
        --variable->integer;
    else
        VLibDMATHSUB_BBBB(dp, variable, variable, velda::Argument(1));
}

VAR *VLibDPOSTI_BBB(DP *dp, VAR *target, VAR *variable) {
    const VAR before(*variable);
    VLibDPREI_BB(dp, variable);
    return VLibDMATHADD_BBBB(dp, target, &before, velda::Argument(0));
}

VAR *VLibDPOSTD_BBB(DP *dp, VAR *target, VAR *variable) {
    const VAR before(*variable);
    VLibDPOSTD_VB(dp, variable);
    return VLibDMATHADD_BBBB(dp, target, &before, velda::Argument(0));
}

VAR *VLibDPREI_BB(DP *dp, VAR *variable) {
    if (variable->form == VELDA_FORM_INTEGER && variable->integer < INT64_MAX) {
        ++variable->integer;
        return variable;
    }
    return VLibDMATHADD_BBBB(dp, variable, variable, velda::Argument(1));
}
