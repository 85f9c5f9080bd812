#ifndef HARVANE_MEASUREMENT_LOUDNESSMETER_H
#define HARVANE_MEASUREMENT_LOUDNESSMETER_H

#include "measurement/GatedSeries.h"
#include "measurement/KWeighting.h"
#include "measurement/OverlapPowerSums.h"
#include "platform/CheckedList.h"

namespace harvane {

// Where a meter hands its values over, from inside the feeding call. A null
// entry is not called. Value in LUFS (onRange: LU); position in frames since
// the start of the pass (onIntegrated, onRange: without meaning).
struct MeterCallbacks {
  void (*onMomentary)(float value, int position, int trackIndex, void* context);
  void (*onShortTerm)(float value, int position, int trackIndex, void* context);
  void (*onIntegrated)(float value, int position, int trackIndex, void* context);
  void (*onRange)(float value, int position, int trackIndex, void* context);
  void (*onRecentRange)(float low, float high, void* context);
};

// Loudness of one track, from K-weighted samples (ITU-R BS.1770, EBU R128).
//
// Cuts each channel into windows of 0.4 s and 3 s that overlap by three
// quarters. When a window of every channel is complete, the weighted channel
// powers are summed and the track's loudness goes out through MeterCallbacks.
// Nothing is kept for later: whoever wants a value listens.
//
// Units      samples: full scale 1.0. Loudness: LUFS. Range: LU.
//            Positions: frames since the start of the pass.
// Rounding   sums are single precision and rounded after every addition, in
//            order of arrival. A different order is a different result.
// Silence    is -inf LUFS: it passes no gate and enters no maximum.
// Thread     one caller at a time; no locks; callbacks run inside Feed calls.
//
// The meter owns the K-weighting states of its channels; the caller filters
// each run of samples before feeding it. The states are never cleared.
//
// Deliberate: the newest accepted block enters the mean twice, and a window
// left unfinished at the end is dropped. Momentary and short-term values come
// from these windows only, every 0.1 s and 0.75 s, so maxima miss what lies
// between two. Tests: NewestBlockCountsTwice, UnfinishedWindowIsNeverMeasured,
// and case 10 and 13 of the EBU signals.
class LoudnessMeter {
 public:
  enum Mode : int { kMaximaOnly = 0, kGated = 1 };

  // `context` is handed back in every callback and must outlive the meter.
  LoudnessMeter(MeterCallbacks callbacks, int trackIndex, void* context);
  ~LoudnessMeter();
  LoudnessMeter(const LoudnessMeter&) = delete;
  LoudnessMeter& operator=(const LoudnessMeter&) = delete;

  // Once, before any feeding. An unknown `sampleRate` (Hz) gets the filters of
  // 48000, with windows of its own length. Throws std::bad_alloc, also at a rate
  // whose windows have no length in an int: below 0, and from 715827862 on.
  void Init(int sampleRate, int channelCount);

  // Takes `count` samples of one channel; `samples` may be reused on return.
  // `channel` counts within the track; from `channelCount` up it is ignored.
  void FeedMomentary(int channel, const float* samples, int count, int position);
  void FeedShortTerm(int channel, const float* samples, int count, int position);

  // Forgets the accepted blocks of both gated series, and nothing else.
  void ClearSeries();

  // kGated: the gated series are built; kMaximaOnly: only the window values and
  // the recent range. A change drops what every window has gathered.
  void SetMode(int mode);

  StageCoefficients GetFirstStageCoefficients() const;
  StageCoefficients GetSecondStageCoefficients() const;
  const KWeightingCoefficients& Coefficients() const { return *coefficients; }
  // The states are shared, not copied. `channel` must be below `channelCount`:
  // anything else ends the process.
  BiquadState GetFirstStageState(int channel) const {
    return firstStageStates[static_cast<std::size_t>(channel)];
  }
  BiquadState GetSecondStageState(int channel) const {
    return secondStageStates[static_cast<std::size_t>(channel)];
  }

  // Windows of one channel, for whoever feeds several channels at once.
  OverlapPowerSums& MomentaryWindows(int channel) const {
    return *momentaryGatherers[static_cast<std::size_t>(channel)];
  }
  OverlapPowerSums& ShortTermWindows(int channel) const {
    return *shortTermGatherers[static_cast<std::size_t>(channel)];
  }

  const GatedSeries& IntegratedSeries() const { return integratedSeries; }
  const GatedSeries& RangeSeries() const { return rangeSeries; }
  const RecentRange& Recent() const { return recentRange; }

 private:
  static void OnMomentaryWindow(float meanSquare, int channel, void* owner, int position);
  static void OnShortTermWindow(float meanSquare, int channel, void* owner, int position);
  void AddMomentaryValue(float v, int position);
  void AddShortTermValue(float v, int position);
  void FinishMomentaryBlock();
  void FinishShortTermBlock();
  void UpdateIntegrated();
  void UpdateLoudnessRange();
  void UpdateRecentRange();

  int channelCount = 0;
  int sampleRate = 0;
  int mode = kMaximaOnly;
  int trackIndex;
  CheckedList<OverlapPowerSums*> momentaryGatherers;  // owned, one per channel
  CheckedList<OverlapPowerSums*> shortTermGatherers;  // owned, one per channel
  CheckedList<MeterValue> momentaryChannelValues;     // weighted powers of the present block
  CheckedList<MeterValue> shortTermChannelValues;
  CheckedList<BiquadState> firstStageStates;  // histories owned, one pair per channel
  CheckedList<BiquadState> secondStageStates;
  GatedSeries integratedSeries;
  GatedSeries rangeSeries;
  RecentRange recentRange;
  float momentaryLoudness = 0.0F;
  int momentaryPosition = 0;
  float shortTermLoudness = 0.0F;
  int shortTermPosition = 0;
  float integratedLoudness = 0.0F;
  int integratedPosition = 0;  // nothing sets it
  float loudnessRange = 0.0F;
  int loudnessRangePosition = 0;  // nothing sets it
  float recentLow = 0.0F;
  float recentHigh = 0.0F;
  int momentaryGathered = 0;
  int shortTermGathered = 0;
  MeterCallbacks callbacks;
  void* context;
  const KWeightingCoefficients* coefficients;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_LOUDNESSMETER_H
