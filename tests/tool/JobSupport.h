#ifndef HARVANE_TESTS_TOOL_JOBSUPPORT_H
#define HARVANE_TESTS_TOOL_JOBSUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/host/cli/CliSupport.h"
#include "tests/support/TemporaryFolder.h"
#include "tool/FileJob.h"

namespace support {

// Options as the command line of a command of that kind gives them: "--layout 2+2 --align".
// Throws CLI::ParseError and std::invalid_argument.
harvane::JobOptions OptionsFor(harvane::JobKind kind, const std::string& arguments);

// A folder with one input, "in.wav", and jobs on it whose log stays in the folder.
class JobPlace {
 public:
  // 16-bit WAV, interleaved.
  JobPlace(int rate, int channels, const std::vector<std::int16_t>& interleaved);

  harvane::FileResult Measure(const std::string& arguments = "") const;
  harvane::FileResult Check(const std::string& arguments = "") const;
  // To "out.wav".
  harvane::FileResult Normalise(const std::string& arguments = "") const;
  // The samples of "out.wav".
  std::vector<std::int16_t> Output() const;
  bool HasOutput() const;
  std::string FileIn(const std::string& name) const { return folder.FileIn(name); }

 private:
  harvane::FileResult Run(harvane::JobKind kind, const std::string& arguments,
                          const std::string& output) const;

  TemporaryFolder folder;
};

// One channel of interleaved frames.
std::vector<std::int16_t> ChannelOf(const std::vector<std::int16_t>& interleaved,
                                    std::size_t channels, std::size_t channel);
// `channels` of interleaved frames, in that order.
std::vector<std::int16_t> ChannelsOf(const std::vector<std::int16_t>& interleaved,
                                     std::size_t width, const std::vector<std::size_t>& channels);

}  // namespace support

#endif  // HARVANE_TESTS_TOOL_JOBSUPPORT_H
