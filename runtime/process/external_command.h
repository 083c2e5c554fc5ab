// external_command.h - programs of the operating system as commands. Private to the runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/process/command_level.h"
#include "runtime/vdefc.h"

namespace velda {

// The words of a command line for a program: divided by AM or else by blanks, where a stretch in double or single
// quotes is one word without the quotes.
std::vector<std::string> program_words(std::string_view command_line);

// The path of a program: `name` itself when it holds a "/", else the first executable of that name in the directories
// of VBCDEV_BIN, where cataloged programs are, and then of PATH.
std::optional<std::string> find_program(const std::string &name);

// Runs a program to its end. It has the terminal, unless output is captured: then what it writes to standard output and
// standard error goes to write_output(). Lines that the caller stacked are its standard input. The exit code is the
// program's, or 128 and the number of the signal that killed it. System messages that a command of this system prints
// there come back in the outcome.
CommandOutcome run_program(DP *dp, const std::string &path, const std::vector<std::string> &words);

// Tells the process that started this one, when it asked, which messages a command has printed.
void return_messages(const std::vector<std::string> &messages);

}  // namespace velda
