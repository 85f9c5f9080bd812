#ifndef HARVANE_TOOL_AUDIOCOMMANDS_H
#define HARVANE_TOOL_AUDIOCOMMANDS_H

#include <string>
#include <vector>

#include "tool/Commands.h"

namespace harvane {

// Adds measure, check and normalise (or normalize), as AddXCommand functions do. `arguments` are
// those of the program, without its name, and stay for as long as `app`: the worker processes are
// started with the same ones, and with --worker, which no help shows, before them.
void AddAudioCommands(CLI::App* app, const std::vector<std::string>& arguments, Run* run);

}  // namespace harvane

#endif  // HARVANE_TOOL_AUDIOCOMMANDS_H
