// The three command line parsers.
#include <algorithm>

#include "frame/utility_frame.h"
#include "tests/support/command.h"

using namespace velda;
using namespace velda::test;

namespace {

// What a parser gave back, with visible marks.
struct Parsed {
    std::string file_name, options1, options2, operand, keys;
    bool opened = false;
    int exit_code = 0;
};

// `sentence` has its words divided by ^.
Parsed parse1(std::string_view sentence) {
    Parsed parsed;
    parsed.exit_code = run_command(marks(sentence), [&](DP *dp) {
        VAR Options1 = "old", Options2 = "old", Operand = "old";
        VBC_VELDAParseCommandLine1(dp, "VVV", &Options1, &Options2, &Operand);
        parsed.options1 = shown(Options1.view());
        parsed.options2 = Options2.str();
        parsed.operand = shown(Operand.view());
    });
    return parsed;
}

std::string keys_of(VAR list) {
    std::vector<std::string> keys;
    SelectList walk(list);
    for (const VAR &key : walk) keys.push_back(key.str());
    std::ranges::sort(keys);
    std::string joined;
    for (const std::string &key : keys) joined += (joined.empty() ? "" : " ") + key;
    return joined;
}

Parsed parse2(
    std::string_view sentence, const Program &before = [](DP *) {}) {
    Parsed parsed;
    parsed.exit_code = run_command(marks(sentence), [&](DP *dp) {
        before(dp);
        VAR FileDSCB, FileName, Options1 = "old", Options2 = "old", Operand = "old", PassList;
        VBC_VELDAParseCommandLine2(dp, "VVVVVV", &FileDSCB, &FileName, &Options1, &Options2, &Operand, &PassList);
        parsed = {FileName.str(), shown(Options1.view()), Options2.str(),
                  Operand.str(),  keys_of(PassList),      FileDSCB.is_file()};
    });
    return parsed;
}

Parsed parse3(std::string_view sentence) {
    Parsed parsed;
    parsed.exit_code = run_command(marks(sentence), [&](DP *dp) {
        VAR FileDSCB, FileName;
        VBC_VELDAParseCommandLine3(dp, "VV", &FileDSCB, &FileName);
        parsed.file_name = FileName.str();
        parsed.opened = FileDSCB.is_file();
    });
    return parsed;
}

// What the command writes when the parser is all that it calls.
Ending output_of(int parser, const std::string &sentence) {
    return run_on_pipes("", command(marks(sentence), [=](DP *dp) {
                            VAR a, b, c, d, e, f;
                            if (parser == 2)
                                VBC_VELDAParseCommandLine2(dp, "VVVVVV", &a, &b, &c, &d, &e, &f);
                            else
                                VBC_VELDAParseCommandLine3(dp, "VV", &a, &b);
                            crt_line("not reached");
                        }));
}

class CommandLine : public InScratchDirectory {
  protected:
    CommandLine() {
        make_file("MYFILE");
        for (const char *key : {"K1", "K2", "K3"}) put("MYFILE", key, key);
        put("DICT MYFILE", "D1", "A");
    }
};

TEST(CommandLine1, TakesDashWordsInFrontAndTheLastWordInParentheses) {
    const Parsed parsed = parse1("CMD^-a^-B2^x^y^(OPT");
    EXPECT_EQ(parsed.options1, "-a^-B2");
    EXPECT_EQ(parsed.options2, "(OPT");
    EXPECT_EQ(parsed.operand, "x^y");
}

TEST(CommandLine1, ClearsItsResultsForACommandWithoutWords) {
    const Parsed parsed = parse1("CMD");
    EXPECT_EQ(parsed.options1 + parsed.options2 + parsed.operand, "");
}

TEST(CommandLine1, LeavesDashWordsBehindTheFirstOperand) {
    const Parsed parsed = parse1("CMD^x^-a");
    EXPECT_EQ(parsed.options1, "");
    EXPECT_EQ(parsed.operand, "x^-a");
}

TEST(CommandLine1, LeavesAWordInParenthesesThatIsNotTheLast) {
    const Parsed parsed = parse1("CMD^(opt^x");
    EXPECT_EQ(parsed.options2, "");
    EXPECT_EQ(parsed.operand, "(opt^x");
}

TEST(CommandLine1, TakesTheOnlyWordAsOptions) { EXPECT_EQ(parse1("CMD^(x").options2, "(x"); }

TEST(CommandLine1, FoldsOptionsInParenthesesOnlyUnderItsEmulationSetting) {
    const ScratchDirectory release;
    EXPECT_EQ(parse1("CMD^x^(oPt)").options2, "(oPt)");
    const Ending ending = run_on_pipes("", [&](DP *) {
        use_emulation(release, "upper_case_options = 1");
        const Parsed parsed = parse1("CMD^-k^x^(oPt)");
        crt_line(parsed.options1, " ", parsed.options2);
    });
    EXPECT_EQ(ending.output, "-k (OPT)\n");
}

TEST(CommandLine1, DividesASentenceWithoutMarksAtItsBlanks) {
    const Parsed parsed = parse1("CMD -a x  y (O");
    EXPECT_EQ(parsed.options1, "-a");
    EXPECT_EQ(parsed.operand, "x^y");
    EXPECT_EQ(parsed.options2, "(O");
}

TEST(CommandLine1, KeepsBlanksInsideTheWordsOfAMarkedSentence) { EXPECT_EQ(parse1("CMD^a b^c").operand, "a b^c"); }

TEST_F(CommandLine, GivesFileOptionsKeysAndTheRestOfTheLine) {
    const Parsed parsed = parse2("CMD^-E^-x^MYFILE^K3^K1^(abc");
    EXPECT_EQ(parsed.file_name, "MYFILE");
    EXPECT_TRUE(parsed.opened);
    EXPECT_EQ(parsed.options1, "-E^-x");
    EXPECT_EQ(parsed.options2, "(abc");
    EXPECT_EQ(parsed.operand, "K3 K1");
    EXPECT_EQ(parsed.keys, "K1 K3");
}

TEST_F(CommandLine, SelectsAllKeysForAStar) {
    const Parsed parsed = parse2("CMD^MYFILE^*");
    EXPECT_EQ(parsed.keys, "K1 K2 K3");
    EXPECT_EQ(parsed.operand, "*");
}

TEST_F(CommandLine, TakesAStarAmongOtherKeysAsAKey) { EXPECT_EQ(parse2("CMD^MYFILE^*^K1").keys, "* K1"); }

TEST_F(CommandLine, SelectsAllKeysWithoutListAndWithoutActiveList) { EXPECT_EQ(parse2("CMD^MYFILE").keys, "K1 K2 K3"); }

TEST_F(CommandLine, TakesTheActiveListWhenTheLineHasNone) {
    const auto make_list = [](DP *) { SelectList(marks("K2^NONE")).make_default(); };
    EXPECT_EQ(parse2("CMD^MYFILE", make_list).keys, "K2 NONE");
    EXPECT_EQ(parse2("CMD^MYFILE^K3", make_list).keys, "K3");
    EXPECT_EQ(keys_of(SelectList::take_default().cell()), "K2 NONE")
        << "a list that is not used stays for the next command";
}

TEST_F(CommandLine, StopsWithoutListForTheCompilersCommandsUnderTheirEmulationSetting) {
    const ScratchDirectory release;
    for (const char *name : {"BASIC", "CATALOG", "DECATALOG", "basic"}) {
        const Ending ending = run_on_pipes("", [&](DP *) {
            use_emulation(release, "no_list_is_error = 1");
            exit_command(parse2(name + std::string("^MYFILE")).exit_code);
        });
        EXPECT_EQ(ending.output, "No record list given\n") << name;
        EXPECT_EQ(ending.exit_code, 1) << name;
    }
    const Ending other = run_on_pipes("", [&](DP *) {
        use_emulation(release, "no_list_is_error = 1");
        crt_line(parse2("COPY^MYFILE").keys);
    });
    EXPECT_EQ(other.output, "K1 K2 K3\n");
    EXPECT_EQ(parse2("BASIC^MYFILE").keys, "K1 K2 K3");
}

struct NameCase {
    const char *words;
    const char *file_name;
    const char *operand;
};

TEST_F(CommandLine, KnowsTheFormsOfAFileName) {
    constexpr NameCase Cases[] = {
        {"DICT^MYFILE^D1", "DICT MYFILE", "D1"},
        {"dict^MYFILE^D1", "DICT MYFILE", "D1"},
        {"data^MYFILE^K1", "DATA MYFILE", "K1"},
        {"(^MYFILE^K1", "MYFILE", "K1"},
        {"(MYFILE)^K1", "MYFILE", "K1"},
        {"MYFILE)^K1", "MYFILE", "K1"},
        {"(DICT^MYFILE)", "DICT MYFILE", ""},
        {"(dict^MYFILE)^D1", "DICT MYFILE", "D1"},
        {"(DATA^MYFILE)^K1", "DATA MYFILE", "K1"},
        {"(^DICT^MYFILE^D1", "DICT MYFILE", "D1"},
        {"(MYFILE", "MYFILE", ""},  // a single word is a file name, not options
    };
    for (const NameCase &name : Cases) {
        const Parsed parsed = parse2(std::string("CMD^") + name.words);
        EXPECT_EQ(parsed.file_name, name.file_name) << name.words;
        EXPECT_EQ(parsed.operand, name.operand) << name.words;
        EXPECT_EQ(parsed.options2, "") << name.words;
        EXPECT_TRUE(parsed.opened) << name.words;
    }
}

TEST_F(CommandLine, SelectsTheDictionarysKeysForItsName) {
    EXPECT_EQ(parse2("COPY^DICT^MYFILE^*").keys, "D1");
    EXPECT_EQ(parse2("COPY^(DICT^MYFILE)").keys, "D1");
}

TEST_F(CommandLine, StopsWithoutFileName) {
    for (const int parser : {2, 3}) {
        for (const char *sentence : {"CMD", "CMD^DICT", "CMD^data", "CMD^(", "CMD^()"}) {
            const Ending ending = output_of(parser, sentence);
            EXPECT_EQ(ending.output, "File name expected\n") << parser << sentence;
            EXPECT_EQ(ending.exit_code, 1) << parser << sentence;
        }
    }
}

TEST_F(CommandLine, StopsWhenTheFileCannotBeOpened) {
    for (const int parser : {2, 3}) {
        const Ending ending = output_of(parser, "CMD^DICT^NOWHERE^x");
        EXPECT_EQ(ending.output, "Cannot open file 'DICT NOWHERE'\n");
        EXPECT_EQ(ending.exit_code, 1);
    }
}

TEST_F(CommandLine, WithoutOptionsAndListOpensTheFileAlone) {
    EXPECT_EQ(parse3("CMD^MYFILE^K1^(x").file_name, "MYFILE");
    EXPECT_TRUE(parse3("CMD^MYFILE^K1^(x").opened);
    EXPECT_EQ(parse3("CMD^dict^MYFILE").file_name, "DICT MYFILE");
    EXPECT_EQ(parse3("CMD^(DICT^MYFILE)").file_name, "DICT MYFILE");
}

TEST_F(CommandLine, WithoutOptionsTakesADashWordAsTheFilesName) {
    EXPECT_EQ(output_of(3, "CMD^-x^MYFILE").output, "Cannot open file '-x'\n");
}

}  // namespace
