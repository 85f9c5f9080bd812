#include "tool/results/ResultCsv.h"

#include <gtest/gtest.h>

#include "tests/tool/ResultSamples.h"

namespace harvane {
namespace {

TEST(ResultCsv, HeaderNamesEveryColumn) {
  EXPECT_EQ(CsvHeader(),
            "input,output,status,error,sample_rate,channels,frames,track,first_channel,"
            "last_channel,channel_order,layout,action,"
            "before_integrated_lufs,before_range_lu,before_true_peak_dbtp,"
            "before_true_peak_seconds,before_max_short_term_lufs,before_max_short_term_seconds,"
            "before_max_momentary_lufs,before_max_momentary_seconds,"
            "after_integrated_lufs,after_range_lu,after_true_peak_dbtp,after_true_peak_seconds,"
            "after_max_short_term_lufs,after_max_short_term_seconds,after_max_momentary_lufs,"
            "after_max_momentary_seconds,"
            "cross_check_integrated_lufs,cross_check_range_lu,cross_check_true_peak_dbtp,"
            "cross_check_true_peak_seconds,cross_check_max_short_term_lufs,"
            "cross_check_max_short_term_seconds,cross_check_max_momentary_lufs,"
            "cross_check_max_momentary_seconds,"
            "gain_db,limited,delay_frames,convergence_jobs,convergence_reached,"
            "convergence_missed_lu,verdict,rules,reduction,notes,wall_seconds\n");
}

TEST(ResultCsv, TrackIsARow) {
  EXPECT_EQ(CsvRows(support::FullFile()),
            "\"in/Café <1>, \"\"final\"\".wav\",\"out/Café <1>, \"\"final\"\".wav\",done,,48000,3,"
            "1200000,1,1,2,,stereo,processed,"
            "-18.25,6.5,0.5,12.125,-14.75,12,-11.5,11.5,"
            "-23.75,6.25,-1.5,12.125,-19.5,12,-16.25,11.5,"
            "-23.742188,6.25,-1.5,12.125,-19.5,12,-16.25,11.5,"
            "-4.75,yes,95,3,no,0.75,fail,integratedLoudness fail by 0.25; maxTruePeak pass,"
            "24 bits cut to 16,track 1 comes out 95 frames (1.979 ms) late,0.5\n"
            "\"in/Café <1>, \"\"final\"\".wav\",\"out/Café <1>, \"\"final\"\".wav\",done,,48000,3,"
            "1200000,2,3,3,,mono,keptQuiet,,,,,,,,,,,,,,,,,,,,,,,,,,no,0,,,,notMeasured,"
            "integratedLoudness notMeasured,"
            "24 bits cut to 16,track 1 comes out 95 frames (1.979 ms) late,0.5\n");
}

TEST(ResultCsv, FileWithoutTracksHasOneRowOfAsManyFields) {
  FileResult file;
  file.input = "a.wav";
  file.status = FileStatus::kFailed;
  file.error = "cannot be opened";
  const std::string row = CsvRows(file);
  EXPECT_EQ(row.substr(0, 40), "a.wav,,failed,cannot be opened,0,0,0,,,,");
  const std::string header = CsvHeader();
  EXPECT_EQ(std::count(row.begin(), row.end(), ','), std::count(header.begin(), header.end(), ','));
  EXPECT_EQ(std::count(row.begin(), row.end(), '\n'), 1);
}

TEST(ResultCsv, RunIsTheHeaderAndAllRows) {
  const RunResult run = support::FullRun();
  EXPECT_EQ(ToCsv(run),
            CsvHeader() + CsvRows(run.files[0]) + CsvRows(run.files[1]) + CsvRows(run.files[2]));
}

TEST(ResultCsv, FieldsAreQuotedWhereTheyMustBe) {
  EXPECT_EQ(CsvField("a b;c"), "a b;c");
  EXPECT_EQ(CsvField(""), "");
  EXPECT_EQ(CsvField("a,b"), "\"a,b\"");
  EXPECT_EQ(CsvField("say \"a\""), "\"say \"\"a\"\"\"");
  EXPECT_EQ(CsvField("a\nb"), "\"a\nb\"");
  EXPECT_EQ(CsvField(" a"), "\" a\"");
  EXPECT_EQ(CsvRow({"", "a", ""}), ",a,\n");
}

TEST(ResultCsv, SeriesAreRowsWithTheEndOfTheirWindow) {
  TrackResult track;
  track.after = TrackValues();
  track.seriesBefore = LoudnessSeries();
  track.seriesBefore->momentary = {-23.1F, std::nullopt};
  track.seriesBefore->shortTerm = {-24.0F, -25.0F};
  track.seriesAfter = LoudnessSeries();
  track.seriesAfter->shortTerm = {-22.5F};
  RunResult run;
  run.files.resize(2);
  run.files[0].input = "a,b.wav";
  run.files[0].tracks = {track};
  EXPECT_EQ(SeriesCsv(run),
            "input,track,pass,kind,seconds,lufs\n"
            "\"a,b.wav\",1,before,momentary,0.4,-23.1\n"
            "\"a,b.wav\",1,before,momentary,0.5,\n"
            "\"a,b.wav\",1,before,shortTerm,3,-24\n"
            "\"a,b.wav\",1,before,shortTerm,3.75,-25\n"
            "\"a,b.wav\",1,after,shortTerm,3,-22.5\n");
}

}  // namespace
}  // namespace harvane
