#include "runtime/terminal/line_editor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/marks.h"

using velda::EditingKeys;
using velda::LineEditor;

namespace {

constexpr EditingKeys UsualKeys{0x7F, 0x15, 0x17, 0x04, 0x16};

// Types keys until the line is complete or the keys are used up.
struct Typed {
    explicit Typed(std::string_view keys, int length = -2) : editor(UsualKeys, length) {
        for (const char key : keys) {
            state = editor.feed(static_cast<unsigned char>(key), shown);
            ++keys_taken;
            if (state != LineEditor::State::More) return;
        }
    }
    LineEditor editor;
    LineEditor::State state = LineEditor::State::More;
    std::string shown;
    std::size_t keys_taken = 0;
};

}  // namespace

TEST(LineEditor, ReturnCompletesTheLineAndIsNotInIt) {
    const Typed typed("abc\rx");
    EXPECT_EQ(typed.state, LineEditor::State::Done);
    EXPECT_EQ(typed.editor.text(), "abc");
    EXPECT_EQ(typed.shown, "abc");
    EXPECT_EQ(typed.keys_taken, 4u);
}

TEST(LineEditor, LineFeedCompletesTheLineToo) { EXPECT_EQ(Typed("ab\n").state, LineEditor::State::Done); }

TEST(LineEditor, BackspaceDeleteAndTheUsersEraseKeyTakeTheLastCharacter) {
    EXPECT_EQ(Typed("abc\b\r").editor.text(), "ab");
    EXPECT_EQ(Typed("abc\x7F\r").editor.text(), "ab");
    LineEditor own({'#', 0x15, 0x17, 0x04, 0x16}, -2);
    std::string shown;
    own.feed('a', shown);
    own.feed('#', shown);
    EXPECT_EQ(own.text(), "");
}

TEST(LineEditor, ErasingAnEmptyLineShowsNothing) { EXPECT_EQ(Typed("\b\b").shown, ""); }

TEST(LineEditor, AnErasedCharacterIsWipedOffTheScreen) { EXPECT_EQ(Typed("a\b").shown, "a\b \b"); }

TEST(LineEditor, AnErasedControlCharacterTakesTwoColumns) { EXPECT_EQ(Typed("\x01\b").shown, "^A\b \b\b \b"); }

TEST(LineEditor, ACharacterOfSeveralBytesIsErasedWhole) {
    const Typed typed("a\xE2\x82\xAC\b");
    EXPECT_EQ(typed.editor.text(), "a");
    EXPECT_EQ(typed.shown, "a\xE2\x82\xAC\b \b");
}

TEST(LineEditor, StrayContinuationBytesAreErasedOneByOne) { EXPECT_EQ(Typed("a\x82\x82\b").editor.text(), "a\x82"); }

TEST(LineEditor, TheKillKeyAndControlXEmptyTheLine) {
    EXPECT_EQ(Typed("abc\x15x\r").editor.text(), "x");
    EXPECT_EQ(Typed("abc\x18y\r").editor.text(), "y");
}

TEST(LineEditor, TheWordEraseKeyTakesTheLastWordAndBlanksBehindIt) {
    EXPECT_EQ(Typed("one two  \x17").editor.text(), "one ");
}

TEST(LineEditor, TheLiteralNextKeyPutsAnyKeyIntoTheLine) {
    EXPECT_EQ(Typed("a\x16\x15"
                    "b\r")
                  .editor.text(),
              "a\x15"
              "b");
    EXPECT_EQ(Typed("\x16\r\r").editor.text(), "\r");
}

TEST(LineEditor, TheLastByteOfTheLengthCompletesTheLine) {
    const Typed typed("abcdef", 3);
    EXPECT_EQ(typed.state, LineEditor::State::Done);
    EXPECT_EQ(typed.editor.text(), "abc");
    EXPECT_EQ(typed.keys_taken, 3u);
}

TEST(LineEditor, TheEndOfInputKeyEndsAnEmptyLineAndCompletesAnother) {
    EXPECT_EQ(Typed("\x04").state, LineEditor::State::End);
    const Typed typed("ab\x04");
    EXPECT_EQ(typed.state, LineEditor::State::Done);
    EXPECT_EQ(typed.editor.text(), "ab");
}

TEST(LineEditor, MarksShowAsTheirVisibleSigns) {
    const Typed typed(marks("a^b]c\\d"));
    EXPECT_EQ(typed.shown, "a^b]c\\d");
    EXPECT_EQ(shown(typed.editor.text()), "a^b]c\\d");
    EXPECT_EQ(typed.editor.display(), "a^b]c\\d");
}

namespace {

// One endless line of a screen that knows characters and the backspace.
struct ScreenLine {
    void show(const std::string &bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            if (bytes[at] == '\b') {
                --cursor;
                ++at;
                continue;
            }
            std::size_t size = 1;
            while (at + size < bytes.size() && (bytes[at + size] & 0xC0) == 0x80) ++size;
            cells.resize(std::max(cells.size(), cursor + 1), " ");
            cells[cursor++] = bytes.substr(at, size);
            at += size;
        }
    }
    // What stands before the cursor; anything but blanks behind it is shown too, behind a bar.
    std::string text() const {
        std::string before, behind;
        for (std::size_t at = 0; at < cells.size(); ++at) (at < cursor ? before : behind) += cells[at];
        return behind.find_first_not_of(' ') == behind.npos ? before : before + "|" + behind;
    }
    std::vector<std::string> cells;
    std::size_t cursor = 0;
};

}  // namespace

TEST(LineEditor, TheScreenShowsTheLineWhateverIsTyped) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::vector<std::string> keys = {"a",    "b",    " ",    "\x01", "\x1B", "\xC3\xA4", "\xE2\x82\xAC",
                                           "\xFE", "\x7F", "\x08", "\x17", "\x15", "\x16\x15", "\x16\x7F",
                                           "\xFD"};
    for (int line = 0; line < 300; ++line) {
        LineEditor editor(UsualKeys, -2);
        ScreenLine screen;
        for (int key = 0; key < 40; ++key) {
            std::string shown;
            for (const char byte : keys[random() % keys.size()]) editor.feed(static_cast<unsigned char>(byte), shown);
            screen.show(shown);
            ASSERT_EQ(screen.text(), editor.display());
        }
    }
}
