#include "measurement/OverlapPowerSums.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "measurement/Arithmetic.h"
#include "measurement/OverlapBlockBuffer.h"

namespace harvane {
namespace {

int OpenWindows(int windowLength, int hopLength) {
  if (windowLength < 0) throw std::bad_array_new_length();
  return hopLength == 0 ? 1 : (windowLength - 1) / hopLength + 1;
}

}  // namespace

OverlapPowerSums::OverlapPowerSums(int windowLength, int channel, float overlap, void* owner,
                                   WindowCallback callback)
    : sums(std::make_unique<float[]>(static_cast<std::size_t>(
          OpenWindows(windowLength, HopLengthFor(windowLength, overlap))))),
      sumCount(OpenWindows(windowLength, HopLengthFor(windowLength, overlap))),
      windowLength(windowLength),
      channel(channel),
      hopLength(HopLengthFor(windowLength, overlap)),
      owner(owner),
      callback(callback) {}

void OverlapPowerSums::Append(const float* samples, int count, int position) {
  while (count > 0) {
    Settle(position);
    const int run = std::min(count, SamplesToBorder());
    for (int k = 0; k < begun; ++k) {
      float& open = sums[static_cast<std::size_t>((oldest + k) % sumCount)];
      float sum = open;
      for (int i = 0; i < run; ++i) sum = MultiplyAdd(samples[i], samples[i], sum);
      open = sum;
    }
    Skip(run);
    samples += run;
    count -= run;
  }
}

void OverlapPowerSums::Settle(int position) {
  if (fill == windowLength) {
    float& finished = sums[static_cast<std::size_t>(oldest)];
    const auto meanSquare = static_cast<float>(static_cast<double>(finished) / windowLength);
    if (callback != nullptr) callback(meanSquare, channel, owner, position);
    if (hopLength == 0) {
      finished = 0.0F;
      fill = 0;
    } else {
      fill -= hopLength;
      oldest = (oldest + 1) % sumCount;
      --begun;
    }
  }
  if (HasWindowToBegin() && fill == begun * hopLength) {
    sums[static_cast<std::size_t>((oldest + begun) % sumCount)] = 0.0F;
    ++begun;
  }
}

int OverlapPowerSums::SamplesToBorder() const {
  const int toEnd = windowLength - fill;
  return HasWindowToBegin() ? std::min(toEnd, begun * hopLength - fill) : toEnd;
}

void OverlapPowerSums::Reset() {
  fill = 0;
  begun = 1;
  oldest = 0;
  sums[0] = 0.0F;
}

void OverlapPowerSums::Detach() {
  owner = nullptr;
  callback = nullptr;
}

}  // namespace harvane
