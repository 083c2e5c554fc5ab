// INPUT on terminals, from pipes and from stacked data.
#include <gtest/gtest.h>

#include <thread>

#include "runtime/process/output.h"
#include "runtime/terminal/facade.h"
#include "tests/support/terminal_program.h"

using velda::crt_line;
using velda::EchoOff;
using velda::InputOptions;
using velda::PromptScope;
using velda::test::Ending;
using velda::test::OnTerminal;
using velda::test::Program;
using velda::test::run_on_pipes;

namespace {

// Asks once and shows the reply: "read [text]" or "none [text]".
void ask(const InputOptions &options = {}) {
    VAR reply("before");
    const bool read = velda::input(reply, options);
    crt_line(read ? "read [" : "none [", reply, "]");
}

Program asking(const InputOptions &options = {}) {
    return [options](DP *) { ask(options); };
}

// The same with stacked data to be had.
Program asking_stacked(const VAR &line, const InputOptions &options, bool echo) {
    return [=](DP *dp) {
        VLibCDATA_VIB(dp, 1, &line);
        velda::set_echo(echo);
        ask(options);
        velda::set_echo(true);
    };
}

constexpr InputOptions Bare{.flags = VELDA_INPUT_NO_PROMPT | VELDA_INPUT_NO_NEWLINE};

}  // namespace

