// CRT, messages, cursor, size and names of the terminal, and formatted output.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "runtime/process/output.h"
#include "runtime/terminal/facade.h"
#include "tests/support/marks.h"
#include "tests/support/terminal_program.h"

using velda::at;
using velda::crt;
using velda::crt_line;
using velda::test::Ending;
using velda::test::eventually;
using velda::test::OnTerminal;
using velda::test::run_on_pipes;

namespace {

// The output of a program on pipes.
std::string output_of(const velda::test::Program &program) { return run_on_pipes("", program).output; }

}  // namespace

TEST(Crt, WritesItemsWithAndWithoutNewLine) {
    EXPECT_EQ(output_of([](DP *dp) {
                  const VAR one("one"), two(2);
                  VLibFCRTBEGIN(dp);
                  VLibFCRT_VB(dp, &one);
                  VLibFCRTN_VB(dp, &two);
                  VLibFCRTCR(dp);
                  VLibFCRTEND(dp);
              }),
              "one2\n\n");
}

TEST(Crt, PassesEveryByteUnchanged) {
    const std::string bytes = marks("a^b]c\\d") + std::string("\0\xFF\r\t", 4);
    EXPECT_EQ(output_of([&](DP *) { crt(bytes); }), bytes);
}

TEST(Crt, OfAnUnassignedCellWritesNothing) {
    EXPECT_EQ(output_of([](DP *) { crt("[", VAR(), "]"); }), "[]");
}

TEST(Crt, IsOnTheTerminalWhenTheStatementEnds) {
    OnTerminal terminal([](DP *) {
        crt("no new line");
        pause();
    });
    terminal.until("no new line");
}

TEST(Crt, GoesIntoACapture) {
    EXPECT_EQ(output_of([](DP *dp) {
                  std::string captured;
                  {
                      const velda::CaptureOutput capture(dp, captured);
                      crt_line("inside");
                  }
                  crt_line("captured: ", captured);
              }),
              "captured: inside\n\n");
}

TEST(SystemMessage, IsPrintedByKeyWithItsParameters) {
    EXPECT_EQ(output_of([](DP *) { velda::print_message("201", "ORDERS"); }), "Cannot open file 'ORDERS'\n");
}

TEST(SystemMessage, MayHaveItsParametersDividedByAttributeMarks) {
    EXPECT_EQ(output_of([](DP *dp) {
                  const VAR message(marks("201^ORDERS"));
                  VLibFPRINTERR_VBB(dp, &message, nullptr);
              }),
              "Cannot open file 'ORDERS'\n");
}

TEST(SystemMessage, WithoutTextShowsKeyAndParameters) {
    EXPECT_EQ(output_of([](DP *) { velda::print_message("SP-Unheard", 12, "x"); }), "SP-Unheard 12 x\n");
}

TEST(SystemMessage, MayBePlainText) {
    EXPECT_EQ(output_of([](DP *) { velda::print_message("Nothing to do."); }), "Nothing to do.\n");
}

TEST(InputError, StandsOnTheLastLineUntilTheNextReply) {
    OnTerminal terminal({.type = "vt220", .columns = 80, .lines = 25}, [](DP *dp) {
        const VAR message("Not a number");
        VLibFINPUTERR_VB(dp, &message);
        VAR reply;
        velda::input(reply);
    });
    EXPECT_EQ(terminal.prompted("?"),
              "\x1B"
              "7\x1B[25;1HNot a number\x1B[K\x1B"
              "8");
    terminal.type("1\r");
    EXPECT_EQ(terminal.rest(),
              "1\r\n\x1B"
              "7\x1B[25;1H\x1B[K\x1B"
              "8");
}

TEST(InputError, IsALineWhereThereIsNoScreen) {
    EXPECT_EQ(output_of([](DP *dp) {
                  const VAR message("Not a number");
                  VLibFINPUTERR_VB(dp, &message);
              }),
              "Not a number\n");
}

TEST(Cursor, MovesCountFromZero) {
    OnTerminal terminal({.type = "vt220"}, [](DP *) { crt(at(4, 2), "a", at(0, 0), "b", at(9, -1), "c", at(0, -1)); });
    EXPECT_EQ(terminal.rest(), "\x1B[3;5Ha\x1B[1;1Hb\r\x1B[9Cc\r");
}

TEST(Cursor, NegativeColumnsAreScreenFunctions) {
    OnTerminal terminal({.type = "vt220"}, [](DP *) {
        for (const int function : {-1, -2, -3, -4, -13, -14}) crt(at(function), "|");
    });
    EXPECT_EQ(terminal.rest(), "\x1B[H\x1B[J|\x1B[H|\x1B[J|\x1B[K|\x1B[7m|\x1B[m\x1B(B|");
}

TEST(Cursor, UnknownScreenFunctionsAreEmpty) {
    OnTerminal terminal([](DP *) { crt("[", at(-25), at(-1000), at(INT_MIN), "]"); });
    EXPECT_EQ(terminal.rest(), "[]");
}

TEST(Cursor, IsEmptyWhereTheTerminalIsNone) {
    OnTerminal terminal({.type = "no-such-terminal"}, [](DP *) { crt("[", at(4, 2), at(-1), at(3, -1), "]"); });
    EXPECT_EQ(terminal.rest(), "[]");
}

TEST(Cursor, IsEmptyWhenTheOutputGoesToAPipe) {
    EXPECT_EQ(output_of([](DP *) {
                  setenv("TERM", "vt220", 1);
                  crt("[", at(4, 2), at(-1), "]");
              }),
              "[]");
}

