// model.h - the operations on dynamic arrays and texts in the most obvious way: lists of lists of strings, no views, no
// memory of positions. The fast implementation is tested against it.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace model {

using Text = std::string;
using List = std::vector<Text>;

inline const std::array<char, 3> Marks = {'\xFE', '\xFD', '\xFC'};

inline bool is_mark(char byte) { return byte == Marks[0] || byte == Marks[1] || byte == Marks[2]; }

// The empty text has no elements.
inline List split(const Text &text, const Text &delimiter) {
    List list;
    if (text.empty()) return list;
    std::size_t begin = 0;
    for (std::size_t at = 0; at + delimiter.size() <= text.size() && !delimiter.empty();) {
        if (text.compare(at, delimiter.size(), delimiter) == 0) {
            list.push_back(text.substr(begin, at - begin));
            at = begin = at + delimiter.size();
        } else {
            ++at;
        }
    }
    list.push_back(text.substr(begin));
    return list;
}
inline List split(const Text &text, char mark) { return split(text, Text(1, mark)); }

inline Text join(const List &list, const Text &delimiter) {
    Text text;
    for (std::size_t i = 0; i < list.size(); ++i) text += (i ? delimiter : Text()) + list[i];
    return text;
}
inline Text join(const List &list, char mark) { return join(list, Text(1, mark)); }

// Positions down to the last that is not 0; 0 above it counts as 1.
inline std::vector<int> path(int a, int v, int s) {
    std::vector<int> result = {a, v, s};
    while (!result.empty() && result.back() == 0) result.pop_back();
    for (int &number : result)
        if (number == 0) number = 1;
    return result;
}

inline Text extract(Text text, int a, int v, int s) {
    std::size_t level = 0;
    for (int number : path(a, v, s)) {
        const List list = split(text, Marks[level++]);
        if (number < 1 || static_cast<std::size_t>(number) > list.size()) return "";
        text = list[static_cast<std::size_t>(number) - 1];
    }
    return text;
}

// Applies `change` to the list at the end of the path; the levels above are padded when `pads`.
template <class Change>
Text at_path(const Text &text, const std::vector<int> &path, bool pads, Change change, std::size_t level = 0) {
    List list = split(text, Marks[level]);
    std::size_t number = path[level] < 0 ? list.size() + 1 : static_cast<std::size_t>(path[level]);
    if (level + 1 == path.size()) {
        change(list, number);
    } else {
        if (number > list.size() && !pads) return text;
        if (number > list.size()) list.resize(number);
        list[number - 1] = at_path(list[number - 1], path, pads, change, level + 1);
    }
    return join(list, Marks[level]);
}

inline Text replace(const Text &text, int a, int v, int s, const Text &value) {
    if (path(a, v, s).empty()) return value;
    return at_path(text, path(a, v, s), true, [&](List &list, std::size_t number) {
        if (number > list.size()) list.resize(number);
        list[number - 1] = value;
    });
}

inline Text insert(const Text &text, int a, int v, int s, const Text &value) {
    return at_path(text, path(a == 0 ? 1 : a, v, s), true, [&](List &list, std::size_t number) {
        number = std::min(number, list.size() + 1);
        list.insert(list.begin() + (static_cast<std::ptrdiff_t>(number) - 1), value);
    });
}

inline Text remove(const Text &text, int a, int v, int s) {
    if (path(a, v, s).empty()) return text;
    return at_path(text, path(a, v, s), false, [&](List &list, std::size_t number) {
        if (number <= list.size()) list.erase(list.begin() + (static_cast<std::ptrdiff_t>(number) - 1));
    });
}

struct Location {
    bool found;
    int position;
};

// `is_behind`(element) is true for the first element before which the wanted one belongs; never for a search without
// order.
template <class IsBehind>
Location locate(const Text &wanted, const Text &array, int a, int v, int start, IsBehind is_behind) {
    const List list = split(extract(array, a, v, 0), Marks[path(a, v, 0).size()]);
    for (std::size_t i = static_cast<std::size_t>(std::max(start, 1)) - 1; i < list.size(); ++i) {
        if (list[i] == wanted) return {true, static_cast<int>(i) + 1};
        if (is_behind(list[i])) return {false, static_cast<int>(i) + 1};
    }
    return {false, static_cast<int>(list.size()) + 1};
}

// The occurrence-th element for which `fits` holds, as attribute, value and sub-value; zeros when there is none.
template <class Fits>
std::array<int, 3> find(const Text &array, int occurrence, Fits fits) {
    const auto pieces = [](const Text &text, char mark) { return text.empty() ? List{""} : split(text, mark); };
    const List attributes = split(array, Marks[0]);
    for (std::size_t a = 0; a < attributes.size(); ++a) {
        const List values = pieces(attributes[a], Marks[1]);
        for (std::size_t v = 0; v < values.size(); ++v) {
            const List sub_values = pieces(values[v], Marks[2]);
            for (std::size_t s = 0; s < sub_values.size(); ++s)
                if (fits(sub_values[s]) && --occurrence < 1)
                    return {static_cast<int>(a) + 1, static_cast<int>(v) + 1, static_cast<int>(s) + 1};
        }
    }
    return {0, 0, 0};
}