TEST(InputOnATerminal, ShowsThePromptAndWhatIsTyped) {
    OnTerminal terminal(asking());
    EXPECT_EQ(terminal.prompted("?"), "");
    terminal.type("abc\r");
    EXPECT_EQ(terminal.rest(), "abc\r\nread [abc]\r\n");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST(InputOnATerminal, EditsTheLine) {
    OnTerminal terminal(asking());
    terminal.prompted("?");
    terminal.type(
        "abx\x7F"
        "c\r");
    EXPECT_EQ(terminal.rest(), "abx\b \bc\r\nread [abc]\r\n");
}

TEST(InputOnATerminal, ShowsNoneOfTheKeysWithEchoOff) {
    OnTerminal terminal([](DP *) {
        const EchoOff quiet;
        ask();
    });
    terminal.prompted("?");
    terminal.type("secret\r");
    EXPECT_EQ(terminal.rest(), "\r\nread [secret]\r\n");
}

TEST(InputOnATerminal, Flag4ShowsNoPrompt) {
    OnTerminal terminal([](DP *) {
        crt_line("ready");
        ask({.flags = VELDA_INPUT_NO_PROMPT});
    });
    terminal.prompted("ready\r\n");
    terminal.type("a\r");
    EXPECT_EQ(terminal.rest(), "a\r\nread [a]\r\n");
}

TEST(InputOnATerminal, Flag8LeavesTheCursorBehindTheReply) {
    OnTerminal terminal(asking({.flags = VELDA_INPUT_NO_NEWLINE}));
    terminal.prompted("?");
    terminal.type("a\r");
    EXPECT_EQ(terminal.rest(), "aread [a]\r\n");
}

TEST(InputOnATerminal, Flag12DoesBoth) {
    OnTerminal terminal([](DP *) {
        velda::crt("more: ");
        ask(Bare);
    });
    terminal.prompted("more: ");
    terminal.type("a\r");
    EXPECT_EQ(terminal.rest(), "aread [a]\r\n");
}

TEST(InputOnATerminal, TheLastByteOfTheLengthCompletesTheReply) {
    OnTerminal terminal(asking({.length = 2}));
    terminal.prompted("?");
    terminal.type("ab");
    EXPECT_EQ(terminal.rest(), "ab\r\nread [ab]\r\n");
}

TEST(InputOnATerminal, WhatExceedsTheLengthIsTheNextReply) {
    OnTerminal terminal([](DP *) {
        ask({.length = 2});
        ask();
    });
    terminal.prompted("?");
    terminal.type("abcd\r");
    EXPECT_EQ(terminal.rest(), "ab\r\nread [ab]\r\n?cd\r\nread [cd]\r\n");
}

TEST(InputOnATerminal, OfLengthZeroTakesOneKeyWithoutReturn) {
    OnTerminal terminal(asking({.length = VELDA_INPUT_ONE_KEY}));
    terminal.prompted("?");
    terminal.type("Q");
    EXPECT_EQ(terminal.rest(), "Q\r\nread [Q]\r\n");
}

TEST(InputOnATerminal, OfLengthZeroTakesEditingKeysAsTheyAre) {
    OnTerminal terminal([](DP *) {
        VAR reply;
        velda::crt("more: ");
        velda::input(reply, {.length = VELDA_INPUT_ONE_KEY, .flags = Bare.flags});
        crt_line(reply.view() == "\x18" ? "cancel" : "other");
    });
    terminal.prompted("more: ");
    terminal.type("\x18");
    EXPECT_EQ(terminal.rest(), "^Xcancel\r\n");
}

TEST(InputOnATerminal, OfLengthZeroReadsReturnAsTheEmptyReply) {
    OnTerminal terminal(asking({.length = VELDA_INPUT_ONE_KEY}));
    terminal.prompted("?");
    terminal.type("\r");
    EXPECT_EQ(terminal.rest(), "\r\nread []\r\n");
}

TEST(InputOnATerminal, OfLengthZeroTakesAFunctionKeyAsOneReply) {
    OnTerminal terminal([](DP *) {
        ask({.length = VELDA_INPUT_ONE_KEY});
        ask({.length = VELDA_INPUT_ONE_KEY});
    });
    terminal.prompted("?");
    terminal.type("\x1B[A");
    terminal.prompted("?");
    terminal.type("x");
    EXPECT_EQ(terminal.rest(), "x\r\nread [x]\r\n");
}

TEST(InputOnATerminal, GivesUpAfterTheTimeoutWithWhatWasTyped) {
    OnTerminal terminal(asking({.timeout_tenths = 3}));
    terminal.prompted("?");
    terminal.type("ab");
    EXPECT_EQ(terminal.rest(), "abnone [ab]\r\n");
}

TEST(InputOnATerminal, TheEndOfInputKeyOnAnEmptyLineEndsTheInput) {
    OnTerminal terminal(asking());
    terminal.prompted("?");
    terminal.type("\x04");
    EXPECT_EQ(terminal.rest(), "\r\nnone []\r\n");
}

TEST(InputOnATerminal, BytesOfUtf8PassUnchanged) {
    OnTerminal terminal(asking());
    terminal.prompted("?");
    terminal.type("\xC3\xA4\xE2\x82\xAC\r");
    EXPECT_EQ(terminal.rest(), "\xC3\xA4\xE2\x82\xAC\r\nread [\xC3\xA4\xE2\x82\xAC]\r\n");
}

TEST(InputOnATerminal, WithCapturedOutputStillShowsWhatIsTyped) {
    OnTerminal terminal([](DP *dp) {
        std::string captured;
        velda::crt("go");
        {
            const velda::CaptureOutput capture(dp, captured);
            ask();
        }
        crt_line("<", captured, ">");
    });
    terminal.prompted("go");
    terminal.type("abc\r");
    EXPECT_EQ(terminal.rest(), "abc\r\n<?read [abc]\r\n>\r\n");
}

TEST(InputOnATerminal, ALostTerminalEndsTheSession) {
    OnTerminal terminal(asking());
    terminal.until("?");
    terminal.hang_up();
    EXPECT_EQ(terminal.exit_code(), 128 + SIGHUP);
}

TEST(InputFromAPipe, ReadsALineForEachQuestion) {
    const Ending ending = run_on_pipes("one\ntwo\n", [](DP *) {
        ask(Bare);
        ask(Bare);
    });
    EXPECT_EQ(ending.output, "read [one]\nread [two]\n");
    EXPECT_EQ(ending.exit_code, 0);
}

TEST(InputFromAPipe, ShowsThePromptButNotTheReply) {
    EXPECT_EQ(run_on_pipes("one\n", asking()).output, "?read [one]\n");
}

TEST(InputFromAPipe, DropsWhatExceedsTheLength) {
    const Ending ending = run_on_pipes("abcdef\nnext\n", [](DP *) {
        ask({.length = 3, .flags = Bare.flags});
        ask({.length = VELDA_INPUT_ONE_KEY, .flags = Bare.flags});
    });
    EXPECT_EQ(ending.output, "read [abc]\nread [n]\n");
}

TEST(InputFromAPipe, ALastLineWithoutLineFeedCounts) {
    EXPECT_EQ(run_on_pipes("end", asking(Bare)).output, "read [end]\n");
}

TEST(InputFromAPipe, ALineMayEndInCarriageReturnAndLineFeed) {
    EXPECT_EQ(run_on_pipes("dos\r\n", asking(Bare)).output, "read [dos]\n");
}

TEST(InputFromAPipe, IsFalseAtTheEnd) {
    const Ending ending = run_on_pipes("", asking(Bare));
    EXPECT_EQ(ending.output, "none []\n");
    EXPECT_EQ(ending.exit_code, 0);
}

TEST(InputFromAPipe, AProgramThatAsksForEverAfterTheEndIsStopped) {
    const Ending ending = run_on_pipes("", [](DP *) {
        VAR reply;
        while (reply.empty()) velda::input(reply, Bare);
    });
    EXPECT_EQ(ending.output, "The input has ended\n");
    EXPECT_EQ(ending.exit_code, 1);
}

TEST(InputFromAPipe, PausesOfALongDisplayDoNotStopItAfterTheEnd) {
    const Ending ending = run_on_pipes("", [](DP *) {
        VAR reply;
        for (int page = 0; page < 1000; ++page)
            velda::input(reply, {.length = VELDA_INPUT_ONE_KEY, .flags = Bare.flags});
        crt_line("all shown");
    });
    EXPECT_EQ(ending.output, "all shown\n");
}

TEST(InputFromAPipe, OnlyReadsInARowPastTheEndAreCounted) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        const VAR line("stacked");
        for (int turn = 0; turn < 100; ++turn) {
            VAR reply;
            velda::input(reply, Bare);
            if (turn % 15 != 0) continue;
            VLibCDATA_VIB(dp, 1, &line);
            velda::set_echo(false);
            velda::input(reply, Bare);
        }
        crt_line("done");
    });
    EXPECT_EQ(ending.output, "done\n");
}

