#include <filesystem>
#include <fstream>

#include "runtime/process/command_table.h"
#include "runtime/process/data_stack.h"
#include "runtime/process/external_command.h"
#include "runtime/process/stop.h"
#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;
using velda::test::returned;
using velda::test::ScratchDirectory;

namespace {

std::vector<std::string> notes;

std::vector<std::string> stacked_lines() {
    const auto &lines = velda_getdp()->state<velda::DataStack>().lines;
    return {lines.begin(), lines.end()};
}

std::string take_line() {
    auto &lines = velda_getdp()->state<velda::DataStack>().lines;
    if (lines.empty()) return "(none)";
    std::string line = lines.front();
    lines.pop_front();
    return line;
}

void print(const std::string &text) { velda::write_output(velda_getdp(), text); }

constexpr velda::Command TestCommands[] = {
    {"TEST-HELLO", [](DP *) { print("hello\n"); }},
    {"TEST-WORDS", [](DP *) { print(shown(velda::system_number(1000).view()) + "\n"); }},
    {"TEST-STOP", [](DP *) { velda::stop("201", "F"); }},
    {"TEST-EXIT", [](DP *) { velda::exit_command(4); }},
    {"TEST-TELL",
     [](DP *dp) {
         velda::print_message(dp, marks("202]K1"));
         velda::print_message(dp, "203");
     }},
    {"TEST-NEST",
     [](DP *) {
         print("before\n");
         velda::execute("TEST-STOP");
         print("after\n");
     }},
    {"TEST-CHAIN",
     [](DP *) {
         velda::stack_data("left over");
         print("first\n");
         velda::chain("TEST-NOTE chained");
     }},
    {"TEST-CHAIN-TWICE",
     [](DP *dp) {
         velda::print_message(dp, "203");
         velda::chain("TEST-CHAIN-STOP");
     }},
    {"TEST-CHAIN-STOP", [](DP *) { velda::chain("TEST-STOP"); }},
    {"TEST-NOTE", [](DP *) { notes.push_back(velda::system_number(1000).str() + "|" + take_line()); }},
    {"TEST-READ-ONE", [](DP *) { notes.push_back(take_line()); }},
    {"TEST-STACK", [](DP *) { velda::stack_data("for nobody"); }},
    {"TEST-CODE", [](DP *) { velda::set_return_code(77); }},
    {"TEST-ENDLESS", [](DP *) { velda::execute("TEST-ENDLESS"); }},
    {"TEST-HANDLER",
     [](DP *) {
         velda::call_on_exit("TestExecutedHandler");
         velda::stop();
     }},
};

class Execute : public CommandTest {
  protected:
    void SetUp() override {
        velda::register_commands(TestCommands);
        notes.clear();
    }

    // Runs the body inside a command, as most callers of EXECUTE do.
    void in_command(std::function<void()> body) { EXPECT_EQ(run(std::move(body)), 0); }
};

using Lines = std::vector<std::string>;

}  // namespace

VBC_SUBROUTINE(TestExecutedHandler, code) { notes.push_back("handler " + code.str()); }

// --- in the calling process ----------------------------------------------------------------------------------------

