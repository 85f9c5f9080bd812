#include "tool/FileResult.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

FileResult FileWith(FileStatus status) {
  FileResult file;
  file.status = status;
  return file;
}

FileResult FileThatMisses() {
  TrackResult track;
  track.verdicts = {{"integratedLoudness", "", -20.0, 3.0, Verdict::kPass},
                    {"maxTruePeak", "", 0.5, 1.5, Verdict::kFail}};
  FileResult file;
  file.tracks = {TrackResult(), track};
  return file;
}

TEST(FileResult, ExitCodeIsThatOfTheWorstFile) {
  std::vector<FileResult> files;
  EXPECT_EQ(ExitCodeOf(files), 0);
  const std::pair<FileResult, int> worseAndWorse[] = {
      {FileWith(FileStatus::kDone), 0},
      {FileWith(FileStatus::kSkipped), 0},
      {FileThatMisses(), 3},
      {FileWith(FileStatus::kFailed), 1},
      {FileWith(FileStatus::kRefused), 4},
      {FileWith(FileStatus::kTimedOut), 5},
      {FileWith(FileStatus::kCrashed), 5},
      {FileWith(FileStatus::kInterrupted), 130},
  };
  for (const auto& [file, code] : worseAndWorse) {
    files.insert(files.begin(), file);
    EXPECT_EQ(ExitCodeOf(files), code);
    EXPECT_EQ(ExitCodeOf({file}), code);
  }
}

TEST(FileResult, ValueThatWasNotMeasuredFailsNoVerdict) {
  FileResult file = FileThatMisses();
  file.tracks[1].verdicts[1].verdict = Verdict::kNotMeasured;
  EXPECT_FALSE(HasFailedVerdict(file));
  EXPECT_EQ(ExitCodeOf({file}), 0);
}

}  // namespace
}  // namespace harvane
