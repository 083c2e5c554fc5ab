// dynamic_array.h - where the elements of a dynamic array lie. Private to the runtime.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "runtime/value/buffer.h"
#include "runtime/vdefc.h"

namespace velda {

inline constexpr int Levels = 3;
inline constexpr std::array<char, Levels> LevelMarks = {AM, VM, SVM};

// A position as the operations mean it: `depth` levels count, each number is 1 or more, or Append.
struct Position {
    static constexpr int Append = -1;

    Position(int a, int v, int s);

    std::array<int, Levels> numbers;
    int depth;
};

// Bytes of an array, from `begin` to before `end`.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;

    bool empty() const { return begin == end; }
    std::string_view of(std::string_view text) const { return text.substr(begin, end - begin); }
};

// Where an element lies or would come to lie.
struct Place {
    Range element;                              // empty, at the end of `parent`, when it is absent
    Range parent;                               // the element of the level above
    std::array<std::size_t, Levels> padding{};  // marks of each level that lack before it
    bool present = true;
};

// The place of a position; the search goes on from the attribute and value that were found last in this cell.
Place find_place(const VAR &array, const Position &position);

// The bytes of an element in place; empty when it is absent.
std::string_view element_of(const VAR &array, int a, int v, int s);

// x<a,v,s> = value, which may lie in the array itself.
void replace_element(VAR &array, const Position &position, std::string_view value);

}  // namespace velda
