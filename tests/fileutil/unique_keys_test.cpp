// The distinct elements of a list.
#include <algorithm>
#include <random>

#include "fileutil/fileutil.h"
#include "tests/support/command.h"
#include "tests/support/seed.h"

using namespace velda;

namespace {

std::string unique_keys(std::string_view list) {
    VAR target = "old";
    const VAR source = marks(list);
    EXPECT_EQ(VELDAUniqueKeys(&target, velda_getdp(), &source), &target);
    return shown(target.view());
}

TEST(UniqueKeys, KeepsTheFirstOfEqualElementsInOrder) {
    EXPECT_EQ(unique_keys("a^b]a"), "a^b");
    EXPECT_EQ(unique_keys("c^a^b^a^c^c"), "c^a^b");
}

TEST(UniqueKeys, DividesAtValueMarksAttributeMarksAndTheByteAbove) {
    EXPECT_EQ(unique_keys("a]b\xFF"
                          "c^d"),
              "a^b^c^d");
    EXPECT_EQ(unique_keys("a\\b^a\\b^a"), "a\\b^a") << "a sub-value mark is a byte like any other";
}

TEST(UniqueKeys, DropsEmptyElements) {
    EXPECT_EQ(unique_keys(""), "");
    EXPECT_EQ(unique_keys("^^]"), "");
    EXPECT_EQ(unique_keys("^a^^b^"), "a^b");
}

TEST(UniqueKeys, ComparesAsBytes) {
    EXPECT_EQ(unique_keys("1^01^1.0^A^a^ a"), "1^01^1.0^A^a^ a");
    EXPECT_EQ(unique_keys(std::string("x\0y^x\0y^x", 9)), std::string("x\0y^x", 5));
}

TEST(UniqueKeys, TakesItsSourceAsTarget) {
    VAR list = marks("b^a^b^c");
    VELDAUniqueKeys(&list, velda_getdp(), &list);
    EXPECT_EQ(shown(list.view()), "b^a^c");
}

TEST(UniqueKeys, LeavesNothingBehindForTheNextList) {
    EXPECT_EQ(unique_keys("a^b"), "a^b");
    EXPECT_EQ(unique_keys("a^b"), "a^b");
}

TEST(UniqueKeys, AgreesWithANaiveSearchOverManyKeys) {
    std::mt19937_64 random = test::seeded_random();
    std::string list;
    std::vector<std::string> distinct;
    for (int drawn = 0; drawn < 5000; ++drawn) {
        const std::string key = std::to_string(random() % 1500);
        list += (list.empty() ? "" : "^") + key;
        distinct.push_back(key);
    }
    std::ranges::sort(distinct);
    std::string expected;
    const VAR source = marks(list);
    for (int at = 1; at <= dcount(source, AM); ++at) {
        const std::string key = source(at).str();
        const auto range = std::ranges::equal_range(distinct, key);
        if (range.empty()) continue;
        distinct.erase(range.begin(), range.end());
        expected += (expected.empty() ? "" : "^") + key;
    }
    EXPECT_EQ(unique_keys(list), expected);
}

}  // namespace
