// The editor's stored form of a record.
#include <random>

#include "fileutil/fileutil.h"
#include "tests/support/command.h"
#include "tests/support/seed.h"

using namespace velda;

namespace {

// Runs are written <bN>: byte b, N times; a real "<" does not occur in the texts.
std::string with_runs(std::string_view visible) {
    std::string bytes;
    for (std::size_t at = 0; at < visible.size(); ++at) {
        if (visible[at] != '<') {
            bytes += visible[at];
            continue;
        }
        const std::size_t end = visible.find('>', at);
        bytes +=
            {'\x10', visible[at + 1], static_cast<char>(std::stoi(std::string(visible.substr(at + 2, end - at - 2))))};
        at = end;
    }
    return bytes;
}

std::string compressed(std::string_view plain) {
    VAR cell = plain;
    EXPECT_EQ(VELDAEditCompress(velda_getdp(), &cell), &cell);
    return cell.str();
}

std::string expanded(std::string_view stored) {
    VAR cell = stored;
    EXPECT_EQ(VELDAEditExpand(velda_getdp(), &cell), &cell);
    return cell.str();
}

TEST(EditCompress, CopiesOtherBytes) {
    EXPECT_EQ(compressed(""), "");
    EXPECT_EQ(compressed("abc\xFE\x10x"), "abc\xFE\x10x");
}

TEST(EditCompress, WritesARunOfMoreThanTwoAsThreeBytes) {
    EXPECT_EQ(compressed("a   b"), with_runs("a< 3>b"));
    EXPECT_EQ(compressed("a****b"), with_runs("a<*4>b"));
    EXPECT_EQ(compressed("   b"), with_runs("< 3>b"));
}

TEST(EditCompress, CopiesARunOfTwoAndLess) {
    EXPECT_EQ(compressed("a  b"), "a  b");
    EXPECT_EQ(compressed("a b*c"), "a b*c");
}

TEST(EditCompress, WritesTheCountInEightBits) {
    EXPECT_EQ(compressed(std::string(255, ' ') + "x"), with_runs("< 255>x"));
    EXPECT_EQ(compressed(std::string(256, ' ') + "x"), with_runs("< 0>x"));
    EXPECT_EQ(compressed(std::string(259, '*') + "x"), with_runs("<*3>x"));
}

TEST(EditCompress, CopiesTheLastByteOfATextThatEndsInARunOnceMore) {
    EXPECT_EQ(compressed("a   "), with_runs("a< 3> "));
    EXPECT_EQ(compressed("a "), "a  ");
    EXPECT_EQ(compressed("*"), "**");
    EXPECT_EQ(compressed("***"), with_runs("<*3>*"));
}

TEST(EditCompress, CopiesTheByteThatEndsARunAsItIs) {
    // The first star ends the run of blanks and belongs to no run itself.
    EXPECT_EQ(compressed("   ****x"), with_runs("< 3>*<*3>x"));
    EXPECT_EQ(compressed("  ***x"), "  ***x");
}

TEST(EditExpand, WritesTheRunsOut) {
    EXPECT_EQ(expanded(with_runs("a< 3>b<*5>")), "a   b*****");
    EXPECT_EQ(expanded(with_runs("< 0>x")), "x");
    EXPECT_EQ(expanded(with_runs("< 255>x")), std::string(255, ' ') + "x");
}

TEST(EditExpand, CopiesAMarkerBeforeAnyOtherByte) {
    EXPECT_EQ(expanded("\x10x\x03"), "\x10x\x03");
    EXPECT_EQ(expanded("\x10\x10*\x02"), "\x10**");
    EXPECT_EQ(expanded(""), "");
}

TEST(EditExpand, CopiesARunThatIsCutOff) {
    EXPECT_EQ(expanded("a\x10"), "a\x10");
    EXPECT_EQ(expanded("a\x10 "), "a\x10 ");
}

TEST(EditExpand, GrowsBeyondTwiceTheStoredSize) { EXPECT_EQ(expanded(with_runs("<*200><*200>")).size(), 400u); }

TEST(EditExpand, GivesBackATextThatWasCompressed) {
    std::mt19937_64 random = test::seeded_random();
    for (int round = 0; round < 500; ++round) {
        std::string text;
        while (text.size() < 40) text += std::string(random() % 7, "  **abc"[random() % 7]);
        text += 'x';  // no run at the end
        EXPECT_EQ(expanded(compressed(text)), text);
    }
}

}  // namespace
