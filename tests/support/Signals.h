// Test signals, the same bits on every platform.
//
// Only integer arithmetic and +, -, *, / and rounding of doubles are used, never a library sine,
// power or distribution. Build with -msse2 -mfpmath=sse -ffp-contract=off, or the bits of the
// sines are the platform's.
//
// Units      16-bit signals: steps, -32768 to 32767. Float signals: full scale 1.0.
//            Lengths, periods and gaps: samples of one channel; frames where channels are
//            interleaved. Amplitudes are peaks and linear.
// Seeds      any 64-bit value; equal seeds give equal signals, and a longer signal begins with
//            the shorter one of the same seed.
// Thread     pure functions; a NoiseSource has one caller at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace support {

// Uniform pseudo-random numbers, period 2^64.
class NoiseSource {
 public:
  explicit NoiseSource(std::uint64_t seed);

  // 32 bits, uniform.
  std::uint32_t NextBits();
  // From 0 to `limit`-1; `limit` above 0.
  std::uint32_t NextBelow(std::uint32_t limit);
  // From -1.0 up to but not 1.0, in steps of 2^-31.
  double NextBipolar();

 private:
  std::uint64_t state;
};

// ---- 16 bits

// Uniform white noise from -amplitude to amplitude; amplitude 0 to 32767.
std::vector<std::int16_t> NoiseInt16(std::uint64_t seed, std::size_t count, int amplitude);

// Nearest step, halves upwards, clamped to the range; 1.0 is 32767.
std::vector<std::int16_t> ToInt16(const std::vector<float>& signal);

// Divided by 32767.
std::vector<float> ToFloat(const std::vector<std::int16_t>& signal);

// ---- float

std::vector<float> NoiseFloat(std::uint64_t seed, std::size_t count, float amplitude);

// `frequency` and `sampleRate` in Hz, frequency from 0 to half the rate; `phase` in turns, from
// 0 to 1, 0 beginning at 0.0 and rising. After a million samples the amplitude is off by about
// 1e-10 of itself.
std::vector<float> Sine(double frequency, int sampleRate, float amplitude, double phase,
                        std::size_t count);

// `halfPeriod` samples of +amplitude, as many of -amplitude, and so on; halfPeriod above 0.
std::vector<float> Square(std::size_t halfPeriod, float amplitude, std::size_t count);

// One sample of `amplitude` at `first` and at every `spacing` after it, the rest 0.0; spacing 0
// gives one impulse.
std::vector<float> Impulses(std::size_t first, std::size_t spacing, float amplitude,
                            std::size_t count);

// 0, 1, 2 ... times `step`.
std::vector<float> Ramp(float step, std::size_t count);

// Noise that takes each amplitude in turn for `samplesPerLevel` samples.
std::vector<float> LevelSteps(std::uint64_t seed, const std::vector<float>& amplitudes,
                              std::size_t samplesPerLevel);

// The signal with 0.0 in place of `gap` samples after each `sound` samples; sound + gap above 0.
std::vector<float> WithSilenceGaps(std::vector<float> signal, std::size_t sound, std::size_t gap);

// Values at which arithmetic turns: zeros of both signs, denormals, the smallest and largest
// normal numbers, full scale and just past it, infinities and, last, a quiet NaN.
std::vector<float> SpecialFloats();

// ---- channels

// Frames of all channels side by side; the channels have equal lengths.
std::vector<std::int16_t> Interleave(const std::vector<std::vector<std::int16_t>>& channels);

// Programme-like material, interleaved: noise whose level changes at random every 0.1 s to
// 1.5 s. The levels lie around a loudness of -70 LUFS, around 10 and 20 LU below the loud parts,
// at usual programme level and at digital silence; among them stand short bursts of full-scale
// square wave and of the most negative sample. Channels share the levels, not the noise.
std::vector<std::int16_t> Programme(std::uint64_t seed, int sampleRate, int channels,
                                    std::size_t frames);

}  // namespace support
