#ifndef HARVANE_TOOL_COMMANDS_H
#define HARVANE_TOOL_COMMANDS_H

#include <functional>

namespace CLI {
class App;
}

namespace harvane {

// What the command that was called does. Returns the exit code (FileResult.h).
using Run = std::function<int()>;

// Each adds its commands, with their options, help and examples, to the program. Where the
// command line calls one of them, its callback sets `*run`. `run` must outlive `app`.
void AddLogCommand(CLI::App* app, Run* run);
void AddMergeCommand(CLI::App* app, Run* run);
void AddInfoCommands(CLI::App* app, Run* run);     // info, scheme, params
void AddValidateCommand(CLI::App* app, Run* run);  // validate
void AddManualCommand(CLI::App* app, Run* run);    // the man page and completions; last

}  // namespace harvane

#endif  // HARVANE_TOOL_COMMANDS_H
