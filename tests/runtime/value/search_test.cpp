// LOCATE, FIND, FINDSTR, COUNT, DCOUNT, INDEX, FIELD.
#include <climits>

#include "runtime/process/context.h"
#include "tests/runtime/value/fixture.h"

using namespace velda;
using velda::test::cell;

namespace {

// "found 2" or "not 3": the outcome and the position.
std::string located(std::string_view wanted, std::string_view array, int a = 0, int v = 0, const char *order = "",
                    int start = 0) {
    const Located result = locate(marks(wanted), marks(array), a, v, order, start);
    return (result ? "found " : "not ") + std::to_string(*result);
}

std::string place(const Found &found) {
    if (!found) return "not";
    return std::to_string(found.attribute) + "," + std::to_string(found.value) + "," + std::to_string(found.sub_value);
}
std::string found(std::string_view wanted, std::string_view array, int occurrence = 1) {
    return place(velda::find(marks(wanted), marks(array), occurrence));
}
std::string found_in(std::string_view wanted, std::string_view array, int occurrence = 1) {
    return place(findstr(marks(wanted), marks(array), occurrence));
}
std::string fields(std::string_view text, std::string_view delimiter, int first, int number = 1) {
    return velda::field(text, delimiter, first, number).str();
}

}  // namespace

TEST(Locate, SearchesAttributesValuesOrSubValues) {
    EXPECT_EQ(located("b", "a^b^c"), "found 2");
    EXPECT_EQ(located("b", "a^x]b]c^b", 2), "found 2");
    EXPECT_EQ(located("b", "a^x]y\\b]c", 2, 2), "found 2");
    EXPECT_EQ(located("b", "a^x]b]c"), "not 3") << "an attribute equals as a whole only";
    EXPECT_EQ(located("x]b", "a^x]b]c^x]b"), "found 3") << "and it may hold lower marks";
}

TEST(Locate, EqualAsAWholeMeansByteByByte) {
    EXPECT_EQ(located("1", "01^1.0^1"), "found 3");
    EXPECT_EQ(located("ab", "abc^xab^ab"), "found 3");
    EXPECT_EQ(located("a^b", "a^b"), "not 3") << "a text with the mark is no element";
}

TEST(Locate, BeginsAtElementStart) {
    EXPECT_EQ(located("a", "a^b^a", 0, 0, "", 0), "found 1");
    EXPECT_EQ(located("a", "a^b^a", 0, 0, "", 1), "found 1");
    EXPECT_EQ(located("a", "a^b^a", 0, 0, "", 2), "found 3");
    EXPECT_EQ(located("b", "a^b^a", 0, 0, "", 3), "not 4");
    EXPECT_EQ(located("b", "a^b^a", 0, 0, "", 99), "not 4");
    EXPECT_EQ(located("b", "a^b^c", 0, 0, "AL", 3), "not 3") << "the sorted search begins there too";
    EXPECT_EQ(located("b", "a^c", 0, 0, "AL", 9), "not 3");
}

TEST(Locate, FailureWithoutOrderLeavesOneBeyondTheLast) {
    EXPECT_EQ(located("x", "a^b^c"), "not 4");
    EXPECT_EQ(located("x", ""), "not 1");
    EXPECT_EQ(located("x", "a^^b", 2), "not 1");
    EXPECT_EQ(located("x", "a^b", 7), "not 1");
    EXPECT_EQ(located("x", "a^"), "not 3") << "a trailing mark counts";
}

TEST(Locate, OfTheEmptyString) {
    EXPECT_EQ(located("", ""), "not 1");
    EXPECT_EQ(located("", "a^^b"), "found 2");
    EXPECT_EQ(located("", "^b"), "found 1");
    EXPECT_EQ(located("", "b^"), "found 2");
    EXPECT_EQ(located("", "a^b"), "not 3");
    EXPECT_EQ(located("", "a^b", 2), "not 2");
}

TEST(Locate, FailureWithAnOrderLeavesThePositionToInsertAt) {
    EXPECT_EQ(located("b", "a^c^d", 0, 0, "AL"), "not 2");
    EXPECT_EQ(located("e", "a^c^d", 0, 0, "AL"), "not 4");
    EXPECT_EQ(located("c", "a^c^d", 0, 0, "AL"), "found 2");
    EXPECT_EQ(located("b", "d^c^a", 0, 0, "DL"), "not 3");
    EXPECT_EQ(located("e", "d^c^a", 0, 0, "DL"), "not 1");
    EXPECT_EQ(located("b", "x^a]c", 2, 0, "AL"), "not 2");
    EXPECT_EQ(located("b", "", 0, 0, "AL"), "not 1");
}

TEST(Locate, LeftJustifiedComparesAsText) {
    EXPECT_EQ(located("9", "10^100^2", 0, 0, "AL"), "not 4");
    EXPECT_EQ(located("10", "1^2^3", 0, 0, "AL"), "not 2");
}

