#include "host/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace harvane {
namespace {

using testing::HasSubstr;
using testing::Not;

LogMeasurement Measured(int first, int last, float loudness) {
  return {"Analysis", first, last, loudness, 4.5F, -3.25F, {}, -20.125F, {}, -18.5F, {}};
}

TEST(Report, ValuesAreUnrounded) {
  const TrackReport track = {Measured(0, 1, -23.456789F), {}, {}};
  EXPECT_THAT(ReportTable("a.wav", {track}), HasSubstr("-23.456789 "));
}

TEST(Report, ALevelThatWasNotMeasuredSaysSo) {
  const std::string table = ReportTable("a.wav", {{Measured(0, 0, -70.0F), {}, {}}});
  EXPECT_THAT(table, HasSubstr("not measured"));
  EXPECT_THAT(table, Not(HasSubstr("-70")));
}

TEST(Report, AnAnalysisHasOneLinePerTrackAndNoGain) {
  const std::string wanted =
      "a.wav\n"
      "track  channels  format  pass      integrated  range  true peak  max short-term  max "
      "momentary\n"
      "                                   LUFS        LU     dBTP       LUFS            LUFS\n"
      "1      1-6       5.1     measured  -23.5       4.5    -3.25      -20.125         -18.5\n"
      "2      7         Mono    measured  -24         4.5    -3.25      -20.125         -18.5\n";
  EXPECT_EQ(
      ReportTable("a.wav", {{Measured(0, 5, -23.5F), {}, {}}, {Measured(6, 6, -24.0F), {}, {}}}),
      wanted);
}

TEST(Report, AProcessedTrackHasBothPassesAndItsDecision) {
  const TrackReport track = {Measured(0, 1, -20.0F), Measured(0, 1, -23.0F),
                             GainDecision{-3.0F, 1.0F, 0.7F, true}};
  const std::string table = ReportTable("o.wav", {track});
  EXPECT_THAT(table, HasSubstr("1-2       Stereo  before  -20"));
  EXPECT_THAT(table, HasSubstr("1-2       Stereo  after   -23"));
  EXPECT_THAT(table, HasSubstr("-3    yes\n"));
}

TEST(Report, NamesATrackByItsChannels) {
  EXPECT_EQ(TrackName(1, Measured(2, 3, 0.0F)), "track 2 (channels 3-4)");
  EXPECT_EQ(TrackName(0, Measured(0, 0, 0.0F)), "track 1 (channel 1)");
}

TEST(Report, DelayOfTheLimiterIsInFramesAndMilliseconds) {
  EXPECT_EQ(LimiterDelayText(48000), "95 frames (1.979 ms)");
  EXPECT_EQ(LimiterDelayText(44100), "95 frames (2.154 ms)");
}

}  // namespace
}  // namespace harvane
