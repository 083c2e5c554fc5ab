// description.h - what terminfo knows about one kind of terminal. Private to the runtime.
//
// terminfo keeps one current terminal for the whole process, so this file is the only one that calls it, under one
// lock; what it read is handed out as strings and numbers that never change. A terminal that is not one (no TERM, a
// TERM that the machine does not know) has a description too: it is empty, every sequence is "".
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velda {

// Sequences that the runtime itself sends. The names are terminfo's own variable names.
enum class Capability {
    ClearScreen,
    CursorHome,
    ClearToEndOfScreen,
    ClearToEndOfLine,
    EnterBlink,
    ExitAttributes,
    EnterProtect,
    CursorLeft,
    CursorUp,
    CursorRight,
    CursorDown,
    EnterReverse,
    EnterUnderline,
    ExitUnderline,
    EnterBold,
    EnterDim,
    InsertCharacter,
    DeleteCharacter,
    InsertLine,
    DeleteLine,
    SaveCursor,
    RestoreCursor,
    PrinterOn,
    PrinterOff,
    Bell,
    KeypadOn,
    KeypadOff,
    Count
};

struct KeyCapability {
    std::string name;      // "key_up", "key_f1", "back_tab", ...
    std::string sequence;  // the bytes that the key sends
};

class TerminalDescription {
  public:
    // The description of a terminal of this type, read once per process and type. Never null.
    static std::shared_ptr<const TerminalDescription> of_type(const std::string &type);

    ~TerminalDescription();
    TerminalDescription(const TerminalDescription &) = delete;
    TerminalDescription &operator=(const TerminalDescription &) = delete;

    // The sequence, "" when the terminal has none.
    const std::string &sequence(Capability capability) const;

    // The text of the string capability with this number in terminfo's own order (0 is back_tab); null when the
    // terminal lacks it or no capability has the number.
    const char *by_number(int number) const;

    // The keys that the terminal has, in terminfo's order.
    const std::vector<KeyCapability> &keys() const { return keys_; }

    // Columns and lines as terminfo gives them; empty when it does not.
    std::optional<int> columns() const { return columns_; }
    std::optional<int> lines() const { return lines_; }

    // The sequence that moves the cursor, counted from 0; "" when the terminal cannot.
    std::string move_to(int column, int row) const;
    // The same within the cursor's row.
    std::string move_to_column(int column) const;

  private:
    explicit TerminalDescription(const std::string &type);
    void read_strings();
    void read_keys();
    void read_numbers();
    std::string expand(const std::string &capability, int first, int second) const;
    const std::string &by_name(std::string_view long_name) const;

    void *terminal_ = nullptr;  // terminfo's TERMINAL, kept for parameter expansion
    std::vector<std::pair<bool, std::string>> strings_;
    std::vector<KeyCapability> keys_;
    std::string sequences_[static_cast<int>(Capability::Count)];
    std::string cursor_address_, column_address_, cursor_right_by_, cursor_right_;
    std::optional<int> columns_, lines_;
};

}  // namespace velda
