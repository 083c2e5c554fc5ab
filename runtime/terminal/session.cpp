#include "runtime/terminal/session.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <array>
#include <cstdlib>

#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/terminal/device.h"

namespace velda {
namespace {

constexpr int DefaultColumns = 80;
constexpr int DefaultLines = 24;
constexpr std::array<int, 3> StandardFiles{STDOUT_FILENO, STDIN_FILENO, STDERR_FILENO};

std::string environment_text(const char *name) {
    const char *const value = std::getenv(name);
    return value ? value : "";
}

// A positive number from the environment, 0 when there is none.
int environment_number(const char *name) {
    const std::string text = environment_text(name);
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return value > 0 && value <= 10000 ? static_cast<int>(value) : 0;
}

winsize window_size() {
    for (const int file : StandardFiles) {
        winsize size{};
        if (ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) return size;
    }
    return {};
}

int first_positive(int window, const char *variable, std::optional<int> described, int otherwise) {
    if (window > 0) return window;
    if (const int number = environment_number(variable)) return number;
    return described.value_or(otherwise);
}

// Screen functions @(-1) to @(-24), in order.
constexpr std::array<Capability, 24> ScreenFunctions{
    Capability::ClearScreen,         // -1
    Capability::CursorHome,          // -2
    Capability::ClearToEndOfScreen,  // -3
    Capability::ClearToEndOfLine,    // -4
    Capability::EnterBlink,          // -5
    Capability::ExitAttributes,      // -6
    Capability::EnterProtect,        // -7
    Capability::ExitAttributes,      // -8
    Capability::CursorLeft,          // -9
    Capability::CursorUp,            // -10
    Capability::EnterDim,            // -11
    Capability::ExitAttributes,      // -12
    Capability::EnterReverse,        // -13
    Capability::ExitAttributes,      // -14
    Capability::EnterUnderline,      // -15
    Capability::ExitUnderline,       // -16
    Capability::PrinterOn,           // -17
    Capability::PrinterOff,          // -18
    Capability::CursorRight,         // -19
    Capability::CursorDown,          // -20
    Capability::InsertCharacter,     // -21
    Capability::DeleteCharacter,     // -22
    Capability::InsertLine,          // -23
    Capability::DeleteLine,          // -24
};

}  // namespace

TerminalSession &terminal_session(DP *dp) { return dp->state<TerminalSession>(); }

std::shared_ptr<const TerminalDescription> terminal_description() {
    return TerminalDescription::of_type(environment_text("TERM"));
}

int screen_columns() {
    return first_positive(window_size().ws_col, "COLUMNS", terminal_description()->columns(), DefaultColumns);
}

int screen_lines() {
    return first_positive(window_size().ws_row, "LINES", terminal_description()->lines(), DefaultLines);
}

std::string terminal_name() {
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        char name[256];
        if (ttyname_r(file, name, sizeof name) == 0) return name;
    }
    return "";
}

std::string cursor_sequence(int column, int row) {
    if (isatty(STDOUT_FILENO) != 1) return "";
    const auto description = terminal_description();
    if (column < 0) {
        const auto function = static_cast<std::size_t>(-1 - column);
        return function < ScreenFunctions.size() ? description->sequence(ScreenFunctions[function]) : std::string();
    }
    return row < 0 ? description->move_to_column(column) : description->move_to(column, row);
}

std::string key_capability_array() {
    std::string names, sequences;
    for (const KeyCapability &key : terminal_description()->keys()) {
        if (!names.empty()) {
            names += VM;
            sequences += VM;
        }
        names += key.name;
        sequences += key.sequence;
    }
    return names.empty() ? std::string() : names + AM + sequences;
}

void prepare_keys(DP *dp) {
    if (!output_is_terminal(dp)) return;
    const auto description = terminal_description();
    const std::string &on = description->sequence(Capability::KeypadOn);
    if (on.empty()) return;
    flush_output(dp);
    use_keypad(on, description->sequence(Capability::KeypadOff));
}

void end_terminal_use(DP *dp) {
    dp->state<TerminalSession>() = TerminalSession();
    leave_session_mode();
}

}  // namespace velda
