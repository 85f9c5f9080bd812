// Runs of many files, as a user starts them, and what may happen on the way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/Signals.h"
#include "tests/tool/StartedProgram.h"

namespace support {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kUnruly = "-M " HARVANE_UNRULY_MODULE " -L logs -N m ";

class Batch : public testing::Test {
 protected:
  void MakeOne(const std::string& name, double seconds = 0.5, int amplitude = 1500) const {
    WriteSound(place.FileIn(name), kWav16, 48000, 1,
               NoiseInt16(7, static_cast<std::size_t>(48000 * seconds), amplitude));
  }
  void Make(const std::vector<std::string>& names) const {
    for (const std::string& name : names) MakeOne(name);
  }

  // The statuses of a run's JSON, by input.
  static std::map<std::string, std::string> Statuses(const Json& run) {
    std::map<std::string, std::string> statuses;
    for (const Json& file : run.at("files")) statuses[file.at("input")] = file.at("status");
    return statuses;
  }
  static Json FileOf(const Json& run, const std::string& input) {
    for (const Json& file : run.at("files")) {
      if (file.at("input") == input) return file;
    }
    ADD_FAILURE() << "no result of " << input;
    return {};
  }
  Json JsonIn(const std::string& name) const { return Json::parse(ReadBytes(place.FileIn(name))); }

  std::vector<std::string> NamesIn(const std::string& folder) const {
    std::vector<std::string> names;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(place.FileIn(folder), failure)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const Workplace place;
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(Batch, OneBrokenFileCostsNoOtherItsRow) {
  std::string names;
  std::set<std::string> good;
  for (char letter = 'a'; letter < 'u'; ++letter) {
    const std::string name = std::string(1, letter) + ".wav";
    names += " " + name;
    if (letter == 'g') {
      WriteBytes(place.FileIn(name), "RIFF");
    } else {
      MakeOne(name, 0.1);
      good.insert(name);
    }
  }
  for (const char* workers : {"-j 1", "-j 3"}) {
    const RunResult run =
        place.Run(std::string("normalise -d out --overwrite -f json ") + workers + names);
    EXPECT_EQ(run.code, 1) << run.err;
    EXPECT_THAT(run.err, HasSubstr("harvane: g.wav: cannot be read as audio"));
    const Json whole = Json::parse(run.out);
    EXPECT_EQ(whole.at("exitCode"), 1);
    ASSERT_EQ(whole.at("files").size(), 20U);
    EXPECT_EQ(whole.at("files").at(19).at("input"), "t.wav");
    for (const auto& [name, status] : Statuses(whole)) {
      EXPECT_EQ(status, good.count(name) > 0 ? "done" : "failed") << name;
    }
    const std::vector<std::string> outputs = NamesIn("out");
    EXPECT_EQ(std::set<std::string>(outputs.begin(), outputs.end()), good);
  }
}

TEST_F(Batch, SeveralWorkersMakeTheSameOutputsAndTheSameResults) {
  Make({"a.wav", "b.wav", "c.wav", "d.wav"});
  MakeOne("loud.wav", 1.0, 30000);
  const std::string files = " *.wav -f csv | sed 's/[^,]*$//; s/out[14]/out/'";
  const RunResult one = place.Run("normalise -d out1" + files);
  const RunResult four = place.Run("normalise -d out4 -j 4" + files);
  EXPECT_EQ(one.code, 0) << one.err;
  EXPECT_EQ(Lines(one.out).size(), 6U);
  EXPECT_EQ(four.out, one.out);
  ASSERT_EQ(NamesIn("out1").size(), 5U);
  for (const std::string& name : NamesIn("out1")) {
    EXPECT_TRUE(ReadBytes(place.FileIn("out1/" + name)) == ReadBytes(place.FileIn("out4/" + name)))
        << name;
  }
}

TEST_F(Batch, EveryWorkerCompletesItsRowsOfTheLogAndTheHeaderStandsOnce) {
  std::string names;
  for (int i = 0; i < 12; ++i) {
    MakeOne("f" + std::to_string(i) + ".wav");
    names += " f" + std::to_string(i) + ".wav";
  }
  const RunResult run = place.Run("normalise -d out -j 4 -L logs -N all -e entry" + names);
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("log: " + place.FileIn("logs/all.csv")));
  int headers = 0;
  int rows = 0;
  for (const std::string& line : Lines(ReadBytes(place.FileIn("logs/all.csv")))) {
    headers += line.find("Log started") != std::string::npos ? 1 : 0;
    rows += line.rfind("entry,", 0) == 0 ? 1 : 0;
  }
  EXPECT_EQ(headers, 1);
  EXPECT_EQ(rows, 24);
}

// ---- workers that die

TEST_F(Batch, AFatalStopInsideTheModuleCostsItsOwnFileOnly) {
  Make({"a.wav", "b.wav", "c.wav", "crash1.wav", "crash2.wav"});
  for (const char* workers : {"-j 1", "-j 2"}) {
    const RunResult run = place.Run(std::string("normalise a.wav crash1.wav b.wav crash2.wav c.wav "
                                                "-d out --overwrite -f json ") +
                                    kUnruly + workers);
    EXPECT_EQ(run.code, 5) << run.err;
    const Json whole = Json::parse(run.out);
    for (const auto& [name, status] : Statuses(whole)) {
      EXPECT_EQ(status, name[0] == 'c' && name != "c.wav" ? "crashed" : "done") << name;
    }
    EXPECT_THAT(std::string(FileOf(whole, "crash1.wav").at("error")),
                HasSubstr("ended by signal 6 (Aborted)"));
    EXPECT_THAT(run.err, HasSubstr("fatal stop: a test wants it"));
    EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "b.wav", "c.wav"));
  }
}

