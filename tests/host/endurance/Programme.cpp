#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "measurement/LoudnessMeter.h"
#include "tests/host/endurance/Endurance.h"
#include "tests/support/Bits.h"
#include "tests/support/LinkedJob.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/Signals.h"

namespace endurance {
namespace {

constexpr int kRate = 48000;
constexpr std::size_t kChannels = 2;
constexpr std::int64_t kMinute = std::int64_t{60} * kRate;
constexpr std::int64_t kStep = std::int64_t{10} * kRate;  // frames between two looks at the memory
constexpr std::uint32_t kUnit = 4800;
constexpr int kChunk = 239;
constexpr int kLevels[] = {128, 8, 90, 2, 64, 128, 20, 45, 0, 32};  // of minutes in turn, in 256ths
constexpr std::size_t kCycle = std::size(kLevels);

// Minutes of noise whose level changes, made from one minute of it: each begins at another place
// and has one of ten levels in turn, at most half of full scale. At four fifths stands one second
// of a square wave at full scale.
class Stream {
 public:
  explicit Stream(int minutes)
      : loop(support::Programme(1, kRate, kChannels, static_cast<std::size_t>(kMinute))),
        frames(minutes * kMinute),
        markStart(frames / 5 * 4) {
    support::NoiseSource chance(2);
    for (int m = 0; m < minutes; ++m) {
      minuteStarts.push_back(chance.NextBelow(static_cast<std::uint32_t>(kMinute)));
    }
  }

  std::int64_t Frames() const { return frames; }
  std::int64_t MarkStart() const { return markStart; }

  // `count` frames from `first` on, of one minute, interleaved.
  void Fill(std::int64_t first, std::int64_t count, std::vector<std::int16_t>* target) const {
    const auto m = static_cast<std::size_t>(first / kMinute);
    const int level = kLevels[m % kCycle];
    std::size_t source = static_cast<std::size_t>((minuteStarts[m] + first) % kMinute) * kChannels;
    target->resize(static_cast<std::size_t>(count) * kChannels);
    for (std::int16_t& sample : *target) {
      sample = static_cast<std::int16_t>(loop[source] * level / 256);
      if (++source == loop.size()) source = 0;
    }
    constexpr std::int64_t kHalfPeriod = 24;
    for (std::int64_t i = 0; i < count; ++i) {
      const std::int64_t inMark = first + i - markStart;
      if (inMark < 0 || inMark >= kRate) continue;
      const std::int16_t value = inMark / kHalfPeriod % 2 == 0 ? 32767 : -32767;
      std::fill_n(target->data() + static_cast<std::size_t>(i) * kChannels, kChannels, value);
    }
  }

