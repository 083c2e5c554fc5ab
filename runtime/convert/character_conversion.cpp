// MC, MX and MY: conversions of characters. Most are one function of the text; a row of the table names it for each
// direction.
#include "runtime/convert/conversion.h"
#include "runtime/convert/decimal_text.h"
#include "runtime/convert/text.h"
#include "runtime/value/facade.h"

namespace velda::conversions {
namespace {

constexpr std::string_view HexDigits = "0123456789ABCDEF";
constexpr int HexBase = 16;

using Optional = std::optional<std::string>;  // none: the value does not suit
using TextFunction = Optional (*)(std::string_view text);

template <char (*Map)(char)>
Optional map_each(std::string_view text) {
    std::string result(text);
    for (char &c : result) c = Map(c);
    return result;
}

template <bool (*Keep)(char)>
Optional keep_only(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (Keep(c)) result += c;
    }
    return result;
}

template <bool (*Drop)(char)>
bool none_of(char c) {
    return !Drop(c);
}

char printable_or_point(char c) { return is_printable(c) ? c : '.'; }
char printable_upper(char c) { return to_upper(printable_or_point(c)); }

// The letter after anything that is no letter is a capital, all others are small.
Optional capitalise(std::string_view text) {
    std::string result(text);
    bool in_word = false;
    for (char &c : result) {
        c = in_word ? to_lower(c) : to_upper(c);
        in_word = is_letter(c);
    }
    return result;
}

void append_hex(std::string &result, char c) {
    const auto byte = static_cast<unsigned char>(c);
    result += HexDigits[byte >> 4];
    result += HexDigits[byte & 15];
}

std::optional<char> byte_of_hex(char high, char low) {
    const std::size_t high_value = HexDigits.find(to_upper(high));
    const std::size_t low_value = HexDigits.find(to_upper(low));
    if (high_value == std::string_view::npos || low_value == std::string_view::npos) return std::nullopt;
    return static_cast<char>(high_value << 4 | low_value);
}

Optional text_to_hex(std::string_view text) {
    std::string result;
    result.reserve(text.size() * 2);
    for (const char c : text) append_hex(result, c);
    return result;
}

Optional hex_to_text(std::string_view hex) {
    if (hex.size() % 2 != 0) return std::nullopt;
    std::string result;
    result.reserve(hex.size() / 2);
    for (std::size_t at = 0; at < hex.size(); at += 2) {
        const auto byte = byte_of_hex(hex[at], hex[at + 1]);
        if (!byte) return std::nullopt;
        result += *byte;
    }
    return result;
}

Optional show_unprintable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (is_printable(c)) {
            result += c;
        } else {
            result += '.';
            append_hex(result, c);
        }
    }
    return result;
}

// A point that no two hexadecimal digits follow is a point.
Optional restore_unprintable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto byte = text[0] == '.' && text.size() > 2 ? byte_of_hex(text[1], text[2]) : std::optional<char>();
        result += byte.value_or(text[0]);
        text.remove_prefix(byte ? 3 : 1);
    }
    return result;
}

Optional decimal_to_hex(std::string_view text) {
    if (text.empty()) return std::string();
    const auto number = DecimalText::parse(text);
    return number ? to_base(*number, HexBase) : std::nullopt;
}

Optional hex_to_decimal(std::string_view text) {
    return text.empty() ? Optional(std::string()) : from_base(without_outer_blanks(text), HexBase);
}

struct TextCode {
    std::string_view code;  // without its M
    TextFunction output;
    TextFunction input;
};

constexpr TextCode TextCodes[] = {
    {"CU", map_each<to_upper>, map_each<to_upper>},
    {"CL", map_each<to_lower>, map_each<to_lower>},
    {"CT", capitalise, capitalise},
    {"CN", keep_only<is_digit>, keep_only<is_digit>},
    {"C/N", keep_only<none_of<is_digit>>, keep_only<none_of<is_digit>>},
    {"CA", keep_only<is_letter>, keep_only<is_letter>},
    {"C/A", keep_only<none_of<is_letter>>, keep_only<none_of<is_letter>>},
    {"CB", keep_only<is_letter_or_digit>, keep_only<is_letter_or_digit>},
    {"C/B", keep_only<none_of<is_letter_or_digit>>, keep_only<none_of<is_letter_or_digit>>},
    {"CP", map_each<printable_or_point>, map_each<printable_or_point>},
    {"CP.", map_each<printable_or_point>, map_each<printable_or_point>},
    {"CPU", map_each<printable_upper>, map_each<printable_upper>},
    {"CPN", show_unprintable, restore_unprintable},
    {"CNP", restore_unprintable, show_unprintable},
    {"CD", decimal_to_hex, hex_to_decimal},
    {"CDX", decimal_to_hex, hex_to_decimal},
    {"CX", hex_to_decimal, decimal_to_hex},
    {"CXD", hex_to_decimal, decimal_to_hex},
    {"CAX", text_to_hex, hex_to_text},
    {"CXA", hex_to_text, text_to_hex},
    {"X", text_to_hex, hex_to_text},
    {"Y", hex_to_text, text_to_hex},
};

// "C;from;to"
CompiledStep compile_change(std::string_view rest) {
    const std::size_t divider = rest.find(';');
    if (divider == 0 || divider == std::string_view::npos) return std::nullopt;
    return [from = std::string(rest.substr(0, divider)), to = std::string(rest.substr(divider + 1))](
               std::string_view value, Direction) { return Converted{change(value, from, to).str()}; };
}

}  // namespace

CompiledStep compile_characters(std::string_view rest) {
    constexpr std::string_view Change = "CC;";
    if (rest.starts_with(Change)) return compile_change(rest.substr(Change.size()));
    for (const TextCode &row : TextCodes) {
        if (rest != row.code) continue;
        return [&row](std::string_view value, Direction direction) {
            const auto result = (direction == Direction::Output ? row.output : row.input)(value);
            return result ? Converted{*result} : unsuitable(value, direction);
        };
    }
    return std::nullopt;
}

}  // namespace velda::conversions
