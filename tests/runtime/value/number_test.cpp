// What is a number, its value and its text; arithmetic.
#include <cmath>
#include <limits>

#include "tests/runtime/value/fixture.h"
#include "tests/runtime/value/random.h"

using namespace velda;

namespace {

struct NumericCase {
    const char *text;
    bool numeric;
};

constexpr std::int64_t Largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t Smallest = std::numeric_limits<std::int64_t>::min();

std::string fault;

// Collects the messages of arithmetic faults while it lives.
class FaultsCaught {
  public:
    FaultsCaught() {
        fault.clear();
        velda_set_fault_reporter([](DP *, const char *message) { fault += message; });
    }
    ~FaultsCaught() { velda_set_fault_reporter(nullptr); }
};

std::string add(const char *a, const char *b) { return (VAR(a) + VAR(b)).str(); }
std::string subtract(const char *a, const char *b) { return (VAR(a) - VAR(b)).str(); }
std::string multiply(const char *a, const char *b) { return (VAR(a) * VAR(b)).str(); }
std::string divide(const char *a, const char *b) { return (VAR(a) / VAR(b)).str(); }
std::string modulo(const char *a, const char *b) { return mod(a, b).str(); }

}  // namespace

TEST(Numeric, SignDigitsPointDigits) {
    const NumericCase cases[] = {
        {"0", true},    {"17", true},     {"-17", true},
        {"+17", true},  {"1.25", true},   {".5", true},
        {"5.", true},   {"-.5", true},    {"01", true},
        {"00", true},   {".", true},      {"-", true},
        {"+", true},    {"-.", true},     {"", false},
        {" ", false},   {"1 ", false},    {" 1", false},
        {"1e5", false}, {"0x1", false},   {"1-", false},
        {"--1", false}, {"1.2.3", false}, {"..", false},
        {"a", false},   {"1,000", false}, {"12345678901234567890123456789012345678901234567890", true},
    };
    for (const NumericCase &c : cases) {
        EXPECT_EQ(VAR(c.text).is_numeric(), c.numeric) << c.text;
        EXPECT_EQ(is_num(c.text), c.numeric) << c.text;
    }
}

TEST(Numeric, UnassignedCellReadsAsEmptyAndZero) {
    const VAR cell;
    EXPECT_EQ(cell.view(), "");
    EXPECT_EQ(cell.to_integer(), 0);
    EXPECT_EQ(cell.to_double(), 0.0);
    EXPECT_FALSE(cell);
    EXPECT_FALSE(cell.is_numeric());
    EXPECT_TRUE(cell == "");
    EXPECT_FALSE(cell == 0);
    EXPECT_EQ((cell + 5).view(), "5");
}

TEST(Numeric, NonNumericTextCountsAsZero) {
    EXPECT_EQ(add("abc", "5"), "5");
    EXPECT_EQ(add("", ""), "0");
    EXPECT_EQ(VAR("12abc").to_integer(), 0);
    EXPECT_EQ(VAR("abc").to_double(), 0.0);
}

TEST(Numeric, ANumberIsWrittenWithAsManyDecimalsAsItHas) {
    EXPECT_EQ(VAR(1.25).view(), "1.25");
    EXPECT_EQ(VAR(0.5).view(), "0.5");
    EXPECT_EQ(VAR(-0.5).view(), "-0.5");
    EXPECT_EQ(VAR(3.0).view(), "3");
    EXPECT_EQ(VAR(-17).view(), "-17");
    EXPECT_EQ(VAR(0.0001).view(), "0.0001");
    EXPECT_EQ(VAR(100.1).view(), "100.1");
}

TEST(Numeric, AtMostFourDecimalsAndNoMinusZero) {
    EXPECT_EQ(VAR(2.0 / 3).view(), "0.6667");
    EXPECT_EQ(VAR(1.00004).view(), "1");
    EXPECT_EQ(VAR(1.00006).view(), "1.0001");
    EXPECT_EQ(VAR(-0.00001).view(), "0");
    EXPECT_EQ(VAR(-0.0).view(), "0");
    EXPECT_EQ(subtract("5", "5"), "0");
    EXPECT_EQ(multiply("-1", "0"), "0");
}

TEST(Numeric, IntegersOfSixtyFourBitsAreExact) {
    for (std::int64_t number :
         {Largest, Smallest, Largest - 1, (std::int64_t{1} << 53) + 1, std::int64_t{-900719925474099301}}) {
        EXPECT_EQ(VAR(number).view(), std::to_string(number));
        EXPECT_EQ(VAR(std::to_string(number)).to_integer(), number);
        EXPECT_TRUE(VAR(number) == VAR(std::to_string(number)));
        EXPECT_FALSE(VAR(number) == VAR(number == Largest ? number - 1 : number + 1));
    }
}