TEST(InputFromAPipe, GivesUpAfterTheTimeout) {
    int silent[2];
    ASSERT_EQ(pipe(silent), 0);
    const Ending ending = run_on_pipes("", [&](DP *) {
        dup2(silent[0], STDIN_FILENO);
        ask({.flags = Bare.flags, .timeout_tenths = 1});
    });
    EXPECT_EQ(ending.output, "none []\n");
    close(silent[0]);
    close(silent[1]);
}

TEST(InputFromAFile, ReadsItLineByLine) {
    const Ending ending = run_on_pipes("", [](DP *) {
        FILE *const file = std::tmpfile();
        std::fputs("one\ntwo\n", file);
        std::rewind(file);
        dup2(fileno(file), STDIN_FILENO);
        ask(Bare);
        ask(Bare);
        ask(Bare);
    });
    EXPECT_EQ(ending.output, "read [one]\nread [two]\nnone []\n");
}

TEST(InputWithoutStandardInput, IsAtItsEnd) {
    const Ending ending = run_on_pipes("", [](DP *) {
        close(STDIN_FILENO);
        ask(Bare);
    });
    EXPECT_EQ(ending.output, "none []\n");
}

TEST(InputFromAPipe, LeavesWhatWasNotReadToAChildProgram) {
    const Ending ending = run_on_pipes("mine\nchild's\n", [](DP *dp) {
        ask(Bare);
        const VAR command(
            "\xFF"
            "kcat");
        VLibCPERFORM_IIBBBBBBB(dp, 0, &command, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(ending.output, "read [mine]\nchild's\n");
}

// --- stacked data, with each of the flags ----------------------------------------------------------------------------

TEST(StackedInput, ComesBeforeThePipe) {
    const Ending ending = run_on_pipes("typed\n", [](DP *dp) {
        const VAR line("stacked");
        VLibCDATA_VIB(dp, 1, &line);
        const EchoOff quiet;
        ask(Bare);
        ask(Bare);
    });
    EXPECT_EQ(ending.output, "read [stacked]\nread [typed]\n");
}

struct StackedCase {
    int flags;
    bool echo;
    const char *shown;
};

class StackedInputFlags : public testing::TestWithParam<StackedCase> {};

TEST_P(StackedInputFlags, ShowPromptReplyAndNewLine) {
    const StackedCase &row = GetParam();
    const Ending ending = run_on_pipes("", asking_stacked("data", {.flags = row.flags}, row.echo));
    EXPECT_EQ(ending.output, std::string(row.shown) + "read [data]\n");
}

INSTANTIATE_TEST_SUITE_P(All, StackedInputFlags,
                         testing::Values(StackedCase{0, true, "?data\n"}, StackedCase{4, true, "data\n"},
                                         StackedCase{8, true, "?data"}, StackedCase{12, true, "data"},
                                         StackedCase{0, false, "?"}, StackedCase{4, false, ""},
                                         StackedCase{8, false, "?"}, StackedCase{12, false, ""}));

TEST(StackedInput, IsCutToTheLength) {
    EXPECT_EQ(run_on_pipes("", asking_stacked("abcdef", {.length = 3, .flags = 12}, false)).output, "read [abc]\n");
    EXPECT_EQ(run_on_pipes("", asking_stacked("Quit", {.length = 0, .flags = 12}, false)).output, "read [Q]\n");
}

TEST(StackedInput, AnEmptyStackedLineIsAReply) {
    EXPECT_EQ(run_on_pipes("typed\n", asking_stacked("", {.flags = 12}, false)).output, "read []\n");
}

TEST(StackedInput, IsCountedAsTypeAheadWithAReturnForEachLine) {
    const Ending ending = run_on_pipes("not counted\n", [](DP *dp) {
        crt_line(velda::stacked_data() ? "stacked " : "empty ", velda::type_ahead());
        const VAR first("abc"), second("");
        VLibCDATA_VIB(dp, 2, &first, &second);
        crt_line(velda::stacked_data() ? "stacked " : "empty ", velda::type_ahead());
        const EchoOff quiet;
        ask(Bare);
        crt_line(velda::type_ahead());
    });
    EXPECT_EQ(ending.output, "empty 0\nstacked 5\nread [abc]\n1\n");
}

// --- prompt and echo -------------------------------------------------------------------------------------------------

TEST(Prompt, IsAQuestionMarkUntilItIsSet) {
    const Ending ending = run_on_pipes("a\nb\n", [](DP *) {
        crt_line(velda::system_number(3026));
        velda::set_prompt("> ");
        crt_line(velda::system_number(3026));
        ask();
    });
    EXPECT_EQ(ending.output, "?\n> \n> read [a]\n");
}

TEST(Prompt, OfAScopeEndsWithIt) {
    const Ending ending = run_on_pipes("a\nb\n", [](DP *) {
        {
            const PromptScope inner("in:");
            ask();
        }
        ask();
    });
    EXPECT_EQ(ending.output, "in:read [a]\n?read [b]\n");
}

TEST(Echo, IsKeptAndPutBackByItsScope) {
    const Ending ending = run_on_pipes("", [](DP *) {
        crt_line(velda::system_number(3024));
        {
            const EchoOff quiet;
            crt_line(velda::system_number(3024));
            const velda::EchoScope loud(true);
            crt_line(velda::system_number(3024));
        }
        crt_line(velda::system_number(3024));
    });
    EXPECT_EQ(ending.output, "1\n0\n1\n1\n");
}

TEST(CommandLevels, ACommandHasItsOwnPromptAndEchoAndLeavesItsCallersAlone) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        velda::set_prompt("outer");
        velda::set_echo(false);
        const auto inner = [](DP *, void *) {
            crt_line(velda::system_number(3026), velda::system_number(3024));
            velda::set_prompt("inner");
        };
        velda_run(dp, "INNER", inner, nullptr);
        crt_line(velda::system_number(3026), velda::system_number(3024));
    });
    EXPECT_EQ(ending.output, "?1\nouter0\n");
}

// --- VRunFStringIn ---------------------------------------------------------------------------------------------------

TEST(StringIn, ReadsALineWithoutShowingIt) {
    OnTerminal terminal([](DP *dp) {
        char password[128];
        velda::crt("Password ");
        const int length = VRunFStringIn(dp, password, sizeof password, "\n\r");
        crt_line(length, " [", static_cast<const char *>(password), "]");
    });
    terminal.prompted("Password ");
    terminal.type("sesx\x7Fsame\r");
    EXPECT_EQ(terminal.rest(), "7 [sessame]\r\n");
}

TEST(StringIn, TakesNoMoreThanTheBufferHolds) {
    const Ending ending = run_on_pipes("abcdef\n", [](DP *dp) {
        char text[4];
        crt_line(VRunFStringIn(dp, text, sizeof text, nullptr), " ", static_cast<const char *>(text));
    });
    EXPECT_EQ(ending.output, "3 abc\n");
}

TEST(StringIn, TellsTheEndOfTheInput) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        char text[4] = "xyz";
        crt_line(VRunFStringIn(dp, text, sizeof text, "\n\r"), " [", static_cast<const char *>(text), "]");
    });
    EXPECT_EQ(ending.output, "-1 []\n");
}
