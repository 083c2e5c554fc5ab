// scan.h - searching bytes: the loops that everything on strings and dynamic arrays spends its time in.
// Private to the runtime.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace velda {

// Where `byte` stands first in [begin, end), or `end`.
inline const char *find_byte(const char *begin, const char *end, char byte) {
    if (begin == end) return end;
    const void *const found =
        std::memchr(begin, static_cast<unsigned char>(byte), static_cast<std::size_t>(end - begin));
    return found ? static_cast<const char *>(found) : end;
}

// How often `byte` occurs.
std::size_t count_byte(std::string_view text, char byte);

// Goes over `wanted` occurrences (at least 1) of `byte` in [begin, end): the address of the last of them, and `wanted`
// is 0. Where there are fewer, `end`, and `wanted` is the number that lack.
const char *skip_bytes(const char *begin, const char *end, char byte, std::size_t &wanted);

// Where `wanted` occurs first at or behind `from`; npos when it does not or is empty.
std::size_t find_text(std::string_view text, std::string_view wanted, std::size_t from = 0);

}  // namespace velda
