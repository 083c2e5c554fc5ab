// format_mask.h - compiled masks of FMT. Private to the runtime.
//
//   mask    = [width] just [number] [layout]
//   just    = "L" left | "R" right | "C" centred | "T" words folded into lines
//   number  = [decimals [scale]] { "Z" | "," | "$" | "C" | "D" | "E" | "M" | "N" }
//   layout  = { fill [count] | any other byte, itself }
//   fill    = "#" blanks | "%" zeros | "*" asterisks
//
// Without a justification a mask that begins with a fill or punctuation is left justified: "(###) ###-####". A width in
// front
// ("10L") stands for a layout of that many "#". A fill without a count is one column, so "###" is "#3".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/convert/conversion.h"
#include "runtime/convert/number_format.h"

namespace velda::conversions {

class FormatMask {
  public:
    // None when the mask is outside the grammar, has no effect ("", "L"), or has more than MaximumColumns columns.
    static std::optional<FormatMask> compile(std::string_view mask, bool scale_is_decimals = false);

    // Lays the value out. A numeric mask reports BadValue for text that is no number and then only lays it out.
    Converted apply(std::string_view value) const;

    const NumberFormat &number() const { return number_; }

    static constexpr int MaximumColumns = 32767;

  private:
    // A run of columns for the text, or one literal byte.
    struct Piece {
        char byte;    // what fills an empty column, or the literal
        int columns;  // LiteralByte for a literal
    };
    static constexpr int LiteralByte = -1;

    bool add_columns(char fill, int count);
    bool take_layout(std::string_view text);
    std::string lay_out(std::string_view text) const;
    std::string fold(std::string_view text) const;

    char justification_ = 'L';
    NumberFormat number_;
    std::vector<Piece> layout_;
    int columns_ = 0;
};

}  // namespace velda::conversions
