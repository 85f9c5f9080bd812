#ifndef HARVANE_TOOL_RESULTS_RESULTFORMAT_H
#define HARVANE_TOOL_RESULTS_RESULTFORMAT_H

namespace harvane {

// What results are given out as. Text is for people.
enum class ResultFormat { kText, kJson, kJsonLines, kCsv };

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTFORMAT_H
