// number.h - the numeric value of a cell. Private to the runtime.
//
// Almost every number of the system is an integer of 64 bits or has at most 4 decimals: it is computed as a 128-bit
// integer, scaled by 10000. Longer ones are computed as decimal strings (decimal.h), so that no digit is ever lost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/value/numeric_text.h"
#include "runtime/vdefc.h"

namespace velda {

using Scaled = __int128;  // a value times 10000

inline constexpr int ScaleFactor = 10000;
inline constexpr int ScaleDecimals = VELDA_PRECISION;
static_assert(ScaleFactor == VELDA_SCALE && ScaleDecimals == 4);

// The largest magnitude up to which a double tells all integers apart.
inline constexpr std::int64_t ExactImage = std::int64_t{1} << 53;

struct Number {
    bool numeric = false;
    bool is_scaled = true;  // `scaled` holds the value; otherwise `text` does, which lies in the cell
    Scaled scaled = 0;
    NumericText text;
};

// The value of a cell; 0 and not numeric for any other text.
Number number_of(const VAR &cell);

// True when the cell is a number or its text is one. A number found in a string is kept beside it.
bool is_numeric(const VAR &cell);

// Compares two numbers: below, at or above 0.
int compare_numbers(const Number &left, const Number &right);

// The value of a text when its magnitude is below 10^19 and it has at most 4 decimals; false otherwise.
bool scale_text(const NumericText &text, Scaled &scaled);

// The integer part, kept within the ends of 64 bits.
std::int64_t integer_part(const Number &number);

// Stores a number: as an integer, as an image or, where neither holds it exactly, as text.
void store_scaled(VAR &target, Scaled value);
void store_float(VAR &target, double value);

// Room for the longest text of an image, that of the largest double.
inline constexpr std::size_t MaximumNumberText = 352;

// The canonical text of a cell of form INTEGER or IMAGE, written into `digits`.
std::string_view format_number(const VAR &cell, char (&digits)[MaximumNumberText]);
std::string_view format_scaled(Scaled value, char (&digits)[MaximumNumberText]);

}  // namespace velda
