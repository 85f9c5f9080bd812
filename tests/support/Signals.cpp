#include "tests/support/Signals.h"

#include <cmath>
#include <limits>

namespace support {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Taylor series, good to double precision from -pi to pi.
double SineOf(double angle) {
  double term = angle;
  double sum = angle;
  for (int n = 1; n <= 18; ++n) {
    term = -term * angle * angle / (double(2 * n) * double(2 * n + 1));
    sum = sum + term;
  }
  return sum;
}

double CosineOf(double angle) {
  double term = 1.0;
  double sum = 1.0;
  for (int n = 1; n <= 18; ++n) {
    term = -term * angle * angle / (double(2 * n - 1) * double(2 * n));
    sum = sum + term;
  }
  return sum;
}

std::int16_t Burst(std::size_t frame) {
  constexpr std::size_t kHalfPeriod = 3;
  return (frame / kHalfPeriod) % 2 == 0 ? std::int16_t{32767} : std::int16_t{-32768};
}

}  // namespace

// The increment is odd and the multiplier one above a multiple of four: the full period.
NoiseSource::NoiseSource(std::uint64_t seed) : state(seed ^ 0x9e3779b97f4a7c15ULL) {
  for (int i = 0; i < 4; ++i) NextBits();
}

std::uint32_t NoiseSource::NextBits() {
  state = state * 6364136223846793005ULL + 1442695040888963407ULL;
  std::uint64_t mixed = state;
  mixed ^= mixed >> 33;
  mixed *= 0xff51afd7ed558ccdULL;
  mixed ^= mixed >> 33;
  return static_cast<std::uint32_t>(mixed >> 32);
}

std::uint32_t NoiseSource::NextBelow(std::uint32_t limit) {
  return static_cast<std::uint32_t>((std::uint64_t{NextBits()} * limit) >> 32);
}

double NoiseSource::NextBipolar() { return double(NextBits()) / 2147483648.0 - 1.0; }

std::vector<std::int16_t> NoiseInt16(std::uint64_t seed, std::size_t count, int amplitude) {
  NoiseSource noise(seed);
  std::vector<std::int16_t> signal;
  for (std::size_t i = 0; i < count; ++i) {
    const int value =
        static_cast<int>(noise.NextBelow(static_cast<std::uint32_t>(2 * amplitude + 1)));
    signal.push_back(static_cast<std::int16_t>(value - amplitude));
  }
  return signal;
}

std::vector<std::int16_t> ToInt16(const std::vector<float>& signal) {
  std::vector<std::int16_t> steps;
  for (float sample : signal) {
    double value = std::floor(double(sample) * 32767.0 + 0.5);
    if (value < -32768.0) value = -32768.0;
    if (value > 32767.0) value = 32767.0;
    steps.push_back(static_cast<std::int16_t>(value));
  }
  return steps;
}

std::vector<float> ToFloat(const std::vector<std::int16_t>& signal) {
  std::vector<float> samples;
  for (std::int16_t sample : signal) {
    samples.push_back(static_cast<float>(double(sample) / 32767.0));
  }
  return samples;
}

std::vector<float> NoiseFloat(std::uint64_t seed, std::size_t count, float amplitude) {
  NoiseSource noise(seed);
  std::vector<float> signal;
  for (std::size_t i = 0; i < count; ++i) {
    signal.push_back(static_cast<float>(noise.NextBipolar() * double(amplitude)));
  }
  return signal;
}

std::vector<float> Sine(double frequency, int sampleRate, float amplitude, double phase,
                        std::size_t count) {
  const double step = 2.0 * kPi * frequency / double(sampleRate);
  const double start = 2.0 * kPi * (phase > 0.5 ? phase - 1.0 : phase);
  const double stepSine = SineOf(step);
  const double stepCosine = CosineOf(step);
  double sine = SineOf(start);
  double cosine = CosineOf(start);
  std::vector<float> signal;
  for (std::size_t i = 0; i < count; ++i) {
    signal.push_back(static_cast<float>(double(amplitude) * sine));
    const double nextSine = sine * stepCosine + cosine * stepSine;
    cosine = cosine * stepCosine - sine * stepSine;
    sine = nextSine;
  }
  return signal;
}

