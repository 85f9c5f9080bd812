#ifndef HARVANE_TESTS_MEASUREMENT_RECENTRANGETWIN_H
#define HARVANE_TESTS_MEASUREMENT_RECENTRANGETWIN_H

#include <cmath>
#include <optional>
#include <vector>

#include "tests/support/twin/Kernels.h"

namespace measurement_tests {

// The twin's recent range after these 3 s blocks; nothing while the power of the latest twenty
// accepted ones is infinite, when no cell lies above the gate.
inline std::optional<twin::RecentRange> RecentRangeTwin(const std::vector<float>& blocks) {
  std::vector<float> accepted;
  for (const float block : blocks) {
    if (-70.0F < block) accepted.push_back(block);
  }
  std::vector<float> cells(20, -70.0F);
  for (std::size_t i = 0; i < accepted.size(); ++i) cells[i % 20] = accepted[i];
  if (std::isinf(twin::MeanPower(cells))) return std::nullopt;
  return twin::RecentRangeOf(blocks);
}

}  // namespace measurement_tests

#endif  // HARVANE_TESTS_MEASUREMENT_RECENTRANGETWIN_H
