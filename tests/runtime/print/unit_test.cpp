// Print units of running programs: switch, headings, pages and jobs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "runtime/print/facade.h"
#include "runtime/process/output.h"
#include "runtime/terminal/facade.h"
#include "tests/support/scratch.h"
#include "tests/support/terminal_program.h"

using velda::crt_line;
using velda::footing;
using velda::heading;
using velda::new_page;
using velda::print;
using velda::print_line;
using velda::print_line_on;
using velda::printer_close;
using velda::printer_off;
using velda::printer_on;
using velda::test::Ending;
using velda::test::OnTerminal;
using velda::test::run_on_pipes;
using velda::test::ScratchSystem;

namespace {

std::string output_of(const velda::test::Program &program) { return run_on_pipes("", program).output; }

// The finished jobs of a system in the order of unit and number: the content of each, and "|" behind it.
std::string jobs_of(const ScratchSystem &system) {
    std::map<std::string, std::string> jobs;
    const std::filesystem::path directory = system / "print";
    if (!std::filesystem::exists(directory)) return "";
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        const std::string name = entry.path().filename();
        jobs[name.substr(name.find('-'))] = entry.path().extension() == ".prn" ? content.str() : "unfinished";
    }
    std::string all;
    for (const auto &[name, content] : jobs) all += content + "|";
    return all;
}

void print_lines(int count) {
    for (int line = 1; line <= count; ++line) print_line(line);
}

}  // namespace

TEST(PrintUnit, GoesToTheTerminalAtFirst) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *dp) {
                  const VAR item("item");
                  VLibFPRINT_VIB(dp, 0, &item);
                  VLibFPRINTN_VIB(dp, 0, &item);
                  VLibFPRINTCR_VI(dp, 5);
                  print_line("a", 1, 2.5);
              }),
              "itemitem\n\na12.5\n");
    EXPECT_EQ(jobs_of(system), "");
}

TEST(PrintUnit, IsInStepWithCrt) {
    EXPECT_EQ(output_of([](DP *) {
                  print("a");
                  velda::crt("b");
                  print_line("c");
              }),
              "abc\n");
}

TEST(PrintUnit, GoesIntoACapture) {
    EXPECT_EQ(output_of([](DP *dp) {
                  std::string captured;
                  {
                      const velda::CaptureOutput capture(dp, captured);
                      print_line("inside");
                  }
                  crt_line("captured: ", captured);
              }),
              "captured: inside\n\n");
}

TEST(PrintUnit, OnThePrinterBecomesAJobThatTheEndOfTheCommandCompletes) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *) {
                  printer_on();
                  print_line("one");
                  print_line("two");
                  crt_line("on the terminal");
              }),
              "on the terminal\n");
    EXPECT_EQ(jobs_of(system), "one\ntwo\n|");
}

TEST(PrintUnit, SwitchedOnWithoutOutputMakesNoJob) {
    const ScratchSystem system;
    output_of([](DP *) {
        printer_on();
        printer_close();
    });
    EXPECT_EQ(jobs_of(system), "");
}

TEST(PrintUnit, SwitchedOffAndOnGoesOnWithTheSameJob) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *) {
                  printer_on();
                  print_line("one");
                  printer_off();
                  print_line("seen");
                  printer_on();
                  print_line("two");
              }),
              "seen\n");
    EXPECT_EQ(jobs_of(system), "one\ntwo\n|");
}

TEST(PrintUnit, ClosedBeginsAnotherJob) {
    const ScratchSystem system;
    output_of([](DP *dp) {
        printer_on();
        print_line("one");
        VLibFPRINTER_VII(dp, 0, VELDA_PRINTER_CLOSE);
        print_line("two");
    });
    EXPECT_EQ(jobs_of(system), "one\n|two\n|");
}

TEST(PrintUnit, ResetClosesTheJobAndGoesBackToTheTerminalWithoutHeading) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *dp) {
                  heading("H");
                  printer_on();
                  print_line("one");
                  VLibFPRINTER_VII(dp, 0, VELDA_PRINTER_RESET);
                  print_line("two");
              }),
              "two\n");
    EXPECT_EQ(jobs_of(system), "H\none\n|");
}

TEST(PrintUnit, UnitsAreSeparateAndAllAreClosedTogether) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *) {
                  printer_on(0);
                  printer_on(3);
                  print_line("zero");
                  print_line_on(3, "three");
                  print_line_on(7, "seven");
                  printer_close();
                  print_line_on(3, "three again");
              }),
              "seven\n");
    EXPECT_EQ(jobs_of(system), "zero\n|three\n|three again\n|");
}

