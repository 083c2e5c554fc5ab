// Reading of key commands, from type-ahead and from a terminal.
#include "tests/frame/keys.h"

using namespace velda;
using namespace velda::test;

namespace {

class KeyReader : public InScratchDirectory {};

// Each answer of CommandNext over these type-ahead bytes, until they are used up.
std::string read_all(std::string bytes) {
    return run_on_pipes("", command("EDIT",
                                    [=](DP *dp) {
                                        command_init(dp);
                                        set_type_ahead(dp, bytes);
                                        while (!type_ahead_text(dp).empty()) crt(command_next(dp, 1), "|");
                                    }))
        .output;
}

TEST_F(KeyReader, GivesAPrintableCharacterCode101) {
    EXPECT_EQ(read_all("a~ "), "101 a|101 ~|101  |");
    EXPECT_EQ(read_all("\xE9"), "101 \\351|");
}

TEST_F(KeyReader, GivesTheCodeOfAControlKey) { EXPECT_EQ(read_all("\x01\t\r\x7F"), "2 ^A|6 ^I|9 ^M|37 \\177|"); }

TEST_F(KeyReader, GivesAControlCharacterThatIsNoCommandCode100) { EXPECT_EQ(read_all("\x07"), "100 ^G|"); }

TEST_F(KeyReader, ReadsASequenceToItsEnd) {
    EXPECT_EQ(read_all("\x1B[A\x1B[Dx"), "22 ^[[A|25 ^[[D|101 x|");
    EXPECT_EQ(read_all("\x04\x04"), "38 ^D^D|");
}

TEST_F(KeyReader, GivesASequenceThatBreaksOffCode100WithItsBytes) { EXPECT_EQ(read_all("\x04x"), "100 ^Dx|"); }

TEST_F(KeyReader, TakesEscapeAloneWhenTheBytesBehindFormNoSequence) {
    EXPECT_EQ(read_all("\x1Bxy"), "19 ^[|101 y|101 x|") << "the bytes go behind the type-ahead that is left";
    EXPECT_EQ(read_all("\x1B[Z"), "19 ^[|101 [|101 Z|");
}

TEST_F(KeyReader, FindsNoCodeForAKeyThatIsSwitchedOff) {
    write_host_file(".vedrc", "set noescape\nset nocursor_left\n");
    EXPECT_EQ(read_all("\x1B[D\x1B[A"), "100 ^[[D|22 ^[[A|");
}

// A program on a terminal that reads `calls` commands and shows each answer.
Program reader(int calls, int timeout_tenths) {
    return command("EDIT", [=](DP *dp) {
        command_init(dp);
        crt("ready;");
        for (int call = 0; call < calls; ++call) crt(command_next(dp, timeout_tenths), ";");
    });
}

// Types keys once the program waits for them: what comes earlier is echoed, and gathered into lines.
void type(OnTerminal &terminal, std::string_view keys) {
    ASSERT_TRUE(eventually([&] { return !terminal.has_user_settings(); })) << "the program never waited for a key";
    terminal.type(keys);
}

TEST_F(KeyReader, ReadsKeysFromTheTerminal) {
    OnTerminal terminal(reader(3, 0));
    terminal.until("ready;");
    type(terminal, "a");
    terminal.until("101 a;");
    type(terminal, "\x1B[B");
    terminal.until("23 ^[[B;");
    type(terminal, "\x05");
    terminal.until("4 ^E;");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST_F(KeyReader, TakesTheSecondOfTwoEscapesAsAKeyOfItsOwn) {
    OnTerminal terminal(reader(2, 0));
    terminal.until("ready;");
    type(terminal, "\x1B\x1B");
    terminal.until("19 ^[;");
    terminal.until("19 ^[;");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST_F(KeyReader, GivesCode102WhenNothingIsTypedInTime) {
    OnTerminal terminal(reader(1, 2));
    terminal.until("ready;");
    EXPECT_EQ(terminal.until(";"), "102 ");
}

TEST_F(KeyReader, TakesEscapeAloneAfterAShortWait) {
    OnTerminal terminal(reader(2, 0));
    terminal.until("ready;");
    const auto typed = std::chrono::steady_clock::now();
    type(terminal, "\x1B");
    EXPECT_EQ(terminal.until(";"), "19 ^[");
    const auto waited = std::chrono::steady_clock::now() - typed;
    EXPECT_GE(waited, std::chrono::milliseconds(150));
    EXPECT_LT(waited, std::chrono::seconds(3));
    type(terminal, "x");
    terminal.until("101 x;");
}

TEST_F(KeyReader, GivesTheBytesBehindAnEscapeThatStandsAloneNext) {
    OnTerminal terminal(reader(3, 0));
    terminal.until("ready;");
    type(terminal, "\x1B[q");
    EXPECT_EQ(terminal.until(";"), "19 ^[");
    EXPECT_EQ(terminal.until(";"), "101 [");
    EXPECT_EQ(terminal.until(";"), "101 q");
}

TEST_F(KeyReader, GoesOnWaitingForTheRestOfASequenceThatDoesNotBeginWithEscape) {
    OnTerminal terminal(reader(1, 0));
    terminal.until("ready;");
    type(terminal, "\x04");
    std::this_thread::sleep_for(std::chrono::milliseconds(5400));
    terminal.type("\x04");
    EXPECT_EQ(terminal.until(";"), "38 ^D^D");
}

TEST_F(KeyReader, TellsOfAnInterruptBySignal) {
    OnTerminal terminal(command("EDIT", [](DP *dp) {
        VLibSignalTrap(
            dp, [](DP *, void *) {}, nullptr);
        command_init(dp);
        crt("ready;");
        crt(command_next(dp, 0), ";");
    }));
    terminal.until("ready;");
    ASSERT_TRUE(eventually([&] { return !terminal.has_user_settings(); }));
    terminal.send_signal(SIGINT);
    EXPECT_EQ(terminal.until(";"), "103 ");
}

TEST_F(KeyReader, TellsOfAnInterruptWithinASequenceWithWhatWasRead) {
    for (const auto &[read, answer] :
         {std::pair("\x1B", "103 ^["), std::pair("\x1B[", "103 ^[["), std::pair("\x04", "103 ^D")}) {
        const std::string bytes = read;
        const Ending ending = run_on_pipes("", command("EDIT", [=](DP *dp) {
                                               command_init(dp);
                                               set_type_ahead(dp, bytes);
                                               crt(command_next(dp, 1));
                                           }));
        EXPECT_EQ(ending.output, answer);
    }
}

TEST_F(KeyReader, TellsOfTheEndOfTheInput) { EXPECT_EQ(run_on_pipes("", reader(1, 0)).output, "ready;103 ;"); }

}  // namespace
