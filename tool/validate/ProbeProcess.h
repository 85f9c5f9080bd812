#ifndef HARVANE_TOOL_VALIDATE_PROBEPROCESS_H
#define HARVANE_TOOL_VALIDATE_PROBEPROCESS_H

#include <optional>
#include <string>
#include <vector>

namespace harvane {

// What ModuleProber needs of the system.

// How the probe (Probe.h) is started for a module.
struct ProbeProgram {
  std::vector<std::string> command;  // its arguments follow
  bool isUnderWine = false;
  bool isWindowsModule = false;
};

// How a process of the probe came to its end.
struct ProbeEnd {
  bool isTimedOut = false;
  std::optional<int> status;   // empty where the system or the process itself cut it off
  bool isStrayAccess = false;  // by a read, a write or a jump to what is not there
  std::string way;             // in words: "ended by signal 11", "ended with status 3"
  double seconds = 0.0;
  std::string errorText;  // what it said on its standard error and output, the last of it
};

// This program for a module of its own platform. Linux: for a Windows module harvane-probe.exe,
// beside the module, beside this program or in ../windows, under Wine (see host/RemoteSession.h on
// the runner). Throws ModuleError where something of it is missing.
ProbeProgram ProbeProgramFor(const std::string& modulePath);

// A file of this machine as the probe takes it.
std::string PathForProbe(const ProbeProgram& program, const std::string& path);

// A new empty folder among the temporary files. Throws std::filesystem::filesystem_error.
std::string MakeProbeFolder();

// Runs the probe, which is ended when the time is up. `folder` is its home, so that no default
// reaches the user's own, and its file "streams" takes what it says; errorText is not filled.
// Throws ModuleError where it cannot be started.
ProbeEnd RunProbeProcess(const ProbeProgram& program, const std::vector<std::string>& arguments,
                         const std::string& folder, int limitSeconds);

// The file in `folder` that takes what the probe says.
inline constexpr const char* kProbeStreams = "streams";

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_PROBEPROCESS_H
