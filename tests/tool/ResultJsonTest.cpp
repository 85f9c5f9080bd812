#include "tool/results/ResultJson.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/support/Signals.h"
#include "tests/support/TestMain.h"
#include "tests/tool/ResultSamples.h"

namespace harvane {
namespace {

using support::Everything;

RunResult RunOf(const FileResult& file) {
  RunResult run;
  run.files = {file};
  return run;
}

// The message of the error; empty if there is none.
std::string ErrorOf(const std::string& text) {
  try {
    FileResultFromJson(text);
  } catch (const ResultError& error) {
    return error.what();
  }
  return "";
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t place = text.find(what);
  EXPECT_NE(place, std::string::npos) << what;
  return text.replace(place, what.size(), by);
}

// A file with a track and nothing measured.
FileResult PlainFile() {
  FileResult file;
  file.input = "a.wav";
  file.tracks = {TrackResult()};
  return file;
}

constexpr const char* kPlainLine =
    R"({"input":"a.wav","output":"","status":"done","error":"","sampleRate":0,"channels":0,)"
    R"("frames":0,"layout":"","reduction":"","notes":[],"wallSeconds":0.0,"verdict":null,)"
    R"("tracks":[{"firstChannel":1,"lastChannel":1,"channelOrder":[],"layout":"","action":"measured",)"
    R"("before":{"integratedLoudness":null,"loudnessRange":null,"maxTruePeak":null,)"
    R"("maxShortTerm":null,"maxMomentary":null},"after":null,"gainDb":null,"limited":false,)"
    R"("delayFrames":0,"convergence":null,"crossCheck":null,"verdicts":[],"seriesBefore":null,)"
    R"("seriesAfter":null}]})";

TEST(ResultJson, LineOfAFileWithoutValuesIsNullsAndEmptyTexts) {
  EXPECT_EQ(ToJsonLine(PlainFile()), std::string(kPlainLine) + "\n");
}

TEST(ResultJson, RunIsIndentedWithPlainListsOnOneLine) {
  RunResult run;
  run.command = "check";
  run.targetLoudness = -23.0;
  FileResult file;
  file.input = "b.wav";
  file.notes = {"one", "two"};
  file.status = FileStatus::kFailed;
  run.files = {file};
  EXPECT_EQ(ToJson(run), R"({
  "command": "check",
  "preset": "",
  "version": "",
  "targetLoudness": -23.0,
  "toleranceLu": null,
  "maxTruePeak": null,
  "exitCode": 1,
  "files": [
    {
      "input": "b.wav",
      "output": "",
      "status": "failed",
      "error": "",
      "sampleRate": 0,
      "channels": 0,
      "frames": 0,
      "layout": "",
      "reduction": "",
      "notes": ["one","two"],
      "wallSeconds": 0.0,
      "verdict": null,
      "tracks": []
    }
  ]
}
)");
}

TEST(ResultJson, ValuesStandUnroundedAndSeriesAsShortAsTheirFloats) {
  FileResult file = PlainFile();
  file.tracks[0].before.maxTruePeak = {-1.0 / 3.0, 0.1};
  file.tracks[0].seriesBefore = LoudnessSeries();
  file.tracks[0].seriesBefore->momentary = {-23.1F, std::nullopt, -0.0F};
  const std::string line = ToJsonLine(file);
  EXPECT_NE(line.find(R"("maxTruePeak":{"value":-0.3333333333333333,"seconds":0.1})"),
            std::string::npos);
  EXPECT_NE(line.find(R"("seriesBefore":{"momentaryStep":0.1,"shortTermStep":0.75,)"
                      R"("momentary":[-23.1,null,-0.0],"shortTerm":[]})"),
            std::string::npos);
}

TEST(ResultJson, EveryFieldComesBack) {
  support::ForEachSeed(300, [](std::uint64_t seed) {
    RunResult run = support::AnyRun(seed);
    EXPECT_EQ(Everything(RunResultFromJson(ToJson(run))), Everything(run));
    for (const FileResult& file : run.files) {
      EXPECT_EQ(Everything(RunOf(FileResultFromJson(ToJsonLine(file)))), Everything(RunOf(file)));
    }
  });
}

TEST(ResultJson, LinesWithTheirRunComeBackAsTheRun) {
  support::ForEachSeed(100, [](std::uint64_t seed) {
    const RunResult run = support::AnyRun(seed);
    if (run.files.empty()) return;
    std::string text;
    for (const FileResult& file : run.files) text += ToJsonLine(file, run);
    const ReadResults results = ReadJsonOrLines(text);
    EXPECT_EQ(results.problems, std::vector<std::string>());
    EXPECT_EQ(Everything(results.run), Everything(run));
  });
}

TEST(ResultJson, WhatIsNoNumberBecomesNull) {
  const double infinity = std::numeric_limits<double>::infinity();
  FileResult file = PlainFile();
  file.wallSeconds = infinity;
  TrackResult& track = file.tracks[0];
  track.before.integratedLoudness = -infinity;
  track.before.maxMomentary = {std::nan(""), 1.0};
  track.before.maxShortTerm = {-20.0, std::nan("")};
  track.gainDb = infinity;
  track.seriesBefore = LoudnessSeries();
  track.seriesBefore->shortTerm = {-std::numeric_limits<float>::infinity()};

  const FileResult read = FileResultFromJson(ToJsonLine(file));
  EXPECT_EQ(read.wallSeconds, 0.0);
  EXPECT_FALSE(read.tracks[0].before.integratedLoudness);
  EXPECT_FALSE(read.tracks[0].before.maxMomentary);
  EXPECT_EQ(read.tracks[0].before.maxShortTerm->value, -20.0);
  EXPECT_EQ(read.tracks[0].before.maxShortTerm->seconds, 0.0);
  EXPECT_FALSE(read.tracks[0].gainDb);
  EXPECT_EQ(read.tracks[0].seriesBefore->shortTerm, std::vector<std::optional<float>>(1));
}

TEST(ResultJson, FileNameThatIsNoUtf8StandsInHexadecimalToo) {
  FileResult file = PlainFile();
  file.input = "a\xff";
  const std::string line = ToJsonLine(file);
  EXPECT_NE(line.find("{\"input\":\"a\uFFFD\",\"inputBytes\":\"61ff\",\"output\":\"\","),
            std::string::npos);
  EXPECT_EQ(FileResultFromJson(line).input, "a\xff");
}

TEST(ResultJson, OtherTextsLoseWhatIsNoUtf8) {
  FileResult file = PlainFile();
  file.error = "a\xff";
  EXPECT_EQ(FileResultFromJson(ToJsonLine(file)).error, "a\uFFFD");
}

TEST(ResultJson, VerdictOfAFileIsThatOfItsWorstRule) {
  FileResult file = support::FullFile();
  EXPECT_NE(ToJsonLine(file).find("\"verdict\":\"fail\",\"tracks\""), std::string::npos);
  file.tracks[0].verdicts[0].verdict = Verdict::kPass;
  EXPECT_NE(ToJsonLine(file).find("\"verdict\":\"notMeasured\",\"tracks\""), std::string::npos);
  file.tracks.pop_back();
  EXPECT_NE(ToJsonLine(file).find("\"verdict\":\"pass\",\"tracks\""), std::string::npos);
}

TEST(ResultJson, UnknownKeysArePassedOver) {
  const std::string line = Replaced(kPlainLine, "{\"input\"", "{\"new\":{\"a\":[1]},\"input\"");
  EXPECT_EQ(Everything(RunOf(FileResultFromJson(line))), Everything(RunOf(PlainFile())));
}

TEST(ResultJson, WhatIsNoResultIsRefusedWithItsPlace) {
  const std::string line = kPlainLine;
  EXPECT_EQ(ErrorOf(line), "");
  EXPECT_EQ(ErrorOf("[]"), "the file is no object");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"status\"", "\"state\"")), "the file has no \"status\"");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"done\"", "\"fine\"")), "the file.status is no known word");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"sampleRate\":0", "\"sampleRate\":2147483648")),
            "the file.sampleRate is no whole number in its range");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"frames\":0", "\"frames\":9223372036854775808")),
            "the file.frames is no whole number in its range");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"frames\":0", "\"frames\":0.5")),
            "the file.frames is no whole number in its range");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"notes\":[]", "\"notes\":[1]")),
            "the file.notes is no list of texts");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"loudnessRange\":null", "\"loudnessRange\":\"-70\"")),
            "the file.tracks[0].before.loudnessRange is no number");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"limited\":false", "\"limited\":0")),
            "the file.tracks[0].limited is no true or false");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"output\":\"\"", "\"output\":\"\",\"inputBytes\":\"6\"")),
            "the file.inputBytes is no text of bytes in hexadecimal");
  EXPECT_EQ(ErrorOf(Replaced(line, "\"seriesBefore\":null",
                             R"("seriesBefore":{"momentaryStep":0.1,"shortTermStep":0.75,)"
                             R"("momentary":[1e39],"shortTerm":[]})")),
            "the file.tracks[0].seriesBefore.momentary is no list of levels");
  EXPECT_NE(ErrorOf(line + "}"), "");
  EXPECT_NE(ErrorOf(Replaced(line, "\"gainDb\":null", "\"gainDb\":1e999")), "");
  EXPECT_EQ(ErrorOf(line + "}").find('\n'), std::string::npos);
}

