#ifndef HARVANE_TOOL_RESULTS_LOUDNESSCURVE_H
#define HARVANE_TOOL_RESULTS_LOUDNESSCURVE_H

#include <cstddef>
#include <optional>
#include <vector>

#include "tool/FileResult.h"

namespace harvane {

// One kind of loudness over time: value i belongs to the window that ends at SecondsOf(i). Refers
// to the series' values, which must outlive it.
struct LoudnessCurve {
  const std::vector<std::optional<float>>& values;
  double step;  // seconds

  // Windows overlap by three quarters: each is four steps long.
  double SecondsOf(std::size_t index) const {
    constexpr double kStepsInWindow = 4.0;
    return (kStepsInWindow + static_cast<double>(index)) * step;
  }
};

inline LoudnessCurve MomentaryCurve(const LoudnessSeries& series) {
  return {series.momentary, series.momentaryStep};
}

inline LoudnessCurve ShortTermCurve(const LoudnessSeries& series) {
  return {series.shortTerm, series.shortTermStep};
}

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_LOUDNESSCURVE_H