TEST_F(Execute, CapturedTextHasAttributeMarksForLineFeeds) {
    in_command([] {
        VAR captured;
        velda::execute("TEST-NEST", nullptr, &captured);
        EXPECT_EQ(returned(captured), "before^Cannot open file 'F'^after");
    });
}
TEST_F(Execute, UncapturedTextGoesWhereTheCallersGoes) {
    EXPECT_EQ(printed_by([] { velda::execute("TEST-HELLO"); }), "hello\n");
}
TEST_F(Execute, CapturesNest) {
    VAR inner;
    EXPECT_EQ(printed_by([&] {
                  print("outer\n");
                  velda::execute("TEST-HELLO", nullptr, &inner);
                  print("outer again\n");
              }),
              "outer\nouter again\n");
    EXPECT_EQ(inner.view(), "hello");
}
TEST_F(Execute, AStopInTheExecutedCommandEndsOnlyThat) {
    EXPECT_EQ(printed_by([] { velda::execute("TEST-NEST"); }), "before\nCannot open file 'F'\nafter\n");
}
TEST_F(Execute, TheResultIsTheExitCode) {
    in_command([] {
        EXPECT_EQ(velda::execute("TEST-HELLO"), 0);
        EXPECT_EQ(velda::execute("TEST-STOP"), 1);
        EXPECT_EQ(velda::execute("TEST-EXIT"), 4);
    });
}
TEST_F(Execute, SystemZeroIsTheSetReturnCodeOrElseTheExitCode) {
    in_command([] {
        velda::execute("TEST-EXIT");
        EXPECT_EQ(velda::system_number(0).to_integer(), 4);
        velda::execute("TEST-CODE");
        EXPECT_EQ(velda::system_number(0).to_integer(), 77);
    });
}
TEST_F(Execute, ReturningGetsTheMessagesWithTheirParameters) {
    in_command([] {
        VAR messages, captured;
        velda::execute("TEST-TELL", &messages, &captured);
        EXPECT_EQ(returned(messages), "202]K1^203");
        velda::execute("TEST-STOP", &messages, &captured);
        EXPECT_EQ(returned(messages), "201]F");
    });
}
TEST_F(Execute, ReturningGetsTheExitCodeOfACommandWithoutMessages) {
    in_command([] {
        VAR messages;
        velda::execute("TEST-EXIT", &messages);
        EXPECT_EQ(messages.view(), "4");
        velda::execute("TEST-CODE", &messages);
        EXPECT_EQ(messages.view(), "0");
    });
}
TEST_F(Execute, AMessageOfAnExecutedCommandIsNotTheCallers) {
    in_command([] {
        VAR messages, captured;
        velda::execute("TEST-NEST", &messages, &captured);
        EXPECT_EQ(messages.view(), "0");
    });
}
TEST_F(Execute, TheCommandsCellMayBeATarget) {
    in_command([] {
        VAR cell("TEST-HELLO");
        velda::execute(cell, nullptr, &cell);
        EXPECT_EQ(cell.view(), "hello");
    });
}
TEST_F(Execute, AnUnknownCommandIsNamedAndGives127) {
    in_command([] {
        VAR messages, captured;
        EXPECT_EQ(velda::execute("TEST-NO-SUCH thing", &messages, &captured), 127);
        EXPECT_EQ(returned(messages), "COMMAND_UNKNOWN]TEST-NO-SUCH");
        EXPECT_EQ(captured.view(), "Command 'TEST-NO-SUCH' not found");
    });
}
TEST_F(Execute, AnEmptyCommandDoesNothing) {
    in_command([] { EXPECT_EQ(velda::execute(" "), 0); });
}
TEST_F(Execute, NamesAreComparedExactly) {
    EXPECT_NE(velda::find_command("TEST-HELLO"), nullptr);
    EXPECT_EQ(velda::find_command("test-hello"), nullptr);
}
TEST_F(Execute, HandlersOfTheExecutedCommandRunAtItsEnd) {
    in_command([] {
        velda::execute("TEST-HANDLER");
        EXPECT_EQ(notes, Lines{"handler 0"});
    });
}

TEST_F(Execute, CommandsThatExecuteThemselvesWithoutEndAreStopped) {
    const std::string output = printed_by([] { velda::execute("TEST-ENDLESS"); });
    EXPECT_EQ(output, "500 commands run one inside another: too deep\n");
}

// --- CHAIN ----------------------------------------------------------------------------------------------------------

