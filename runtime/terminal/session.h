// session.h - what a command keeps about its terminal. Private to the runtime.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "runtime/terminal/description.h"
#include "runtime/vdefc.h"

namespace velda {

inline constexpr std::string_view DefaultPrompt = "?";

struct TerminalSession {
    bool echo = true;                   // SYSTEM(3024)
    std::string prompt{DefaultPrompt};  // SYSTEM(3026)
    bool foot_message_shown = false;    // INPUTERR has written the last line of the screen
    int reads_past_end = 0;             // reads in a row that found the input ended
};

// The state of the innermost command, which starts with a fresh one; the end of the command brings its caller's back.
TerminalSession &terminal_session(DP *dp);

// The description of the terminal that TERM names now.
std::shared_ptr<const TerminalDescription> terminal_description();

// Size of the screen: the terminal's window, else COLUMNS and LINES, else terminfo's, else 80 by 24.
int screen_columns();
int screen_lines();

// The name of the terminal's device, "" when input, output and errors all go elsewhere.
std::string terminal_name();

// The sequence for @(column,row), both from 0. A row of -1 stays in the row. A negative column is the dialect's screen
// function of that number (-1 clears the screen), whatever the row. "" when the terminal cannot do it, and when
// standard output goes to a file or a pipe, which is to hold text only.
std::string cursor_sequence(int column, int row);

// SYSTEM(1005): names in attribute 1, sequences in attribute 2.
std::string key_capability_array();

// Before single keys are read: on a screen, the function keys send the sequences of key_capability_array() from here
// on.
void prepare_keys(DP *dp);

// Puts prompt and echo to their state at the start of a command, and gives the terminal back to the user: what the end
// of a command does.
void end_terminal_use(DP *dp);

}  // namespace velda
