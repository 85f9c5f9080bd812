#include "parameters/NumberText.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <clocale>
#include <cstdint>
#include <limits>
#include <locale>
#include <string>
#include <vector>

namespace harvane {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

void ExpectDouble(const std::string& text, double wanted) {
  const double got = DoubleFromText(text);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(wanted))
      << testing::PrintToString(text.substr(0, 60)) << " gave " << got << ", wanted " << wanted;
}

TEST(IntFromText, ReadsDigits) {
  EXPECT_EQ(IntFromText("0"), 0);
  EXPECT_EQ(IntFromText("2"), 2);
  EXPECT_EQ(IntFromText("1234567890"), 1234567890);
  EXPECT_EQ(IntFromText("007"), 7);
}

TEST(IntFromText, SkipsBlanksOfAllKindsInFront) {
  EXPECT_EQ(IntFromText(" \t\n\v\f\r12"), 12);
  EXPECT_EQ(IntFromText("   -3"), -3);
}

TEST(IntFromText, TakesOneSign) {
  EXPECT_EQ(IntFromText("+5"), 5);
  EXPECT_EQ(IntFromText("-5"), -5);
  EXPECT_EQ(IntFromText("-0"), 0);
  EXPECT_EQ(IntFromText("+-5"), 0);
  EXPECT_EQ(IntFromText("--5"), 0);
  EXPECT_EQ(IntFromText("- 5"), 0);
}

TEST(IntFromText, StopsAtTheFirstCharacterThatDoesNotFit) {
  EXPECT_EQ(IntFromText("2abc"), 2);
  EXPECT_EQ(IntFromText("23.976"), 23);
  EXPECT_EQ(IntFromText("59,94"), 59);
  EXPECT_EQ(IntFromText("1e3"), 1);
  EXPECT_EQ(IntFromText("0x10"), 0);
  EXPECT_EQ(IntFromText("3 4"), 3);
}

TEST(IntFromText, TextWithoutANumberIsZero) {
  for (const char* text : {"", " ", "+", "-", "abc", ".5", ",5", "inf", "nan",
                           "\xC2\xA0"
                           "1"}) {
    EXPECT_EQ(IntFromText(text), 0) << text;
  }
}

TEST(IntFromText, BeyondTheRangeIsTheNearestEnd) {
  EXPECT_EQ(IntFromText("2147483647"), INT_MAX);
  EXPECT_EQ(IntFromText("2147483648"), INT_MAX);
  EXPECT_EQ(IntFromText("-2147483648"), INT_MIN);
  EXPECT_EQ(IntFromText("-2147483649"), INT_MIN);
  EXPECT_EQ(IntFromText("4294967297"), INT_MAX);
  EXPECT_EQ(IntFromText("9223372036854775808"), INT_MAX);
  EXPECT_EQ(IntFromText("-9223372036854775809"), INT_MIN);
  EXPECT_EQ(IntFromText(std::string(5000, '9')), INT_MAX);
  EXPECT_EQ(IntFromText("-" + std::string(5000, '9')), INT_MIN);
}

TEST(IntFromText, ManyLeadingZerosAreNoOverflow) {
  EXPECT_EQ(IntFromText(std::string(5000, '0') + "12"), 12);
}

TEST(DoubleFromText, ReadsPlainDecimals) {
  ExpectDouble("0", 0.0);
  ExpectDouble("-23", -23.0);
  ExpectDouble("-23.0", -23.0);
  ExpectDouble("23.976", 23.976);
  ExpectDouble("29.97", 29.97);
  ExpectDouble("0.1", 0.1);
  ExpectDouble("-0", -0.0);
}

TEST(DoubleFromText, PointMayStandAtEitherEnd) {
  ExpectDouble(".5", 0.5);
  ExpectDouble("-.5", -0.5);
  ExpectDouble("+.5", 0.5);
  ExpectDouble("5.", 5.0);
  ExpectDouble("5.e1", 50.0);
  ExpectDouble(".", 0.0);
  ExpectDouble("-.", 0.0);
  ExpectDouble(".e1", 0.0);
}

TEST(DoubleFromText, CommaEndsTheNumber) {
  ExpectDouble("59,94", 59.0);
  ExpectDouble("-23,5", -23.0);
  ExpectDouble(",94", 0.0);
  ExpectDouble("1,000.5", 1.0);
}

TEST(DoubleFromText, SkipsBlanksInFrontAndTakesOneSign) {
  ExpectDouble(" \t\n\v\f\r-1.5", -1.5);
  ExpectDouble("+1.5", 1.5);
  ExpectDouble("+-1.5", 0.0);
  ExpectDouble("--1.5", 0.0);
  ExpectDouble("- 1.5", 0.0);
}

