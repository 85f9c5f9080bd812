#ifndef HARVANE_MEASUREMENT_TRUEPEAKMETER_H
#define HARVANE_MEASUREMENT_TRUEPEAKMETER_H

#include "measurement/PolyphaseBank.h"
#include "platform/CheckedList.h"

namespace harvane {

class SampleHistory;

// Oversampling for the true peak of one track (ITU-R BS.1770, Annex 2).
//
// Fourfold at 44100 and 48000 Hz, twofold at 88200 and 96000 Hz, none at 176400
// and 192000 Hz. Holds the filter bank of the rate and one history of samples
// per channel. The histories are never cleared.
//
// Thread     one caller at a time.
//
// Deliberate: twofold oversampling takes phases 1 and 3 of the published four,
// a quarter of a sample off the points of a plain interpolator. At 176400 and
// 192000 Hz one sample of each chunk, the first, stands for its peak, with its
// sign. Tests: DoubleRateUsesPhasesOneAndThree, QuadRateLooksAtTheFirstSampleOnly.
class TruePeakMeter {
 public:
  TruePeakMeter() = default;
  ~TruePeakMeter();
  TruePeakMeter(const TruePeakMeter&) = delete;
  TruePeakMeter& operator=(const TruePeakMeter&) = delete;

  // Once, before any measuring. An unknown `sampleRate` (Hz) is treated as
  // class "normal", fourfold. Throws std::bad_alloc.
  void Init(int sampleRate, int channelCount);

  // Interpolated values for each sample: 4, 2, or 0 where samples are not
  // interpolated.
  int GetPhases() const { return phases; }
  // Null where GetPhases() is 0. Constant data, valid for ever.
  const PolyphaseBank* GetBank() const { return bank; }
  // Owned by the meter. An unknown `channel` ends the process.
  SampleHistory* GetHistory(int channel) const;

  // The peak of `n` >= 1 further samples of a channel in dBTP, as MeasureTruePeak
  // gives it, or -inf where it cannot be above all peaks since StartOver: what is
  // kept of a pass is the first of the largest. `scratch` takes n + 11 values.
  float MeasureChunk(int channel, const float* chunk, int n, float* scratch);

  // Forgets the peaks, not the histories.
  void StartOver() { largest = 0.0F; }

  const char* ClassName() const { return className; }
  int RateClass() const { return rateClass; }
  int Oversampling() const { return oversampling; }

 private:
  int channelCount = 0;
  int sampleRate = 0;
  char className[20] = "normal";
  int rateClass = 0;
  int phases = 0;
  int oversampling = 1;                   // for information; nothing reads it
  CheckedList<SampleHistory*> histories;  // owned, one per channel
  const PolyphaseBank* bank = nullptr;
  float largest = 0.0F;  // magnitude
};

inline constexpr int kTruePeakTaps = 12;

// Peak of one chunk of `n` samples of a channel in dBTP, unweighted samples in,
// full scale 1.0. `scratch` takes n values times the phases, at least n. Runs
// the channel's history on. -inf for silence; NaN for a negative first sample
// where samples are not interpolated. Throws std::bad_alloc.
float MeasureTruePeak(const TruePeakMeter& meter, int channel, const float* chunk, int n,
                      float* scratch);

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_TRUEPEAKMETER_H
