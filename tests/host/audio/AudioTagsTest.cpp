// What stands beside the samples of an audio file: chunks, markers, the broadcast chunk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "host/AudioFile.h"
#include "tests/host/audio/SoundFiles.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Key;
using testing::Not;
using testing::Pair;

using Chunks = std::vector<std::pair<std::string, std::string>>;  // id and data

std::string Number(std::uint64_t value, int size, bool isBigEndian) {
  std::string bytes;
  for (int i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
  return isBigEndian ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
}

std::uint64_t NumberAt(const std::string& bytes, std::size_t place, int size, bool isBigEndian) {
  std::uint64_t value = 0;
  for (int i = 0; i < size; ++i) {
    const int from = isBigEndian ? i : size - 1 - i;
    value = value << 8 | static_cast<unsigned char>(bytes.at(place + static_cast<size_t>(from)));
  }
  return value;
}

// How a family of containers is built.
struct Layout {
  std::size_t start;  // of the first chunk
  int sizeBytes;      // of a chunk's length
  bool isBigEndian;
  bool isPadded;
};
constexpr Layout kRiff = {12, 4, false, true};
constexpr Layout kAiff = {12, 4, true, true};
constexpr Layout kCaf = {8, 8, true, false};

// All chunks of a file but for the samples, which it checks to end in the file.
Chunks ChunksOf(const std::string& path, const Layout& layout) {
  const std::string bytes = support::ReadBytes(path);
  Chunks chunks;
  std::size_t place = layout.start;
  while (place < bytes.size()) {
    const std::string id = bytes.substr(place, 4);
    const bool isLong = id == "data" && bytes.starts_with("RF64");
    const auto size = static_cast<std::size_t>(
        isLong ? NumberAt(bytes, 28, 8, false)
               : NumberAt(bytes, place + 4, layout.sizeBytes, layout.isBigEndian));
    place += 4 + static_cast<std::size_t>(layout.sizeBytes);
    EXPECT_LE(place + size, bytes.size()) << id;
    if (id != "data" && id != "SSND") chunks.emplace_back(id, bytes.substr(place, size));
    place += size + (layout.isPadded ? size % 2 : 0);
  }
  EXPECT_EQ(place, bytes.size());
  return chunks;
}

// Puts chunks behind the others of a WAV, AIFF or CAF file.
void AddChunks(const std::string& path, const Layout& layout, const Chunks& chunks) {
  std::string bytes = support::ReadBytes(path);
  for (const auto& [id, data] : chunks) {
    bytes += id + Number(data.size(), layout.sizeBytes, layout.isBigEndian) + data;
    if (layout.isPadded && data.size() % 2 != 0) bytes += '\0';
  }
  if (layout.isPadded) bytes.replace(4, 4, Number(bytes.size() - 8, 4, layout.isBigEndian));
  support::WriteBytes(path, bytes);
}

// The chunks are long: a matcher would print them all.
void ExpectChunks(const Chunks& chunks, const Chunks& wanted) {
  for (const auto& one : wanted) {
    EXPECT_TRUE(std::find(chunks.begin(), chunks.end(), one) != chunks.end()) << one.first;
  }
}

std::string Label(std::uint32_t cue, const std::string& text) {
  return "adtllabl" + Number(4 + text.size(), 4, false) + Number(cue, 4, false) + text;
}

std::string CuePoint(std::uint32_t frame) {
  return Number(1, 4, false) + Number(1, 4, false) + Number(frame, 4, false) + "data" +
         Number(0, 8, false) + Number(frame, 4, false);
}

class AudioTags : public testing::Test {
 protected:
  // Writes what `in` holds to a file of the other name, with its samples and its tags.
  void Copy(const std::string& in, const std::string& out, Container container,
            BroadcastMode mode = BroadcastMode::kKeep, const BroadcastLoudness& loudness = {},
            std::int64_t announced = 4) {
    AudioReader reader(in);
    PendingFile pending(out, reader.Identity());
    AudioWriter writer(&pending, container, reader.Info(), announced, mode);
    std::vector<std::int16_t> block;
    while (reader.Read(100, &block) > 0) writer.Write(&block);
    writer.SetLoudness(loudness);
    writer.Finish();
    pending.Commit();
    EXPECT_EQ(support::ReadSound(out).samples, samples);
  }

  std::string Sound(const std::string& name, int format) {
    support::WriteSound(folder.FileIn(name), format | SF_FORMAT_PCM_16, 48000, 2, samples);
    return folder.FileIn(name);
  }

  // A WAV file with a broadcast chunk of `version`, of a programme at -20 LUFS.
  std::string BroadcastSound(int version) {
    const std::string path = folder.FileIn("bext.wav");
    SF_INFO info{};
    info.format = kWav;
    info.samplerate = 48000;
    info.channels = 2;
    SNDFILE* const sound = sf_open(path.c_str(), SFM_WRITE, &info);
    SF_BROADCAST_INFO broadcast{};
    std::strncpy(broadcast.description, "evening news", sizeof broadcast.description);
    std::strncpy(broadcast.coding_history, "A=PCM,F=48000,W=24\r\n",
                 sizeof broadcast.coding_history);
    broadcast.coding_history_size = 20;
    broadcast.time_reference_low = 1234567;
    broadcast.version = static_cast<short>(version);
    if (version >= 2) broadcast.loudness_value = -2000;
    EXPECT_EQ(sf_command(sound, SFC_SET_BROADCAST_INFO, &broadcast, sizeof broadcast), SF_TRUE);
    EXPECT_EQ(sf_write_short(sound, samples.data(), 8), 8);
    sf_close(sound);
    return path;
  }

  static constexpr int kWav = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  support::TemporaryFolder folder;
  std::vector<std::int16_t> samples = {1, -2, 3, -4, 5, -6, 7, -8};
  std::string out = folder.FileIn("out");
};

const Chunks kRiffChunks = {{"iXML", "<a>odd</a>!"},
                            {"axml", std::string(300001, 'x')},
                            {"chna", std::string(44, '\1')},
                            {"_PMX", ""},
                            {"cue ", Number(1, 4, false) + CuePoint(3)},
                            {"LIST", Label(1, "take")},
                            {"smpl", std::string(36, '\0')},
                            {"cart", std::string(2048, 'c')}};

TEST_F(AudioTags, RiffChunksAreCarriedOverByteByByte) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  AddChunks(in, kRiff, kRiffChunks);
  Copy(in, out, Container::kWav);
  ExpectChunks(ChunksOf(out, kRiff), kRiffChunks);
  EXPECT_EQ(NumberAt(support::ReadBytes(out), 4, 4, false), support::ReadBytes(out).size() - 8);
}

