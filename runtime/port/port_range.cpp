#include "runtime/port/port_range.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string>

namespace velda::port {

namespace {

std::optional<int> port_number(std::string_view text) {
    int number = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failed != std::errc() || end != text.data() + text.size() || number < 0 || number > LargestPort)
        return std::nullopt;
    return number;
}

std::optional<PortRange> port_range(std::string_view text) {
    const std::size_t dash = text.find('-');
    const auto first = port_number(text.substr(0, dash));
    const auto last = dash == std::string_view::npos ? first : port_number(text.substr(dash + 1));
    if (!first || !last || *last < *first) return std::nullopt;
    return PortRange{*first, *last};
}

}  // namespace

Result<std::vector<PortRange>> parse_port_ranges(std::string_view text) {
    std::string packed(text);
    std::erase(packed, ' ');
    std::vector<PortRange> ranges;
    for (std::string_view left = packed;;) {
        const std::size_t comma = left.find(',');
        const auto range = port_range(left.substr(0, comma));
        if (!range)
            return Error{EINVAL, "'" + std::string(text) + "' is no port number, range (first-last) or list of them"};
        ranges.push_back(*range);
        if (comma == std::string_view::npos) return ranges;
        left.remove_prefix(comma + 1);
    }
}

}  // namespace velda::port
