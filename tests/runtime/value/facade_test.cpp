// The dialect's words in C++.
#include "tests/runtime/value/fixture.h"

using namespace velda;
using velda::test::cell;

TEST(Facade, ElementsReadAndAssign) {
    VAR record = cell("a^b]c^d");
    EXPECT_EQ(record(2, 2), "c");
    record(2, 2) = 17;
    record(5) = record(1);
    EXPECT_EQ(shown(record.view()), "a^b]17^d^^a");
    record(2, 2) += 3;
    EXPECT_EQ(record(2, 2), 20);
    EXPECT_TRUE(record(2, 2) == VAR(20) && 20 == record(2, 2) && record(1) != record(2));
    std::string_view seen = record(1);
    EXPECT_EQ(seen, "a");
}

TEST(Facade, ACellMayBeAssignedAnElementOfItself) {
    VAR record = cell("first attribute that is long^second attribute, long as well");
    record = record(2);
    EXPECT_EQ(record, "second attribute, long as well");
}

TEST(Facade, LocateTellsWhetherAndWhere) {
    const VAR list = cell("ann^bob^dan");
    const Located found = locate("bob", list);
    EXPECT_TRUE(found);
    EXPECT_EQ(*found, 2);
    const Located missing = locate("carl", list, 0, 0, "AL");
    EXPECT_FALSE(missing);
    EXPECT_EQ(missing.position, 3);
}

TEST(Facade, ConcatenationAndFields) {
    VAR line = cat("name", VM, 100, VM, field("usr/bin/env", "/", 2));
    EXPECT_EQ(shown(line.view()), "name]100]bin");
    append_text(line, "!", line);
    EXPECT_EQ(shown(line.view()), "name]100]bin!name]100]bin");
}

TEST(Facade, ArithmeticAndComparisonGoByValue) {
    VAR number = "01";
    EXPECT_TRUE(number == 1);
    EXPECT_EQ(number.view(), "01");
    EXPECT_EQ((number + 2.5).view(), "3.5");
    EXPECT_EQ((-number).view(), "-1");
    EXPECT_TRUE(number < "2" && 3 > number && number <= 1 && number >= "1");
    VAR zero = 0;
    zero = 0;
    EXPECT_EQ(zero, 0);
    EXPECT_FALSE(VAR("") == 0);
    EXPECT_EQ(VAR(10) / 4 * 2 - 1, 4);
}
