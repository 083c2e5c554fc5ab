// Comparison, and the values that a cell takes part with.
#include <cmath>

#include "tests/runtime/value/fixture.h"

using namespace velda;

namespace {

// All six comparisons of two values whose order is known.
void expect_order(const VAR &left, const VAR &right, int order) {
    SCOPED_TRACE(left.str() + " and " + right.str());
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_EQUAL), order == 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_NOT_EQUAL), order != 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_LESS), order < 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_LESS_EQUAL), order <= 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_GREATER), order > 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, &left, &right, VELDA_GREATER_EQUAL), order >= 0);
}

// The same both ways round, of fresh cells and of cells that have been read as numbers before.
void expect_both_ways(const char *left, const char *right, int order) {
    expect_order(left, right, order);
    expect_order(right, left, -order);
    const VAR l(left), r(right);
    (void)l.is_numeric();
    (void)r.is_numeric();
    expect_order(l, r, order);
}

}  // namespace

TEST(Compare, TwoNumericOperandsCompareByValue) {
    expect_both_ways("01", "1", 0);
    expect_both_ways("10", "9", 1);
    expect_both_ways("-1", "1", -1);
    expect_both_ways("1.50", "1.5", 0);
    expect_both_ways("-0", "0", 0);
    expect_both_ways(".", "0", 0);
    expect_both_ways("-", "+", 0);
    expect_both_ways("+5", "5", 0);
    expect_both_ways("-2", "-10", 1);
}

TEST(Compare, LongNumbersCompareByValue) {
    expect_both_ways("123456789012345678901234567890", "123456789012345678901234567891", -1);
    expect_both_ways("0123456789012345678901234567890", "123456789012345678901234567890.0", 0);
    expect_both_ways("-99999999999999999999", "-100000000000000000000", 1);
    expect_both_ways("99999999999999999999", "5", 1);
    expect_both_ways("-99999999999999999999", "5", -1);
    expect_both_ways("1.00001", "1.00002", -1);
    expect_both_ways("1.000010", "1.00001", 0);
    expect_both_ways("9007199254740993", "9007199254740992", 1);
    expect_both_ways("900719925474.0993", "900719925474.0992", 1);
    expect_both_ways("-0.000000000000000000001", "0", -1);
}

TEST(Compare, AnythingElseComparesAsByteStrings) {
    expect_both_ways("10", "9a", -1);
    expect_both_ways("a", "b", -1);
    expect_both_ways("a", "aa", -1);
    expect_both_ways("A", "a", -1);
    expect_both_ways("abc", "abc", 0);
    expect_both_ways("z", "\xFE", -1);
    expect_order(std::string_view("a\0b", 3), std::string_view("a\0c", 3), -1);
}

TEST(Compare, TheEmptyStringIsNotZero) {
    expect_both_ways("", "0", -1);
    EXPECT_FALSE(VAR("") == 0);
    EXPECT_FALSE(VAR(0) == "");
    EXPECT_TRUE(VAR("") == "");
}

TEST(Compare, AVariableThatHoldsANumberAgainstAConstantString) {
    const VAR command = 5;
    EXPECT_FALSE(command == "P");
    EXPECT_TRUE(command == "5");
    EXPECT_TRUE(command < "P");
}

TEST(Compare, ImagesOfTheSamePrecisionCompareAsFloats) {
    VAR left = 1.5, right = 2.25;
    ASSERT_EQ(left.form, VELDA_FORM_IMAGE);
    expect_order(left, right, -1);
    // The images alone decide: the fields that tell the value otherwise are not looked at.
    left.form = right.form = VELDA_FORM_IMAGE | VELDA_FORM_INTEGER;
    left.integer = 5;
    right.integer = 4;
    expect_order(left, right, -1);
}

TEST(Compare, ImagesOfDifferentPrecisionCompareByValue) {
    VAR hundredths = 0.5;
    hundredths.precision = 2;
    hundredths.image = 150;
    EXPECT_EQ(hundredths.view(), "1.5");
    VAR again = 0.5;
    again.precision = 2;
    again.image = 150;
    expect_order(again, 1.5, 0);
    expect_order(again, 2, -1);
}

TEST(Compare, AnImageThatIsNotANumberNeverComparesEqual) {
    const VAR nan = std::nan("");
    for (const VAR &other : {VAR(std::nan("")), VAR(0), VAR(1.5), VAR("x"), VAR("")}) {
        EXPECT_FALSE(nan == other);
        EXPECT_TRUE(nan != other);
        EXPECT_FALSE(nan < other || nan > other || nan <= other || nan >= other);
    }
}

TEST(Compare, AnUnknownOperatorDoesNotHold) {
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, Argument(1), Argument(1), 6), 0);
    EXPECT_EQ(VLibDCOMPARE_IBBI(nullptr, Argument(1), Argument(1), -1), 0);
}
