#ifndef HARVANE_TOOL_VALIDATE_MODULEPROBER_H
#define HARVANE_TOOL_VALIDATE_MODULEPROBER_H

#include <string>
#include <vector>

#include "tool/validate/ModuleDescription.h"

namespace harvane {

// How a process of the probe (Probe.h) came to its end.
struct ProbeEnd {
  bool isTimedOut = false;
  int signal = 0;  // that ended it; 0: none
  int status = 0;
  double seconds = 0.0;
  std::string errorText;  // what it said on its standard error and output, the last of it
};

// A new empty folder, removed with all that is in it at its end.
class ProbeFolder {
 public:
  // Throws std::filesystem::filesystem_error.
  ProbeFolder();
  ~ProbeFolder();
  ProbeFolder(const ProbeFolder&) = delete;
  ProbeFolder& operator=(const ProbeFolder&) = delete;
  const std::string& Path() const { return path; }

 private:
  std::string path;
};

// Runs the probe on one module file, in a process of its own: this program's, or for a Windows
// module harvane-probe.exe under Wine (see host/RemoteSession.h on the runner), which is looked for
// beside the module, beside this program and in ../windows.
class ModuleProber {
 public:
  // Throws ModuleError where the file cannot be read, or Wine or the Windows probe is missing.
  explicit ModuleProber(const std::string& modulePath);

  bool IsWindows() const { return isWindows; }
  // The module, and any file of this machine, as the probe takes it.
  std::string Module() const { return PathFor(modulePath); }
  std::string PathFor(const std::string& path) const;

  // The process is ended when the time is up. `folder` is its home and takes what it says.
  ProbeEnd Run(const std::vector<std::string>& arguments, const std::string& folder,
               int limitSeconds) const;

  // What the module says of itself. Throws ModuleError.
  ModuleDescription Describe() const;

 private:
  std::string modulePath;  // absolute
  bool isWindows;
  std::vector<std::string> command;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_MODULEPROBER_H
