// The start of every utility command: its words are taken apart into options and operands.
#include "frame/utility_frame.h"

using namespace velda;
using namespace velda::frame;

namespace {

// What one walk over an option string has found so far; the string shrinks from the front.
class OptionParser {
  public:
    OptionParser(const UtilityCommon &utility, std::string_view word)
        : utility_(utility), rest_(without_brackets(word)) {}

    // Sets the flags and values in the block. True when the string asked for help.
    bool parse() {
        bool help_asked = false;
        while (!rest_.empty()) {
            const char byte = take();
            if (byte == '?') help_asked = true;
            if (is_alpha(byte)) store_option(upcase(byte).view().front());
        }
        return help_asked;
    }

  private:
    static std::string_view without_brackets(std::string_view word) {
        word.remove_prefix(1);
        if (word.ends_with(')')) word.remove_suffix(1);
        return word;
    }

    char take() {
        const char byte = rest_.front();
        rest_.remove_prefix(1);
        return byte;
    }

    // The values that follow a letter: every letter and digit behind it belongs to them, so "AB" is A with the value
    // "B". Several options are several words, or have another byte between them.
    void store_option(char letter) {
        utility_.option(letter) = 1;
        int position = 1;
        std::string value;
        while (!rest_.empty() && (rest_.front() == ',' || is_type(rest_.front(), VELDA_IS_ALPHANUMERIC))) {
            const char byte = take();
            if (byte != ',') {
                value += byte;
                continue;
            }
            utility_.option_values(letter)(position++) = value;
            value.clear();
        }
        if (!value.empty()) utility_.option_values(letter)(position) = value;
    }

    const UtilityCommon &utility_;
    std::string_view rest_;
};

void clear_options(const UtilityCommon &utility) {
    for (const char letter : Alphabet) {
        utility.option(letter) = 0;
        utility.option_values(letter) = "";
    }
}

bool parse_option_word(const UtilityCommon &utility, int position) {
    const VAR word = utility[CommandArgs](position);
    utility[CommandArgs].remove(position);
    return OptionParser(utility, word.view()).parse();
}

// Dash options count only before the first operand.
bool take_dash_options(const UtilityCommon &utility) {
    bool help_asked = false;
    while (utility[CommandArgs](1).view().starts_with('-')) help_asked |= parse_option_word(utility, 1);
    return help_asked;
}

// Options in parentheses may stand anywhere among the operands.
bool take_parenthesised_options(const UtilityCommon &utility) {
    bool help_asked = false;
    int position = 1;
    for (int left = dcount(utility[CommandArgs], AM); left > 0; --left) {
        if (utility[CommandArgs](position).view().starts_with('('))
            help_asked |= parse_option_word(utility, position);
        else
            ++position;
    }
    return help_asked;
}

void reset_record_walk(const UtilityCommon &utility) {
    utility[RecordsProcessed] = -1;
    utility[PreviousFileName] = "";
    utility[PreviousFileDSCB] = "";
    utility[UtilityCell::SelectList] = "";
}

void show_help(const UtilityCommon &utility) {
    crt_line("Help for program ", utility[ProgramName]);
    crt_line();
    if (utility[HelpScreen].empty()) crt_line("No help available.");
    const int lines = dcount(utility[HelpScreen], AM);
    for (int line = 1; line <= lines; ++line) crt_line(utility[HelpScreen](line));
}

}  // namespace

VBC_SUBROUTINE(VELDAInit, Help, Args, Program) {
    const UtilityCommon utility(dp);
    utility[CommandArgs] = Args;
    utility[ProgramName] = Program;
    utility[HelpScreen] = Help;
    clear_options(utility);

    bool help_asked = take_dash_options(utility);
    help_asked |= take_parenthesised_options(utility);

    reset_record_walk(utility);
    set_prompt("");

    if (help_asked || utility[CommandArgs] == "?" || utility[CommandArgs] == "-?") {
        show_help(utility);
        stop();
    }
}
