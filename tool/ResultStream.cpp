#include "tool/ResultStream.h"

#include <fmt/format.h>

#include <sstream>
#include <string_view>
#include <utility>

#include "tool/results/ResultCsv.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultText.h"

namespace harvane {
namespace {

constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kGreen = "\033[32m";
constexpr std::string_view kPlain = "\033[0m";

// "track 2  FAIL  ...", and names with what became of them. Empty: as it is.
std::string_view ColourOf(const std::string& line) {
  const auto has = [&](const char* words) { return line.find(words) != std::string::npos; };
  const std::size_t word = line.find("  ");
  if (line.starts_with("track ") && word != std::string::npos) {
    if (line.compare(word, 8, "  FAIL  ") == 0) return kRed;
    if (line.compare(word, 8, "  pass  ") == 0) return kGreen;
  }
  for (const char* bad : {": failed", ": refused", ": crashed", ": timed out"}) {
    if (has(bad)) return kRed;
  }
  return {};
}

}  // namespace

ResultStream::ResultStream(ResultFormat format, const RunResult& head, bool isColoured, Write write)
    : format(format), head(head), isColoured(isColoured), write(std::move(write)) {}

void ResultStream::Begin() {
  if (!isBegun && format == ResultFormat::kCsv) write(CsvHeader());
  isBegun = true;
}

void ResultStream::Give(std::size_t index, const FileResult& file) {
  Begin();
  switch (format) {
    case ResultFormat::kJson:
      return;
    case ResultFormat::kJsonLines:
      write(ToJsonLine(file, head));
      return;
    case ResultFormat::kText:
    case ResultFormat::kCsv:
      waiting.emplace(index, Row(file));
      for (; waiting.count(next) > 0; ++next) {
        write(waiting.at(next));
        waiting.erase(next);
      }
  }
}

void ResultStream::Finish(const RunResult& run) {
  Begin();
  for (const auto& [index, row] : waiting) write(row);
  waiting.clear();
  if (format == ResultFormat::kJson) write(ToJson(run));
  if (format == ResultFormat::kText && run.files.size() > 1) {
    write(isColoured ? Coloured(SummaryText(run)) : SummaryText(run));
  }
}

std::string ResultStream::Row(const FileResult& file) const {
  if (format == ResultFormat::kCsv) return CsvRows(file);
  return isColoured ? Coloured(FileText(file)) : FileText(file);
}

std::string Coloured(const std::string& text) {
  std::string result;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::string_view colour = ColourOf(line);
    result += colour.empty() ? line + "\n" : fmt::format("{}{}{}\n", colour, line, kPlain);
  }
  return result;
}

}  // namespace harvane
