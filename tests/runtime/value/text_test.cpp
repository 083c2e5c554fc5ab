// Substrings, concatenation, TRIM, CHANGE, CONVERT, case, marks, SORT, SUM, MATCHES, classes, bits.
#include <climits>

#include "runtime/process/context.h"
#include "tests/runtime/value/fixture.h"

using namespace velda;
using velda::test::cell;

namespace {

std::string sub(std::string_view text, int start, int length) { return velda::substring(text, start, length).str(); }

std::string trimmed(int code, std::string_view text, const char *character = nullptr, const char *type = nullptr) {
    const VAR by_character(character ? character : ""), by_type(type ? type : "");
    VAR target;
    VLibETRIM_BIBBBB(nullptr, code, &target, Argument(text), character ? &by_character : nullptr,
                     type ? &by_type : nullptr);
    return target.str();
}

struct MatchCase {
    const char *text;
    const char *pattern;
    bool matches;
};

}  // namespace

TEST(Substring, CountsFromOne) {
    EXPECT_EQ(sub("abcdef", 1, 3), "abc");
    EXPECT_EQ(sub("abcdef", 3, 2), "cd");
    EXPECT_EQ(sub("abcdef", 2, 999999), "bcdef");
    EXPECT_EQ(sub("abcdef", 7, 1), "");
    EXPECT_EQ(sub("abcdef", 0, 2), "ab");
    EXPECT_EQ(sub("abcdef", 2, 0), "");
}

TEST(Substring, NegativeStartCountsFromTheEnd) {
    EXPECT_EQ(sub("abcdef", -1, 1), "f");
    EXPECT_EQ(sub("abcdef", -3, 2), "de");
    EXPECT_EQ(sub("abcdef", -99, 2), "ab");
}

TEST(Substring, NegativeLengthIsAnEndCountedFromTheEnd) {
    EXPECT_EQ(sub("abcdef", 2, -1), "bcdef");
    EXPECT_EQ(sub("abcdef", 1, -2), "abcde");
    EXPECT_EQ(sub("abcdef", 2, -2), "bcde");
    EXPECT_EQ(sub("a", 1, -2), "");
    EXPECT_EQ(sub("", 1, -1), "");
    EXPECT_EQ(sub("abcdef", 5, -4), "");
}

TEST(Substring, HostilePositionsDoNotOverflow) {
    EXPECT_EQ(sub("abc", INT_MIN, INT_MAX), "abc");
    EXPECT_EQ(sub("abc", INT_MAX, INT_MAX), "");
    EXPECT_EQ(sub("abc", INT_MAX, INT_MIN), "");
    EXPECT_EQ(sub("abc", 2, INT_MAX), "bc");
    EXPECT_EQ(sub("abc", 2, INT_MIN), "");
}

TEST(Concatenation, OfTwoAndOfMany) {
    VAR target = "old";
    VLibECAT_BBBB(nullptr, &target, Argument("a"), Argument(12.5));
    EXPECT_EQ(target.view(), "a12.5");
    VLibEMCAT_BBI(nullptr, &target, 3, (const VAR *)Argument("x"), (const VAR *)Argument(""), (const VAR *)Argument(7));
    EXPECT_EQ(target.view(), "x7");
    VLibEMCAT_BBI(nullptr, &target, 0);
    EXPECT_EQ(target.view(), "");
}

TEST(Concatenation, TheTargetMayBeAnyPart) {
    for (const std::string &text : {std::string("ab"), std::string("a text that lies outside of the cell")}) {
        VAR x = text;
        VLibECAT_BBBB(nullptr, &x, &x, Argument("!"));
        EXPECT_EQ(x.view(), text + "!");
        VLibECAT_BBBB(nullptr, &x, Argument("<"), &x);
        EXPECT_EQ(x.view(), "<" + text + "!");
        VLibECAT_BBBB(nullptr, &x, &x, &x);
        EXPECT_EQ(x.view(), "<" + text + "!<" + text + "!");
        x = text;
        append_text(x, x(1).view().substr(0, 1), "-", x(1).view().substr(1));
        EXPECT_EQ(x.view(), text + text.substr(0, 1) + "-" + text.substr(1));
    }
}