TEST(PrintUnit, OfAnExecutedCommandIsItsOwn) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *dp) {
                  printer_on();
                  print_line("outer 1");
                  const auto inner = [](DP *, void *) {
                      print_line("inner on the terminal");
                      printer_on();
                      print_line("inner");
                  };
                  velda_run(dp, "INNER", inner, nullptr);
                  print_line("outer 2");
              }),
              "inner on the terminal\n");
    EXPECT_EQ(jobs_of(system), "outer 1\nouter 2\n|inner\n|");
}

TEST(PrintUnit, AStopCompletesTheJob) {
    const ScratchSystem system;
    output_of([](DP *dp) {
        printer_on();
        print_line("one");
        VLibCSTOP_VI(dp, 1, 0);
    });
    EXPECT_EQ(jobs_of(system), "one\n|");
}

TEST(PrintUnit, AJobThatCannotBeMadeEndsTheCommandWithAMessage) {
    const ScratchSystem system;
    std::ofstream(system / "print") << "in the way";
    const Ending ending = run_on_pipes("", [](DP *) {
        printer_on();
        print_line("one");
        crt_line("not reached");
    });
    EXPECT_NE(ending.output.find("cannot make print job '" + (system / "print/")), std::string::npos) << ending.output;
    EXPECT_NE(ending.output.find("Not a directory\n"), std::string::npos) << ending.output;
    EXPECT_EQ(ending.output.find("not reached"), std::string::npos) << ending.output;
    EXPECT_EQ(ending.exit_code, 1);
}

TEST(PrintUnit, ACommandThatFailsToPrintGivesTheCommandAnExitCode) {
    const ScratchSystem system;
    const Ending ending = run_on_pipes("", [](DP *) {
        setenv("VELDAPRINTER", "cat > /dev/null; exit 9", 1);
        printer_on();
        print_line("one");
    });
    EXPECT_EQ(ending.output, "print command 'cat > /dev/null; exit 9' failed: exit code 9\n");
    EXPECT_EQ(ending.exit_code, 1);
}

TEST(PrintUnit, AnotherUnitsJobIsCompletedWhenOneFails) {
    const ScratchSystem system;
    const Ending ending = run_on_pipes("", [&](DP *) {
        setenv("VELDAPRINTER", ("cat > " + (system / "unit$VELDAPRINTUNIT") + "; exit $VELDAPRINTUNIT").c_str(), 1);
        printer_on(0);
        printer_on(1);
        printer_on(2);
        for (int unit = 0; unit < 3; ++unit) print_line_on(unit, "unit ", unit);
    });
    EXPECT_EQ(ending.exit_code, 1);
    for (int unit = 0; unit < 3; ++unit) {
        std::ifstream file(system / "unit" + std::to_string(unit));
        std::string line;
        std::getline(file, line);
        EXPECT_EQ(line, "unit " + std::to_string(unit));
    }
}

// --- headings --------------------------------------------------------------------------------------------------------

TEST(PrintHeading, CutsAJobIntoPagesWithFormFeeds) {
    const ScratchSystem system;
    output_of([](DP *) {
        setenv("VELDAPRINTDEPTH", "5", 1);
        printer_on();
        heading("Page 'P'");
        footing("end of 'P'");
        print_lines(3);
    });
    EXPECT_EQ(jobs_of(system), "Page 1\n1\n2\nend of 1\n\fPage 2\n3\n\nend of 2\n|");
}

TEST(PrintHeading, PagesAreOneHundredAndThirtyTwoBySixtySixByDefault) {
    const ScratchSystem system;
    output_of([](DP *) {
        printer_on();
        heading("'C'ab");
        print_lines(65);
    });
    const std::string job = jobs_of(system);
    EXPECT_EQ(job.substr(0, 68), std::string(65, ' ') + "ab\n");
    EXPECT_EQ(job.find('\f'), job.find("\n64\n") + 4);
}

TEST(PrintHeading, NewPageWithoutHeadingIsAFormFeedOnThePrinterOnly) {
    const ScratchSystem system;
    EXPECT_EQ(output_of([](DP *) {
                  new_page();
                  print_line("seen");
                  new_page();
                  printer_on();
                  new_page();
                  print_line("one");
                  new_page();
                  print_line("two");
              }),
              "seen\n");
    EXPECT_EQ(jobs_of(system), "one\n\ftwo\n|");
}

TEST(PrintHeading, OnPipesPagesWithoutPauseOrScreenControl) {
    EXPECT_EQ(output_of([](DP *) {
                  setenv("LINES", "4", 1);
                  heading("H'P'");
                  print_lines(3);
              }),
              "H1\n1\n2\nH2\n3\n");
}