TEST(DoubleFromText, TakesAnExponentThatIsComplete) {
  ExpectDouble("1e2", 100.0);
  ExpectDouble("1E2", 100.0);
  ExpectDouble("1e+2", 100.0);
  ExpectDouble("25e-1", 2.5);
  ExpectDouble("1e", 1.0);
  ExpectDouble("1e+", 1.0);
  ExpectDouble("1e+x", 1.0);
  ExpectDouble("1 e2", 1.0);
  ExpectDouble("e2", 0.0);
}

TEST(DoubleFromText, TakesNoOtherNotation) {
  ExpectDouble("1d5", 1.0);
  ExpectDouble("1D5", 1.0);
  ExpectDouble("0x10", 0.0);
  ExpectDouble("0x1p3", 0.0);
  ExpectDouble("1'000", 1.0);
  ExpectDouble("1_000", 1.0);
  ExpectDouble("1.5f", 1.5);
  ExpectDouble("1.2.3", 1.2);
}

TEST(DoubleFromText, TextWithoutANumberIsZero) {
  for (const char* text :
       {"", " ", "+", "-", "abc", "inf", "-inf", "infinity", "INF", "nan", "NaN", "nan(1)", "+nan",
        "\xC2\xA0"
        "1"}) {
    ExpectDouble(text, 0.0);
  }
}

TEST(DoubleFromText, BeyondTheRangeIsInfinity) {
  ExpectDouble("1e308", 1e308);
  ExpectDouble("1e309", kInfinity);
  ExpectDouble("-1e309", -kInfinity);
  ExpectDouble("1e999999999999999999999", kInfinity);
  ExpectDouble("0.001e400", kInfinity);
  ExpectDouble(std::string(400, '9'), kInfinity);
  ExpectDouble("-" + std::string(400, '9') + ".5", -kInfinity);
}

TEST(DoubleFromText, ExponentThatIsNotCompleteCountsNothingBeyondTheRangeEither) {
  const std::string huge(400, '9');
  const std::string tiny = "0." + std::string(400, '0') + "1";
  for (const char* rest : {"e", "E-", "e+", "e -400", "e\t-400", "e+-400", "e-+400", "e--400",
                           "e- 400", "ex-400", " e-400", "e.5", "f-400"}) {
    ExpectDouble(huge + rest, kInfinity);
    ExpectDouble("-" + huge + rest, -kInfinity);
    ExpectDouble(tiny + rest, 0.0);
    ExpectDouble("-" + tiny + rest, -0.0);
  }
  for (const char* rest : {"e 900", "e+ 900", "e-+900", "e++900"}) ExpectDouble(tiny + rest, 0.0);
  ExpectDouble(huge + "e-800", 0.0);
  ExpectDouble(tiny + "e+900", kInfinity);
}

TEST(DoubleFromText, BelowTheRangeIsZeroWithTheSign) {
  ExpectDouble("4.9406564584124654e-324", std::numeric_limits<double>::denorm_min());
  ExpectDouble("1e-400", 0.0);
  ExpectDouble("-1e-400", -0.0);
  ExpectDouble("1e-999999999999999999999", 0.0);
  ExpectDouble("1000e-400", 0.0);
  ExpectDouble("0." + std::string(400, '0') + "1", 0.0);
  ExpectDouble("-0." + std::string(400, '0') + "1", -0.0);
}

TEST(DoubleFromText, ZeroWithAnyExponentIsZero) {
  ExpectDouble("0e999", 0.0);
  ExpectDouble("0.000e999999999999", 0.0);
  ExpectDouble("-0e-999", -0.0);
}

TEST(DoubleFromText, LongDigitStringsAreRoundedOnce) {
  // Half-way between 1 and the next double is even, 1; a last digit tips it.
  const std::string tie = "1.00000000000000011102230246251565404236316680908203125";
  ExpectDouble(tie, 1.0);
  ExpectDouble(tie + std::string(2000, '0'), 1.0);
  ExpectDouble(tie + std::string(2000, '0') + "1", 1.0 + std::numeric_limits<double>::epsilon());
  ExpectDouble(std::string(2000, '0') + "23.5" + std::string(2000, '0'), 23.5);
  ExpectDouble("1" + std::string(400, '0') + "e-400", 1.0);
  ExpectDouble("0." + std::string(400, '0') + "1e401", 1.0);
}

class CommaPoint : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(DoubleFromText, SeparatorOfTheLocaleIsNotLookedAt) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  const std::locale streamsBefore = std::locale::global(std::locale(std::locale(), new CommaPoint));
  // Where the machine has such a locale, the C library's too.
  for (const char* name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8", "German_Germany", "German"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  }
  ExpectDouble("59,94", 59.0);
  ExpectDouble("23.976", 23.976);
  ExpectDouble("1.000,5", 1.0);
  EXPECT_EQ(IntFromText("1.000"), 1);
  std::locale::global(streamsBefore);
  std::setlocale(LC_ALL, before.c_str());
}

}  // namespace
}  // namespace harvane
