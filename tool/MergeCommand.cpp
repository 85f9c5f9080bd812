#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/FileError.h"
#include "tool/Commands.h"
#include "tool/CommonOptions.h"
#include "tool/FileResult.h"
#include "tool/InputFiles.h"
#include "tool/Printing.h"
#include "tool/results/ReportPage.h"
#include "tool/results/ResultCsv.h"
#include "tool/results/ResultFile.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultMerge.h"
#include "tool/results/ResultText.h"

namespace harvane {
namespace {

constexpr const char* kExamples = R"(
Examples:
  harvane merge part1.json part2.json
  harvane merge parts/*.json --files-from list.txt --report archive.html
  harvane merge parts/*.jsonl -f json --output-results all.json

Parts are results in JSON or JSON lines. Of two results for one file the better counts, of equally
good ones that of the part named later. The files are in the order of LIST, else by their names.
Exit codes: those of the run that the parts are of, at least 1 where a part could not be read whole
or a file of LIST has no result.
)";

struct MergeOptions {
  std::vector<std::string> parts;
  ResultFormat format = ResultFormat::kText;
  std::string list;  // of the files that there should be; empty: none
  bool isNullSeparated = false;
  std::string resultsFile;  // these three: empty: none
  std::string reportFile;
  std::string seriesFile;
};

std::string TextOf(const RunResult& run, ResultFormat format) {
  switch (format) {
    case ResultFormat::kJson:
      return ToJson(run);
    case ResultFormat::kCsv:
      return ToCsv(run);
    case ResultFormat::kJsonLines: {
      std::string text;
      for (const FileResult& file : run.files) text += ToJsonLine(file, run);
      return text;
    }
    case ResultFormat::kText:
      break;
  }
  return RunText(run);
}

// False, with a line on standard error, where it failed.
bool WritesFile(const std::string& path, const std::string& text) {
  try {
    if (!path.empty()) WriteWholeFile(path, text);
    return true;
  } catch (const FileError& failure) {
    PrintLine(failure.what());
    return false;
  }
}

int Merge(const MergeOptions& options) {
  std::vector<std::string> expected;
  try {
    if (!options.list.empty()) {
      expected = NamesFrom(options.list, options.isNullSeparated, std::cin);
    }
  } catch (const UsageError& wrong) {
    PrintLine(wrong.what());
    return kExitUsage;
  }
  std::vector<ResultPart> parts;
  bool isWhole = true;
  for (const std::string& path : options.parts) {
    parts.push_back(ReadResultPart(path));
    for (const std::string& problem : parts.back().problems) PrintLine(problem);
    isWhole = isWhole && parts.back().problems.empty();
  }
  const Merged merged = MergeParts(parts, expected);
  for (const std::string& remark : merged.remarks) PrintLine(remark);
  const std::string text = TextOf(merged.run, options.format);
  const bool isShown =
      options.resultsFile.empty() ? PrintResults(text) : WritesFile(options.resultsFile, text);
  const bool isReported =
      options.reportFile.empty() || WritesFile(options.reportFile, ReportPage(merged.run));
  const bool isListed =
      options.seriesFile.empty() || WritesFile(options.seriesFile, SeriesCsv(merged.run));
  const int code = ExitCodeOf(merged.run.files);
  const bool isFine = isWhole && isShown && isReported && isListed;
  return isFine || (code != kExitDone && code != kExitVerdictFail) ? code : kExitFileFailed;
}

}  // namespace

void AddMergeCommand(CLI::App* app, Run* run) {
  const auto options = std::make_shared<MergeOptions>();
  CLI::App* const command =
      app->add_subcommand("merge", "Join the results of the parts of a run into one");
  command->add_option("PART", options->parts, "Results in JSON or JSON lines")
      ->required()
      ->type_name("");
  AddFormat(command, &options->format,
            "text, json, jsonl (a line for each file) or csv (a row for each track)")
      ->default_str("text");
  AddFile(command, "--output-results", &options->resultsFile,
          "Write the results to FILE, whole or not at all, in place of standard output");
  AddFile(command, "--report", &options->reportFile,
          "Write a page for people with verdicts and pictures of the loudness over time: HTML");
  AddFile(command, "--series-csv", &options->seriesFile,
          "Write momentary and short-term loudness over time: CSV");
  CLI::Option* const list =
      command
          ->add_option("--files-from", options->list,
                       "The files that there should be results of, one a line; - is standard input")
          ->check(CheckName)
          ->type_name("LIST");
  AddNull(command, list, &options->isNullSeparated);
  command->footer(kExamples);
  command->callback([options, run] { *run = [options] { return Merge(*options); }; });
}

}  // namespace harvane
