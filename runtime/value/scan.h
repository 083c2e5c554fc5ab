// scan.h - searching bytes: the loops that everything on strings and dynamic arrays spends its time in.
// Private to the runtime.
//
// Each loop exists twice: portable, and for processors with AVX2, 32 bytes at a step. The process takes the faster ones
// that it can run when it starts. A single byte is searched by the C library, which does the same.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// What to search for in a text of which a whole range is given.
struct Needle {
    enum Kind {
        Plain,       // `text` anywhere; it is not empty
        Element,     // `text` between a `mark`, which is found, and another or the end of the range
        AnyElement,  // the same with any of AM, VM and SVM
    };

    Kind kind;
    std::string_view text;
    char mark = AM;
};

// True for AM, VM and SVM.
constexpr bool is_level_mark(char byte) { return byte >= SVM && byte <= AM; }

struct ScanKernels {
    // How often `byte` occurs.
    std::size_t (*count_byte)(const char *begin, const char *end, char byte);
    // Goes over `wanted` occurrences (at least 1) of `byte`: the address of the last of them, and `wanted` is 0. Where
    // there are fewer, `end`, and `wanted` is the number that lack.
    const char *(*skip_bytes)(const char *begin, const char *end, char byte, std::size_t &wanted);
    // The first place of the needle, or `end`.
    const char *(*find)(const char *begin, const char *end, const Needle &needle);
    // The same for a needle of kind Element; adds to `marks` the number of its marks before that place.
    const char *(*find_counting)(const char *begin, const char *end, const Needle &needle, std::size_t &marks);
    // Copies to `target`, which may be `begin` itself, with `with` in the place of each `byte`.
    void (*replace_byte)(const char *begin, const char *end, char *target, char byte, char with);
};

extern const ScanKernels PortableKernels;
// Those that this process uses, and the fast ones when the processor has what they need, else null.
const ScanKernels &scan_kernels();
const ScanKernels *fast_kernels();

// Where `byte` stands first in [begin, end), or `end`.
inline const char *find_byte(const char *begin, const char *end, char byte) {
    if (begin == end) return end;
    const void *const found =
        std::memchr(begin, static_cast<unsigned char>(byte), static_cast<std::size_t>(end - begin));
    return found ? static_cast<const char *>(found) : end;
}

// Where the last of the elements of [begin, end) that the mark divides begins.
inline std::size_t begin_of_last(std::string_view text, std::size_t begin, std::size_t end, char mark) {
    if (begin == end) return begin;
    const void *const last = memrchr(text.data() + begin, static_cast<unsigned char>(mark), end - begin);
    return last ? static_cast<std::size_t>(static_cast<const char *>(last) - text.data()) + 1 : begin;
}

inline std::size_t count_byte(std::string_view text, char byte) {
    return scan_kernels().count_byte(text.data(), text.data() + text.size(), byte);
}

inline const char *skip_bytes(const char *begin, const char *end, char byte, std::size_t &wanted) {
    return scan_kernels().skip_bytes(begin, end, byte, wanted);
}

// Where `wanted` occurs first at or behind `from`; npos when it does not or is empty.
std::size_t find_text(std::string_view text, std::string_view wanted, std::size_t from = 0);

// Where an element of any level equals `wanted`, which holds none of AM, VM and SVM; npos when none does. The search
// goes from `from`, the beginning of an element. The empty text has no elements.
std::size_t find_any_element(std::string_view array, std::string_view wanted, std::size_t from);

// The number, from 1, of the element between marks that equals `wanted`, which does not hold the mark; when none does,
// 0, and `count` is the number of elements. The empty text has no elements.
std::size_t find_element(std::string_view list, std::string_view wanted, char mark, std::size_t &count);

}  // namespace velda
