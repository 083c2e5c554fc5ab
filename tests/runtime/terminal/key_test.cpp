// Single keys, type-ahead, the break key, and events during a wait.
#include <gtest/gtest.h>

#include <thread>

#include "runtime/port/session_port.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/terminal/facade.h"
#include "tests/support/scratch.h"
#include "tests/support/terminal_program.h"

using velda::crt;
using velda::crt_line;
using velda::test::Ending;
using velda::test::eventually;
using velda::test::OnTerminal;
using velda::test::run_on_pipes;

namespace {

// Reads `count` keys and shows each as "result:number ".
void show_keys(DP *dp, int count, int timeout_tenths = 0) {
    for (; count > 0; --count) {
        VAR key("none");
        const int result = VLibFIN_IBI(dp, &key, timeout_tenths);
        crt(result, ":", key, " ");
    }
    crt_line();
}

}  // namespace

TEST(SingleKey, IsReadAsItsByteNumberAndNotShown) {
    OnTerminal terminal([](DP *dp) {
        crt("key ");
        show_keys(dp, 1);
    });
    terminal.prompted("key ");
    terminal.type("A");
    EXPECT_EQ(terminal.rest(), "1:65 \r\n");
}

TEST(SingleKey, IsZeroOnTimeoutAndLeavesTheTarget) {
    OnTerminal terminal([](DP *dp) { show_keys(dp, 1, 1); });
    EXPECT_EQ(terminal.rest(), "0:none \r\n");
}

TEST(SingleKey, TimesOutAfterTenthsOfASecond) {
    const auto start = std::chrono::steady_clock::now();
    OnTerminal terminal([](DP *dp) { show_keys(dp, 1, 7); });
    terminal.rest();
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(700));
    EXPECT_LT(waited, std::chrono::milliseconds(3000));
}

TEST(SingleKey, ReturnLineFeedAndNulAreKeysOfTheirOwn) {
    OnTerminal terminal([](DP *dp) {
        crt("key ");
        show_keys(dp, 4);
    });
    terminal.prompted("key ");
    terminal.type(std::string_view("\r\n\0\x7F", 4));
    EXPECT_EQ(terminal.rest(), "1:13 1:10 1:0 1:127 \r\n");
}

TEST(SingleKey, OfAFunctionKeyComesByteByByteAsTerminfoHasIt) {
    OnTerminal terminal({.type = "vt220"}, [](DP *dp) {
        const VAR capabilities = velda::system_number(1005);
        VAR position;
        const VAR name("key_f6"), none;
        VLibELOCATE_IBBBIIIIB(dp, &position, &name, &capabilities, 1, 0, 0, 0, &none);
        const VAR sequence = capabilities(2, static_cast<int>(position.to_integer()));
        crt_line(sequence.view() == "\x1B[17~" ? "found" : "other");
        crt("key ");
        show_keys(dp, 5);
    });
    EXPECT_EQ(terminal.prompted("key "), "found\r\n");
    terminal.type("\x1B[17~");
    EXPECT_EQ(terminal.rest(), "1:27 1:91 1:49 1:55 1:126 \r\n");
}

TEST(SingleKey, MakesTheKeypadSendItsSequencesUntilTheCommandEnds) {
    OnTerminal terminal({.type = "vt102"}, [](DP *dp) {
        crt("key ");
        show_keys(dp, 2);
    });
    terminal.prompted("key ");
    terminal.until("\x1B[?1h\x1B=");
    terminal.type("ab");
    EXPECT_EQ(terminal.rest(), "1:97 1:98 \r\n\x1B[?1l\x1B>");
}

TEST(SingleKey, OfAProgramThatDiesLeavesTheKeypadAsTheUserHasIt) {
    OnTerminal terminal({.type = "vt102"}, [](DP *dp) { show_keys(dp, 1); });
    terminal.until("\x1B[?1h\x1B=");
    terminal.send_signal(SIGQUIT);
    EXPECT_EQ(terminal.rest(), "\x1B[?1l\x1B>");
}

TEST(SingleKey, DoesNotTakeStackedData) {
    OnTerminal terminal([](DP *dp) {
        const VAR line("stacked");
        VLibCDATA_VIB(dp, 1, &line);
        show_keys(dp, 1, 1);
    });
    EXPECT_EQ(terminal.rest(), "0:none \r\n");
}

