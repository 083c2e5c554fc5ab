// Extract, replace, insert, delete: the elements of a dynamic array by position.
#include "tests/runtime/value/fixture.h"

using namespace velda::test;

TEST(Extract, WalksToAttributeValueAndSubValue) {
    EXPECT_EQ(extract("a^b]c\\d^e", 2), "b]c\\d");
    EXPECT_EQ(extract("a^b]c\\d^e", 2, 2), "c\\d");
    EXPECT_EQ(extract("a^b]c\\d^e", 2, 2, 2), "d");
    EXPECT_EQ(extract("a^b]c\\d^e", 3), "e");
}

TEST(Extract, PositionZeroMeansTheWholeOfTheLevelAbove) {
    EXPECT_EQ(extract("a^b]c", 2, 0, 0), "b]c");
    EXPECT_EQ(extract("a^b]c", 0, 0, 0), "a^b]c");
}

TEST(Extract, PastTheEndIsTheEmptyString) {
    EXPECT_EQ(extract("a^b]c", 3), "");
    EXPECT_EQ(extract("a^b]c", 2, 3), "");
    EXPECT_EQ(extract("a^b]c", 2, 2, 2), "");
    EXPECT_EQ(extract("", 1), "");
}

TEST(Replace, PadsWithTheMarksNeeded) {
    EXPECT_EQ(replace("a", 3, "b"), "a^^b");
    EXPECT_EQ(replace("a^b^c", 21, "y"), "a^b^c^^^^^^^^^^^^^^^^^^y");
    EXPECT_EQ(replace("a", 2, 2, 2, "y"), "a^]\\y");
}

TEST(Replace, MinusOneAppends) {
    EXPECT_EQ(replace("a", -1, "b"), "a^b");
    EXPECT_EQ(replace("a]b^c", 1, -1, 0, "y"), "a]b]y^c");
    EXPECT_EQ(replace("a]b^c", 1, 2, -1, "y"), "a]b\\y^c");
}

TEST(Replace, AppendingToTheEmptyStringGivesNoLeadingMark) {
    EXPECT_EQ(replace("", -1, "a"), "a");
    EXPECT_EQ(replace("", 1, -1, 0, "a"), "a");
    EXPECT_EQ(replace("a^^c", 2, -1, 0, "y"), "a^y^c");
}

TEST(Insert, GoesBeforeThePosition) {
    EXPECT_EQ(insert("a^b", 1, 0, 0, "x"), "x^a^b");
    EXPECT_EQ(insert("a^b]c", 2, 2, 0, "x"), "a^b]x]c");
    EXPECT_EQ(insert("a^b]c\\d", 2, 2, 1, "x"), "a^b]x\\c\\d");
}

TEST(Insert, AppendsBeyondTheEndAndAtMinusOne) {
    EXPECT_EQ(insert("a^b^c", 7, 0, 0, "x"), "a^b^c^x");
    EXPECT_EQ(insert("a^b", -1, 0, 0, "x"), "a^b^x");
    EXPECT_EQ(insert("", 1, 0, 0, "x"), "x");
}

TEST(Delete, RemovesTheElementAndOneAdjoiningMark) {
    EXPECT_EQ(remove("p^q", 1), "q");
    EXPECT_EQ(remove("p^q", 2), "p");
    EXPECT_EQ(remove("p", 1), "");
    EXPECT_EQ(remove("a^b]c^d", 2, 1), "a^c^d");
    EXPECT_EQ(remove("a^b]c^d", 2, 2), "a^b^d");
}

TEST(Delete, BeyondTheEndChangesNothing) {
    EXPECT_EQ(remove("p^q", 3), "p^q");
    EXPECT_EQ(remove("p^q", 2, 2), "p^q");
    EXPECT_EQ(remove("", 1), "");
}
