#include <cstddef>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/RecordRelease.h"
#include "platform/FatalStop.h"

namespace harvane {
namespace {

constexpr float kFullScale = 32767.0F;  // both signs, both directions
constexpr int kTwoPasses = 2;
constexpr std::uint32_t kFirstPass = 0;
constexpr std::uint32_t kSecondPass = 1;

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

// Deliberate: truncates, so most positive values come back one step lower when
// they were not changed. What is not a number becomes 0.
std::int16_t ToSample(float v) {
  if (v < -1.0F) v = -1.0F;
  if (v > 1.0F) v = 1.0F;
  if (!(v == v)) return 0;
  return static_cast<std::int16_t>(static_cast<double>(v) * kFullScale);
}

}  // namespace

float DelayAudio::ReadSample(const PcmUnit& unit, std::uint32_t s, int c) {
  if (c >= kPcmUnitChannels) FatalStop("channel beyond the unit's");
  const std::size_t offset = static_cast<std::size_t>(s) * unit.stride[c];
  return static_cast<float>(unit.data[c][offset]) / kFullScale;
}

void DelayAudio::StartSequence() {
  ResetTrackObjects();
  CreateTrackObjects();
  inputAccumulators.Clear();
  outputAccumulators.Clear();
  for (std::uint32_t c = 0; c < inputFormat.channels; ++c) {
    inputAccumulators.Append({});
    outputAccumulators.Append({});
  }
}

void DelayAudio::StartPass(std::uint32_t passNumber) {
  currentPass = passNumber;
  sampleCounter = 0;
}

void DelayAudio::DeliverPcmUnit(PcmUnit* unit, std::uint32_t* outFlag) {
  const bool isFirstOfTwo = numberOfPasses == kTwoPasses && currentPass == kFirstPass;
  if (isFirstOfTwo) *outFlag = 0;
  if (unit == nullptr) return;
  if (isFirstOfTwo) {
    DeliverFirstOfTwo(*unit);
  } else if (numberOfPasses == kTwoPasses) {
    DeliverSecondOfTwo(*unit);
  } else {
    DeliverSinglePass(*unit);
  }
  unit->release(unit);
  if (!isFirstOfTwo) *outFlag = 1;
}

void DelayAudio::DeliverFirstOfTwo(const PcmUnit& unit) {
  for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
    for (int c = 0; c < ChannelCount(); ++c) {
      int k = 0;
      int t = 0;
      if (LookupChannel(c, &k, &t)) GatherForMeasuring(c, k, t, ReadSample(unit, s, c));
    }
    ++sampleCounter;
  }
}

void DelayAudio::DeliverSinglePass(const PcmUnit& unit) {
  for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
    for (int c = 0; c < ChannelCount(); ++c) {
      const float x = ReadSample(unit, s, c);
      outputAccumulators[Index(c)].Append(x);
      int k = 0;
      int t = 0;
      if (LookupChannel(c, &k, &t)) GatherForMeasuring(c, k, t, x);
    }
    ++sampleCounter;
  }
}

void DelayAudio::DeliverSecondOfTwo(const PcmUnit& unit) {
  for (std::uint32_t s = 0; s < unit.sampleCount; ++s) {
    ProcessFrame(unit, s);
    ++sampleCounter;
  }
}

void DelayAudio::GatherForMeasuring(int c, int k, int t, float x) {
  CheckedList<float>& accumulator = inputAccumulators[Index(c)];
  accumulator.Append(x);
  if (accumulator.Size() == blockSize) MeasureChunk(c, k, t);
}

void DelayAudio::FetchPcmUnit(PcmUnit** outUnit, std::uint32_t* outFlag) {
  OwnedPcmUnit unit = MakePcmUnit();
  const std::size_t count = outputAccumulators[0].Size();
  for (int c = 0; c < ChannelCount(); ++c) {
    if (c >= kPcmUnitChannels) FatalStop("channel beyond the unit's");
    auto* const samples = new std::int16_t[count]();
    unit->data[c] = samples;
    CheckedList<float>& waiting = outputAccumulators[Index(c)];
    for (std::size_t i = 0; i < count; ++i) samples[i] = ToSample(waiting[i]);
    unit->stride[c] = 1;
    waiting.Clear();
  }
  unit->sampleCount = static_cast<std::uint32_t>(count);
  *outUnit = unit.release();
  *outFlag = 0;
}

void DelayAudio::EndPass() {
  EmptyEach(&inputAccumulators);
  EmptyEach(&outputAccumulators);
  const bool isAnalysis =
      (numberOfPasses == kTwoPasses || numberOfPasses == 1) && currentPass == kFirstPass;
  if (isAnalysis) {
    for (LoudnessMeter* meter : meters) meter->SetMode(LoudnessMeter::kMaximaOnly);
    LogPass("Analysis");
    if (numberOfPasses == kTwoPasses) DecideGains();
  } else if (numberOfPasses == kTwoPasses && currentPass == kSecondPass) {
    LogPass("Process");
  }
}

void DelayAudio::EndSequence() {
  ResetTrackObjects();
  EmptyEach(&inputAccumulators);
  EmptyEach(&outputAccumulators);
  inputAccumulators.Clear();
  outputAccumulators.Clear();
}

void DelayAudio::EmptyEach(SampleLists* accumulators) {
  for (CheckedList<float>& samples : *accumulators) samples.Clear();
}

}  // namespace harvane