TEST(Trim, CodesOfBlanks) {
    EXPECT_EQ(trimmed(23, "  a   b  "), "a b");
    EXPECT_EQ(trimmed(17, "  a   b  "), "a   b  ");
    EXPECT_EQ(trimmed(18, "  a   b  "), "  a   b");
    EXPECT_EQ(trimmed(23, "   "), "");
    EXPECT_EQ(trimmed(17, "   "), "");
    EXPECT_EQ(trimmed(18, "   "), "");
    EXPECT_EQ(trimmed(23, ""), "");
}

TEST(Trim, TypesOfAnyCharacter) {
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "L"), "axxbxx");
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "T"), "xxaxxb");
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "B"), "axxb");
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "A"), "ab");
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "R"), "axb");
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x"), "axb") << "without a type redundant ones go";
    EXPECT_EQ(trimmed(288, "xxaxxbxx", "x", "Q"), "xxaxxbxx");
}

TEST(Trim, AZeroCharacterMeansABlank) {
    EXPECT_EQ(trimmed(288, " a  b ", nullptr, "B"), "a  b");
    EXPECT_EQ(trimmed(288, " a  b ", "", "A"), "ab");
    EXPECT_EQ(trimmed(23, "xx a", "x"), "xx a") << "the codes of blanks look at no character";
}

TEST(Trim, InPlace) {
    VAR x = "   a text with   blanks that lies outside    ";
    VLibETRIM_BIBBBB(nullptr, VELDA_TRIM_REDUNDANT, &x, &x, nullptr, nullptr);
    EXPECT_EQ(x.view(), "a text with blanks that lies outside");
}

TEST(Change, ReplacesTextOfAnyLength) {
    EXPECT_EQ(change("a-b-c", "-", "+").view(), "a+b+c");
    EXPECT_EQ(change("a-b-c", "-", "").view(), "abc");
    EXPECT_EQ(change("a--b", "--", "<>").view(), "a<>b");
    EXPECT_EQ(change("aaa", "aa", "b").view(), "ba");
    EXPECT_EQ(change("abc", "x", "y").view(), "abc");
    EXPECT_EQ(change("abc", "", "y").view(), "abc");
    EXPECT_EQ(change("", "a", "y").view(), "");
    EXPECT_EQ(change("aa", "a", "aa").view(), "aaaa") << "what was put in is not changed again";
}

TEST(Change, OccurrencesAndStart) {
    EXPECT_EQ(change("aaaa", "a", "b", 2, 1).view(), "bbaa");
    EXPECT_EQ(change("aaaa", "a", "b", 2, 2).view(), "abba");
    EXPECT_EQ(change("aaaa", "a", "b", -1, 3).view(), "aabb");
    EXPECT_EQ(change("aaaa", "a", "b", -1, 9).view(), "aaaa");
    EXPECT_EQ(change("aaaa", "a", "b", 0, 0).view(), "bbbb");
}

TEST(Change, TheTargetMayBeAnySource) {
    VAR x = "a.b", dot = ".", plus = "+";
    VLibGSWAPF_BBBBBII(nullptr, &dot, &x, &dot, &plus, -1, 1);
    EXPECT_EQ(dot.view(), "a+b");
    VLibGSWAPF_BBBBBII(nullptr, &plus, &x, Argument("."), &plus, -1, 1);
    EXPECT_EQ(plus.view(), "a+b");
    VLibGSWAPF_BBBBBII(nullptr, &x, &x, &x, &x, -1, 1);
    EXPECT_EQ(x.view(), "a.b");
}

TEST(Convert, ByteByByte) {
    EXPECT_EQ(shown(convert("a b c", " ", AM).view()), "a^b^c");
    EXPECT_EQ(convert("hello", "el", "ip").view(), "hippo");
    EXPECT_EQ(convert("hello", "lo", "L").view(), "heLL") << "bytes without a partner are removed";
    EXPECT_EQ(convert("hello", "l", "").view(), "heo");
    EXPECT_EQ(convert("abc", "aa", "xy").view(), "xbc") << "the first place counts";
    EXPECT_EQ(convert("abc", "", "x").view(), "abc");
    EXPECT_EQ(convert("abc", "a", "xyz").view(), "xbc");
}

