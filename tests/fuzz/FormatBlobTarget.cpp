// Any bytes as the format blob, behind one byte that chooses the frame rate.

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "delay_audio/Exports.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/DelayAudioProbe.h"

namespace {

using harvane::DelayAudio;
using Probe = harvane::DelayAudioProbe;

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kMemoryExhausted = 2;
constexpr std::uint32_t kFailed = 3;
constexpr int kStereo = 2;
constexpr std::size_t kLargestAllocation = std::size_t{64} * 1024;
constexpr std::size_t kFirstPayload = sizeof(ChunkHeader);

// As a document gives it. 1 takes the video's.
constexpr float kFrameRates[] = {1.0F,
                                 0.0F,
                                 25.0F,
                                 23.976F,
                                 59.0F,
                                 1.0000001F,
                                 -1.0F,
                                 -2.0F,
                                 1e30F,
                                 -2147483648.0F,
                                 std::numeric_limits<float>::infinity(),
                                 -std::numeric_limits<float>::infinity()};

// What a blob's walk takes from it, and how many bytes the contract makes the host provide.
struct Walk {
  std::size_t extent;
  bool hasVideo = false;
  VidePayload video{};
  LpcmPayload lpcm{};
};

// `blob` has `size` bytes that count, and zeros behind them.
Walk WalkBlob(const std::vector<std::uint8_t>& blob, std::size_t size) {
  Walk walk{size};
  for (std::uint64_t cursor = 0; cursor < size;) {
    ChunkHeader header;
    std::memcpy(&header, blob.data() + cursor, sizeof header);
    const std::size_t payload = static_cast<std::size_t>(cursor) + sizeof header;
    std::size_t end = payload;
    if (header.tag == HARVANE_TAG_VIDE) {
      end += sizeof walk.video;
      std::memcpy(&walk.video, blob.data() + payload, sizeof walk.video);
      walk.hasVideo = true;
    } else if (header.tag == HARVANE_TAG_LPCM) {
      end += sizeof walk.lpcm;
      std::memcpy(&walk.lpcm, blob.data() + payload, sizeof walk.lpcm);
    }
    walk.extent = std::max(walk.extent, end);
    cursor += sizeof header + std::uint64_t{header.size};
  }
  return walk;
}

// A record whose bytes end where the contract lets the module read.
class ExactInfo {
 public:
  ExactInfo(const std::uint8_t* bytes, std::size_t extent, std::size_t size)
      : blob(std::make_unique<std::uint8_t[]>(extent)) {
    std::copy(bytes, bytes + extent, blob.get());
    counted.record.release = Release;
    counted.record.data = blob.get();
    counted.record.size = static_cast<std::uint32_t>(size);
  }

  InfoBuffer* Record() { return &counted.record; }
  int Releases() const { return counted.releases; }

 private:
  struct Counted {
    InfoBuffer record{};
    int releases = 0;
  };
  static std::uint32_t HARVANE_CALL Release(void* record) {
    ++static_cast<Counted*>(record)->releases;
    return 0;
  }

  std::unique_ptr<std::uint8_t[]> blob;
  Counted counted;
};

// The offered output format, and one that differs in one byte.
void CheckOutputFormat(void* handle, const LpcmPayload& wanted, unsigned spoiltByte) {
  InfoBuffer* offer = nullptr;
  fuzz::Require(xEnumOutputInfo(handle, &offer) == kDone, "an output format is offered");
  fuzz::Require(offer->size == kFirstPayload + sizeof wanted, "the offer has 48 bytes");
  support::Blob echo(static_cast<unsigned char*>(offer->data),
                     static_cast<unsigned char*>(offer->data) + offer->size);
  fuzz::Require(std::memcmp(echo.data() + kFirstPayload, &wanted, sizeof wanted) == 0,
                "the offer is the last LPCM payload");
  support::CountedInfo same(echo);
  fuzz::Require(xSetOutputInfo(handle, same.Record()) == kDone && same.Releases() == 1,
                "the offer is taken back");
  echo[kFirstPayload + spoiltByte] ^= 1;
  support::CountedInfo other(echo);
  fuzz::Require(xSetOutputInfo(handle, other.Record()) == kFailed && other.Releases() == 0,
                "another format is refused and not released");
  offer->release(offer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  fuzz::InputBytes choice(bytes, std::min<std::size_t>(size, 1));
  const float frameRate = choice.OneOf(kFrameRates);
  const std::size_t blobSize = size == 0 ? 0 : size - 1;
  // Room for a header at the last byte, with its payload.
  std::vector<std::uint8_t> blob(blobSize + sizeof(ChunkHeader) + sizeof(VidePayload));
  if (blobSize > 0) std::copy(bytes + 1, bytes + size, blob.begin());
  const Walk walk = WalkBlob(blob, blobSize);

  void* handle = nullptr;
  fuzz::Require(xOpen(&handle) == kDone, "an instance opens");
  DelayAudio& job = *static_cast<DelayAudio*>(handle);
  // What a document would do, in a fraction of the time.
  Probe::FrameRate(job) = frameRate;
  Probe::TrackCount(job) = job.SetupChannelTables(1, {kStereo});
  // A denominator of 0 ends the process, and is meant to.
  const bool isFatal = frameRate == 1.0F && walk.hasVideo && walk.video.frameRateDenominator == 0;
  if (!isFatal) {
    ExactInfo info(blob.data(), walk.extent, blobSize);
    fuzz::Require(xSetInputInfo(handle, info.Record()) == kDone, "every blob is taken");
    fuzz::Require(info.Releases() == 1, "the blob is released once");
    fuzz::Require(Probe::SampleRate(job) == static_cast<int>(walk.lpcm.sampleRate),
                  "the sample rate is the last LPCM payload's");
    CheckOutputFormat(handle, walk.lpcm, walk.lpcm.sampleRate % sizeof walk.lpcm);
    const fuzz::AllocationLimit limit(kLargestAllocation);
    const std::uint32_t code = xStartSequenceEx(handle, nullptr);
    fuzz::Require(code == kDone || code == kMemoryExhausted, "a sequence starts or lacks memory");
    fuzz::Require(xEndSequence(handle) == kDone, "a sequence ends");
  }
  fuzz::Require(xClose(handle) == kDone, "an instance closes");
  return 0;
}
