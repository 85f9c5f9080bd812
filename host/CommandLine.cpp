#include "host/CommandLine.h"

#include <fmt/format.h>
#include <utf8.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <map>

#include "host/ChannelMap.h"
#include "host/ParameterDocument.h"
#include "host/RemoteSession.h"

namespace harvane {
namespace {

constexpr const char* kExamples = R"(
Examples:
  harvane normalise in.wav -o out.wav
  harvane normalise in.wav -o out.flac --loudness -24 --true-peak -2
  harvane normalise in.wav -o out.wav --mode short-term --short-term -18
  harvane normalise multi.wav -o out.wav --layout 5.1+2,2+2
  harvane measure a.wav b.flac --log-folder logs --entry-name night

Layouts: 1, 2, 2+2, 2+2+2, 2+2+2+2, 5.1, 5.1+2, 2+5.1; several groups with commas. A track is
mono, stereo or 5.1 (L R C LFE Ls Rs). Without --layout: 1, 2 or 6 channels stand for themselves.
Results go to standard output, all else to standard error.
Exit codes: 0 done, 1 a file failed, 2 wrong usage.
)";

// Word on the command line, and the item of the scheme that it stands for. Deliberate:
// the scheme writes 59,94 with a comma, and the module reads 59 from it.
const std::map<std::string, std::string> kFrameRates = {
    {"unspecified", "0"}, {"0", "0"},         {"23.976", "23.976"}, {"24", "24"},
    {"25", "25"},         {"29.97", "29.97"}, {"30", "30"},         {"50", "50"},
    {"59.94", "59,94"},   {"59,94", "59,94"}, {"60", "60"}};

const std::map<std::string, NormalisationMode> kModes = {
    {"programme", NormalisationMode::kProgrammeLoudness},
    {"program", NormalisationMode::kProgrammeLoudness},
    {"short-term", NormalisationMode::kMaxShortTerm}};

// Empty where the parameter document can carry `text`; else what is wrong.
std::string CheckText(const std::string& text) {
  if (!IsDocumentText(text)) return "holds characters that no parameter document can carry";
  if (utf8::distance(text.begin(), text.end()) > kLongestText) {
    return fmt::format("is longer than {} characters", kLongestText);
  }
  return "";
}

std::string CheckFileName(const std::string& text) {
  if (text.find('/') != std::string::npos) return "is a name, without a folder";
  return CheckText(text);
}

std::string CheckLayout(const std::string& text) {
  try {
    ParseLayout(text);
    return "";
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
}

// For numbers from `low` to `high`; neither takes what is not a number.
CLI::Validator Between(double low, double high) {
  return CLI::Validator(
      [low, high](const std::string& text) {
        double number = 0.0;
        const bool isNumber = CLI::detail::lexical_cast(text, number);
        if (isNumber && number >= low && number <= high) return std::string();
        return fmt::format("{} is no number from {} to {}", text, low, high);
      },
      "");
}

std::string CheckName(const std::string& text) { return text.empty() ? "is an empty name" : ""; }

// Text of the options, before they become a request.
struct Words {
  std::string layout;
  std::string logFolder;
};

void AddCommonOptions(CLI::App* command, Options* options, Words* words) {
  JobRequest& request = options->request;
  JobParameters& parameters = request.parameters;
  command->add_option("-c,--layout", words->layout, "How the channels form tracks")
      ->check(CheckLayout)
      ->type_name("LAYOUT");
  command
      ->add_option("-r,--frame-rate", parameters.frameRate,
                   "Video frame rate for the time codes of the log: 23.976, 24, 25, 29.97, 30, "
                   "50, 59.94, 60 or unspecified")
      ->transform(CLI::CheckedTransformer(kFrameRates).description(""))
      ->type_name("RATE");
  command->add_option("-L,--log-folder", words->logFolder, "Folder of the log")
      ->check(CheckText)
      ->type_name("FOLDER");
  command->add_option("-N,--log-name", parameters.logFileName, "Name of the log, without .csv")
      ->check(CheckFileName)
      ->type_name("NAME");
  command->add_option("-e,--entry-name", parameters.logEntryName, "Name of the rows in the log")
      ->check(CheckText)
      ->type_name("NAME");
  command
      ->add_option("-M,--module", request.module,
                   "Module file to use in place of the module that is built in")
      ->check(CheckName)
      ->type_name("PATH");
  command->add_flag("-w,--wait-for-log", request.isLogAwaited,
                    "With --module: keep the module until its log is written, 5 s and more");
  command->footer(kExamples);
}

void AddNormaliseOptions(CLI::App* command, Options* options) {
  JobParameters& parameters = options->request.parameters;
  command->add_option("IN", options->inputs, "WAV, RF64, W64, AIFF, CAF or FLAC file")
      ->required()
      ->expected(1)
      ->check(CheckName)
      ->type_name("");
  command
      ->add_option("-o,--output", options->request.output,
                   "File to write; its kind by .wav, .rf64, .w64, .aif, .aiff, .caf or .flac, "
                   "else that of IN")
      ->required()
      ->check(CheckName)
      ->type_name("OUT");
  command
      ->add_option("-m,--mode", parameters.mode,
                   "What is brought to its target: programme (loudness of the whole) or "
                   "short-term (maximum short-term loudness, only ever lowered)")
      ->transform(CLI::CheckedTransformer(kModes).description(""))
      ->type_name("MODE");
  command
      ->add_option("-l,--loudness", parameters.loudness,
                   "Target of the mode programme in LUFS, -30 to -12")
      ->check(Between(kLowestLoudness, kHighestLoudness))
      ->type_name("LUFS")
      ->default_str("-23");
  command
      ->add_option("-s,--short-term", parameters.shortTermLoudness,
                   "Target of the mode short-term in LUFS, -30 to -12")
      ->check(Between(kLowestLoudness, kHighestLoudness))
      ->type_name("LUFS")
      ->default_str("-20");
  command
      ->add_option("-p,--true-peak", parameters.maxTruePeak, "Maximum true peak in dBTP, -12 to 0")
      ->check(Between(kLowestTruePeak, kHighestTruePeak))
      ->type_name("DBTP")
      ->default_str("-1");
}

// The folder as the module sees it: it may have another working directory.
std::string LogPathFor(const Options& options, const std::string& folder) {
  if (folder.empty()) return "";
  if (!options.request.module.empty() && IsWindowsModule(options.request.module)) {
    return WindowsPathOf(folder);
  }
  return std::filesystem::absolute(folder).lexically_normal().string();
}

}  // namespace

std::optional<int> ParseCommandLine(int argumentCount, const char* const* arguments,
                                    Options* options,
                                    const std::function<void(CLI::App*)>& addOthers) {
  CLI::App app("Loudness normaliser by ITU-R BS.1770 and EBU R128", "harvane");
  app.require_subcommand(1);
  app.footer(kExamples);
  Words words;
  CLI::App* const normalise =
      app.add_subcommand("normalise", "Bring each track to its target loudness")
          ->alias("normalize");
  AddNormaliseOptions(normalise, options);
  AddCommonOptions(normalise, options, &words);
  CLI::App* const measure = app.add_subcommand("measure", "Measure and print, write nothing");
  measure->add_option("IN", options->inputs, "WAV, RF64, W64, AIFF, CAF or FLAC files")
      ->required()
      ->check(CheckName)
      ->type_name("");
  AddCommonOptions(measure, options, &words);
  if (addOthers) addOthers(&app);
  try {
    app.parse(argumentCount, arguments);
    options->isMeasure = measure->parsed();
    if (!words.layout.empty()) options->request.groupFormats = ParseLayout(words.layout);
    options->request.parameters.logPath = LogPathFor(*options, words.logFolder);
    const std::string wrong = CheckText(options->request.parameters.logPath);
    if (!wrong.empty()) throw CLI::ValidationError("--log-folder", wrong);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsageError;
  }
  return std::nullopt;
}

}  // namespace harvane
