// Extract, replace, insert, delete: the elements of a dynamic array by position.
#include <climits>

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

TEST(Extract, ZeroAboveAPositionCountsAsOne) {
    EXPECT_EQ(extract("a]x\\y^b", 0, 2), "x\\y");
    EXPECT_EQ(extract("a\\z]x^b", 1, 0, 2), "z");
    EXPECT_EQ(extract("a\\z]x^b", 0, 0, 2), "z");
}

TEST(Extract, HostilePositionsReadAsEmpty) {
    for (int position : {-1, -2, INT_MIN, INT_MAX, 1000}) {
        EXPECT_EQ(extract("a^b]c\\d^e", position), "");
        EXPECT_EQ(extract("a^b]c\\d^e", 2, position), "");
        EXPECT_EQ(extract("a^b]c\\d^e", 2, 2, position), "");
    }
}

TEST(Extract, TheTargetMayBeTheSource) {
    VAR x = cell("first^a second attribute, too long to lie in the cell^third");
    VLibEEXTRACT_BBBIII(nullptr, &x, &x, 2, 0, 0);
    EXPECT_EQ(x.view(), "a second attribute, too long to lie in the cell");
    VLibEEXTRACT_BBBIII(nullptr, &x, &x, 1, 0, 0);
    EXPECT_EQ(x.view(), "a second attribute, too long to lie in the cell");
}

TEST(Extract, OfANumber) {
    EXPECT_EQ(VAR(125)(1).view(), "125");
    EXPECT_EQ(VAR(1.5)(1, 1, 1).view(), "1.5");
    EXPECT_EQ(VAR(125)(2).view(), "");
}

TEST(Extract, InAnyOrderOfPositions) {
    VAR array;
    for (int a = 1; a <= 300; ++a)
        for (int v = 1; v <= 3; ++v) array(a, v) = a * 10 + v;
    for (int a = 300; a >= 1; --a) ASSERT_EQ(array(a, 2), a * 10 + 2);
    for (int a = 1; a <= 300; ++a)
        for (int v = 3; v >= 1; --v) ASSERT_EQ(array(a, v), a * 10 + v);
    for (int a = 1; a <= 300; ++a) ASSERT_EQ(array(a * 7 % 300 + 1, 1), (a * 7 % 300 + 1) * 10 + 1);
    ASSERT_EQ(array(301), "");
    ASSERT_EQ(array(300, 3), 3003);
}