TEST_F(AudioTags, RiffChunksOfOddLengthEndWithASpaceInRf64) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  AddChunks(in, kRiff, kRiffChunks);
  Chunks wanted = kRiffChunks;
  for (auto& [id, data] : wanted) {
    if (data.size() % 2 != 0) data += ' ';
  }
  Copy(in, out, Container::kRf64);
  ExpectChunks(ChunksOf(out, kRiff), wanted);
  EXPECT_EQ(NumberAt(support::ReadBytes(out), 20, 8, false), support::ReadBytes(out).size() - 8);
  Copy(out, folder.FileIn("again"), Container::kWav);
  ExpectChunks(ChunksOf(folder.FileIn("again"), kRiff), wanted);
}

TEST_F(AudioTags, ChunksFollowIntoTheLongFormOfWav) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  AddChunks(in, kRiff, {{"iXML", "<a/>"}});
  Copy(in, out, Container::kWav, BroadcastMode::kKeep, {}, std::int64_t{1} << 30);
  EXPECT_EQ(support::ReadBytes(out).substr(0, 4), "RF64");
  EXPECT_THAT(ChunksOf(out, kRiff), Contains(Pair("iXML", "<a/>")));
}

TEST_F(AudioTags, ChunksThatSpeakOfTheSamplesOrOfNothingKnownAreLeftOut) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  const std::string info = "INFOISFT" + Number(4, 4, false) + "Tool";
  AddChunks(in, kRiff, {{"levl", "peak envelope..."}, {"LIST", info}, {"LIST", "ab"}});
  Copy(in, out, Container::kWav);
  const Chunks chunks = ChunksOf(out, kRiff);
  EXPECT_THAT(chunks, Not(Contains(Key("levl"))));
  EXPECT_THAT(chunks, Not(Contains(Pair("LIST", info))));
  EXPECT_THAT(chunks, Not(Contains(Pair("LIST", "ab"))));
}

