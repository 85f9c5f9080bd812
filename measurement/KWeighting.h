#ifndef HARVANE_MEASUREMENT_KWEIGHTING_H
#define HARVANE_MEASUREMENT_KWEIGHTING_H

namespace harvane {

class SampleHistory;

// The two second-order stages of K-weighting (ITU-R BS.1770, Annex 1): a high
// shelf, then a high pass. A holds a0, a1, a2, with a0 = 1.0 and never read; B
// holds b0, b1, b2. y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2.
struct KWeightingCoefficients {
  float firstStageA[3];
  float firstStageB[3];
  float secondStageA[3];
  float secondStageB[3];
};

// One stage of K-weighting, as the meter hands it out.
struct StageCoefficients {
  float a[3];
  float b[3];
};

// Memory of one stage of one channel. Refers to the histories, which belong to
// the meter: a copy shares them.
struct BiquadState {
  SampleHistory* xHistory;
  SampleHistory* yHistory;
  int xLength;
  int yLength;
};

inline constexpr int kBiquadInputs = 3;   // x, x1, x2
inline constexpr int kBiquadOutputs = 2;  // y1, y2

// The row for exactly `sampleRate` (Hz): 44100, 48000, 88200, 96000, 176400 or
// 192000. The row of 48000 is the published table rounded to single precision.
// Deliberate: any other rate gets the row of 48000, with no warning.
const KWeightingCoefficients& KWeightingFor(int sampleRate);

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_KWEIGHTING_H