TEST(SingleKey, AtTheEndOfTheInputIsNone) {
    EXPECT_EQ(run_on_pipes("x", [](DP *dp) { show_keys(dp, 3); }).output, "1:120 -1:none -1:none \n");
}

TEST(SingleKey, AProgramThatWaitsForEverAfterTheEndIsStopped) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        VAR key;
        while (true) VLibFIN_IBI(dp, &key, 1);
    });
    EXPECT_EQ(ending.output, "The input has ended\n");
    EXPECT_EQ(ending.exit_code, 1);
}

TEST(TypeAhead, IsCountedAndReadLater) {
    OnTerminal terminal([](DP *dp) {
        velda::set_echo(false);
        crt_line("ready");
        eventually([] { return velda::type_ahead() == 3; });
        crt_line(velda::type_ahead());
        show_keys(dp, 3);
        crt_line(velda::type_ahead());
    });
    terminal.prompted("ready\r\n");
    terminal.type("abc");
    EXPECT_EQ(terminal.rest(), "3\r\n1:97 1:98 1:99 \r\n0\r\n");
}

TEST(TypeAhead, IsCountedKeyByKeyFromTheFirstQuestionOn) {
    OnTerminal terminal([](DP *) {
        crt_line("ready");
        eventually([] { return velda::type_ahead() == 1; });
        crt_line(velda::type_ahead());
    });
    terminal.prompted("ready\r\n");
    terminal.type("a");
    EXPECT_EQ(terminal.rest(), "1\r\n");
}

TEST(TypeAhead, IsNotShownWhileEchoIsOff) {
    OnTerminal terminal([](DP *) {
        velda::set_echo(false);
        crt_line("ready");
        eventually([] { return velda::type_ahead() == 7; });
        VAR reply;
        velda::input(reply, {.flags = 12});
        crt_line("[", reply, "]");
    });
    terminal.prompted("ready\r\n");
    terminal.type("secret\r");
    EXPECT_EQ(terminal.rest(), "[secret]\r\n");
}

// --- the break key ---------------------------------------------------------------------------------------------------

TEST(BreakKey, EndsACommandThatWaitsForInput) {
    OnTerminal terminal([](DP *) {
        VAR reply;
        velda::input(reply);
        crt_line("not reached");
    });
    terminal.prompted("?");
    terminal.type("ab");
    terminal.until("ab");
    terminal.type("\x03");
    EXPECT_EQ(terminal.rest(), "\r\nInterrupted\r\n");
    EXPECT_EQ(terminal.exit_code(), 1);
}

TEST(BreakKey, IsAKeyLikeAnyOtherWhileItIsDisabled) {
    OnTerminal terminal([](DP *dp) {
        VLibFBREAKKEY_VF(dp, 0.0);
        crt("key ");
        show_keys(dp, 2);
    });
    terminal.prompted("key ");
    terminal.type("\x03\x1C");
    EXPECT_EQ(terminal.rest(), "1:3 1:28 \r\n");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST(BreakKey, CanBeEnabledAgain) {
    OnTerminal terminal([](DP *dp) {
        VLibFBREAKKEY_VF(dp, 0.0);
        crt("off ");
        show_keys(dp, 1);
        VLibFBREAKKEY_VF(dp, 1.0);
        crt("on ");
        show_keys(dp, 1);
    });
    terminal.prompted("off ");
    terminal.type("\x03");
    terminal.prompted("on ");
    terminal.type("\x03");
    EXPECT_EQ(terminal.rest(), "Interrupted\r\n");
}

TEST(BreakKey, RunsATrapAndTheWaitTellsOfIt) {
    OnTerminal terminal([](DP *dp) {
        VLibSignalTrap(
            dp, [](DP *, void *) { crt("trapped "); }, nullptr);
        crt("key ");
        VAR key("none");
        const int interrupted = VELDAWindowsInchar(dp, &key, 0);
        crt(interrupted, ":", key, " ");
        const int pressed = VELDAWindowsInchar(dp, &key, 0);
        crt_line(pressed, ":", key);
    });
    terminal.prompted("key ");
    terminal.type("\x03");
    terminal.prompted("trapped -1:none ");
    terminal.type("x");
    EXPECT_EQ(terminal.rest(), "1:120\r\n");
}

TEST(Events, EndAWaitForAKey) {
    OnTerminal terminal([](DP *dp) {
        std::thread other([dp] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            ++dp->event_counter;
        });
        VAR key("none");
        crt_line(VELDAWindowsInchar(dp, &key, 0), ":", key);
        other.join();
    });
    EXPECT_EQ(terminal.rest(), "-1:none\r\n");
}

