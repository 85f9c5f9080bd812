#include "tool/JobOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "host/RemoteSession.h"
#include "tool/CommonOptions.h"
#include "tool/TargetSearch.h"
#include "tool/TrackLayout.h"

namespace harvane {
namespace {

constexpr const char* kAutomatic = "auto";
constexpr const char* kCheckPreset = "r128";
constexpr double kUsualToleranceLu = 0.5;
constexpr double kLargestToleranceLu = 20.0;

std::string CheckFileName(const std::string& text) {
  if (text.find('/') != std::string::npos) return "is a name, without a folder";
  return CheckText(text);
}

// For texts that `parse` takes without an exception.
template <class Parse>
CLI::Validator Parsed(Parse parse) {
  return CLI::Validator(
      [parse](const std::string& text) {
        try {
          parse(text);
          return std::string();
        } catch (const std::invalid_argument& wrong) {
          return std::string(wrong.what());
        }
      },
      "");
}

std::string PresetNames() {
  std::string names;
  for (const Preset& preset : BuiltInPresets()) names += preset.name + ", ";
  return names + "or a JSON file";
}

void AddTrackOptions(CLI::App* command, JobOptions* options) {
  CLI::Option* const layout =
      command
          ->add_option("-c,--layout", options->layoutText,
                       "How the channels form tracks: auto, or groups of 1, 2, 2+2, 2+2+2, "
                       "2+2+2+2, 5.1, 5.1+2, 2+5.1, joined by commas: 5.1+2,2 or 8x1. More than "
                       "four groups become several jobs")
          ->check(Parsed([](const std::string& text) {
            if (text != kAutomatic) ParseLayoutOfAnyLength(text);
          }))
          ->type_name("LAYOUT");
  command
      ->add_option("--allocation", options->allocationText,
                   "The same by tracks: mono, stereo, 5.1 (L R C LFE Ls Rs), 5.1film (L C R Ls Rs "
                   "LFE), joined by +, with counts: stereo+5.1, 8xmono, 5.1+4xstereo")
      ->check(Parsed(ParseAllocation))
      ->excludes(layout)
      ->type_name("TRACKS");
  command
      ->add_option("--map", options->mapText,
                   "Channels of the file, from 1, in the order in which the tracks take them: "
                   "3,4,1,2. Others are left as they are")
      ->check(Parsed(ParseChannelMap))
      ->type_name("CHANNELS");
}

void AddTargetOptions(CLI::App* command, JobOptions* options, JobKind kind) {
  command
      ->add_option("-p,--preset", options->presetText,
                   "Targets and the rules that results are judged by: " + PresetNames())
      ->check(Parsed(PresetNamed))
      ->type_name("PRESET");
  command->add_option("-l,--loudness", options->loudness, "Target loudness in LUFS, -30 to -12")
      ->check(Between(kLowestLoudness, kHighestLoudness))
      ->type_name("LUFS");
  command
      ->add_option("-s,--short-term", options->shortTermLoudness,
                   "Target of the mode short-term in LUFS, -30 to -12")
      ->check(Between(kLowestLoudness, kHighestLoudness))
      ->type_name("LUFS");
  command->add_option("-t,--true-peak", options->maxTruePeak, "Maximum true peak in dBTP, -12 to 0")
      ->check(Between(kLowestTruePeak, kHighestTruePeak))
      ->type_name("DBTP");
  command
      ->add_option("--tolerance", options->toleranceLu,
                   kind == JobKind::kCheck
                       ? "By how many LU the loudness may be off its target"
                       : "Leave a track alone that is off its target by no more LU and under the "
                         "true peak; skip a file whose tracks all are")
      ->check(Between(0.0, kLargestToleranceLu))
      ->type_name("LU");
}

void AddNormaliseOptions(CLI::App* command, JobOptions* options) {
  command
      ->add_option("-m,--mode", options->mode,
                   "What is brought to its target: programme (loudness of the whole) or "
                   "short-term (maximum short-term loudness, only ever lowered)")
      ->transform(CLI::CheckedTransformer(NormalisationModes()).description(""))
      ->type_name("MODE");
  command->add_flag("--lower-only", options->isOnlyLowered,
                    "Leave a track alone that would be raised");
  const std::map<std::string, bool> kQuietTracks = {{"keep", false}, {"process", true}};
  command
      ->add_option("--quiet-tracks", options->areQuietTracksProcessed,
                   "What becomes of a track that could not be measured, silence or less than a "
                   "block: keep leaves its level, process raises it by 47 dB as the module does")
      ->transform(CLI::CheckedTransformer(kQuietTracks).description(""))
      ->type_name("keep|process");
  command->add_flag("--converge", options->isConverged,
                    "Repeat the job of a limited track with other parameters until it lies within "
                    "0.1 LU of the target and under the true peak");
  command->add_flag("--align", options->isAligned,
                    "Take back the 95 frames by which a limited track comes out late");
  const std::map<std::string, BroadcastMode> kBroadcastModes = {{"keep", BroadcastMode::kKeep},
                                                                {"update", BroadcastMode::kUpdate},
                                                                {"drop", BroadcastMode::kDrop}};
  command
      ->add_option("--bext", options->broadcastMode,
                   "The broadcast chunk of WAV and RF64: keep it without its former loudness, "
                   "update it with what was measured after, or drop it")
      ->transform(CLI::CheckedTransformer(kBroadcastModes).description(""))
      ->type_name("keep|update|drop")
      ->default_str("keep");
}

void AddLogOptions(CLI::App* command, JobOptions* options) {
  JobParameters& parameters = options->parameters;
  AddFrameRate(command, "--frame-rate", &parameters.frameRate);
  command->add_option("-L,--log-folder", options->logFolder, "Folder of the log")
      ->check(CheckText)
      ->type_name("FOLDER");
  command->add_option("-N,--log-name", parameters.logFileName, "Name of the log, without .csv")
      ->check(CheckFileName)
      ->type_name("NAME");
  command->add_option("-e,--entry-name", parameters.logEntryName, "Name of the rows in the log")
      ->check(CheckText)
      ->type_name("NAME");
  command
      ->add_option("-M,--module", options->module,
                   "Module file to use in place of the module that is built in")
      ->check(CheckName)
      ->type_name("PATH");
  command->add_flag("-w,--wait-for-log", options->isLogAwaited,
                    "With --module: keep the module until its log is written, 5 s and more");
}

void ResolveTracks(JobOptions* options) {
  if (!options->layoutText.empty() && options->layoutText != kAutomatic) {
    options->groupFormats = ParseLayoutOfAnyLength(options->layoutText);
  }
  if (!options->mapText.empty()) options->channelMap = ParseChannelMap(options->mapText);
  if (options->allocationText.empty()) return;
  Allocation allocation = ParseAllocation(options->allocationText);
  options->groupFormats = std::move(allocation.groupFormats);
  if (allocation.channelMap.empty()) return;
  if (options->channelMap.empty()) {
    options->channelMap = std::move(allocation.channelMap);
    return;
  }
  // The allocation orders what the map has picked.
  std::vector<int> joined;
  for (const int channel : allocation.channelMap) {
    if (static_cast<std::size_t>(channel) > options->channelMap.size()) {
      throw std::invalid_argument("--map names fewer channels than --allocation takes");
    }
    joined.push_back(options->channelMap[static_cast<std::size_t>(channel) - 1]);
  }
  if (joined.size() < options->channelMap.size()) {
    throw std::invalid_argument("--map names more channels than --allocation takes");
  }
  options->channelMap = std::move(joined);
}

Rule* RuleOf(std::vector<Rule>* rules, MeasuredValue value) {
  for (Rule& rule : *rules) {
    if (rule.value == value) return &rule;
  }
  rules->emplace_back();
  rules->back().value = value;
  return &rules->back();
}

// Single values on the command line speak of the rules, too.
void JoinRules(JobOptions* options) {
  // Of a normalisation the tolerance says which files are skipped.
  const bool hasTolerance = options->kind == JobKind::kCheck && options->toleranceLu;
  if (options->loudness || hasTolerance) {
    Rule* const rule = RuleOf(&options->rules, MeasuredValue::kIntegratedLoudness);
    const double usual = rule->target ? rule->tolerance : kUsualToleranceLu;
    *rule = {MeasuredValue::kIntegratedLoudness,
             options->parameters.loudness,
             hasTolerance ? *options->toleranceLu : usual,
             {},
             {}};
  }
  if (options->shortTermLoudness) {
    *RuleOf(&options->rules, MeasuredValue::kMaxShortTerm) = {
        MeasuredValue::kMaxShortTerm, {}, 0.0, {}, options->parameters.shortTermLoudness};
  }
  if (options->maxTruePeak) {
    *RuleOf(&options->rules, MeasuredValue::kMaxTruePeak) = {
        MeasuredValue::kMaxTruePeak, {}, 0.0, {}, options->parameters.maxTruePeak};
  }
}

void ResolveTargets(JobOptions* options) {
  const bool isCheck = options->kind == JobKind::kCheck;
  JobParameters& parameters = options->parameters;
  const bool hasSingle = options->loudness || options->shortTermLoudness || options->maxTruePeak;
  const std::string preset =
      options->presetText.empty() && isCheck && !hasSingle ? kCheckPreset : options->presetText;
  if (!preset.empty()) {
    Preset named = PresetNamed(preset);
    options->presetName = named.name;
    options->rules = std::move(named.rules);
    parameters.mode = named.mode;
    parameters.loudness = named.loudness;
    parameters.shortTermLoudness = named.shortTermLoudness;
    parameters.maxTruePeak = named.maxTruePeak;
  }
  parameters.mode = options->mode.value_or(parameters.mode);
  parameters.loudness = options->loudness.value_or(parameters.loudness);
  parameters.shortTermLoudness = options->shortTermLoudness.value_or(parameters.shortTermLoudness);
  parameters.maxTruePeak = options->maxTruePeak.value_or(parameters.maxTruePeak);
  if (isCheck || !preset.empty()) JoinRules(options);
}

void ReadDocument(JobOptions* options) {
  std::ifstream file(options->parameterFile, std::ios::binary);
  if (!file) {
    throw std::invalid_argument(
        fmt::format("the parameter document {} cannot be read", options->parameterFile));
  }
  options->parameterDocument.assign(std::istreambuf_iterator<char>(file),
                                    std::istreambuf_iterator<char>());
  if (options->parameterDocument.empty()) {
    throw std::invalid_argument(
        fmt::format("the parameter document {} is empty", options->parameterFile));
  }
}

}  // namespace

void AddJobOptions(CLI::App* command, JobOptions* options, JobKind kind) {
  options->kind = kind;
  AddTrackOptions(command, options);
  if (kind != JobKind::kMeasure) AddTargetOptions(command, options, kind);
  if (kind == JobKind::kNormalise) AddNormaliseOptions(command, options);
  command->add_flag(
      "--cross-check", options->isCrossChecked,
      "Measure by libebur128 as well, which takes several times as long as the job, and "
      "judge those values, too");
  command->add_flag("--series", options->hasSeries,
                    "Momentary and short-term loudness over time, with the results");
  AddLogOptions(command, options);
  CLI::Option* const document = AddFile(command, "--param", &options->parameterFile,
                                        "A parameter document, handed to the module as it stands");
  // What the document says itself.
  for (const char* name :
       {"--layout", "--allocation", "--mode", "--loudness", "--short-term", "--true-peak",
        "--frame-rate", "--log-folder", "--log-name", "--entry-name"}) {
    if (CLI::Option* const option = command->get_option_no_throw(name)) document->excludes(option);
  }
}

void ResolveJobOptions(JobOptions* options) {
  ResolveTracks(options);
  ResolveTargets(options);
  if (!options->logFolder.empty()) {
    options->parameters.logPath = LogPathFor(*options, options->logFolder);
  }
  const std::string wrong = CheckText(options->parameters.logPath);
  if (!wrong.empty()) throw std::invalid_argument("the folder of --log-folder " + wrong);
  if (!options->parameterFile.empty()) {
    ReadDocument(options);
  } else if (options->isConverged && options->rules.empty()) {
    options->rules = ConvergenceRules(options->parameters);
  }
}

std::string LogPathFor(const JobOptions& options, const std::string& folder) {
  if (!options.module.empty() && IsWindowsModule(options.module)) return WindowsPathOf(folder);
  return std::filesystem::absolute(folder).lexically_normal().string();
}

std::vector<Rule> ConvergenceRules(const JobParameters& parameters) {
  const Rule peak = {MeasuredValue::kMaxTruePeak, {}, 0.0, {}, parameters.maxTruePeak};
  if (parameters.mode == NormalisationMode::kProgrammeLoudness) {
    return {{MeasuredValue::kIntegratedLoudness, parameters.loudness, kConvergenceLu, {}, {}},
            peak};
  }
  return {
      {MeasuredValue::kMaxShortTerm, {}, 0.0, {}, parameters.shortTermLoudness + kConvergenceLu},
      peak};
}

}  // namespace harvane
