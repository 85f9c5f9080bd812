#ifndef HARVANE_TOOL_RESULTS_REPORTSTYLE_H
#define HARVANE_TOOL_RESULTS_REPORTSTYLE_H

namespace harvane {

// The style sheet of the report's page, for screens and for paper.
extern const char* const kReportStyle;

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_REPORTSTYLE_H
