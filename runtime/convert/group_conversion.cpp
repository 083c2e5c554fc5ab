// G: group extraction. "G1,2" skips one field of a text divided by "," and takes two; both directions do the same.
#include "runtime/convert/conversion.h"
#include "runtime/convert/text.h"
#include "runtime/value/scan.h"

namespace velda::conversions {
namespace {

std::string_view fields(std::string_view text, char delimiter, std::size_t skip, std::size_t count) {
    const char *begin = text.data();
    const char *const end = begin + text.size();
    if (skip > 0) {
        begin = skip_bytes(begin, end, delimiter, skip);
        if (begin != end) ++begin;
    }
    const char *const fields_end = skip_bytes(begin, end, delimiter, count);
    return {begin, static_cast<std::size_t>(fields_end - begin)};
}

}  // namespace

CompiledStep compile_group(std::string_view rest) {
    const std::string_view skip_digits = take_digits(rest);
    const auto skip = skip_digits.empty() ? 0 : small_number(skip_digits);
    if (rest.empty()) return std::nullopt;
    const char delimiter = rest[0];
    const auto count = small_number(rest.substr(1));
    if (!skip || !count || *count == 0) return std::nullopt;
    return [skip = static_cast<std::size_t>(*skip), delimiter, count = static_cast<std::size_t>(*count)](
               std::string_view value, Direction) {
        return Converted{std::string(fields(value, delimiter, skip, count))};
    };
}

}  // namespace velda::conversions
