#ifndef HARVANE_TOOL_RESULTS_REPORTPAGE_H
#define HARVANE_TOOL_RESULTS_REPORTPAGE_H

#include <string>

#include "tool/FileResult.h"

namespace harvane {

// The run as one HTML page that needs nothing else and holds no script: an index of the files, the
// worst first, then each file with its tracks, verdicts and, where series were kept, its loudness
// over time before above after, with the target, its tolerance and the maxima. For screens and for
// paper (A4).
//
// Markup     HTML that is well-formed XML too. All texts are escaped.
// Size       a picture has at most two points per column of its width, so a day takes no more room
//            than a minute.
// Order      by what became of a file (crashed, timed out, refused, failed, interrupted, done),
// then
//            by how far its worst rule is missed, then by the deviation from the target; files of
//            equal rank as they were given.
// Errors     std::bad_alloc. Thread: any.
std::string ReportPage(const RunResult& run);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_REPORTPAGE_H
