#include "tool/RunProgress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tool/Terminal.h"
#include "tool/results/ResultNames.h"

namespace harvane {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kBarWidth = 30;
constexpr int kSmallestBar = 5;
constexpr std::chrono::milliseconds kLineInterval{100};
constexpr std::chrono::milliseconds kJsonInterval{500};
constexpr const char* kClearLine = "\r\033[K";

std::string Clock(double seconds) {
  const auto whole = static_cast<long long>(std::ceil(seconds));
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::optional<double> SpeedOf(const RunState& state) {
  if (state.elapsedSeconds <= 0.0) return std::nullopt;
  return state.audioSeconds / state.elapsedSeconds;
}

Json OrNull(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

std::string OneLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::optional<double> SecondsLeft(const RunState& state) {
  if (state.part <= 0.0) return std::nullopt;
  return state.elapsedSeconds * (1.0 - state.part) / state.part;
}

std::string ProgressLine(const RunState& state, int columns) {
  const std::string label = state.files == 1 && !state.step.empty()
                                ? state.step
                                : fmt::format("{}/{} files", state.filesDone, state.files);
  std::string tail = fmt::format("{:3.0f} %", std::floor(state.part * 100.0));
  if (const auto speed = SpeedOf(state)) tail += fmt::format("  {:.0f} x real time", *speed);
  if (const auto left = SecondsLeft(state)) tail += fmt::format("  {} left", Clock(*left));
  const int room = columns - static_cast<int>(label.size() + tail.size()) - 4;
  const int width = std::min(room, kBarWidth);
  std::string line;
  if (width < kSmallestBar) {
    line = fmt::format("{} {}", label, tail);
  } else {
    const auto filled = static_cast<std::size_t>(state.part * width);
    line = fmt::format("{} [{}{}] {}", label, std::string(filled, '#'),
                       std::string(static_cast<std::size_t>(width) - filled, ' '), tail);
  }
  return line.substr(0, static_cast<std::size_t>(std::max(columns, 0)));
}

std::string ProgressJson(const RunState& state) {
  return OneLine({{"event", "progress"},
                  {"files", state.files},
                  {"filesDone", state.filesDone},
                  {"filesFailed", state.filesFailed},
                  {"part", state.part},
                  {"speed", OrNull(SpeedOf(state))},
                  {"secondsLeft", OrNull(SecondsLeft(state))}});
}

std::string FileEventJson(const FileResult& file) {
  return OneLine({{"event", "file"},
                  {"input", file.input},
                  {"status", NameOf(file.status)},
                  {"seconds", file.wallSeconds}});
}

RunProgress::RunProgress(std::FILE* stream, Way way, std::size_t files, int passes)
    : stream(stream), way(way), passes(passes) {
  if (way == Way::kAuto && !IsLineTerminal(stream)) this->way = Way::kNone;
  ended.files = files;
}

RunProgress::~RunProgress() { Clear(); }

void RunProgress::Note(std::size_t file, const JobProgress& progress) {
  Running& one = running[file];
  if (ended.files == 1 && ended.step != progress.step) next = Clock::now();
  ended.step = progress.step;
  if (progress.allFrames <= 0 || progress.sampleRate <= 0) return;
  one.audioSeconds = static_cast<double>(progress.allFrames) / progress.sampleRate;
  const double part =
      static_cast<double>(progress.frames) / static_cast<double>(progress.allFrames);
  // What comes before the last pass is not known to be the last of its kind: it never goes back.
  const bool isLast = passes == 1 || progress.step == "pass 2 of 2";
  const double sum = passes == 1 ? part : (isLast ? 1.0 + part : part) / passes;
  one.part = std::clamp(std::max(one.part, sum), 0.0, 1.0);
}

void RunProgress::End(std::size_t file, const FileResult& result) {
  running.erase(file);
  ++ended.filesDone;
  if (result.status != FileStatus::kDone && result.status != FileStatus::kSkipped) {
    ++ended.filesFailed;
  } else if (result.sampleRate > 0) {
    ended.audioSeconds += static_cast<double>(result.frames) / result.sampleRate;
  }
  if (way != Way::kJson) return;
  fmt::print(stream, "{}\n", FileEventJson(result));
  if (ended.filesDone == ended.files) Show();
}

void RunProgress::Tick() {
  if (way == Way::kNone) return;
  const Clock::time_point now = Clock::now();
  if (now < next) return;
  next = now + (way == Way::kJson ? kJsonInterval : kLineInterval);
  Show();
}

void RunProgress::Clear() {
  if (!isLineShown) return;
  std::fputs(kClearLine, stream);
  std::fflush(stream);
  isLineShown = false;
}

RunState RunProgress::State() const {
  RunState state = ended;
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  state.elapsedSeconds = elapsed.count();
  auto files = static_cast<double>(ended.filesDone);
  for (const auto& [file, one] : running) {
    files += one.part;
    state.audioSeconds += one.part * one.audioSeconds;
  }
  if (state.files > 0) state.part = files / static_cast<double>(state.files);
  return state;
}

void RunProgress::Show() {
  if (way == Way::kJson) {
    fmt::print(stream, "{}\n", ProgressJson(State()));
    std::fflush(stream);
    return;
  }
  // The last column stays free: some terminals wrap there.
  fmt::print(stream, "{}{}", kClearLine, ProgressLine(State(), TerminalColumns(stream) - 1));
  std::fflush(stream);
  isLineShown = true;
}

}  // namespace harvane
