#include "tool/OutputAssembly.h"

#include <algorithm>

namespace harvane {

OutputAssembly::OutputAssembly(const std::vector<int>& skips, std::int64_t length) {
  for (const int skip : skips) channels.push_back({static_cast<std::size_t>(skip), length});
}

void OutputAssembly::Take(std::size_t channel, const std::int16_t* samples, std::size_t stride,
                          std::size_t count) {
  Channel& one = channels[channel];
  const std::size_t skipped = std::min(one.skip, count);
  one.skip -= skipped;
  samples += skipped * stride;
  const auto taken =
      static_cast<std::size_t>(std::min(static_cast<std::int64_t>(count - skipped), one.left));
  one.left -= static_cast<std::int64_t>(taken);
  const std::size_t width = channels.size();
  if (waiting.size() < (one.filled + taken) * width) waiting.resize((one.filled + taken) * width);
  std::int16_t* target = waiting.data() + one.filled * width + channel;
  for (std::size_t s = 0; s < taken; ++s) target[s * width] = samples[s * stride];
  one.filled += taken;
}

std::size_t OutputAssembly::Hand(std::vector<std::int16_t>* frames) {
  std::size_t count = channels.front().filled;
  for (const Channel& channel : channels) count = std::min(count, channel.filled);
  const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(count * channels.size());
  frames->assign(waiting.begin(), end);
  waiting.erase(waiting.begin(), end);
  for (Channel& channel : channels) channel.filled -= count;
  return count;
}

}  // namespace harvane
