// marks.h - dynamic arrays as visible text in tests: ^ is an attribute mark, ] a value mark, \ a sub-value mark.
#pragma once

#include <string>
#include <string_view>

inline constexpr std::string_view VisibleMarks = "^]\\";
inline constexpr std::string_view RealMarks = "\xFE\xFD\xFC";

inline std::string translate_bytes(std::string_view text, std::string_view from, std::string_view to)
{
    std::string result(text);
    for (char &byte : result) {
        if (auto at = from.find(byte); at != std::string_view::npos) byte = to[at];
    }
    return result;
}

// "a^b]c" -> a AM b VM c
inline std::string marks(std::string_view visible) { return translate_bytes(visible, VisibleMarks, RealMarks); }

// a AM b VM c -> "a^b]c"
inline std::string shown(std::string_view real) { return translate_bytes(real, RealMarks, VisibleMarks); }