// A module of another platform is in a process of its own, and the worker lives on. Here it is the
// unruly one behind a runner that starts it on this platform.
TEST_F(Batch, AModuleThatEndsAProcessOfItsOwnHasCrashedToo) {
  Make({"a.wav", "crash1.wav"});
  std::string module(0x44, '\0');
  module.replace(0, 2, "MZ");
  module[0x3C] = 0x40;
  module.replace(0x40, 2, "PE");
  WriteBytes(place.FileIn("Foreign.rpi"), module);
  WriteBytes(place.FileIn("harvane-session.exe"), "");
  WriteBytes(place.FileIn("runner"),
             "#!/bin/sh\nexec " HARVANE_SESSION_PROGRAM " " HARVANE_UNRULY_MODULE "\n");
  std::filesystem::permissions(place.FileIn("runner"), std::filesystem::perms::owner_all);
  const RunResult run =
      place.Run("normalise crash1.wav a.wav -d out -f json -M Foreign.rpi -L logs -N m",
                "HARVANE_WINE_RUNNER='" + place.FileIn("runner") + "'");
  EXPECT_EQ(run.code, 5) << run.err;
  const Json whole = Json::parse(run.out);
  EXPECT_EQ(FileOf(whole, "crash1.wav").at("status"), "crashed");
  EXPECT_THAT(std::string(FileOf(whole, "crash1.wav").at("error")),
              HasSubstr("the module ended its process in a unit of audio, signal 6"));
  EXPECT_EQ(FileOf(whole, "a.wav").at("status"), "done");
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav"));
}

TEST_F(Batch, AFileThatTakesTooLongIsEndedAndTheRestIsDone) {
  Make({"a.wav", "hang.wav", "z.wav"});
  const RunResult run = place.Run(
      std::string("normalise a.wav hang.wav z.wav -d out --timeout 1.5 -f json ") + kUnruly);
  EXPECT_EQ(run.code, 5) << run.err;
  const Json whole = Json::parse(run.out);
  EXPECT_EQ(FileOf(whole, "hang.wav").at("status"), "timedOut");
  EXPECT_EQ(FileOf(whole, "hang.wav").at("error"), "took longer than 1.5 s and was ended");
  EXPECT_GE(FileOf(whole, "hang.wav").at("wallSeconds").get<double>(), 1.5);
  EXPECT_EQ(FileOf(whole, "z.wav").at("status"), "done");
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "z.wav"));
}

