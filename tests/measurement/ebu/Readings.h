#ifndef HARVANE_TESTS_MEASUREMENT_EBU_READINGS_H
#define HARVANE_TESTS_MEASUREMENT_EBU_READINGS_H

#include <functional>
#include <vector>

#include "tests/measurement/ebu/EbuSounds.h"

namespace ebu {

struct Maxima {
  float momentary;
  float shortTerm;
};

// What a meter shows of one sound. Loudness: LUFS. Range: LU. Peak: dBTP. A level not yet measured
// is -70 or less.
struct Readings {
  float integrated = 0.0F;
  float range = 0.0F;
  float truePeak = 0.0F;
  Maxima maxima = {};            // at the end
  std::vector<Maxima> course;    // so far, after each kLookFrames frames
  std::vector<float> momentary;  // of all whole windows that were looked at, in order
  std::vector<float> shortTerm;
};

inline constexpr std::size_t kLookFrames = kRate / 100;

using Meter = std::function<Readings(const Sound&)>;

// The module linked into this program: a first pass through its exports.
Readings MeasuredByModule(const Sound& sound);

// The slow twin, as the module is or with its maxima looking at windows every 10 ms and 100 ms.
Readings MeasuredByTwin(const Sound& sound);
Readings MeasuredByTwinWithCloseMaxima(const Sound& sound);

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_READINGS_H