TEST_F(Execute, ChainRunsTheCommandInPlaceOfTheCurrentOneWithTheStackedData) {
    in_command([] { velda::execute("TEST-CHAIN"); });
    EXPECT_EQ(notes, Lines{std::string("TEST-NOTE") + velda::AM + "chained|left over"});
}
TEST_F(Execute, AChainAtTheTopIsFollowed) {
    EXPECT_EQ(run([] { velda::chain("TEST-EXIT"); }), 4);
}
TEST_F(Execute, AChainOfChainsGivesTheLastExitCodeAndAllMessages) {
    in_command([] {
        VAR messages, captured;
        EXPECT_EQ(velda::execute("TEST-CHAIN-TWICE", &messages, &captured), 1);
        EXPECT_EQ(returned(messages), "203^201]F");
        EXPECT_EQ(returned(captured), "No record list given^Cannot open file 'F'");
    });
}

// --- stacked data ---------------------------------------------------------------------------------------------------

TEST_F(Execute, DataStackedBeforeIsForTheExecutedCommand) {
    in_command([] {
        velda::stack_data("one");
        EXPECT_TRUE(velda::system_number(10));
        velda::execute("TEST-READ-ONE");
        EXPECT_FALSE(velda::system_number(10));
    });
    EXPECT_EQ(notes, Lines{"one"});
}
TEST_F(Execute, DataThatTheExecutedCommandLeavesIsDropped) {
    in_command([] {
        velda::stack_data("one");
        velda::stack_data("two");
        velda::execute("TEST-READ-ONE");
        EXPECT_EQ(stacked_lines(), Lines{});
    });
}
TEST_F(Execute, DataThatTheExecutedCommandStacksForNobodyIsDropped) {
    in_command([] {
        velda::execute("TEST-STACK");
        EXPECT_EQ(stacked_lines(), Lines{});
    });
}
TEST_F(Execute, TheCallersOwnInputStaysTheCallers) {
    velda::stack_data("first");
    velda::stack_data("second");
    in_command([] {
        EXPECT_EQ(take_line(), "first");
        velda::execute("TEST-READ-ONE");
        velda::stack_data("for it");
        velda::execute("TEST-READ-ONE");
        EXPECT_EQ(take_line(), "second");
    });
    EXPECT_EQ(notes, (Lines{"(none)", "for it"}));
}
TEST_F(Execute, ACommandReadsWhatItStackedItself) {
    in_command([] {
        velda::stack_data("to myself");
        EXPECT_EQ(take_line(), "to myself");
    });
}
TEST_F(Execute, StackedDataReachesAProgramAsItsInput) {
    in_command([] {
        VAR captured;
        velda::stack_data("alpha");
        velda::stack_data("beta");
        velda::execute("cat", nullptr, &captured);
        EXPECT_EQ(returned(captured), "alpha^beta");
        EXPECT_EQ(stacked_lines(), Lines{});
    });
}

// --- programs -------------------------------------------------------------------------------------------------------

