#include "runtime/convert/format_mask.h"

#include "runtime/vdefc.h"
#include "tests/runtime/convert/fixture.h"

using namespace velda;
using namespace velda::test;
using conversions::FormatMask;
using conversions::Status;

namespace {

// The formatted text; "bad mask" for a mask outside the grammar. A TM is shown as "|".
std::string fmt(std::string_view value, std::string_view mask) {
    const auto compiled = FormatMask::compile(mask);
    if (!compiled) return "bad mask";
    std::string text = compiled->apply(value).text;
    for (char &c : text) c = c == TM ? '|' : c;
    return text;
}

template <std::size_t N>
void expect_format(const Case (&cases)[N]) {
    for (const Case &c : cases) EXPECT_EQ(fmt(c.value, c.code), c.expected) << c.value << " by " << c.code;
}

}  // namespace

TEST(Format, LeftAndRightPadWithBlanksAndCutToTheWidth) {
    const Case cases[] = {
        {"abc", "L#5", "abc  "}, {"abcdef", "L#5", "abcde"}, {"abc", "R#3", "abc"}, {"12", "R#3", " 12"},
        {"12345", "R#3", "345"}, {"", "L#3", "   "},         {"", "R#3", "   "},    {"abc", "L#0", ""},
        {"abc", "R#0", ""},      {"ab", "L#", "a"},          {"ab", "R#", "b"},
    };
    expect_format(cases);
}

TEST(Format, PercentPadsWithZerosAndStarsWithStars) {
    const Case cases[] = {
        {"7", "R%4", "0007"}, {"12345", "R%4", "2345"}, {"", "R%4", "0000"},         {"-5", "R%4", "00-5"},
        {"7", "R*4", "***7"}, {"7", "L%4", "7000"},     {"7", "R%10", "0000000007"},
    };
    expect_format(cases);
}

TEST(Format, LiteralsStandBetweenTheColumns) {
    const Case cases[] = {
        {"7", "R%3 ", "007 "},
        {"123456789", "L###-##-####", "123-45-6789"},
        {"5551234567", "(###) ###-####", "(555) 123-4567"},
        {"1234", "R##-##-##", "  -12-34"},
        {"12", "L##-##", "12-  "},
        {"123456", "L#2/#2/#2", "12/34/56"},
        {"5", "R%2:%2", "00:05"},
    };
    expect_format(cases);
}

TEST(Format, CentreSharesTheBlanks) {
    EXPECT_EQ(fmt("ab", "C#6"), "  ab  ");
    EXPECT_EQ(fmt("ab", "C#5"), " ab  ");
    EXPECT_EQ(fmt("abcdef", "C#3"), "abc");
}

TEST(Format, NumbersAreRoundedScaledAndSigned) {
    const Case cases[] = {
        {"1234.567", "R2", "1234.57"},
        {"1234.5", "R2", "1234.50"},
        {"1234.567", "R0", "1235"},
        {"-0.5", "R0", "-1"},
        {"0.4", "R0", "0"},
        {"-0.4", "R0", "0"},
        {"1234567.891", "R2,", "1,234,567.89"},
        {"1234.5", "R2,$#12", "   $1,234.50"},
        {"1234.5", "R2,$*12", "***$1,234.50"},
        {"12345", "R22", "123.45"},
        {"12345", "R24", "1.23"},
        {"0", "R2Z#5", "     "},
        {"-5", "R2C", "5.00CR"},
        {"5", "R2C", "5.00  "},
        {"5", "R2D", "5.00DB"},
        {"-5", "R2E", "<5.00>"},
        {"-5", "R2M", "5.00-"},
        {"-5", "R2N", "5.00"},
        {"-1234", "R,", "-1,234"},
        {"123", "R,", "123"},
        {"-5", "R2$", "-$5.00"},
        {"99.999", "R2", "100.00"},
        {".5", "R2", "0.50"},
        {"007.10", "R,", "7.1"},
        {"99999999999999999999.995", "R2", "100000000000000000000.00"},
        {"", "R2#4", "    "},
    };
    expect_format(cases);
}

TEST(Format, ANumericMaskOnlyLaysOutWhatIsNoNumber) {
    const auto mask = FormatMask::compile("R2#5");
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->apply("ab").text, "   ab");
    EXPECT_EQ(mask->apply("ab").status, Status::BadValue);
    EXPECT_EQ(mask->apply("1").status, Status::Done);
}

TEST(Format, AWidthInFrontStandsForColumns) {
    const Case cases[] = {{"abc", "5L", "abc  "}, {"abc", "5R", "  abc"}, {"1.5", "6R2", "  1.50"}};
    expect_format(cases);
}

TEST(Format, TFoldsWholeWordsIntoLines) {
    const Case cases[] = {
        {"the quick brown fox", "T#10", "the quick |brown fox "},
        {"the quick brown fox", "T#9", "the quick|brown fox"},
        {"the quick brown fox", "T#5", "the  |quick|brown|fox  "},
        {"short", "T#10", "short     "},
        {"", "T#4", "    "},
        {"unbreakable", "T#4", "unbr|eaka|ble "},
        {"a unbreakable b", "T#4", "a   |unbr|eaka|ble |b   "},
        {"one  two", "T#4", "one |two "},
        {"one two   ", "T#4", "one |two "},
        {"a\xFB"
         "b",
         "T#3", "a  |b  "},
        {"one   \xFB"
         "two",
         "T#4", "one |two "},
        {"abc def", "10T", "abc def   "},
        {"      x", "T#4", "    |  x "},
    };
    expect_format(cases);
}

TEST(Format, NoFoldedLineIsWiderThanTheMaskAndNoWordIsLost) {
    std::mt19937_64 random = seeded_random();
    for (int count = 0; count < 500; ++count) {
        std::string text;
        for (std::size_t words = random() % 30; words > 0; --words)
            text.append(random() % 9 + 1, static_cast<char>('a' + random() % 26)).append(1, ' ');
        const std::size_t width = 9 + random() % 20;
        const std::string folded = fmt(text, "T#" + std::to_string(width));
        ASSERT_EQ((folded.size() + 1) % (width + 1), 0u) << text;
        const auto words_of = [](std::string s) {
            std::string words;
            for (char c : s) {
                if (c == '|') c = ' ';
                if (c != ' ' || (!words.empty() && words.back() != ' ')) words += c;
            }
            while (!words.empty() && words.back() == ' ') words.pop_back();
            return words;
        };
        ASSERT_EQ(words_of(folded), words_of(text)) << width;
    }
}

TEST(Format, MasksOutsideTheGrammarAreBad) {
    for (const char *mask : {"", "L", "R", "T", "X#5", "hello", "L-", "-5", "l#5", "10", "10#5", "10L#5", "T#0", "T##",
                             "T-#5", "L#9999999999", "L#32768", "L#20000#20000", "RZX"})
        EXPECT_EQ(fmt("abc", mask), "bad mask") << mask;
}

TEST(Format, TheLayoutIsAlwaysAsWideAsItsColumnsAndLiterals) {
    std::mt19937_64 random = seeded_random();
    for (int count = 0; count < 3000; ++count) {
        const std::string text = random_bytes(random, 20);
        const std::size_t width = random() % 30;
        for (const char *justification : {"L", "R", "C"}) {
            const std::string mask = justification + std::string("#") + std::to_string(width) + "!";
            const auto compiled = FormatMask::compile(mask);
            ASSERT_TRUE(compiled) << mask;
            ASSERT_EQ(compiled->apply(text).text.size(), width + 1) << mask;
        }
    }
}
