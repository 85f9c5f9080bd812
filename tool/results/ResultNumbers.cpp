#include "tool/results/ResultNumbers.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace harvane {

std::string ShortNumber(double value) {
  if (std::abs(value) <= std::numeric_limits<float>::max()) {
    const auto single = static_cast<float>(value);
    if (single == value) return fmt::format("{}", single);
  }
  return fmt::format("{}", value);
}

double ShortestDouble(float value) {
  if (!std::isfinite(value)) return value;
  const std::string text = fmt::format("{}", value);
  double number = 0.0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string TimeCode(double seconds) {
  constexpr double kMillisecondsPerSecond = 1000.0;
  constexpr double kMostMilliseconds = 1e15;
  constexpr std::int64_t kMillisecondsPerMinute = 60'000;
  constexpr std::int64_t kMinutesPerHour = 60;
  const double exact = std::floor(seconds * kMillisecondsPerSecond + 0.5);
  if (!(std::abs(exact) < kMostMilliseconds)) return ShortNumber(seconds) + " s";
  const auto rounded = static_cast<std::int64_t>(exact);
  const std::int64_t milliseconds = std::abs(rounded);
  const std::int64_t minutes = milliseconds / kMillisecondsPerMinute;
  const std::int64_t rest = milliseconds % kMillisecondsPerMinute;
  return fmt::format("{}{:02}:{:02}:{:02}.{:03}", rounded < 0 ? "-" : "", minutes / kMinutesPerHour,
                     minutes % kMinutesPerHour, rest / 1000, rest % 1000);
}

}  // namespace harvane
