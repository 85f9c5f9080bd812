#include "tool/AudioCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tool/AudioRun.h"
#include "tool/CommonOptions.h"
#include "tool/OwnProcess.h"

namespace harvane {
namespace {

constexpr const char* kWorkerFlag = "--worker";
constexpr int kMostProcesses = 1024;
constexpr double kLongestTimeout = 1e7;  // seconds

constexpr const char* kMeasureExamples = R"(
Examples:
  harvane measure a.wav b.flac
  harvane measure -r archive -j 4 -f csv --output-results archive.csv
  harvane measure multi.wav --layout 5.1+2,2 --series --report multi.html
)";

constexpr const char* kCheckExamples = R"(
Examples:
  harvane check programme.wav -p r128
  harvane check -r deliveries -p a85 -j 4 --report deliveries.html
  harvane check --files-from list.txt -p house.json -f json --output-results results.json
)";

constexpr const char* kNormaliseExamples = R"(
Examples:
  harvane normalise in.wav -o out.wav
  harvane normalise in.wav -o out.flac --loudness -24 --true-peak -2
  harvane normalise in.wav -o out.wav --mode short-term --short-term -18
  harvane normalise multi.wav -o out.wav --layout 5.1+2,2+2
  harvane normalise -r archive -d normalised -p r128 -j 4 --report archive.html
  harvane normalise -r archive -d normalised --shard 2/5 --output-results part2.json
  harvane normalise -r archive -d normalised --resume run.json --output-results run.json
)";

constexpr const char* kCodes = R"(
Results go to standard output, all else to standard error.
Exit codes: 0 done, 1 a file failed or the results could not be written, 2 wrong usage and nothing
done, 3 done but a verdict is fail, 4 the module refused, 5 a worker process crashed or a file took
too long, 130 interrupted. The gravest file decides; each has its row in the results.
)";

const std::map<std::string, RunProgress::Way> kWays = {{"auto", RunProgress::Way::kAuto},
                                                       {"none", RunProgress::Way::kNone},
                                                       {"json", RunProgress::Way::kJson}};

void AddResultOptions(CLI::App* command, AudioRunOptions* options) {
  std::vector<CLI::Option*> added = {
      AddFormat(command, &options->format,
                "text, json, jsonl (one line for each file as it ends) or csv; else by the ending "
                "of the file of --output-results, else text"),
      AddFile(command, "--output-results", &options->resultsFile,
              "Write the results to FILE at the end, whole or not at all, in place of standard "
              "output"),
      AddFile(command, "--report", &options->reportFile,
              "Write a page for people with verdicts and pictures of the loudness over time: HTML"),
      AddFile(command, "--series-csv", &options->seriesFile,
              "Write momentary and short-term loudness over time: CSV")};
  for (CLI::Option* option : added) option->group("Results");
}

void AddRunningOptions(CLI::App* command, AudioRunOptions* options) {
  std::vector<CLI::Option*> added = {
      command
          ->add_option("-j,--jobs", options->processes,
                       "Files to work on at a time, each in a process of its own; 0: one for each "
                       "processor")
          ->check(CLI::Range(0, kMostProcesses).description(""))
          ->type_name("N")
          ->default_str("1"),
      command
          ->add_option("--timeout", options->timeoutSeconds,
                       "End a file's job that takes longer, and go on with the others")
          ->check(CLI::Range(0.001, kLongestTimeout).description(""))
          ->type_name("SECONDS"),
      AddFile(command, "--resume", &options->resumedFile,
              "Do only what is missing or failed in the results in FILE, JSON or JSON lines, of an "
              "earlier run; the results are those of both"),
      AddWords(command, "--progress", &options->progress, kWays,
               "auto (a line on a terminal, else nothing), none, or json (lines on standard error)")
          ->type_name("WAY")
          ->default_str("auto")};
  for (CLI::Option* option : added) option->group("Running");
}

int WrongUsage(const std::exception& wrong) {
  fmt::print(stderr, "harvane: {}\n", wrong.what());
  return kExitUsage;
}

int RunCommand(AudioRunOptions* options, bool isWorker) {
  JobOptions& job = options->job;
  try {
    ResolveJobOptions(&job);
  } catch (const std::invalid_argument& wrong) {
    return WrongUsage(wrong);
  }
  job.isOutputReplaced = options->files.isOverwriting;
  if (isWorker) {
    const bool isShown = !options->reportFile.empty() || !options->seriesFile.empty();
    job.hasSeries = job.hasSeries || isShown;
    ServeAudioJobs(*options);
    return kExitDone;
  }
  try {
    return RunAudioFiles(*options);
  } catch (const UsageError& wrong) {
    return WrongUsage(wrong);
  }
}

void AddAudioCommand(CLI::App* app, JobKind kind, const std::string& name, const std::string& help,
                     const std::string& examples, const std::vector<std::string>& arguments,
                     const std::shared_ptr<bool>& isWorker, Run* run) {
  CLI::App* const command = app->add_subcommand(name, help);
  const auto options = std::make_shared<AudioRunOptions>();
  AddInputOptions(command, &options->files);
  if (kind == JobKind::kNormalise) {
    command->alias("normalize");
    AddOutputOptions(command, &options->files);
  }
  AddJobOptions(command, &options->job, kind);
  AddResultOptions(command, options.get());
  AddRunningOptions(command, options.get());
  command->footer(examples + kCodes);
  options->workerCommand = {OwnProgram(), kWorkerFlag};
  options->workerCommand.insert(options->workerCommand.end(), arguments.begin(), arguments.end());
  command->callback([options, isWorker, run] {
    *run = [options, isWorker] { return RunCommand(options.get(), *isWorker); };
  });
}

}  // namespace

void AddAudioCommands(CLI::App* app, const std::vector<std::string>& arguments, Run* run) {
  const auto isWorker = std::make_shared<bool>(false);
  app->add_flag_callback(kWorkerFlag, [isWorker] { *isWorker = true; })->group("");
  AddAudioCommand(app, JobKind::kMeasure, "measure",
                  "Measure the loudness of each track; write no audio", kMeasureExamples, arguments,
                  isWorker, run);
  AddAudioCommand(app, JobKind::kCheck, "check",
                  "Measure, and judge each track by a preset's rules", kCheckExamples, arguments,
                  isWorker, run);
  AddAudioCommand(app, JobKind::kNormalise, "normalise", "Bring each track to its target loudness",
                  kNormaliseExamples, arguments, isWorker, run);
}

}  // namespace harvane