TEST(Numeric, ANumberAndAStringAtOnce) {
    VAR cell = "200";
    ASSERT_TRUE(cell.is_numeric());
    EXPECT_EQ(cell.image, 2000000.0);
    EXPECT_EQ(cell.integer, 200);
    EXPECT_EQ(cell.view(), "200");
}

TEST(Numeric, IntegerPartsEndAtTheRangeOfTheResult) {
    EXPECT_EQ(to_int(3.99), 3);
    EXPECT_EQ(to_int(-3.99), -3);
    EXPECT_EQ(to_int("99999999999"), std::numeric_limits<int>::max());
    EXPECT_EQ(to_int("-99999999999"), std::numeric_limits<int>::min());
    EXPECT_EQ(VAR("9223372036854775808").to_integer(), Largest);
    EXPECT_EQ(VAR("-99999999999999999999999999.5").to_integer(), Smallest);
    EXPECT_EQ(VAR("123456789012.99999").to_integer(), 123456789012);
}

TEST(Numeric, TextWithAZeroByteBehindIt) {
    EXPECT_STREQ(VLibBCONV_SFB(nullptr, Argument(12.5)), "12.5");
    const std::string text = "a text that lies outside the cell";
    EXPECT_STREQ(VLibBCONV_SFB(nullptr, Argument(std::string_view(text).substr(2, 4))), "text");
    const VAR owned(text);
    EXPECT_STREQ(VLibBCONV_SFB(nullptr, &owned), text.c_str());
    const VAR unassigned;
    EXPECT_STREQ(VLibBCONV_SFB(nullptr, &unassigned), "");
}

TEST(Truth, ByNumberOrByText) {
    EXPECT_TRUE(VAR(1) && VAR(-1) && VAR(0.5) && VAR("x") && VAR("1") && VAR(" "));
    EXPECT_FALSE(VAR(0) || VAR("0") || VAR("00") || VAR("") || VAR(".") || VAR("-") || VAR("0.0"));
    EXPECT_TRUE(truth("0.00001"));
    EXPECT_TRUE(truth("123456789012345678901234567890"));
    EXPECT_TRUE(truth(VAR(Largest)));
}

TEST(Arithmetic, HoldsFourDecimals) {
    EXPECT_EQ(divide("2", "3"), "0.6667");
    EXPECT_EQ(divide("-2", "3"), "-0.6667");
    EXPECT_EQ(divide("10", "4"), "2.5");
    EXPECT_EQ(divide("1", "20000"), "0.0001");  // a half is rounded away from zero
    EXPECT_EQ(divide("1", "20001"), "0");
    EXPECT_EQ(multiply("0.01", "0.01"), "0.0001");
    EXPECT_EQ(multiply("0.01", "0.005"), "0.0001");
    EXPECT_EQ(multiply("-0.01", "0.005"), "-0.0001");
    EXPECT_EQ(multiply("0.001", "0.001"), "0");
    EXPECT_EQ(add("0.1", "0.2"), "0.3");
    EXPECT_EQ(add("1.23456", "0"), "1.2346");
    EXPECT_EQ(add("1.23454", "0.00001"), "1.2346");
}

TEST(Arithmetic, IntegersBeyondSixtyFourBitsStayExact) {
    EXPECT_EQ((VAR(Largest) + 1).view(), "9223372036854775808");
    EXPECT_EQ((VAR(Smallest) - 1).view(), "-9223372036854775809");
    EXPECT_EQ((VAR(Largest) * VAR(Largest)).view(), "85070591730234615847396907784232501249");
    EXPECT_EQ(multiply("99999999999999999999999999", "99999999999999999999999999"),
              "9999999999999999999999999800000000000000000000000001");
    EXPECT_EQ(divide("9999999999999999999999999800000000000000000000000001", "99999999999999999999999999"),
              "99999999999999999999999999");
    EXPECT_EQ((-VAR(Smallest)).view(), "9223372036854775808");
    EXPECT_EQ(abs(VAR(Smallest)).view(), "9223372036854775808");
    EXPECT_EQ((VAR(Largest) + 1 - 1).view(), std::to_string(Largest));
}

TEST(Arithmetic, FractionsThatNoDoubleHoldsStayExact) {
    EXPECT_EQ(add("12345678901234.5678", "0.0001"), "12345678901234.5679");
    EXPECT_EQ(subtract("99999999999999999999.5", "0.25"), "99999999999999999999.25");
}

TEST(Arithmetic, RemainderHasTheSignOfTheDividend) {
    EXPECT_EQ(modulo("7", "3"), "1");
    EXPECT_EQ(modulo("-7", "3"), "-1");
    EXPECT_EQ(modulo("7", "-3"), "1");
    EXPECT_EQ(modulo("7.5", "2"), "1.5");
    EXPECT_EQ(modulo("100000000000000000000000000007", "10"), "7");
}

