// The command context: options and operands of a command's words.
#include "frame/utility_frame.h"
#include "tests/support/command.h"

using namespace velda;
using namespace velda::frame;
using namespace velda::test;

namespace {

// What VELDAInit made of a command's words.
struct Context {
    std::string operands;
    std::string options;  // each option that was given, with its values: "A(1^2) B()"
    int exit_code = 0;
};

std::string given_options(const UtilityCommon &utility) {
    std::string given;
    for (const char letter : Alphabet) {
        if (!utility.option(letter)) continue;
        if (!given.empty()) given += ' ';
        given += std::string(1, letter) + "(" + shown(utility.option_values(letter).view()) + ")";
    }
    return given;
}

void init(DP *dp, std::string_view visible_words, const char *help = "", const char *program = "PROG") {
    VAR Help = marks(help);
    VAR Args = marks(visible_words);
    VAR Program = program;
    VBC_VELDAInit(dp, "VVV", &Help, &Args, &Program);
}

Context parse(std::string_view visible_words) {
    Context context;
    context.exit_code = run_command("PROG", [&](DP *dp) {
        init(dp, visible_words);
        const UtilityCommon utility(dp);
        context.operands = shown(utility[CommandArgs].view());
        context.options = given_options(utility);
    });
    return context;
}

struct WordsCase {
    const char *words;
    const char *options;
    const char *operands;
};

class OptionWords : public ::testing::TestWithParam<WordsCase> {};

TEST_P(OptionWords, AreTakenApart) {
    const Context context = parse(GetParam().words);
    EXPECT_EQ(context.options, GetParam().options) << GetParam().words;
    EXPECT_EQ(context.operands, GetParam().operands) << GetParam().words;
    EXPECT_EQ(context.exit_code, 0);
}

constexpr WordsCase WordsCases[] = {
    {"", "", ""},
    {"FILE^KEY", "", "FILE^KEY"},
    // A number behind a letter is the option's value.
    {"-T30^FILE", "T(30)", "FILE"},
    {"-P1,2", "P(1^2)", ""},
    {"-a1,,3", "A(1^^3)", ""},
    {"-a,", "A()", ""},
    {"-a1,", "A(1)", ""},
    // A letter behind a letter is its value too, and no option of its own; values keep their case.
    {"-AB", "A(B)", ""},
    {"-aBc", "A(Bc)", ""},
    {"(ABC)", "A(BC)", ""},
    // A byte that is no letter, digit or comma ends the value and starts nothing.
    {"-A1/B2", "A(1) B(2)", ""},
    {"-A.B", "A() B()", ""},
    {"-1A", "A()", ""},
    {"-", "", ""},
    {"(", "", ""},
    {"-A)", "A()", ""},
    // Several words give several options; the same option again overwrites its values from the first on.
    {"-A^-b5^X", "A() B(5)", "X"},
    {"-A1,2^-A3", "A(3^2)", ""},
    // Dash words count only before the first operand, words in parentheses anywhere.
    {"FILE^-A^KEY", "", "FILE^-A^KEY"},
    {"FILE^(A)^KEY", "A()", "FILE^KEY"},
    {"FILE^(A^(B^KEY^(C9)", "A() B() C(9)", "FILE^KEY"},
    {"-A^(B)^-C", "A() B()", "-C"},
    {"^-A", "", "^-A"},
};
INSTANTIATE_TEST_SUITE_P(Words, OptionWords, ::testing::ValuesIn(WordsCases));

TEST(UtilityInit, FillsTheOtherCellsOfTheBlock) {
    run_command("PROG", [](DP *dp) {
        {
            const UtilityCommon utility(dp);
            utility[RecordsProcessed] = 0;
            utility[PreviousFileName] = "OLD";
            utility[UtilityCell::SelectList] = "1";
            utility.option('Z') = 1;
            utility.option_values('Z') = "9";
        }
        set_prompt(">");
        init(dp, "A", "one^two", "MYPROG");
        const UtilityCommon utility(dp);
        EXPECT_EQ(utility[ProgramName].str(), "MYPROG");
        EXPECT_EQ(shown(utility[HelpScreen].view()), "one^two");
        EXPECT_EQ(utility[RecordsProcessed].to_integer(), -1);
        EXPECT_EQ(utility[PreviousFileName].str(), "");
        EXPECT_EQ(utility[PreviousFileDSCB].str(), "");
        EXPECT_EQ(utility[UtilityCell::SelectList].str(), "");
        EXPECT_EQ(utility.option('Z').str(), "0");
        EXPECT_EQ(utility.option_values('Z').str(), "");
        EXPECT_EQ(system_number(3026).str(), "");
    });
}

TEST(UtilityInit, KeepsTheCellsWhereOtherProgramsFindThem) {
    run_command("PROG", [](DP *dp) {
        init(dp, "-A1^-Z2^X^Y", "H", "P");
        CommonBlock block("VELDA_dUtil", 100);
        EXPECT_EQ(shown(block[0].view()), "X^Y");
        EXPECT_EQ(block[1].str() + block[2].str() + block[26].str(), "101");
        EXPECT_EQ(block[27].str() + "," + block[28].str() + "," + block[52].str(), "1,,2");
        EXPECT_EQ(block[53].str(), "P");
        EXPECT_EQ(block[54].str(), "-1");
        EXPECT_EQ(block[56].str(), "H");
    });
}

class Help : public ::testing::TestWithParam<const char *> {};

TEST_P(Help, EndsTheCommandWithTheHelpText) {
    const std::string words = GetParam();
    const Ending ending = run_on_pipes("", command("PROG", [=](DP *dp) {
                                           init(dp, words, "usage: PROG file^  more", "PROG");
                                           crt_line("not reached");
                                       }));
    EXPECT_EQ(ending.output, "Help for program PROG\n\nusage: PROG file\n  more\n");
    EXPECT_EQ(ending.exit_code, 0);
}
INSTANTIATE_TEST_SUITE_P(Forms, Help, ::testing::Values("?", "-?", "(?)", "-A?", "X^(?^Y", "(A^?", "(A^-?"));

TEST(UtilityInit, SaysWhenThereIsNoHelp) {
    const Ending ending = run_on_pipes("", command("PROG", [](DP *dp) { init(dp, "?"); }));
    EXPECT_EQ(ending.output, "Help for program PROG\n\nNo help available.\n");
}

TEST(UtilityInit, TakesAQuestionMarkAmongOperandsAsAnOperand) { EXPECT_EQ(parse("FILE^?").operands, "FILE^?"); }

}  // namespace
