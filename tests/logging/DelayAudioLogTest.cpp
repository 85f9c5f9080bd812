#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "delay_audio/DelayAudio.h"
#include "logging/LogMeasurement.h"
#include "tests/support/Bits.h"
#include "tests/support/DelayAudioProbe.h"
#include "tests/support/LinkedJob.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kChannels = 14;

// Formats 1 and 7 make three tracks: mono on channel 0, 5.1 on 8 to 13, stereo on
// 14 and 15, of which the stream has none.
support::ParameterTexts Texts(const std::string& passes) {
  support::ParameterTexts texts;
  texts.numberOfPasses = passes;
  texts.numberOfGroups = "2";
  texts.formats = {"1", "7", "1", "1"};
  texts.logEntryName = "Job";
  texts.frameRate = "25";
  return texts;
}

std::vector<std::string> RowsOf(const std::string& log) {
  std::vector<std::string> rows;
  std::size_t first = 0;
  for (std::size_t end = log.find("\n\r\n"); end != std::string::npos;
       end = log.find("\n\r\n", first)) {
    rows.push_back(log.substr(first, end - first));
    first = end + 3;
  }
  // The banner looks like two rows: the header, and the start time.
  rows.erase(rows.begin(), rows.begin() + std::min<std::ptrdiff_t>(2, std::ssize(rows)));
  return rows;
}

std::string Start(const std::string& row, int fields) {
  std::size_t end = 0;
  for (int i = 0; i < fields; ++i) end = row.find(',', end) + 1;
  return row.substr(0, end);
}

void Listen(const LogMeasurement& measurement, void* context) {
  static_cast<std::vector<LogMeasurement>*>(context)->push_back(measurement);
}

TEST(DelayAudioLog, TracksComeInOrderWithChannelsWithoutAGap) {
  support::LinkedJob job(Texts("1"), kRate, kChannels);
  job.RunEmptyPass(0);
  const std::vector<std::string> rows = RowsOf(job.LogBytes());
  ASSERT_EQ(3U, rows.size());
  EXPECT_EQ("Job,Analysis,0,0,Mono,", Start(rows[0], 5));
  EXPECT_EQ("Job,Analysis,1,6,5.1,", Start(rows[1], 5));
  EXPECT_EQ("Job,Analysis,7,8,Stereo,", Start(rows[2], 5));
}

TEST(DelayAudioLog, TwoPassesGiveAnalysisRowsThenProcessRows) {
  support::LinkedJob job(Texts("2"), kRate, kChannels);
  job.RunEmptyPass(0);
  job.RunEmptyPass(1);
  const std::vector<std::string> rows = RowsOf(job.LogBytes());
  ASSERT_EQ(6U, rows.size());
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(i < 3 ? "Job,Analysis," : "Job,Process,", Start(rows[i], 2));
  }
  EXPECT_EQ("Job,Process,7,8,Stereo,", Start(rows[5], 5));
}

TEST(DelayAudioLog, FurtherPassesGiveNoRows) {
  for (const char* passes : {"1", "2"}) {
    support::LinkedJob job(Texts(passes), kRate, kChannels);
    job.RunEmptyPass(2);
    EXPECT_EQ("", job.LogBytes()) << passes;
  }
}

TEST(DelayAudioLog, ValuesGoToTheirFields) {
  support::LinkedJob job(Texts("1"), kRate, kChannels);
  DelayAudioProbe::Results(job.Instance())[1] = {1.5F, 48000, 2.5F, 2 * 48000,
                                                 3.5F, 4.5F,  5.5F, 3 * 48000 + 1920};
  job.RunEmptyPass(0);
  EXPECT_EQ("Job,Analysis,1,6,5.1,3.5,4.5,5.5,00:00:03:01,2.5,00:00:02:00,1.5,00:00:01:00",
            RowsOf(job.LogBytes())[1]);
}

TEST(DelayAudioLog, TimeCodesAreMillisecondsWithoutAFrameRate) {
  support::ParameterTexts texts = Texts("1");
  texts.frameRate = "0";
  support::LinkedJob job(texts, kRate, kChannels);
  DelayAudioProbe::Results(job.Instance())[0].maxMomentaryPosition = 48000 + 24000;
  job.RunEmptyPass(0);
  const std::string row = RowsOf(job.LogBytes())[0];
  EXPECT_EQ("00:00:01:500", row.substr(row.size() - 12));
}

