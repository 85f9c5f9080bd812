#ifndef HARVANE_MEASUREMENT_TRACKMEASUREMENT_H
#define HARVANE_MEASUREMENT_TRACKMEASUREMENT_H

namespace harvane {

inline constexpr float kNotMeasured = -70.0F;

// What was measured of one track in one pass. Loudness in LUFS, range in LU,
// peak in dBTP, positions in frames since the start of the pass. A new one is
// reset; -70.0 stands for a level that was not measured.
struct TrackMeasurement {
  float maxMomentary = kNotMeasured;
  int maxMomentaryPosition = 0;
  float maxShortTerm = kNotMeasured;
  int maxShortTermPosition = 0;
  float integratedLoudness = kNotMeasured;
  float loudnessRange = kNotMeasured;
  float maxTruePeak = kNotMeasured;
  int maxTruePeakPosition = 0;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_TRACKMEASUREMENT_H
