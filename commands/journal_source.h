// journal_source.h - what the commands that read journal files share.
#pragma once

#include "commands/command.h"
#include "journal/log_scan.h"

namespace velda::commands {

// The source that the words name: a set by its number, files by their paths, or, without words, the current set. Words
// that begin with "-" are a usage error of `command`.
Result<journal::LogSource> source_operand(DP *dp, std::string_view command, const Words &words);

// The number of a set, 0 for none.
int set_number(const std::string &word);
int current_set(DP *dp);

// "set 3", or the paths.
std::string source_name(const journal::LogSource &source);

// Prints text as it stands.
void show_text(const std::string &text);

// Ends the running command with a message and an exit code.
[[noreturn]] void fail_with(const std::string &message, int code);

}  // namespace velda::commands
