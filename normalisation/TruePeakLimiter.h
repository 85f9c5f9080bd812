#ifndef HARVANE_NORMALISATION_TRUEPEAKLIMITER_H
#define HARVANE_NORMALISATION_TRUEPEAKLIMITER_H

#include <array>
#include <cstddef>

#include "measurement/PolyphaseBank.h"
#include "platform/CheckedList.h"

namespace harvane {

inline constexpr int kLookAheadSamples = 12;
inline constexpr int kDelaySamples = 96;

// A line of exactly `kLength` samples, zeros at first: each push puts one in
// and drops the oldest. Age 0 is the newest.
template <int kLength>
class SampleLine {
 public:
  void Push(float sample) {
    newest = newest == 0 ? kLength - 1 : newest - 1;
    samples[static_cast<std::size_t>(newest)] = sample;
  }
  float OfAge(int age) const {
    const int index = newest + age;
    return samples[static_cast<std::size_t>(index < kLength ? index : index - kLength)];
  }

 private:
  std::array<float, kLength> samples{};
  int newest = 0;
};

// Keeps one track under its true-peak target: feed-forward, in dB, with look-ahead.
//
// A polyphase estimate of the gained signal's peak drives a soft-knee curve;
// the reduction follows a rise at once and falls with the release time; the
// linear gain is meant for the signal that leaves the delay line. The steps are
// offered one by one; the frame of the second pass puts them in order. All
// channels of a track share one gain: the control path uses entry 0 of the
// lists, and the lines are per channel.
//
// Units      samples and peaks: full scale 1.0. Levels, threshold, knee,
//            makeup: dB. Times: s.
// Rounding   formulas in double precision, every stored value single.
// Errors     Init throws std::bad_alloc. An index without an entry ends the
//            process, as does a peak estimate without phases.
// Thread     one caller at a time.
class TruePeakLimiter {
 public:
  // Appends zeroed state for `channelCount` channels, stores `sampleRate` (Hz)
  // and sets the defaults. Deliberate: a second call clears nothing, so entry 0
  // of each list and the first lines go on as they are.
  void Init(int channelCount, int sampleRate);

  void PushLookAhead(float sample, int channel);
  void PushDelay(float sample, int channel);

  // Largest magnitude of the `phases` values between the newest look-ahead
  // samples. With `phases` 0 there is none, and the process ends.
  float PeakEstimate(int channel, int phases, const PolyphaseBank* bank) const;

  // The sample pushed 95 pushes before the latest.
  float DelayedSample(int channel) const;

  // `n` samples of a channel at once: puts all of them into both lines. `run`
  // holds the samples from its entry kDelaySamples - 1 on, and gets the delayed
  // samples of the lines before it: so afterwards run[i] is what DelayedSample
  // gives with sample i in the lines, and the look-ahead of sample i ends there.
  void PushRun(float* run, int n, int channel);

  // The control path over `n` peaks of the track: what ToDecibels to ToLinear do
  // for each. A peak of exactly 0.0 gives 1.0 and leaves the state as it is.
  // Deliberate: so digital silence does not release the limiter.
  // Peaks above 0.0 and below KneeStart() need not be exact.
  void GainsFor(const float* peaks, int n, float* gains);

  // The smallest peak that the curve may change: any below it has a reduction of
  // exactly 0. 0.0 where that is not known.
  float KneeStart() const;

  void ToDecibels(float peak, int index);         // writes inputLevel
  void ApplyStaticCurve(float level, int index);  // writes curveOutput; not for NaN
  void TakeReduction(int index);                  // inputLevel - curveOutput
  void SmoothReduction(float reduction, int index);
  void ApplyMakeup(int index);  // writes control
  void ToLinear(int index);     // writes linearGain

  // Times in seconds; 0.0 gives a coefficient of 0.0, that is, no smoothing.
  void SetAttack(float seconds);
  void SetRelease(float seconds);
  void SetThreshold(float decibels) {
    threshold = decibels;
    kneeStart = kUnknownKneeStart;
  }
  void SetRatio(float inputPerOutput) { ratio = inputPerOutput; }
  void SetKnee(float width) {
    knee = width;
    kneeStart = kUnknownKneeStart;
  }
  void SetMakeup(float decibels) { makeup = decibels; }

  float Reduction(int index) const { return reduction[Index(index)]; }
  float InputLevel(int index) const { return inputLevel[Index(index)]; }
  float CurveOutput(int index) const { return curveOutput[Index(index)]; }
  float Smoothed(int index) const { return smoothed[Index(index)]; }
  float PeakHold(int index) const { return peakHold[Index(index)]; }
  float Control(int index) const { return control[Index(index)]; }
  float LinearGain(int index) const { return linearGain[Index(index)]; }
  float AttackCoefficient() const { return attackCoefficient; }
  float ReleaseCoefficient() const { return releaseCoefficient; }
  float Threshold() const { return threshold; }

 private:
  static std::size_t Index(int index) { return static_cast<std::size_t>(index); }
  float CoefficientFor(float seconds) const;
  float NextHold(float hold, float newReduction) const;
  float NextSmoothed(float smooth, float hold) const;
  bool IsBelowKnee(float peak) const;
  float FindKneeStart() const;

  static constexpr float kUnknownKneeStart = -1.0F;

  CheckedList<float> reduction;    // dB
  CheckedList<float> inputLevel;   // dB
  CheckedList<float> curveOutput;  // dB
  CheckedList<float> smoothed;     // dB, second smoothing stage
  CheckedList<float> peakHold;     // dB, first smoothing stage
  CheckedList<float> control;      // dB, makeup less smoothed
  CheckedList<float> linearGain;
  CheckedList<SampleLine<kLookAheadSamples>> lookAheadLines;
  CheckedList<SampleLine<kDelaySamples>> delayLines;
  int sampleRate = 0;
  float attackCoefficient = 0.0F;
  float releaseCoefficient = 0.0F;
  float threshold = 0.0F;                       // dB
  float ratio = 0.0F;                           // input dB per output dB above the knee
  float knee = 0.0F;                            // dB, full width
  float makeup = 0.0F;                          // dB
  mutable float kneeStart = kUnknownKneeStart;  // found when it is first asked for
};

}  // namespace harvane

#endif  // HARVANE_NORMALISATION_TRUEPEAKLIMITER_H
