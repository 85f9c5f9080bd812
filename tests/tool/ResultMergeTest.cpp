#include "tool/results/ResultMerge.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/tool/ResultSamples.h"
#include "tool/results/ResultJson.h"

namespace harvane {
namespace {

using Texts = std::vector<std::string>;

FileResult Result(const std::string& input, FileStatus status, const std::string& layout = "") {
  FileResult file;
  file.input = input;
  file.status = status;
  file.layout = layout;
  return file;
}

ResultPart Part(const std::string& path, const std::vector<FileResult>& files) {
  ResultPart part{path, {}, {}};
  part.run.command = "check";
  part.run.files = files;
  return part;
}

// "a.wav done", ...
Texts Shown(const RunResult& run) {
  Texts shown;
  for (const FileResult& file : run.files) {
    const bool isDone = file.status == FileStatus::kDone;
    shown.push_back(file.input + (isDone ? " done " : " not done ") + file.layout + file.error);
  }
  return shown;
}

constexpr FileStatus kDone = FileStatus::kDone;
constexpr FileStatus kFailed = FileStatus::kFailed;

TEST(ResultMerge, OrderIsThatOfTheNamesHoweverThePartsAreCut) {
  const std::vector<ResultPart> parts = {Part("1", {Result("b", kDone), Result("B", kDone)}),
                                         Part("2", {Result("a", kDone), Result("é", kDone)})};
  const Texts sorted = {"B done ", "a done ", "b done ", "é done "};
  EXPECT_EQ(Shown(MergeParts(parts, {}).run), sorted);
  EXPECT_EQ(Shown(MergeParts({parts[1], parts[0]}, {}).run), sorted);
  EXPECT_EQ(MergeParts(parts, {}).remarks, Texts());
}

TEST(ResultMerge, DoneCountsBeforeFailedWhereverItStands) {
  const ResultPart done = Part("1", {Result("a", kDone)});
  const ResultPart failed = Part("2", {Result("a", kFailed)});
  for (const auto& parts : {std::vector{done, failed}, std::vector{failed, done}}) {
    const Merged merged = MergeParts(parts, {});
    EXPECT_EQ(Shown(merged.run), Texts{"a done "});
    EXPECT_EQ(merged.remarks, Texts{"a is in 1 (done) and in 2 (failed): the former counts"});
  }
}

TEST(ResultMerge, BetterIsDoneThenSkippedThenFailedThenInterrupted) {
  const FileStatus order[] = {FileStatus::kDone, FileStatus::kSkipped, FileStatus::kCrashed,
                              FileStatus::kInterrupted};
  for (int worse = 1; worse < 4; ++worse) {
    const Merged merged = MergeParts(
        {Part("1", {Result("a", order[worse - 1])}), Part("2", {Result("a", order[worse])})}, {});
    EXPECT_EQ(merged.run.files.at(0).status, order[worse - 1]);
  }
}

TEST(ResultMerge, OfEquallyGoodResultsTheLaterPartsCounts) {
  const Merged merged = MergeParts(
      {Part("1", {Result("a", kDone, "old")}), Part("2", {Result("a", kDone, "new")})}, {});
  EXPECT_EQ(Shown(merged.run), Texts{"a done new"});
  EXPECT_EQ(merged.remarks, Texts{"a is in 2 (done) and in 1 (done): the former counts"});
}

TEST(ResultMerge, ExpectedFilesGiveTheOrderAndShowWhatIsMissing) {
  const Merged merged =
      MergeParts({Part("1", {Result("a", kDone), Result("b", kDone), Result("c", kDone)})},
                 {"c", "x", "a", "c"});
  EXPECT_EQ(Shown(merged.run), (Texts{"c done ", "x not done no result", "a done ", "b done "}));
  EXPECT_EQ(merged.run.files[1].status, kFailed);
  EXPECT_EQ(ExitCodeOf(merged.run.files), kExitFileFailed);
  EXPECT_EQ(merged.remarks, Texts{"b in 1 was not expected"});
}

TEST(ResultMerge, RunIsThatOfTheFirstPartWithACommand) {
  ResultPart nameless = Part("1", {});
  nameless.run.command = "";
  ResultPart second = Part("2", {});
  second.run.preset = "r128";
  second.run.targetLoudness = -23.0;
  ResultPart third = second;
  third.path = "3";
  ResultPart other = Part("4", {});
  other.run.preset = "a85";
  const Merged merged = MergeParts({nameless, second, third, other}, {});
  EXPECT_EQ(support::Everything(merged.run), support::Everything(second.run));
  EXPECT_EQ(merged.remarks,
            Texts{"4 is of another run than 2: command, preset, targets or version differ"});
}

TEST(ResultMerge, PartIsReadAsJsonOrLines) {
  const support::TemporaryFolder folder;
  const RunResult run = support::FullRun();
  std::string lines;
  for (const FileResult& file : run.files) lines += ToJsonLine(file, run);
  support::WriteBytes(folder.FileIn("a"), ToJson(run));
  support::WriteBytes(folder.FileIn("b"), lines);
  for (const char* const name : {"a", "b"}) {
    const ResultPart part = ReadResultPart(folder.FileIn(name));
    EXPECT_EQ(part.problems, Texts());
    EXPECT_EQ(support::Everything(part.run), support::Everything(run));
  }
}

TEST(ResultMerge, PartThatCannotBeReadIsAProblemWithItsName) {
  const support::TemporaryFolder folder;
  const std::string missing = folder.FileIn("missing");
  EXPECT_EQ(ReadResultPart(missing).problems, Texts{missing + ": No such file or directory"});
  EXPECT_EQ(ReadResultPart(folder.Text()).problems, Texts{folder.Text() + ": is not a file"});
  const std::string cut = folder.FileIn("cut");
  support::WriteBytes(cut, ToJsonLine(Result("a", kDone)) + "{\"input\"");
  const ResultPart part = ReadResultPart(cut);
  EXPECT_EQ(part.problems, Texts{cut + ": line 2: its end is missing"});
  EXPECT_EQ(part.run.files.size(), 1U);
}

TEST(ResultMerge, OnlyDoneAndSkippedNeedNoOtherRun) {
  EXPECT_TRUE(IsComplete(Result("a", kDone)));
  EXPECT_TRUE(IsComplete(Result("a", FileStatus::kSkipped)));
  EXPECT_FALSE(IsComplete(Result("a", kFailed)));
  EXPECT_FALSE(IsComplete(Result("a", FileStatus::kInterrupted)));
}

}  // namespace
}  // namespace harvane
