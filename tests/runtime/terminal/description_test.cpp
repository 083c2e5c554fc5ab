#include "runtime/terminal/description.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

using velda::Capability;
using velda::TerminalDescription;

namespace {

// The sequence of a key; "(none)" when the terminal lacks it.
std::string key_sequence(const TerminalDescription &description, const std::string &name) {
    const auto &keys = description.keys();
    const auto key =
        std::find_if(keys.begin(), keys.end(), [&](const auto &candidate) { return candidate.name == name; });
    return key == keys.end() ? "(none)" : key->sequence;
}

}  // namespace

TEST(TerminalDescription, SequencesComeFromTerminfo) {
    const auto vt100 = TerminalDescription::of_type("vt100");
    EXPECT_EQ(vt100->move_to(4, 2), "\x1B[3;5H");
    EXPECT_EQ(vt100->sequence(Capability::CursorHome), "\x1B[H");
    EXPECT_EQ(vt100->columns(), 80);
    EXPECT_EQ(vt100->lines(), 24);
}

TEST(TerminalDescription, PaddingIsNotSent) {
    // terminfo has "\E[H\E[J$<50>" for this terminal.
    EXPECT_EQ(TerminalDescription::of_type("vt100")->sequence(Capability::ClearScreen), "\x1B[H\x1B[J");
}

TEST(TerminalDescription, TheColumnIsReachedByAddressOrByStepsFromTheLeft) {
    EXPECT_EQ(TerminalDescription::of_type("xterm")->move_to_column(7), "\x1B[8G");
    EXPECT_EQ(TerminalDescription::of_type("vt100")->move_to_column(7), "\r\x1B[7C");
    EXPECT_EQ(TerminalDescription::of_type("vt100")->move_to_column(0), "\r");
    EXPECT_EQ(TerminalDescription::of_type("vt52")->move_to_column(2),
              "\r\x1B"
              "C\x1B"
              "C");
}

TEST(TerminalDescription, KeysHaveTerminfosVariableNames) {
    const auto vt220 = TerminalDescription::of_type("vt220");
    EXPECT_EQ(key_sequence(*vt220, "key_up"), "\x1B[A");
    EXPECT_EQ(key_sequence(*vt220, "key_ic"), "\x1B[2~");
    EXPECT_EQ(key_sequence(*vt220, "key_f6"), "\x1B[17~");
    EXPECT_EQ(key_sequence(*vt220, "key_nonsense"), "(none)");
}

TEST(TerminalDescription, BackTabIsTheKeysSequence) {
    const auto xterm = TerminalDescription::of_type("xterm");
    EXPECT_EQ(key_sequence(*xterm, "back_tab"), "\x1B[Z");
    EXPECT_EQ(key_sequence(*xterm, "back_tab"), key_sequence(*xterm, "key_btab"));
}

TEST(TerminalDescription, CapabilitiesHaveTerminfosNumbers) {
    const auto vt100 = TerminalDescription::of_type("vt100");
    EXPECT_STREQ(vt100->by_number(1), "\a");  // bell
    EXPECT_STREQ(vt100->by_number(2), "\r");  // carriage_return
    EXPECT_EQ(vt100->by_number(-1), nullptr);
    EXPECT_EQ(vt100->by_number(100000), nullptr);
}

class NoTerminal : public testing::TestWithParam<const char *> {};

TEST_P(NoTerminal, HasNoSequencesAndNoKeys) {
    const auto none = TerminalDescription::of_type(GetParam());
    EXPECT_TRUE(none->keys().empty());
    EXPECT_EQ(none->sequence(Capability::ClearScreen), "");
    EXPECT_EQ(none->move_to(1, 1), "");
    EXPECT_EQ(none->move_to_column(1), "");
    EXPECT_EQ(none->by_number(1), nullptr);
    EXPECT_FALSE(none->columns());
}

INSTANTIATE_TEST_SUITE_P(Types, NoTerminal, testing::Values("", "no-such-terminal", "../../etc/passwd"));

TEST(TerminalDescription, ThreadsMayAskAtOnce) {
    const auto ask = [] {
        for (int turn = 0; turn < 200; ++turn) {
            ASSERT_EQ(TerminalDescription::of_type("xterm")->move_to(turn, 1),
                      "\x1B[2;" + std::to_string(turn + 1) + "H");
            ASSERT_EQ(TerminalDescription::of_type("vt52")->move_to(1, 1), "\x1BY!!");
        }
    };
    std::thread first(ask), second(ask);
    first.join();
    second.join();
}
