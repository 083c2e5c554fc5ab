// COPY to the terminal and to the printer; the help.
#include "tests/fileutil/copy_fixture.h"

using namespace velda;
using namespace velda::test;

namespace {

class CopyDisplay : public CopyTest {
  protected:
    // A record of numbered lines.
    static void put_lines(const std::string &key, int lines) {
        VAR record;
        for (int line = 1; line <= lines; ++line) record(line) = cat("line", line);
        File file;
        ASSERT_TRUE(file.open("F"));
        file.write(key, record);
    }
};

TEST_F(CopyDisplay, ShowsTheRecordsForAnEmptyAnswer) {
    const Ending ending = copy("COPY F K1 K2", {""});
    EXPECT_EQ(ending.output, "    K1\n001 one\n002 1.2\n\n    K2\n001 two\n\n");
    EXPECT_EQ(ending.exit_code, 0);
    EXPECT_EQ(run_on_pipes("\n", copy_program("COPY F K2")).output, "To:     K2\n001 two\n\n");
    EXPECT_EQ(copy("COPY F K2", {"   "}).output, "    K2\n001 two\n\n");
}

TEST_F(CopyDisplay, ShowsTheRecordsWithOptionT) { EXPECT_EQ(copy("COPY F K2 (T").output, "    K2\n001 two\n\n"); }

TEST_F(CopyDisplay, ShowsTheRecordsWhenTheProgramForcesIt) {
    EXPECT_EQ(copy("CT F K2", {}, 1).output, "    K2\n001 two\n\n");
}

TEST_F(CopyDisplay, ListsMissingRecordsBehindTheOthers) {
    const Ending ending = copy("COPY F NONE K2 (T");
    EXPECT_EQ(ending.output, "    K2\n001 two\n\n'NONE' record not found\n");
    EXPECT_EQ(ending.exit_code, 2);
}

TEST_F(CopyDisplay, LeavesOutTheLineNumbersWithOptionS) { EXPECT_EQ(copy("COPY F K1 (TS").output, "K1\none\n1.2\n\n"); }

TEST_F(CopyDisplay, LeavesOutTheKeyWithOptionH) {
    EXPECT_EQ(copy("COPY F K2 (TH").output, " \n001 two\n\n");
    EXPECT_EQ(copy("COPY F K2 (THS").output, " \ntwo\n\n");
}

TEST_F(CopyDisplay, ShowsTheKeyLineEvenWhenQuiet) { EXPECT_EQ(copy("COPY F K2 (TQ").output, "    K2\n001 two\n\n"); }

TEST_F(CopyDisplay, ShowsHexadecimalDigitsWithOptionX) {
    EXPECT_EQ(copy("COPY F K1 (TX").output, "    K1\n001 6F6E65\n002 31FD32\n\n");
}

TEST_F(CopyDisplay, ShowsBytesThatDoNotPrintAsDots) {
    put("F", "Z",
        "a\tb\x01"
        "c");
    EXPECT_EQ(copy("COPY F Z (T").output, "    Z\n001 a.b.c\n\n");
}

TEST_F(CopyDisplay, ShowsEmptyAttributesAndEmptyRecords) {
    put("F", "E", "");
    put("F", "M", "^x^");
    EXPECT_EQ(copy("COPY F E M (T").output, "    E\n\n    M\n001 \n002 x\n003 \n\n");
    EXPECT_EQ(copy("COPY F M (TS").output, "M\n\nx\n\n\n");
}

TEST_F(CopyDisplay, WidensTheNumbersWithTheRecord) {
    put_lines("L", 1000);
    const std::string output = copy("COPY F L (TN").output;
    EXPECT_TRUE(output.starts_with("    L\n0001 line1\n0002 line2\n")) << output.substr(0, 60);
    EXPECT_TRUE(output.ends_with("\n0999 line999\n1000 line1000\n\n"));
}

TEST_F(CopyDisplay, ExpandsTheEditorsForm) {
    put("F", "Z", "a\x10*\x04");
    EXPECT_EQ(copy("COPY -E F Z (T").output, "    Z\n001 a****\n\n");
}

TEST_F(CopyDisplay, DropsTheQuotesOfAKey) { EXPECT_EQ(copy("COPY F 'K2' (T").output, "    K2\n001 two\n\n"); }

// What a program shows on a terminal of that size, without sequences; "\r\n" as "\n".
std::string shown_on_terminal(unsigned short columns, unsigned short lines, const Program &program) {
    const std::string output = OnTerminal({.type = "dumb", .columns = columns, .lines = lines}, program).rest();
    return change(output, "\r\n", "\n").str();
}

TEST_F(CopyDisplay, ContinuesALongAttributeOnLinesWithAPrefix) {
    put("F", "W", "abcdefghijklmnopqrstuvwxyz^short");
    // 20 columns less 1 less a prefix of 4 makes 15, which is made even: 14.
    EXPECT_EQ(shown_on_terminal(20, 50, copy_program("COPY F W (T")),
              "    W\n001 abcdefghijklmn\n    opqrstuvwxyz\n002 short\n\n");
    // Without numbers the prefix is a blank, and the pieces are 18 long.
    EXPECT_EQ(shown_on_terminal(20, 50, copy_program("COPY F W (TS")), "W\nabcdefghijklmnopqr\n stuvwxyz\nshort\n\n");
    EXPECT_EQ(shown_on_terminal(20, 50, copy_program("COPY F W (TX")),
              "    W\n001 61626364656667\n    68696A6B6C6D6E\n    6F707172737475\n    767778797A\n002 73686F7274\n\n");
}

TEST_F(CopyDisplay, CutsAPieceThatJustFitsNoFurther) {
    put("F", "W", "abcdefghijklmn");
    EXPECT_EQ(shown_on_terminal(20, 50, copy_program("COPY F W (T")), "    W\n001 abcdefghijklmn\n\n");
}

TEST_F(CopyDisplay, ShowsOnATerminalTooNarrowForThePrefix) {
    put("F", "W", "abcde");
    EXPECT_EQ(shown_on_terminal(4, 50, copy_program("COPY F W (T")), "    W\n001 ab\n    cd\n    e\n\n");
}

TEST_F(CopyDisplay, PausesWhenThePageIsFull) {
    put_lines("L", 9);
    OnTerminal terminal({.type = "dumb", .columns = 80, .lines = 5}, copy_program("COPY F L (T"));
    terminal.until("    L\r\n001 line1\r\n002 line2\r\n003 line3\r\n004 line4");
    terminal.type("x");
    // The reply is not shown, and no new line ends the page.
    terminal.until("005 line5\r\n006 line6\r\n007 line7\r\n008 line8\r\n009 line9");
    terminal.type(" ");
    EXPECT_EQ(terminal.rest(), "\r\n");
    EXPECT_EQ(terminal.exit_code(), 0);
}

class QuitKey : public CopyDisplay, public ::testing::WithParamInterface<const char *> {};

TEST_P(QuitKey, EndsTheDisplayAtThePause) {
    put_lines("L", 9);
    OnTerminal terminal({.type = "dumb", .columns = 80, .lines = 3}, copy_program("COPY F NONE L K1 (T"));
    terminal.until("002 line2");
    ASSERT_TRUE(eventually([&] { return !terminal.has_user_settings(); }));
    terminal.type(GetParam());
    EXPECT_EQ(terminal.rest(), "\r\n'NONE' record not found\r\n");
    EXPECT_EQ(terminal.exit_code(), 2);
}
INSTANTIATE_TEST_SUITE_P(Keys, QuitKey, ::testing::Values("Q", "q", "\x05", "\x18"));

TEST_F(CopyDisplay, EndsAtAPauseWithinALongAttribute) {
    put("F", "W", std::string(100, 'w') + "^next");
    OnTerminal terminal({.type = "dumb", .columns = 20, .lines = 3}, copy_program("COPY F W (T"));
    terminal.prompted("    W\r\n001 wwwwwwwwwwwwww\r\n    wwwwwwwwwwwwww");
    terminal.type("q");
    EXPECT_EQ(terminal.rest(), "\r\n");
}

TEST_F(CopyDisplay, TakesTheReplyToThePauseFromStackedData) {
    put_lines("L", 9);
    setenv("LINES", "3", 1);
    const Program program = [](DP *dp) {
        setenv("LINES", "3", 1);
        copy_program("COPY F L (T", {"", "Q"})(dp);
    };
    EXPECT_EQ(run_on_pipes("", program).output,
              "    L\n001 line1\n002 line2"
              "003 line3\n004 line4\n005 line5\n");
}

TEST_F(CopyDisplay, DoesNotPauseWhenTheOutputIsNoTerminal) {
    put_lines("L", 9);
    const Program program = [](DP *dp) {
        setenv("LINES", "4", 1);
        copy_program("COPY F L (T")(dp);
        VAR next;
        input(next);
        crt_line("next: ", next);
    };
    const std::string output = run_on_pipes("Q\n", program).output;
    EXPECT_TRUE(output.starts_with("    L\n001 line1\n002 line2\n003 line3\n004 line4\n")) << output;
    EXPECT_TRUE(output.ends_with("next: Q\n")) << "what is typed for the next command is left to it";
}

TEST_F(CopyDisplay, DoesNotPauseWithOptionN) {
    put_lines("L", 9);
    const std::string output = shown_on_terminal(80, 4, copy_program("COPY F L (TN"));
    EXPECT_TRUE(output.ends_with("\n008 line8\n009 line9\n\n")) << output;
}

TEST_F(CopyDisplay, ClearsTheScreenFirstAndAfterEachPause) {
    put_lines("L", 3);
    OnTerminal terminal({.type = "xterm", .columns = 80, .lines = 4}, copy_program("COPY F L (T"));
    const std::string before = terminal.until("    L\r\n");
    EXPECT_FALSE(before.empty());
    terminal.until("003 line3");
    terminal.type("x");
    EXPECT_EQ(terminal.rest(), before + "\r\n");
}

TEST_F(CopyDisplay, ClearsTheScreenBetweenRecordsWithOptionF) {
    OnTerminal terminal({.type = "xterm", .columns = 80, .lines = 24}, copy_program("COPY F K2 K3 (TF"));
    const std::string clear = terminal.until("    K2\r\n001 two\r\n\r\n");
    EXPECT_EQ(terminal.until("    K3\r\n").substr(0, clear.size()), clear);
}

TEST_F(CopyDisplay, CountsTheLinesOfEachPageOfOptionFOnTheirOwn) {
    // Six lines in all on a screen of six; each page has three of them.
    EXPECT_EQ(shown_on_terminal(80, 6, copy_program("COPY F K2 K3 (TF")), "    K2\n001 two\n\n    K3\n001 three\n\n");
}

TEST_F(CopyDisplay, RestoresPromptAndEchoAfterThePause) {
    put_lines("L", 9);
    const auto body = [](DP *dp) {
        setenv("LINES", "3", 1);
        set_prompt(">");
        call_on_exit("TestShowPrompt");
        VAR OutputFlag = 1;
        VBC_VELDACopyCommand(dp, "V", &OutputFlag);
    };
    const Ending ending = run_on_pipes("", [=](DP *dp) { command("CT F L", body, {"Q"})(dp); });
    EXPECT_TRUE(ending.output.ends_with("\n>1")) << ending.output;
}

// --- the printer ---------------------------------------------------------------------------------------------------

// A program whose print jobs are the input of this command.
Program printing(const Program &program) {
    return [=](DP *dp) {
        setenv("VELDAPRINTER", "cat > printed.txt", 1);
        program(dp);
    };
}

std::string last_print_job() {
    std::ifstream in("printed.txt", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What a program prints.
std::string printed(const Program &program) {
    std::filesystem::remove("printed.txt");
    const Ending ending = run_on_pipes("", printing(program));
    EXPECT_EQ(ending.output, "");
    return last_print_job();
}

TEST_F(CopyDisplay, PrintsTheRecordsWithOptionP) {
    EXPECT_EQ(printed(copy_program("COPY F K1 K2 (P")), "    K1\n001 one\n002 1.2\n\n    K2\n001 two\n\n");
}

TEST_F(CopyDisplay, PrintsWhenTheProgramForcesIt) {
    EXPECT_EQ(printed(copy_program("CP F K2 (S", {}, 2)), "K2\ntwo\n\n");
}

TEST_F(CopyDisplay, BeginsANewPageOfThePrinterForEachRecordWithOptionF) {
    EXPECT_EQ(printed(copy_program("COPY F K2 K3 (PF")), "    K2\n001 two\n\n\f    K3\n001 three\n\n");
}

TEST_F(CopyDisplay, PrintsWithoutPausesAndLeavesTheScreenAlone) {
    put_lines("L", 100);
    OnTerminal terminal({.type = "xterm", .columns = 80, .lines = 5}, printing(copy_program("COPY F K2 L (PF")));
    EXPECT_EQ(terminal.rest(), "");
    EXPECT_EQ(terminal.exit_code(), 0);
    const std::string job = last_print_job();
    EXPECT_TRUE(job.starts_with("    K2\n001 two\n\n\f    L\n001 line1\n")) << job;
    EXPECT_TRUE(job.ends_with("\n100 line100\n\n")) << job;
}

TEST_F(CopyDisplay, EndsThePrintJobBeforeItsExitHandlersRun) {
    const auto body = [](DP *dp) {
        call_on_exit("TestShowPrintJob");
        VAR OutputFlag = 2;
        VBC_VELDACopyCommand(dp, "V", &OutputFlag);
    };
    EXPECT_EQ(run_on_pipes("", printing(command("CP F K2 (S", body))).output, "job: K2\ntwo\n\n");
}

TEST_F(CopyDisplay, SwitchesThePrintUnitToTheTerminal) {
    const auto body = [](DP *dp) {
        printer_on();
        VAR OutputFlag = 0;
        VBC_VELDACopyCommand(dp, "V", &OutputFlag);
    };
    EXPECT_EQ(run_on_pipes("", printing(command("COPY F NONE K1 (I", body, {"(G"}))).output,
              "     1 K1\n1 records copied\n'NONE' record not found\n");
}

TEST_F(CopyDisplay, ShowsMissingRecordsOnTheTerminalWhileItPrints) {
    const Ending ending = run_on_pipes("", printing(copy_program("COPY F NONE K2 (P")));
    EXPECT_EQ(ending.output, "'NONE' record not found\n");
    EXPECT_EQ(ending.exit_code, 2);
}

TEST_F(CopyDisplay, PrintsOnTheUnitBehindLptr) {
    EXPECT_EQ(printed(copy_program("COPY FROM F K2 LPTR")), "    K2\n001 two\n\n");
    EXPECT_EQ(printed(copy_program("COPY FROM F K2 LPTR 3 NUM.SUPP")), "K2\ntwo\n\n");
    EXPECT_EQ(printed(copy_program("COPY FROM F LPTR K2")), "    K2\n001 two\n\n");
}

// --- the help ------------------------------------------------------------------------------------------------------

class CopyHelp : public CopyTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(CopyHelp, ShowsBothForms) {
    const Ending ending = copy(GetParam());
    EXPECT_EQ(ending.exit_code, 0);
    EXPECT_TRUE(ending.output.starts_with("COPY {DICT} filename{,section} {recordlist | *} {(Options}\nCOPY -? | -h\n"))
        << ending.output;
    for (const char *line : {
             "\nD - Delete each source record once it has been copied\n",
             "\nX - Hexadecimal display\n",
             "\nCOPY FROM {DICT} SourceFilename TO {DICT} TargetFilename {OrigID,{NewID}} {...} {Options}\n",
             "\nUPDATING    - Copies the record only if the the record already exists in TargetFilename\n",
             "\nFIRST       - ",
             "\nNUM.SUPP    - No line numbers\n",
         })
        EXPECT_NE(ending.output.find(line), std::string::npos) << line << ending.output;
}
INSTANTIATE_TEST_SUITE_P(Forms, CopyHelp, ::testing::Values("COPY", "COPY -h", "COPY -H", "COPY -?", "copy -h"));

TEST_F(CopyTest, ShowsNoHelpWhenTheProgramForcesTheTarget) {
    EXPECT_EQ(copy("CT", {}, 1).output, "File name expected\n");
    EXPECT_EQ(copy("CT -?", {}, 1).exit_code, 1);
}

}  // namespace

// Exit handlers of the tests above.
VBC_SUBROUTINE(TestShowPrintJob, code) { crt("job: ", last_print_job()); }
VBC_SUBROUTINE(TestShowPrompt, code) { crt(system_number(3026), system_number(3024)); }
