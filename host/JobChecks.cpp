#include "host/JobChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>

#include "host/FileError.h"

namespace harvane {
namespace {

constexpr std::int64_t kMostFrames = std::numeric_limits<std::int32_t>::max();
constexpr int kQuadRates[] = {176400, 192000};
constexpr int kSurroundPlaces = 6;

template <class Range>
bool Contains(const Range& range, int value) {
  return std::find(std::begin(range), std::end(range), value) != std::end(range);
}

}  // namespace

void CheckRate(const std::string& path, int rate, std::vector<std::string>* notes) {
  if (Contains(kQuadRates, rate)) {
    notes->push_back(
        fmt::format("note: at {} Hz the module reads the true peak from one sample "
                    "per chunk; it may stand higher",
                    rate));
  }
  if (Contains(kModuleRates, rate)) return;
  const std::string known = fmt::format("{} Hz", fmt::join(kModuleRates, ", "));
  if (rate < kLowestRate || rate > kHighestRate) {
    throw FileError(path, fmt::format("has an unsupported sample rate of {} Hz; {} would be right",
                                      rate, known));
  }
  notes->push_back(
      fmt::format("warning: {} Hz is none of {}; it is measured with the filters and the "
                  "peak tables of 48000 Hz, and the values are rough",
                  rate, known));
}

void CheckLength(const std::string& path, std::int64_t frames) {
  if (frames <= kMostFrames) return;
  throw FileError(path, fmt::format("is longer than {} frames, the most that the module counts; "
                                    "a shorter file would be right",
                                    kMostFrames));
}

void CheckSurroundOrder(const AudioInfo& info, const std::vector<int>& firstChannels,
                        std::vector<std::string>* notes) {
  if (info.channelMap.empty()) return;
  for (const int first : firstChannels) {
    for (int place = 0; place < kSurroundPlaces; ++place) {
      const int channel = first + place;
      if (IsSurroundPlace(place, info.channelMap[static_cast<std::size_t>(channel)])) continue;
      notes->push_back(
          fmt::format("warning: the file marks channel {} as another than the layout does; "
                      "5.1 is weighted as L R C LFE Ls Rs",
                      channel + 1));
      return;
    }
  }
}

void NoteFile(const AudioInfo& info, std::vector<std::string>* notes) {
  if (info.isHeaderWrong) {
    notes->push_back(
        fmt::format("warning: its header does not fit its contents; the {} frames found are taken",
                    info.frames));
  }
  if (!info.reduction.empty()) notes->push_back("note: " + info.reduction);
}

void NoteReduction(const ReductionCounts& counts, std::vector<std::string>* notes) {
  if (counts.beyondFullScale > 0) {
    notes->push_back(
        fmt::format("warning: {} samples beyond full scale were clipped", counts.beyondFullScale));
  }
  if (counts.notNumbers > 0) {
    notes->push_back(
        fmt::format("warning: {} samples that are not numbers became 0", counts.notNumbers));
  }
}

bool IsSurroundPlace(int place, int mark) {
  switch (place) {
    case 0:
      return mark == SF_CHANNEL_MAP_LEFT || mark == SF_CHANNEL_MAP_FRONT_LEFT;
    case 1:
      return mark == SF_CHANNEL_MAP_RIGHT || mark == SF_CHANNEL_MAP_FRONT_RIGHT;
    case 2:
      return mark == SF_CHANNEL_MAP_CENTER || mark == SF_CHANNEL_MAP_FRONT_CENTER;
    case 3:
      return mark == SF_CHANNEL_MAP_LFE;
    case 4:
      return mark == SF_CHANNEL_MAP_SIDE_LEFT || mark == SF_CHANNEL_MAP_REAR_LEFT;
    default:
      return mark == SF_CHANNEL_MAP_SIDE_RIGHT || mark == SF_CHANNEL_MAP_REAR_RIGHT;
  }
}

bool IsQuadRate(int rate) { return Contains(kQuadRates, rate); }

std::string LimiterDelayText(int sampleRate) {
  constexpr double kMillisecondsPerSecond = 1000.0;
  return fmt::format("{} frames ({:.3f} ms)", kLimiterDelayFrames,
                     kLimiterDelayFrames * kMillisecondsPerSecond / sampleRate);
}

const char* MeaningOfResult(std::uint32_t code) {
  switch (code) {
    case 2:
      return "memory exhausted";
    case 3:
      return "unusable channel tables, format or document";
    case 4:
      return "a value of the parameter document is missing";
    default:
      return "a code without a known meaning";
  }
}

}  // namespace harvane
