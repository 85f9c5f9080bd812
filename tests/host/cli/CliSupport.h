#ifndef HARVANE_TESTS_HOST_CLI_CLISUPPORT_H
#define HARVANE_TESTS_HOST_CLI_CLISUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "logging/LogMeasurement.h"
#include "tests/host/audio/SoundFiles.h"
#include "tests/support/ParameterDocuments.h"
#include "tests/support/TemporaryFolder.h"

namespace support {

// What a run of the program left behind. `code` is 128 + n after signal n.
struct RunResult {
  int code;
  std::string out;
  std::string err;
};

// A folder for one test, and the program run in it with a home of its own, so that
// nothing goes to the user's.
class Workplace {
 public:
  Workplace();
  std::string FileIn(const std::string& name) const { return files.FileIn(name); }
  // `arguments` as a shell reads them; `before` is put before the program's name.
  RunResult Run(const std::string& arguments, const std::string& before = "") const;
  // Names in the folder, hidden ones too, sorted.
  std::vector<std::string> Names() const;
  std::string LogFolder() const;

 private:
  TemporaryFolder files;
  TemporaryFolder home;
};

// A job through the exports of the linked module and nothing of the host's files.
struct DirectResult {
  std::vector<std::int16_t> output;
  std::vector<harvane::LogMeasurement> measurements;  // of all passes in turn
};
DirectResult RunDirectly(ParameterTexts texts, int rate, int channels,
                         const std::vector<std::int16_t>& interleaved);

// Stereo or other material of some seconds, at a level that needs no limiter at the
// default targets.
std::vector<std::int16_t> QuietNoise(int rate, int channels, double seconds);
// Bursts over quiet parts, so that a limiter is needed.
std::vector<std::int16_t> PeakyNoise(int rate, int channels, double seconds);

}  // namespace support

#endif  // HARVANE_TESTS_HOST_CLI_CLISUPPORT_H
