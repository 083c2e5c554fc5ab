// script.h - scripts of commands. One command a line; blank lines and lines that begin with "#" are skipped; lines that
// begin with "<" behind a command are the replies to what it asks, in order. The first command that fails ends the
// script with its exit code.
#pragma once

#include "commands/command.h"

namespace velda::commands {

int run_script_text(DP *dp, const std::string &text);

// `path` "-" is standard input. A file that cannot be read is a message and exit code 2.
int run_script_file(DP *dp, const std::string &path);

}  // namespace velda::commands