TEST(DelayAudioLog, PositionsBehindTheEndOfTheCountHaveTimeCodesBelowZero) {
  support::LinkedJob job(Texts("1"), kRate, kChannels);
  constexpr int kSmallest = std::numeric_limits<int>::min();
  DelayAudioProbe::Results(job.Instance())[1] = {1.5F, -48000, 2.5F, kSmallest,
                                                 3.5F, 4.5F,   5.5F, kSmallest + 1920};
  job.RunEmptyPass(0);
  EXPECT_EQ("Job,Analysis,1,6,5.1,3.5,4.5,5.5,-12:-25:-39:-5,2.5,-12:-25:-39:-6,1.5,00:00:-1:00",
            RowsOf(job.LogBytes())[1]);
}

TEST(DelayAudioLog, ProcessRowsShareNothingWithTheAnalysisRows) {
  support::LinkedJob job(Texts("2"), kRate, kChannels);
  for (TrackMeasurement& result : DelayAudioProbe::Results(job.Instance())) {
    result = {1.5F, 48000, 2.5F, 48000, 3.5F, 4.5F, 5.5F, 48000};
  }
  job.RunEmptyPass(0);
  job.RunEmptyPass(1);
  const std::vector<std::string> rows = RowsOf(job.LogBytes());
  ASSERT_EQ(6U, rows.size());
  EXPECT_EQ("Job,Analysis,0,0,Mono,3.5,4.5,5.5,00:00:01:00,2.5,00:00:01:00,1.5,00:00:01:00",
            rows[0]);
  EXPECT_EQ(
      "Job,Process,0,0,Mono,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,-70.0,00:00:00:00",
      rows[3]);
}

TEST(DelayAudioLog, StreamShorterThanAChunkShowsTheResetValues) {
  support::ParameterTexts texts = Texts("1");
  texts.numberOfGroups = "1";
  support::LinkedJob job(texts, kRate, 1);
  job.RunPass(0, std::vector<std::int16_t>(238, 20000), 1, 238);
  EXPECT_EQ(
      "Job,Analysis,0,0,Mono,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,-70.0,00:00:00:00",
      RowsOf(job.LogBytes())[0]);
}

TEST(DelayAudioLog, EntryNameIsTheParameterAsItStands) {
  support::ParameterTexts texts = Texts("1");
  texts.logEntryName =
      "Gr\xc3\xbc\xc3\x9f"
      "e, 2";
  support::LinkedJob job(texts, kRate, kChannels);
  job.RunEmptyPass(0);
  EXPECT_EQ(0U, RowsOf(job.LogBytes())[0].find("Gr\xc3\xbc\xc3\x9f"
                                               "e, 2,Analysis,"));
}

TEST(DelayAudioLog, EmptyEntryNameGivesTheDefaultName) {
  support::ParameterTexts texts = Texts("1");
  texts.logEntryName = "(absent)";
  support::LinkedJob job(texts, kRate, kChannels);
  job.RunEmptyPass(0);
  const std::vector<std::string> rows = RowsOf(job.LogBytes());
  ASSERT_EQ(3U, rows.size());
  for (const std::string& row : rows) EXPECT_EQ(0U, row.find("JobAt_")) << row;
}

TEST(DelayAudioLog, ObserverHearsTheUnroundedValuesPerTrack) {
  support::LinkedJob job(Texts("1"), kRate, kChannels);
  std::vector<LogMeasurement> heard;
  SetPassObserver(job.Session().Handle(), {Listen, &heard});
  DelayAudioProbe::Results(job.Instance())[2].integratedLoudness = -23.44F;
  job.RunEmptyPass(0);
  SetPassObserver(job.Session().Handle(), {});
  ASSERT_EQ(3U, heard.size());
  EXPECT_EQ("Analysis", heard[2].pass.toStdString());
  EXPECT_EQ(7, heard[2].startChannel);
  EXPECT_EQ(8, heard[2].endChannel);
  EXPECT_BITS_EQ(-23.44F, heard[2].integratedLoudness);
}

}  // namespace
}  // namespace harvane
