#ifndef HARVANE_TESTS_MEASUREMENT_RANDOMSAMPLES_H
#define HARVANE_TESTS_MEASUREMENT_RANDOMSAMPLES_H

#include <cstddef>
#include <vector>

#include "tests/support/Signals.h"

namespace measurement_tests {

// From `low` to `high`, both included.
int RandomInt(support::NoiseSource* noise, int low, int high);

// True once in `chances`.
bool OneIn(support::NoiseSource* noise, int chances);

// Any of the 2^32 bit patterns.
float RandomBits(support::NoiseSource* noise);

// A run of samples of one kind, drawn at random: silence, noise at a level from full scale down to
// under -70 dB, full-scale steps, denormals, noise with -0.0 in it, and noise with infinities,
// NaN and the largest numbers, which is drawn only where `special` is set.
std::vector<float> RandomRun(support::NoiseSource* noise, std::size_t length, bool special);

// Mostly 0, 1, odd, and around multiples of four; at most `longest`.
std::size_t RandomLength(support::NoiseSource* noise, int longest);

}  // namespace measurement_tests

#endif  // HARVANE_TESTS_MEASUREMENT_RANDOMSAMPLES_H
