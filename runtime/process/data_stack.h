// data_stack.h - lines stacked by DATA (VLibCDATA_VIB), which the next INPUT statements take before the terminal.
// Private to the runtime. Reached by dp->state<velda::DataStack>().
#pragma once

#include <deque>
#include <string>

namespace velda {

struct DataStack {
    std::deque<std::string> lines;  // front is the next line to be read
};

}  // namespace velda
