// CHANGE, CONVERT, FIELD, TRIM, MATCHES, substrings and numbers on texts from outside, against the naive model. The input
// is three texts, divided by line feeds, behind a line of numbers.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "runtime/value/facade.h"
#include "tests/runtime/value/model.h"

using namespace velda;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

std::string take_line(std::string_view &input) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    const std::string line(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return line;
}

int number_at(const std::string &bytes, std::size_t place) {
    return place < bytes.size() ? static_cast<signed char>(bytes[place]) % 50 : 1;
}

void replace_text(const std::string &text, const std::string &from, const std::string &to, int occurrences, int start) {
    check(change(text, from, to, occurrences, start).view() == model::change(text, from, to, occurrences, start));
    check(convert(text, from, to).view() == model::convert(text, from, to));
    VAR in_place = text;
    change_in(in_place, from, to);
    check(in_place.view() == model::change(text, from, to, -1, 1));
    in_place = text;
    VLibGCONVERTF_BBBBB(nullptr, &in_place, &in_place, Argument(from), &in_place);
    check(in_place.view() == model::convert(text, from, text));
}

void take_apart(const std::string &text, const std::string &delimiter, int first, int number) {
    check(velda::field(text, delimiter, first, number).view() == model::field(text, delimiter, first, number));
    check(velda::index(text, delimiter, first) == model::index(text, delimiter, first));
    check(velda::substring(text, first, number).view() == model::substring(text, first, number));
    const char character = delimiter.empty() ? ' ' : delimiter.front();
    for (const char type : {'L', 'T', 'B', 'A', 'R'})
        check(velda::trim(text, character, type).view() == model::trim(text, character, type));
}

// A pattern of the counted classes, a few elements long: one byte of the text makes one element.
std::string well_formed(const std::string &bytes) {
    std::string pattern;
    for (std::size_t i = 0; i < bytes.size() && i < 5; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        const std::string literal = byte == '\'' || bytes[i] == VM ? "x" : std::string(1, bytes[i]);
        pattern += byte % 5 == 0 ? "'" + literal + "'" : std::to_string(byte / 5 % 3) + "NAXC"[byte % 4];
    }
    return pattern;
}

void match(const std::string &text, const std::string &pattern) {
    const bool matched = velda::matches(text, pattern);
    check(velda::matches(text, pattern + VM + "0X"));
    check(!matched || velda::matches(text, "'nothing like it'" + std::string(1, VM) + pattern));
    const std::string short_text = text.substr(0, 12), formed = well_formed(pattern);
    check(velda::matches(short_text, formed) == model::matches(short_text, formed));
}

void compute(const std::string &left, const std::string &right) {
    const VAR l = left, r = right;
    check((l == r) + (l < r) + (l > r) == 1);
    check((l <= r) == !(l > r) && (l >= r) == !(l < r) && (l != r) == !(l == r));
    const VAR exact = string_add(l, r), rounding = string_subtract(l + r, exact);
    check(rounding <= "0.00005" && rounding >= "-0.00005");
    check(string_subtract(string_add(l, r), r) == string_add(l, 0));
    if (r != 0 && r.is_numeric()) {
        const VAR whole = string_divide(l, r), rest = string_modulo(l, r);
        check(string_add(string_multiply(whole, r), rest) == string_add(l, 0));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string numbers = take_line(input);
    const std::string text = take_line(input), from = take_line(input), to = take_line(input);
    velda_set_fault_reporter([](DP *, const char *) {});
    replace_text(text, from, to, number_at(numbers, 0), number_at(numbers, 1));
    take_apart(text, from, number_at(numbers, 2), number_at(numbers, 3));
    match(text, from);
    compute(from, to);
    return 0;
}