TEST_F(AudioTags, AiffAndCafKeepTheirMarkers) {
  const std::string mark = Number(1, 2, true) + Number(7, 2, true) + Number(2, 4, true) + "\3abc";
  const std::string aiff = Sound("in.aiff", SF_FORMAT_AIFF);
  AddChunks(aiff, kAiff, {{"MARK", mark}, {"iXML", "<a>odd</a>!"}});
  Copy(aiff, out, Container::kAiff);
  EXPECT_THAT(ChunksOf(out, kAiff), IsSupersetOf(Chunks{{"MARK", mark}, {"iXML", "<a>odd</a>!"}}));
  EXPECT_EQ(NumberAt(support::ReadBytes(out), 4, 4, true), support::ReadBytes(out).size() - 8);

  const std::string caf = Sound("in.caf", SF_FORMAT_CAF);
  AddChunks(caf, kCaf, {{"umid", std::string(64, 'u')}, {"iXML", "<a>odd</a>!"}});
  Copy(caf, out, Container::kCaf);
  EXPECT_THAT(ChunksOf(out, kCaf),
              IsSupersetOf(Chunks{{"umid", std::string(64, 'u')}, {"iXML", "<a>odd</a>!"}}));
}

TEST_F(AudioTags, MarkersOfAnAiffFileBecomeCuePointsOfAWavFile) {
  const std::string in = Sound("in.aiff", SF_FORMAT_AIFF);
  AddChunks(in, kAiff,
            {{"MARK", Number(1, 2, true) + Number(7, 2, true) + Number(2, 4, true) + "\3abc"}});
  Copy(in, out, Container::kWav);
  const Chunks chunks = ChunksOf(out, kRiff);
  ASSERT_THAT(chunks, Contains(Key("cue ")));
  for (const auto& [id, data] : chunks) {
    if (id != "cue ") continue;
    ASSERT_EQ(data.size(), 28U);
    EXPECT_EQ(NumberAt(data, 0, 4, false), 1U);
    EXPECT_EQ(NumberAt(data, 24, 4, false), 2U);  // the frame
  }
}

TEST_F(AudioTags, SurroundChannelsKeepTheirMeaning) {
  constexpr int kFront[] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER,
                            SF_CHANNEL_MAP_LFE};
  std::vector<int> side(std::begin(kFront), std::end(kFront));
  std::vector<int> rear = side;
  side.insert(side.end(), {SF_CHANNEL_MAP_SIDE_LEFT, SF_CHANNEL_MAP_SIDE_RIGHT});
  rear.insert(rear.end(), {SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT});
  const std::string in = folder.FileIn("in.wav");
  for (std::vector<int> map : {side, rear}) {
    SF_INFO info{};
    info.format = SF_FORMAT_WAVEX | SF_FORMAT_PCM_16;
    info.samplerate = 48000;
    info.channels = 6;
    SNDFILE* const sound = sf_open(in.c_str(), SFM_WRITE, &info);
    ASSERT_EQ(sf_command(sound, SFC_SET_CHANNEL_MAP_INFO, map.data(), 6 * sizeof(int)), SF_TRUE);
    samples.assign(12, 5);
    sf_write_short(sound, samples.data(), 12);
    sf_close(sound);
    for (const Container container : {Container::kWav, Container::kRf64}) {
      Copy(in, out, container);
      EXPECT_EQ(AudioReader(out).Info().channelMap, map);
    }
    // They have one name for both.
    for (const Container container : {Container::kAiff, Container::kCaf}) {
      Copy(in, out, container);
      EXPECT_EQ(AudioReader(out).Info().channelMap, rear);
    }
  }
}

TEST_F(AudioTags, ContainersWithoutSuchChunksAreWrittenWithoutThem) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  AddChunks(in, kRiff, kRiffChunks);
  for (const Container container :
       {Container::kW64, Container::kFlac, Container::kAiff, Container::kCaf}) {
    Copy(in, out, container, BroadcastMode::kUpdate);
    EXPECT_EQ(support::ReadBytes(out).find("<a>odd"), std::string::npos);
  }
}

TEST_F(AudioTags, AChunkThatClaimsMoreThanTheFileHoldsIsLeftOut) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  std::string bytes = support::ReadBytes(in) + "iXML" + Number(0x7FFFFFF0, 4, false) + "<a/>";
  bytes.replace(4, 4, Number(bytes.size() - 8, 4, false));
  support::WriteBytes(in, bytes);
  Copy(in, out, Container::kWav);
  EXPECT_THAT(ChunksOf(out, kRiff), Not(Contains(Key("iXML"))));
}

// Places of EBU Tech 3285 in a broadcast chunk.
constexpr std::size_t kTimeReferencePlace = 338;
constexpr std::size_t kVersionPlace = 346;
constexpr std::size_t kLoudnessPlace = 412;  // value, range, true peak, momentary, short-term

