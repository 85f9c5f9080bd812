#ifndef HARVANE_NORMALISATION_GAINDECISION_H
#define HARVANE_NORMALISATION_GAINDECISION_H

#include "measurement/TrackMeasurement.h"

namespace harvane {

// What a job aims at. Taken as it stands: no value is checked or clamped.
struct NormalisationTargets {
  int normalisationMode;    // 0: integrated loudness; any other: maximum short-term loudness
  float loudness;           // LUFS, read in mode 0
  float shortTermLoudness;  // LUFS, read in the other mode
  float maxTruePeak;        // dBTP
};

// What the second pass does to one track.
struct GainDecision {
  float gainDb;
  float headroomDb;  // what is left under `maxTruePeak` after the gain
  float linearGain;
  bool limiterNeeded;
};

// From the measurement of the first pass. Every step is rounded to single
// precision. A measurement that is not a number fails both tests: its gain
// stays as it is and no limiter is set.
//
// Deliberate: in mode 0 the gain has no limit, so silence, which stands at
// -70.0, is raised by 47 dB at a target of -23; in the other mode a track is
// only ever lowered. The gain is never reduced to fit the peak.
GainDecision DecideGain(const TrackMeasurement& measured, const NormalisationTargets& targets);

// Threshold of the limiter in dB for a target in dBTP: 0.2 dB under it.
float LimiterThreshold(float maxTruePeak);

}  // namespace harvane

#endif  // HARVANE_NORMALISATION_GAINDECISION_H