TEST_F(Batch, AWorkerThatIsKilledCostsItsOwnFileOnly) {
  Make({"a.wav", "hang.wav", "z.wav"});
  StartedProgram program(place, {"normalise", "a.wav", "hang.wav", "z.wav", "-d", "out", "-f",
                                 "jsonl", "-M", HARVANE_UNRULY_MODULE, "-L", "logs"});
  ASSERT_TRUE(Comes([&] { return program.Out().find("a.wav") != std::string::npos; }));
  // It is at its second file, or about to be: then it gets it again.
  ASSERT_TRUE(Comes([&] { return !program.Workers().empty(); }));
  kill(program.Workers().front(), SIGKILL);
  ASSERT_TRUE(Comes([&] {
    if (program.Out().find("hang.wav") != std::string::npos) return true;
    for (const pid_t worker : program.Workers()) kill(worker, SIGKILL);
    return false;
  }));
  ASSERT_TRUE(Comes([&] { return Lines(program.Out()).size() == 3; })) << program.Out();
  const RunResult run = program.Wait();
  EXPECT_EQ(run.code, 5);
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(lines.size(), 3U);
  const Json killed = Json::parse(lines[1]);
  EXPECT_EQ(killed.at("status"), "crashed");
  EXPECT_THAT(std::string(killed.at("error")), HasSubstr("signal 9 (Killed)"));
  EXPECT_THAT(NamesIn("out"), Not(testing::Contains("hang.wav")));
}

TEST_F(Batch, WorkersEndWithTheProgramThatIsKilled) {
  Make({"hang.wav"});
  StartedProgram program(
      place, {"normalise", "hang.wav", "-d", "out", "-M", HARVANE_UNRULY_MODULE, "-L", "logs"});
  ASSERT_TRUE(Comes([&] { return std::filesystem::exists(place.FileIn("out")); }));
  const std::vector<pid_t> workers = program.Workers();
  ASSERT_EQ(workers.size(), 1U);
  program.Signal(SIGKILL);
  EXPECT_TRUE(Comes([&] { return IsDead(workers[0]); }));
  EXPECT_THAT(NamesIn("out"), IsEmpty());
}

// ---- interrupted runs

class InterruptedBatch : public Batch, public testing::WithParamInterface<int> {};

TEST_P(InterruptedBatch, LeavesWholeFilesAndSaysWhatWasDone) {
  Make({"a.wav", "b.wav", "hang.wav", "y.wav", "z.wav"});
  StartedProgram program(
      place, {"normalise", "a.wav", "b.wav", "hang.wav", "y.wav", "z.wav", "-d", "out", "-f",
              "json", "--progress", "json", "-M", HARVANE_UNRULY_MODULE, "-L", "logs"});
  ASSERT_TRUE(Comes([&] {
    return program.Err().find(R"("event":"file","input":"b.wav")") != std::string::npos;
  }));
  program.Signal(GetParam());
  const RunResult run = program.Wait();
  EXPECT_EQ(run.code, 130) << run.err;
  EXPECT_THAT(run.err, HasSubstr("harvane: interrupted: 2 of 5 files"));
  const Json whole = Json::parse(run.out);
  EXPECT_EQ(FileOf(whole, "a.wav").at("status"), "done");
  EXPECT_EQ(FileOf(whole, "b.wav").at("status"), "done");
  for (const auto& [name, status] : Statuses(whole)) {
    if (name > "b.wav") {
      EXPECT_EQ(status, "interrupted") << name;
    }
  }
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "b.wav"));
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptedBatch, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& info) { return "Signal" + std::to_string(info.param); });

