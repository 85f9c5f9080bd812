#ifndef HARVANE_MEASUREMENT_OVERLAPBLOCKBUFFER_H
#define HARVANE_MEASUREMENT_OVERLAPBLOCKBUFFER_H

#include <memory>

namespace harvane {

// Cuts one channel's stream of samples into windows of a fixed length that
// overlap, and hands each finished window to a callback.
//
// Positions  frames since the start of the pass. A window is reported with the
//            position of the append that went past its end, which lies up to
//            one append beyond the window's last sample.
// Thread     one caller at a time; the callback runs inside Append.
//
// Deliberate: an append that fills the window to the last sample does not
// finish it; the next append that brings a sample does. A window that is never
// finished is never handed over. Tests: FullWindowWaitsForTheNextAppend,
// ResetDropsAFullWindow.
class OverlapBlockBuffer {
 public:
  // `block` points into the buffer and is valid during the call only. The
  // result is ignored.
  using BlockCallback = float (*)(const float* block, int blockLength, int channel, void* owner,
                                  int position);

  // `windowLength` in samples; `overlap` from 0.0 (windows side by side) to
  // below 1.0. `sampleRate` is not used. `channel` and `owner` go to the
  // callback, which may be null. Throws std::bad_alloc.
  OverlapBlockBuffer(int windowLength, int sampleRate, int channel, float overlap, void* owner,
                     BlockCallback callback);
  OverlapBlockBuffer(const OverlapBlockBuffer&) = delete;
  OverlapBlockBuffer& operator=(const OverlapBlockBuffer&) = delete;

  // Takes `count` samples; finishes as many windows as they allow, all with
  // the same `position`. `samples` may be reused on return.
  void Append(const float* samples, int count, int position);

  // Drops what has been gathered, the overlapping tail included.
  void Reset();

  // From here on nobody is called back.
  void Detach();

  // Samples by which one window begins after the one before; 0 for no overlap.
  int HopLength() const { return hopLength; }

 private:
  void Shift();

  int appendsSinceBlock = 0;  // kept up to date for a debugger; nothing reads it
  std::unique_ptr<float[]> buffer;
  int fill = 0;
  int windowLength;
  int channel;
  int hopLength;
  int lastPosition = 0;
  void* owner;
  BlockCallback callback;
};

// Samples by which windows of `windowLength` follow each other; 0 for no overlap.
int HopLengthFor(int windowLength, float overlap);

// Samples in a window of `seconds` at `sampleRate` (Hz). `seconds` is single
// precision: 0.4F at 48000 is 19200.
int WindowLength(int sampleRate, float seconds);

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_OVERLAPBLOCKBUFFER_H
