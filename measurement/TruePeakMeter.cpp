#include "measurement/TruePeakMeter.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "measurement/ChunkKernels.h"
#include "measurement/SampleHistory.h"
#include "measurement/SampleMath.h"

namespace harvane {
namespace {

// ITU-R BS.1770, Annex 2: the 48-tap interpolating filter as four phases. All
// values are exact in single precision; phases 2 and 3 mirror 1 and 0.
constexpr float kPhase0[kTruePeakTaps] = {0.001708984375F,  0.010986328125F,   -0.0196533203125F,
                                          0.033203125F,     -0.0594482421875F, 0.1373291015625F,
                                          0.97216796875F,   -0.102294921875F,  0.047607421875F,
                                          -0.026611328125F, 0.014892578125F,   -0.00830078125F};
constexpr float kPhase1[kTruePeakTaps] = {-0.0291748046875F, 0.029296875F,      -0.0517578125F,
                                          0.089111328125F,   -0.16650390625F,   0.465087890625F,
                                          0.77978515625F,    -0.2003173828125F, 0.1015625F,
                                          -0.0582275390625F, 0.0330810546875F,  -0.0189208984375F};
constexpr float kPhase2[kTruePeakTaps] = {-0.0189208984375F, 0.0330810546875F,  -0.0582275390625F,
                                          0.1015625F,        -0.2003173828125F, 0.77978515625F,
                                          0.465087890625F,   -0.16650390625F,   0.089111328125F,
                                          -0.0517578125F,    0.029296875F,      -0.0291748046875F};
constexpr float kPhase3[kTruePeakTaps] = {-0.00830078125F,   0.014892578125F,   -0.026611328125F,
                                          0.047607421875F,   -0.102294921875F,  0.97216796875F,
                                          0.1373291015625F,  -0.0594482421875F, 0.033203125F,
                                          -0.0196533203125F, 0.010986328125F,   0.001708984375F};

constexpr PolyphaseBranch kFourBranches[] = {{kPhase0, kTruePeakTaps},
                                             {kPhase1, kTruePeakTaps},
                                             {kPhase2, kTruePeakTaps},
                                             {kPhase3, kTruePeakTaps}};
constexpr PolyphaseBranch kTwoBranches[] = {{kPhase1, kTruePeakTaps}, {kPhase3, kTruePeakTaps}};
constexpr PolyphaseBank kFourPhaseBank = {kFourBranches, 4};
constexpr PolyphaseBank kTwoPhaseBank = {kTwoBranches, 2};

struct SampleRateClass {
  int lowRate;
  int highRate;
  const char* className;
  int rateClass;
  int phases;
  int oversampling;
  const PolyphaseBank* bank;
};

constexpr SampleRateClass kClasses[] = {
    {44100, 48000, "normal", 0, 4, 4, &kFourPhaseBank},
    {88200, 96000, "double", 1, 2, 2, &kTwoPhaseBank},
    {176400, 192000, "quad", 2, 0, 1, nullptr},
};

// The magnitudes of the taps of a phase sum up to 2.0227 at most.
constexpr float kLargestSwing = 2.03F;

float ToDecibels(float peak) { return static_cast<float>(static_cast<double>(Log10(peak)) * 20.0); }

const SampleRateClass& ClassOf(int sampleRate) {
  for (const SampleRateClass& one : kClasses) {
    if (sampleRate == one.lowRate || sampleRate == one.highRate) return one;
  }
  return kClasses[0];
}

}  // namespace

TruePeakMeter::~TruePeakMeter() {
  for (SampleHistory* history : histories) delete history;
}

void TruePeakMeter::Init(int rate, int channels) {
  sampleRate = rate;
  channelCount = channels;
  const SampleRateClass& rateInfo = ClassOf(sampleRate);
  std::strncpy(className, rateInfo.className, sizeof className - 1);
  rateClass = rateInfo.rateClass;
  phases = rateInfo.phases;
  oversampling = rateInfo.oversampling;
  bank = rateInfo.bank;
  for (int c = 0; c < channelCount; ++c) {
    auto history = std::make_unique<SampleHistory>(kTruePeakTaps);
    histories.Append(history.get());
    history.release();
  }
}

float TruePeakMeter::MeasureChunk(int channel, const float* chunk, int n, float* scratch) {
  if (phases == 0) return ToDecibels(chunk[0]);
  constexpr float kNoNews = -std::numeric_limits<float>::infinity();
  SampleHistory& history = *GetHistory(channel);
  const ChunkKernels& kernels = ActiveKernels();
  // The level of a magnitude rises with it, so only a larger one is news.
  const bool canBeNews =
      !(kernels.largestMagnitude(history.Values(), kTruePeakTaps) * kLargestSwing <= largest &&
        kernels.largestMagnitude(chunk, n) * kLargestSwing <= largest);
  if (canBeNews) history.ReadNewestFirst(scratch, kPeakHistory);
  const int kept = std::min(n, kTruePeakTaps);
  history.PushRun(chunk + n - kept, kept);
  if (!canBeNews) return kNoNews;
  std::reverse(scratch, scratch + kPeakHistory);
  std::copy(chunk, chunk + n, scratch + kPeakHistory);
  const float peak = kernels.truePeak(scratch + kPeakHistory, n, *bank, largest);
  if (peak <= largest) return kNoNews;
  if (peak > largest) largest = peak;
  return ToDecibels(peak);
}

SampleHistory* TruePeakMeter::GetHistory(int channel) const {
  return histories[static_cast<std::size_t>(channel)];
}

float MeasureTruePeak(const TruePeakMeter& meter, int channel, const float* chunk, int n,
                      float* scratch) {
  const SampleMath math;
  const int phases = meter.GetPhases();
  math.OversampleBlock(chunk, n, meter.GetBank(), phases, scratch, meter.GetHistory(channel));
  math.AbsInPlace(scratch, n * phases);
  const float peak = math.MaxOf(scratch, n * phases);
  return ToDecibels(peak);
}

}  // namespace harvane
