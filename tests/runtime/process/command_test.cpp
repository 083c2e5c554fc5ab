#include <csignal>
#include <fstream>
#include <sstream>

#include "runtime/process/command_level.h"
#include "runtime/process/command_table.h"
#include "runtime/process/system_numbers.h"
#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;

namespace {

std::vector<std::string> handlers_run;

class Commands : public CommandTest {
  protected:
    void SetUp() override { handlers_run.clear(); }
};

using Handlers = std::vector<std::string>;

}  // namespace

VBC_SUBROUTINE(TestHandlerOne, code) { handlers_run.push_back("one " + code.str()); }
VBC_SUBROUTINE(TestHandlerTwo, code) { handlers_run.push_back("two " + code.str()); }
VBC_SUBROUTINE(TestStoppingHandler, code) {
    handlers_run.push_back("stopping " + code.str());
    velda::stop("201", "X");
}
VBC_SUBROUTINE(TestRegisteringHandler, code) {
    handlers_run.push_back("registering " + code.str());
    velda::call_on_exit("TestRegisteringHandler");
    velda::call_on_exit("TestHandlerOne");
}
VBC_SUBROUTINE(TestStopsDeep, level) {
    if (level.to_integer() == 0) velda::stop();
    VAR below(level.to_integer() - 1);
    velda::call("TestStopsDeep", below);
    handlers_run.push_back("went on after STOP");
}

// --- exit codes -----------------------------------------------------------------------------------------------------