TEST(Locate, RightJustifiedSortsNumbersByValue) {
    EXPECT_EQ(located("9", "2^10^100", 0, 0, "AR"), "not 2");
    EXPECT_EQ(located("10", "1^2^3", 0, 0, "AR"), "not 4");
    EXPECT_EQ(located("-5", "-10^-1^3", 0, 0, "AR"), "not 2");
    EXPECT_EQ(located("2.5", "1^2^10", 0, 0, "AR"), "not 3");
    EXPECT_EQ(located("9", "100^10^2", 0, 0, "DR"), "not 3");
    EXPECT_EQ(located("123456789012345678901", "5^123456789012345678900^123456789012345678902", 0, 0, "AR"), "not 3");
}

TEST(Locate, AnEqualNumberOfAnotherSpellingIsNoMatch) {
    EXPECT_EQ(located("1", "01^2", 0, 0, "AR"), "not 2");
    EXPECT_EQ(located("1", "01^1^2", 0, 0, "AR"), "found 2") << "the search goes on among equals";
    EXPECT_EQ(located("1", "2^1.0^1", 0, 0, "DR"), "found 3");
}

TEST(Locate, RightJustifiedPadsOtherTextWithBlanks) {
    EXPECT_EQ(located("b", "a^aa^ba", 0, 0, "AR"), "not 2") << "the longer text is greater";
    EXPECT_EQ(located("A2", "A1^A10", 0, 0, "AR"), "not 2");
    EXPECT_EQ(located("A9", "A10^B1", 0, 0, "AR"), "not 1");
}

TEST(Locate, AnUnknownOrderIsNone) {
    EXPECT_EQ(located("b", "a^c^b", 0, 0, "ZZ"), "found 3");
    EXPECT_EQ(VLibELOCATE_IBBBIIIIB(nullptr, nullptr, Argument("b"), Argument(marks("a^c^b")), 0, 0, 0, 0, nullptr), 1);
}

TEST(Locate, KeepsASortedListSortedByInsert) {
    VAR keys;
    for (const char *key : {"30", "4", "100", "7", "-2", "55"}) {
        const Located at = locate(key, keys, 0, 0, "AR");
        ASSERT_FALSE(at);
        keys.insert(key, *at);
    }
    EXPECT_EQ(shown(keys.view()), "-2^4^7^30^55^100");
}

TEST(Locate, ThePositionVariableMayBeASource) {
    VAR x = cell("a^b");
    EXPECT_EQ(VLibELOCATE_IBBBIIIIB(nullptr, &x, Argument("b"), &x, 0, 0, 0, 0, nullptr), 1);
    EXPECT_EQ(x, 2);
}

TEST(Find, ExactElementOfAnyLevel) {
    EXPECT_EQ(found("c", "a^b]x\\c^d"), "2,2,2");
    EXPECT_EQ(found("d", "a^b]x\\c^d"), "3,1,1");
    EXPECT_EQ(found("b", "ab^bb]b"), "2,2,1");
    EXPECT_EQ(found("z", "a^b"), "not");
    EXPECT_EQ(found("b]x", "a^b]x"), "not") << "no element holds a mark";
}

TEST(Find, TheOccurrenceCounts) {
    EXPECT_EQ(found("a", "a^b]a^a", 2), "2,2,1");
    EXPECT_EQ(found("a", "a^b]a^a", 3), "3,1,1");
    EXPECT_EQ(found("a", "a^b]a^a", 4), "not");
    EXPECT_EQ(found("a", "a^b]a^a", 0), "1,1,1");
}

TEST(Find, TheEmptyElement) {
    EXPECT_EQ(found("", "a^^b"), "2,1,1");
    EXPECT_EQ(found("", "a]^b"), "1,2,1");
    EXPECT_EQ(found("", "a^b"), "not");
    EXPECT_EQ(found("", ""), "not");
}

TEST(Find, FailureLeavesTheVariables) {
    VAR a = 7, v = 8, s = 9;
    EXPECT_EQ(VLibEFIND_IBBIBBB(nullptr, Argument("x"), Argument("a"), 1, &a, &v, &s), 0);
    EXPECT_TRUE(a == 7 && v == 8 && s == 9);
    EXPECT_EQ(VLibEFINDSTR_IBBIBBB(nullptr, Argument("x"), Argument("a"), 1, &a, &v, &s), 0);
    EXPECT_TRUE(a == 7 && v == 8 && s == 9);
}

TEST(Find, VariablesMayBeLeftOutOrBeSources) {
    EXPECT_EQ(VLibEFIND_IBBIBBB(nullptr, Argument("a"), Argument("a"), 1, nullptr, nullptr, nullptr), 1);
    VAR x = cell("p^q]r");
    EXPECT_EQ(VLibEFIND_IBBIBBB(nullptr, Argument("r"), &x, 1, &x, nullptr, nullptr), 1);
    EXPECT_EQ(x, 2);
}

