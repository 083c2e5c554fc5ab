// Conversion codes and values from outside: the first line is the code, the rest the value. A conversion never crashes,
// a compiled code always gives the same, and a bad code always gives the byte 0xFF.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "runtime/convert/conversion.h"

using velda::conversions::Conversion;
using velda::conversions::Converted;
using velda::conversions::Direction;
using velda::conversions::Status;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

void run_both_ways(const Conversion &conversion, std::string_view value) {
    for (const Direction direction : {Direction::Output, Direction::Input}) {
        const Converted first = conversion.run(value, direction);
        const Converted again = conversion.run(value, direction);
        check(first.text == again.text && first.status == again.status);
        check(first.status != Status::BadCode || first.text == std::string(1, Conversion::BadCodeResult));
    }
}

// What a plain date or time code writes, it reads.
void check_round_trip(std::string_view value) {
    for (const char *code : {"D", "D4/", "D4-E", "MTS"}) {
        const Conversion conversion(code);
        const Converted stored = conversion.run(value, Direction::Input);
        if (stored.status != Status::Done) continue;
        const Converted shown = conversion.run(stored.text, Direction::Output);
        check(conversion.run(shown.text, Direction::Input).text == stored.text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t line_end = std::min(input.find('\n'), input.size());
    const std::string_view value = input.substr(std::min(line_end + 1, size));
    run_both_ways(Conversion(input.substr(0, line_end)), value);
    check_round_trip(value);
    return 0;
}