TEST_F(Batch, AnInterruptedRunWritesItsResultsAndIsResumed) {
  Make({"a.wav", "hang.wav", "z.wav"});
  StartedProgram program(
      place, {"normalise", "a.wav", "hang.wav", "z.wav", "-d", "out", "--output-results",
              "run.json", "--progress", "json", "-M", HARVANE_UNRULY_MODULE, "-L", "logs"});
  ASSERT_TRUE(Comes([&] {
    return program.Err().find(R"("event":"file","input":"a.wav")") != std::string::npos;
  }));
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait().code, 130);
  EXPECT_EQ(Statuses(JsonIn("run.json")).at("a.wav"), "done");
  const std::string before = ReadBytes(place.FileIn("out/a.wav"));
  const auto made = std::filesystem::last_write_time(place.FileIn("out/a.wav"));
  // With the real module nothing hangs.
  const RunResult run = place.Run(
      "normalise a.wav hang.wav z.wav -d out --resume run.json "
      "--output-results run.json");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(std::filesystem::last_write_time(place.FileIn("out/a.wav")), made);
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "hang.wav", "z.wav"));
  for (const auto& [name, status] : Statuses(JsonIn("run.json"))) EXPECT_EQ(status, "done") << name;
  EXPECT_EQ(JsonIn("run.json").at("files").size(), 3U);
}

// ---- resumed runs and shards

TEST_F(Batch, AResumedRunDoesOnlyWhatIsMissingOrFailed) {
  Make({"a.wav", "b.wav"});
  WriteBytes(place.FileIn("broken.wav"), "RIFF");
  for (const char* format : {"json", "jsonl"}) {
    const std::string results = std::string("run.") + format;
    const std::string job =
        std::string("measure a.wav broken.wav b.wav --output-results ") + results;
    EXPECT_EQ(place.Run(job).code, 1);
    // What is done is not looked at again; what failed is, and what is new.
    std::filesystem::rename(place.FileIn("a.wav"), place.FileIn("away"));
    Make({"broken.wav", "new.wav"});
    const RunResult run = place.Run(job + " new.wav --progress json --resume " + results);
    EXPECT_EQ(run.code, 0) << run.err;
    const RunResult shown =
        place.Run("measure a.wav broken.wav b.wav new.wav -f json --resume " + results);
    EXPECT_EQ(shown.code, 0) << shown.err;
    const Json whole = Json::parse(shown.out);
    ASSERT_EQ(whole.at("files").size(), 4U);
    EXPECT_EQ(whole.at("files").at(0).at("input"), "a.wav");
    EXPECT_EQ(whole.at("files").at(1).at("status"), "done");
    EXPECT_THAT(shown.err, IsEmpty());
    std::filesystem::rename(place.FileIn("away"), place.FileIn("a.wav"));
    WriteBytes(place.FileIn("broken.wav"), "RIFF");
  }
}

TEST_F(Batch, AResultWithoutItsOutputIsMissing) {
  Make({"a.wav", "b.wav"});
  ASSERT_EQ(place.Run("normalise a.wav b.wav -d out --output-results run.json").code, 0);
  std::filesystem::remove(place.FileIn("out/b.wav"));
  const RunResult run = place.Run("normalise a.wav b.wav -d out --resume run.json");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "b.wav"));
}

TEST_F(Batch, LinesThatWereCutAreDoneAgain) {
  Make({"a.wav", "b.wav"});
  const RunResult first = place.Run("measure a.wav b.wav -f jsonl");
  WriteBytes(place.FileIn("part.jsonl"), first.out.substr(0, first.out.size() - 20));
  std::filesystem::remove(place.FileIn("a.wav"));
  const RunResult run = place.Run("measure a.wav b.wav -f json --resume part.jsonl");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(Statuses(Json::parse(run.out)).size(), 2U);
  EXPECT_THAT(run.err, HasSubstr("part.jsonl"));
}

