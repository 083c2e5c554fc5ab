#include "runtime/terminal/description.h"

#include <array>
#include <map>
#include <mutex>

// terminfo's headers define short words as macros; nothing else may follow them.
#include <curses.h>
#include <term.h>

namespace velda {
namespace {

// terminfo's current terminal and the state of its parameter expansion belong to the process.
std::mutex terminfo_turn;

// Makes `terminal` terminfo's current one while it lives; another user of terminfo in this process finds its own back.
class CurrentTerminal {
  public:
    explicit CurrentTerminal(TERMINAL *terminal) : previous_(set_curterm(terminal)) {}
    ~CurrentTerminal() { set_curterm(previous_); }
    CurrentTerminal(const CurrentTerminal &) = delete;
    CurrentTerminal &operator=(const CurrentTerminal &) = delete;

  private:
    TERMINAL *previous_;
};

TERMINAL *open_terminal(const std::string &type) {
    TERMINAL *const previous = set_curterm(nullptr);
    int found = 0;
    const bool opened = setupterm(type.c_str(), -1, &found) == OK;
    TERMINAL *const terminal = set_curterm(previous);
    if (opened) return terminal;
    if (terminal) del_curterm(terminal);
    return nullptr;
}

// Padding such as $<5/> is for terminals of another age: a modern one is sent the sequence without it.
std::string without_padding(std::string_view sequence) {
    std::string result;
    while (!sequence.empty()) {
        const std::size_t start = sequence.find("$<");
        const std::size_t end = start == sequence.npos ? sequence.npos : sequence.find('>', start);
        if (end == sequence.npos) break;
        result += sequence.substr(0, start);
        sequence.remove_prefix(end + 1);
    }
    return result.append(sequence);
}

constexpr std::array<std::pair<Capability, std::string_view>, 27> SequenceNames{{
    {Capability::ClearScreen, "clear_screen"},
    {Capability::CursorHome, "cursor_home"},
    {Capability::ClearToEndOfScreen, "clr_eos"},
    {Capability::ClearToEndOfLine, "clr_eol"},
    {Capability::EnterBlink, "enter_blink_mode"},
    {Capability::ExitAttributes, "exit_attribute_mode"},
    {Capability::EnterProtect, "enter_protected_mode"},
    {Capability::CursorLeft, "cursor_left"},
    {Capability::CursorUp, "cursor_up"},
    {Capability::CursorRight, "cursor_right"},
    {Capability::CursorDown, "cursor_down"},
    {Capability::EnterReverse, "enter_reverse_mode"},
    {Capability::EnterUnderline, "enter_underline_mode"},
    {Capability::ExitUnderline, "exit_underline_mode"},
    {Capability::EnterBold, "enter_bold_mode"},
    {Capability::EnterDim, "enter_dim_mode"},
    {Capability::InsertCharacter, "insert_character"},
    {Capability::DeleteCharacter, "delete_character"},
    {Capability::InsertLine, "insert_line"},
    {Capability::DeleteLine, "delete_line"},
    {Capability::SaveCursor, "save_cursor"},
    {Capability::RestoreCursor, "restore_cursor"},
    {Capability::PrinterOn, "prtr_on"},
    {Capability::PrinterOff, "prtr_off"},
    {Capability::Bell, "bell"},
    {Capability::KeypadOn, "keypad_xmit"},
    {Capability::KeypadOff, "keypad_local"},
}};
static_assert(SequenceNames.size() == static_cast<std::size_t>(Capability::Count));

std::optional<int> positive_number(const char *name) {
    const int value = tigetnum(name);
    return value > 0 ? std::optional<int>(value) : std::nullopt;
}

}  // namespace

std::shared_ptr<const TerminalDescription> TerminalDescription::of_type(const std::string &type) {
    static std::map<std::string, std::shared_ptr<const TerminalDescription>> known;
    const std::lock_guard turn(terminfo_turn);
    std::shared_ptr<const TerminalDescription> &description = known[type];
    if (!description) description.reset(new TerminalDescription(type));
    return description;
}

TerminalDescription::TerminalDescription(const std::string &type) {
    TERMINAL *const terminal = type.empty() ? nullptr : open_terminal(type);
    if (!terminal) return;
    terminal_ = terminal;
    const CurrentTerminal current(terminal);
    read_strings();
    read_keys();
    read_numbers();
}

TerminalDescription::~TerminalDescription() {
    if (terminal_) del_curterm(static_cast<TERMINAL *>(terminal_));
}

void TerminalDescription::read_strings() {
    for (int number = 0; strnames[number]; ++number) {
        const char *const text = tigetstr(strnames[number]);
        const bool present = text && text != reinterpret_cast<char *>(-1);
        strings_.emplace_back(present, present ? without_padding(text) : std::string());
    }
    for (const auto &[capability, name] : SequenceNames) sequences_[static_cast<int>(capability)] = by_name(name);
    cursor_address_ = by_name("cursor_address");
    column_address_ = by_name("column_address");
    cursor_right_by_ = by_name("parm_right_cursor");
    cursor_right_ = by_name("cursor_right");
}

// The key that terminfo calls key_btab goes by "back_tab" as well: that name's own entry is what a program sends to
// move the cursor back, which is the key's sequence on some terminals only.
void TerminalDescription::read_keys() {
    const std::string &sent_by_key = by_name("key_btab");
    const std::string &sequence_back = sent_by_key.empty() ? by_name("back_tab") : sent_by_key;
    if (!sequence_back.empty()) keys_.push_back({"back_tab", sequence_back});
    for (std::size_t number = 0; number < strings_.size(); ++number) {
        const std::string_view name = strfnames[number];
        if (name.starts_with("key_") && !strings_[number].second.empty())
            keys_.push_back({std::string(name), strings_[number].second});
    }
}

void TerminalDescription::read_numbers() {
    columns_ = positive_number("cols");
    lines_ = positive_number("lines");
}

const std::string &TerminalDescription::by_name(std::string_view long_name) const {
    static const std::string none;
    for (std::size_t number = 0; number < strings_.size(); ++number)
        if (strfnames[number] == long_name) return strings_[number].second;
    return none;
}

const std::string &TerminalDescription::sequence(Capability capability) const {
    return sequences_[static_cast<int>(capability)];
}

const char *TerminalDescription::by_number(int number) const {
    if (number < 0 || static_cast<std::size_t>(number) >= strings_.size()) return nullptr;
    const auto &[present, text] = strings_[static_cast<std::size_t>(number)];
    return present ? text.c_str() : nullptr;
}

std::string TerminalDescription::expand(const std::string &capability, int first, int second) const {
    const std::lock_guard turn(terminfo_turn);
    const CurrentTerminal current(static_cast<TERMINAL *>(terminal_));
    const char *const expanded = tiparm(capability.c_str(), first, second);
    return expanded ? expanded : "";
}

std::string TerminalDescription::move_to(int column, int row) const {
    return cursor_address_.empty() ? std::string() : expand(cursor_address_, row, column);
}

std::string TerminalDescription::move_to_column(int column) const {
    if (!column_address_.empty()) return expand(column_address_, column, 0);
    if (column == 0) return "\r";
    if (!cursor_right_by_.empty()) return "\r" + expand(cursor_right_by_, column, 0);
    std::string steps;
    if (!cursor_right_.empty()) steps = "\r";
    for (int step = 0; step < column; ++step) steps += cursor_right_;
    return steps;
}

}  // namespace velda
