#include "host/LogReading.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <string>

#include "logging/LogRow.h"
#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMain.h"

namespace harvane {
namespace {

constexpr char kRowEnd[] = "\n\r\n";

// The worked row of docs/log-file.md, and the same without a frame rate.
const std::string kFrameRow =
    "JobAt_5:4:9,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:09,-18.9,00:12:00:00,-14.2,"
    "00:12:02:22";
const std::string kMillisecondRow =
    "JobAt_5:4:9,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:375,-18.9,00:12:00:000,-14.2,"
    "00:12:02:916";

std::string Banner() {
  return "\r\n" + std::string(58, '*') + "\r\n" + LogHeader().toStdString() +
         "\r\nLog started: 7 Mar 2013 5:04:09pm\r\n\r\n";
}

// `row` with one of its thirteen fields replaced.
std::string WithField(std::size_t field, const std::string& text) {
  std::string row;
  std::size_t start = 0;
  for (std::size_t i = 0; i < 13; ++i) {
    const std::size_t end = kFrameRow.find(',', start);
    if (i > 0) row += ',';
    row += i == field ? text : kFrameRow.substr(start, end - start);
    start = end + 1;
  }
  return row;
}

// The one track of a log without a problem.
LoggedTrack OnlyTrack(const std::string& text) {
  const LogReading log = ReadLog(text);
  EXPECT_EQ(log.problemCount, 0U) << (log.problems.empty() ? "" : log.problems[0].reason);
  EXPECT_EQ(log.tracks.size(), 1U) << text;
  return log.tracks.empty() ? LoggedTrack{} : log.tracks[0];
}

// The reason of the one problem of a log that holds nothing else.
std::string OnlyProblem(const std::string& text) {
  const LogReading log = ReadLog(text);
  EXPECT_TRUE(log.tracks.empty()) << text;
  EXPECT_EQ(log.problemCount, 1U) << text;
  return log.problems.empty() ? "" : log.problems[0].reason;
}

void ExpectTime(const LoggedTime& time, int hours, int minutes, int seconds, int last) {
  EXPECT_EQ(time.hours, hours);
  EXPECT_EQ(time.minutes, minutes);
  EXPECT_EQ(time.seconds, seconds);
  EXPECT_EQ(time.framesOrMilliseconds, last);
}

// ---- rows

TEST(LogReading, RowWithVideoFrames) {
  const LoggedTrack track = OnlyTrack(kFrameRow + kRowEnd);
  EXPECT_EQ(track.line, 1U);
  EXPECT_EQ(track.name, "JobAt_5:4:9");
  EXPECT_EQ(track.pass, LoggedPass::kAnalysis);
  EXPECT_EQ(track.firstChannel, 0);
  EXPECT_EQ(track.lastChannel, 1);
  EXPECT_EQ(track.format, LoggedFormat::kStereo);
  EXPECT_EQ(track.integratedLoudness, -23.4);
  EXPECT_EQ(track.loudnessRange, 6.2);
  EXPECT_EQ(track.maxTruePeak, -1.8);
  ExpectTime(track.maxTruePeakTime, 0, 12, 3, 9);
  EXPECT_EQ(track.maxShortTerm, -18.9);
  ExpectTime(track.maxShortTermTime, 0, 12, 0, 0);
  EXPECT_EQ(track.maxMomentary, -14.2);
  ExpectTime(track.maxMomentaryTime, 0, 12, 2, 22);
  EXPECT_TRUE(track.hasFrames);
}

TEST(LogReading, RowWithMilliseconds) {
  const LoggedTrack track = OnlyTrack(kMillisecondRow + kRowEnd);
  ExpectTime(track.maxTruePeakTime, 0, 12, 3, 375);
  ExpectTime(track.maxShortTermTime, 0, 12, 0, 0);
  ExpectTime(track.maxMomentaryTime, 0, 12, 2, 916);
  EXPECT_FALSE(track.hasFrames);
}

TEST(LogReading, FrameNumbersOfThreeDigitsAreKnownByTheOthers) {
  EXPECT_TRUE(OnlyTrack(WithField(12, "00:00:00:119") + "\n").hasFrames);
}

TEST(LogReading, HoursMayHaveMoreDigits) {
  ExpectTime(OnlyTrack(WithField(8, "100:00:59:00") + "\n").maxTruePeakTime, 100, 0, 59, 0);
}

TEST(LogReading, PassesAndFormatsAreTold) {
  const std::string log = "a,Process,0,0,Mono" + kFrameRow.substr(31) + kRowEnd +
                          "a,Process,1,6,5.1" + kFrameRow.substr(31) + kRowEnd +
                          "a,Process,7,10,Unspecified" + kFrameRow.substr(31) + kRowEnd;
  const LogReading reading = ReadLog(log);
  ASSERT_EQ(reading.tracks.size(), 3U);
  EXPECT_EQ(reading.tracks[0].pass, LoggedPass::kProcess);
  EXPECT_EQ(reading.tracks[0].format, LoggedFormat::kMono);
  EXPECT_EQ(reading.tracks[1].format, LoggedFormat::kSurround);
  EXPECT_EQ(reading.tracks[1].firstChannel, 1);
  EXPECT_EQ(reading.tracks[1].lastChannel, 6);
  EXPECT_EQ(reading.tracks[2].format, LoggedFormat::kUnspecified);
}

TEST(LogReading, ValuesThatAreNoNumbers) {
  EXPECT_EQ(OnlyTrack(WithField(5, "-inf") + "\n").integratedLoudness,
            -std::numeric_limits<double>::infinity());
  EXPECT_EQ(OnlyTrack(WithField(7, "inf") + "\n").maxTruePeak,
            std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(OnlyTrack(WithField(11, "nan") + "\n").maxMomentary));
  EXPECT_TRUE(std::isnan(OnlyTrack(WithField(11, "-nan") + "\n").maxMomentary));
}

TEST(LogReading, CommasInTheNameBelongToIt) {
  EXPECT_EQ(OnlyTrack("One, two,,three" + kFrameRow.substr(11) + kRowEnd).name, "One, two,,three");
}

TEST(LogReading, NameMayBeEmptyOrLookLikeARow) {
  EXPECT_EQ(OnlyTrack(kFrameRow.substr(11) + kRowEnd).name, "");
  EXPECT_EQ(OnlyTrack(kFrameRow + kFrameRow.substr(11) + kRowEnd).name, kFrameRow);
}

TEST(LogReading, NameMayBeginAsTheBannerDoes) {
  EXPECT_EQ(OnlyTrack("Log started: again" + kFrameRow.substr(11) + kRowEnd).name,
            "Log started: again");
}

TEST(LogReading, NameWithALineEndLosesWhatIsBeforeIt) {
  const LogReading log = ReadLog("One\r\ntwo" + kFrameRow.substr(11) + kRowEnd);
  ASSERT_EQ(log.tracks.size(), 1U);
  EXPECT_EQ(log.tracks[0].name, "two");
  EXPECT_EQ(log.tracks[0].line, 2U);
  ASSERT_EQ(log.problems.size(), 1U);
  EXPECT_EQ(log.problems[0].line, 1U);
}

TEST(LogReading, NameIsUtf8) {
  const std::string name = "M\xc3\xa4rz \xe6\x97\xa5 \xf0\x9f\x8e\xb5";
  EXPECT_EQ(OnlyTrack(name + kFrameRow.substr(11) + kRowEnd).name, name);
}

TEST(LogReading, LocaleHasNoPartInTheNumbers) {
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(OnlyTrack(kFrameRow + kRowEnd).integratedLoudness, -23.4);
  std::setlocale(LC_NUMERIC, "C");
}

// ---- what is written comes back

float NumberOf(const std::string& tenths) {
  if (tenths == "inf") return std::numeric_limits<float>::infinity();
  if (tenths == "-inf") return -std::numeric_limits<float>::infinity();
  return std::strtof(tenths.c_str(), nullptr);
}

TEST(LogReading, ReadsWhatTheLoggerForms) {
  support::ForEachSeed(5000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto part = [&noise](int limit) {
      return static_cast<int>(noise.NextBelow(static_cast<unsigned>(2 * limit - 1))) - limit + 1;
    };
    const int frameRate = static_cast<int>(noise.NextBelow(3)) * 25;
    const auto time = [&] {
      const int last = frameRate == 0 ? part(1000) : part(frameRate);
      return TimeCode{last, part(60), part(60), part(2000)};
    };
    const auto level = [&noise] { return support::AnyFloat(&noise, 80.0F); };
    const auto first = static_cast<int>(noise.NextBelow(40));
    const auto count = static_cast<int>(1 + noise.NextBelow(8));
    const bool isProcess = noise.NextBelow(2) == 1;
    const LogMeasurement m = {isProcess ? "Process" : "Analysis",
                              first,
                              first + count - 1,
                              level(),
                              level(),
                              level(),
                              time(),
                              level(),
                              time(),
                              level(),
                              time()};
    const std::string row = LogRow("Name", m, frameRate).toStdString();
    SCOPED_TRACE(row);
    const LoggedTrack track = OnlyTrack(Banner() + row + "\r\n");
    EXPECT_EQ(track.line, 7U);
    EXPECT_EQ(track.pass, isProcess ? LoggedPass::kProcess : LoggedPass::kAnalysis);
    EXPECT_EQ(track.firstChannel, m.startChannel);
    EXPECT_EQ(track.lastChannel, m.endChannel);
    const auto expectLevel = [](float wanted, double got) {
      if (std::isnan(wanted)) {
        EXPECT_TRUE(std::isnan(got));
      } else {
        EXPECT_BITS_EQ(NumberOf(Tenths(wanted)), static_cast<float>(got));
      }
    };
    expectLevel(m.integratedLoudness, track.integratedLoudness);
    expectLevel(m.loudnessRange, track.loudnessRange);
    expectLevel(m.maxTruePeak, track.maxTruePeak);
    expectLevel(m.maxShortTerm, track.maxShortTerm);
    expectLevel(m.maxMomentary, track.maxMomentary);
    const auto expectTime = [](const TimeCode& wanted, const LoggedTime& got) {
      ExpectTime(got, wanted.hours, wanted.minutes, wanted.seconds, wanted.framesOrMilliseconds);
    };
    expectTime(m.maxTruePeakTime, track.maxTruePeakTime);
    expectTime(m.maxShortTermTime, track.maxShortTermTime);
    expectTime(m.maxMomentaryTime, track.maxMomentaryTime);
  });
}

// ---- the file around the rows

TEST(LogReading, BannerIsNoProblem) {
  const LogReading log = ReadLog(Banner() + kFrameRow + kRowEnd + kMillisecondRow + kRowEnd);
  EXPECT_EQ(log.problemCount, 0U);
  ASSERT_EQ(log.tracks.size(), 2U);
  EXPECT_EQ(log.tracks[0].line, 7U);
  EXPECT_EQ(log.tracks[1].line, 9U);
}

TEST(LogReading, BannerMayComeAgain) {
  const LogReading log = ReadLog(Banner() + kFrameRow + kRowEnd + Banner() + kFrameRow + kRowEnd);
  EXPECT_EQ(log.problemCount, 0U);
  EXPECT_EQ(log.tracks.size(), 2U);
}

TEST(LogReading, TrimmedFileBeginsWithALineEnd) {
  EXPECT_EQ(OnlyTrack("\n\r\n" + kFrameRow + kRowEnd).line, 3U);
}

TEST(LogReading, NothingIsNoProblem) {
  for (const std::string text : {"", "\r", "\n", "\r\n\r\n"}) {
    const LogReading log = ReadLog(text);
    EXPECT_TRUE(log.tracks.empty());
    EXPECT_EQ(log.problemCount, 0U);
  }
}

TEST(LogReading, LastLineWithoutItsEndMayBeCut) {
  for (std::size_t length = 1; length <= kFrameRow.size(); ++length) {
    const LogReading log = ReadLog(kFrameRow + kRowEnd + kFrameRow.substr(0, length));
    EXPECT_EQ(log.tracks.size(), 1U);
    ASSERT_EQ(log.problems.size(), 1U);
    EXPECT_EQ(log.problems[0].line, 3U);
    EXPECT_EQ(log.problems[0].reason, "the end of the line is missing");
  }
}

TEST(LogReading, RowNeedsItsLineFeedAlone) {
  OnlyTrack(kFrameRow + "\n");
  OnlyTrack(kFrameRow + "\n\r");
}

// ---- what is no row

TEST(LogReading, TooFewFields) {
  EXPECT_EQ(OnlyProblem("a\n"), "it has 1 fields, and a row has 13");
  EXPECT_EQ(OnlyProblem(kFrameRow.substr(12) + "\n"), "it has 12 fields, and a row has 13");
}

TEST(LogReading, FieldsThatAreNoValuesOfTheirKind) {
  const struct {
    std::size_t field;
    std::vector<std::string> texts;
  } cases[] = {
      {1, {"", "analysis", "Analysis ", "Both"}},
      {2, {"", "-1", "+0", " 0", "0x0", "0.0", "2147483648", "00000000000000000000000000x"}},
      {3, {"", "-1", "1 ", "4294967297"}},
      {4, {"", "stereo", "Quad", "5.10"}},
      {5,
       {"", "-", ".", "-23", "-23.", ".5", "-23.44", "--1.0", "+1.0", "1e1.0", "1,0", "infinity",
        "NaN", " -23.4", "0x1.8"}},
      {8,
       {"", "00:12:03", "00:12:03:", "00:12:03:09:01", "00:60:00:00", "00:00:-60:00", "a:b:c:d",
        "00:00:00:+1", "00:00:00: 1", "1-1:00:00:00", "00:00:00:00-", "--1:00:00:00",
        "99999999999:00:00:00"}},
      {12, {"", "00.00.00.00"}},
  };
  for (const auto& one : cases) {
    for (const std::string& text : one.texts) {
      SCOPED_TRACE(text);
      EXPECT_NE(OnlyProblem(WithField(one.field, text) + "\n").find("no such value"),
                std::string::npos);
    }
  }
}

TEST(LogReading, ReasonNamesTheFirstWrongField) {
  EXPECT_EQ(OnlyProblem(WithField(8, "") + "\n"),
            "its field for the true peak's time is no such value");
}

TEST(LogReading, FormatMustBeThatOfTheChannels) {
  EXPECT_EQ(OnlyProblem(WithField(4, "Mono") + "\n"), "its format is not that of its channels");
  EXPECT_EQ(OnlyProblem(WithField(3, "2147483647") + "\n"),
            "its format is not that of its channels");
}

TEST(LogReading, LastChannelMustNotComeFirst) {
  EXPECT_EQ(OnlyProblem(WithField(2, "2") + "\n"), "its last channel stands before its first");
}

TEST(LogReading, NulByteIsAProblem) {
  EXPECT_EQ(OnlyProblem(std::string(1, '\0') + kFrameRow + "\n"), "it holds a NUL byte");
}

TEST(LogReading, NulByteInTheBannerIsAProblem) {
  EXPECT_EQ(OnlyProblem(std::string("Log started: \0", 14) + "\n"), "it holds a NUL byte");
}

TEST(LogReading, BytesThatAreNotUtf8AreAProblem) {
  for (const char* bytes : {"\xff", "\xc3", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xc0\xaf"}) {
    EXPECT_EQ(OnlyProblem(bytes + kFrameRow + "\n"), "it is not UTF-8");
  }
}

TEST(LogReading, HugeFieldsAreReadInPlace) {
  const std::string name(1 << 20, 'n');
  EXPECT_EQ(OnlyTrack(name + kFrameRow.substr(11) + "\n").name.size(), name.size());
  OnlyProblem(WithField(5, std::string(1 << 20, '9') + ".0") + "\n");
  OnlyProblem(std::string(1 << 20, ',') + "\n");
  OnlyProblem(WithField(8, std::string(1 << 20, '0') + "-") + "\n");
}

TEST(LogReading, ProblemsAreListedUpToALimitAndCounted) {
  std::string text;
  for (std::size_t i = 0; i < kMostLogProblems + 5; ++i) text += "a\n";
  const LogReading log = ReadLog(text + kFrameRow + "\n");
  EXPECT_EQ(log.problems.size(), kMostLogProblems);
  EXPECT_EQ(log.problemCount, kMostLogProblems + 5);
  ASSERT_EQ(log.tracks.size(), 1U);
  EXPECT_EQ(log.tracks[0].line, kMostLogProblems + 6);
}

// ---- files

TEST(LogReading, FileIsReadWhole) {
  const support::TemporaryFolder folder;
  const std::string path = folder.FileIn("log.csv");
  std::string rows;
  for (int i = 0; i < 1000; ++i) rows += kFrameRow + kRowEnd;
  support::WriteBytes(path, Banner() + rows);
  const LogReading log = ReadLogFile(path);
  EXPECT_EQ(log.tracks.size(), 1000U);
  EXPECT_EQ(log.problemCount, 0U);
}

TEST(LogReading, EmptyFileHoldsNothing) {
  const support::TemporaryFolder folder;
  support::WriteBytes(folder.FileIn("log.csv"), "");
  const LogReading log = ReadLogFile(folder.FileIn("log.csv"));
  EXPECT_TRUE(log.tracks.empty());
  EXPECT_EQ(log.problemCount, 0U);
}

TEST(LogReading, FileThatCannotBeReadIsOneProblemOfNoLine) {
  const support::TemporaryFolder folder;
  for (const std::string& path : {folder.FileIn("none.csv"), folder.Text()}) {
    const LogReading log = ReadLogFile(path);
    ASSERT_EQ(log.problems.size(), 1U) << path;
    EXPECT_EQ(log.problems[0].line, 0U);
    EXPECT_FALSE(log.problems[0].reason.empty());
  }
}

}  // namespace
}  // namespace harvane
