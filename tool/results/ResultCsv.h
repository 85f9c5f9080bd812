#ifndef HARVANE_TOOL_RESULTS_RESULTCSV_H
#define HARVANE_TOOL_RESULTS_RESULTCSV_H

#include <string>
#include <string_view>
#include <vector>

#include "tool/FileResult.h"

namespace harvane {

// The results for spreadsheets: a header and a row per track; a file without tracks has one row.
// UTF-8, a line feed behind each row. What was not measured is an empty field. Numbers as in
// ResultNumbers.h. Errors: std::bad_alloc. Thread: any.

std::string CsvHeader();
std::string CsvRows(const FileResult& file);
std::string ToCsv(const RunResult& run);

// Loudness over time: a header and a row per value, "input,track,pass,kind,seconds,lufs", with the
// end of the value's window in seconds. Silence is an empty field. Files without series give none.
std::string SeriesCsv(const RunResult& run);

// `text` as one field: quoted, and quotes doubled, where it holds a comma, a quote or a line end,
// or begins or ends with a blank.
std::string CsvField(std::string_view text);

// The fields with commas between them and a line feed behind.
std::string CsvRow(const std::vector<std::string>& fields);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTCSV_H
