#include "runtime/terminal/line_editor.h"

#include <gtest/gtest.h>

#include <string>

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
