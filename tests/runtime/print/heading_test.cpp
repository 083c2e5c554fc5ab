#include "runtime/print/heading.h"

#include <gtest/gtest.h>

#include "tests/support/marks.h"

using velda::Heading;

namespace {

const velda::PageFacts SeventhPage{7, 20, "21 NOV 2026", "14:05:09 21 NOV 2026"};

// The lines of a heading on page 7 of 20 columns, divided by "/".
std::string rendered(std::string_view text) {
    std::string result;
    for (const std::string &line : Heading(text).render(SeventhPage)) result += line + "/";
    return result;
}

}  // namespace

TEST(Heading, TextStandsAsItIs) { EXPECT_EQ(rendered("Stock list"), "Stock list/"); }

TEST(Heading, NoTextIsNoHeading) {
    EXPECT_TRUE(Heading("").empty());
    EXPECT_TRUE(Heading("").render(SeventhPage).empty());
}

TEST(Heading, BlankTextIsALine) { EXPECT_EQ(rendered(" "), " /"); }

TEST(Heading, PIsThePageNumber) { EXPECT_EQ(rendered("Page 'P' end"), "Page 7 end/"); }

TEST(Heading, PPAndPWithDigitsJustifyThePageNumberRight) {
    EXPECT_EQ(rendered("'PP'"), "   7/");
    EXPECT_EQ(rendered("'P6'"), "     7/");
}

TEST(Heading, EachLOfAnOptionGroupIsANewLine) { EXPECT_EQ(rendered("\t\t\tPage 'PLL'Port"), "\t\t\tPage 7//Port/"); }

TEST(Heading, ALastLAddsAnEmptyLine) { EXPECT_EQ(rendered("PID'L'"), "PID//"); }

TEST(Heading, AnAttributeMarkIsANewLine) { EXPECT_EQ(rendered(marks("a^b^^c")), "a/b//c/"); }

TEST(Heading, DIsTheDateAndTTimeAndDate) {
    EXPECT_EQ(rendered("'D'"), "21 NOV 2026/");
    EXPECT_EQ(rendered("at 'T'"), "at 14:05:09 21 NOV 2026/");
}

TEST(Heading, CCentresItsLineOnly) {
    EXPECT_EQ(rendered("'C'abcd'L'left"), "        abcd/left/");
    EXPECT_EQ(rendered("'C10'abcd"), "   abcd/");
}

TEST(Heading, ALineTooLongToCentreStaysWhole) {
    EXPECT_EQ(rendered("'C'123456789012345678901234"), "123456789012345678901234/");
}

TEST(Heading, CentringCountsCharactersNotBytes) {
    EXPECT_EQ(rendered("'C'\xC3\xA4\xC3\xB6"), "         \xC3\xA4\xC3\xB6/");
}

TEST(Heading, NAsksForNoPause) {
    EXPECT_TRUE(Heading("x").pauses());
    EXPECT_FALSE(Heading("x'N'").pauses());
    EXPECT_FALSE(Heading("'N'").pauses());
}

TEST(Heading, TwoQuotesAreOne) { EXPECT_EQ(rendered("it''s"), "it's/"); }

TEST(Heading, OptionsMayBeLowerCase) { EXPECT_EQ(rendered("'p'"), "7/"); }

TEST(Heading, UnknownOptionsMeanNothing) { EXPECT_EQ(rendered("a'Z'b"), "ab/"); }

TEST(Heading, AQuoteWithoutItsFellowOpensOptionsToTheEnd) { EXPECT_EQ(rendered("a 'P"), "a 7/"); }