TEST_F(Execute, TheMarkerSendsTheRestToTheShell) {
    in_command([] {
        VAR code, captured;
        EXPECT_EQ(velda::execute("\xFFkecho $((6*7)); exit 3", &code, &captured), 3);
        EXPECT_EQ(captured.view(), "42");
        EXPECT_EQ(code.view(), "3");
    });
}
TEST_F(Execute, ASuccessfulShellLineReturnsTheTextZero) {
    in_command([] {
        VAR code;
        velda::execute("\xFFktrue", &code);
        EXPECT_EQ(code.view(), "0");
    });
}
TEST_F(Execute, ErrorsOfACapturedProgramAreCapturedToo) {
    in_command([] {
        VAR captured;
        velda::execute("\xFFk{ echo out; echo err >&2; }", nullptr, &captured);
        EXPECT_EQ(returned(captured), "out^err");
    });
}
TEST_F(Execute, AProgramInAnOuterCaptureIsCaptured) {
    EXPECT_EQ(printed_by([] { velda::execute("\xFFkecho deep"); }), "deep\n");
}
TEST_F(Execute, ProgramsAreFoundInPath) {
    in_command([] {
        VAR captured;
        EXPECT_EQ(velda::execute("printf %s-%s one 'two three'", nullptr, &captured), 0);
        EXPECT_EQ(captured.view(), "one-two three");
    });
}
TEST_F(Execute, CatalogedProgramsComeBeforePath) {
    const ScratchDirectory bin;
    std::ofstream(bin / "true") << "#!/bin/sh\nexit 9\n";
    std::filesystem::permissions(bin / "true", std::filesystem::perms::owner_all);
    setenv("VBCDEV_BIN", bin.path().c_str(), 1);
    in_command([] { EXPECT_EQ(velda::execute("true"), 9); });
    unsetenv("VBCDEV_BIN");
    in_command([] { EXPECT_EQ(velda::execute("true"), 0); });
}
TEST_F(Execute, RegisteredCommandsComeBeforePrograms) {
    const ScratchDirectory bin;
    std::ofstream(bin / "TEST-EXIT") << "#!/bin/sh\nexit 9\n";
    std::filesystem::permissions(bin / "TEST-EXIT", std::filesystem::perms::owner_all);
    setenv("VBCDEV_BIN", bin.path().c_str(), 1);
    in_command([] { EXPECT_EQ(velda::execute("TEST-EXIT"), 4); });
    unsetenv("VBCDEV_BIN");
}
TEST_F(Execute, AProgramThatCannotBeStartedIsNamedWithTheReason) {
    const ScratchDirectory bin;
    std::ofstream(bin / "broken") << "no program";
    std::filesystem::permissions(bin / "broken", std::filesystem::perms::owner_all);
    in_command([&bin] {
        VAR messages, captured;
        EXPECT_EQ(velda::execute(bin / "broken", &messages, &captured), 126);
        EXPECT_EQ(captured.str(), "Cannot start '" + bin / "broken" + "': Exec format error");
        EXPECT_TRUE(returned(messages).starts_with("COMMAND_START]")) << returned(messages);
    });
}
TEST_F(Execute, AKilledProgramGives128AndTheSignal) {
    in_command([] { EXPECT_EQ(velda::execute("\xFFkkill -9 $$"), 137); });
}
TEST_F(Execute, WhatAProgramLeavesInTheBackgroundIsNotWaitedFor) {
    in_command([] {
        VAR captured;
        const auto start = std::chrono::steady_clock::now();
        velda::execute("\xFFkecho started; sleep 5 &", nullptr, &captured);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_EQ(captured.view(), "started");
    });
}
TEST_F(Execute, ABigCaptureIsWhole) {
    in_command([] {
        VAR captured;
        velda::execute("\xFFkhead -c 3000000 /dev/zero | tr '\\0' x", nullptr, &captured);
        EXPECT_EQ(captured.size(), 3000000u);
    });
}
TEST_F(Execute, ProgramWordsMayBeQuoted) {
    struct Case {
        std::string line;
        Lines words;
    };
    for (const Case &row :
         {Case{"rmdir \"a b\"", {"rmdir", "a b"}}, Case{"  x  'y'z\"\" ", {"x", "yz"}}, Case{"x '' y", {"x", "", "y"}},
          Case{"x 'it is", {"x", "it is"}}, Case{marks("x^a b^'c'^"), {"x", "a b", "'c'", ""}}, Case{"", {}}})
        EXPECT_EQ(velda::program_words(row.line), row.words) << row.line;
}

// --- commands of this system in a process of their own -------------------------------------------------------------

TEST_F(Execute, MessagesComeBackFromACommandInAnotherProcess) {
    in_command([] {
        VAR messages, captured;
        EXPECT_EQ(velda::execute("/proc/self/exe --helper stop", &messages, &captured), 1);
        EXPECT_EQ(returned(messages), "201]OTHER");
        EXPECT_EQ(captured.view(), "Cannot open file 'OTHER'");
    });
}
TEST_F(Execute, AShellLineReturnsItsExitCodeWhateverItRuns) {
    in_command([] {
        VAR messages, captured;
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        velda::execute("\xFFk" + self + " --helper stop", &messages, &captured);
        EXPECT_EQ(messages.view(), "1");
    });
}
