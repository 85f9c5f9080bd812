#include <gtest/gtest.h>

#include "tests/host/cli/CliSupport.h"
#include "tests/tool/JsonValidation.h"
#include "tests/tool/ResultSamples.h"
#include "tool/results/ReportPage.h"
#include "tool/results/ResultCsv.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultText.h"

namespace harvane {
namespace {

using support::WriteBytes;

class ResultCommands : public testing::Test {
 protected:
  ResultCommands() {
    one.files = {run.files[0]};
    rest.files = {run.files[2], run.files[1]};
    WriteBytes(place.FileIn("one.json"), ToJson(one));
    std::string lines;
    for (const FileResult& file : rest.files) lines += ToJsonLine(file, rest);
    WriteBytes(place.FileIn("rest.jsonl"), lines);
  }

  support::Workplace place;
  const RunResult run = support::FullRun();  // its files are in the order of their names
  RunResult one = run;
  RunResult rest = run;
};

TEST_F(ResultCommands, MergeJoinsPartsInEveryFormat) {
  const auto text = place.Run("merge one.json rest.jsonl");
  EXPECT_EQ(text.out, RunText(run));
  EXPECT_EQ(text.err, "");
  EXPECT_EQ(text.code, kExitCrashed);
  EXPECT_EQ(place.Run("merge rest.jsonl one.json -f json").out, ToJson(run));
  EXPECT_EQ(place.Run("merge -f csv -- rest.jsonl one.json").out, ToCsv(run));
  EXPECT_EQ(place.Run("merge -f jsonl rest.jsonl one.json").out, ToJsonLine(run.files[0], run) +
                                                                     ToJsonLine(run.files[1], run) +
                                                                     ToJsonLine(run.files[2], run));
}

TEST_F(ResultCommands, MergeWritesResultsReportAndSeriesToFiles) {
  const auto merged = place.Run(
      "merge one.json rest.jsonl -f json --output-results all.json --report all.html "
      "--series-csv all.csv");
  EXPECT_EQ(merged.out, "");
  EXPECT_EQ(merged.err, "");
  EXPECT_EQ(support::ReadBytes(place.FileIn("all.json")), ToJson(run));
  EXPECT_EQ(support::ReadBytes(place.FileIn("all.html")), ReportPage(run));
  EXPECT_EQ(support::ReadBytes(place.FileIn("all.csv")), SeriesCsv(run));
  const auto validation = support::ValidateJson(
      "harvane-result.schema.json", {place.FileIn("all.json"), place.FileIn("rest.jsonl")});
  EXPECT_EQ(validation.faults, "");
  EXPECT_EQ(validation.code, 0);
}

TEST_F(ResultCommands, MergeSaysWhichOfTwoResultsCounts) {
  one.files[0].status = FileStatus::kTimedOut;
  WriteBytes(place.FileIn("old.json"), ToJson(one));
  const auto merged = place.Run("merge one.json old.json -f json");
  EXPECT_EQ(merged.err,
            "harvane: in/Café <1>, \"final\".wav is in one.json (done) and in old.json "
            "(timedOut): the former counts\n");
  EXPECT_EQ(merged.code, kExitVerdictFail);
}

TEST_F(ResultCommands, MergeShowsWhatIsMissing) {
  WriteBytes(place.FileIn("list"), "in/gone.wav\r\nin/Café <1>, \"final\".wav\n");
  const auto merged = place.Run("merge one.json --files-from list -f csv");
  EXPECT_EQ(merged.code, kExitFileFailed);
  FileResult missing;
  missing.input = "in/gone.wav";
  missing.status = FileStatus::kFailed;
  missing.error = "no result";
  EXPECT_EQ(merged.out, CsvHeader() + CsvRows(missing) + CsvRows(one.files[0]));
  const auto separated =
      place.Run("merge one.json --files-from - -0 -f csv", "printf 'in/gone.wav\\0' |");
  EXPECT_EQ(separated.out, merged.out);
}

TEST_F(ResultCommands, MergeKeepsWhatCouldBeReadAndNamesTheRest) {
  WriteBytes(place.FileIn("broken.json"), "{\n");
  const auto merged = place.Run("merge broken.json one.json gone.json -f csv");
  EXPECT_EQ(merged.out, CsvHeader() + CsvRows(one.files[0]));
  EXPECT_EQ(merged.err.substr(0, 22), "harvane: broken.json: ");
  EXPECT_NE(merged.err.find("harvane: gone.json: No such file or directory\n"), std::string::npos);
  EXPECT_EQ(merged.code, kExitFileFailed);
}

TEST_F(ResultCommands, MergeThatCannotWriteItsReportFails) {
  one.files[0].tracks.clear();
  WriteBytes(place.FileIn("fine.json"), ToJson(one));
  EXPECT_EQ(place.Run("merge fine.json -f csv").code, kExitDone);
  const auto merged = place.Run("merge fine.json -f csv --report no/folder.html");
  EXPECT_EQ(merged.code, kExitFileFailed);
  EXPECT_EQ(merged.err.substr(0, 24), "harvane: no/folder.html:");
}

TEST_F(ResultCommands, WrongUsageIsTwo) {
  EXPECT_EQ(place.Run("merge").code, kExitUsage);
  EXPECT_EQ(place.Run("merge one.json -f xml").code, kExitUsage);
  EXPECT_EQ(place.Run("merge one.json -0").code, kExitUsage);
  EXPECT_EQ(place.Run("merge one.json --files-from gone").code, kExitUsage);
  EXPECT_EQ(place.Run("log").code, kExitUsage);
  EXPECT_EQ(place.Run("log a.csv -f yaml").code, kExitUsage);
  EXPECT_EQ(place.Run("merge one.json -f xml").out, "");
}

constexpr const char* kLog =
    "a,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:09,-18.9,00:12:00:00,-14.2,00:12:02:22\n"
    "junk\n";

TEST_F(ResultCommands, LogIsShownInEveryFormat) {
  WriteBytes(place.FileIn("my log.csv"), kLog);
  const auto text = place.Run("log 'my log.csv'");
  EXPECT_EQ(text.code, kExitDone);
  EXPECT_EQ(text.out,
            "my log.csv\n"
            "name  pass      channels  format  integrated  range  true peak  at           "
            "max short-term  at           max momentary  at\n"
            "                                  LUFS        LU     dBTP                    "
            "LUFS                         LUFS\n"
            "a     analysis  1-2       stereo  -23.4       6.2    -1.8       00:12:03:09  "
            "-18.9           00:12:00:00  -14.2          00:12:02:22\n");
  EXPECT_EQ(text.err, "harvane: my log.csv:2: it has 1 fields, and a row has 13\n");
  const auto csv = place.Run("log -f csv 'my log.csv'");
  EXPECT_NE(csv.out.find("\nmy log.csv,1,a,analysis,1,2,stereo,-23.4,6.2,-1.8,00:12:03:09,"),
            std::string::npos);
  WriteBytes(place.FileIn("log.json"), place.Run("log -f json 'my log.csv'").out);
  WriteBytes(place.FileIn("log.jsonl"), place.Run("log -f jsonl 'my log.csv'").out);
  const auto validation = support::ValidateJson(
      "harvane-log.schema.json", {place.FileIn("log.json"), place.FileIn("log.jsonl")});
  EXPECT_EQ(validation.faults, "");
  EXPECT_EQ(validation.code, 0);
}

TEST_F(ResultCommands, LogThatCannotBeReadCostsNoOther) {
  WriteBytes(place.FileIn("good.csv"), kLog);
  const auto both = place.Run("log gone.csv good.csv -f csv");
  EXPECT_EQ(both.code, kExitFileFailed);
  EXPECT_NE(both.out.find("good.csv,1,a,"), std::string::npos);
  EXPECT_EQ(both.err,
            "harvane: gone.csv: cannot be opened: No such file or directory\n"
            "harvane: good.csv:2: it has 1 fields, and a row has 13\n");
}

TEST_F(ResultCommands, ResultsThatCannotBeWrittenFail) {
  one.files[0].tracks.clear();
  WriteBytes(place.FileIn("fine.json"), ToJson(one));
  const auto merged = place.Run("merge fine.json -f json >/dev/full;exit $?;");
  EXPECT_EQ(merged.code, kExitFileFailed);
}

}  // namespace
}  // namespace harvane
