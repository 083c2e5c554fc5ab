// The key table, and its making: the terminal's keys, the control keys, the user's record, prefixes, type-ahead.
#include "frame/key_table.h"

#include <string>

using namespace velda;
using namespace velda::frame;

namespace velda::frame {

void KeyTable::clear() const {
    for (int element = 1; element <= KeyTableElements; ++element) (*this)[static_cast<KeyTableElement>(element)] = "";
}

void KeyTable::add(std::string_view sequence, const VAR &code) const {
    // By number and not by appending: an empty first element would make the two lists differ in length.
    const int position = entries() + 1;
    (*this)[KeySequences](position) = sequence;
    (*this)[KeyCodes](position) = code;
}

void KeyTable::remove_at(int position) const {
    (*this)[KeySequences].remove(position);
    (*this)[KeyCodes].remove(position);
}

void KeyTable::remove_code(const VAR &code) const {
    while (const auto position = locate(code, (*this)[KeyCodes])) remove_at(*position);
}

bool KeyTable::holds(std::string_view sequence) const { return locate(sequence, (*this)[KeySequences]).found; }

std::optional<VAR> KeyTable::code_of(std::string_view sequence) const {
    const auto position = locate(sequence, (*this)[KeySequences]);
    if (!position) return std::nullopt;
    return VAR((*this)[KeyCodes](*position));
}

int KeyTable::entries() const { return dcount((*this)[KeyCodes], AM); }

TerminalKeys::TerminalKeys() {
    const VAR capabilities = system_number(SystemKeyCapabilities);
    names_ = change(capabilities(1), VM, AM);
    sequences_ = change(capabilities(2), VM, AM);
}

VAR TerminalKeys::sequence_of(std::string_view name) const {
    const auto position = locate(name, names_);
    return position ? VAR(sequences_(*position)) : VAR("");
}

}  // namespace velda::frame

