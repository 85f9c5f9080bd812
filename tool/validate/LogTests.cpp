// The log: its bytes, and when they come.

#include <chrono>
#include <fstream>
#include <regex>
#include <thread>

#include "host/FileAccess.h"
#include "tool/validate/ModuleInstance.h"
#include "tool/validate/TestRun.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kLimitSeconds = 60;
constexpr std::uint32_t kRate = 48000;
constexpr std::size_t kMostLogBytes = 131072;

// A single pass without audio: one row of reset values.
void QueueRow(TestRun& run, const std::string& stem, const std::string& name,
              const std::string& frameRate = "0") {
  JobTexts texts = TextsFor(run, stem, name);
  texts.numberOfPasses = "1";
  texts.frameRate = frameRate;
  RunJob(run, texts, kRate, 2, {});
}

const char* const kResetRow =
    ",Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,-70.0,00:00:00:00";

void WriteBannerAndRows(TestRun& run) {
  QueueRow(run, "log", "first", "25");
  QueueRow(run, "log", "second");
  run.TakeRows("log", 2);
  const std::string bytes = run.LogBytes("log");
  const std::string head =
      "\r\n" + std::string(58, '*') +
      "\r\nName, Pass, StartingChannelIndex, EndChannelIndex, ChannelsFormat, "
      "Integrated Loudness, Loudness Range, Max True Peak, TC, Max ShortTerm Loudness, TC, "
      "Max Momentary Loudness, TC\n\r\nLog started: ";
  run.Require(bytes.rfind(head, 0) == 0, "the file begins otherwise: " + bytes.substr(0, 300));
  const std::size_t lineEnd = bytes.find("\r\n", head.size());
  run.Require(lineEnd != std::string::npos, "the banner's last line has no end");
  const std::string time = bytes.substr(head.size(), lineEnd - head.size());
  static const std::regex kTime(
      "[1-9][0-9]? (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [0-9]{4} "
      "(1[0-2]|[1-9]):[0-5][0-9]:[0-5][0-9](am|pm)");
  run.Expect(std::regex_match(time, kTime), "the log's start: " + time);
  const std::string rows = std::string("\r\nfirst") + kResetRow + "\n\r\n" +
                           "second,Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:000,-70.0,"
                           "00:00:00:000,-70.0,00:00:00:000\n\r\n";
  run.Expect(bytes.substr(lineEnd + 2) == rows, "the rows: " + bytes.substr(lineEnd + 2));
}

void WriteOlderHalf(TestRun& run) {
  for (int row = 0; row < 5; ++row) QueueRow(run, "log", "row-" + std::to_string(row));
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 0);  // unloads at once
  run.Require(rows.size() == 3, Joined(rows.size(), " rows of five after unloading, not 3"));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    run.ExpectEqual("row-" + std::to_string(i), rows[i].name, "name of a row");
  }
}

void AppendToWhatIsThere(TestRun& run) {
  const std::string before = "something else\r\n";
  std::ofstream(PathOf(run.LogPath("log")), std::ios::binary) << before;
  QueueRow(run, "log", "added", "25");
  QueueRow(run, "filler", "filler");
  run.Unload();
  run.Expect(run.LogBytes("log") == before + "added" + kResetRow + "\n\r\n",
             "the file holds: " + run.LogBytes("log"));
}

void NameByTime(TestRun& run) {
  QueueRow(run, "log", "");
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 1);
  run.Require(rows.size() == 1, Joined(rows.size(), " rows, not 1"));
  static const std::regex kName("JobAt_(1[0-2]|[1-9]):[1-5]?[0-9]:[1-5]?[0-9]");
  run.Expect(std::regex_match(rows[0].name, kName), "the row's name: " + rows[0].name);
}

// A short tone at 3.5 s, with its peak in it.
void CountFramesOrMilliseconds(TestRun& run) {
  struct Case {
    const char* name;
    const char* frameRate;
    bool hasFrames;
    int low;  // of the last part, at 3.500 s to 3.512 s
    int high;
  };
  constexpr Case kCases[] = {{"none", "0", false, 500, 512},
                             {"25", "25", true, 12, 12},
                             {"59.94", "59,94", true, 29, 30},
                             {"23.976", "23.976", true, 12, 12}};
  for (const Case& wanted : kCases) {
    JobTexts texts = TextsFor(run, "log", wanted.name);
    texts.numberOfPasses = "1";
    texts.frameRate = wanted.frameRate;
    Samples signal = Silence(3.5, kRate);
    Append(&signal, Tone(1000.0, -10.0, 0.005, kRate));
    Append(&signal, Silence(0.5, kRate));
    RunJob(run, texts, kRate, 2, OnChannels(signal, 2));
  }
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 4);
  run.Require(rows.size() == 4, Joined(rows.size(), " rows, not 4"));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Case& wanted = kCases[i];
    const LoggedTime& time = rows[i].maxTruePeakTime;
    run.ExpectEqual(wanted.hasFrames, rows[i].hasFrames,
                    Joined("frames at the frame rate ", wanted.name));
    run.Expect(time.hours == 0 && time.minutes == 0 && time.seconds == 3 &&
                   time.framesOrMilliseconds >= wanted.low &&
                   time.framesOrMilliseconds <= wanted.high,
               Joined("time at the frame rate ", wanted.name, ": ", time.seconds, ":",
                      time.framesOrMilliseconds));
  }
}

