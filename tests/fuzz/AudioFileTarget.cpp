// Any bytes as an audio file, read as the command-line host does, and written again.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/AudioFile.h"
#include "host/FileError.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using fuzz::Require;
using harvane::AudioInfo;
using harvane::AudioReader;
using harvane::AudioWriter;
using harvane::FileError;
using harvane::PendingFile;

// The host refuses more before it reads a sample.
constexpr int kMostChannels = 32;
constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 384000;
constexpr std::size_t kUnitFrames = 1000;
// Of one reading: a few bytes of FLAC stand for any number of samples.
constexpr std::size_t kMostSamples = 20000;

std::string DescriptorPath(int number) { return "/proc/self/fd/" + std::to_string(number); }

// A file in memory with a path.
class MemoryFile {
 public:
  MemoryFile() : number(memfd_create("audio", MFD_CLOEXEC)) {
    Require(number >= 0, "there are files in memory");
  }
  void Fill(const std::uint8_t* bytes, std::size_t size) const {
    Require(ftruncate(number, 0) == 0, "the file in memory is emptied");
    Require(pwrite(number, bytes, size, 0) == static_cast<ssize_t>(size),
            "the file in memory is filled");
  }
  std::string Path() const { return DescriptorPath(number); }

 private:
  int number;  // until the program ends
};

struct Samples {
  std::vector<std::int16_t> values;
  bool isFailed = false;
  bool operator==(const Samples&) const = default;
};

Samples ReadSome(AudioReader* reader) {
  const auto channels = static_cast<std::size_t>(reader->Info().channels);
  Samples samples;
  std::vector<std::int16_t> block;
  try {
    while (samples.values.size() < kMostSamples) {
      const std::size_t frames = reader->Read(kUnitFrames, &block);
      Require(frames <= kUnitFrames && block.size() == frames * channels, "a block is its frames");
      if (frames == 0) break;
      samples.values.insert(samples.values.end(), block.begin(), block.end());
    }
  } catch (const FileError&) {
    samples.isFailed = true;
  }
  return samples;
}

void CheckInfo(const AudioInfo& info) {
  Require(info.channels >= 1, "there is a channel");
  Require(info.frames == harvane::kUnknownFrames || info.frames > 0, "there are frames");
  Require(
      info.channelMap.empty() || info.channelMap.size() == static_cast<std::size_t>(info.channels),
      "a channel map has an entry for each channel");
}

// In the container that it came from, as the host does.
void WriteAndReadBack(const AudioInfo& info, const Samples& samples) {
  static const support::TemporaryFolder folder;
  const std::size_t frames = samples.values.size() / static_cast<std::size_t>(info.channels);
  std::string reason;
  if (!harvane::CanHold(info.container, info, static_cast<std::int64_t>(frames), &reason)) {
    Require(!reason.empty(), "a container that does not fit is told");
    return;
  }
  PendingFile file(folder.FileIn("written"), {});
  AudioWriter writer(&file, info.container, info, static_cast<std::int64_t>(frames));
  writer.Write(samples.values.data(), frames);
  writer.Finish();
  AudioReader back(DescriptorPath(file.Number()));
  Require(back.Info().channels == info.channels, "the channels are kept");
  Require(back.Info().sampleRate == info.sampleRate, "the rate is kept");
  Require(back.Info().container == info.container, "the container is kept");
  Require(ReadSome(&back) == samples, "the samples are kept");
}

void ReadFile(const std::string& path) {
  AudioReader reader(path);
  const AudioInfo& info = reader.Info();
  CheckInfo(info);
  if (info.channels > kMostChannels || info.sampleRate < kLowestRate ||
      info.sampleRate > kHighestRate) {
    return;
  }
  const Samples samples = ReadSome(&reader);
  if (samples.isFailed || samples.values.empty()) return;
  reader.Rewind();
  Require(ReadSome(&reader) == samples, "the second reading is as the first");
  WriteAndReadBack(info, samples);
}

}  // namespace

// libsndfile 1.2.0 forgets what it began to read of a broken Vorbis stream. Every kind of audio is
// opened before the kind can be refused.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libvorbis\nleak:vorbis_info_init\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const MemoryFile file;
  file.Fill(bytes, size);
  try {
    ReadFile(file.Path());
  } catch (const FileError& refusal) {
    const std::string text = refusal.what();
    Require(text.find(": ") != std::string::npos, "a refusal names the file and the reason");
    Require(text.find('\n') == std::string::npos, "a refusal is one line");
  }
  return 0;
}