TEST(Convert, TheTargetMayBeAnySource) {
    VAR x = "abc";
    VLibGCONVERTF_BBBBB(nullptr, &x, &x, &x, Argument("xyz"));
    EXPECT_EQ(x.view(), "xyz");
    VAR from = "x";
    VLibGCONVERTF_BBBBB(nullptr, &from, Argument("axa"), &from, Argument(""));
    EXPECT_EQ(from.view(), "aa");
}

TEST(InPlace, ChangesTheElementAtThePosition) {
    VAR x = cell("a.b^c.d]e.f^g.h");
    change_in(x, ".", "--", 2, 2);
    EXPECT_EQ(shown(x.view()), "a.b^c.d]e--f^g.h");
    convert_in(x, ".", "", 2);
    EXPECT_EQ(shown(x.view()), "a.b^cd]e--f^g.h");
    change_in(x, ".", "!");
    EXPECT_EQ(shown(x.view()), "a!b^cd]e--f^g!h");
    convert_in(x, marks("^]"), "  ");
    EXPECT_EQ(x.view(), "a!b cd e--f g!h");
}

TEST(InPlace, AnElementThatIsNotThereStaysAbsent) {
    VAR x = cell("a^b");
    change_in(x, "", "y", 5);
    convert_in(x, "b", "c", 2, 3);
    change_in(x, "b", "c", -1);
    EXPECT_EQ(shown(x.view()), "a^b");
}

TEST(Case, FoldsLettersOnly) {
    EXPECT_EQ(upcase("abcXYZ-19z").view(), "ABCXYZ-19Z");
    EXPECT_EQ(downcase("abcXYZ-19Z").view(), "abcxyz-19z");
    std::string high;
    for (int byte = 128; byte < 256; ++byte) high += static_cast<char>(byte);
    EXPECT_EQ(upcase(high).view(), high) << "marks and other high bytes stay";
    EXPECT_EQ(downcase("@[`{").view(), "@[`{");
    EXPECT_EQ(upcase("@[`{").view(), "@[`{");
}

TEST(RaiseAndLower, MoveEachMarkOneLevel) {
    EXPECT_EQ(raise("a\xFD"
                    "b\xFC"
                    "c\xFB"
                    "d\xFA")
                  .view(),
              "a\xFE"
              "b\xFD"
              "c\xFC"
              "d\xFB");
    EXPECT_EQ(lower("a\xFE"
                    "b\xFD"
                    "c\xFC"
                    "d\xFB")
                  .view(),
              "a\xFD"
              "b\xFC"
              "c\xFB"
              "d\xFA");
    EXPECT_EQ(raise("\xFE\xFF").view(), "\xFE\xFF") << "nothing lies above";
    EXPECT_EQ(lower("\xFA\xFF").view(), "\xFA\xFF") << "nothing lies below";
    const std::string record = marks("k^a]b\\c^d");
    EXPECT_EQ(raise(lower(record)).view(), record);
}

TEST(Sort, AttributesInAscendingOrder) {
    EXPECT_EQ(shown(velda::sort(cell("c^a^b]x^b")).view()), "a^b^b]x^c");
    EXPECT_EQ(shown(velda::sort(cell("b^^a")).view()), "^a^b");
    EXPECT_EQ(velda::sort(cell("")).view(), "");
    VAR x = cell("b^a");
    VLibESORT_BBB(nullptr, &x, &x);
    EXPECT_EQ(shown(x.view()), "a^b");
}

TEST(Sum, OfTheNumericElements) {
    EXPECT_EQ(sum(cell("1^2]3\\4.5^x^^-0.5")).view(), "10");
    EXPECT_EQ(sum(cell("")).view(), "0");
    EXPECT_EQ(sum(cell("a]b")).view(), "0");
    EXPECT_EQ(sum(cell("0.1^0.2")).view(), "0.3");
    VAR x = cell("1^2");
    VLibESUM_BBB(nullptr, &x, &x);
    EXPECT_EQ(x, 3);
}

