#include "tool/RunProgress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/TemporaryFolder.h"

namespace harvane {
namespace {

using Json = nlohmann::json;

RunState Halfway() {
  RunState state;
  state.files = 20;
  state.filesDone = 9;
  state.part = 0.5;
  state.audioSeconds = 3000.0;
  state.elapsedSeconds = 10.0;
  return state;
}

TEST(RunProgress, LineTellsFilesSpeedAndTimeLeft) {
  EXPECT_EQ(ProgressLine(Halfway(), 100),
            "9/20 files [###############               ]  50 %  300 x real time  0:10 left");
}

TEST(RunProgress, LineOfOneFileTellsItsStep) {
  RunState state = Halfway();
  state.files = 1;
  state.step = "pass 2 of 2";
  state.elapsedSeconds = 4000.0;
  EXPECT_EQ(ProgressLine(state, 59), "pass 2 of 2 [#####     ]  50 %  1 x real time  1:06:40 left");
}

TEST(RunProgress, LineGivesUpTheBarAndThenItsEnd) {
  EXPECT_EQ(ProgressLine(Halfway(), 50), "9/20 files  50 %  300 x real time  0:10 left");
  EXPECT_EQ(ProgressLine(Halfway(), 12), "9/20 files  ");
  EXPECT_EQ(ProgressLine(Halfway(), 0), "");
}

TEST(RunProgress, LineStaysWithinTheColumns) {
  for (int columns = 0; columns < 100; ++columns) {
    ASSERT_LE(ProgressLine(Halfway(), columns).size(), static_cast<std::size_t>(columns));
  }
}

TEST(RunProgress, WhatIsNotKnownYetIsLeftOut) {
  RunState state;
  state.files = 2;
  EXPECT_EQ(ProgressLine(state, 30), "0/2 files [            ]   0 %");
  EXPECT_FALSE(SecondsLeft(state));
  const Json json = Json::parse(ProgressJson(state));
  EXPECT_TRUE(json.at("speed").is_null());
  EXPECT_TRUE(json.at("secondsLeft").is_null());
}

TEST(RunProgress, JsonHasTheSameValues) {
  EXPECT_EQ(Json::parse(ProgressJson(Halfway())),
            Json::parse(R"({"event":"progress","files":20,"filesDone":9,"filesFailed":0,
                            "part":0.5,"speed":300.0,"secondsLeft":10.0})"));
}

TEST(RunProgress, NamesOfAnyBytesStayJson) {
  FileResult file;
  file.input = "a\xFF\n.wav";
  EXPECT_EQ(Json::parse(FileEventJson(file)).at("input"), "a\xEF\xBF\xBD\n.wav");
}

// What is written to a file in place of standard error.
class RunProgressStream : public testing::Test {
 protected:
  std::string Text() {
    std::fflush(stream);
    return support::ReadBytes(folder.FileIn("err"));
  }
  support::TemporaryFolder folder;
  std::FILE* stream = std::fopen(folder.FileIn("err").c_str(), "w");
  ~RunProgressStream() override { std::fclose(stream); }
};

TEST_F(RunProgressStream, NothingIsWrittenWhereThereIsNoTerminal) {
  {
    RunProgress progress(stream, RunProgress::Way::kAuto, 1, 1);
    EXPECT_FALSE(progress.IsShown());
    progress.Note(0, {"measuring", 1, 2, 48000});
    progress.Tick();
    progress.End(0, {});
  }
  EXPECT_EQ(Text(), "");
}

TEST_F(RunProgressStream, TwoPassesOverAFileAreOneFile) {
  RunProgress progress(stream, RunProgress::Way::kJson, 2, 2);
  progress.Note(0, {"pass 2 of 2", 24000, 48000, 48000});
  // A step before it is no way back.
  progress.Note(0, {"trial 1, pass 1 of 2", 0, 48000, 48000});
  progress.Tick();
  EXPECT_EQ(Json::parse(Text()).at("part"), 0.375);  // three quarters of the first of two
}

TEST_F(RunProgressStream, MoreFramesThanTheHeaderSaysAreTheWholeFile) {
  RunProgress progress(stream, RunProgress::Way::kJson, 1, 1);
  progress.Note(0, {"measuring", 50, 40, 48000});
  progress.Tick();
  EXPECT_EQ(Json::parse(Text()).at("part"), 1.0);
}

TEST_F(RunProgressStream, EachFileAndTheEndAreTold) {
  RunProgress progress(stream, RunProgress::Way::kJson, 2, 1);
  FileResult failed;
  failed.status = FileStatus::kFailed;
  progress.End(1, failed);
  progress.End(0, {});
  std::vector<Json> events;
  std::istringstream lines(Text());
  for (std::string line; std::getline(lines, line);) events.push_back(Json::parse(line));
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].at("status"), "failed");
  EXPECT_EQ(events[1].at("status"), "done");
  EXPECT_EQ(events[2].at("filesDone"), 2);
  EXPECT_EQ(events[2].at("filesFailed"), 1);
  EXPECT_EQ(events[2].at("part"), 1.0);
}

}  // namespace
}  // namespace harvane
