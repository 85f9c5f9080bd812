#include "host/AudioFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "host/FileError.h"
#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"

namespace harvane {
namespace {

using support::kWav16;
using testing::HasSubstr;

std::vector<std::int16_t> ReadAll(AudioReader* reader, std::size_t unit) {
  std::vector<std::int16_t> all;
  std::vector<std::int16_t> block;
  while (reader->Read(unit, &block) > 0) all.insert(all.end(), block.begin(), block.end());
  return all;
}

std::string RefusalOf(const std::string& path) {
  try {
    AudioReader reader(path);
    ReadAll(&reader, 1000);
    return "(accepted)";
  } catch (const FileError& refusal) {
    return refusal.what();
  }
}

struct Kind {
  const char* name;
  int format;
  Container container;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

class AudioFileTest : public testing::TestWithParam<Kind> {
 protected:
  support::TemporaryFolder folder;
};

TEST_P(AudioFileTest, SixteenBitsComeThroughUnchanged) {
  const std::vector<std::int16_t> samples = support::NoiseInt16(1, 3 * 1001, 32767);
  const std::string path = folder.FileIn("in");
  support::WriteSound(path, GetParam().format | SF_FORMAT_PCM_16, 44100, 3, samples);
  AudioReader reader(path);
  EXPECT_EQ(reader.Info().container, GetParam().container);
  EXPECT_EQ(reader.Info().sampleRate, 44100);
  EXPECT_EQ(reader.Info().channels, 3);
  EXPECT_EQ(reader.Info().frames, 1001);
  EXPECT_TRUE(reader.Info().reduction.empty());
  EXPECT_FALSE(reader.Info().isHeaderWrong);
  EXPECT_EQ(ReadAll(&reader, 100), samples);
  reader.Rewind();
  EXPECT_EQ(ReadAll(&reader, 5000), samples);
}

TEST_P(AudioFileTest, WrittenFilesHoldWhatWasWritten) {
  const std::vector<std::int16_t> samples = support::NoiseInt16(2, 2 * 5000, 32767);
  const std::string in = folder.FileIn("in.wav");
  support::WriteSound(in, kWav16, 96000, 2, samples);
  AudioReader reader(in);
  const std::string out = folder.FileIn("out");
  PendingFile pending(out, reader.Identity());
  AudioWriter writer(&pending, GetParam().container, reader.Info(), 5000);
  writer.Write(samples.data(), 1000);
  writer.Write(samples.data() + 2000, 4000);
  writer.Finish();
  pending.Commit();
  const support::Sound sound = support::ReadSound(out);
  EXPECT_EQ(sound.info.format & SF_FORMAT_TYPEMASK, GetParam().format);
  EXPECT_EQ(sound.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
  EXPECT_EQ(sound.info.samplerate, 96000);
  EXPECT_EQ(sound.samples, samples);
}

TEST_P(AudioFileTest, TwentyFourBitsAreRounded) {
  const std::string path = folder.FileIn("in");
  // Full scale 2^31: one and a half steps, two and a half, the top.
  support::WriteIntegers(path, GetParam().format | SF_FORMAT_PCM_24, 48000, 1,
                         {98304, 163840, -98304, 98304 - 256, 2147483392});
  AudioReader reader(path);
  EXPECT_THAT(reader.Info().reduction, HasSubstr("24-bit"));
  EXPECT_EQ(ReadAll(&reader, 10), (std::vector<std::int16_t>{2, 2, -2, 1, 32767}));
}

INSTANTIATE_TEST_SUITE_P(Kinds, AudioFileTest,
                         testing::Values(Kind{"Wav", SF_FORMAT_WAV, Container::kWav},
                                         Kind{"Rf64", SF_FORMAT_RF64, Container::kRf64},
                                         Kind{"W64", SF_FORMAT_W64, Container::kW64},
                                         Kind{"Aiff", SF_FORMAT_AIFF, Container::kAiff},
                                         Kind{"Caf", SF_FORMAT_CAF, Container::kCaf},
                                         Kind{"Flac", SF_FORMAT_FLAC, Container::kFlac}),
                         [](const auto& info) { return info.param.name; });

TEST(AudioReader, FloatsOverThirtyTwoThousandAreExact) {
  const support::TemporaryFolder folder;
  std::vector<double> floats;
  std::vector<std::int16_t> wanted;
  for (int v = -32768; v <= 32767; v += 7) {
    floats.push_back(v / 32768.0);
    wanted.push_back(static_cast<std::int16_t>(v));
  }
  for (const int coding : {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
    support::WriteFloats(folder.FileIn("f.wav"), SF_FORMAT_WAV | coding, 48000, 1, floats);
    AudioReader reader(folder.FileIn("f.wav"));
    EXPECT_THAT(reader.Info().reduction, HasSubstr("float"));
    EXPECT_EQ(ReadAll(&reader, 1000), wanted);
  }
}

TEST(AudioReader, CountsFloatsThatDoNotFitAndStartsAgainAtRewind) {
  const support::TemporaryFolder folder;
  support::WriteFloats(folder.FileIn("f.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1,
                       {2.0, std::nan(""), -std::numeric_limits<double>::infinity(), 0.5});
  AudioReader reader(folder.FileIn("f.wav"));
  EXPECT_EQ(ReadAll(&reader, 10), (std::vector<std::int16_t>{32767, 0, -32768, 16384}));
  EXPECT_EQ(reader.Counts().beyondFullScale, 2U);
  EXPECT_EQ(reader.Counts().notNumbers, 1U);
  reader.Rewind();
  EXPECT_EQ(reader.Counts().beyondFullScale, 0U);
}

TEST(AudioReader, EightBitsKeepTheirValue) {
  const support::TemporaryFolder folder;
  support::WriteSound(folder.FileIn("b.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 48000, 1,
                      {-32768, 0, 256, 32512});
  AudioReader reader(folder.FileIn("b.wav"));
  EXPECT_EQ(ReadAll(&reader, 10), (std::vector<std::int16_t>{-32768, 0, 256, 32512}));
}

TEST(AudioReader, CompressedCodingsAreDecodedWithANotice) {
  const support::TemporaryFolder folder;
  support::WriteSound(folder.FileIn("a.wav"), SF_FORMAT_WAV | SF_FORMAT_ALAW, 48000, 1, {0, 8, 16});
  EXPECT_THAT(AudioReader(folder.FileIn("a.wav")).Info().reduction, HasSubstr("decoded"));
}

TEST(AudioReader, RefusalsNameTheFileAndWhatWouldBeRight) {
  const support::TemporaryFolder folder;
  const std::string path = folder.FileIn("x");
  EXPECT_EQ(RefusalOf(path), path + ": cannot be opened: No such file or directory");
  support::WriteBytes(path, "");
  EXPECT_EQ(RefusalOf(path),
            path + ": is empty; a WAV, RF64, W64, AIFF, CAF or FLAC file would be right");
  support::WriteBytes(path, "this is no audio at all, only text");
  EXPECT_THAT(RefusalOf(path),
              HasSubstr("a WAV, RF64, W64, AIFF, CAF or FLAC file would be right"));
  support::WriteSound(path, kWav16, 48000, 2, {});
  EXPECT_EQ(RefusalOf(path), path + ": is empty: it holds no frame of audio");
  EXPECT_THAT(RefusalOf(folder.Text()), HasSubstr("is a folder"));
  EXPECT_THAT(RefusalOf("/dev/zero"), HasSubstr("is not a regular file"));
}

TEST(AudioReader, OtherKindsOfFileAreRefusedByName) {
  const support::TemporaryFolder folder;
  support::WriteSound(folder.FileIn("x"), SF_FORMAT_AU | SF_FORMAT_PCM_16, 48000, 1, {1, 2});
  EXPECT_THAT(RefusalOf(folder.FileIn("x")), HasSubstr("is of the kind \"AU"));
}

TEST(AudioReader, AShortenedFileIsTakenAsFarAsItGoesAndSaysSo) {
  const support::TemporaryFolder folder;
  for (const int kind : {SF_FORMAT_WAV, SF_FORMAT_AIFF, SF_FORMAT_RF64}) {
    const std::string path = folder.FileIn("x");
    support::WriteSound(path, kind | SF_FORMAT_PCM_16, 48000, 1, support::NoiseInt16(3, 4000, 99));
    std::filesystem::resize_file(path, 4000);
    AudioReader reader(path);
    EXPECT_TRUE(reader.Info().isHeaderWrong) << kind;
    EXPECT_EQ(static_cast<std::int64_t>(ReadAll(&reader, 100).size()), reader.Info().frames);
    EXPECT_LT(reader.Info().frames, 2000);
  }
}

TEST(AudioReader, AShortenedFlacFileIsAnError) {
  const support::TemporaryFolder folder;
  const std::string path = folder.FileIn("x.flac");
  support::WriteSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1,
                      support::NoiseInt16(3, 40000, 9999));
  std::filesystem::resize_file(path, 30000);
  EXPECT_THAT(RefusalOf(path), testing::StartsWith(path + ": "));
  EXPECT_NE(RefusalOf(path), "(accepted)");
}

TEST(AudioReader, AFileThatChangesWhileItIsReadIsAnError) {
  const support::TemporaryFolder folder;
  const std::string path = folder.FileIn("x.wav");
  support::WriteSound(path, kWav16, 48000, 1, support::NoiseInt16(3, 4000, 99));
  AudioReader reader(path);
  std::vector<std::int16_t> block;
  ASSERT_EQ(reader.Read(100, &block), 100U);
  std::filesystem::resize_file(path, 1000);
  try {
    reader.Read(100, &block);
    ADD_FAILURE() << "accepted";
  } catch (const FileError& refusal) {
    EXPECT_EQ(std::string(refusal.what()), path + ": was changed while it was being read");
  }
}

TEST(AudioWriter, TheNameSaysTheKind) {
  EXPECT_EQ(ContainerForName("a.WAV", Container::kFlac), Container::kWav);
  EXPECT_EQ(ContainerForName("a.rf64", Container::kFlac), Container::kRf64);
  EXPECT_EQ(ContainerForName("a.aif", Container::kFlac), Container::kAiff);
  EXPECT_EQ(ContainerForName("a.AiFF", Container::kFlac), Container::kAiff);
  EXPECT_EQ(ContainerForName("a.flac", Container::kWav), Container::kFlac);
  EXPECT_EQ(ContainerForName("a.w64", Container::kWav), Container::kW64);
  EXPECT_EQ(ContainerForName("a.CAF", Container::kWav), Container::kCaf);
  EXPECT_EQ(ContainerForName("a.bwf", Container::kFlac), Container::kWav);
  EXPECT_EQ(ContainerForName("b.wav/a", Container::kAiff), Container::kAiff);
  EXPECT_THROW(ContainerForName("a.mp3", Container::kWav), FileError);
}

class AudioWriterFromWav : public testing::Test {
 protected:
  AudioInfo InfoOf(int channels) {
    support::WriteSound(folder.FileIn("in.wav"), kWav16, 48000, channels,
                        std::vector<std::int16_t>(static_cast<std::size_t>(channels)));
    return AudioReader(folder.FileIn("in.wav")).Info();
  }
  support::TemporaryFolder folder;
};

TEST_F(AudioWriterFromWav, ALongWavBecomesRf64) {
  const std::string out = folder.FileIn("out.wav");
  PendingFile pending(out, {});
  AudioWriter writer(&pending, Container::kWav, InfoOf(2), std::int64_t{1} << 30);
  const std::vector<std::int16_t> samples = {1, 2};
  writer.Write(samples.data(), 1);
  writer.Finish();
  pending.Commit();
  EXPECT_EQ(support::ReadBytes(out).substr(0, 4), "RF64");
  EXPECT_EQ(support::ReadSound(out).samples, samples);
}

TEST_F(AudioWriterFromWav, SaysWhatAContainerCannotHold) {
  std::string reason;
  EXPECT_TRUE(CanHold(Container::kWav, InfoOf(32), std::int64_t{1} << 31, &reason));
  EXPECT_FALSE(CanHold(Container::kFlac, InfoOf(9), 1, &reason));
  EXPECT_THAT(reason, HasSubstr("8 channels at most"));
  EXPECT_TRUE(CanHold(Container::kFlac, InfoOf(8), 1, &reason));
  EXPECT_FALSE(CanHold(Container::kAiff, InfoOf(2), std::int64_t{1} << 30, &reason));
  EXPECT_THAT(reason, HasSubstr("4 GiB"));
}

TEST_F(AudioWriterFromWav, KeepsChannelMapTextsAndTimeReference) {
  const std::string in = folder.FileIn("map.wav");
  const std::vector<int> map = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER};
  {
    SF_INFO info{};
    info.format = SF_FORMAT_WAVEX | SF_FORMAT_PCM_16;
    info.samplerate = 48000;
    info.channels = 3;
    SNDFILE* const sound = sf_open(in.c_str(), SFM_WRITE, &info);
    ASSERT_NE(sound, nullptr);
    std::vector<int> given = map;
    sf_command(sound, SFC_SET_CHANNEL_MAP_INFO, given.data(), 3 * sizeof(int));
    sf_set_string(sound, SF_STR_TITLE, "a title");
    SF_BROADCAST_INFO broadcast{};
    broadcast.time_reference_low = 1234567;
    broadcast.version = 2;
    broadcast.loudness_value = -2300;
    ASSERT_EQ(sf_command(sound, SFC_SET_BROADCAST_INFO, &broadcast, sizeof broadcast), SF_TRUE);
    const std::int16_t frame[3] = {1, 2, 3};
    sf_writef_short(sound, frame, 1);
    sf_close(sound);
  }
  const AudioReader reader(in);
  const std::string out = folder.FileIn("out.wav");
  PendingFile pending(out, reader.Identity());
  AudioWriter writer(&pending, Container::kWav, reader.Info(), 1);
  const std::int16_t frame[3] = {4, 5, 6};
  writer.Write(frame, 1);
  writer.Finish();
  pending.Commit();
  const AudioReader back(out);
  EXPECT_TRUE(back.Info().isExtensible);
  EXPECT_EQ(back.Info().channelMap.size(), 3U);
  EXPECT_EQ(back.Info().channelMap, reader.Info().channelMap);
  ASSERT_EQ(back.Info().texts.size(), 1U);
  EXPECT_EQ(back.Info().texts[0].second, "a title");
  SF_INFO info{};
  SNDFILE* const sound = sf_open(out.c_str(), SFM_READ, &info);
  SF_BROADCAST_INFO broadcast{};
  ASSERT_EQ(sf_command(sound, SFC_GET_BROADCAST_INFO, &broadcast, sizeof broadcast), SF_TRUE);
  sf_close(sound);
  EXPECT_EQ(broadcast.time_reference_low, 1234567U);
  EXPECT_EQ(broadcast.loudness_value, 0x7FFF);
}

TEST_F(AudioWriterFromWav, AFullDeviceIsAnError) {
  const AudioInfo info = InfoOf(1);
  for (const Container container : {Container::kWav, Container::kAiff, Container::kFlac}) {
    PendingFile pending(folder.FileIn("out"), {});
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(dup2(full, pending.Number()), 0);
    close(full);
    const std::vector<std::int16_t> samples = support::NoiseInt16(3, 40000, 9999);
    try {
      AudioWriter writer(&pending, container, info, 40000);
      writer.Write(samples.data(), samples.size());
      writer.Finish();
      ADD_FAILURE() << "accepted";
    } catch (const FileError& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("No space left on device"));
    }
  }
}

}  // namespace
}  // namespace harvane