TEST_F(Commands, AReturnGivesZero) {
    EXPECT_EQ(run([] {}), 0);
}
TEST_F(Commands, APlainStopGivesZero) {
    EXPECT_EQ(run([] { velda::stop(); }), 0);
}
TEST_F(Commands, AStopWithAMessageGivesOne) {
    EXPECT_EQ(run([] { velda::stop("203"); }), 1);
}
TEST_F(Commands, AnAbortGivesOne) {
    EXPECT_EQ(run([] { velda::abort_command(); }), 1);
    EXPECT_EQ(run([] { velda::abort_command("203"); }), 1);
}
TEST_F(Commands, AnExitGivesItsCode) {
    EXPECT_EQ(run([] { velda::exit_command(7); }), 7);
    EXPECT_EQ(run([] { velda::exit_command(0); }), 0);
}
TEST_F(Commands, AnUnexpectedFailureOfTheLogicIsReportedAndGivesOne) {
    int code = 0;
    const std::string output = printed_by([] { throw std::runtime_error("no such thing"); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Internal error: no such thing\n");
}

// --- STOP -----------------------------------------------------------------------------------------------------------

TEST_F(Commands, StopPrintsTheMessageOfItsKeyAndParameters) {
    EXPECT_EQ(printed_by([] { velda::stop("201", "ORDERS"); }), "Cannot open file 'ORDERS'\n");
}
TEST_F(Commands, StopTakesKeyAndParametersInOneText) {
    EXPECT_EQ(printed_by([] { velda::stop(marks("201]ORDERS")); }), "Cannot open file 'ORDERS'\n");
}
TEST_F(Commands, StopTakesAPlainText) {
    EXPECT_EQ(printed_by([] { velda::stop("nothing like a key"); }), "nothing like a key\n");
}
TEST_F(Commands, APlainStopPrintsNothing) {
    EXPECT_EQ(printed_by([] { velda::stop(); }), "");
}
TEST_F(Commands, AnAbsentTextIsEmpty) {
    const VAR key("201");
    EXPECT_EQ(printed_by([&] { VLibCSTOP_VI(dp, 1, 2, &key, static_cast<VAR *>(nullptr)); }), "Cannot open file ''\n");
}
TEST_F(Commands, AStopInANestedCallEndsTheWholeCommandAndRunsTheHandlersOnce) {
    EXPECT_EQ(run([] {
                  velda::call_on_exit("TestHandlerOne");
                  VAR levels(3);
                  velda::call("TestStopsDeep", levels);
                  handlers_run.push_back("went on after CALL");
              }),
              0);
    EXPECT_EQ(handlers_run, Handlers{"one 0"});
}

// --- exit handlers --------------------------------------------------------------------------------------------------

TEST_F(Commands, HandlersRunAfterAReturnAStopAndAnExitWithItsCode) {
    run([] { velda::call_on_exit("TestHandlerOne"); });
    run([] {
        velda::call_on_exit("TestHandlerOne");
        velda::stop("203");
    });
    run([] {
        velda::call_on_exit("TestHandlerOne");
        velda::exit_command(5);
    });
    EXPECT_EQ(handlers_run, (Handlers{"one 0", "one 1", "one 5"}));
}
TEST_F(Commands, TheLastRegisteredHandlerRunsFirst) {
    run([] {
        velda::call_on_exit("TestHandlerOne");
        velda::call_on_exit("TestHandlerTwo");
    });
    EXPECT_EQ(handlers_run, (Handlers{"two 0", "one 0"}));
}
TEST_F(Commands, AHandlerRegisteredTwiceRunsOnce) {
    run([] {
        EXPECT_TRUE(velda::call_on_exit("TestHandlerOne"));
        EXPECT_TRUE(velda::call_on_exit("TestHandlerOne"));
    });
    EXPECT_EQ(handlers_run, Handlers{"one 0"});
}
TEST_F(Commands, AStopInAHandlerEndsThatHandlerOnly) {
    EXPECT_EQ(run([] {
                  velda::call_on_exit("TestHandlerOne");
                  velda::call_on_exit("TestStoppingHandler");
                  velda::exit_command(3);
              }),
              3);
    EXPECT_EQ(handlers_run, (Handlers{"stopping 3", "one 3"}));
}
TEST_F(Commands, AHandlerThatRegistersItselfRunsOnce) {
    run([] { velda::call_on_exit("TestRegisteringHandler"); });
    EXPECT_EQ(handlers_run, (Handlers{"registering 0", "one 0"}));
}
TEST_F(Commands, AnUnknownHandlerIsNotRegistered) {
    EXPECT_EQ(run([] { EXPECT_FALSE(velda::call_on_exit("TestAbsent")); }), 0);
}
TEST_F(Commands, AHandlerBelongsToTheCommandThatRegisteredIt) {
    run([&] {
        velda::call_on_exit("TestHandlerOne");
        run([] { velda::call_on_exit("TestHandlerTwo"); });
        EXPECT_EQ(handlers_run, Handlers{"two 0"});
    });
    EXPECT_EQ(handlers_run, (Handlers{"two 0", "one 0"}));
}
TEST_F(Commands, HandlersRegisteredOutsideOfACommandRunWithTheContextsEnd) {
    DP *session = velda_new_context();
    const VAR name("TestHandlerOne");
    EXPECT_EQ(VLibCCALLONEXIT_IB(session, &name), 1);
    EXPECT_TRUE(handlers_run.empty());
    velda_free_context(session);
    EXPECT_EQ(handlers_run, Handlers{"one 0"});
}

// --- the sentence ---------------------------------------------------------------------------------------------------

TEST_F(Commands, WordsAreDividedByBlanks) {
    run([] { EXPECT_EQ(velda::test::returned(velda::system_number(1000)), "COPY^FILE^'a^b'"); }, "COPY  FILE 'a b' ");
}
TEST_F(Commands, WordsAreDividedByAttributeMarksWhereThereAreAny) {
    run([] { EXPECT_EQ(velda::test::returned(velda::system_number(1000)), "COPY^MY FILE^^*"); },
        marks("COPY^MY FILE^^*"));
}
TEST_F(Commands, AnEmptySentenceHasNoWords) {
    run([] { EXPECT_EQ(velda::system_number(1000).view(), ""); }, "");
}
TEST_F(Commands, TheOptionsAreTheLastWordInParentheses) {
    struct Case {
        const char *sentence, *letters;
    };
    for (const Case &row : {Case{"COPY F * (IO)", "IO"}, Case{"COPY F * (IO", "IO"}, Case{"COPY F *", ""},
                            Case{"(IO)", ""}, Case{"COPY (DICT F)", ""}, Case{"COPY F (", ""}})
        run([&] { EXPECT_EQ(velda::system_number(15).view(), row.letters) << row.sentence; }, row.sentence);
}
TEST_F(Commands, ANestedCommandHasItsOwnSentence) {
    run(
        [&] {
            run([] { EXPECT_EQ(velda::system_number(1000).view(), "INNER"); }, "INNER");
            EXPECT_EQ(velda::system_number(1000).view(), "OUTER");
        },
        "OUTER");
}

// --- return code, traps ---------------------------------------------------------------------------------------------

TEST_F(Commands, TheReturnCodeIsWhatTheCallerReadsAsSystemZero) {
    run([&] {
        run([] { velda::set_return_code(42); });
        EXPECT_EQ(velda::system_number(0).to_integer(), 42);
        run([] { velda::exit_command(9); });
        EXPECT_EQ(velda::system_number(0).to_integer(), 9);
    });
}
TEST_F(Commands, TheDebugTrapSeesAFailureBeforeItEndsTheCommand) {
    struct Caught {
        int error;
        std::string text;
    };
    const auto trap = [](DP *, int error, const char *text) { throw Caught{error, text}; };
    Caught seen{0, ""};
    const int code = run([&] {
        EXPECT_EQ(VRunADebugSetTrap(dp, trap), nullptr);
        try {
            velda::call("TestAbsent");
        } catch (const Caught &caught) {
            seen = caught;
        }
        EXPECT_NE(VRunADebugSetTrap(dp, nullptr), nullptr);
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(seen.error, 2);
    EXPECT_EQ(seen.text, "Subroutine 'TestAbsent' not found");
}
TEST_F(Commands, ADebugTrapThatReturnsDoesNotHoldTheFailureBack) {
    EXPECT_EQ(run([&] {
                  VRunADebugSetTrap(dp, [](DP *, int, const char *) {});
                  velda::call("TestAbsent");
              }),
              1);
}

// --- what other sessions see ----------------------------------------------------------------------------------------

TEST_F(Commands, TheStatusRecordOfThePortShowsTheCommandThatRuns) {
    const auto shown_command = [] {
        const VAR file = velda::system_number(1027);
        std::stringstream text;
        text << std::ifstream(file.str() + "/" + velda::system_number(101).str()).rdbuf();
        std::string line;
        for (int attribute = 1; attribute <= 8; ++attribute) std::getline(text, line);
        return line;
    };
    run(
        [&] {
            EXPECT_EQ(shown_command(), "OUTER one two");
            run([&] { EXPECT_EQ(shown_command(), "INNER"); }, "INNER");
            EXPECT_EQ(shown_command(), "OUTER one two");
        },
        marks("OUTER^one^two"));
}
