#ifndef HARVANE_MEASUREMENT_GATEDSERIES_H
#define HARVANE_MEASUREMENT_GATEDSERIES_H

#include "measurement/KeptPowerSum.h"
#include "measurement/OrderedLoudnesses.h"
#include "platform/CheckedList.h"

namespace harvane {

inline constexpr float kAbsoluteGateLufs = -70.0F;

// A value of a block with the block's frame position.
struct MeterValue {
  float value;
  int position;
};

// Block loudnesses under two gates (ITU-R BS.1770, EBU Tech 3342): an absolute
// one at -70 LUFS, and a relative one under the power mean of what passed the
// absolute one. Both tests are strict.
//
// Rounding   every sum is rounded to single precision after each term, in the
//            order of arrival. The sums are carried on from block to block; they
//            are those that adding everything again would give.
// Memory     eight bytes for an accepted 400 ms block, twelve for a 3 s block.
class GatedSeries {
 public:
  // Integrated loudness in LUFS, relative gate 10 LU down. True when Result()
  // is new: the block passed both gates.
  //
  // Deliberate: `block` counts twice in the result of its own update, and a
  // block under the relative gate moves the gate but leaves the result as it
  // was. Tests: NewestBlockCountsTwice, BlockUnderTheRelativeGateMovesOnlyTheGate.
  bool UpdateIntegrated(float block);

  // Loudness range in LU, relative gate 20 LU down; the same two departures.
  // Deliberate: both percentile indices lie one place above the usual reading.
  bool UpdateRange(float block);

  // Forgets the accepted blocks, and nothing else.
  void Clear();

  // Blocks above the absolute gate, in order of arrival.
  const CheckedList<AcceptedLoudness>& Accepted() const { return accepted; }
  float RelativeGate() const { return relativeGate; }
  // LUFS or LU; of meaning once an update has returned true.
  float Result() const { return result; }

 private:
  bool Accept(float block, double gateOffset);

  CheckedList<AcceptedLoudness> accepted;  // nobody asks for their positions
  float acceptedSum = 0.0F;                // of their powers
  KeptPowerSum keptSum;       // of the integrated series: those above the relative gate
  OrderedLoudnesses ordered;  // of the range series: all accepted
  float absoluteGate = kAbsoluteGateLufs;
  float relativeGate = kAbsoluteGateLufs;
  float result = 0.0F;
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
