#include "tool/CrossCheck.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace harvane {
namespace {

constexpr int kModes =
    EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK;
constexpr int kSurround[] = {EBUR128_LEFT,   EBUR128_RIGHT,         EBUR128_CENTER,
                             EBUR128_UNUSED, EBUR128_LEFT_SURROUND, EBUR128_RIGHT_SURROUND};
constexpr double kMomentarySeconds = 0.4;
constexpr double kShortTermSeconds = 3.0;
constexpr int kTenths = 10;
// The library's answer for what is below it.
constexpr double kAbsoluteGate = -70.0;

void KeepMaximum(double value, double seconds, std::optional<PeakValue>* maximum) {
  if (!std::isfinite(value) || (*maximum && !(value > (*maximum)->value))) return;
  *maximum = PeakValue{value, seconds};
}

}  // namespace

void CrossCheck::Destroy::operator()(ebur128_state* one) const { ebur128_destroy(&one); }

CrossCheck::CrossCheck(std::vector<int> channels, int width, int sampleRate)
    : channels(std::move(channels)),
      width(width),
      sampleRate(sampleRate),
      tenthFrames(static_cast<std::size_t>(std::max(1, sampleRate / kTenths))),
      state(ebur128_init(static_cast<unsigned>(this->channels.size()),
                         static_cast<unsigned long>(sampleRate), kModes)) {
  if (!state) throw std::bad_alloc();
  if (this->channels.size() != std::size(kSurround)) return;
  for (unsigned k = 0; k < std::size(kSurround); ++k) {
    ebur128_set_channel(state.get(), k, kSurround[k]);
  }
}

void CrossCheck::Hear(const std::int16_t* interleaved, std::size_t frames) {
  const std::size_t full = tenthFrames * channels.size();
  for (std::size_t s = 0; s < frames; ++s, interleaved += width) {
    for (const int channel : channels) tenth.push_back(interleaved[channel]);
    if (tenth.size() == full) MeasureTenth();
  }
}

TrackValues CrossCheck::Finish() {
  if (!tenth.empty()) MeasureTenth();
  double value = 0.0;
  if (ebur128_loudness_global(state.get(), &value) == EBUR128_SUCCESS && value > kAbsoluteGate) {
    values.integratedLoudness = value;
  }
  if (values.maxShortTerm && values.maxShortTerm->value > kAbsoluteGate &&
      ebur128_loudness_range(state.get(), &value) == EBUR128_SUCCESS) {
    values.loudnessRange = value;
  }
  return values;
}

void CrossCheck::MeasureTenth() {
  const std::size_t frames = tenth.size() / channels.size();
  if (ebur128_add_frames_short(state.get(), tenth.data(), frames) != EBUR128_SUCCESS) {
    throw std::bad_alloc();
  }
  tenth.clear();
  position += static_cast<std::int64_t>(frames);
  const double seconds = static_cast<double>(position) / sampleRate;
  double value = 0.0;
  for (unsigned k = 0; k < channels.size(); ++k) {
    if (ebur128_prev_true_peak(state.get(), k, &value) != EBUR128_SUCCESS) continue;
    KeepMaximum(20.0 * std::log10(value), seconds, &values.maxTruePeak);
  }
  if (frames < tenthFrames) return;
  // Before a window is full the library takes what is missing for silence.
  constexpr double kHalfFrame = 0.5;
  const double heard = static_cast<double>(position) + kHalfFrame;
  if (heard > kMomentarySeconds * sampleRate &&
      ebur128_loudness_momentary(state.get(), &value) == EBUR128_SUCCESS) {
    KeepMaximum(value, seconds, &values.maxMomentary);
  }
  if (heard > kShortTermSeconds * sampleRate &&
      ebur128_loudness_shortterm(state.get(), &value) == EBUR128_SUCCESS) {
    KeepMaximum(value, seconds, &values.maxShortTerm);
  }
}

}  // namespace harvane
