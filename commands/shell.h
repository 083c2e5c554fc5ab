// shell.h - the interactive shell: line editing and history, the account's prompt, ? for help.
#pragma once

#include "commands/command.h"

namespace velda::commands {

// Reads commands until OFF or the end of the input. The exit code is 0 on a terminal, else that of the last command.
int run_shell(DP *dp);

}  // namespace velda::commands
