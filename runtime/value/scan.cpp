#include "runtime/value/scan.h"

#include <algorithm>

namespace velda {

namespace {

// Set when the process starts; whoever comes before that uses the portable loops.
constinit const ScanKernels *active_kernels = &PortableKernels;
[[maybe_unused]] const bool kernels_chosen = [] {
    if (const ScanKernels *const fast = fast_kernels()) active_kernels = fast;
    return true;
}();

std::size_t count_byte_portably(const char *begin, const char *end, char byte) {
    return static_cast<std::size_t>(std::count(begin, end, byte));
}

const char *skip_bytes_portably(const char *begin, const char *end, char byte, std::size_t &wanted) {
    for (const char *at = begin; (at = find_byte(at, end, byte)) != end; ++at)
        if (--wanted == 0) return at;
    return end;
}

bool matches_at(const char *at, const char *end, const Needle &needle) {
    if (needle.kind == Needle::Plain)
        return std::string_view(at, static_cast<std::size_t>(end - at)).substr(0, needle.text.size()) == needle.text;
    const auto is_mark = [&](char byte) {
        return needle.kind == Needle::AnyElement ? is_level_mark(byte) : byte == needle.mark;
    };
    if (!is_mark(*at)) return false;
    const std::string_view rest(at + 1, static_cast<std::size_t>(end - at - 1));
    return rest.substr(0, needle.text.size()) == needle.text &&
           (rest.size() == needle.text.size() || is_mark(rest[needle.text.size()]));
}

const char *find_portably(const char *begin, const char *end, const Needle &needle) {
    for (const char *at = begin; at != end; ++at) {
        if (needle.kind != Needle::AnyElement) {
            at = find_byte(at, end, needle.kind == Needle::Plain ? needle.text.front() : needle.mark);
            if (at == end) break;
        }
        if (matches_at(at, end, needle)) return at;
    }
    return end;
}

const char *find_counting_portably(const char *begin, const char *end, const Needle &needle, std::size_t &marks) {
    const char *const found = find_portably(begin, end, needle);
    marks += count_byte_portably(begin, found, needle.mark);
    return found;
}

void replace_byte_portably(const char *begin, const char *end, char *target, char byte, char with) {
    std::transform(begin, end, target, [=](char old) { return old == byte ? with : old; });
}

template <class IsMark>
bool begins_with_element(std::string_view array, std::string_view element, IsMark is_mark) {
    if (array.substr(0, element.size()) != element) return false;
    return array.size() == element.size() || is_mark(array[element.size()]);
}

}  // namespace

constinit const ScanKernels PortableKernels = {count_byte_portably, skip_bytes_portably, find_portably,
                                               find_counting_portably, replace_byte_portably};

const ScanKernels &scan_kernels() { return *active_kernels; }

std::size_t find_text(std::string_view text, std::string_view wanted, std::size_t from) {
    if (wanted.empty() || from >= text.size()) return std::string_view::npos;
    const char *const begin = text.data() + from;
    const char *const end = text.data() + text.size();
    const char *const found = wanted.size() == 1 ? find_byte(begin, end, wanted.front())
                                                 : scan_kernels().find(begin, end, {Needle::Plain, wanted});
    return found == end ? std::string_view::npos : static_cast<std::size_t>(found - text.data());
}

std::size_t find_any_element(std::string_view array, std::string_view wanted, std::size_t from) {
    if (array.empty()) return std::string_view::npos;
    const std::string_view rest = array.substr(from);
    if (begins_with_element(rest, wanted, is_level_mark)) return from;  // no mark is looked for ahead of it
    const char *const end = rest.data() + rest.size();
    const char *const found = scan_kernels().find(rest.data(), end, {Needle::AnyElement, wanted});
    return found == end ? std::string_view::npos : static_cast<std::size_t>(found - array.data()) + 1;
}

std::size_t find_element(std::string_view list, std::string_view wanted, char mark, std::size_t &count) {
    count = 0;
    if (list.empty()) return 0;
    if (begins_with_element(list, wanted, [mark](char byte) { return byte == mark; })) return 1;
    const char *const end = list.data() + list.size();
    std::size_t marks = 0;
    const char *const found = scan_kernels().find_counting(list.data(), end, {Needle::Element, wanted, mark}, marks);
    count = marks + 1;
    return found == end ? 0 : marks + 2;
}

}  // namespace velda
