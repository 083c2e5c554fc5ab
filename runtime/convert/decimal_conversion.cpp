// MD, ML and MR: numbers with an implied decimal point, and texts laid out by a mask.
#include "runtime/convert/conversion.h"
#include "runtime/convert/format_mask.h"
#include "runtime/convert/number_format.h"

namespace velda::conversions {
namespace {

Converted read_number(const NumberFormat &format, std::string_view value) {
    if (value.empty()) return {};
    const auto number = format.read(value);
    return number ? Converted{*number} : unsuitable(value, Direction::Input);
}

Converted write_number(const NumberFormat &format, std::string_view value) {
    if (value.empty()) return {};
    const auto number = DecimalText::parse(value);
    return number ? Converted{format.write(*number)} : unsuitable(value, Direction::Output);
}

CompiledStep compile_mask(char justification, std::string_view rest) {
    constexpr bool ScaleIsDecimals = true;
    const auto mask = FormatMask::compile(std::string(1, justification).append(rest), ScaleIsDecimals);
    if (!mask) return std::nullopt;
    return [mask = *mask](std::string_view value, Direction direction) {
        if (direction == Direction::Output) return mask.apply(value);
        // Only a mask for numbers can be read back.
        return mask.number().is_plain() ? Converted{std::string(value)} : read_number(mask.number(), value);
    };
}

}  // namespace

CompiledStep compile_decimal(std::string_view rest) {
    constexpr bool ScaleIsDecimals = true;
    const NumberFormat format = NumberFormat::take(rest, ScaleIsDecimals);
    if (!format.decimals || !rest.empty()) return std::nullopt;
    return [format](std::string_view value, Direction direction) {
        return direction == Direction::Output ? write_number(format, value) : read_number(format, value);
    };
}

CompiledStep compile_left(std::string_view rest) { return compile_mask('L', rest); }
CompiledStep compile_right(std::string_view rest) { return compile_mask('R', rest); }

}  // namespace velda::conversions
