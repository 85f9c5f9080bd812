#ifndef HARVANE_HOST_COMMANDLINE_H
#define HARVANE_HOST_COMMANDLINE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/JobRun.h"

namespace CLI {
class App;
}

namespace harvane {

inline constexpr int kDone = 0;
inline constexpr int kFileFailed = 1;
inline constexpr int kUsageError = 2;

// What the user asked for.
struct Options {
  bool isMeasure = false;
  std::vector<std::string> inputs;  // exactly one where it is to be normalised
  JobRequest request;               // all of the job but its input
};

// Reads the arguments; a number or text outside the parameter scheme is an error of
// usage. Returns the exit code where there is nothing to do: after help or an error,
// which is printed.
//
// `addOthers`, unless it is empty, adds more commands, and takes note itself of which is called.
std::optional<int> ParseCommandLine(int argumentCount, const char* const* arguments,
                                    Options* options,
                                    const std::function<void(CLI::App*)>& addOthers = {});

}  // namespace harvane

#endif  // HARVANE_HOST_COMMANDLINE_H