TEST_F(Batch, ResultsOfAnotherJobAreNotResumed) {
  Make({"a.wav"});
  ASSERT_EQ(place.Run("measure a.wav --output-results run.json").code, 0);
  const RunResult other = place.Run("normalise a.wav -d out --resume run.json");
  EXPECT_EQ(other.code, 2);
  EXPECT_THAT(other.err, HasSubstr("run.json: has results of another command or other targets"));
  EXPECT_THAT(NamesIn("out"), IsEmpty());
  ASSERT_EQ(place.Run("normalise a.wav -d out --output-results run.json").code, 0);
  EXPECT_EQ(place.Run("normalise a.wav -d out --resume run.json -l -24").code, 2);
}

TEST_F(Batch, AMissingFileOfResultsIsTheBeginning) {
  Make({"a.wav"});
  const RunResult run = place.Run("measure a.wav --resume run.json --output-results run.json");
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr("run.json: is not there; the run begins anew"));
  EXPECT_EQ(Statuses(JsonIn("run.json")).at("a.wav"), "done");
}

TEST_F(Batch, AListOnStandardInputIsReadOnce) {
  Make({"a.wav", "b.wav", "c.wav"});
  const RunResult run =
      place.Run("measure --files-from - -j 2 -f json", "printf 'a.wav\\nb.wav\\nc.wav\\n' |");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(Statuses(Json::parse(run.out)).size(), 3U);
}

TEST_F(Batch, ShardsTogetherDoEveryFileOnce) {
  Make({"a.wav", "b.wav", "c.wav", "d.wav", "e.wav"});
  std::multiset<std::string> all;
  for (const char* shard : {"1/3", "2/3", "3/3"}) {
    const RunResult run =
        place.Run(std::string("normalise -r . -d out --output-results part.json --shard ") + shard);
    EXPECT_EQ(run.code, 0) << run.err;
    for (const auto& [name, status] : Statuses(JsonIn("part.json"))) all.insert(name);
  }
  EXPECT_EQ(all.size(), 5U);
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 5U);
  EXPECT_EQ(NamesIn("out").size(), 5U);
}

// ---- what is given out

TEST_F(Batch, StandardOutputThatCannotBeWrittenIsAFailureAndTheFilesAreDone) {
  Make({"a.wav", "b.wav"});
  for (const char* out : {">/dev/full", ">&-"}) {
    for (const char* format : {"text", "json", "jsonl", "csv"}) {
      const RunResult run = place.Run(std::string("normalise a.wav b.wav -d out --overwrite -f ") +
                                          format + " " + out + "; echo code $?; }",
                                      "{");
      EXPECT_THAT(run.out, HasSubstr("code 1")) << out << format;
      EXPECT_THAT(run.err, HasSubstr("the results cannot be written to standard output"));
      EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "b.wav"));
      std::filesystem::remove_all(place.FileIn("out"));
    }
  }
}

TEST_F(Batch, AReaderThatGoesAwayEndsNoFile) {
  Make({"a.wav", "b.wav", "c.wav"});
  place.Run("normalise a.wav b.wav c.wav -d out -f jsonl | head -c 1");
  EXPECT_THAT(NamesIn("out"), ElementsAre("a.wav", "b.wav", "c.wav"));
}

TEST_F(Batch, WithoutStandardInputAndErrorItWorks) {
  Make({"a.wav"});
  const RunResult run = place.Run("measure a.wav -f csv <&- 2>&-");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(Lines(run.out).size(), 2U);
}

TEST_F(Batch, ResultsGoToAFileInTheFormatOfItsEnding) {
  Make({"a.wav", "b.wav"});
  WriteBytes(place.FileIn("r.json"), "what was there");
  for (const char* name : {"r.json", "r.jsonl", "r.csv", "r.txt"}) {
    const RunResult run = place.Run(std::string("measure a.wav b.wav --output-results ") + name);
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, IsEmpty());
  }
  EXPECT_EQ(JsonIn("r.json").at("command"), "measure");
  EXPECT_EQ(Json::parse(Lines(ReadBytes(place.FileIn("r.jsonl"))).at(1)).at("status"), "done");
  EXPECT_THAT(ReadBytes(place.FileIn("r.csv")), StartsWith("input,"));
  EXPECT_THAT(ReadBytes(place.FileIn("r.txt")), HasSubstr("2 files: 2 done"));
  EXPECT_THAT(place.Names(), ElementsAre("a.wav", "b.wav", "r.csv", "r.json", "r.jsonl", "r.txt"));
}

