#ifndef HARVANE_TOOL_VERDICTS_H
#define HARVANE_TOOL_VERDICTS_H

#include <string>
#include <vector>

#include "tool/FileResult.h"
#include "tool/Presets.h"

namespace harvane {

// What a rule asks for, as people write it: "-23.0 ±0.5 LUFS", "at most -1.0 dBTP", "at least
// 3.0 LU", "-20.0 to -16.0 LUFS".
std::string WantedText(const Rule& rule);

// `rules` on the values of one track, one verdict each, in their order. `prefix` is put before
// the name of the value: "crossCheck.".
//
// Rounding   a value is judged as it reads with two decimals, so that a track brought to exactly
//            the limit does not fail by the seventh digit. `value` is unrounded; `excess` is
//            the distance of the rounded value from the nearer limit, above 0.
std::vector<RuleVerdict> Judge(const std::vector<Rule>& rules, const TrackValues& values,
                               const std::string& prefix = "");

}  // namespace harvane

#endif  // HARVANE_TOOL_VERDICTS_H
