#ifndef HARVANE_MEASUREMENT_SAMPLEHISTORY_H
#define HARVANE_MEASUREMENT_SAMPLEHISTORY_H

#include <memory>

namespace harvane {

// A ring of the latest samples of one channel; starts as zeros.
//
// Copying    not allowed: filters share a history by pointer.
// Thread     one caller at a time.
class SampleHistory {
 public:
  // `length` >= 1 cells. Throws std::bad_alloc.
  explicit SampleHistory(int length);
  SampleHistory(const SampleHistory&) = delete;
  SampleHistory& operator=(const SampleHistory&) = delete;

  void Push(float v) {
    *cursor = v;
    cursor = cursor == last ? first : cursor + 1;
  }

  // Pushes `count` values in order.
  void PushRun(const float* values, int count) {
    for (int i = 0; i < count; ++i) Push(values[i]);
  }

  // Copies `count` values, the newest first. More than `length` values wrap
  // round and give old values again.
  void ReadNewestFirst(float* out, int count) const {
    const float* read = cursor;
    for (int i = 0; i < count; ++i) {
      read = read == first ? last : read - 1;
      out[i] = *read;
    }
  }

  // All values, in no order.
  const float* Values() const { return first; }

 private:
  float* last;
  float* first;
  float* cursor;  // the cell that the next value overwrites
  std::unique_ptr<float[]> storage;
  int length;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_SAMPLEHISTORY_H
