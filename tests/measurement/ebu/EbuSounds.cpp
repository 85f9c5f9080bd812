#include "tests/measurement/ebu/EbuSounds.h"

#include <cmath>

#include "tests/support/Signals.h"

namespace ebu {
namespace {

constexpr double kToneHz = 1000.0;
constexpr double kPi = 3.14159265358979323846;

float AmplitudeOf(double level) { return static_cast<float>(std::pow(10.0, level / 20.0)); }

std::size_t FramesOf(double seconds) {
  return static_cast<std::size_t>(std::lround(seconds * kRate));
}

std::vector<std::int16_t> SteppedTones(const std::vector<Tone>& tones) {
  std::vector<std::int16_t> channel;
  for (const Tone& tone : tones) {
    const std::vector<std::int16_t> steps = support::ToInt16(
        support::Sine(kToneHz, kRate, AmplitudeOf(tone.level), 0.0, FramesOf(tone.seconds)));
    channel.insert(channel.end(), steps.begin(), steps.end());
  }
  return channel;
}

Sound StereoOf(const std::vector<std::int16_t>& channel) {
  return {2, support::Interleave({channel, channel})};
}

// Linear, over `length` samples at each end.
void Fade(std::size_t length, std::vector<float>* signal) {
  for (std::size_t i = 0; i < length; ++i) {
    const double gain = double(i) / double(length);
    float& atStart = (*signal)[i];
    float& atEnd = (*signal)[signal->size() - 1 - i];
    atStart = static_cast<float>(double(atStart) * gain);
    atEnd = static_cast<float>(double(atEnd) * gain);
  }
}

// `cutoff` in cycles a sample; an odd number of taps, their sum 1.
std::vector<double> LowPass(std::size_t tapCount, double cutoff) {
  const double middle = double(tapCount - 1) / 2.0;
  std::vector<double> taps;
  double sum = 0.0;
  for (std::size_t i = 0; i < tapCount; ++i) {
    const double x = 2.0 * kPi * cutoff * (double(i) - middle);
    const double sinc = x == 0.0 ? 1.0 : std::sin(x) / x;
    const double turn = 2.0 * kPi * double(i) / double(tapCount - 1);
    taps.push_back(sinc * (0.42 - 0.5 * std::cos(turn) + 0.08 * std::cos(2.0 * turn)));
    sum += taps.back();
  }
  for (double& tap : taps) tap /= sum;
  return taps;
}

}  // namespace

Sound StereoTones(const std::vector<Tone>& tones) { return StereoOf(SteppedTones(tones)); }

Sound SurroundTone(double seconds, double frontLevel, double centreLevel, double surroundLevel) {
  const auto front = SteppedTones({{seconds, frontLevel}});
  const auto centre = SteppedTones({{seconds, centreLevel}});
  const auto silence = SteppedTones({{seconds, kSilence}});
  const auto surround = SteppedTones({{seconds, surroundLevel}});
  return {6, support::Interleave({front, front, centre, silence, surround, surround})};
}

Sound PeakTone(int divisor, double amplitude, double phase) {
  std::vector<float> tone = support::Sine(double(kRate) / divisor, kRate,
                                          static_cast<float>(amplitude), phase / 360.0, kRate / 2);
  Fade(kRate / 100, &tone);
  return StereoOf(support::ToInt16(tone));
}

Sound PeakBurst(std::size_t offset) {
  constexpr int kHighRate = 4 * kRate;
  constexpr std::size_t kSidePeriods = 800;  // 0.1 s
  constexpr std::size_t kSidePeriod = 24;
  constexpr std::size_t kBurstPeriod = 16;
  constexpr std::size_t kTaps = 511;
  constexpr double kCutoff = 22900.0;  // Hz

  const std::vector<float> side =
      support::Sine(kRate / 6.0, kHighRate, 0.5F, 0.0, kSidePeriods * kSidePeriod);
  const std::vector<float> burst = support::Sine(kRate / 4.0, kHighRate, 1.0F, 0.0, kBurstPeriod);
  std::vector<float> high = side;
  high.insert(high.end(), burst.begin(), burst.end());
  high.insert(high.end(), side.begin(), side.end());
  Fade(kHighRate / 100, &high);
  // Silence around it, for the filter's middle to begin at the first sample.
  high.insert(high.begin(), kTaps / 2, 0.0F);
  high.insert(high.end(), kTaps / 2, 0.0F);

  const std::vector<double> taps = LowPass(kTaps, kCutoff / kHighRate);
  std::vector<float> low;
  for (std::size_t first = offset; first + kTaps <= high.size(); first += 4) {
    double sum = 0.0;
    for (std::size_t k = 0; k < kTaps; ++k) sum += taps[k] * double(high[first + k]);
    low.push_back(static_cast<float>(sum));
  }
  return StereoOf(support::ToInt16(low));
}

}  // namespace ebu
