#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "tool/Commands.h"
#include "tool/CommonOptions.h"
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

struct LogOptions {
  std::vector<std::string> paths;
  ResultFormat format = ResultFormat::kText;
};

std::string TextOf(const std::vector<LogOfFile>& logs, ResultFormat format) {
  switch (format) {
    case ResultFormat::kCsv:
      return LogCsv(logs);
    case ResultFormat::kJson:
      return LogJson(logs);
    case ResultFormat::kJsonLines:
      return LogJsonLines(logs);
    case ResultFormat::kText:
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
  const auto options = std::make_shared<LogOptions>();
  CLI::App* const command =
      app->add_subcommand("log", "Show the module's log as a table, CSV or JSON");
  command->add_option("LOG", options->paths, "Logs as the module writes them")
      ->required()
      ->type_name("");
  AddFormat(command, &options->format, "text, csv, json or jsonl (a row a line)")
      ->default_str("text");
  command->footer(kExamples);
  command->callback([options, run] { *run = [options] { return ShowLogs(*options); }; });
}

}  // namespace harvane
