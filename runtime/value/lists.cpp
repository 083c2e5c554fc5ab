// lists.cpp - SORT and SUM.
#include <algorithm>
#include <string_view>
#include <vector>

#include "runtime/value/buffer.h"
#include "runtime/value/dynamic_array.h"
#include "runtime/value/number.h"
#include "runtime/value/scan.h"

namespace velda {

namespace {

// The pieces of a text between the bytes for which `divides` holds; the empty text is one empty piece.
template <class Divides>
std::vector<std::string_view> divided(std::string_view text, Divides divides) {
    std::vector<std::string_view> pieces;
    std::size_t begin = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!divides(text[at])) continue;
        pieces.push_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

}  // namespace

}  // namespace velda

using namespace velda;

VAR *VLibESORT_BBB(DP *, VAR *target, const VAR *source) {
    const std::string_view text = text_of(*source);
    std::vector<std::string_view> attributes = divided(text, [](char byte) { return byte == AM; });
    std::sort(attributes.begin(), attributes.end());
    TextBuilder sorted(text.size());
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        if (i > 0) sorted.append(AM);
        sorted.append(attributes[i]);
    }
    sorted.move_into(*target);
    return target;
}

VAR *VLibESUM_BBB(DP *dp, VAR *target, const VAR *source) {
    VAR sum = 0;
    for (std::string_view element : divided(text_of(*source), is_level_mark))
        VLibDMATHADD_BBBB(dp, &sum, &sum, Argument(element));
    return VLibBSTORE_BBB(dp, target, &sum);
}
