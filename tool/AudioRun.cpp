#include "tool/AudioRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "delay_audio/PassObserver.h"
#include "host/FileAccess.h"
#include "host/FileError.h"
#include "host/LogPlace.h"
#include "host/PendingFile.h"
#include "tool/FileJob.h"
#include "tool/Interruption.h"
#include "tool/OwnProcess.h"
#include "tool/Terminal.h"
#include "tool/Workers.h"
#include "tool/results/ReportPage.h"
#include "tool/results/ResultCsv.h"
#include "tool/results/ResultFile.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultMerge.h"

namespace harvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr std::chrono::milliseconds kNewsInterval{100};

const char* NameOf(JobKind kind) {
  switch (kind) {
    case JobKind::kMeasure:
      return "measure";
    case JobKind::kCheck:
      return "check";
    case JobKind::kNormalise:
      return "normalise";
  }
  return "";
}

// The run without its files.
RunResult HeadOf(const JobOptions& job) {
  RunResult head;
  head.command = NameOf(job.kind);
  head.preset = job.presetName;
  head.version = HARVANE_VERSION;
  if (job.kind == JobKind::kNormalise && job.parameterDocument.empty()) {
    if (job.parameters.mode == NormalisationMode::kProgrammeLoudness) {
      head.targetLoudness = job.parameters.loudness;
      head.toleranceLu = job.toleranceLu;
    }
    head.maxTruePeak = job.parameters.maxTruePeak;
  }
  for (const Rule& rule : job.rules) {
    if (rule.value == MeasuredValue::kIntegratedLoudness && rule.target) {
      head.targetLoudness = rule.target;
      head.toleranceLu = rule.tolerance;
    }
    if (rule.value == MeasuredValue::kMaxTruePeak && rule.most) head.maxTruePeak = rule.most;
  }
  return head;
}

bool HaveSameTargets(const RunResult& a, const RunResult& b) {
  return a.command == b.command && a.preset == b.preset && a.targetLoudness == b.targetLoudness &&
         a.toleranceLu == b.toleranceLu && a.maxTruePeak == b.maxTruePeak;
}

ResultFormat FormatOf(const AudioRunOptions& options) {
  if (options.format) return *options.format;
  const std::string ending = PathOf(options.resultsFile).extension().string();
  if (ending == ".json") return ResultFormat::kJson;
  if (ending == ".jsonl") return ResultFormat::kJsonLines;
  if (ending == ".csv") return ResultFormat::kCsv;
  return ResultFormat::kText;
}

void CheckPlace(const std::string& path) {
  if (path.empty()) return;
  const std::string folder = fs::absolute(PathOf(path)).parent_path().string();
  if (const int error = FolderTrouble(folder); error != 0) {
    throw UsageError(path + ": cannot be written in its folder: " + SystemText(error));
  }
  std::error_code failure;
  if (fs::is_directory(PathOf(path), failure)) throw UsageError(path + ": is a folder");
}

