#include "tool/results/ResultText.h"

#include <gtest/gtest.h>

#include "tests/tool/ResultSamples.h"
#include "tool/results/TextTable.h"

namespace harvane {
namespace {

TEST(ResultText, FileShowsTracksPassesVerdictsAndNotes) {
  EXPECT_EQ(FileText(support::FullFile()),
            "in/Café <1>, \"final\".wav -> out/Café <1>, \"final\".wav\n"
            "track  channels  format  pass        integrated    range         true peak     "
            "max short-term  max momentary  gain   limiter  late\n"
            "                                     LUFS          LU            dBTP          "
            "LUFS            LUFS           dB              frames\n"
            "1      1-2       stereo  before      -18.25        6.5           0.5           "
            "-14.75          -11.5\n"
            "1      1-2       stereo  after       -23.75        6.25          -1.5          "
            "-19.5           -16.25         -4.75  yes      95\n"
            "1      1-2       stereo  libebur128  -23.742188    6.25          -1.5          "
            "-19.5           -16.25\n"
            "2      3         mono    before      not measured  not measured  not measured  "
            "not measured    not measured\n"
            "2      3         mono    after       not measured  not measured  not measured  "
            "not measured    not measured   none   no       0\n"
            "track 1  target not reached, 0.75 LU short of it after 3 jobs, the last with Loudness "
            "-22.25 and MaxTP -1.25\n"
            "track 1  FAIL  integratedLoudness -23.75, wanted -23.0 ±0.5 LUFS, missed by 0.25\n"
            "track 1  pass  maxTruePeak -1.5, wanted at most -1.0 dBTP\n"
            "track 2  kept its level: it could not be measured\n"
            "track 2  -     integratedLoudness not measured, wanted -23.0 ±0.5 LUFS\n"
            "24 bits cut to 16\n"
            "track 1 comes out 95 frames (1.979 ms) late\n"
            "\n");
}

TEST(ResultText, OnePassHasNoColumnsForWhatWasDone) {
  TrackResult track;
  track.firstChannel = track.lastChannel = 2;
  track.layout = "mono";
  track.before.integratedLoudness = double{-23.1F};
  FileResult file;
  file.input = "a.wav";
  file.tracks = {track};
  EXPECT_EQ(FileText(file),
            "a.wav\n"
            "track  channels  format  pass      integrated  range         true peak     "
            "max short-term  max momentary\n"
            "                                   LUFS        LU            dBTP          "
            "LUFS            LUFS\n"
            "1      2         mono    measured  -23.1       not measured  not measured  "
            "not measured    not measured\n"
            "\n");
}

TEST(ResultText, FailedFileShowsItsErrorAndNoTable) {
  FileResult file;
  file.input = "a.wav";
  file.status = FileStatus::kTimedOut;
  file.error = "took longer than 5 s";
  EXPECT_EQ(FileText(file), "a.wav: timed out\ntook longer than 5 s\n\n");
}

TEST(ResultText, ControlCharactersOfANameDoNotReachTheTerminal) {
  FileResult file;
  file.input = "a\n\x1b[31m\x7f.wav";
  EXPECT_EQ(FileText(file), "a??[31m?.wav\n\n");
}

TEST(ResultText, SummaryCountsFilesAndVerdictsAndNamesWhatFailed) {
  EXPECT_EQ(SummaryText(support::FullRun()),
            "3 files: 1 done, 1 failed, 1 crashed; verdicts: 1 fail\n"
            "in/broken.wav: failed: is no audio file\n"
            "in/storm.wav: crashed: the worker process ended by signal 6\n");
  EXPECT_EQ(SummaryText(RunResult()), "0 files\n");
}

TEST(ResultText, RunIsItsFilesAndTheSummary) {
  RunResult run;
  run.files.resize(2);
  run.files[0].input = "a.wav";
  run.files[1].input = "b.wav";
  run.files[1].status = FileStatus::kSkipped;
  EXPECT_EQ(RunText(run), "a.wav\n\nb.wav: skipped\n\n2 files: 1 done, 1 skipped\n");
}

TEST(TextTable, ColumnsAreAsWideAsTheirWidestCellInCharacters) {
  EXPECT_EQ(TextTable({{"a", "b", "c"}, {"é♫x", "", "1"}, {"1"}}),
            "a    b  c\n"
            "é♫x     1\n"
            "1\n");
  EXPECT_EQ(TextTable({}), "");
}

}  // namespace
}  // namespace harvane
