// The initialisation record .vedrc: lines that rebind keys and keep settings.
#include <algorithm>
#include <string>

#include "frame/key_table.h"

using namespace velda;
using namespace velda::frame;

namespace {

constexpr const char *RecordName = ".vedrc";
constexpr char Comment = '#';
constexpr char PartSeparator = ':';
constexpr std::string_view NoSequence = "\xFB";  // the setting takes something away
constexpr int UnknownName = -1;

struct CommandName {
    int code;
    std::string_view name;
};

constexpr CommandName CommandNames[] = {
    {1, "insert_space"},
    {2, "start_line"},
    {3, "change_case"},
    {4, "end_line"},
    {5, "mark_line"},
    {6, "forward_tab"},
    {7, "clear_end_line"},
    {8, "insert_line"},
    {9, "carriage_return"},
    {10, "next_locate"},
    {11, "prev_locate"},
    {12, "toggle_insert"},
    {13, "repaint"},
    {14, "copy_character"},
    {15, "indent_screen"},
    {16, "delete_word"},
    {17, "exit_record"},
    {18, "back_tab"},
    {19, "escape"},
    {20, "insert_sub_value"},
    {21, "insert_value"},
    {22, "cursor_up"},
    {23, "cursor_down"},
    {24, "cursor_right"},
    {25, "cursor_left"},
    {26, "scroll_up_line"},
    {27, "scroll_down_line"},
    {28, "scroll_up_half"},
    {30, "scroll_up_page"},
    {31, "scroll_down_page"},
    // The name stands twice, here in the place of a half-page name: the first row wins, so no setting rebinds code 29.
    // It is known and stays so.
    {29, "scroll_down_page"},
    {32, "scroll_top"},
    {33, "scroll_bottom"},
    {34, "next_indent"},
    {35, "prev_indent"},
    {36, "backspace"},
    {37, "delete_char"},
    {38, "delete_line"},
};

// Parts of an operand that stand for one byte. A control row gives the control character of its byte.
struct EscapePart {
    std::string_view part;
    char byte;
    bool control = false;
};

constexpr EscapePart Escapes[] = {
    {"^\\", '~', true}, {"^]", ']', true}, {"\\\\", '\\'}, {"\\^", '^'},       {"\\B", '\b'},
    {"\\F", '\f'},      {"\\N", '\n'},     {"\\R", '\r'},  {"\\S", 'T', true},  // reads S and gives ctrl-T, on purpose
    {"\\T", '\t'},      {"\\E", '\x1B'},
};

bool is_octal_escape(std::string_view part) {
    return part.size() == 4 && part[0] == '\\' && matches(part.substr(1), "3N");
}

// The digits 8 and 9 count like any other.
VAR octal_byte(std::string_view part) { return chr((part[1] - '0') * 64 + (part[2] - '0') * 8 + (part[3] - '0')); }

VAR alphabet_control(char letter) { return chr(static_cast<int>(Alphabet.find(upcase(letter).view()) + 1)); }

// The piece of a key sequence that a part of an operand gives.
VAR piece_of(const VAR &part, const TerminalKeys &terminal) {
    const std::string_view text = part.view();
    for (const EscapePart &escape : Escapes) {
        if (text == escape.part) return escape.control ? control(escape.byte) : VAR(escape.byte);
    }
    if (text.size() == 2 && text[0] == '^' && matches(text.substr(1), "1A")) return alphabet_control(text[1]);
    if (is_octal_escape(text)) return octal_byte(text);
    const VAR folded = downcase(part);
    if (folded.view().starts_with("key_")) return terminal.sequence_of(folded.view());
    return part;
}

VAR sequence_from(const VAR &operand, const TerminalKeys &terminal) {
    VAR sequence;
    const int parts = dcount(operand, PartSeparator);
    for (int part = 1; part <= parts; ++part)
        sequence = cat(sequence, piece_of(trim(field(operand, PartSeparator, part)), terminal));
    return sequence;
}

int command_of(std::string_view name) {
    const auto row = std::ranges::find(CommandNames, name, &CommandName::name);
    return row == std::end(CommandNames) ? UnknownName : row->code;
}

void apply_setting(const KeyTable &table, const VAR &name, int command, const VAR &sequence) {
    if (command == UnknownName)
        table[KeySettings].append(cat(name, SVM, sequence.view() == NoSequence ? VAR(0) : sequence));
    else if (sequence.view() == NoSequence)
        table.remove_code(command);
    else
        table.add(sequence.view(), command);
}

// A line "set name=operand", "set name" or "set noname". False for one whose sequence holds an attribute mark: the
// lists of the table could not keep it in one place.
bool process_setting(const KeyTable &table, const TerminalKeys &terminal, const VAR &line) {
    const VAR setting = line.substring(4, 999999);
    VAR name = trim(field(setting, '=', 1));
    const VAR operand = trim(field(setting, '=', 2, 99999), ' ', "B");
    VAR sequence;
    if (name.view().starts_with("no")) {
        sequence = NoSequence;
        name = name.substring(3, 999999);
    }
    if (name.empty()) return true;
    if (sequence.empty()) sequence = operand.empty() ? VAR(1) : sequence_from(operand, terminal);
    if (sequence.view().find(AM) != std::string_view::npos) return false;
    if (!sequence.empty()) apply_setting(table, name, command_of(name.view()), sequence);
    return true;
}

void warn_illegal_line(int number, const VAR &line) {
    print_line("warning - illegal initialisation record at ", number, ": ", line);
}

VAR record_in(const VAR &directory) {
    File file;
    VAR record;
    if (file.open(directory)) file.try_read(record, RecordName);
    return record;
}

// The one of the current directory counts, or else the one of the home directory; they are not merged.
VAR find_record() {
    VAR record = record_in(".");
    const VAR home = environment("HOME");
    if (record.empty() && !home.empty()) record = record_in(home);
    return record;
}

}  // namespace

namespace velda::frame {

void apply_settings(const KeyTable &table, const TerminalKeys &terminal, const VAR &record) {
    const int lines = dcount(record, AM);
    for (int number = 1; number <= lines; ++number) {
        const VAR line = trim(record(number), ' ', "L");
        if (line.empty() || line.view().starts_with(Comment)) continue;
        if (field(line, ' ', 1) != "set" || !process_setting(table, terminal, line))
            warn_illegal_line(number, record(number));
    }
}

void apply_initialisation_record(const KeyTable &table, const TerminalKeys &terminal) {
    apply_settings(table, terminal, find_record());
}

}  // namespace velda::frame