namespace {

struct TableRow {
    std::string_view key;  // a sequence, or the name of a capability
    int code;
};

// What a cursor key sends whatever the terminal's description says.
constexpr TableRow FixedKeys[] = {{"\x1B[A", 22}, {"\x1B[B", 23}, {"\x1B[C", 24}, {"\x1B[D", 25}};

constexpr TableRow CapabilityKeys[] = {
    {"key_ic", 12}, {"key_eol", 7},   {"key_end", 4},    {"key_home", 2},   {"back_tab", 18},
    {"key_up", 22}, {"key_down", 23}, {"key_right", 24}, {"key_left", 25},  {"key_backspace", 36},
    {"key_sf", 29}, {"key_sr", 28},   {"key_ppage", 30}, {"key_npage", 31},
};
constexpr int FunctionKeys = 32;
constexpr int FirstFunctionKeyCode = 41;
constexpr TableRow CapabilityKeysAfterFunctionKeys[] = {{"key_backspace", 36}, {"key_dc", 37}, {"key_dl", 38}};

enum class AddWhen {
    Always,
    NewFirstByte,  // no key of the terminal begins with this byte
    NewSequence    // the whole sequence is not in the table
};

// Where a control key's bytes come from.
enum class KeySource {
    Byte,        // the byte itself
    ControlOf,   // the control character of a byte
    AtVariable,  // an @-variable
    AtVariableTwice
};

struct ControlKeyRow {
    KeySource source;
    int value;
    int code;
    AddWhen when;
};

constexpr ControlKeyRow ControlKeys[] = {
    {KeySource::Byte, 0, 1, AddWhen::NewSequence},
    {KeySource::ControlOf, 'A', 2, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'B', 25, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'C', 3, AddWhen::Always},
    {KeySource::AtVariableTwice, 24, 38, AddWhen::NewSequence},
    {KeySource::ControlOf, 'E', 4, AddWhen::NewFirstByte},
    {KeySource::AtVariable, 5, 5, AddWhen::NewFirstByte},
    {KeySource::Byte, '\t', 6, AddWhen::NewFirstByte},
    {KeySource::Byte, '\n', 9, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'K', 7, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'L', 8, AddWhen::NewFirstByte},
    {KeySource::Byte, '\r', 9, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'N', 10, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'O', 12, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'P', 11, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'R', 13, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'T', 14, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'V', 15, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'W', 16, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'X', 17, AddWhen::NewFirstByte},
    {KeySource::ControlOf, 'Y', 18, AddWhen::NewFirstByte},
    {KeySource::Byte, Escape, EscapeCommand, AddWhen::NewSequence},
    {KeySource::ControlOf, '~', 20, AddWhen::NewFirstByte},
    {KeySource::ControlOf, ']', 21, AddWhen::NewFirstByte},
    {KeySource::Byte, 127, 37, AddWhen::NewFirstByte},
};

void add_capability(const KeyTable &table, const TerminalKeys &terminal, std::string_view name, int code) {
    const VAR sequence = terminal.sequence_of(name);
    if (!sequence.empty()) table.add(sequence.view(), code);
}

void add_terminal_keys(const KeyTable &table, const TerminalKeys &terminal) {
    for (const TableRow &row : FixedKeys) table.add(row.key, row.code);
    for (const TableRow &row : CapabilityKeys) add_capability(table, terminal, row.key, row.code);
    for (int key = 0; key < FunctionKeys; ++key)
        add_capability(table, terminal, "key_f" + std::to_string(key + 1), FirstFunctionKeyCode + key);
    for (const TableRow &row : CapabilityKeysAfterFunctionKeys) add_capability(table, terminal, row.key, row.code);
}

VAR control_key_sequence(const ControlKeyRow &row) {
    const VAR byte = chr(row.value);
    switch (row.source) {
        case KeySource::Byte:
            return byte;
        case KeySource::ControlOf:
            return control(byte);
        case KeySource::AtVariable:
            return at_variable(row.value);
        case KeySource::AtVariableTwice:
            return cat(at_variable(row.value), at_variable(row.value));
    }
    return "";
}

std::string first_bytes(const KeyTable &table) {
    std::string bytes;
    for (int entry = 1; entry <= table.entries(); ++entry) bytes += table[KeySequences](entry).view().substr(0, 1);
    return bytes;
}

bool may_add(const KeyTable &table, const std::string &taken_bytes, const VAR &sequence, AddWhen when) {
    switch (when) {
        case AddWhen::Always:
            return true;
        case AddWhen::NewFirstByte:
            return taken_bytes.find(sequence.view().front()) == std::string::npos;
        case AddWhen::NewSequence:
            return !table.holds(sequence.view());
    }
    return false;
}

void add_control_keys(const KeyTable &table) {
    const std::string taken_bytes = first_bytes(table);
    for (const ControlKeyRow &row : ControlKeys) {
        const VAR sequence = control_key_sequence(row);
        if (!sequence.empty() && may_add(table, taken_bytes, sequence, row.when)) table.add(sequence.view(), row.code);
    }
}

bool types_text(std::string_view sequence) {
    const VAR byte = sequence.substr(0, 1);
    return is_type(byte, VELDA_IS_PRINTABLE) && !is_type(byte, VELDA_IS_CONTROL) && !is_type(byte, VELDA_IS_SPACE);
}

// A sequence that begins with a printable byte would make that character impossible to type.
void purge_printable(const KeyTable &table) {
    for (int entry = 1; entry <= table.entries();) {
        if (types_text(table[KeySequences](entry).view()))
            table.remove_at(entry);
        else
            ++entry;
    }
}

void add_prefixes(const KeyTable &table) {
    const int full_sequences = table.entries();
    for (int entry = 1; entry <= full_sequences; ++entry) {
        const std::string sequence = VAR(table[KeySequences](entry)).str();
        for (std::size_t length = 1; length < sequence.size(); ++length) {
            const std::string_view prefix = std::string_view(sequence).substr(0, length);
            if (!table.holds(prefix)) table.add(prefix, PrefixCode);
        }
    }
}

// Stacked data stands before the terminal: it is taken now, so that keys can be read one by one from it.
void take_stacked_data(const KeyTable &table) {
    table[KeyStackedData] = stacked_data();
    if (!table[KeyStackedData]) return;
    const PromptScope no_prompt("");
    const EchoOff echo_off;
    while (type_ahead() > 0) {
        VAR line;
        input(line, {.flags = VELDA_INPUT_NO_PROMPT});
        table[KeyTypeAhead] = cat(table[KeyTypeAhead], line, "\r");
    }
}

}  // namespace

VBC_SUBROUTINE(VELDACommandInit) {
    const UtilityCommon utility(dp);
    const KeyTable table(utility);
    const TerminalKeys terminal;
    table.clear();
    add_terminal_keys(table, terminal);
    add_control_keys(table);
    apply_initialisation_record(table, terminal);
    purge_printable(table);
    add_prefixes(table);
    take_stacked_data(table);
}
