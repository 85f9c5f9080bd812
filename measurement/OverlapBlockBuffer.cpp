#include "measurement/OverlapBlockBuffer.h"

#include <algorithm>

#include "measurement/SampleMath.h"

namespace harvane {

int HopLengthFor(int windowLength, float overlap) {
  if (overlap == 0.0F) return 0;
  const auto share = static_cast<float>(1.0 - static_cast<double>(overlap));
  const auto hop = static_cast<float>(static_cast<double>(share) * windowLength);
  return TruncateToInt(Floor(hop));
}

int WindowLength(int sampleRate, float seconds) {
  const auto length = static_cast<float>(static_cast<double>(sampleRate) * seconds);
  return TruncateToInt(Floor(length));
}

OverlapBlockBuffer::OverlapBlockBuffer(int windowLength, int /*sampleRate*/, int channel,
                                       float overlap, void* owner, BlockCallback callback)
    : buffer(new float[static_cast<std::size_t>(windowLength)]),
      windowLength(windowLength),
      channel(channel),
      hopLength(HopLengthFor(windowLength, overlap)),
      owner(owner),
      callback(callback) {}

void OverlapBlockBuffer::Append(const float* samples, int count, int position) {
  for (;;) {
    lastPosition = position;
    const int room = windowLength - fill;
    if (count <= room) break;  // Deliberate: a full window waits for the next append.
    std::copy(samples, samples + room, buffer.get() + fill);
    if (callback != nullptr) callback(buffer.get(), windowLength, channel, owner, lastPosition);
    if (hopLength != 0) {
      Shift();
    } else {
      fill = 0;
    }
    appendsSinceBlock = 0;
    samples += room;
    count -= room;
  }
  std::copy(samples, samples + count, buffer.get() + fill);
  fill += count;
  ++appendsSinceBlock;
}

void OverlapBlockBuffer::Reset() { fill = 0; }

void OverlapBlockBuffer::Detach() {
  owner = nullptr;
  callback = nullptr;
}

void OverlapBlockBuffer::Shift() {
  std::copy(buffer.get() + hopLength, buffer.get() + windowLength, buffer.get());
  fill = windowLength - hopLength;
}

}  // namespace harvane
