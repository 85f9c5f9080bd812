#ifndef HARVANE_MEASUREMENT_GATEDSERIES_H
#define HARVANE_MEASUREMENT_GATEDSERIES_H

#include "platform/CheckedList.h"

namespace harvane {

inline constexpr float kAbsoluteGateLufs = -70.0F;

// A loudness in LUFS with the frame position of its block.
struct MeterValue {
  float value;
  int position;
};

// Block loudnesses under two gates (ITU-R BS.1770, EBU Tech 3342): an absolute
// one at -70 LUFS, and a relative one under the power mean of what passed the
// absolute one. Both tests are strict.
//
// Rounding   every sum is rounded to single precision after each term, in the
//            order of arrival.
struct GatedSeries {
  CheckedList<MeterValue> accepted;  // above the absolute gate, in order of arrival
  CheckedList<float> kept;           // above the relative gate; rebuilt at each accepted block
  float absoluteGate = kAbsoluteGateLufs;
  float relativeGate = kAbsoluteGateLufs;
  float result = 0.0F;  // LUFS or LU; meaningful once an update has returned true

  // Integrated loudness in LUFS, relative gate 10 LU down. True when `result`
  // is new: the block passed both gates.
  //
  // Deliberate: `block` counts twice in the result of its own update, and a
  // block under the relative gate moves the gate but leaves the result as it
  // was. Tests: NewestBlockCountsTwice, BlockUnderTheRelativeGateMovesOnlyTheGate.
  bool UpdateIntegrated(MeterValue block);

  // Loudness range in LU, relative gate 20 LU down; the same two departures.
  // Deliberate: both percentile indices lie one place above the usual reading.
  bool UpdateRange(MeterValue block);

 private:
  bool Accept(MeterValue block, double gateOffset);
};

// Lowest and highest of the latest accepted short-term loudnesses.
struct RecentRange {
  CheckedList<float> ring;  // `capacity` cells, -70.0 until written
  CheckedList<float> kept;  // cells above the relative gate, ascending
  float absoluteGate = kAbsoluteGateLufs;
  float relativeGate = kAbsoluteGateLufs;
  int capacity = 0;
  float low = 0.0F;
  float high = 0.0F;
  int writeIndex = 0;  // counts up without end; the cell is this modulo `capacity`

  // Fills the ring with `cells` cells of -70.0.
  void Init(int cells);

  // True when `low` and `high` are new. The gate is the power mean of all
  // cells, also of those still at -70.0. An infinite loudness lets no cell pass
  // and leaves both as they were.
  bool Update(float shortTermLoudness);
};

// Power mean of loudnesses, as a power. NaN for an empty list.
float MeanPower(const CheckedList<float>& loudnesses);

// Zero-based indices of the low and the high end of the range among `count`
// >= 2 sorted values.
struct RangeIndices {
  int low;
  int high;
};
RangeIndices RangeIndicesFor(int count);

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_GATEDSERIES_H
