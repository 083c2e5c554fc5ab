// command_level.h - what belongs to one running command: its sentence, exit handlers, named commons, return code,
// messages and trap. Private to the runtime.
//
// A context has a bottom level, which is the process outside of any command, and one more for each command that runs
// inside another. A level is to its command what a process of its own would be: an executed command attaches commons of
// its own, and its open files and exit handlers are gone when it ends. The first command of a context uses the
// process's commons, so what a program leaves in them can be looked at after velda_run. The default select list, the
// locks, the environment and the current directory are the session's: an executed command finds and leaves them as they
// are.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/process/process.h"
#include "runtime/vdefc.h"

namespace velda {

struct SignalTrap {
    VELDASignalTrap handler = nullptr;
    void *argument = nullptr;
};

// A named common block: its cells, which never move while the block lives.
struct CommonCells {
    std::unique_ptr<VAR[]> cells;
    int count = 0;
};
using CommonTable = std::map<std::string, CommonCells, std::less<>>;

struct CommandLevel {
    std::string command_line;                // SYSTEM(1000): words divided by AM
    std::vector<std::string> exit_handlers;  // in the order of their registration
    std::vector<std::string> handlers_run;   // those that have had their turn: none has a second one
    std::vector<std::string> messages;       // printed so far, key and parameters divided by VM
    std::optional<int> return_code;          // set by VELDASetSystemReturnCode
    SignalTrap trap;
    VELDADebugTrap debug_trap = nullptr;
    CommonTable commons;
};

// How a command ended.
struct CommandOutcome {
    int exit_code = 0;
    std::optional<int> return_code;
    std::vector<std::string> messages;
    std::optional<std::string> chained;  // the command that takes its place
    std::deque<std::string> unread;      // stacked data left for it
};

// Runs `body` as a new command level. After a CHAIN the outcome names the command to go on with, which has not been
// run.
CommandOutcome run_command_level(DP *dp, std::string_view sentence, const std::function<void()> &body);

// Looks the command up and runs it; see execute.cpp for the order. The same as to CHAIN.
CommandOutcome run_command_line(DP *dp, std::string_view command_line);

// A command that cannot be run: prints the message as that command and ends it with the code.
CommandOutcome refuse_command(DP *dp, std::string_view name, std::string_view message, int exit_code);

// Runs what an outcome chains to, until a command ends without CHAIN.
CommandOutcome follow_chain(DP *dp, CommandOutcome outcome);

// The innermost level, and how many commands run (0 outside of any).
CommandLevel &current_level(DP *dp);
int command_depth(DP *dp);

// The table of commons that the innermost command uses.
CommonTable &current_commons(DP *dp);

// Keeps a message that was printed for the RETURNING of the EXECUTE that runs this command.
void note_message(DP *dp, std::string_view message);

// The trap of the innermost level; setting returns the one before.
SignalTrap signal_trap(DP *dp);
SignalTrap set_signal_trap(DP *dp, SignalTrap trap);

// Runs the exit handlers that were registered outside of any command. Called once, before the context is destroyed.
void end_session_level(DP *dp);

// A sentence as SYSTEM(1000) gives it: its words divided by AM. They are divided by AM already or else by blanks.
std::string command_words(std::string_view sentence);

}  // namespace velda