// --- the user's settings ---------------------------------------------------------------------------------------------

namespace {

void wait_for_key(DP *dp) {
    crt("key ");
    VAR key;
    VLibFIN_IBI(dp, &key, 0);
}

}  // namespace

TEST(UserSettings, AreNotInForceWhileAProgramReadsKeys) {
    OnTerminal terminal(wait_for_key);
    terminal.prompted("key ");
    terminal.type("x");
    EXPECT_EQ(terminal.exit_code(), 0);
}

// The settings of the terminal cannot be read when its last program has ended, so an outer program looks at them.
namespace {

template <class Inner>
std::string settings_after(const Inner &inner) {
    OnTerminal terminal([&](DP *) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) velda::test::run_and_exit(inner);
        signal(SIGINT, SIG_IGN);
        signal(SIGQUIT, SIG_IGN);
        int status = 0;
        waitpid(child, &status, 0);
        termios settings{};
        tcgetattr(0, &settings);
        crt_line(velda::test::code_of(status), settings.c_lflag & ECHO ? " echo" : " silent",
                 settings.c_lflag & ICANON ? " lines" : " keys");
    });
    terminal.prompted("key ");
    terminal.type("\x1C");  // quit, for those that still wait
    return terminal.rest();
}

}  // namespace

TEST(UserSettings, AreBackAfterTheCommand) {
    EXPECT_EQ(settings_after([](DP *dp) {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  wait_for_key(dp);
              }),
              "0 echo lines\r\n");
}

TEST(UserSettings, AreBackBetweenCommandsOfOneProcess) {
    OnTerminal terminal([](DP *dp) {
        const auto shown = [] {
            termios settings{};
            tcgetattr(0, &settings);
            crt_line(settings.c_lflag & ECHO ? "echo" : "silent");
        };
        velda_run(
            dp, "INNER", [](DP *inner, void *) { wait_for_key(inner); }, nullptr);
        shown();
        wait_for_key(dp);
        shown();
    });
    terminal.prompted("key ");
    terminal.type("x");
    terminal.until("echo\r\n");
    terminal.prompted("key ");
    terminal.type("x");
    EXPECT_EQ(terminal.rest(), "silent\r\n");
}

TEST(UserSettings, AreBackAfterExitOfTheProcess) {
    EXPECT_EQ(settings_after([](DP *dp) {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  wait_for_key(dp);
                  std::exit(5);
              }),
              "5 echo lines\r\n");
}

TEST(UserSettings, AreBackAfterAStop) {
    EXPECT_EQ(settings_after([](DP *dp) {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  wait_for_key(dp);
                  VLibCSTOP_VI(dp, 1, 0);
              }),
              "0 echo lines\r\n");
}

TEST(UserSettings, AreBackAfterADeadlySignal) {
    EXPECT_EQ(settings_after(wait_for_key), std::to_string(128 + SIGQUIT) + " echo lines\r\n");
}

TEST(UserSettings, AreBackAfterATerminateSignal) {
    EXPECT_EQ(settings_after([](DP *dp) {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  wait_for_key(dp);
                  kill(getpid(), SIGTERM);
                  wait_for_key(dp);
              }),
              "key " + std::to_string(128 + SIGTERM) + " echo lines\r\n");
}

TEST(UserSettings, AreBackAfterASecondTerminateSignalKillsABusyProgram) {
    EXPECT_EQ(settings_after([](DP *dp) {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  wait_for_key(dp);
                  kill(getpid(), SIGTERM);
                  kill(getpid(), SIGTERM);
              }),
              std::to_string(128 + SIGTERM) + " echo lines\r\n");
}

