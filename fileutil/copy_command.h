// copy_command.h - the state of one COPY and the steps it goes through. Private to the COPY command.
#pragma once

#include <optional>
#include <string_view>

#include "frame/utility_frame.h"

namespace velda::copy {

// How a small program that stands on COPY forces the target.
enum OutputTarget { ToFile = 0, ToTerminal = 1, ToPrinter = 2 };

struct CopyJob {
    explicit CopyJob(const frame::UtilityCommon &common) : utility(common) {}

    bool has(char letter) const { return static_cast<bool>(utility.option(letter)); }
    bool displays() const { return has('T') || has('P'); }

    const frame::UtilityCommon &utility;  // holds the options, one flag a letter
    VAR Options2;                         // letters of options, folded
    File SourceFile;
    SelectList SourceList;
    File TargetFile;  // the source's when the answer names no other file
    SelectList TargetList;
    std::optional<VAR> answer;  // to the prompt for the target, when the line has given it
    VAR NotFound;               // keys without a record, one attribute each
    int print_unit = 0;
    bool compressed = false;  // records are stored in the editor's form
};

// Files of this mode keep every byte of a record as it is.
inline constexpr const char *BinaryMode = "RB,WB";

// Turns each quoted stretch and each comma of a command line into a word of its own.
VAR normalise_words(const VAR &words);

// Reads "COPY FROM source ... TO target ...": opens the source, builds its list, and makes the answer to the prompt for
// the target.
void read_from_syntax(const VAR &words, CopyJob &job);

// Asks for the target, or takes it from stacked data; an empty answer sets option T. False after a message when there
// is no such file.
bool get_target(CopyJob &job);

// Copies every record of the list to the target.
void copy_records(CopyJob &job);

// Shows every record of the list on the terminal or the printer.
void display_records(CopyJob &job);

// Prints the help of the FROM form: its usage and a line for each keyword.
void show_from_help();

}  // namespace velda::copy