TEST(ResultJson, LinesThatCannotBeReadCostNoOther) {
  const std::string line = ToJsonLine(PlainFile());
  const ReadResults results = ReadJsonOrLines(line + "junk\n\n" + line + kPlainLine);
  EXPECT_EQ(results.run.files.size(), 2U);
  ASSERT_EQ(results.problems.size(), 2U);
  EXPECT_EQ(results.problems[0].substr(0, 8), "line 2: ");
  EXPECT_EQ(results.problems[1], "line 5: its end is missing");
}

TEST(ResultJson, RunThatIsCutIsOneProblem) {
  const std::string text = ToJson(support::FullRun());
  EXPECT_EQ(ReadJsonOrLines(text).problems.size(), 0U);
  const ReadResults results = ReadJsonOrLines(text.substr(0, text.size() / 2));
  EXPECT_EQ(results.problems.size(), 1U);
  EXPECT_EQ(results.run.files.size(), 0U);
}

// Bytes of a text changed, taken out or doubled.
std::string Damaged(std::string text, support::NoiseSource* noise) {
  static const std::string kBytes = "\"{}[]:,.-0919eE\\ntu\n\xc3\xff";
  for (std::uint32_t n = 1 + noise->NextBelow(3); n > 0 && !text.empty(); --n) {
    const std::size_t place = noise->NextBelow(static_cast<std::uint32_t>(text.size()));
    const std::size_t length = noise->NextBelow(40);
    switch (noise->NextBelow(3)) {
      case 0:
        text[place] = kBytes[noise->NextBelow(static_cast<std::uint32_t>(kBytes.size()))];
        break;
      case 1:
        text.erase(place, length);
        break;
      default:
        text.insert(place, text.substr(place, length));
    }
  }
  return text;
}

TEST(ResultJson, DamagedTextIsRefusedOrReadAsWhatIsWrittenAgain) {
  const std::string whole = ToJson(support::FullRun());
  support::ForEachSeed(100, [&whole](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const ReadResults results = ReadJsonOrLines(Damaged(whole, &noise));
    const ReadResults again = ReadJsonOrLines(ToJson(results.run));
    EXPECT_EQ(again.problems, std::vector<std::string>());
    EXPECT_EQ(Everything(again.run), Everything(results.run));
  });
}

TEST(ResultJson, EmptyTextIsARunWithoutFiles) {
  const ReadResults results = ReadJsonOrLines("");
  EXPECT_EQ(results.problems.size(), 0U);
  EXPECT_EQ(results.run.files.size(), 0U);
}

}  // namespace
}  // namespace harvane