 private:
  std::vector<std::int16_t> loop;
  std::int64_t frames;
  std::int64_t markStart;
  std::vector<std::int64_t> minuteStarts;
};

// ---- what the series must have come to, worked out once over all accepted blocks

float Single(double v) { return static_cast<float>(v); }

float PowerOfLoudness(float loudness) {
  return Single(std::pow(10.0, static_cast<double>(Single(static_cast<double>(loudness) / 10.0))));
}

float GateOf(float sum, std::size_t count, double offset) {
  const float mean = Single(static_cast<double>(sum) / static_cast<double>(count));
  return Single(static_cast<double>(Single(std::log10(static_cast<double>(mean)))) * 10.0 - offset);
}

std::vector<float> LoudnessesOf(const harvane::GatedSeries& series) {
  std::vector<float> loudnesses;
  for (const auto& one : series.Accepted()) loudnesses.push_back(one.value);
  return loudnesses;
}

// The last block that passed the gate of its time, with that gate.
struct LastUpdate {
  std::size_t blocks = 0;
  float gate = 0.0F;
};

LastUpdate FindLastUpdate(const std::vector<float>& accepted, double offset) {
  LastUpdate last;
  float sum = 0.0F;
  for (std::size_t i = 0; i < accepted.size(); ++i) {
    sum = Single(static_cast<double>(PowerOfLoudness(accepted[i])) + static_cast<double>(sum));
    const float gate = GateOf(sum, i + 1, offset);
    if (accepted[i] > gate) last = {i + 1, gate};
  }
  return last;
}

// The blocks above the gate, the newest of them twice.
std::vector<float> KeptAt(const std::vector<float>& accepted, const LastUpdate& last) {
  std::vector<float> kept;
  for (std::size_t i = 0; i < last.blocks; ++i) {
    if (accepted[i] > last.gate) kept.push_back(accepted[i]);
  }
  if (!kept.empty()) kept.push_back(accepted[last.blocks - 1]);
  return kept;
}

void CheckIntegrated(const std::vector<float>& accepted, float got) {
  const std::vector<float> kept = KeptAt(accepted, FindLastUpdate(accepted, 10.0));
  Require(!kept.empty(), "no block passes the gates");
  float sum = 0.0F;
  for (const float loudness : kept) {
    sum = Single(static_cast<double>(PowerOfLoudness(loudness)) + static_cast<double>(sum));
  }
  const float wanted = GateOf(sum, kept.size(), 0.0);
  Require(support::SameBits(wanted, got),
          "integrated loudness: wanted " + support::Show(wanted) + ", came " + support::Show(got));
}

void CheckRange(const std::vector<float>& accepted, float got) {
  std::vector<float> kept = KeptAt(accepted, FindLastUpdate(accepted, 20.0));
  Require(!kept.empty(), "no 3 s block passes the gates");
  std::sort(kept.begin(), kept.end());
  const auto at = [&kept](double percent) {
    const double place = static_cast<double>(kept.size() - 1) * percent / 100.0 + 1.0;
    return kept.at(static_cast<std::size_t>(std::floor(Single(place))));
  };
  const float wanted = at(95.0) - at(10.0);
  Require(support::SameBits(wanted, got),
          "loudness range: wanted " + support::Show(wanted) + ", came " + support::Show(got));
}

// ---- memory and time

// What the lists of `blocks` accepted 400 ms blocks and `longBlocks` accepted 3 s blocks may take.
std::int64_t ListBytes(std::size_t blocks, std::size_t longBlocks) {
  constexpr std::size_t kDoubling = 2;
  constexpr std::size_t kSumsChunk = 512;  // blocks; each chunk has one record
  constexpr std::size_t kRecordBytes = 32;
  constexpr std::size_t kFirstRun = 4096;  // the first part of the ordered list, whole at once
  const std::size_t records = blocks / kSumsChunk + longBlocks / kSumsChunk + 2;
  return static_cast<std::int64_t>(
      kDoubling * (8 * blocks + 12 * longBlocks + kRecordBytes * records) + kFirstRun);
}

class Watch {
 public:
  explicit Watch(const harvane::DelayAudio& instance) : meter(*instance.Meters()[0]) {}

  void Start() {
    start = support::MemoryInUse();
    startUse = support::UseOfProcess();
  }

  void Look(std::int64_t frame) {
    blocks = std::max(blocks, meter.IntegratedSeries().Accepted().Size());
    longBlocks = std::max(longBlocks, meter.RangeSeries().Accepted().Size());
    const std::int64_t allowed = ListBytes(blocks, longBlocks);
    const std::int64_t grown = support::MemoryInUse().bytes - start.bytes;
    const support::ProcessUse use = support::UseOfProcess();
    const std::int64_t residentGrown = use.residentBytes - startUse.residentBytes;
    largest = std::max(largest, grown);
    largestResident = std::max(largestResident, residentGrown);
    const std::string place = " at frame " + std::to_string(frame);
    Require(grown <= allowed, "memory has grown by " + std::to_string(grown) + " bytes, not by " +
                                  std::to_string(allowed) + " at most," + place);
    // A list that has doubled lies beside the freed place of the one before.
    Require(!support::kResidentBytesTell || residentGrown <= 2 * allowed + kAllocatorBytes,
            "resident memory has grown by " + std::to_string(residentGrown) + " bytes" + place);
    Require(use.handles <= startUse.handles && use.threads <= startUse.threads,
            "handles or threads were left" + place);
  }

  void Print() const {
    std::printf(
        "memory: %lld bytes more in use at most, %lld allowed for %zu blocks of 400 ms and %zu of "
        "3 s; resident %lld more, of %lld\n",
        static_cast<long long>(largest), static_cast<long long>(ListBytes(blocks, longBlocks)),
        blocks, longBlocks, static_cast<long long>(largestResident),
        static_cast<long long>(startUse.residentBytes));
  }

  std::int64_t Largest() const { return largest; }
  std::size_t Blocks() const { return blocks; }

 private:
  static constexpr std::int64_t kAllocatorBytes = std::int64_t{2} * 1024 * 1024;

