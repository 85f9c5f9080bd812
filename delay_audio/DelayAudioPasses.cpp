#include <algorithm>
#include <cstddef>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/RecordRelease.h"
#include "measurement/ChunkKernels.h"
#include "platform/FatalStop.h"

namespace harvane {
namespace {

constexpr int kTwoPasses = 2;
constexpr std::uint32_t kFirstPass = 0;
constexpr std::uint32_t kSecondPass = 1;

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

}  // namespace

float DelayAudio::ReadSample(const PcmUnit& unit, std::uint32_t s, int c) {
  float x = 0.0F;
  ReadSamples(unit, s, 1, c, &x);
  return x;
}

void DelayAudio::ReadSamples(const PcmUnit& unit, std::uint32_t s, std::uint32_t count, int c,
                             float* out) {
  if (c >= kPcmUnitChannels) FatalStop("channel beyond the unit's");
  const std::size_t stride = unit.stride[c];
  const std::int16_t* const first = unit.data[c] + s * stride;
  ActiveKernels().fromPcm(first, stride, count, out);
}

void DelayAudio::ReadFrames(const PcmUnit& unit, std::uint32_t s, std::uint32_t count,
                            const MeasuredChannel* channels, int channelCount, float* const* outs) {
  for (int first = 0; first < channelCount;) {
    const int c = channels[first].c;
    if (c >= kPcmUnitChannels) FatalStop("channel beyond the unit's");
    const int most = std::min(channelCount - first, kMaxLanes);
    int together = 1;
    while (together < most && channels[first + together].c < kPcmUnitChannels &&
           unit.stride[channels[first + together].c] == unit.stride[c] &&
           unit.data[channels[first + together].c] == unit.data[c] + together) {
      ++together;
    }
    const std::size_t stride = unit.stride[c];
    ActiveKernels().fromPcmFrames(unit.data[c] + s * stride, stride, together, count, outs + first);
    first += together;
  }
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
  MeasuredChannel channels[kMaxChannels];
  const int count = FindMeasuredChannels(channels);
  for (std::uint32_t s = 0; s < unit.sampleCount;) {
    const std::uint32_t frames = FramesToFullChunk(channels, count, unit.sampleCount - s);
    MakeInputRoom(channels, count, frames);
    float* samples[kMaxChannels];
    for (int i = 0; i < count; ++i) {
      samples[i] = inputAccumulators[Index(channels[i].c)].Extend(frames);
    }
    ReadFrames(unit, s, frames, channels, count, samples);
    FinishFrames(channels, count, frames);
    s += frames;
  }
}

void DelayAudio::DeliverSinglePass(const PcmUnit& unit) {
  MeasuredChannel channels[kMaxChannels];
  const int count = FindMeasuredChannels(channels);
  for (std::uint32_t s = 0; s < unit.sampleCount;) {
    const std::uint32_t frames = FramesToFullChunk(channels, count, unit.sampleCount - s);
    MakeInputRoom(channels, count, frames);
    MakeOutputRoom(frames);
    for (int c = 0; c < ChannelCount(); ++c) {
      ReadSamples(unit, s, frames, c, outputAccumulators[Index(c)].Extend(frames));
    }
    for (int i = 0; i < count; ++i) {
      const int c = channels[i].c;
      const float* const latest =
          outputAccumulators[Index(c)].Data() + (outputAccumulators[Index(c)].Size() - frames);
      std::copy(latest, latest + frames, inputAccumulators[Index(c)].Extend(frames));
    }
    FinishFrames(channels, count, frames);
    s += frames;
  }
}

void DelayAudio::DeliverSecondOfTwo(const PcmUnit& unit) {
  MeasuredChannel channels[kMaxChannels];
  const int count = FindMeasuredChannels(channels);
  for (std::uint32_t s = 0; s < unit.sampleCount;) {
    const std::uint32_t frames = FramesToFullChunk(channels, count, unit.sampleCount - s);
    ProcessFrames(unit, s, frames, channels, count);
    s += frames;
  }
}

int DelayAudio::FindMeasuredChannels(MeasuredChannel* channels) const {
  int count = 0;
  const int last = std::min(ChannelCount(), kMaxChannels);
  for (int c = 0; c < last; ++c) {
    MeasuredChannel& one = channels[count];
    one.c = c;
    if (LookupChannel(c, &one.k, &one.t)) ++count;
  }
  return count;
}

std::uint32_t DelayAudio::FramesToFullChunk(const MeasuredChannel* channels, int count,
                                            std::uint32_t frames) const {
  for (int i = 0; i < count; ++i) {
    const std::size_t filled = inputAccumulators[Index(channels[i].c)].Size();
    // An accumulator at or past `blockSize` never comes to it.
    if (filled < blockSize) {
      frames = std::min(frames, static_cast<std::uint32_t>(blockSize - filled));
    }
  }
  return frames;
}

void DelayAudio::MakeInputRoom(const MeasuredChannel* channels, int count, std::uint32_t frames) {
  for (int i = 0; i < count; ++i) inputAccumulators[Index(channels[i].c)].MakeRoom(frames);
}

void DelayAudio::MakeOutputRoom(std::uint32_t frames) {
  for (int c = 0; c < ChannelCount(); ++c) outputAccumulators[Index(c)].MakeRoom(frames);
}

void DelayAudio::FinishFrames(const MeasuredChannel* channels, int count, std::uint32_t frames) {
  // Deliberate: positions go on from the smallest number behind the largest, like the 32-bit words
  // that they are. Test: AChunkAcrossTheEndHasThePositionOfItsLastFrame.
  sampleCounter = static_cast<int>(static_cast<std::uint32_t>(sampleCounter) + (frames - 1));
  MeasuredChannel full[kMaxChannels];
  int fullCount = 0;
  for (int i = 0; i < count; ++i) {
    if (inputAccumulators[Index(channels[i].c)].Size() == blockSize)
      full[fullCount++] = channels[i];
  }
  MeasureChunks(full, fullCount);
  sampleCounter = static_cast<int>(static_cast<std::uint32_t>(sampleCounter) + 1);
}

void DelayAudio::FetchPcmUnit(PcmUnit** outUnit, std::uint32_t* outFlag) {
  OwnedPcmUnit unit = MakePcmUnit();
  const std::size_t count = outputAccumulators[0].Size();
  for (int c = 0; c < ChannelCount(); ++c) {
    if (c >= kPcmUnitChannels) FatalStop("channel beyond the unit's");
    auto* const samples = new std::int16_t[count]();
    unit->data[c] = samples;
    CheckedList<float>& waiting = outputAccumulators[Index(c)];
    // The list of channel 0 stands for all: a shorter one ends here.
    if (count > 0) static_cast<void>(waiting[count - 1]);
    ActiveKernels().toPcm(waiting.Data(), count, samples);
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