TEST(Replace, TheElementTakesTheValueWhateverItsLength) {
    EXPECT_EQ(replace("a^b^c", 2, "longer"), "a^longer^c");
    EXPECT_EQ(replace("a^longer^c", 2, "b"), "a^b^c");
    EXPECT_EQ(replace("a^b^c", 2, ""), "a^^c");
    EXPECT_EQ(replace("a^b^c", 0, "x"), "x") << "position 0 is the whole";
    EXPECT_EQ(replace("a^b", 2, "x^y"), "a^x^y") << "a value may bring marks";
    EXPECT_EQ(replace("a]b\\c^d", 1, 2, 2, "x"), "a]b\\x^d");
    EXPECT_EQ(replace("a]b\\c^d", 0, 2, 0, "x"), "a]x^d");
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

TEST(Replace, AppendingTheEmptyStringToSomethingAddsAMark) {
    EXPECT_EQ(replace("a", -1, ""), "a^");
    EXPECT_EQ(replace("", -1, ""), "");
    EXPECT_EQ(replace("a^b", 2, -1, 0, ""), "a^b]");
}

TEST(Replace, MinusOneAboveMakesANewElement) {
    EXPECT_EQ(replace("a", -1, 2, 0, "y"), "a^]y");
    EXPECT_EQ(replace("", -1, 2, 0, "y"), "]y");
    EXPECT_EQ(replace("a", 3, -1, -1, "y"), "a^^y");
}

TEST(Replace, OtherNegativePositionsAppendToo) {
    EXPECT_EQ(replace("a^b", -7, "c"), "a^b^c");
    EXPECT_EQ(replace("a^b", INT_MIN, "c"), "a^b^c");
    EXPECT_EQ(replace("a^b", 1, -2, 0, "c"), "a]c^b");
}

TEST(Replace, ListsGrowInLockstep) {
    VAR record = cell("k");
    for (int i = 1; i <= 50; ++i) {
        record(2, -1) = i;
        record(3, -1) = i % 2 ? "odd" : "even and longer";
    }
    EXPECT_EQ(velda::dcount(record(2), velda::VM), 50);
    EXPECT_EQ(velda::dcount(record(3), velda::VM), 50);
    for (int i = 1; i <= 50; ++i) {
        EXPECT_EQ(record(2, i), i);
        EXPECT_EQ(record(3, i), i % 2 ? "odd" : "even and longer");
    }
}

TEST(Replace, TheValueMayBeTheVariableOrAPartOfIt) {
    VAR x = cell("ab^cd");
    VLibECOMPLEX_STORE_VBIIIIIIB(nullptr, &x, 2, 2, 0, 0, 0, 0, &x);
    EXPECT_EQ(shown(x.view()), "ab^cd]ab^cd");
    x(1) = x(2);
    EXPECT_EQ(shown(x.view()), "cd]ab^cd]ab^cd");
    x(3) = x(1, 2);
    EXPECT_EQ(shown(x.view()), "cd]ab^cd]ab^ab");
    x(-1) = x(3);
    EXPECT_EQ(shown(x.view()), "cd]ab^cd]ab^ab^ab");
}

TEST(Replace, TheSecondStoreEntryDoesTheSame) {
    VAR x = cell("a^b");
    VLibECOMPLEX_STORE_VBIIIBIIIB(nullptr, &x, 2, 2, 0, nullptr, 0, 0, 0, velda::Argument("y"));
    EXPECT_EQ(shown(x.view()), "a^b]y");
}

TEST(Replace, AFileHandleIsAValueOfTheWholeOnly) {
    VAR x = 5;
    VLibECOMPLEX_STORE_VBIIIIIIB(nullptr, &x, 0, 0, 0, 0, 0, 0, velda::Argument(7));
    EXPECT_EQ(x.form, VELDA_FORM_INTEGER);
    EXPECT_EQ(x, 7);
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

TEST(Insert, PadsTheLevelsAbove) {
    EXPECT_EQ(insert("a", 3, 2, 0, "x"), "a^^x");
    EXPECT_EQ(insert("a", 1, 3, 2, "x"), "a]]x");
    EXPECT_EQ(insert("", 2, 1, 0, "x"), "^x");
    EXPECT_EQ(insert("a", -1, 1, 0, "x"), "a^x");
}

TEST(Insert, PositionZeroIsTheFirst) {
    EXPECT_EQ(insert("a^b", 0, 0, 0, "x"), "x^a^b");
    EXPECT_EQ(insert("a]b^c", 0, 2, 0, "x"), "a]x]b^c");
}

TEST(Insert, AnEmptyElementBeforeAnEmptyOne) {
    EXPECT_EQ(insert("a^^c", 2, 0, 0, ""), "a^^^c");
    EXPECT_EQ(insert("a^^c", 2, 1, 0, "x"), "a^x^c") << "the empty attribute has no values";
}

TEST(Insert, TheTargetMayBeAnySource) {
    VAR x = cell("a^b"), y = cell("c");
    VLibEINSERT_BBBBIII(nullptr, &y, &x, &y, 2, 0, 0);
    EXPECT_EQ(shown(y.view()), "a^c^b");
    VLibEINSERT_BBBBIII(nullptr, &x, &x, &x, 2, 0, 0);
    EXPECT_EQ(shown(x.view()), "a^a^b^b");
    VAR z = cell("a long array^whose second attribute goes^into another");
    VLibEINSERT_BBBBIII(nullptr, &z, &x, velda::Argument(z(2)), 1, 0, 0);
    EXPECT_EQ(shown(z.view()), "whose second attribute goes^a^a^b^b");
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

TEST(Delete, WithoutAPositionChangesNothing) {
    EXPECT_EQ(remove("p^q", 0), "p^q");
    EXPECT_EQ(remove("p^q", -1), "p^q");
    EXPECT_EQ(remove("p^q", INT_MIN), "p^q");
    EXPECT_EQ(remove("p^q", INT_MAX, INT_MAX, INT_MAX), "p^q");
    EXPECT_EQ(remove("p^q", 2, -1), "p^q");
}

TEST(Delete, EmptyElements) {
    EXPECT_EQ(remove("^", 1), "");
    EXPECT_EQ(remove("a^", 2), "a");
    EXPECT_EQ(remove("^a", 1), "a");
    EXPECT_EQ(remove("a^^b", 2), "a^b");
    EXPECT_EQ(remove("a^]^b", 2, 1), "a^^b");
    EXPECT_EQ(remove("a^^b", 2, 1), "a^^b");
}

TEST(Delete, AListIsShifted) {
    VAR list = cell("a^b^c");
    std::string seen;
    while (list != "") {
        seen += list(1).str();
        list.remove(1);
    }
    EXPECT_EQ(seen, "abc");
}

TEST(Delete, ASubValue) {
    EXPECT_EQ(remove("a^b\\c\\d]e", 2, 1, 2), "a^b\\d]e");
    EXPECT_EQ(remove("a^b\\c\\d]e", 2, 1, 3), "a^b\\c]e");
    EXPECT_EQ(remove("a^b\\c\\d]e", 2, 0, 1), "a^c\\d]e");
}

TEST(EdgeCases, OfTheEmptyRecord) {
    VAR x = "";
    EXPECT_EQ(velda::dcount(x, velda::AM), 0);
    EXPECT_EQ(x(1), "");
    x(-1) = "a";
    EXPECT_EQ(x.view(), "a");
}

TEST(EdgeCases, StoringBeyondTheEnd) {
    VAR x = "a";
    x(3) = "b";
    EXPECT_EQ(shown(x.view()), "a^^b");
    EXPECT_EQ(velda::dcount(x, velda::AM), 3);
}

TEST(EdgeCases, ValuesThatAreBothNumberAndString) {
    VAR leading = "01";
    EXPECT_TRUE(leading == 1);
    EXPECT_EQ(leading.view(), "01");
}
