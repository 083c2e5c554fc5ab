// port_range.h - lists of port numbers as VBCPORTNO and LISTU write them. Private to the folder.
#pragma once

#include <string_view>
#include <vector>

#include "runtime/base/result.h"

namespace velda::port {

inline constexpr int LargestPort = 999999999;

struct PortRange {
    int first = 0;
    int last = 0;
};

// "5", "100-199", or several of them with commas between; blanks are allowed anywhere. Ranges keep their order.
Result<std::vector<PortRange>> parse_port_ranges(std::string_view text);

}  // namespace velda::port
