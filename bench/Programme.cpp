#include "bench/Programme.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace bench {
namespace {

constexpr double kFullScale = 32767.0;

// xorshift, the high half of its state.
class Random {
 public:
  std::uint32_t Next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return static_cast<std::uint32_t>(state >> 32);
  }
  double Share() { return static_cast<double>(Next()) / 4294967296.0; }  // 0.0 up to 1.0
  double Signed() { return 2.0 * Share() - 1.0; }

 private:
  std::uint64_t state = 0x9E3779B97F4A7C15U;
};

// Second-order low pass at 5 kHz, then a first-order high pass at 60 Hz.
class Colour {
 public:
  explicit Colour(int sampleRate) {
    const double w = 2.0 * std::numbers::pi * 5000.0 / sampleRate;
    const double alpha = std::sin(w) / std::numbers::sqrt2;
    b0 = (1.0 - std::cos(w)) / 2.0 / (1.0 + alpha);
    a1 = -2.0 * std::cos(w) / (1.0 + alpha);
    a2 = (1.0 - alpha) / (1.0 + alpha);
    highPass = std::exp(-2.0 * std::numbers::pi * 60.0 / sampleRate);
  }
  double Next(double x) {
    const double y = b0 * (x + 2.0 * x1 + x2) - a1 * y1 - a2 * y2;
    const double z = y - y1 + highPass * z1;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    z1 = z;
    return z;
  }

 private:
  double b0, a1, a2, highPass;
  double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0, z1 = 0.0;
};

// The level over time.
class Envelope {
 public:
  explicit Envelope(int sampleRate)
      : rate(sampleRate), glide(std::exp(-1.0 / (0.05 * sampleRate))), nextBurst(sampleRate) {}

  double At(std::int64_t frame, Random* random) {
    if (frame == nextTarget) {
      nextTarget = frame + static_cast<std::int64_t>((2.0 + 8.0 * random->Share()) * rate);
      const bool isBelowGate = random->Next() % 12 == 0;
      const double decibels = isBelowGate ? -78.0 : -42.0 + 26.0 * random->Share();
      target = std::pow(10.0, decibels / 20.0);
    }
    if (frame == nextBurst) {
      burstEnd = frame + rate / 50;
      nextBurst = frame + rate / 2 + static_cast<std::int64_t>(5.0 * random->Share() * rate);
    }
    level = target + (level - target) * glide;
    return frame < burstEnd ? level * 2.25 : level;
  }

 private:
  int rate;
  double glide;
  double level = 0.07, target = 0.07;
  std::int64_t nextTarget = 0, nextBurst, burstEnd = 0;
};

std::int16_t ToSample(double value) {
  return static_cast<std::int16_t>(std::lrint(std::clamp(value * kFullScale, -32768.0, 32767.0)));
}

}  // namespace

std::vector<std::int16_t> Noise(int channels, int sampleRate, int seconds) {
  const std::int64_t frames = std::int64_t{sampleRate} * seconds;
  std::vector<std::int16_t> samples;
  samples.reserve(static_cast<std::size_t>(frames * channels));
  Random random;
  Envelope envelope(sampleRate);
  std::vector<Colour> colours(static_cast<std::size_t>(channels), Colour(sampleRate));
  const double unitPower = std::sqrt(3.0) * std::sqrt(sampleRate / 2.0 / 5000.0) * 0.95;
  for (std::int64_t frame = 0; frame < frames; ++frame) {
    const double gain = envelope.At(frame, &random) * unitPower;
    const double common = random.Signed();
    for (Colour& colour : colours) {
      samples.push_back(ToSample(gain * colour.Next(0.8 * random.Signed() + 0.6 * common)));
    }
  }
  return samples;
}

std::vector<std::int16_t> Tones(int channels, int sampleRate, int seconds) {
  const std::int64_t frames = std::int64_t{sampleRate} * seconds;
  std::vector<std::int16_t> samples;
  samples.reserve(static_cast<std::size_t>(frames * channels));
  for (std::int64_t frame = 0; frame < frames; ++frame) {
    for (int channel = 0; channel < channels; ++channel) {
      const double frequency = 997.0 + 101.0 * channel;
      const double turns = frequency * static_cast<double>(frame) / sampleRate;
      samples.push_back(ToSample(std::sin(2.0 * std::numbers::pi * (turns - std::floor(turns)))));
    }
  }
  return samples;
}

}  // namespace bench
