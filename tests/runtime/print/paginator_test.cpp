#include "runtime/print/paginator.h"

#include <gtest/gtest.h>

using velda::Heading;
using velda::Paginator;

namespace {

// Pages of ten columns by six lines as text: "<1>" stands where page 1 begins.
class TextPages : public velda::PageOutput {
  public:
    void write(std::string_view bytes) override { text += bytes; }
    void begin_page(int number) override { text += "<" + std::to_string(number) + ">"; }
    velda::PageFacts facts(int number) override { return {number, 10, "today", "now"}; }
    int page_lines() override { return 6; }
    std::string text;
};

struct Report {
    Report(std::string_view heading, std::string_view footing) {
        paginator.set_heading(Heading(heading));
        paginator.set_footing(Heading(footing));
    }
    Report &print(std::string_view text) {
        paginator.print(text, pages);
        return *this;
    }
    Report &lines(int count) {
        for (int line = 1; line <= count; ++line) print(std::to_string(line) + "\n");
        return *this;
    }
    Report &new_page() {
        paginator.new_page(pages);
        return *this;
    }
    std::string finished() {
        paginator.finish(pages);
        return pages.text;
    }
    Paginator paginator;
    TextPages pages;
};

}  // namespace

TEST(Paginator, WithoutHeadingAndFootingTextPassesUnchanged) {
    EXPECT_EQ(Report("", "").print("a\n\f\nb").lines(8).finished(), "a\n\f\nb1\n2\n3\n4\n5\n6\n7\n8\n");
}

TEST(Paginator, AFullPageIsFollowedByTheNextHeading) {
    EXPECT_EQ(Report("H'P'", "").lines(7).finished(), "<1>H1\n1\n2\n3\n4\n5\n<2>H2\n6\n7\n");
}

TEST(Paginator, AReportThatFillsItsPageEndsWithoutAnotherHeading) {
    EXPECT_EQ(Report("H'P'", "").lines(5).finished(), "<1>H1\n1\n2\n3\n4\n5\n");
}

TEST(Paginator, TheFootingStandsAtTheFootOfEachPage) {
    EXPECT_EQ(Report("H", "F'P'").lines(5).finished(), "<1>H\n1\n2\n3\n4\nF1\n<2>H\n5\n\n\n\nF2\n");
}

TEST(Paginator, AFootingNeedsNoHeading) {
    EXPECT_EQ(Report("", "F").lines(6).finished(), "<1>1\n2\n3\n4\n5\nF\n<2>6\n\n\n\n\nF\n");
}

TEST(Paginator, AHeadingOfSeveralLinesLeavesFewerForThePage) {
    EXPECT_EQ(Report("A'LL'", "").lines(4).finished(), "<1>A\n\n\n1\n2\n3\n<2>A\n\n\n4\n");
}

TEST(Paginator, ALineLongerThanThePageIsWideTakesSeveral) {
    EXPECT_EQ(Report("H", "").print("1234567890123456789012345\n").lines(3).finished(),
              "<1>H\n1234567890123456789012345\n1\n2\n<2>H\n3\n");
}

TEST(Paginator, PiecesOfALineAreCountedTogether) {
    EXPECT_EQ(Report("H", "").print("123456").print("789012345").print("\n").lines(4).finished(),
              "<1>H\n123456789012345\n1\n2\n3\n<2>H\n4\n");
}

TEST(Paginator, AFormFeedBeginsANewPage) {
    EXPECT_EQ(Report("H'P'", "").print("a\n\fb\n").finished(), "<1>H1\na\n<2>H2\nb\n");
}

TEST(Paginator, AFormFeedBeforeAnyOutputDoesNothing) {
    EXPECT_EQ(Report("H'P'", "").print("\fa\n").finished(), "<1>H1\na\n");
}

TEST(Paginator, NewPageCompletesTheLineAndTheFooting) {
    EXPECT_EQ(Report("H", "F").print("a").new_page().print("b\n").finished(), "<1>H\na\n\n\n\nF\n<2>H\nb\n\n\n\nF\n");
}

TEST(Paginator, NewPageOnAFreshPageDoesNothing) {
    EXPECT_EQ(Report("H'P'", "").new_page().lines(5).new_page().new_page().print("6\n").finished(),
              "<1>H1\n1\n2\n3\n4\n5\n<2>H2\n6\n");
}

TEST(Paginator, AnEmptyTextBeginsNoPage) { EXPECT_EQ(Report("H", "").print("").finished(), ""); }

TEST(Paginator, AHeadingSetLaterShowsFromTheNextPage) {
    Report report("old", "");
    report.print("a\n");
    report.paginator.set_heading(Heading("new"));
    EXPECT_EQ(report.new_page().print("b\n").finished(), "<1>old\na\n<2>new\nb\n");
}

TEST(Paginator, AfterTheEndPagesAreCountedFromOne) {
    Report report("H'P'", "");
    report.print("a\n").finished();
    EXPECT_EQ(report.print("b\n").finished(), "<1>H1\na\n<1>H1\nb\n");
}

TEST(Paginator, AHeadingThatLeavesNoRoomLeavesOneLine) {
    EXPECT_EQ(Report("1'LLLLLLL'", "").lines(2).finished(), "<1>1\n\n\n\n\n\n\n\n1\n<2>1\n\n\n\n\n\n\n\n2\n");
}
