#include "tool/results/ResultNumbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <locale>
#include <vector>

#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/tool/ResultSamples.h"
#include "tool/results/ReportPage.h"
#include "tool/results/ResultCsv.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultText.h"

namespace harvane {
namespace {

TEST(ResultNumbers, SinglePrecisionShowsTheShortestTextThatReadsBack) {
  EXPECT_EQ(ShortNumber(double{-23.1F}), "-23.1");
  EXPECT_EQ(ShortNumber(0.1), "0.1");
  EXPECT_EQ(ShortNumber(-23.0), "-23");
  EXPECT_EQ(ShortNumber(1.0 / 3.0), "0.3333333333333333");
}

TEST(ResultNumbers, ShortestDoubleIsTheDecimalNumberThatTheFloatWasReadFrom) {
  EXPECT_EQ(ShortestDouble(-23.1F), -23.1);
  EXPECT_EQ(ShortestDouble(0.3F), 0.3);
  EXPECT_EQ(ShortestDouble(std::numeric_limits<float>::infinity()),
            std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(ShortestDouble(std::numeric_limits<float>::quiet_NaN())));
}

TEST(ResultNumbers, ShortestDoubleIsTheSameFloatAgain) {
  support::ForEachSeed(20, [](std::uint64_t seed) {
    support::NoiseSource noise(static_cast<std::uint32_t>(seed));
    for (int i = 0; i < 1000; ++i) {
      const float value = support::AnyFloat(&noise, 70.0F);
      const auto again = static_cast<float>(ShortestDouble(value));
      EXPECT_PRED_FORMAT2(support::BitsEqual, value, again);
    }
  });
}

TEST(ResultNumbers, TimeCodesHaveMillisecondsAndAsManyHoursAsTheyNeed) {
  EXPECT_EQ(TimeCode(0.0), "00:00:00.000");
  EXPECT_EQ(TimeCode(723.36), "00:12:03.360");
  EXPECT_EQ(TimeCode(0.0625), "00:00:00.063");
  EXPECT_EQ(TimeCode(59.99951171875), "00:01:00.000");
  EXPECT_EQ(TimeCode(100 * 3600.0 + 1.0), "100:00:01.000");
  EXPECT_EQ(TimeCode(-1.5), "-00:00:01.500");
  EXPECT_EQ(TimeCode(std::numeric_limits<double>::infinity()), "inf s");
}

// As in most of Europe.
class Commas : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ResultNumbers, NoOutputDependsOnTheLocale) {
  const auto outputs = [] {
    const RunResult run = support::FullRun();
    return std::vector<std::string>{RunText(run), ToJson(run),    ToJsonLine(run.files[0]),
                                    ToCsv(run),   SeriesCsv(run), ReportPage(run)};
  };
  const std::vector<std::string> usual = outputs();
  const std::locale before = std::locale::global(std::locale(std::locale(), new Commas));
  const std::vector<std::string> european = outputs();
  std::locale::global(before);
  EXPECT_EQ(usual, european);
}

}  // namespace
}  // namespace harvane