TEST(Findstr, ElementThatContainsTheText) {
    EXPECT_EQ(found_in("ll", "hello^a]bell"), "1,1,1");
    EXPECT_EQ(found_in("ll", "hello^a]bell", 2), "2,2,1");
    EXPECT_EQ(found_in("l", "hello^a]bell", 2), "2,2,1") << "an element counts once";
    EXPECT_EQ(found_in("lo^a", "hello^a"), "not");
    EXPECT_EQ(found_in("", "a^b"), "not");
}

TEST(Dcount, NumberOfDelimitersPlusOne) {
    EXPECT_EQ(dcount("", AM), 0);
    EXPECT_EQ(dcount(AM, AM), 2);
    EXPECT_EQ(dcount(marks("a^b^c"), AM), 3);
    EXPECT_EQ(dcount(marks("a^b^"), AM), 3) << "a trailing mark counts";
    EXPECT_EQ(dcount("a", AM), 1);
    EXPECT_EQ(dcount("a, b, c", ", "), 3);
    EXPECT_EQ(dcount("abc", ""), 1);
    EXPECT_EQ(dcount(1001, 0), 3);
}

TEST(Count, NumberOfOccurrences) {
    EXPECT_EQ(count("banana", "a"), 3);
    EXPECT_EQ(count("banana", "an"), 2);
    EXPECT_EQ(count("aaaa", "aa"), 2) << "occurrences do not overlap";
    EXPECT_EQ(count("banana", "x"), 0);
    EXPECT_EQ(count("", "a"), 0);
    EXPECT_EQ(count("abc", ""), 0);
}

TEST(Index, BytePositionOfAnOccurrence) {
    EXPECT_EQ(index(VAR("banana"), "an"), 2);
    EXPECT_EQ(index(VAR("banana"), "an", 2), 4);
    EXPECT_EQ(index(VAR("banana"), "an", 3), 0);
    EXPECT_EQ(index(VAR("banana"), "a", 3), 6);
    EXPECT_EQ(index(VAR("banana"), "n", 0), 3);
    EXPECT_EQ(index(VAR("banana"), ""), 0);
    EXPECT_EQ(index(VAR(""), "a"), 0);
}

TEST(Field, KeepsTheDelimitersBetweenTheFields) {
    EXPECT_EQ(fields("a b c d", " ", 2), "b");
    EXPECT_EQ(fields("a b c d", " ", 2, 2), "b c");
    EXPECT_EQ(fields("a b c d", " ", 2, 99999), "b c d");
    EXPECT_EQ(fields("a b c d", " ", 2, INT_MAX), "b c d");
    EXPECT_EQ(fields("a::b::c", "::", 2, 2), "b::c");
    EXPECT_EQ(fields("a  b", " ", 2), "");
}

TEST(Field, BeyondTheEndIsTheEmptyString) {
    EXPECT_EQ(fields("a b", " ", 3), "");
    EXPECT_EQ(fields("", " ", 1), "");
    EXPECT_EQ(fields("a", " ", INT_MAX), "");
}

TEST(Field, WithoutTheDelimiterFieldOneIsTheWholeString) {
    EXPECT_EQ(fields("abc", " ", 1), "abc");
    EXPECT_EQ(fields("abc", " ", 1, 5), "abc");
    EXPECT_EQ(fields("abc", "", 1), "abc");
    EXPECT_EQ(fields("abc", " ", 0, 0), "abc");
}

TEST(Field, LeavesTheColumnsOfItsDelimiters) {
    DP dp;
    const auto columns = [&](const char *text, const char *delimiter, int first, int number = 1) {
        velda::field(&dp, text, delimiter, first, number);
        return std::to_string(VLibEFIELD_COL_II(&dp, 1)) + "," + std::to_string(VLibEFIELD_COL_II(&dp, 2));
    };
    EXPECT_EQ(columns("ab cd ef", " ", 2), "3,6");
    EXPECT_EQ(columns("ab cd ef", " ", 1), "0,3");
    EXPECT_EQ(columns("ab cd ef", " ", 3), "6,9");
    EXPECT_EQ(columns("ab cd ef", " ", 2, 2), "3,9");
    EXPECT_EQ(columns("ab", " ", 1), "0,3");
    EXPECT_EQ(columns("ab", " ", 2), "0,0");
    EXPECT_EQ(columns("a::b::c", "::", 2), "2,5");
    EXPECT_EQ(VLibEFIELD_COL_II(&dp, 3), 0);
    velda::field("xx xx", " ", 1);
    EXPECT_EQ(VLibEFIELD_COL_II(&dp, 1), 2) << "a FIELD without a context leaves them";
}