  const harvane::LoudnessMeter& meter;
  support::LiveMemory start{};
  support::ProcessUse startUse{};
  std::size_t blocks = 0;
  std::size_t longBlocks = 0;
  std::int64_t largest = 0;
  std::int64_t largestResident = 0;
};

// Processor time of the first and of the last minutes with all levels.
void CheckTimes(const char* pass, const std::vector<double>& minutes) {
  const auto sum = [&minutes](std::size_t first, std::size_t count) {
    double seconds = 0.0;
    for (std::size_t m = first; m < first + count; ++m) seconds += minutes[m];
    return seconds;
  };
  std::printf("%s: %.3f s of processor time", pass, sum(0, minutes.size()));
  if (minutes.size() < 2 * kCycle) {
    std::printf("\n");
    return;
  }
  constexpr double kMost = 1.5;
  const double first = sum(0, kCycle);
  const double last = sum(minutes.size() / kCycle * kCycle - kCycle, kCycle);
  std::printf(", for a minute %.3f ms at first, %.3f ms at last, %+.1f %%\n", first * 1e3 / kCycle,
              last * 1e3 / kCycle, (last / first - 1.0) * 100.0);
  Require(last <= kMost * first, "the last minutes cost more than the first");
}

// ---- the passes

class Run {
 public:
  explicit Run(int minutes) : stream(minutes), job(Texts(), kRate, kChannels) {
    output.reserve(static_cast<std::size_t>(kUnit) * kChannels);
    batch.reserve(static_cast<std::size_t>(kStep) * kChannels);
  }

  void Pass(std::uint32_t number, const char* name) {
    Watch watch(job.Instance());
    std::vector<double> minutes(static_cast<std::size_t>(stream.Frames() / kMinute));
    std::int64_t given = 0;
    job.Session().StartPass(number);
    for (std::int64_t first = 0; first < stream.Frames(); first += kStep) {
      stream.Fill(first, kStep, &batch);
      const double start = support::ThreadSeconds();
      for (std::size_t unit = 0; unit < batch.size(); unit += kUnit * kChannels) {
        output.clear();
        job.Session().Deliver(batch.data() + unit, kUnit, &output);
        given += static_cast<std::int64_t>(output.size() / kChannels);
      }
      minutes[static_cast<std::size_t>(first / kMinute)] += support::ThreadSeconds() - start;
      if (first == 0) watch.Start();  // by now every list of samples has its length
      watch.Look(first + kStep);
    }
    Require(given == (number == 0 ? 0 : stream.Frames()), "frames were lost");
    CheckResults(number);
    watch.Print();
    CheckTimes(name, minutes);
    // The other passes find the lists long enough.
    if (number == 0) {
      Require(watch.Largest() >= static_cast<std::int64_t>(watch.Blocks()) * 4,
              "the growth of the lists is not seen");
    }
    job.EndPass();
    harvane::WriteWaitingLogRows();
  }

  bool IsLimited() { return job.Instance().LimiterNeeded()[0]; }

 private:
  static support::ParameterTexts Texts() {
    support::ParameterTexts texts;
    texts.Loudness = "-12";
    texts.MaxTP = "-12";
    return texts;
  }

  void CheckResults(std::uint32_t number) {
    const harvane::TrackMeasurement& result = job.Instance().Results()[0];
    const harvane::LoudnessMeter& meter = *job.Instance().Meters()[0];
    CheckIntegrated(LoudnessesOf(meter.IntegratedSeries()), result.integratedLoudness);
    CheckRange(LoudnessesOf(meter.RangeSeries()), result.loudnessRange);
    std::printf("integrated %s LUFS, range %s LU, loudest at frame %d\n",
                support::Show(result.integratedLoudness).c_str(),
                support::Show(result.loudnessRange).c_str(), result.maxMomentaryPosition);
    if (number != 0) return;
    // Within the mark, or in the chunk that ends its last block.
    const auto behindMark = static_cast<std::uint32_t>(result.maxMomentaryPosition) -
                            static_cast<std::uint32_t>(stream.MarkStart());
    Require(behindMark < kRate + kChunk, "the loudest block is not where it was put, but at " +
                                             std::to_string(result.maxMomentaryPosition));
  }

  Stream stream;
  support::LinkedJob job;
  std::vector<std::int16_t> batch;
  std::vector<std::int16_t> output;
};

}  // namespace

void RunProgramme(int minutes) {
  Run run(minutes);
  run.Pass(0, "first pass");
  Require(run.IsLimited(), "the second pass has no limiter to run");
  run.Pass(1, "second pass");
}

}  // namespace endurance