inline int count(const Text &text, const Text &part) {
    return text.empty() ? 0 : static_cast<int>(split(text, part).size()) - 1;
}

inline int dcount(const Text &text, const Text &delimiter) { return static_cast<int>(split(text, delimiter).size()); }

inline int index(const Text &text, const Text &part, int occurrence) {
    const List pieces = split(text, part);
    const std::size_t before = static_cast<std::size_t>(std::max(occurrence, 1));
    if (pieces.size() <= before) return 0;
    const List leading(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(before));
    return static_cast<int>(join(leading, part).size()) + 1;
}

inline Text field(const Text &text, const Text &delimiter, int first, int number) {
    const List pieces = split(text, delimiter);
    List result;
    for (int i = 0; i < std::max(number, 1); ++i) {
        const std::size_t at = static_cast<std::size_t>(std::max(first, 1)) - 1 + static_cast<std::size_t>(i);
        if (at < pieces.size()) result.push_back(pieces[at]);
    }
    return join(result, delimiter);
}

inline Text substring(const Text &text, int start, int length) {
    Text result;
    const int size = static_cast<int>(text.size());
    const int first = start < 0 ? std::max(size + 1 + start, 1) : std::max(start, 1);
    for (int position = 1; position <= size; ++position) {
        const bool before_end = length < 0 ? position <= size + 1 + length : position - first < length;
        if (position >= first && before_end) result += text[static_cast<std::size_t>(position) - 1];
    }
    return result;
}

inline Text change(const Text &text, const Text &old_text, const Text &new_text, int occurrences, int start) {
    Text result;
    int seen = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (!old_text.empty() && text.compare(at, old_text.size(), old_text) == 0) {
            ++seen;
            const int from = std::max(start, 1);
            const bool replaces = seen >= from && (occurrences < 1 || seen < from + occurrences);
            result += replaces ? new_text : old_text;
            at += old_text.size();
        } else {
            result += text[at++];
        }
    }
    return result;
}

inline Text convert(const Text &text, const Text &from, const Text &to) {
    Text result;
    for (char byte : text) {
        const std::size_t at = from.find(byte);
        if (at == Text::npos) result += byte;
        if (at < to.size()) result += to[at];
    }
    return result;
}

inline Text trim(Text text, char byte, char type) {
    if (type == 'A') text.erase(std::remove(text.begin(), text.end(), byte), text.end());
    if (type == 'L' || type == 'B' || type == 'R')
        while (!text.empty() && text.front() == byte) text.erase(0, 1);
    if (type == 'T' || type == 'B' || type == 'R')
        while (!text.empty() && text.back() == byte) text.pop_back();
    for (std::size_t i = 1; type == 'R' && i < text.size();) {
        if (text[i] == byte && text[i - 1] == byte)
            text.erase(i, 1);
        else
            ++i;
    }
    return text;
}

inline Text raise(Text text) { return convert(text, "\xFD\xFC\xFB\xFA", "\xFE\xFD\xFC\xFB"); }
inline Text lower(Text text) { return convert(text, "\xFE\xFD\xFC\xFB", "\xFD\xFC\xFB\xFA"); }

inline Text sort(const Text &text) {
    List list = split(text, Marks[0]);
    std::sort(list.begin(), list.end());
    return join(list, Marks[0]);
}

// Follows every way through the text. Patterns here are made of the counted classes and quoted literals.
inline bool matches_from(const Text &text, std::size_t at, const Text &pattern, std::size_t p) {
    if (p == pattern.size()) return at == text.size();
    if (pattern[p] == '\'' || pattern[p] == '"') {
        const std::size_t close = pattern.find(pattern[p], p + 1);
        const Text literal = pattern.substr(p + 1, close - p - 1);
        return text.compare(at, literal.size(), literal) == 0 &&
               matches_from(text, at + literal.size(), pattern, close + 1);
    }
    const int wanted = std::stoi(pattern.substr(p));
    const std::size_t letter = pattern.find_first_not_of("0123456789", p);
    const auto in_class = [&](char byte) {
        const bool digit = byte >= '0' && byte <= '9';
        const bool alpha = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        switch (pattern[letter]) {
            case 'N':
                return digit;
            case 'A':
                return alpha;
            case 'C':
                return digit || alpha;
            default:
                return true;
        }
    };
    for (std::size_t length = 0; at + length <= text.size(); ++length) {
        if ((wanted == 0 || length == static_cast<std::size_t>(wanted)) &&
            matches_from(text, at + length, pattern, letter + 1))
            return true;
        if (at + length == text.size() || !in_class(text[at + length])) break;
    }
    return false;
}

inline bool matches(const Text &text, const Text &pattern) {
    for (const Text &alternative : split(pattern, Marks[1]))
        if (matches_from(text, 0, alternative, 0)) return true;
    return pattern.empty() && text.empty();
}

}  // namespace model
