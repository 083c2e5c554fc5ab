// device.h - the process's input as bytes: its terminal, or the pipe or file in its place. Private to the runtime.
//
// While a session reads from a terminal, the terminal is in session mode: keys arrive one by one, nothing is echoed by
// the kernel (the reader of a line echoes), carriage return and line feed stay apart, and the keys that send signals do
// so unless the break key is disabled. The user's own settings come back when the session leaves it, when the process
// ends or is stopped, and around child programs (TerminalRelease).
//
// Bytes are read one at a time, so that what nobody has read yet is still there for a child program and for the count
// of type-ahead.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

enum class KeyOutcome {
    Key,      // a byte was read
    Timeout,  // none came in time
    End,      // none can come: end of the file, closed pipe, lost terminal
    Event     // an interrupt or a message arrived for the context; only when asked for
};

struct KeyRead {
    KeyOutcome outcome;
    unsigned char byte = 0;
};

struct KeyWait {
    std::optional<int> milliseconds;  // empty: without limit
    bool ends_on_event = false;
    std::string line;  // what stands before the cursor: interrupts and messages show below it, and then it again
};

// Waits for one byte. Output written so far is shown first. An interrupt is handled here and may end the command;
// messages that other ports send are shown when they come.
KeyRead read_key(DP *dp, const KeyWait &wait);

// True when keys come from a terminal.
bool input_is_terminal();

// Bytes that were typed and not read yet; 0 when the input is no terminal.
int typed_ahead();

// Editing keys as the user's terminal settings have them.
struct EditingKeys {
    unsigned char erase, kill, word_erase, end_of_input, literal_next;
};
EditingKeys editing_keys();

// Puts the terminal into session mode; nothing happens when the input is no terminal.
void enter_session_mode();

// Makes the function keys send what terminfo says they do, until session mode is left: writes `on` now and `off` then.
void use_keypad(std::string_view on, std::string_view off);

// Gives the terminal back with the user's settings. Every command's end calls it.
void leave_session_mode();

// The same from a signal handler that is about to kill the process.
void restore_terminal_in_handler();

// While it lives the terminal has the user's settings; then session mode is restored if it was set before. Whoever runs
// a child program holds one.
class TerminalRelease {
  public:
    TerminalRelease();
    ~TerminalRelease();
    TerminalRelease(const TerminalRelease &) = delete;
    TerminalRelease &operator=(const TerminalRelease &) = delete;

  private:
    bool was_in_session_mode_;
};

// Whether the keys that interrupt do so. Disabled, they are keys like any other.
void set_break_keys(bool enabled);

// Writes to the terminal past every capture and buffer: to standard output when that is a terminal, else to the
// terminal that keys come from, else to standard output after all. Gives 0 or the error number.
int write_to_terminal(std::string_view bytes);

}  // namespace velda