TEST_F(Batch, AResultsFileThatCannotBeIsWrongUsageAndNothingIsDone) {
  Make({"a.wav"});
  for (const char* option : {"--output-results", "--report", "--series-csv"}) {
    const RunResult run = place.Run(std::string("normalise a.wav -d out ") + option + " none/r");
    EXPECT_EQ(run.code, 2) << option;
    EXPECT_THAT(run.err, HasSubstr("none/r: cannot be written"));
    EXPECT_THAT(place.Names(), ElementsAre("a.wav"));
  }
}

TEST_F(Batch, AResultsFileThatCannotBeWrittenAtTheEndIsAFailureAndStaysAsItWas) {
  Make({"a.wav"});
  WriteBytes(place.FileIn("r.json"), "what was there");
  const RunResult run = place.Run("measure a.wav --output-results r.json", "ulimit -f 0;");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(ReadBytes(place.FileIn("r.json")), "what was there");
}

TEST_F(Batch, SeriesAreShownWhereTheyAreAskedFor) {
  MakeOne("a.wav", 4.0);
  const RunResult plain = place.Run("measure a.wav -f json --report r.html --series-csv s.csv");
  ASSERT_EQ(plain.code, 0) << plain.err;
  EXPECT_TRUE(
      FileOf(Json::parse(plain.out), "a.wav").at("tracks").at(0).at("seriesBefore").is_null());
  EXPECT_THAT(ReadBytes(place.FileIn("r.html")), HasSubstr("<svg"));
  EXPECT_GT(Lines(ReadBytes(place.FileIn("s.csv"))).size(), 30U);
  const RunResult asked = place.Run("measure a.wav -f json --series");
  EXPECT_TRUE(
      FileOf(Json::parse(asked.out), "a.wav").at("tracks").at(0).at("seriesBefore").is_object());
}

TEST_F(Batch, ProgressInJsonIsOnDemandAndOnStandardError) {
  Make({"a.wav", "b.wav"});
  EXPECT_THAT(place.Run("measure a.wav b.wav -L logs").err, Not(HasSubstr("{")));
  const RunResult run = place.Run("measure a.wav b.wav -L logs --progress json");
  std::vector<Json> events;
  for (const std::string& line : Lines(run.err)) {
    if (line[0] == '{') events.push_back(Json::parse(line));
  }
  ASSERT_GE(events.size(), 3U);
  EXPECT_EQ(events.back().at("event"), "progress");
  EXPECT_EQ(events.back().at("filesDone"), 2);
  EXPECT_EQ(events.back().at("part"), 1.0);
}

TEST_F(Batch, ATerminalGetsProgressAndColoursAndNoColorTakesTheColoursAway) {
  Make({"a.wav", "slow.wav"});
  const std::string job = std::string("check a.wav slow.wav ") + kUnruly + "' /dev/null";
  const RunResult colours = place.Run(job, "TERM=xterm script -qefc '");
  EXPECT_EQ(colours.code, 3) << colours.out;
  EXPECT_THAT(colours.out, HasSubstr("1/2 files ["));
  EXPECT_THAT(colours.out, HasSubstr("x real time"));
  EXPECT_THAT(colours.out, HasSubstr(" left"));
  EXPECT_THAT(colours.out, HasSubstr("\033[31m"));
  const RunResult plain = place.Run(job, "NO_COLOR=1 TERM=xterm script -qefc '");
  EXPECT_THAT(plain.out, Not(HasSubstr("\033[3")));
  const RunResult silent =
      place.Run("--progress none " + job, "NO_COLOR=1 TERM=xterm script -qefc '");
  EXPECT_THAT(silent.out, Not(HasSubstr("real time")));
}

}  // namespace
}  // namespace support