bool IsVariableSet(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

bool AreColoursWanted() { return IsColourTerminal(stdout) && !IsVariableSet("NO_COLOR"); }

bool IsFailure(FileStatus status) {
  return status != FileStatus::kDone && status != FileStatus::kSkipped;
}

// ---- the module's log

// The state of the linked module's log, as far as it tells that rows were added.
struct LogState {
  std::string path;
  juce::Time changed;
  juce::int64 bytes;
  bool operator==(const LogState&) const = default;
};

LogState StateOfLog(const JobOptions& job) {
  const std::string path = LogFileFor(job.parameters, juce::Time::getCurrentTime());
  const juce::File file(juce::String::fromUTF8(path.c_str()));
  return {path, file.getLastModificationTime(), file.getSize()};
}

// Says where the log is, or that it should be there.
class LogWatch {
 public:
  explicit LogWatch(const JobOptions& job)
      : job(job), isKnown(job.module.empty() && job.parameterDocument.empty()) {
    if (isKnown) start = StateOfLog(job);
  }

  void Tell(bool isAnyDone) const {
    if (!isKnown) return;
    const LogState end = StateOfLog(job);
    if (!(end == start)) {
      fmt::print(stderr, "harvane: log: {}\n", end.path);
    } else if (isAnyDone) {
      fmt::print(stderr, "harvane: warning: the log could not be written: {}\n", end.path);
    }
  }

 private:
  const JobOptions& job;
  bool isKnown;
  LogState start;
};

// ---- a run

class AudioRun {
 public:
  explicit AudioRun(const AudioRunOptions& options)
      : options(options),
        format(FormatOf(options)),
        head(HeadOf(options.job)),
        files(FilesOf(options.files, std::cin)),
        ends(files.size()),
        progress(stderr, options.progress, files.size(),
                 options.job.kind == JobKind::kNormalise ? 2 : 1),
        stream(format, head, options.resultsFile.empty() && AreColoursWanted(),
               [this](const std::string& text) { Write(text); }) {
    for (const std::string& path : {options.resultsFile, options.reportFile, options.seriesFile}) {
      CheckPlace(path);
    }
  }

  int Run() {
    TakeEarlierResults();
    const LogWatch log(options.job);
    Interruption interruption;
    const bool isWhole = RunJobs(&interruption);
    progress.Clear();
    const RunResult run = Whole();
    stream.Finish(Shown(run));
    WriteFiles(run);
    log.Tell(isAnyDone);
    if (!isWhole) {
      fmt::print(stderr, "harvane: interrupted: {} of {} files ended before\n",
                 std::count_if(run.files.begin(), run.files.end(),
                               [](const FileResult& file) {
                                 return file.status != FileStatus::kInterrupted;
                               }),
                 files.size());
      return kExitInterrupted;
    }
    const int code = ExitCodeOf(run.files);
    const bool isBetter = code == kExitDone || code == kExitVerdictFail;
    return isOutputLost && isBetter ? kExitFileFailed : code;
  }

 private:
  void TakeEarlierResults() {
    std::error_code failure;
    if (options.resumedFile.empty()) return;
    if (!fs::exists(PathOf(options.resumedFile), failure)) {
      Complain(options.resumedFile + ": is not there; the run begins anew");
      return;
    }
    const ResultPart part = ReadResultPart(options.resumedFile);
    for (const std::string& problem : part.problems) Complain("warning: " + problem);
    if (!part.run.command.empty() && !HaveSameTargets(part.run, head)) {
      throw UsageError(options.resumedFile +
                       ": has results of another command or other targets; the same would be "
                       "right");
    }
    std::map<std::string, const FileResult*> earlier;
    for (const FileResult& file : part.run.files) {
      if (IsComplete(file)) earlier[file.input] = &file;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
      const auto found = earlier.find(files[i].input);
      if (found == earlier.end() || found->second->output != files[i].output) continue;
      const bool isOutputGone = found->second->status == FileStatus::kDone &&
                                !files[i].output.empty() &&
                                !fs::exists(PathOf(files[i].output), failure);
      if (!isOutputGone) Take(i, *found->second);
    }
  }

  // False where it was interrupted.
  bool RunJobs(Interruption* interruption) {
    std::vector<std::string> jobs;
    std::vector<std::size_t> indexes;  // job to file
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (ends[i]) continue;
      FileResult file;
      file.input = files[i].input;
      file.output = files[i].output;
      if (!files[i].error.empty()) {
        file.status = FileStatus::kFailed;
        file.error = files[i].error;
        Take(i, file);
        continue;
      }
      jobs.push_back(JobText(file));
      indexes.push_back(i);
    }
    const WorkerSettings settings = {options.workerCommand, Processes(), options.timeoutSeconds};
    WorkerListener listener;
    listener.onEnd = [&](const JobEnd& end) { TakeEnd(indexes[end.job], end); };
    listener.onNews = [&](std::size_t job, const std::string& text) {
      TakeNews(indexes[job], text);
    };
    listener.onErrorLine = [&](const std::string& line) {
      progress.Clear();
      fmt::print(stderr, "{}\n", line);
    };
    listener.onTick = [&] { progress.Tick(); };
    return RunInWorkers(settings, jobs, listener, interruption);
  }

  int Processes() const { return options.processes > 0 ? options.processes : UsableProcessors(); }

  static std::string JobText(const FileResult& file) {
    std::string line = ToJsonLine(file);
    line.pop_back();
    return line;
  }

  void TakeNews(std::size_t index, const std::string& text) {
    if (!progress.IsShown()) return;
    const Json news = Json::parse(text, nullptr, false);
    if (!news.is_object()) return;
    progress.Note(index, {news.value("step", ""), news.value("frames", std::int64_t{0}),
                          news.value("allFrames", std::int64_t{-1}), news.value("sampleRate", 0)});
  }

  void TakeEnd(std::size_t index, const JobEnd& end) {
    FileResult file = ResultOf(end);
    file.input = files[index].input;
    file.output = files[index].output;
    isAnyDone = isAnyDone || file.status == FileStatus::kDone;
    Take(index, file);
  }

  FileResult ResultOf(const JobEnd& end) const {
    FileResult file;
    file.wallSeconds = end.seconds;
    switch (end.kind) {
      case JobEnd::Kind::kAnswered:
        try {
          return FileResultFromJson(end.text);
        } catch (const ResultError& wrong) {
          file.status = FileStatus::kCrashed;
          file.error = std::string("its worker gave no result: ") + wrong.what();
        }
        break;
      case JobEnd::Kind::kCrashed:
        file.status = FileStatus::kCrashed;
        file.error = end.text;
        break;
      case JobEnd::Kind::kTimedOut:
        file.status = FileStatus::kTimedOut;
        file.error = fmt::format("took longer than {} s and was ended", *options.timeoutSeconds);
        break;
      case JobEnd::Kind::kInterrupted:
        file.status = FileStatus::kInterrupted;
        file.error = "was ended before it was done";
        break;
    }
    return file;
  }

  void Take(std::size_t index, const FileResult& file) {
    ends[index] = file;
    if (IsFailure(file.status)) {
      Complain(file.input + ": " + file.error);
    } else {
      for (const std::string& note : file.notes) Complain(file.input + ": " + note);
    }
    stream.Give(index, Shown(file));
    progress.End(index, file);
  }

  // Series are shown where they were asked for, not where only the report needs them; notes, which
  // go to standard error as well, not twice at a terminal.
  FileResult Shown(FileResult file) const {
    if (format == ResultFormat::kText && options.resultsFile.empty()) {
      file.notes.clear();
      file.reduction.clear();
    }
    if (options.job.hasSeries) return file;
    for (TrackResult& track : file.tracks) {
      track.seriesBefore.reset();
      track.seriesAfter.reset();
    }
    return file;
  }
  RunResult Shown(RunResult run) const {
    for (FileResult& file : run.files) file = Shown(std::move(file));
    return run;
  }

  void Complain(const std::string& text) {
    progress.Clear();
    fmt::print(stderr, "harvane: {}\n", text);
  }

  void Write(const std::string& text) {
    if (!options.resultsFile.empty()) {
      results += text;
      return;
    }
    progress.Clear();
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
        std::fflush(stdout) == 0) {
      return;
    }
    if (!isOutputLost) Complain("the results cannot be written to standard output");
    isOutputLost = true;
  }

  RunResult Whole() const {
    RunResult run = head;
    for (const auto& file : ends) {
      if (file) run.files.push_back(*file);
    }
    return run;
  }

  void WriteFiles(const RunResult& run) {
    if (!options.resultsFile.empty()) {
      WriteFile([&] { WriteWholeFile(options.resultsFile, results); });
    }
    if (!options.reportFile.empty()) {
      WriteFile([&] { WriteWholeFile(options.reportFile, ReportPage(run)); });
    }
    if (!options.seriesFile.empty()) {
      WriteFile([&] { WriteWholeFile(options.seriesFile, SeriesCsv(run)); });
    }
  }

  template <class Writing>
  void WriteFile(Writing writing) {
    try {
      writing();
    } catch (const FileError& failure) {
      Complain(failure.what());
      isOutputLost = true;
    }
  }

  const AudioRunOptions& options;
  ResultFormat format;
  RunResult head;
  std::vector<InputFile> files;
  std::vector<std::optional<FileResult>> ends;  // by file
  RunProgress progress;
  std::string results;  // for a file
  bool isOutputLost = false;
  bool isAnyDone = false;
  ResultStream stream;
};

