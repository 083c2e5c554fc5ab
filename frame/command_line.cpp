// The three routines that take a command line apart: words only, file with record list, file only.
#include <algorithm>

#include "frame/utility_frame.h"

using namespace velda;
using namespace velda::frame;

namespace {

constexpr int FoldOptionsSetting = 102;   // options in parentheses are folded to upper case
constexpr int ListRequiredSetting = 131;  // the compiler's commands do not take "no list" for "all records"

constexpr std::string_view ListRequiredCommands[] = {"BASIC", "CATALOG", "DECATALOG"};

// Takes the first word of a list.
VAR take_first(VAR &words) {
    const VAR word = words(1);
    words.remove(1);
    return word;
}

void take_dash_words(VAR &words, VAR &Options1) {
    while (words(1).view().starts_with('-')) Options1.append(take_first(words));
}

void take_option_word(VAR &words, VAR &Options2) {
    const int last = dcount(words, AM);
    if (!words(last).view().starts_with('(')) return;
    Options2 = emulation(FoldOptionsSetting) ? upcase(words(last)) : VAR(words(last));
    words.remove(last);
}

// Takes the file's name off the front of the words. "DICT FILE" counts as one name, and the whole may stand in
// parentheses.
VAR take_file_name(VAR &words) {
    VAR name = take_first(words);
    if (name == "(") name = take_first(words);
    const VAR folded = upcase(name);
    if (folded == "(DICT" || folded == "(DATA") name = name.substring(2, -1);
    const VAR section = upcase(name);
    if (section == "DICT" || section == "DATA") name = words.empty() ? VAR("") : cat(section, " ", take_first(words));
    if (name.view().starts_with('(')) name = name.substring(2, -1);
    if (name.view().ends_with(')')) name = name.substring(1, -2);
    return name;
}

void open_or_stop(VAR &FileDSCB, const VAR &FileName) {
    if (FileName.empty()) stop(NoFileName);
    if (!FileWords(FileDSCB).open(FileName)) stop(CannotOpenFile, FileName);
}

bool needs_list(const VAR &command) {
    if (!emulation(ListRequiredSetting)) return false;
    return std::ranges::find(ListRequiredCommands, command.view()) != std::end(ListRequiredCommands);
}

void select_records(const VAR &command, const VAR &words, const VAR &FileDSCB, VAR &PassList) {
    if (words == "*")
        PassList = velda::SelectList(FileDSCB).cell();
    else if (!words.empty())
        PassList = velda::SelectList(words).cell();
    else if (system_number(SystemActiveListLength))
        PassList = velda::SelectList::take_default().cell();
    else if (needs_list(command))
        stop(NoRecordList);
    else
        PassList = velda::SelectList(FileDSCB).cell();
}

}  // namespace

VBC_SUBROUTINE(VELDAParseCommandLine1, Options1, Options2, Operand) {
    Operand = system_number(SystemCommandLine);
    Operand.remove(1);
    Options1 = "";
    Options2 = "";
    take_dash_words(Operand, Options1);
    take_option_word(Operand, Options2);
}

VBC_SUBROUTINE(VELDAParseCommandLine2, FileDSCB, FileName, Options1, Options2, Operand, PassList) {
    VAR CommandLine = system_number(SystemCommandLine);
    const VAR command = upcase(take_first(CommandLine));
    Options1 = "";
    Options2 = "";
    Operand = "";
    take_dash_words(CommandLine, Options1);
    // A single word "(NAME" is a file name, not options.
    if (dcount(CommandLine, AM) > 1) take_option_word(CommandLine, Options2);
    FileName = take_file_name(CommandLine);
    open_or_stop(FileDSCB, FileName);
    select_records(command, CommandLine, FileDSCB, PassList);
    Operand = change(CommandLine, AM, " ");
}

VBC_SUBROUTINE(VELDAParseCommandLine3, FileDSCB, FileName) {
    VAR CommandLine = system_number(SystemCommandLine);
    CommandLine.remove(1);
    FileName = take_file_name(CommandLine);
    open_or_stop(FileDSCB, FileName);
}
