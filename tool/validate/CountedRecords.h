#ifndef HARVANE_TOOL_VALIDATE_COUNTEDRECORDS_H
#define HARVANE_TOOL_VALIDATE_COUNTEDRECORDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "delay_audio/HostRecords.h"

namespace harvane {

// Records of a host that counts how often the module ends them. What the module must not read holds
// junk; what was released is spoilt, so that a later look at it shows.

inline constexpr std::uint32_t kJunkType = 0xC0FFEE;
inline constexpr int kJunkByte = 0xEE;

// An InfoBuffer of the host. It owns its memory; releasing it counts and spoils.
class CountedInfo {
 public:
  explicit CountedInfo(std::vector<unsigned char> bytes) : blob(std::move(bytes)) {
    std::memset(&counted.record, kJunkByte, sizeof counted.record);
    counted.record.type = kJunkType;
    counted.record.release = Release;
    counted.record.data = blob.data();
    counted.record.size = static_cast<std::uint32_t>(blob.size());
  }
  CountedInfo(const CountedInfo&) = delete;
  CountedInfo& operator=(const CountedInfo&) = delete;

  InfoBuffer* Record() { return &counted.record; }
  int Releases() const { return counted.releases; }

 private:
  struct Counted {
    InfoBuffer record;
    int releases = 0;
  };
  static std::uint32_t HARVANE_CALL Release(void* record) {
    auto* const counted = static_cast<Counted*>(record);
    if (++counted->releases == 1 && counted->record.size != 0) {
      std::memset(counted->record.data, kJunkByte, counted->record.size);
    }
    counted->record.data = nullptr;
    return 0;
  }

  std::vector<unsigned char> blob;
  Counted counted;
};

// Where the samples of a unit lie.
enum class Arrangement {
  kInterleaved,  // frame after frame
  kPlanar,       // channel after channel
  kStrided,      // channel after channel, with junk between the samples
};

// A PcmUnit of the host with `frames` frames of `channels` channels, copied from
// interleaved samples. It owns its memory; releasing it counts and spoils.
class CountedUnit {
 public:
  CountedUnit(const std::int16_t* interleaved, std::uint32_t frames, std::uint32_t channels,
              Arrangement arrangement) {
    constexpr std::int16_t kJunkSample = 0x7FED;
    constexpr std::uint32_t kJunkStride = 3;
    std::memset(&counted.record, kJunkByte, sizeof counted.record);
    counted.record.type = kJunkType;
    counted.record.release = Release;
    counted.record.sampleCount = frames;
    const std::uint32_t stride = arrangement == Arrangement::kInterleaved ? channels
                                 : arrangement == Arrangement::kPlanar    ? 1
                                                                          : kJunkStride;
    const bool isInterleaved = arrangement == Arrangement::kInterleaved;
    const std::size_t room = std::size_t{frames} * (isInterleaved ? channels : stride * channels);
    samples.assign(room + 1, kJunkSample);
    for (std::uint32_t c = 0; c < channels && c < kPcmUnitChannels; ++c) {
      const std::size_t start = isInterleaved ? c : std::size_t{c} * frames * stride;
      for (std::size_t s = 0; s < frames; ++s) {
        samples[start + s * stride] = interleaved[s * channels + c];
      }
      counted.record.data[c] = samples.data() + start;
      counted.record.stride[c] = stride;
    }
    counted.samples = &samples;
  }
  CountedUnit(const CountedUnit&) = delete;
  CountedUnit& operator=(const CountedUnit&) = delete;

  PcmUnit* Record() { return &counted.record; }
  int Releases() const { return counted.releases; }

 private:
  struct Counted {
    PcmUnit record;
    std::vector<std::int16_t>* samples = nullptr;
    int releases = 0;
  };
  static std::uint32_t HARVANE_CALL Release(void* record) {
    auto* const counted = static_cast<Counted*>(record);
    ++counted->releases;
    counted->samples->assign(counted->samples->size(), 0x5A5A);
    std::memset(counted->record.data, 0, sizeof counted->record.data);
    return 0;
  }

  std::vector<std::int16_t> samples;
  Counted counted;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_COUNTEDRECORDS_H
