// command.h - the commands of the program `velda`: one table that dispatch, help and documentation read.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/vutil.h"

namespace velda::commands {

// The words of a command line behind the command's name. Blanks and tabs divide words; empty words are dropped.
using Words = std::vector<std::string>;

struct CommandEntry {
    std::string_view name;       // upper case for database commands; the lower-case spelling works as well
    std::string_view arguments;  // what follows the name, as the help shows it
    std::string_view summary;    // one line
    std::string_view details;    // further help lines, divided by line feeds; may be empty
    void (*run)(DP *dp, const Words &words);
    bool own_help = false;  // true: the command answers -? itself
};

// All commands in the order of the help.
std::span<const CommandEntry> command_entries();

// Registers the table with the runtime, so that EXECUTE finds the commands too.
void register_command_entries();

// The entry for a name in either spelling; null when there is none.
const CommandEntry *find_entry(std::string_view name);

// The help of one command, and the list of all with their summaries.
std::string help_text(const CommandEntry &entry);
std::string help_overview();

// The words of the running command, from SYSTEM(1000).
Words command_words();

// Words joined into a sentence as SYSTEM(1000) holds it: divided by attribute marks.
std::string join_words(const Words &words);

// Runs one sentence as a command of its own and gives its exit code.
int run_sentence(DP *dp, const std::string &sentence);

// Ends the running command: prints "NAME: reason" and the way to its help, exit code 2.
[[noreturn]] void usage_error(std::string_view command, const std::string &reason);

// Ends the running command with a message and exit code 1.
[[noreturn]] void fail(const std::string &message);

}  // namespace velda::commands