TEST(PrintHeading, HasDateAndTime) {
    const std::string shown = output_of([](DP *) {
        setenv("TZ", "UTC", 1);
        heading("'T'|'D'");
        print_line("x");
    });
    ASSERT_EQ(shown.size(), std::string("14:05:09 21 NOV 2026|21 NOV 2026\nx\n").size()) << shown;
    EXPECT_EQ(shown.substr(9, 11), shown.substr(21, 11));
    EXPECT_EQ(shown[2], ':');
}

TEST(PrintHeading, TheFootingShowsAtTheEndOfTheCommand) {
    EXPECT_EQ(output_of([](DP *) {
                  setenv("LINES", "6", 1);
                  footing("F");
                  print_line("x");
              }),
              "x\n\n\n\nF\n");
}

TEST(PrintHeading, TheEndedCommandsHeadingIsForgotten) {
    EXPECT_EQ(output_of([](DP *dp) {
                  velda_run(
                      dp, "INNER", [](DP *, void *) { heading("H"); }, nullptr);
                  print_line("x");
              }),
              "x\n");
}

// --- pages on a terminal ---------------------------------------------------------------------------------------------

namespace {

constexpr OnTerminal::Setup SmallScreen{.type = "vt220", .columns = 20, .lines = 5};
constexpr const char *Clear = "\x1B[H\x1B[J";

void report(DP *) {
    heading("H'P'");
    print_lines(8);
    crt_line("done");
}

}  // namespace

TEST(TerminalPages, WaitForAKeyBeforeTheNextPage) {
    OnTerminal terminal(SmallScreen, report);
    EXPECT_EQ(terminal.prompted("3\r\n"), std::string(Clear) + "H1\r\n1\r\n2\r\n");
    terminal.type(" ");
    EXPECT_EQ(terminal.until("6\r\n"), std::string(Clear) + "H2\r\n4\r\n5\r\n");
    terminal.type("\r");
    EXPECT_EQ(terminal.rest(), std::string(Clear) + "H3\r\n7\r\n8\r\ndone\r\n");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST(TerminalPages, NGoesOnWithoutPauses) {
    OnTerminal terminal(SmallScreen, report);
    terminal.prompted("3\r\n");
    terminal.type("n");
    EXPECT_EQ(terminal.rest(), std::string(Clear) + "H2\r\n4\r\n5\r\n6\r\n" + Clear + "H3\r\n7\r\n8\r\ndone\r\n");
}

class QuitKeys : public testing::TestWithParam<const char *> {};

TEST_P(QuitKeys, EndTheCommand) {
    OnTerminal terminal(SmallScreen, report);
    terminal.prompted("3\r\n");
    terminal.type(GetParam());
    EXPECT_EQ(terminal.rest(), "");
    EXPECT_EQ(terminal.exit_code(), 0);
}

INSTANTIATE_TEST_SUITE_P(Keys, QuitKeys, testing::Values("q", "Q", "\x18"));

TEST(TerminalPages, OptionNOfTheHeadingLeavesOutThePauses) {
    OnTerminal terminal(SmallScreen, [](DP *) {
        heading("H'N'");
        print_lines(4);
    });
    EXPECT_EQ(terminal.rest(), std::string(Clear) + "H\r\n1\r\n2\r\n3\r\n" + Clear + "H\r\n4\r\n");
}

TEST(TerminalPages, WithoutHeadingDoNotPause) {
    OnTerminal terminal(SmallScreen, [](DP *) { print_lines(6); });
    EXPECT_EQ(terminal.rest(), "1\r\n2\r\n3\r\n4\r\n5\r\n6\r\n");
}

TEST(TerminalPages, DoNotPauseWhenTheOutputIsCaptured) {
    OnTerminal terminal(SmallScreen, [](DP *dp) {
        std::string captured;
        {
            const velda::CaptureOutput capture(dp, captured);
            heading("H");
            print_lines(4);
        }
        crt_line(captured);
    });
    EXPECT_EQ(terminal.rest(), "H\r\n1\r\n2\r\n3\r\nH\r\n4\r\n\r\n");
}

TEST(TerminalPages, TheBreakKeyEndsThePause) {
    OnTerminal terminal(SmallScreen, report);
    terminal.prompted("3\r\n");
    terminal.type("\x03");
    EXPECT_EQ(terminal.rest(), "Interrupted\r\n");
    EXPECT_EQ(terminal.exit_code(), 1);
}
