#include "tool/ResultStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool/results/ResultCsv.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultText.h"

namespace harvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

FileResult Named(const std::string& input) {
  FileResult file;
  file.input = input;
  return file;
}

class ResultStreams : public testing::Test {
 protected:
  ResultStream In(ResultFormat format, bool isColoured = false) {
    return ResultStream(format, run, isColoured,
                        [this](const std::string& text) { written.push_back(text); });
  }
  const FileResult a = Named("a");
  const FileResult b = Named("b");
  RunResult run;
  std::vector<std::string> written;
};

TEST_F(ResultStreams, TextWaitsForTheFilesBefore) {
  ResultStream stream = In(ResultFormat::kText);
  stream.Give(1, b);
  EXPECT_THAT(written, IsEmpty());
  stream.Give(0, a);
  EXPECT_THAT(written, ElementsAre(FileText(a), FileText(b)));
  run.files = {a, b};
  stream.Finish(run);
  EXPECT_EQ(written[0] + written[1] + written.back(), RunText(run));
}

TEST_F(ResultStreams, OneFileNeedsNoSummary) {
  ResultStream stream = In(ResultFormat::kText);
  stream.Give(0, a);
  run.files = {a};
  stream.Finish(run);
  EXPECT_THAT(written, ElementsAre(FileText(a)));
}

TEST_F(ResultStreams, JsonLinesComeAtOnce) {
  ResultStream stream = In(ResultFormat::kJsonLines);
  stream.Give(1, b);
  EXPECT_THAT(written, ElementsAre(ToJsonLine(b, run)));
}

TEST_F(ResultStreams, CsvHasItsHeaderEvenWithoutFiles) {
  ResultStream stream = In(ResultFormat::kCsv);
  EXPECT_THAT(written, IsEmpty());
  stream.Finish(run);
  EXPECT_THAT(written, ElementsAre(CsvHeader()));
}

TEST_F(ResultStreams, WhatStandsBehindAFileThatNeverEndedComesAtTheEnd) {
  ResultStream stream = In(ResultFormat::kCsv);
  stream.Give(1, b);
  run.files = {b};
  stream.Finish(run);
  EXPECT_THAT(written, ElementsAre(CsvHeader(), CsvRows(b)));
}

TEST_F(ResultStreams, JsonComesAsAWhole) {
  ResultStream stream = In(ResultFormat::kJson);
  stream.Give(0, a);
  EXPECT_THAT(written, IsEmpty());
  run.files = {a};
  stream.Finish(run);
  EXPECT_THAT(written, ElementsAre(ToJson(run)));
}

TEST(ResultStream, ColoursAreForVerdictsAndFailures) {
  EXPECT_EQ(Coloured("x.wav: failed\n"), "\033[31mx.wav: failed\033[0m\n");
  EXPECT_EQ(Coloured("track 1  pass  integratedLoudness -23, wanted -23\n"),
            "\033[32mtrack 1  pass  integratedLoudness -23, wanted -23\033[0m\n");
  EXPECT_EQ(Coloured("track 2  FAIL  maxTruePeak 0.5, wanted -1\n"),
            "\033[31mtrack 2  FAIL  maxTruePeak 0.5, wanted -1\033[0m\n");
  const std::string header = "track  channels  format  pass  integrated\n\n";
  EXPECT_EQ(Coloured(header), header);
}

}  // namespace
}  // namespace harvane
