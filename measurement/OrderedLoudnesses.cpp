#include "measurement/OrderedLoudnesses.h"

#include <algorithm>
#include <utility>

#include "platform/FatalStop.h"

namespace harvane {
namespace {

constexpr std::size_t kLongestRun = 1024;

}  // namespace

void OrderedLoudnesses::Insert(float value) {
  if (runs.empty()) runs.emplace_back();
  auto run = std::find_if(runs.begin(), runs.end() - 1,
                          [value](const std::vector<float>& one) { return value <= one.back(); });
  run->insert(std::upper_bound(run->begin(), run->end(), value), value);
  if (run->size() < kLongestRun) return;
  const auto middle = run->begin() + kLongestRun / 2;
  std::vector<float> upper(middle, run->end());
  run->erase(middle, run->end());
  runs.insert(run + 1, std::move(upper));
}

std::size_t OrderedLoudnesses::CountUpTo(float gate) const {
  std::size_t count = 0;
  for (const std::vector<float>& run : runs) {
    if (run.front() > gate) break;
    count += static_cast<std::size_t>(std::upper_bound(run.begin(), run.end(), gate) - run.begin());
  }
  return count;
}

std::size_t OrderedLoudnesses::CountBelow(float value) const {
  std::size_t count = 0;
  for (const std::vector<float>& run : runs) {
    if (run.front() >= value) break;
    count +=
        static_cast<std::size_t>(std::lower_bound(run.begin(), run.end(), value) - run.begin());
  }
  return count;
}

std::size_t OrderedLoudnesses::Size() const {
  std::size_t count = 0;
  for (const std::vector<float>& run : runs) count += run.size();
  return count;
}

float OrderedLoudnesses::operator[](std::size_t index) const {
  for (const std::vector<float>& run : runs) {
    if (index < run.size()) return run[index];
    index -= run.size();
  }
  FatalStop("list index out of range");
}

}  // namespace harvane
