#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tool/Commands.h"
#include "tool/FileResult.h"
#include "tool/Printing.h"
#include "tool/results/LogText.h"

namespace harvane {
namespace {

constexpr const char* kExamples = R"(
Examples:
  harvane log Log7_Mar_2013.csv
  harvane log logs/*.csv -f csv > rows.csv
  harvane log night.csv -f json | jq '.rows[] | select(.maxTruePeak.value > -1)'

A value that was not measured is empty in CSV and null in JSON. Lines that are no row are passed
over and named on standard error.
Exit codes: 0 done, 1 a file could not be read, 2 wrong usage.
)";

enum class Format { kText, kCsv, kJson, kJsonLines };

struct LogOptions {
  std::vector<std::string> paths;
  Format format = Format::kText;
};

std::string TextOf(const std::vector<LogOfFile>& logs, Format format) {
  switch (format) {
    case Format::kCsv:
      return LogCsv(logs);
    case Format::kJson:
      return LogJson(logs);
    case Format::kJsonLines:
      return LogJsonLines(logs);
    case Format::kText:
      break;
  }
  std::string text;
  for (const LogOfFile& log : logs) {
    if (IsUnread(log.reading) && log.reading.tracks.empty()) continue;
    if (!text.empty()) text += "\n";
    text += LogTable(log);
  }
  return text;
}

int ShowLogs(const LogOptions& options) {
  std::vector<LogOfFile> logs;
  bool isAllRead = true;
  for (const std::string& path : options.paths) {
    logs.push_back({path, ReadLogFile(path)});
    for (const std::string& line : LogProblemLines(logs.back())) PrintLine(line);
    isAllRead = isAllRead && !IsUnread(logs.back().reading);
  }
  const bool isPrinted = PrintResults(TextOf(logs, options.format));
  return isAllRead && isPrinted ? kExitDone : kExitFileFailed;
}

}  // namespace

void AddLogCommand(CLI::App* app, Run* run) {
  static const std::map<std::string, Format> kFormats = {{"text", Format::kText},
                                                         {"csv", Format::kCsv},
                                                         {"json", Format::kJson},
                                                         {"jsonl", Format::kJsonLines}};
  const auto options = std::make_shared<LogOptions>();
  CLI::App* const command =
      app->add_subcommand("log", "Show the module's log as a table, CSV or JSON");
  command->add_option("LOG", options->paths, "Logs as the module writes them")
      ->required()
      ->type_name("");
  command
      ->add_option_function<std::string>(
          "-f,--format",
          [options](const std::string& word) { options->format = kFormats.at(word); },
          "text, csv, json or jsonl (a row a line)")
      ->check(CLI::IsMember(kFormats).description(""))
      ->type_name("FORMAT")
      ->default_str("text");
  command->footer(kExamples);
  command->callback([options, run] { *run = [options] { return ShowLogs(*options); }; });
}

}  // namespace harvane