TEST(UserSettings, AreInForceWhileTheProgramIsStopped) {
    OnTerminal terminal([](DP *dp) {
        // Only a member of a process group with a parent outside it may be stopped from the keyboard.
        const pid_t child = fork();
        if (child == 0) {
            setpgid(0, 0);
            signal(SIGTTOU, SIG_IGN);
            tcsetpgrp(0, getpid());
            signal(SIGTTOU, SIG_DFL);
            velda::test::run_and_exit([](DP *inner) {
                wait_for_key(inner);
                wait_for_key(inner);
            });
        }
        int status = 0;
        waitpid(child, &status, WUNTRACED);
        termios settings{};
        tcgetattr(0, &settings);
        crt_line(WIFSTOPPED(status) ? "stopped" : "ended", settings.c_lflag & ECHO ? " echo" : " silent");
        velda::flush_output(dp);
        kill(child, SIGCONT);
        eventually([&] {
            tcgetattr(0, &settings);
            return !(settings.c_lflag & ECHO);
        });
        crt_line(settings.c_lflag & ECHO ? "echo" : "silent");
        velda::flush_output(dp);
        waitpid(child, &status, 0);
        crt_line("ended ", velda::test::code_of(status));
    });
    terminal.prompted("key ");
    terminal.type("\x1A");
    terminal.until("stopped echo\r\n");
    terminal.prompted("silent\r\n");
    terminal.type("x");
    terminal.prompted("key ");
    terminal.type("y");
    EXPECT_EQ(terminal.rest(), "ended 0\r\n");
}

TEST(UserSettings, AreInForceForAChildProgramAndThenKeysAgain) {
    OnTerminal terminal([](DP *dp) {
        wait_for_key(dp);
        const VAR command("\xFFkstty -a | grep -o -w -e '-*icanon' -e '-*echo' | tr '\\n' ' '");
        VLibCPERFORM_IIBBBBBBB(dp, 0, &command, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        wait_for_key(dp);
    });
    terminal.prompted("key ");
    terminal.type("x");
    EXPECT_EQ(terminal.prompted("key "), "icanon echo ");
    terminal.type("x");
    EXPECT_EQ(terminal.exit_code(), 0);
}

// --- messages from other ports ---------------------------------------------------------------------------------------

namespace {

// Sends a message to this session from another one, a while from now.
std::thread message_to(DP *dp, const char *text) {
    const int port = *velda::session_port(dp);
    return std::thread([port, text] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        DP *const other = velda_new_context();
        EXPECT_TRUE(velda::send_message(other, port, text));
        velda_free_context(other);
    });
}

}  // namespace

TEST(PortMessage, ShowsBelowAnInputThatThenGoesOn) {
    const velda::test::ScratchSystem system;
    OnTerminal terminal([](DP *dp) {
        std::thread sender = message_to(dp, "from port 5: hello");
        VAR reply;
        velda::input(reply);
        crt_line("[", reply, "]");
        sender.join();
    });
    terminal.prompted("?");
    terminal.type("ab");
    terminal.until("\r\nfrom port 5: hello\r\n?ab");
    terminal.type("c\r");
    EXPECT_EQ(terminal.rest(), "c\r\n[abc]\r\n");
}

TEST(PortMessage, DoesNotShowWhatWasTypedWithEchoOff) {
    const velda::test::ScratchSystem system;
    OnTerminal terminal([](DP *dp) {
        std::thread sender = message_to(dp, "hello");
        VAR reply;
        const velda::EchoOff quiet;
        velda::input(reply);
        crt_line("[", reply, "]");
        sender.join();
    });
    terminal.prompted("?");
    terminal.type("secret");
    terminal.until("\r\nhello\r\n?");
    terminal.type("\r");
    EXPECT_EQ(terminal.rest(), "\r\n[secret]\r\n");
}

TEST(PortMessage, ShowsAndEndsAWaitForAKey) {
    const velda::test::ScratchSystem system;
    OnTerminal terminal([](DP *dp) {
        std::thread sender = message_to(dp, "hello");
        VAR key("none");
        crt_line(VELDAWindowsInchar(dp, &key, 0), ":", key);
        sender.join();
    });
    EXPECT_EQ(terminal.rest(), "hello\r\n-1:none\r\n");
}
