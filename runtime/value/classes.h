// classes.h - ASCII classes of bytes, whatever the locale. Private to the runtime.
#pragma once

namespace velda {

constexpr bool is_upper_letter(char byte) { return byte >= 'A' && byte <= 'Z'; }
constexpr bool is_lower_letter(char byte) { return byte >= 'a' && byte <= 'z'; }
constexpr bool is_letter(char byte) { return is_upper_letter(byte) || is_lower_letter(byte); }
constexpr bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }
constexpr bool is_letter_or_digit(char byte) { return is_letter(byte) || is_digit(byte); }
constexpr bool is_control(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 127; }
constexpr bool is_printable(char byte) { return byte >= ' ' && byte < 127; }
constexpr bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

constexpr char to_upper(char byte) { return is_lower_letter(byte) ? static_cast<char>(byte - 'a' + 'A') : byte; }
constexpr char to_lower(char byte) { return is_upper_letter(byte) ? static_cast<char>(byte - 'A' + 'a') : byte; }

}  // namespace velda