TEST(Arithmetic, DivisionByZeroGivesZeroAndAMessage) {
    const FaultsCaught caught;
    EXPECT_EQ(divide("5", "0"), "0");
    EXPECT_EQ(fault, "Division by zero: zero used");
    fault.clear();
    EXPECT_EQ(modulo("5", "abc"), "0");
    EXPECT_EQ(fault, "Division by zero: zero used");
    fault.clear();
    EXPECT_EQ(string_divide("5", "0").view(), "0");
    EXPECT_EQ(fault, "Division by zero: zero used");
    fault.clear();
    EXPECT_EQ(string_modulo("5", "0").view(), "0");
    EXPECT_EQ(fault, "Division by zero: zero used");
}

TEST(Arithmetic, IntegerPartAbsoluteAndNegative) {
    EXPECT_EQ(integer_part("3.9999").view(), "3");
    EXPECT_EQ(integer_part("-3.9999").view(), "-3");
    EXPECT_EQ(integer_part("-0.5").view(), "0");
    EXPECT_EQ(integer_part("12345678901234567890123.999999").view(), "12345678901234567890123");
    EXPECT_EQ(abs("-2.5").view(), "2.5");
    EXPECT_EQ(abs("2.5").view(), "2.5");
    EXPECT_EQ((-VAR("2.5")).view(), "-2.5");
    EXPECT_EQ(abs("-12345678901234567890123").view(), "12345678901234567890123");
}

TEST(Arithmetic, RandomNumbersLieBelowTheOperand) {
    int seen[3] = {};
    for (int i = 0; i < 300; ++i) {
        const std::int64_t number = random_below(3).to_integer();
        ASSERT_TRUE(number >= 0 && number < 3);
        ++seen[number];
    }
    EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
    EXPECT_EQ(random_below(1), 0);
    EXPECT_EQ(random_below(0), 0);
    EXPECT_EQ(random_below(-5), 0);
}

TEST(Arithmetic, CountingByOne) {
    VAR number = 5, before;
    VLibDPOSTI_BBB(nullptr, &before, &number);
    EXPECT_EQ(before, 5);
    EXPECT_EQ(number, 6);
    VLibDPOSTD_BBB(nullptr, &before, &number);
    EXPECT_EQ(before, 6);
    EXPECT_EQ(number, 5);
    VLibDPOSTI_VB(nullptr, &number);
    VLibDPOSTI_VB(nullptr, &number);
    VLibDPOSTD_VB(nullptr, &number);
    EXPECT_EQ(VLibDPREI_BB(nullptr, &number), &number);
    EXPECT_EQ(number, 7);
    VAR text = "2.5";
    ++text;
    EXPECT_EQ(text.view(), "3.5");
    VAR last = Largest;
    ++last;
    EXPECT_EQ(last.view(), "9223372036854775808");
    --last;
    EXPECT_EQ(last.view(), "9223372036854775807");
    VAR first = Smallest;
    --first;
    EXPECT_EQ(first.view(), "-9223372036854775809");
}

TEST(Arithmetic, TheTargetMayBeASource) {
    VAR x = 7;
    VLibDMATHADD_BBBB(nullptr, &x, &x, &x);
    EXPECT_EQ(x, 14);
    VLibDMATHMUL_BBBB(nullptr, &x, &x, &x);
    EXPECT_EQ(x, 196);
    VAR text = "99999999999999999999";
    VLibDMATHADD_BBBB(nullptr, &text, &text, &text);
    EXPECT_EQ(text.view(), "199999999999999999998");
    VLibDMATHDIV_BBBB(nullptr, &text, &text, &text);
    EXPECT_EQ(text, 1);
}

// --- String arithmetic against digits on paper ---

namespace {

// Non-negative integers as text without leading zeros.
std::string paper(std::string digits) {
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? "0" : digits.substr(first);
}

std::string paper_add(std::string a, std::string b) {
    if (a.size() < b.size()) a.swap(b);
    b.insert(0, a.size() - b.size(), '0');
    std::string sum(a.size() + 1, '0');
    for (std::size_t i = a.size(), carry = 0; i-- > 0 || carry;) {
        if (i == static_cast<std::size_t>(-1)) {
            sum[0] = '1';
            break;
        }
        const std::size_t digit = static_cast<std::size_t>(a[i] - '0' + b[i] - '0') + carry;
        sum[i + 1] = static_cast<char>('0' + digit % 10);
        carry = digit / 10;
    }
    return paper(sum);
}

std::string paper_multiply(const std::string &a, const std::string &b) {
    std::string product = "0";
    for (char digit : b) {
        product += '0';
        for (int times = digit - '0'; times > 0; --times) product = paper_add(paper(product), a);
    }
    return paper(product);
}

std::string digits(test::Random &random, int longest) { return paper("0" + random.text(longest, "0123456789")); }

}  // namespace

