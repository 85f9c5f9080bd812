// Any bytes as the module's log.

#include <algorithm>
#include <string_view>

#include "host/LogReading.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

// A row has at least this many bytes, and a line that is a problem one; each has its line end.
constexpr std::size_t kShortestRow =
    sizeof ",Process,0,0,Mono,0.0,0.0,0.0,0:0:0:0,0.0,0:0:0:0,0.0,0:0:0:0";
constexpr std::size_t kShortestProblem = 2;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const harvane::LogReading reading = harvane::ReadLog(text);
  fuzz::Require(!reading.isMemoryExhausted, "the memory lasts");
  fuzz::Require(reading.tracks.size() * kShortestRow <= size, "a row is made of its bytes");
  fuzz::Require(reading.problemCount <= size / kShortestProblem + 1, "a problem stands on a line");
  fuzz::Require(
      reading.problems.size() == std::min(reading.problemCount, harvane::kMostLogProblems),
      "the problems are listed up to the limit");

  // Each row stands on a line of its own, and reads the same there.
  std::size_t lastLine = 0;
  for (const harvane::LoggedTrack& track : reading.tracks) {
    fuzz::Require(track.line > lastLine, "rows come in the order of their lines");
    lastLine = track.line;
    fuzz::Require(track.firstChannel >= 0 && track.lastChannel >= track.firstChannel,
                  "channels are in order");
    fuzz::Require(track.name.size() < size, "the name is a part of the text");
  }

  // A log that is cut off anywhere keeps the rows before the cut.
  const std::size_t cut = size / 2;
  const harvane::LogReading half = harvane::ReadLog(text.substr(0, cut));
  fuzz::Require(half.tracks.size() <= reading.tracks.size(), "a cut makes no row");
  for (std::size_t i = 0; i < half.tracks.size(); ++i) {
    fuzz::Require(half.tracks[i].line == reading.tracks[i].line &&
                      half.tracks[i].name == reading.tracks[i].name,
                  "a cut changes no row before it");
  }
  return 0;
}
