// text.cpp - substrings, concatenation, repetition, and tests of single bytes.
#include <algorithm>
#include <cstdarg>
#include <string_view>
#include <vector>

#include "runtime/value/buffer.h"
#include "runtime/value/classes.h"

namespace velda {

namespace {

// The bytes of x[start,length]. 64-bit numbers: no argument makes them overflow.
std::string_view substring_of(std::string_view text, std::int64_t start, std::int64_t length) {
    const auto size = static_cast<std::int64_t>(text.size());
    if (start < 0) start = std::max<std::int64_t>(size + 1 + start, 1);
    const std::int64_t begin = std::max<std::int64_t>(start, 1) - 1;
    const std::int64_t end = length < 0 ? size + 1 + length : std::min(begin + length, size);
    if (end <= begin) return {};
    return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

// The parts one behind another; all are read before the target changes.
void join(VAR &target, const VAR *const *parts, std::size_t count) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) length += text_of(*parts[i]).size();
    TextBuilder builder(length);
    for (std::size_t i = 0; i < count; ++i) builder.append(text_of(*parts[i]));
    builder.move_into(target);
}

// The target is the first part: the others go behind its text.
void append_parts(VAR &target, const VAR *const *parts, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) append_to(target, text_of(*parts[i]));
}

void concatenate(VAR &target, const VAR *const *parts, std::size_t count) {
    const bool appends =
        count > 0 && parts[0] == &target &&
        std::none_of(parts + 1, parts + count, [&](const VAR *part) { return lies_in(text_of(*part), target); });
    if (appends)
        append_parts(target, parts + 1, count - 1);
    else
        join(target, parts, count);
}

struct ByteClass {
    int number;
    bool (*holds)(char byte);
};

constexpr ByteClass ByteClasses[] = {
    {VELDA_IS_ALPHANUMERIC, is_letter_or_digit}, {VELDA_IS_CONTROL, is_control}, {VELDA_IS_DIGIT, is_digit},
    {VELDA_IS_PRINTABLE, is_printable},          {VELDA_IS_SPACE, is_space},     {VELDA_IS_UPPER, is_upper_letter},
};

char control_character(char byte) {
    if (byte == '?') return 127;
    if (byte == '~' || byte == '\\') return 28;
    const bool has_one = is_letter(byte) || (byte >= '@' && byte <= '_');
    return has_one ? static_cast<char>(byte & 31) : byte;
}

}  // namespace

}  // namespace velda

using namespace velda;

VAR *VLibESUBSTR_BBBII(DP *, VAR *target, const VAR *string, int start, int length) {
    store_text(*target, substring_of(text_of(*string), start, length));
    return target;
}

VAR *VLibECAT_BBBB(DP *, VAR *target, const VAR *left, const VAR *right) {
    const VAR *const parts[] = {left, right};
    concatenate(*target, parts, 2);
    return target;
}

VAR *VLibEMCAT_BBI(DP *, VAR *target, int count, ...) {
    std::vector<const VAR *> parts(static_cast<std::size_t>(std::max(count, 0)));
    va_list arguments;
    va_start(arguments, count);
    for (const VAR *&part : parts) part = va_arg(arguments, const VAR *);
    va_end(arguments);
    concatenate(*target, parts.data(), parts.size());
    return target;
}

VAR *VLibESTR_BBBI(DP *, VAR *target, const VAR *string, int count) {
    const std::string_view text = text_of(*string);
    const std::size_t times = static_cast<std::size_t>(std::max(count, 0));
    TextBuilder builder(text.size() * times);
    for (std::size_t i = 0; i < times && !text.empty(); ++i) builder.append(text);
    builder.move_into(*target);
    return target;
}

VAR *VLibESPACE_BBI(DP *, VAR *target, int count) {
    const std::size_t length = static_cast<std::size_t>(std::max(count, 0));
    std::fill_n(new_text(*target, length), length, ' ');
    return target;
}

VAR *VLibECHAR_BBI(DP *, VAR *target, int byte) {
    *new_text(*target, 1) = static_cast<char>(byte);
    return target;
}

int VLibGSEQ_IB(DP *, const VAR *string) {
    const std::string_view text = text_of(*string);
    return text.empty() ? 0 : static_cast<unsigned char>(text.front());
}

VAR *VLibECONTROLCHAR_BBB(DP *, VAR *target, const VAR *source) {
    const std::string_view text = text_of(*source);
    char *const bytes = editable_copy(*target, text);
    std::transform(bytes, bytes + text.size(), bytes, control_character);
    return target;
}

int VLibEALPHA_IB(DP *, const VAR *string) {
    const std::string_view text = text_of(*string);
    return !text.empty() && std::all_of(text.begin(), text.end(), is_letter);
}

int VLibEISTYPE_IBI(DP *, const VAR *character, int type) {
    const std::string_view text = text_of(*character);
    for (const ByteClass &byte_class : ByteClasses)
        if (byte_class.number == type) return !text.empty() && byte_class.holds(text.front());
    return 0;
}
