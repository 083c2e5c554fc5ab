// key_table.h - the table that maps a terminal's key sequences to command codes. Private to the frame.
//
// It lives in the cells CommandXref of VELDA_dUtil: two lists in step, sequences and codes, the settings of the user's
// initialisation record that are not keys, and the bytes that are delivered before the terminal is read.
#pragma once

#include <optional>
#include <string_view>

#include "frame/utility_frame.h"

namespace velda::frame {

// Elements of CommandXref, from 1.
enum KeyTableElement : int {
    KeySequences = 1,    // one attribute each
    KeyCodes = 2,        // the code of the sequence at the same position, or PrefixCode
    KeySettings = 3,     // name SVM value, one attribute each
    KeyTypeAhead = 4,    // bytes to be delivered first
    KeyStackedData = 5,  // true when stacked data was present at initialisation
    KeyTableElements = 10
};

inline constexpr std::string_view PrefixCode = "P";  // the sequence begins a longer one
inline constexpr char Escape = '\x1B';
inline constexpr int EscapeCommand = 19;

class KeyTable {
  public:
    explicit KeyTable(const UtilityCommon &utility) : utility_(utility) {}

    VAR &operator[](KeyTableElement element) const {
        return utility_[static_cast<UtilityCell>(static_cast<int>(CommandXref) + element - 1)];
    }

    void clear() const;
    // Adds a sequence at the end. Where two entries share a sequence the first one wins.
    void add(std::string_view sequence, const VAR &code) const;
    void remove_at(int position) const;
    // Removes every sequence of a code.
    void remove_code(const VAR &code) const;
    bool holds(std::string_view sequence) const;
    // The code of a sequence, a number or PrefixCode; nothing when the table does not hold it.
    std::optional<VAR> code_of(std::string_view sequence) const;
    int entries() const;

  private:
    const UtilityCommon &utility_;
};

// The capabilities of the terminal, by name: SYSTEM(1005).
class TerminalKeys {
  public:
    TerminalKeys();
    // The sequence of a capability; "" when the terminal has none.
    VAR sequence_of(std::string_view name) const;

  private:
    VAR names_;
    VAR sequences_;
};

// Finds the user's initialisation record and applies its lines to the table.
void apply_initialisation_record(const KeyTable &table, const TerminalKeys &terminal);
// Applies the lines of a record, one attribute each.
void apply_settings(const KeyTable &table, const TerminalKeys &terminal, const VAR &record);

}  // namespace velda::frame