TEST(StringArithmetic, AgreesWithDigitsOnPaper) {
    test::Random random;
    for (int round = 0; round < 1500; ++round) {
        const std::string a = digits(random, round % 10 ? 30 : 90), b = digits(random, round % 7 ? 25 : 60);
        SCOPED_TRACE(a + " " + b);
        const std::string sum = paper_add(a, b);
        const std::string product = paper_multiply(a, b);
        ASSERT_EQ(string_add(a, b).view(), sum);
        ASSERT_EQ(string_subtract(sum, b).view(), a);
        ASSERT_EQ(string_subtract(b, sum).view(), a == "0" ? "0" : "-" + a);
        ASSERT_EQ(string_multiply(a, b).view(), product);
        ASSERT_EQ(string_multiply("-" + a, b).view(), product == "0" ? "0" : "-" + product);
        if (b == "0") continue;
        // (a * b + r) / b with any r below b
        const std::string rest = string_modulo(a, b).str();
        ASSERT_TRUE(VAR(rest) < VAR(b));
        ASSERT_EQ(string_divide(paper_add(product, rest), b).view(), a);
        ASSERT_EQ(string_modulo(paper_add(product, rest), b).view(), rest);
        ASSERT_EQ(paper_add(paper_multiply(string_divide(a, b).str(), b), rest), a);
    }
}

TEST(StringArithmetic, TopLimbsThatTemptToGuessTooHigh) {
    // Divisors whose lower limbs are all nines make the guessed limb too great.
    EXPECT_EQ(string_divide("999999999999999999999999998000000000000000000", "999999999999999999999999999").view(),
              "999999999999999999");
    EXPECT_EQ(string_divide("1000000000000000000000000000000000000", "1000000000000000000999999999").view(),
              "999999999");
    EXPECT_EQ(string_modulo("1000000000000000000000000000000000000", "1000000000000000000999999999").view(),
              string_subtract("1000000000000000000000000000000000000",
                              paper_multiply("1000000000000000000999999999", "999999999"))
                  .view());
}

TEST(StringArithmetic, ResultIsExactWhateverTheSize) {
    VAR power = 1;
    for (int i = 0; i < 300; ++i) power = string_multiply(power, 16);
    EXPECT_EQ(power.size(), 362u);
    for (int i = 0; i < 299; ++i) power = string_divide(power, 16);
    EXPECT_EQ(power.view(), "16");
}

TEST(StringArithmetic, DecimalsOfTheQuotientAreCutOff) {
    VAR quotient;
    VLibDSMATH_BBBBII(nullptr, &quotient, Argument(2), Argument(3), VELDA_SMATH_DIVIDE, 6);
    EXPECT_EQ(quotient.view(), "0.666666");
    EXPECT_EQ(string_divide("-7", 2).view(), "-3");
    EXPECT_EQ(string_modulo("-7", 2).view(), "-1");
    EXPECT_EQ(string_add("0.000001", "1.5").view(), "1.500001");
    EXPECT_EQ(string_multiply("0.001", "0.001").view(), "0.000001");
    EXPECT_EQ(string_subtract("1.5", "1.50").view(), "0");
    EXPECT_EQ(string_add("abc", "5").view(), "5");
}

TEST(Arithmetic, AgreesWithStringArithmetic) {
    test::Random random;
    const auto number = [&] {
        std::string text = digits(random, random.one_in(4) ? 24 : 9);
        if (random.one_in(3)) text = "-" + text;
        return random.one_in(2) ? text : text + "." + std::to_string(random.number(1, 9999));
    };
    for (int round = 0; round < 5000; ++round) {
        const std::string a = number(), b = number();
        SCOPED_TRACE(a + " " + b);
        // Sums of numbers with 4 decimals are exact; products and quotients differ by what the rounding adds.
        ASSERT_EQ((VAR(a) + VAR(b)).view(), string_add(a, b).view());
        ASSERT_EQ((VAR(a) - VAR(b)).view(), string_subtract(a, b).view());
        const VAR product_error = string_subtract(VAR(a) * VAR(b), string_multiply(a, b));
        ASSERT_TRUE(product_error <= "0.00005" && product_error >= "-0.00005") << product_error.view();
        if (VAR(b) == 0) continue;
        VAR quotient;
        VLibDSMATH_BBBBII(nullptr, &quotient, Argument(a), Argument(b), VELDA_SMATH_DIVIDE, 12);
        const VAR quotient_error = string_subtract(VAR(a) / VAR(b), quotient);
        ASSERT_TRUE(quotient_error <= "0.00005000001" && quotient_error >= "-0.00005000001") << quotient_error.view();
        ASSERT_EQ(mod(a, b).view(), string_modulo(a, b).view());
    }
}
