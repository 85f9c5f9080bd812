// Any bytes as results that were written earlier, read, joined and shown as `harvane merge` does.

#include <algorithm>
#include <string_view>

#include "tests/fuzz/FuzzTarget.h"
#include "tool/results/ReportPage.h"
#include "tool/results/ResultCsv.h"
#include "tool/results/ResultJson.h"
#include "tool/results/ResultMerge.h"
#include "tool/results/ResultText.h"

namespace {

using harvane::FileResult;
using harvane::ReadResults;
using harvane::RunResult;

// Each begins with a brace and has its name with quotes.
constexpr std::size_t kShortestFile = sizeof R"({"input":"")";

void RequireOneLine(const std::string& text) {
  fuzz::Require(!text.empty(), "a problem has words");
  fuzz::Require(std::none_of(text.begin(), text.end(),
                             [](char c) { return static_cast<unsigned char>(c) < ' '; }),
                "a problem is one line");
}

// What was read is written and read as it is, whole and line by line.
void RequireSameAgain(const RunResult& run) {
  const std::string whole = harvane::ToJson(run);
  const ReadResults again = harvane::ReadJsonOrLines(whole);
  fuzz::Require(again.problems.empty(), "what is written can be read");
  fuzz::Require(harvane::ToJson(again.run) == whole, "what is read is what was written");
  std::string lines;
  for (const FileResult& file : run.files) lines += harvane::ToJsonLine(file, run);
  const ReadResults ofLines = harvane::ReadJsonOrLines(lines);
  fuzz::Require(ofLines.problems.empty(), "lines can be read");
  fuzz::Require(run.files.empty() || harvane::ToJson(ofLines.run) == whole,
                "lines say what the whole says");
}

void RequireJoined(const RunResult& run) {
  RunResult half = run;
  half.files.resize(half.files.size() / 2);
  const harvane::Merged merged = harvane::MergeParts({{"a", half, {}}, {"b", run, {}}}, {"c"});
  fuzz::Require(merged.run.files.size() <= run.files.size() + 1, "a part again adds nothing");
  for (std::size_t i = 2; i < merged.run.files.size(); ++i) {
    fuzz::Require(merged.run.files[i - 1].input < merged.run.files[i].input,
                  "behind what is expected the files are in order, each once");
  }
  const harvane::Merged again = harvane::MergeParts({{"m", merged.run, {}}}, {"c"});
  fuzz::Require(harvane::ToJson(again.run) == harvane::ToJson(merged.run),
                "what is joined stays as it is");
}

void RequireShown(const RunResult& run) {
  const std::string csv = harvane::ToCsv(run);
  fuzz::Require(csv.starts_with(harvane::CsvHeader()), "the rows have a header");
  fuzz::Require(!harvane::SeriesCsv(run).empty(), "the series have a header");
  fuzz::Require(!harvane::RunText(run).empty(), "people are told something");
  const std::string page = harvane::ReportPage(run);
  fuzz::Require(page.ends_with("</html>\n"), "the page has an end");
  fuzz::Require(page.find("<script") == std::string::npos, "nothing on the page runs");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const ReadResults results = harvane::ReadJsonOrLines(text);
  for (const std::string& problem : results.problems) RequireOneLine(problem);
  fuzz::Require(results.run.files.size() * kShortestFile <= size, "a file is made of its bytes");
  RequireSameAgain(results.run);
  RequireJoined(results.run);
  RequireShown(results.run);
  return 0;
}
