// data_stack.h - lines stacked by DATA (VLibCDATA_VIB), which the next INPUT statements take before the terminal.
// Private to the runtime. Reached by dp->state<velda::DataStack>().
//
// Lines that a command stacks are for its own next INPUT, or for the command that it executes next. Lines that it was
// given when it was started stay its own: an executed command does not get them.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace velda {

struct DataStack {
    std::deque<std::string> lines;  // front is the next line to be read
    std::size_t stacked = 0;  // how many of them, at the back, this command stacked itself; may exceed what is left

    void push(std::string line);
    // A command starts: it is left with the lines that its caller stacked. Gives what stays the caller's.
    DataStack hand_over();
    // A command ended: what it has not read is dropped, and the caller's own lines are back.
    void take_back(DataStack callers);
};

}  // namespace velda
