#include "delay_audio/PassObserver.h"

#include <gtest/gtest.h>

#include "logging/LogMeasurement.h"
#include "tests/delay_audio/Jobs.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"

namespace harvane {
namespace {

struct Listener {
  std::vector<LogMeasurement> heard;
  PassObserver Observer() { return {Take, this}; }
  static void Take(const LogMeasurement& measurement, void* context) {
    static_cast<Listener*>(context)->heard.push_back(measurement);
  }
};

TEST(PassObserver, HearsEachTrackOfEachPassInOrder) {
  auto texts = TextsOfPasses(2);
  texts.formats[0] = "7";
  TestJob job(texts, 48000, 8);
  Listener listener;
  SetPassObserver(&*job, listener.Observer());
  job->StartSequence();
  for (std::uint32_t pass = 0; pass < 2; ++pass) {
    job->StartPass(pass);
    EXPECT_EQ(listener.heard.size(), 2 * pass);
    job->EndPass();
  }
  ASSERT_EQ(listener.heard.size(), 4U);
  const char* const passes[] = {"Analysis", "Analysis", "Process", "Process"};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(listener.heard[i].pass.toStdString(), passes[i]);
    EXPECT_EQ(listener.heard[i].startChannel, i % 2 == 0 ? 0 : 6);
    EXPECT_EQ(listener.heard[i].endChannel, i % 2 == 0 ? 5 : 7);
  }
}

TEST(PassObserver, ChannelsCountOverTheGroupsWithoutAGap) {
  auto texts = TextsOfPasses(1);
  texts.numberOfGroups = "3";
  texts.formats = {"1", "2", "6", "2"};
  TestJob job(texts, 48000, 22);
  Listener listener;
  SetPassObserver(&*job, listener.Observer());
  job->StartSequence();
  job->StartPass(0);
  job->EndPass();
  ASSERT_EQ(listener.heard.size(), 3U);
  EXPECT_EQ(listener.heard[0].endChannel, 0);
  EXPECT_EQ(listener.heard[1].startChannel, 1);
  EXPECT_EQ(listener.heard[1].endChannel, 2);
  EXPECT_EQ(listener.heard[2].startChannel, 3);
  EXPECT_EQ(listener.heard[2].endChannel, 8);
}

TEST(PassObserver, HearsTheValuesBeforeTheDecisionResetsThem) {
  auto texts = TextsOfPasses(2);
  texts.frameRate = "25";
  TestJob job(texts);
  Listener listener;
  SetPassObserver(&*job, listener.Observer());
  job->StartSequence();
  job->StartPass(0);
  job.Deliver(support::NoiseInt16(4, 2 * 48000, 10000));
  const TrackMeasurement measured = job->Results()[0];
  job->EndPass();
  ASSERT_EQ(listener.heard.size(), 1U);
  EXPECT_BITS_EQ(measured.maxMomentary, listener.heard[0].maxMomentary);
  EXPECT_BITS_EQ(measured.maxTruePeak, listener.heard[0].maxTruePeak);
  EXPECT_BITS_EQ(measured.integratedLoudness, listener.heard[0].integratedLoudness);
  EXPECT_GT(measured.integratedLoudness, -70.0F);
  EXPECT_BITS_EQ(-70.0F, job->Results()[0].maxMomentary);
}

TEST(PassObserver, HearsNothingInJobsOfOtherNumbersOfPasses) {
  for (const int passes : {0, 3}) {
    TestJob job(TextsOfPasses(passes));
    Listener listener;
    SetPassObserver(&*job, listener.Observer());
    job->StartSequence();
    job->StartPass(0);
    job->EndPass();
    job->StartPass(1);
    job->EndPass();
    EXPECT_TRUE(listener.heard.empty()) << passes;
  }
}

TEST(PassObserver, DefaultObserverEndsTheListening) {
  TestJob job(TextsOfPasses(1));
  Listener listener;
  SetPassObserver(&*job, listener.Observer());
  SetPassObserver(&*job, PassObserver());
  job->StartSequence();
  job->StartPass(0);
  job->EndPass();
  EXPECT_TRUE(listener.heard.empty());
}

TEST(PassObserver, WritingTheWaitingRowsEmptiesTheQueue) {
  const support::TemporaryFolder folder;
  auto texts = TextsOfPasses(1);
  texts.logPath = folder.Text();
  texts.logFileName = "rows";
  texts.formats[0] = "5";
  TestJob job(texts, 48000, 8);
  job->StartSequence();
  job->StartPass(0);
  job->EndPass();
  WriteWaitingLogRows();
  const std::string bytes = support::ReadBytes(folder.FileIn("rows.csv"));
  std::size_t rows = 0;
  for (std::size_t at = bytes.find(",Analysis,"); at != std::string::npos;
       at = bytes.find(",Analysis,", at + 1)) {
    ++rows;
  }
  EXPECT_EQ(rows, 4U);
}

}  // namespace
}  // namespace harvane