TEST(ScreenSize, IsTheWindows) {
    OnTerminal terminal({.columns = 132, .lines = 50}, [](DP *dp) {
        crt_line(velda::system_number(2), "x", velda::system_number(3), " ", VELDAGetOutputSize(dp, 2), "x",
                 VELDAGetOutputSize(dp, 3), " ", VELDAGetOutputSize(dp, 4));
    });
    EXPECT_EQ(terminal.rest(), "132x50 132x50 0\r\n");
}

TEST(ScreenSize, FollowsTheWindow) {
    OnTerminal terminal([](DP *) {
        crt_line(velda::screen_width());
        eventually([] { return velda::screen_width() == 100; });
        crt_line(velda::screen_width(), "x", velda::screen_depth());
    });
    terminal.until("80\r\n");
    terminal.resize(100, 30);
    EXPECT_EQ(terminal.rest(), "100x30\r\n");
}

TEST(ScreenSize, WithoutWindowIsTheEnvironmentsOrEightyByTwentyFour) {
    EXPECT_EQ(output_of([](DP *) {
                  crt_line(velda::screen_width(), "x", velda::screen_depth());
                  setenv("COLUMNS", "40", 1);
                  setenv("LINES", "12", 1);
                  crt_line(velda::screen_width(), "x", velda::screen_depth());
                  setenv("COLUMNS", "wide", 1);
                  setenv("LINES", "-3", 1);
                  crt_line(velda::screen_width(), "x", velda::screen_depth());
              }),
              "80x24\n40x12\n80x24\n");
}

TEST(TerminalName, IsItsDevice) {
    OnTerminal terminal([](DP *dp) {
        VAR name;
        const int found = VELDAGetTTYName(dp, &name);
        crt_line(found, name.str() == ttyname(0) ? " same" : " other");
    });
    EXPECT_EQ(terminal.rest(), "1 same\r\n");
}

TEST(TerminalName, IsEmptyWithoutTerminal) {
    EXPECT_EQ(output_of([](DP *dp) {
                  VAR name("before");
                  const int found = VELDAGetTTYName(dp, &name);
                  crt_line(found, "[", name, "]");
              }),
              "0[]\n");
}

TEST(KeyCapabilities, AreTwoListsInStep) {
    OnTerminal terminal({.type = "vt220"}, [](DP *) {
        const VAR capabilities = velda::system_number(1005);
        const VAR names = capabilities(1), sequences = capabilities(2);
        for (int key = 1; key <= 100; ++key)
            if (const std::string name = VAR(names(1, key)).str(); name == "key_up" || name == "key_f6")
                crt_line(name, " ", VAR(sequences(1, key)).substring(2, -1));
    });
    const std::string shown = terminal.rest();
    EXPECT_NE(shown.find("key_up [A\r\n"), shown.npos) << shown;
    EXPECT_NE(shown.find("key_f6 [17~\r\n"), shown.npos) << shown;
}

TEST(KeyCapabilities, AreEmptyWithoutTerminal) {
    EXPECT_EQ(output_of([](DP *) { crt_line("[", velda::system_number(1005), "]"); }), "[]\n");
}

TEST(Terminfo, GivesCapabilitiesByNumber) {
    OnTerminal terminal({.type = "vt220"}, [](DP *dp) {
        crt_line(VRunFTerminfo(dp, 1) == std::string_view("\a") ? "bell" : "other",
                 VRunFTerminfo(dp, 9999) ? " some" : " none");
    });
    EXPECT_EQ(terminal.rest(), "bell none\r\n");
}

TEST(TerminalWrite, GoesPastACaptureInStepWithWhatWasWritten) {
    EXPECT_EQ(output_of([](DP *dp) {
                  crt("first ");
                  std::string captured;
                  const velda::CaptureOutput capture(dp, captured);
                  crt("captured");
                  VRunFTerminalWrite(dp, "raw\n", 4, 0);
              }),
              "first raw\n");
}

TEST(FormattedOutput, IsInStepWithCrt) {
    EXPECT_EQ(output_of([](DP *dp) {
                  crt("a ");
                  VELDAprintf(dp, "%d %s ", 12, "text");
                  VELDAfprintf(dp, stdout, "%.1f ", 2.5);
                  crt("b ");
                  VELDAjprintf(dp, "%c\n", 'c');
                  VELDAfflush(dp, stdout);
              }),
              "a 12 text 2.5 b c\n");
}

TEST(FormattedOutput, GivesTheNumberOfBytes) {
    EXPECT_EQ(output_of([](DP *dp) {
                  const int none = VELDAprintf(dp, "%s", "");
                  crt_line(none, " ", VELDAprintf(dp, "%5d|", 7));
              }),
              "    7|0 6\n");
}

TEST(FormattedOutput, MayBeLong) {
    const std::string line(100000, 'x');
    EXPECT_EQ(output_of([&](DP *dp) { VELDAprintf(dp, "%s", line.c_str()); }), line);
}

TEST(FormattedOutput, ForStandardErrorGoesThere) {
    EXPECT_EQ(output_of([](DP *dp) {
                  dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
                  VELDAfprintf(dp, stderr, "lost %d\n", 1);
                  VELDAfflush(dp, stderr);
                  crt_line("kept");
              }),
              "kept\n");
}

TEST(FormattedOutput, PerrorNamesTheError) {
    EXPECT_EQ(output_of([](DP *dp) {
                  crt_line("before");
                  errno = ENOENT;
                  VELDAperror(dp, "ORDERS");
              }),
              "before\nORDERS: No such file or directory\n");
}
