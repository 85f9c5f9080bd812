#include "tests/measurement/ebu/PeerReadings.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace ebu {
namespace {

constexpr std::size_t kMomentaryFrames = kRate * 2 / 5;
constexpr std::size_t kShortTermFrames = kRate * 3;
constexpr std::size_t kShortTermLookFrames = kRate / 10;
constexpr float kNotMeasured = -70.0F;

struct Ended {
  void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using State = std::unique_ptr<ebur128_state, Ended>;

void Require(int code) {
  if (code != EBUR128_SUCCESS) throw std::runtime_error("libebur128 refused");
}

float ValueOf(int (*measure)(ebur128_state*, double*), const State& state) {
  double value = 0.0;
  Require(measure(state.get(), &value));
  return static_cast<float>(value);
}

float TruePeakOf(const State& state) {
  double highest = 0.0;
  for (unsigned channel = 0; channel < state->channels; ++channel) {
    double peak = 0.0;
    Require(ebur128_true_peak(state.get(), channel, &peak));
    highest = std::max(highest, peak);
  }
  return static_cast<float>(20.0 * std::log10(highest));
}

}  // namespace

Readings MeasuredByPeer(const Sound& sound) {
  const State state(ebur128_init(sound.channels, kRate,
                                 EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK));
  if (!state) throw std::bad_alloc();

  Readings readings;
  readings.maxima = {kNotMeasured, kNotMeasured};
  for (std::size_t done = 0; done < sound.FrameCount();) {
    const std::size_t count = std::min(kLookFrames, sound.FrameCount() - done);
    Require(
        ebur128_add_frames_short(state.get(), sound.frames.data() + done * sound.channels, count));
    done += count;
    if (done >= kMomentaryFrames) {
      readings.momentary.push_back(ValueOf(ebur128_loudness_momentary, state));
      readings.maxima.momentary = std::max(readings.maxima.momentary, readings.momentary.back());
    }
    if (done >= kShortTermFrames && done % kShortTermLookFrames == 0) {
      readings.shortTerm.push_back(ValueOf(ebur128_loudness_shortterm, state));
      readings.maxima.shortTerm = std::max(readings.maxima.shortTerm, readings.shortTerm.back());
    }
    readings.course.push_back(readings.maxima);
  }
  readings.integrated = ValueOf(ebur128_loudness_global, state);
  readings.range = ValueOf(ebur128_loudness_range, state);
  readings.truePeak = TruePeakOf(state);
  return readings;
}

}  // namespace ebu