void LeaveNoRowOfOtherJobs(TestRun& run) {
  for (const char* passes : {"0", "3"}) {
    JobTexts texts = TextsFor(run, "log", "none");
    texts.numberOfPasses = passes;
    ModuleInstance job(run);
    job.Begin(texts, kRate, 2);
    for (std::uint32_t pass = 0; pass < 3; ++pass) {
      job.StartPass(pass);
      job.EndPass();
    }
    job.EndSequence();
  }
  QueueRow(run, "log", "one");
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 4);
  run.Expect(rows.size() == 1 && rows[0].name == "one",
             Joined(rows.size(), " rows, of which one should be"));
}

void KeepRowsInOrder(TestRun& run) {
  JobTexts texts = TextsFor(run, "log", "job");
  texts.formats = {"8"};
  RunJob(run, texts, kRate, 8, Samples(8 * 1000));
  const std::vector<LoggedTrack> rows = run.TakeRows("log", 4);
  run.Require(rows.size() == 4, Joined(rows.size(), " rows, not 4"));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    run.Expect(rows[i].pass == (i < 2 ? LoggedPass::kAnalysis : LoggedPass::kProcess) &&
                   rows[i].format == (i % 2 == 0 ? LoggedFormat::kStereo : LoggedFormat::kSurround),
               Joined("row ", i + 1, " is another"));
  }
}

void TrimLongFile(TestRun& run) {
  std::string before;
  while (before.size() <= kMostLogBytes) before += "0123456789 line that is long enough\r\n";
  std::ofstream(PathOf(run.LogPath("log")), std::ios::binary) << before;
  QueueRow(run, "log", "newest", "25");
  QueueRow(run, "filler", "filler");
  run.Unload();
  const std::string bytes = run.LogBytes("log");
  const std::string row = std::string("newest") + kResetRow + "\n\r\n";
  run.Expect(bytes.size() <= kMostLogBytes + row.size(),
             Joined("the file has ", bytes.size(), " bytes"));
  // From the first line end within the last 131072 bytes.
  const std::size_t start = before.find_first_of("\r\n", before.size() - kMostLogBytes);
  run.Expect(bytes == before.substr(start) + row, "the file is cut elsewhere");
}

std::size_t RowsOf(const TestRun& run) {
  const LogReading log = ReadLogFile(run.LogPath("log"));
  return log.tracks.size();
}

// Five rows: three after 5 s, one after 10, one after 15.
void WriteHalfOfWhatWaits(TestRun& run) {
  constexpr milliseconds kStep{20};
  constexpr milliseconds kWake{5000};
  constexpr milliseconds kSlack{1500};
  const Clock::time_point start = Clock::now();
  for (int row = 0; row < 5; ++row) QueueRow(run, "log", "row-" + std::to_string(row));
  std::size_t seen = 0;
  int wakes = 0;
  constexpr std::size_t kWanted[] = {3, 4, 5};
  while (wakes < 3) {
    std::this_thread::sleep_for(kStep);
    const auto passed = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    const std::size_t rows = RowsOf(run);
    run.Require(passed < kWake * (wakes + 1) + kSlack,
                Joined(rows, " rows after ", passed.count(), " ms, not ", kWanted[wakes]));
    if (rows <= seen) continue;
    run.Require(passed > kWake * (wakes + 1) - kSlack,
                Joined(rows, " rows after ", passed.count(), " ms already"));
    std::this_thread::sleep_for(10 * kStep);  // the rest of this wake-up's rows
    seen = RowsOf(run);
    run.Require(seen == kWanted[wakes],
                Joined(seen, " rows after wake-up ", wakes + 1, ", not ", kWanted[wakes]));
    ++wakes;
  }
}

}  // namespace

void AddLogTests(std::vector<ValidationTest>* tests) {
  const TestGroup group("Log.", kLimitSeconds, tests);
  group.Add("NewFileHasBannerAndRows", WriteBannerAndRows);
  group.Add("UnloadingWritesTheOlderHalf", WriteOlderHalf);
  group.Add("FileThatIsThereGetsNoBanner", AppendToWhatIsThere);
  group.Add("RowWithoutANameIsNamedByTime", NameByTime);
  group.Add("TimesAreInFramesOrMilliseconds", CountFramesOrMilliseconds);
  group.Add("JobsOfOtherPassCountsLeaveNoRow", LeaveNoRowOfOtherJobs);
  group.Add("RowsComeInTheOrderOfTracksAndPasses", KeepRowsInOrder);
  group.Add("LongFileLosesItsOldestLines", TrimLongFile);
  group.Add("EveryFiveSecondsHalfOfWhatWaitsIsWritten", WriteHalfOfWhatWaits, 2);
}

}  // namespace harvane
