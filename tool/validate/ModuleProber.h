#ifndef HARVANE_TOOL_VALIDATE_MODULEPROBER_H
#define HARVANE_TOOL_VALIDATE_MODULEPROBER_H

#include <string>
#include <vector>

#include "tool/validate/ModuleDescription.h"
#include "tool/validate/ProbeProcess.h"

namespace harvane {

// A new empty folder, removed with all that is in it at its end.
class ProbeFolder {
 public:
  // Throws std::filesystem::filesystem_error.
  ProbeFolder() : path(MakeProbeFolder()) {}
  ~ProbeFolder();
  ProbeFolder(const ProbeFolder&) = delete;
  ProbeFolder& operator=(const ProbeFolder&) = delete;
  const std::string& Path() const { return path; }
  // Of a file in it.
  std::string FileIn(const std::string& name) const;

 private:
  std::string path;
};

// Runs the probe (Probe.h) on one module file, in a process of its own: this program's, or where
// the module is of another platform that of ProbeProcess.h. Paths are in UTF-8.
class ModuleProber {
 public:
  // Throws ModuleError where the file cannot be read, or something is missing to run it.
  explicit ModuleProber(const std::string& modulePath);

  bool IsWindows() const { return program.isWindowsModule; }
  // The module, and any file of this machine, as the probe takes it.
  std::string Module() const { return PathFor(modulePath); }
  std::string PathFor(const std::string& path) const { return PathForProbe(program, path); }

  // The process is ended when the time is up. `folder` is its home and takes what it says.
  ProbeEnd Run(const std::vector<std::string>& arguments, const ProbeFolder& folder,
               int limitSeconds) const;

  // What the module says of itself. Throws ModuleError.
  ModuleDescription Describe() const;

 private:
  std::string modulePath;  // absolute
  ProbeProgram program;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_MODULEPROBER_H
