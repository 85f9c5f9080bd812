#ifndef HARVANE_TOOL_VALIDATE_PROBE_H
#define HARVANE_TOOL_VALIDATE_PROBE_H

#include <string>
#include <vector>

namespace harvane {

// What runs in a process of its own, since a module may end its process: one test, or the reading
// of what a module says of itself. Built into the tool for modules of its own platform, and as
// harvane-probe.exe for Windows modules.
//
//   test MODULE NAME SEED FOLDER REPORT   the test NAME, in the empty FOLDER; see TestRun on REPORT
//   describe MODULE FOLDER                writes its ModuleDescription into FOLDER
//
// Paths are the platform's own, in UTF-8. Ends the process by itself, at once, without letting go
// of what a module may have spoilt; status 0 done, 1 a failed test, 2 no use: a module that cannot
// be loaded, with a line on standard error, or wrong arguments.
[[noreturn]] void RunProbe(const std::vector<std::string>& arguments);

inline constexpr int kProbeDone = 0;
inline constexpr int kProbeFailed = 1;
inline constexpr int kProbeUseless = 2;

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_PROBE_H
