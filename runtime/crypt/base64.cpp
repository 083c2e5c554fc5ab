#include "runtime/crypt/base64.h"

#include <array>
#include <cstdint>

namespace velda::crypt {
namespace {

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char Padding = '=';
constexpr std::uint8_t NoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> make_values() {
    std::array<std::uint8_t, 256> values{};
    values.fill(NoDigit);
    for (std::size_t at = 0; at < Alphabet.size(); ++at)
        values[static_cast<unsigned char>(Alphabet[at])] = static_cast<std::uint8_t>(at);
    return values;
}
constexpr std::array<std::uint8_t, 256> Values = make_values();

}  // namespace

std::string to_base64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    while (!bytes.empty()) {
        const std::string_view group = bytes.substr(0, 3);
        std::uint32_t bits = 0;
        for (std::size_t at = 0; at < 3; ++at)
            bits = bits << 8 | (at < group.size() ? static_cast<unsigned char>(group[at]) : 0u);
        for (std::size_t at = 0; at < 4; ++at)
            text += at <= group.size() ? Alphabet[bits >> (18 - 6 * at) & 63] : Padding;
        bytes.remove_prefix(group.size());
    }
    return text;
}

std::optional<std::string> from_base64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::size_t digits = text.size() - padding;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    for (std::size_t at = 0; at < digits; ++at) {
        const std::uint8_t value = Values[static_cast<unsigned char>(text[at])];
        if (value == NoDigit) return std::nullopt;
        bits = bits << 6 | value;
        // The four digits of a group complete a byte at the second, third and fourth.
        const std::size_t left_over = 6 - 2 * (at % 4);
        if (left_over < 6) bytes += static_cast<char>(bits >> left_over & 0xFF);
    }
    const std::uint32_t unused = (1u << (2 * padding)) - 1;
    if ((bits & unused) != 0) return std::nullopt;
    return bytes;
}

}  // namespace velda::crypt