std::string BroadcastChunkOf(const std::string& path) {
  for (const auto& [id, data] : ChunksOf(path, kRiff)) {
    if (id == "bext") return data;
  }
  return std::string(kLoudnessPlace + 190, '?');
}

int VersionOf(const std::string& chunk) {
  return static_cast<std::int16_t>(NumberAt(chunk, kVersionPlace, 2, false));
}

std::vector<int> LoudnessOf(const std::string& chunk) {
  std::vector<int> values;
  for (std::size_t i = 0; i < 5; ++i) {
    values.push_back(static_cast<std::int16_t>(NumberAt(chunk, kLoudnessPlace + 2 * i, 2, false)));
  }
  return values;
}

TEST_F(AudioTags, BroadcastUpdateWritesWhatWasMeasuredInHundredths) {
  const BroadcastLoudness loudness = {-23.006, 7.25, -1.0, std::nullopt, -18.499};
  for (const int version : {0, 1, 2}) {
    const std::string in = BroadcastSound(version);
    for (const Container container : {Container::kWav, Container::kRf64}) {
      Copy(in, out, container, BroadcastMode::kUpdate, loudness);
      const std::string chunk = BroadcastChunkOf(out);
      EXPECT_EQ(VersionOf(chunk), 2);
      EXPECT_THAT(LoudnessOf(chunk), ElementsAre(-2301, 725, -100, 0x7FFF, -1850));
      EXPECT_EQ(chunk.substr(0, 12), "evening news");
      EXPECT_EQ(NumberAt(chunk, kTimeReferencePlace, 8, false), 1234567U);
      EXPECT_NE(chunk.find("A=PCM,F=48000,W=24\r\n"), std::string::npos);
    }
  }
}

TEST_F(AudioTags, BroadcastUpdateBeginsAChunkWhereThereIsNone) {
  const std::string in = Sound("in.wav", SF_FORMAT_WAV);
  Copy(in, out, Container::kWav, BroadcastMode::kUpdate, {-23.0, {}, {}, {}, {}});
  const std::string chunk = BroadcastChunkOf(out);
  EXPECT_EQ(VersionOf(chunk), 2);
  EXPECT_THAT(LoudnessOf(chunk), ElementsAre(-2300, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF));
}

TEST_F(AudioTags, KeptBroadcastChunksSayNothingOfTheLoudnessThatWas) {
  for (const int version : {0, 1, 2}) {
    Copy(BroadcastSound(version), out, Container::kWav, BroadcastMode::kKeep,
         {-23.0, {}, {}, {}, {}});
    const std::string chunk = BroadcastChunkOf(out);
    EXPECT_EQ(VersionOf(chunk), 2);
    EXPECT_THAT(LoudnessOf(chunk), testing::Each(0x7FFF));
    EXPECT_EQ(chunk.substr(0, 12), "evening news");
  }
}

TEST_F(AudioTags, BroadcastChunksCanBeDropped) {
  Copy(BroadcastSound(2), out, Container::kWav, BroadcastMode::kDrop);
  EXPECT_THAT(ChunksOf(out, kRiff), Not(Contains(Key("bext"))));
}

TEST(BroadcastHundredths, AreNotIndicatedOutsideOfTheirRange) {
  EXPECT_EQ(BroadcastHundredths(std::nullopt), 0x7FFF);
  EXPECT_EQ(BroadcastHundredths(0.125), 13);
  EXPECT_EQ(BroadcastHundredths(-0.125), -13);
  EXPECT_EQ(BroadcastHundredths(99.99), 9999);
  EXPECT_EQ(BroadcastHundredths(-99.99), -9999);
  EXPECT_EQ(BroadcastHundredths(100.0), 0x7FFF);
  EXPECT_EQ(BroadcastHundredths(-100.0), 0x7FFF);
  EXPECT_EQ(BroadcastHundredths(-std::numeric_limits<double>::infinity()), 0x7FFF);
  EXPECT_EQ(BroadcastHundredths(std::nan("")), 0x7FFF);
}

TEST(Broadcast, IsAMatterOfWavAndRf64) {
  EXPECT_TRUE(HasBroadcast(Container::kWav));
  EXPECT_TRUE(HasBroadcast(Container::kRf64));
  for (const Container other :
       {Container::kW64, Container::kAiff, Container::kCaf, Container::kFlac}) {
    EXPECT_FALSE(HasBroadcast(other));
  }
}

}  // namespace
}  // namespace harvane
