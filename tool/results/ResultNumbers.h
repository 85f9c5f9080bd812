#ifndef HARVANE_TOOL_RESULTS_RESULTNUMBERS_H
#define HARVANE_TOOL_RESULTS_RESULTNUMBERS_H

#include <string>

namespace harvane {

// Numbers as the results show them: with a point, whatever the locale. Thread: any.

// Unrounded: the shortest text that reads back as the same number, by single precision where
// `value` is such a number ("-23.1" for -23.1f), else by double precision.
std::string ShortNumber(double value);

// The double with the same shortest text as `value`: -23.1 for -23.1f, where a cast makes
// -23.100000381469727. Cast back to float it is `value` again.
double ShortestDouble(float value);

// "00:12:03.360"; a negative time has a sign. Milliseconds are rounded, halves up; hours have as
// many digits as they need, two at least.
std::string TimeCode(double seconds);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_RESULTNUMBERS_H