// ---- the worker's side

FileResult DoFile(const AudioRunOptions& options, const std::string& job, const TellNews& tell) {
  FileResult file;
  try {
    file = FileResultFromJson(job);
    if (!options.files.outputFolder.empty()) MakeFolderFor(file.output);
    auto next = std::chrono::steady_clock::now();
    const ProgressSink sink = [&](const JobProgress& news) {
      const auto now = std::chrono::steady_clock::now();
      if (now < next) return true;
      next = now + kNewsInterval;
      tell(Json({{"step", news.step},
                 {"frames", news.frames},
                 {"allFrames", news.allFrames},
                 {"sampleRate", news.sampleRate}})
               .dump());
      return true;
    };
    file = RunFileJob(options.job, file.input, file.output, &sink);
  } catch (const std::exception& failure) {
    file.status = FileStatus::kFailed;
    file.error = failure.what();
  }
  if (options.job.module.empty()) {
    // Rows of two at a time would run into one another, and each would write the header of a new
    // file.
    const ProgramTurn turn;
    WriteWaitingLogRows();
  }
  return file;
}

}  // namespace

int RunAudioFiles(const AudioRunOptions& options) { return AudioRun(options).Run(); }

void ServeAudioJobs(const AudioRunOptions& options) {
  ServeJobs([&](const std::string& job, const TellNews& tell) {
    std::string answer = ToJsonLine(DoFile(options, job, tell));
    answer.pop_back();
    return answer;
  });
}

}  // namespace harvane