TEST(Repetition, NoneBelowOne) {
    EXPECT_EQ(str("ab", 3).view(), "ababab");
    EXPECT_EQ(str("ab", 0).view(), "");
    EXPECT_EQ(str("ab", -1).view(), "");
    EXPECT_EQ(str("", INT_MAX).view(), "");
    EXPECT_EQ(space(5).view(), "     ");
    EXPECT_EQ(space(20).view(), std::string(20, ' '));
    EXPECT_EQ(space(-5).view(), "");
    VAR x = "ab";
    VLibESTR_BBBI(nullptr, &x, &x, 10);
    EXPECT_EQ(x.view(), "abababababababababab");
}

TEST(Bytes, CharAndSeq) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(chr(byte).size(), 1u);
        EXPECT_EQ(seq(chr(byte)), byte);
    }
    EXPECT_EQ(chr(254), AM);
    EXPECT_EQ(chr(256 + 65).view(), "A");
    EXPECT_EQ(seq(""), 0);
    EXPECT_EQ(seq("AB"), 65);
}

TEST(Bytes, ControlCharacters) {
    EXPECT_EQ(control("A"), chr(1));
    EXPECT_EQ(control("z"), chr(26));
    EXPECT_EQ(control("["), chr(27));
    EXPECT_EQ(control("]"), chr(29));
    EXPECT_EQ(control("~"), chr(28));
    EXPECT_EQ(control("\\"), chr(28));
    EXPECT_EQ(control("@"), chr(0));
    EXPECT_EQ(control("^"), chr(30));
    EXPECT_EQ(control("_"), chr(31));
    EXPECT_EQ(control("?"), chr(127));
    EXPECT_EQ(control("1 ").view(), "1 ");
    EXPECT_EQ(control("MJ").view(), "\r\n");
}

TEST(Classes, AlphaIsAllLetters) {
    EXPECT_TRUE(is_alpha("abcXYZ"));
    EXPECT_FALSE(is_alpha("abc1") || is_alpha("") || is_alpha(" ") || is_alpha("\xE9"));
}

TEST(Classes, TypesByNumber) {
    const auto members = [](int type) {
        int number = 0;
        for (int byte = 0; byte < 256; ++byte) number += is_type(chr(byte), type);
        return number;
    };
    EXPECT_TRUE(is_type("a", 1) && is_type("Z", 1) && is_type("5", 1));
    EXPECT_EQ(members(1), 62);
    EXPECT_TRUE(is_type("\x1F", 3) && is_type("\x7F", 3));
    EXPECT_EQ(members(3), 33);
    EXPECT_TRUE(is_type("0", 4) && is_type("9", 4));
    EXPECT_EQ(members(4), 10);
    EXPECT_TRUE(is_type(" ", 7) && is_type("~", 7));
    EXPECT_EQ(members(7), 95);
    EXPECT_TRUE(is_type(" ", 9) && is_type("\t", 9) && is_type("\r", 9));
    EXPECT_EQ(members(9), 6);
    EXPECT_TRUE(is_type("A", 10) && is_type("Z", 10));
    EXPECT_EQ(members(10), 26);
    EXPECT_EQ(members(2), 0);
    EXPECT_FALSE(is_type("", 7));
}

