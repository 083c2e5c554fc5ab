// command_table.h - the commands that run inside the calling process. A program that offers commands, such as `velda`,
// registers its table before it runs the first one.
#ifndef VELDA_RUNTIME_COMMAND_TABLE_H
#define VELDA_RUNTIME_COMMAND_TABLE_H

#include <span>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

struct Command {
    std::string_view name;  // compared exactly
    void (*run)(DP *dp);    // reads its words from SYSTEM(1000); a return is a plain STOP
};

// Adds a table, which must live as long as the process. A name registered twice means the later one.
VELDA_EXPORT void register_commands(std::span<const Command> commands);

// The command of that name, null when there is none.
VELDA_EXPORT const Command *find_command(std::string_view name);

}  // namespace velda

#endif
