#include "tool/validate/TestRun.h"

#include <iterator>

#include "host/FileAccess.h"
#include "tool/validate/ModuleInstance.h"

namespace harvane {
namespace {

#ifdef _WIN32
constexpr char kSeparator = '\\';
#else
constexpr char kSeparator = '/';
#endif

// Tracks of the widest layout: four groups of four stereo tracks.
constexpr int kMostTracks = 16;

}  // namespace

TestRun::TestRun(const std::string& modulePath, std::uint64_t seed, const std::string& folder,
                 const std::string& reportPath)
    : modulePath(modulePath),
      seed(seed),
      folder(folder),
      report(PathOf(reportPath), std::ios::binary) {}

const ModuleExports& TestRun::Module() {
  if (!module) module = std::make_unique<LoadedModule>(modulePath);
  return module->Exports();
}

std::string TestRun::FileIn(const std::string& name) const { return folder + kSeparator + name; }

void TestRun::Expect(bool holds, const std::string& what) {
  if (holds) return;
  hasFailed = true;
  Write("fail " + what);
}

void TestRun::RequireCode(std::uint32_t wanted, std::uint32_t code, const std::string& call) {
  ExpectCode(wanted, code, call);
  if (wanted != code) throw TestEnded();
}

void TestRun::Require(bool holds, const std::string& what) {
  Expect(holds, what);
  if (!holds) throw TestEnded();
}

void TestRun::Write(const std::string& line) {
  std::string flat = line;
  for (char& character : flat) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  report << flat << '\n' << std::flush;
}

std::vector<LoggedTrack> TestRun::TakeRows(const std::string& stem, int waiting) {
  for (int queued = 0; queued < waiting; queued += kMostTracks) {
    JobTexts texts = TextsFor(*this, "filler", "filler");
    texts.numberOfPasses = "1";
    texts.numberOfGroups = "4";
    texts.formats = {"5", "5", "5", "5"};
    ModuleInstance filler(*this);
    filler.Begin(texts, 48000, 1);
    filler.StartPass(0);
    filler.EndPass();
    filler.EndSequence();
  }
  Unload();
  const LogReading log = ReadLogFile(LogPath(stem));
  for (const LogProblem& problem : log.problems) {
    Expect(false, Joined("the log's line ", problem.line, ": ", problem.reason));
  }
  return log.tracks;
}

std::string TestRun::LogBytes(const std::string& stem) const {
  std::ifstream file(PathOf(LogPath(stem)), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace harvane
