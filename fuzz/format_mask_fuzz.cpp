// Masks and values from outside: the first line is the mask, the rest the value. A mask is refused or gives a text
// whose size depends on the mask alone, unless it folds or only writes a number.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "runtime/convert/format_mask.h"

using velda::conversions::FormatMask;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t line_end = std::min(input.find('\n'), input.size());
    const std::string_view mask_text = input.substr(0, line_end);
    const std::string_view value = input.substr(std::min(line_end + 1, size));
    // Wide masks only cost time.
    if (mask_text.size() > 40) return 0;
    const auto mask = FormatMask::compile(mask_text);
    if (!mask) return 0;
    const std::string shown = mask->apply(value).text;
    check(mask->apply(value).text == shown);
    const bool folds = mask_text.find('T') != std::string_view::npos;
    const bool lays_out = mask_text.find_first_of("#%*") != std::string_view::npos;
    if (lays_out && !folds) check(shown.size() == mask->apply("").text.size());
    return 0;
}
