// number_format.h - the part of a mask that writes a number: decimals, scale, thousands, currency sign and sign style.
// The masks of FMT and the conversions MD, ML and MR share it. Private to the runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/convert/decimal_text.h"

namespace velda::conversions {

struct NumberFormat {
    std::optional<int> decimals;   // places after the point, rounded and filled up; none leaves the number as it is
    int scale = 0;                 // the value is divided by 10 to this power
    bool blank_when_zero = false;  // Z
    bool thousands = false;        // ,
    bool currency = false;         // $
    char sign_style = 0;           // one of C D E M N; 0 a leading "-"

    // Takes "[decimals[scale]]" and then any of Z , $ C D E M N off `text`. `scale_is_decimals`: without a scale digit
    // the scale is the number of decimals.
    static NumberFormat take(std::string_view &text, bool scale_is_decimals);

    bool is_plain() const { return !decimals && !blank_when_zero && !thousands && !currency && !sign_style; }

    std::string write(DecimalText number) const;
    // The reverse: drops currency signs and thousands, multiplies by the scale and rounds to an integer. None when what
    // is left is not a number.
    std::optional<std::string> read(std::string_view text) const;
};

}  // namespace velda::conversions