std::vector<float> Square(std::size_t halfPeriod, float amplitude, std::size_t count) {
  std::vector<float> signal;
  for (std::size_t i = 0; i < count; ++i) {
    signal.push_back((i / halfPeriod) % 2 == 0 ? amplitude : -amplitude);
  }
  return signal;
}

std::vector<float> Impulses(std::size_t first, std::size_t spacing, float amplitude,
                            std::size_t count) {
  std::vector<float> signal(count, 0.0f);
  for (std::size_t i = first; i < count; i += spacing) {
    signal[i] = amplitude;
    if (spacing == 0) break;
  }
  return signal;
}

std::vector<float> Ramp(float step, std::size_t count) {
  std::vector<float> signal;
  for (std::size_t i = 0; i < count; ++i) {
    signal.push_back(static_cast<float>(double(i) * double(step)));
  }
  return signal;
}

std::vector<float> LevelSteps(std::uint64_t seed, const std::vector<float>& amplitudes,
                              std::size_t samplesPerLevel) {
  NoiseSource noise(seed);
  std::vector<float> signal;
  for (float amplitude : amplitudes) {
    for (std::size_t i = 0; i < samplesPerLevel; ++i) {
      signal.push_back(static_cast<float>(noise.NextBipolar() * double(amplitude)));
    }
  }
  return signal;
}

std::vector<float> WithSilenceGaps(std::vector<float> signal, std::size_t sound, std::size_t gap) {
  for (std::size_t i = 0; i < signal.size(); ++i) {
    if (i % (sound + gap) >= sound) signal[i] = 0.0f;
  }
  return signal;
}

std::vector<float> SpecialFloats() {
  using Limits = std::numeric_limits<float>;
  return {0.0f,
          -0.0f,
          Limits::denorm_min(),
          -Limits::denorm_min(),
          Limits::min() / 2.0f,
          Limits::min(),
          -Limits::min(),
          Limits::max(),
          -Limits::max(),
          1.0f,
          -1.0f,
          1.0f - Limits::epsilon() / 2.0f,
          -1.000030517578125f,
          Limits::infinity(),
          -Limits::infinity(),
          Limits::quiet_NaN()};
}

std::vector<std::int16_t> Interleave(const std::vector<std::vector<std::int16_t>>& channels) {
  std::vector<std::int16_t> frames;
  for (std::size_t i = 0; !channels.empty() && i < channels[0].size(); ++i) {
    for (const std::vector<std::int16_t>& channel : channels) frames.push_back(channel.at(i));
  }
  return frames;
}

std::vector<std::int16_t> Programme(std::uint64_t seed, int sampleRate, int channels,
                                    std::size_t frames) {
  // Peak amplitudes of uniform noise: 8 to 12 steps are about -70 LUFS in one and two channels.
  static const int kAmplitudes[] = {6000, 12000, 3500, 1800, 600, 12, 9, 8, 0, 9000, 28000, 1100};
  constexpr std::uint32_t kLevels = sizeof kAmplitudes / sizeof kAmplitudes[0];
  constexpr std::uint32_t kBurst = kLevels;

  NoiseSource noise(seed);
  const std::uint32_t tenth = static_cast<std::uint32_t>(sampleRate / 10);
  std::vector<std::int16_t> signal;
  std::uint32_t level = 0;
  std::uint32_t left = 0;
  for (std::size_t i = 0; i < frames; ++i) {
    if (left == 0) {
      level = noise.NextBelow(kLevels + 1);
      left = level == kBurst ? 1 + noise.NextBelow(tenth / 4 + 1)
                             : 1 + tenth + noise.NextBelow(14 * tenth + 1);
    }
    --left;
    for (int c = 0; c < channels; ++c) {
      if (level == kBurst) {
        signal.push_back(Burst(i));
        continue;
      }
      const int amplitude = kAmplitudes[level];
      const int value =
          static_cast<int>(noise.NextBelow(static_cast<std::uint32_t>(2 * amplitude + 1)));
      signal.push_back(static_cast<std::int16_t>(value - amplitude));
    }
  }
  return signal;
}

}  // namespace support
