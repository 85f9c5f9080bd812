#include "tool/Verdicts.h"

#include <fmt/format.h>

#include <cmath>

namespace harvane {
namespace {

constexpr double kJudgedStep = 0.01;
constexpr double kTextStep = 0.1;
// Far below a step, far above what sums of decimal fractions are off.
constexpr double kSlack = 1e-9;

double Rounded(double value) { return std::round(value / kJudgedStep) * kJudgedStep; }

// One decimal where that says it all.
std::string Number(double value) {
  const double tenths = value / kTextStep;
  const bool isTenths = std::abs(tenths - std::round(tenths)) < kSlack;
  return isTenths ? fmt::format("{:.1f}", value) : fmt::format("{}", value);
}

std::optional<double> ValueOf(MeasuredValue value, const TrackValues& values) {
  const auto peak = [](const std::optional<PeakValue>& one) {
    return one ? std::optional(one->value) : std::nullopt;
  };
  switch (value) {
    case MeasuredValue::kIntegratedLoudness:
      return values.integratedLoudness;
    case MeasuredValue::kLoudnessRange:
      return values.loudnessRange;
    case MeasuredValue::kMaxTruePeak:
      return peak(values.maxTruePeak);
    case MeasuredValue::kMaxShortTerm:
      return peak(values.maxShortTerm);
    case MeasuredValue::kMaxMomentary:
      return peak(values.maxMomentary);
  }
  return std::nullopt;
}

// How far `value` lies outside; 0 or less where it fits.
double ExcessOf(const Rule& rule, double value) {
  if (rule.target) return std::abs(value - *rule.target) - rule.tolerance;
  double excess = -1.0;
  if (rule.least) excess = std::max(excess, *rule.least - value);
  if (rule.most) excess = std::max(excess, value - *rule.most);
  return excess;
}

}  // namespace

std::string WantedText(const Rule& rule) {
  const char* const unit = MeasuredValueUnit(rule.value);
  if (rule.target)
    return fmt::format("{} ±{} {}", Number(*rule.target), Number(rule.tolerance), unit);
  if (rule.least && rule.most) {
    return fmt::format("{} to {} {}", Number(*rule.least), Number(*rule.most), unit);
  }
  if (rule.least) return fmt::format("at least {} {}", Number(*rule.least), unit);
  return fmt::format("at most {} {}", Number(rule.most.value_or(0.0)), unit);
}

std::vector<RuleVerdict> Judge(const std::vector<Rule>& rules, const TrackValues& values,
                               const std::string& prefix) {
  std::vector<RuleVerdict> verdicts;
  for (const Rule& rule : rules) {
    RuleVerdict verdict;
    verdict.rule = prefix + MeasuredValueName(rule.value);
    verdict.wanted = WantedText(rule);
    verdict.value = ValueOf(rule.value, values);
    if (verdict.value) {
      const double excess = ExcessOf(rule, Rounded(*verdict.value));
      verdict.verdict = excess > kSlack ? Verdict::kFail : Verdict::kPass;
      if (verdict.verdict == Verdict::kFail) verdict.excess = Rounded(excess);
    }
    verdicts.push_back(std::move(verdict));
  }
  return verdicts;
}

}  // namespace harvane
