// The making of the key table, and the initialisation record.
#include "tests/frame/keys.h"

using namespace velda;
using namespace velda::test;

namespace {

class KeyTableTest : public InScratchDirectory {
  protected:
    // The record of the current directory, which is the home directory too until a test changes that.
    static void write_record(std::string_view lines) { write_host_file(".vedrc", lines); }

    static std::string table() {
        return run_on_pipes("", command("EDIT",
                                        [](DP *dp) {
                                            command_init(dp);
                                            crt(table_text(dp));
                                        }))
            .output;
    }
    static std::string settings() {
        return run_on_pipes("", command("EDIT",
                                        [](DP *dp) {
                                            command_init(dp);
                                            crt(settings_text(dp));
                                        }))
            .output;
    }
    // What the line "set mark_line=" and this operand binds; the last entry before the prefixes.
    static std::string bound_to(const std::string &operand) {
        write_record("set mark_line=" + operand + "\n");
        std::string all = table();
        all = all.substr(all.find("\\177=37 ") + 8);
        return all.substr(0, all.find("=5 "));
    }
};

constexpr const char *ControlKeyEntries =
    "^@=1 ^A=2 ^B=25 ^C=3 ^D^D=38 ^E=4 ^F=5 ^I=6 ^J=9 ^K=7 ^L=8 ^M=9 ^N=10 ^O=12 ^P=11 ^R=13 ^T=14 ^V=15 ^W=16 ^X=17 "
    "^Y=18 ^[=19 ";

TEST_F(KeyTableTest, WithoutTerminalHoldsTheCursorKeysAndTheControlKeys) {
    const std::string codes_of_marks =
        visible_keys(control("~").view()) + "=20 " + visible_keys(control("]").view()) + "=21 ";
    EXPECT_EQ(table(), std::string("^[[A=22 ^[[B=23 ^[[C=24 ^[[D=25 ") + ControlKeyEntries + codes_of_marks +
                           "\\177=37 ^[[=P ^D=P ");
}

// What the program shows on a terminal of that type.
std::string on_terminal(const char *type, const Program &program) { return OnTerminal({.type = type}, program).rest(); }

TEST_F(KeyTableTest, TakesTheTerminalsKeysInOrder) {
    const std::string output = on_terminal(
        "xterm", command("EDIT", [](DP *dp) {
            command_init(dp);
            constexpr std::pair<const char *, int> Capabilities[] = {
                {"key_ic", 12}, {"key_eol", 7},   {"key_end", 4},    {"key_home", 2},   {"back_tab", 18},
                {"key_up", 22}, {"key_down", 23}, {"key_right", 24}, {"key_left", 25},  {"key_backspace", 36},
                {"key_sf", 29}, {"key_sr", 28},   {"key_ppage", 30}, {"key_npage", 31}, {"key_f1", 41},
                {"key_f2", 42}, {"key_f12", 52}};
            std::string expected = "^[[A=22 ^[[B=23 ^[[C=24 ^[[D=25 ";
            for (const auto &[name, code] : Capabilities) {
                const VAR sequence = capability(name);
                if (code <= 42 && !sequence.empty())
                    expected += visible_keys(sequence.view()) + "=" + std::to_string(code) + " ";
            }
            const std::string table = table_text(dp);
            crt_line(table.starts_with(expected) ? std::string("in order") : expected + "\n" + table);
            const VAR twelve = capability("key_f12");
            const VAR backspace = capability("key_backspace");
            crt_line(table.find(visible_keys(twelve.view()) + "=52 ") != table.npos ? "f12" : "no f12");
            // key_backspace stands in the table twice, and 127 or ctrl-H, whichever it is, keeps its code 36.
            const std::string entry = visible_keys(backspace.view()) + "=36 ";
            crt_line(count(table, entry));
            crt_line(count(table, visible_keys(backspace.view()) + "=37 "));
        }));
    EXPECT_EQ(output, "in order\r\nf12\r\n2\r\n0\r\n");
}

TEST_F(KeyTableTest, GivesEveryCapabilityItsCode) {
    std::string source = "allkeys|a terminal with every key, am, cols#80, lines#24,\n";
    constexpr const char *Keys[] = {"kich1", "kel", "kend", "khome", "kcbt", "kcuu1", "kcud1", "kcuf1",
                                    "kcub1", "kbs", "kind", "kri",   "kpp",  "knp",   "kdch1", "kdl1"};
    for (const char *key : Keys) source += std::string("\t") + key + "=\\E{" + key + ",\n";
    for (int key = 1; key <= 33; ++key)
        source += "\tkf" + std::to_string(key) + "=\\E{f" + std::to_string(key) + "/,\n";
    write_host_file("keys.ti", source);
    ASSERT_EQ(std::system("tic -x -o terminfo keys.ti"), 0);
    setenv("TERMINFO", std::filesystem::absolute("terminfo").c_str(), 1);
    const std::string output = on_terminal("allkeys", command("EDIT", [](DP *dp) {
                                               command_init(dp);
                                               crt(table_text(dp));
                                           }));
    unsetenv("TERMINFO");
    std::string expected =
        "^[[A=22 ^[[B=23 ^[[C=24 ^[[D=25 ^[{kich1=12 ^[{kel=7 ^[{kend=4 ^[{khome=2 ^[{kcbt=18 ^[{kcuu1=22 ^[{kcud1=23 "
        "^[{kcuf1=24 ^[{kcub1=25 ^[{kbs=36 ^[{kind=29 ^[{kri=28 ^[{kpp=30 ^[{knp=31 ";
    for (int key = 1; key <= 32; ++key)
        expected += "^[{f" + std::to_string(key) + "/=" + std::to_string(40 + key) + " ";
    expected += "^[{kbs=36 ^[{kdch1=37 ^[{kdl1=38 ";
    EXPECT_EQ(output.substr(0, expected.size()), expected);
    EXPECT_EQ(output.substr(expected.size(), 5), "^@=1 ");
}

TEST_F(KeyTableTest, AddsAControlKeyOnlyWhenNoKeyOfTheTerminalBeginsWithIt) {
    write_host_file("keys.ti",
                    "ctrlkeys|cursor keys that are control keys, am, cols#80, lines#24, kcuf1=^L, kcuu1=^K,\n");
    ASSERT_EQ(std::system("tic -o terminfo keys.ti"), 0);
    setenv("TERMINFO", std::filesystem::absolute("terminfo").c_str(), 1);
    const std::string output =
        on_terminal("ctrlkeys", command("EDIT", [](DP *dp) {
                        command_init(dp);
                        const std::string table = table_text(dp);
                        for (const char *entry : {"^L=24 ", "^L=8 ", "^K=22 ", "^K=7 ", "^C=3 ", "^A=2 "})
                            crt(count(table, entry));
                    }));
    unsetenv("TERMINFO");
    EXPECT_EQ(output, "101011");
}

TEST_F(KeyTableTest, AddsEveryProperPrefixOnceAndNotOverACode) {
    write_record("set mark_line=^[x\nset mark_line=\\E:[1;5A\nset end_line=\\E:[1;5B\n");
    const std::string all = table();
    EXPECT_TRUE(all.ends_with(" ^[[=P ^D=P ^[[1=P ^[[1;=P ^[[1;5=P ")) << all;
}

TEST_F(KeyTableTest, IgnoresEmptyLinesAndComments) {
    const std::string without = table();
    write_record("\n   \n# set mark_line=^Q\n   # more\n");
    EXPECT_EQ(table(), without);
}

TEST_F(KeyTableTest, WarnsOfALineItCannotReadAndGoesOn) {
    write_record("# first\n  bind x\nsetmark_line=^Q\nSET mark_line=^Q\nset mark_line=^Q\n");
    const std::string output = table();
    EXPECT_TRUE(
        output.starts_with("warning - illegal initialisation record at 2:   bind x\n"
                           "warning - illegal initialisation record at 3: setmark_line=^Q\n"
                           "warning - illegal initialisation record at 4: SET mark_line=^Q\n"))
        << output;
    EXPECT_NE(output.find("^Q=5 "), std::string::npos);
}

TEST_F(KeyTableTest, ReadsEachPartOfAnOperandAsAPieceOfTheSequence) {
    constexpr std::pair<const char *, const char *> Parts[] = {
        {"^Q", "^Q"},          {"^q", "^Q"},          {"^Z:^z", "^Z^Z"},         {"^Q:\\\\", "^Q\\"},
        {"^Q:\\^", "^Q^"},     {"\\B", "^H"},         {"\\F:x", "^Lx"},          {"\\N:x", "^Jx"},
        {"\\R:x", "^Mx"},      {"\\S:x", "^Tx"},      {"\\T:x", "^Ix"},          {"\\E:x", "^[x"},
        {"\\021", "^Q"},       {"\\177:x", "\\177x"}, {"\\200", "\\200"},        {"^Q: ab ", "^Qab"},
        {" ^Q : ^S ", "^Q^S"}, {"^Q::^S", "^Q^S"},    {"^Q:^1", "^Q^1"},         {"^Q:^ab", "^Q^ab"},
        {"^Q:\\b", "^Q\\b"},   {"^Q:\\12", "^Q\\12"}, {"^Q:key_zz", "^Q"},       {"^Q:KEY_ZZ:x", "^Qx"},
        {"^Q:a=b", "^Qa=b"},   {"\\019", "^Q"},       {"^Q:\\0021", "^Q\\0021"},
    };
    for (const auto &[operand, sequence] : Parts) EXPECT_EQ(bound_to(operand), sequence) << operand;
    EXPECT_EQ(bound_to("^\\:x"), visible_keys(control("~").view()) + "x");
    EXPECT_EQ(bound_to("^]:x"), visible_keys(control("]").view()) + "x");
}

TEST_F(KeyTableTest, TakesTheSequenceOfATerminalsCapability) {
    write_record("set mark_line=\\001:KEY_up\n");
    const std::string output = on_terminal("xterm", command("EDIT", [](DP *dp) {
                                               command_init(dp);
                                               const std::string entry =
                                                   "^A" + visible_keys(capability("key_up").view()) + "=5 ";
                                               crt(count(table_text(dp), entry));
                                           }));
    EXPECT_EQ(output, "1");
}

TEST_F(KeyTableTest, StoresNoSequenceThatCameOutEmpty) {
    const std::string without = table();
    write_record("set mark_line=key_zz\nset other=key_zz\n");
    EXPECT_EQ(table(), without);
    EXPECT_EQ(settings(), "");
}

TEST_F(KeyTableTest, KeepsSettingsThatAreNoKeyCommands) {
    write_record("set foo\nset nofoo\nset bar=  a b  \nset bar = ^Q : x\nset empty=\nset north\n");
    EXPECT_EQ(settings(), "foo=1 foo=0 bar=a b bar=^Qx empty=1 rth=0 ");
}

TEST_F(KeyTableTest, RemovesEverySequenceOfACommandThatIsSwitchedOff) {
    write_record("set cursor_up=^Q\nset nocursor_up\nset nocarriage_return\n");
    const std::string all = table();
    EXPECT_EQ(all.find("=22 "), std::string::npos) << all;
    EXPECT_EQ(all.find("=9 "), std::string::npos) << all;
    write_record("set nocursor_up\nset cursor_up=^Q\n");
    EXPECT_EQ(count(table(), "=22 "), 1);
}

TEST_F(KeyTableTest, RemovesTheTerminalsSequencesToo) {
    write_record("set nocursor_up\n");
    const std::string output = on_terminal("xterm", command("EDIT", [](DP *dp) {
                                               command_init(dp);
                                               crt(count(table_text(dp), "=22 "));
                                           }));
    EXPECT_EQ(output, "0");
}

TEST_F(KeyTableTest, DropsSequencesThatBeginWithAPrintableByte) {
    const std::string without = table();
    write_record("set mark_line=abc\nset mark_line\nset end_line=x\nset end_line=~:^A\n");
    EXPECT_EQ(table(), without);
    // A blank is white space.
    write_record("set mark_line=\\040:x\n");
    EXPECT_EQ(count(table(), " x=5 "), 1);
}

TEST_F(KeyTableTest, KnowsEveryNameOfAKeyCommand) {
    constexpr std::pair<const char *, int> Names[] = {
        {"insert_space", 1},    {"start_line", 2},        {"change_case", 3},       {"end_line", 4},
        {"mark_line", 5},       {"forward_tab", 6},       {"clear_end_line", 7},    {"insert_line", 8},
        {"carriage_return", 9}, {"next_locate", 10},      {"prev_locate", 11},      {"toggle_insert", 12},
        {"repaint", 13},        {"copy_character", 14},   {"indent_screen", 15},    {"delete_word", 16},
        {"exit_record", 17},    {"back_tab", 18},         {"escape", 19},           {"insert_sub_value", 20},
        {"insert_value", 21},   {"cursor_up", 22},        {"cursor_down", 23},      {"cursor_right", 24},
        {"cursor_left", 25},    {"scroll_up_line", 26},   {"scroll_down_line", 27}, {"scroll_up_half", 28},
        {"scroll_up_page", 30}, {"scroll_down_page", 31}, {"scroll_top", 32},       {"scroll_bottom", 33},
        {"next_indent", 34},    {"prev_indent", 35},      {"backspace", 36},        {"delete_char", 37},
        {"delete_line", 38}};
    std::string lines, expected;
    for (const auto &[name, code] : Names) {
        lines += std::string("set ") + name + "=^Q:x" + std::to_string(code) + ":.\n";
        expected += "^Qx" + std::to_string(code) + ".=" + std::to_string(code) + " ";
    }
    write_record(lines);
    EXPECT_NE(table().find(expected), std::string::npos) << table();
}

TEST_F(KeyTableTest, GivesNoNameToCode29AndTheFunctionKeys) {
    write_record("set scroll_down_page=^Q\nset scroll_down_half=^Q\nset key_f1=^Q\nset CURSOR_UP=^Q\n");
    EXPECT_EQ(count(table(), "^Q=31 "), 1);
    EXPECT_EQ(count(table(), "=29 "), 0);
    EXPECT_EQ(settings(), "scroll_down_half=^Q key_f1=^Q CURSOR_UP=^Q ");
}

TEST_F(KeyTableTest, LetsTheFirstOfTwoEqualSequencesWin) {
    write_record("set end_line=^A\n");
    const Ending ending = run_on_pipes("", command("EDIT", [](DP *dp) {
                                           command_init(dp);
                                           set_type_ahead(dp, "\x01");
                                           crt(command_next(dp, 1));
                                       }));
    EXPECT_EQ(ending.output, "2 ^A");
}

TEST_F(KeyTableTest, TakesTheHomeDirectorysRecordOnlyWhenThereIsNoneInTheCurrentOne) {
    const ScratchDirectory home;
    setenv("HOME", home.path().c_str(), 1);
    write_host_file(home / ".vedrc", "set place=home\n");
    EXPECT_EQ(settings(), "place=home ");
    write_record("");
    EXPECT_EQ(settings(), "place=home ");
    write_record("set place=here\n");
    EXPECT_EQ(settings(), "place=here ");
    unsetenv("HOME");
    std::filesystem::remove(".vedrc");
    EXPECT_EQ(settings(), "");
}

TEST_F(KeyTableTest, TakesARecordThatMayNotBeReadForAnEmptyOne) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser, to become someone else";
    const ScratchDirectory home;
    setenv("HOME", home.path().c_str(), 1);
    write_host_file(home / ".vedrc", "set place=home\n");
    write_record("set place=here\n");
    std::filesystem::permissions(home.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(directory_.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(".vedrc", std::filesystem::perms(0600));
    const auto as_nobody = [] {
        return run_on_pipes("", command("EDIT",
                                        [](DP *dp) {
                                            constexpr uid_t Nobody = 65534;
                                            if (setgid(Nobody) != 0 || setuid(Nobody) != 0) exit_command(1);
                                            command_init(dp);
                                            crt(settings_text(dp));
                                        }))
            .output;
    };
    EXPECT_EQ(as_nobody(), "place=home ");
    std::filesystem::permissions(home / ".vedrc", std::filesystem::perms(0600));
    EXPECT_EQ(as_nobody(), "");
}

TEST_F(KeyTableTest, RefusesASequenceWithAnAttributeMark) {
    write_record("set mark_line=^Q:\\376\nset foo=\\376\nset end_line=^Q\n");
    const std::string output = table();
    EXPECT_EQ(count(output, "warning - illegal initialisation record at "), 2) << output;
    EXPECT_EQ(count(output, "^Q=4 "), 1) << output;
}

TEST_F(KeyTableTest, ClearsWhatAnEarlierTableLeft) {
    const Ending ending = run_on_pipes("", command("EDIT", [](DP *dp) {
                                           command_init(dp);
                                           const std::string first = table_text(dp);
                                           set_type_ahead(dp, "abc");
                                           command_init(dp);
                                           crt(first == table_text(dp) ? "same " : "different ", type_ahead_text(dp));
                                       }));
    EXPECT_EQ(ending.output, "same ");
}

TEST_F(KeyTableTest, MovesStackedDataIntoTheTypeAhead) {
    const Ending ending =
        run_on_pipes("", command("EDIT",
                                 [](DP *dp) {
                                     set_prompt(">");
                                     set_echo(true);
                                     command_init(dp);
                                     crt(type_ahead_text(dp), " ", table_element(dp, frame::KeyStackedData),
                                         system_number(3026), system_number(3024));
                                 },
                                 {"one", "two"}));
    EXPECT_EQ(ending.output, "one^Mtwo^M 1>1");
}

TEST_F(KeyTableTest, KeepsTheTableWhereOtherProgramsFindIt) {
    const Ending ending = run_on_pipes("", command("EDIT", [](DP *dp) {
                                           command_init(dp);
                                           CommonBlock block("VELDA_dUtil", 100);
                                           crt(visible_keys(block[70](1).view()), " ", block[71](1), " ", block[74]);
                                       }));
    EXPECT_EQ(ending.output, "^[[A 22 0");
}

TEST_F(KeyTableTest, NotesThatNoDataIsStacked) {
    const Ending ending = run_on_pipes("", command("EDIT", [](DP *dp) {
                                           command_init(dp);
                                           crt("(", table_element(dp, frame::KeyStackedData), ")", type_ahead_text(dp));
                                       }));
    EXPECT_EQ(ending.output, "(0)");
}

}  // namespace
