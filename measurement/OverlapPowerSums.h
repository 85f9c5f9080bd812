#ifndef HARVANE_MEASUREMENT_OVERLAPPOWERSUMS_H
#define HARVANE_MEASUREMENT_OVERLAPPOWERSUMS_H

#include <memory>

namespace harvane {

// The mean squares of the windows that an OverlapBlockBuffer cuts, without
// keeping a window: each window that is open has its own running sum of squares,
// from 0.0 and in the order of the samples, so the values are the same to the bit.
//
// Windows, positions, and when a window counts as finished: as OverlapBlockBuffer.
// Thread     one caller at a time; the callback runs inside Append and Settle.
class OverlapPowerSums {
 public:
  using WindowCallback = void (*)(float meanSquare, int channel, void* owner, int position);

  // Sums that are open at the same time where the hop divides the window by 4,
  // as it does at all rates with filters of their own.
  static constexpr int kUsualSums = 4;

  // As OverlapBlockBuffer. Throws std::bad_alloc, also where OverlapBlockBuffer could
  // not keep a window because its length is negative.
  OverlapPowerSums(int windowLength, int channel, float overlap, void* owner,
                   WindowCallback callback);
  OverlapPowerSums(const OverlapPowerSums&) = delete;
  OverlapPowerSums& operator=(const OverlapPowerSums&) = delete;

  void Append(const float* samples, int count, int position);
  void Reset();
  void Detach();

  // For whoever adds the squares himself, for several channels at once:
  // before samples are added, finishes the window that their coming finishes;
  // then at most SamplesToBorder() samples go into each of the SumCount() Sums()
  // before Skip tells of them.
  void Settle(int position);
  int SamplesToBorder() const;
  int SumCount() const { return sumCount; }
  float* Sums() { return sums.get(); }
  void Skip(int count) { fill += count; }

 private:
  bool HasWindowToBegin() const { return hopLength != 0 && begun < sumCount; }

  std::unique_ptr<float[]> sums;  // the windows take them in turn; one of no open window is noise
  int sumCount;
  int fill = 0;    // samples of the oldest open window
  int begun = 1;   // open windows; the oldest began at fill 0, each other a hop later
  int oldest = 0;  // its sum
  int windowLength;
  int channel;
  int hopLength;
  void* owner;
  WindowCallback callback;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_OVERLAPPOWERSUMS_H
