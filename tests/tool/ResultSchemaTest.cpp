#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/tool/JsonValidation.h"
#include "tests/tool/ResultSamples.h"
#include "tool/results/LogText.h"
#include "tool/results/ResultJson.h"

namespace harvane {
namespace {

support::Validation Validate(const support::TemporaryFolder& folder, const std::string& schema,
                             std::vector<std::string> files) {
  for (std::string& file : files) file = folder.FileIn(file);
  return support::ValidateJson(schema, files);
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t place = text.find(what);
  EXPECT_NE(place, std::string::npos) << what;
  return text.replace(place, what.size(), by);
}

TEST(ResultSchema, FitsRunsAndLines) {
  const support::TemporaryFolder folder;
  const RunResult run = support::FullRun();
  RunResult odd;
  odd.files.resize(1);
  odd.files[0].input = "a\xff";
  support::WriteBytes(folder.FileIn("full.json"), ToJson(run));
  support::WriteBytes(folder.FileIn("empty.json"), ToJson(RunResult()));
  support::WriteBytes(folder.FileIn("odd.json"), ToJson(odd));
  std::string lines;
  for (const FileResult& file : run.files) lines += ToJsonLine(file) + ToJsonLine(file, run);
  support::WriteBytes(folder.FileIn("full.jsonl"), lines);
  const auto validation = Validate(folder, "harvane-result.schema.json",
                                   {"full.json", "empty.json", "odd.json", "full.jsonl"});
  EXPECT_EQ(validation.faults, "");
  EXPECT_EQ(validation.code, 0);
}

TEST(ResultSchema, RefusesWhatIsNoResult) {
  const support::TemporaryFolder folder;
  const std::string text = ToJson(support::FullRun());
  const std::pair<std::string, std::string> faults[] = {
      {"\"loudnessRange\": 6.5", "\"loudnessRange\": -70.0"},
      {"\"loudnessRange\": 6.5", "\"loudnessRange\": \"not measured\""},
      {"\"value\":-1.5", "\"value\":-70.0"},
      {"\"limited\": true", "\"isLimited\": true"},
      {"\"status\": \"done\"", "\"status\": \"fine\""},
      {"\"exitCode\": 5", "\"exitCode\": 2"},
      {"\"preset\"", "\"presets\""},
      {"\"layout\": \"2,1\"", "\"layout\": \"2,1\", \"unknown\": 1"},
      {"\"gainDb\": -4.75", "\"gainDb\": NaN"},
  };
  // All in one go: each start of the validator takes its time.
  std::vector<std::string> files;
  for (const auto& [what, by] : faults) {
    files.push_back("fault" + std::to_string(files.size()) + ".json");
    support::WriteBytes(folder.FileIn(files.back()), Replaced(text, what, by));
  }
  const auto validation = Validate(folder, "harvane-result.schema.json", files);
  EXPECT_EQ(validation.code, 1);
  for (const std::string& file : files) {
    EXPECT_NE(validation.faults.find("/" + file + ": "), std::string::npos) << file;
  }
}

TEST(ResultSchema, FitsLogs) {
  const support::TemporaryFolder folder;
  const std::vector<LogOfFile> logs = {
      {"a.csv", ReadLog("a,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:009,-18.9,00:12:00:000,"
                        "-70.0,00:00:00:000\njunk\n")},
      {"gone.csv", ReadLogFile("no such file")}};
  support::WriteBytes(folder.FileIn("log.json"), LogJson(logs));
  support::WriteBytes(folder.FileIn("log.jsonl"), LogJsonLines(logs));
  const auto validation = Validate(folder, "harvane-log.schema.json", {"log.json", "log.jsonl"});
  EXPECT_EQ(validation.faults, "");
  EXPECT_EQ(validation.code, 0);
  support::WriteBytes(folder.FileIn("wrong.jsonl"),
                      Replaced(LogJsonLines(logs), "\"line\":1", "\"line\":0"));
  EXPECT_EQ(Validate(folder, "harvane-log.schema.json", {"wrong.jsonl"}).code, 1);
}

}  // namespace
}  // namespace harvane
