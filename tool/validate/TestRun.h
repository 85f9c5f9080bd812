#ifndef HARVANE_TOOL_VALIDATE_TESTRUN_H
#define HARVANE_TOOL_VALIDATE_TESTRUN_H

#include <cmath>
#include <cstdint>
#include <exception>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/LogReading.h"
#include "host/ModuleExports.h"

namespace harvane {

// Ends a test early; what is wrong stands in its report already.
class TestEnded : public std::exception {};

// All arguments one behind the other, as a stream writes them.
template <class... Parts>
std::string Joined(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

// What a test has: the module, its seed, a folder of its own, and the report that it fills. Every
// line of the report is in the file at once, so that a crash leaves what came before it.
//
// Report   "fail TEXT" for each expectation that does not hold; "dies TEXT" before a call that must
//          end the process; "done" at the end. Line ends in texts become blanks.
// Thread   one caller at a time.
class TestRun {
 public:
  // `folder` exists, without a separator behind it. Throws ModuleError.
  TestRun(const std::string& modulePath, std::uint64_t seed, const std::string& folder,
          const std::string& reportPath);

  // Loads the module where it is not loaded.
  const ModuleExports& Module();
  // Lets go of the module, whose end writes the older half of the rows that wait.
  void Unload() { module = nullptr; }

  std::uint64_t Seed() const { return seed; }
  const std::string& Folder() const { return folder; }
  const std::string& ModulePath() const { return modulePath; }
  std::string FileIn(const std::string& name) const;

  void Expect(bool holds, const std::string& what);
  template <class Wanted, class Got>
  void ExpectEqual(const Wanted& wanted, const Got& got, const std::string& what) {
    const bool isEqual = wanted == static_cast<Wanted>(got);
    Expect(isEqual, isEqual ? "" : Joined(what, ": ", got, ", not ", wanted));
  }
  // Of numbers; neither may be no number.
  void ExpectNear(double wanted, double got, double tolerance, const std::string& what) {
    const bool isNear = std::fabs(wanted - got) <= tolerance;
    Expect(isNear, isNear ? "" : Joined(what, ": ", got, ", not ", wanted, " +/- ", tolerance));
  }
  void ExpectCode(std::uint32_t wanted, std::uint32_t code, const std::string& call) {
    ExpectEqual(wanted, code, call + " answered");
  }
  // As ExpectCode, and ends the test where it does not hold.
  void RequireCode(std::uint32_t wanted, std::uint32_t code, const std::string& call);
  void Require(bool holds, const std::string& what);

  // What follows must end the process.
  void AnnounceDeath(const std::string& call) { Write("dies " + call); }
  void Finish() { Write("done"); }
  bool HasFailed() const { return hasFailed; }

  // Rows of the log file `stem` of the test's folder. Rows are queued behind the `waiting` ones
  // that matter, and the module is unloaded, which writes all that matter. Any line that is no row
  // fails the test.
  std::vector<LoggedTrack> TakeRows(const std::string& stem, int waiting);
  // The bytes of that file.
  std::string LogBytes(const std::string& stem) const;
  std::string LogPath(const std::string& stem) const { return FileIn(stem + ".csv"); }

 private:
  void Write(const std::string& line);

  std::string modulePath;
  std::uint64_t seed;
  std::string folder;
  std::ofstream report;
  std::unique_ptr<LoadedModule> module;
  bool hasFailed = false;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_TESTRUN_H