TEST(Matches, PatternsOfTheSystem) {
    const MatchCase cases[] = {
        {"5", "1N", true},
        {"55", "1N", false},
        {"", "1N", false},
        {"", "0N", true},
        {"123", "0N", true},
        {"12a", "0N", false},
        {"7", "1N0N", true},
        {"712", "1N0N", true},
        {"", "1N0N", false},
        {"12", "2N0N", true},
        {"1", "2N0N", false},
        {"1234", "2N0N", true},
        {"123", "3N", true},
        {"12", "3N", false},
        {"10M", "1N0N'M'", true},
        {"M", "1N0N'M'", false},
        {"10m", "1N0N'M'", false},
        {"L5", "'L'1N0N", true},
        {"L", "'L'1N0N", false},
        {"A", "'A'0N", true},
        {"A12", "'A'0N", true},
        {"ALIGN", "'ALIGN'0N", true},
        {"ALIGN3", "'ALIGN'0N", true},
        {"ALIG", "'ALIGN'0N", false},
        {"GOTO10", "1A0A1N0N", true},
        {"GOTO", "1A0A1N0N", false},
        {"10", "1A0A1N0N", false},
        {"name@x", "1A0A'@'0X", true},
        {"name@", "1A0A'@'0X", true},
        {"name", "1A0A'@'0X", false},
        {"a", "1C", true},
        {"7", "1C", true},
        {"-", "1C", false},
        {"12-15", "1N0N'-'1N0N", true},
        {"12-", "1N0N'-'1N0N", false},
        {"12,15", "1N0N\",\"1N0N", true},
        {"12-15", "1N0N-1N0N", true},
    };
    for (const MatchCase &c : cases)
        EXPECT_EQ(matches(VAR(c.text), c.pattern), c.matches) << c.text << " " << c.pattern;
}

TEST(Matches, AlternativesAreSeparatedByValueMarks) {
    const VAR pattern = cell("1N]1A");
    EXPECT_TRUE(matches("5", pattern) && matches("x", pattern));
    EXPECT_FALSE(matches("-", pattern) || matches("5x", pattern) || matches("", pattern));
    EXPECT_TRUE(matches("", cell("1N]")));
}

TEST(Matches, TheWholeStringMustMatch) {
    EXPECT_FALSE(matches("12 ", "0N"));
    EXPECT_FALSE(matches(" 12", "0N"));
    EXPECT_TRUE(matches("", ""));
    EXPECT_FALSE(matches("x", ""));
}

TEST(Matches, ManyWaysThroughTheTextTakeNoTime) {
    const std::string text(20000, 'a');
    EXPECT_FALSE(matches(text, "0X0X0X0X0X0X0X0X0X0X'b'"));
    EXPECT_TRUE(matches(text, "0A0X0C0X0A"));
    EXPECT_FALSE(matches(text, "99999999999999999999A"));
}

TEST(Matches, OddPatterns) {
    EXPECT_TRUE(matches("ab", "'ab"));
    EXPECT_TRUE(matches("", "''"));
    EXPECT_TRUE(matches("5", "5"));
    EXPECT_TRUE(matches("1n", "1n"));
    EXPECT_TRUE(matches("a'b", "\"a'b\""));
    EXPECT_TRUE(matches("\"", "'\"'\"")) << "a quote that is not closed ends with the pattern";
}

TEST(Bits, RegisterAndArithmetic) {
    DP dp;
    VAR target;
    VLibEBITLOAD_BBB(&dp, &target, Argument(5));
    EXPECT_EQ(target, 5);
    EXPECT_EQ(VLibEBITCHECK_II(&dp, 0), 1);
    EXPECT_EQ(VLibEBITCHECK_II(&dp, 1), 0);
    EXPECT_EQ(VLibEBITCHECK_II(&dp, 2), 1);
    EXPECT_EQ(VLibEBITCHECK_II(&dp, -1), 0);
    EXPECT_EQ(VLibEBITCHECK_II(&dp, 64), 0);
    VLibEBITLOAD_BBB(&dp, &target, Argument(-1));
    EXPECT_EQ(VLibEBITCHECK_II(&dp, 63), 1);
    DP other;
    EXPECT_EQ(VLibEBITCHECK_II(&other, 0), 0) << "each context has its own";
    VLibEBITFUNC_BBBBI(nullptr, &target, Argument("12"), Argument(10), VELDA_BIT_AND);
    EXPECT_EQ(target, 8);
    VLibEBITFUNC_BBBBI(nullptr, &target, Argument(12), &target, VELDA_BIT_OR);
    EXPECT_EQ(target, 12);
    VLibEBITFUNC_BBBBI(nullptr, &target, Argument(6), Argument(1), 9);
    EXPECT_EQ(target, 6);
}
