#ifndef HARVANE_TOOL_RESULTSTREAM_H
#define HARVANE_TOOL_RESULTSTREAM_H

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "tool/FileResult.h"
#include "tool/results/ResultFormat.h"

namespace harvane {

// Gives the results of a run out while it goes on: JSON lines as the files end, text and CSV in the
// order of the files as soon as those before have ended, JSON as a whole at the end.
//
// Errors     std::bad_alloc, and what `write` throws. Thread: one caller at a time.
class ResultStream {
 public:
  using Write = std::function<void(const std::string& text)>;

  // `head`: the run without its files. With `isColoured` the text has the colours of a terminal.
  ResultStream(ResultFormat format, const RunResult& head, bool isColoured, Write write);

  // File `index` has ended. Each once, in any order.
  void Give(std::size_t index, const FileResult& file);

  // What is left: files that stand behind one that never ended, the summary of several, or all.
  // `run` has the files that were given.
  void Finish(const RunResult& run);

 private:
  void Begin();
  std::string Row(const FileResult& file) const;

  ResultFormat format;
  RunResult head;
  bool isColoured;
  Write write;
  std::map<std::size_t, std::string> waiting;  // rows, by the file
  std::size_t next = 0;
  bool isBegun = false;
};

// `text` of FileText or SummaryText with verdicts and failures in colours.
std::string Coloured(const std::string& text);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTSTREAM_H
