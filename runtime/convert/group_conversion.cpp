// G: group extraction. "G1,2" skips one field of a text divided by "," and takes two; both directions do the same.
#include "runtime/convert/conversion.h"
#include "runtime/convert/text.h"

namespace velda::convert {
namespace {

// Where `count` fields end, at most the end of the text; the delimiter before the end is not counted in.
std::size_t end_of_fields(std::string_view text, char delimiter, int count) {
    std::size_t at = 0;
    for (;;) {
        at = text.find(delimiter, at);
        if (at == std::string_view::npos) return text.size();
        if (--count == 0) return at;
        ++at;
    }
}

std::string_view fields(std::string_view text, char delimiter, int skip, int count) {
    if (skip > 0) text.remove_prefix(std::min(end_of_fields(text, delimiter, skip) + 1, text.size()));
    return text.substr(0, end_of_fields(text, delimiter, count));
}

}  // namespace

CompiledStep compile_group(std::string_view rest) {
    const std::string_view skip_digits = take_digits(rest);
    const auto skip = skip_digits.empty() ? 0 : small_number(skip_digits);
    if (rest.empty()) return std::nullopt;
    const char delimiter = rest[0];
    const auto count = small_number(rest.substr(1));
    if (!skip || !count || *count == 0) return std::nullopt;
    return [skip = *skip, delimiter, count = *count](std::string_view value, Direction) {
        return Converted{std::string(fields(value, delimiter, skip, count))};
    };
}

}  // namespace velda::convert
