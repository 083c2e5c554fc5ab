#include "runtime/process/data_stack.h"

#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <utility>

#include "runtime/process/context.h"
#include "runtime/process/process.h"

namespace velda {

void DataStack::push(std::string line) {
    lines.push_back(std::move(line));
    stacked = std::min(stacked, lines.size() - 1) + 1;
}

DataStack DataStack::hand_over() {
    const std::size_t own = std::min(stacked, lines.size());
    const auto first_own = lines.end() - static_cast<std::ptrdiff_t>(own);
    DataStack callers;
    callers.lines.assign(std::make_move_iterator(lines.begin()), std::make_move_iterator(first_own));
    lines.erase(lines.begin(), first_own);
    stacked = 0;
    return callers;
}

void DataStack::take_back(DataStack callers) { *this = std::move(callers); }

}  // namespace velda

void VLibCDATA_VIB(DP *dp, int count, ...) {
    va_list texts;
    va_start(texts, count);
    for (int i = 0; i < count; ++i) dp->state<velda::DataStack>().push(va_arg(texts, const VAR *)->str());
    va_end(texts);
}
