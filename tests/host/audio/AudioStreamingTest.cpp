#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "host/AudioFile.h"
#include "host/FileError.h"
#include "tests/host/audio/SoundFiles.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using support::kWav16;
using testing::HasSubstr;

// Files of several blocks, so that threads of their own read and write them.
class AudioStreaming : public testing::Test {
 protected:
  static constexpr std::size_t kFrames = 700001;

  AudioStreaming() { support::WriteSound(path, kWav16, 48000, 2, samples); }

  // Reads with the lengths of `units` in turn.
  static std::vector<std::int16_t> ReadAll(AudioReader* reader,
                                           const std::vector<std::size_t>& units) {
    std::vector<std::int16_t> all;
    std::vector<std::int16_t> block;
    for (std::size_t i = 0; reader->Read(units[i % units.size()], &block) > 0; ++i) {
      all.insert(all.end(), block.begin(), block.end());
    }
    return all;
  }

  support::TemporaryFolder folder;
  std::string path = folder.FileIn("in.wav");
  std::vector<std::int16_t> samples = support::NoiseInt16(5, 2 * kFrames, 32767);
};

TEST_F(AudioStreaming, EveryWayToReadGivesTheSameFrames) {
  for (const std::vector<std::size_t>& units :
       std::vector<std::vector<std::size_t>>{{65536}, {8192}, {100000, 3, 65536}, {5000000}}) {
    AudioReader reader(path);
    EXPECT_EQ(ReadAll(&reader, units), samples) << units.front();
    reader.Rewind();
    EXPECT_EQ(ReadAll(&reader, units), samples) << units.front();
  }
}

TEST_F(AudioStreaming, ReadsAgainFromTheStartAfterAnyPart) {
  AudioReader reader(path);
  std::vector<std::int16_t> block;
  for (int blocks = 0; blocks < 5; ++blocks) {
    for (int b = 0; b < blocks; ++b) ASSERT_EQ(reader.Read(65536, &block), 65536U);
    reader.Rewind();
    ASSERT_EQ(reader.Read(1, &block), 1U);
    EXPECT_EQ(block, (std::vector<std::int16_t>{samples[0], samples[1]}));
    reader.Rewind();
  }
}

TEST_F(AudioStreaming, AReaderMayEndInTheMiddle) {
  for (int blocks = 0; blocks < 4; ++blocks) {
    AudioReader reader(path);
    std::vector<std::int16_t> block;
    for (int b = 0; b < blocks; ++b) ASSERT_EQ(reader.Read(16384, &block), 16384U);
  }
}

TEST_F(AudioStreaming, WhatDoesNotFitIsCountedOverAllBlocks) {
  std::vector<double> floats(400000, 0.25);
  for (std::size_t i = 0; i < floats.size(); i += 1000) floats[i] = 1.5;
  support::WriteFloats(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1, floats);
  AudioReader reader(path);
  ASSERT_EQ(ReadAll(&reader, {16384}).size(), floats.size());
  EXPECT_EQ(reader.Counts().beyondFullScale, 400U);
}

TEST_F(AudioStreaming, AChangeIsSeenAlsoBehindWhatWasReadAhead) {
  AudioReader reader(path);
  std::vector<std::int16_t> block;
  for (int b = 0; b < 3; ++b) ASSERT_EQ(reader.Read(65536, &block), 65536U);
  std::filesystem::resize_file(path, 1000);
  try {
    ReadAll(&reader, {65536});
    ADD_FAILURE() << "accepted";
  } catch (const FileError& refusal) {
    EXPECT_EQ(std::string(refusal.what()), path + ": was changed while it was being read");
  }
}

TEST_F(AudioStreaming, AFileThatEndsTooSoonIsAnError) {
  const std::string flac = folder.FileIn("in.flac");
  support::WriteSound(flac, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, samples);
  std::filesystem::resize_file(flac, std::filesystem::file_size(flac) * 3 / 4);
  AudioReader reader(flac);
  EXPECT_THROW(ReadAll(&reader, {65536}), FileError);
}

TEST_F(AudioStreaming, EveryWayToWriteGivesTheSameFile) {
  const AudioReader source(path);
  std::string wanted;
  for (const std::size_t unit : {std::size_t{65536}, std::size_t{10000}, kFrames}) {
    for (const bool isSwapped : {true, false}) {
      PendingFile pending(folder.FileIn("out.wav"), source.Identity());
      AudioWriter writer(&pending, Container::kWav, source.Info(), kFrames);
      std::vector<std::int16_t> block;
      for (std::size_t start = 0; start < kFrames; start += unit) {
        const std::size_t frames = std::min(unit, kFrames - start);
        const std::int16_t* const part = samples.data() + 2 * start;
        if (isSwapped) {
          block.assign(part, part + 2 * frames);
          writer.Write(&block);
        } else {
          writer.Write(part, frames);
        }
      }
      writer.Finish();
      pending.Commit();
      EXPECT_EQ(support::ReadSound(folder.FileIn("out.wav")).samples, samples) << unit;
    }
  }
}

TEST_F(AudioStreaming, AWriterMayEndInTheMiddle) {
  const AudioReader source(path);
  for (int blocks = 0; blocks < 4; ++blocks) {
    PendingFile pending(folder.FileIn("out.wav"), source.Identity());
    AudioWriter writer(&pending, Container::kWav, source.Info(), kFrames);
    for (int b = 0; b < blocks; ++b) writer.Write(samples.data(), 65536);
  }
  EXPECT_FALSE(std::filesystem::exists(folder.FileIn("out.wav")));
}

// Files may not become longer than `bytes` while it lives.
class SmallFiles {
 public:
  explicit SmallFiles(rlim_t bytes) : former(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit smaller = {bytes, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &smaller);
  }
  ~SmallFiles() {
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, former);
  }

 private:
  rlimit limit{};
  void (*former)(int);
};

TEST_F(AudioStreaming, WhatCannotBeWrittenBehindIsAnErrorOfALaterCall) {
  const AudioReader source(path);
  for (const rlim_t bytes : {rlim_t{600000}, rlim_t{4 * kFrames - 10}}) {
    const SmallFiles small(bytes);
    PendingFile pending(folder.FileIn("out.wav"), source.Identity());
    AudioWriter writer(&pending, Container::kWav, source.Info(), kFrames);
    try {
      for (std::size_t start = 0; start < kFrames; start += 65536) {
        writer.Write(samples.data() + 2 * start, std::min<std::size_t>(65536, kFrames - start));
      }
      writer.Finish();
      ADD_FAILURE() << "accepted";
    } catch (const FileError& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("cannot be written: File too large"));
    }
  }
}

}  // namespace
}  // namespace harvane
