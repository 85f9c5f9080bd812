#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tool/AudioCommands.h"
#include "tool/Commands.h"
#include "tool/FileResult.h"
#include "tool/InputFiles.h"
#include "tool/OwnProcess.h"
#include "tool/ProgramArguments.h"

namespace {

constexpr const char* kExamples = R"(
Examples:
  harvane measure a.wav b.flac
  harvane check -r deliveries -p r128 -j 4 --report deliveries.html
  harvane normalise in.wav -o out.wav
  harvane normalise -r archive -d normalised -f json --output-results results.json

harvane COMMAND --help says more.
)";

// Commands that do no job by themselves.
void AddOtherCommands(CLI::App* app, harvane::Run* run) {
  harvane::AddLogCommand(app, run);
  harvane::AddMergeCommand(app, run);
  harvane::AddInfoCommands(app, run);
  harvane::AddValidateCommand(app, run);
  harvane::AddManualCommand(app, run);
}

// Says which commands there are where the first word is none. CLI11 would miss a command only.
bool IsCommandUnknown(const CLI::App& app, const std::vector<std::string>& words) {
  if (words.empty() || words.front().starts_with('-')) return false;
  std::string names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->check_name(words.front())) return false;
    if (!command->get_group().empty()) names += (names.empty() ? "" : ", ") + command->get_name();
  }
  fmt::print(stderr, "harvane: there is no command {}; the commands are {}\n", words.front(),
             names);
  return true;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    harvane::PrepareProcess();
    const std::vector<std::string> words = harvane::ProgramArguments(argumentCount, arguments);
    harvane::Run run;
    CLI::App app("Loudness by ITU-R BS.1770 and EBU R 128: measures, judges and normalises",
                 "harvane");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("harvane ") + HARVANE_VERSION);
    app.footer(kExamples);
    harvane::AddAudioCommands(&app, words, &run);
    AddOtherCommands(&app, &run);
    if (IsCommandUnknown(app, words)) return harvane::kExitUsage;
    try {
      app.parse(harvane::ArgumentsForParsing(words));
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? harvane::kExitDone : harvane::kExitUsage;
    }
    return run();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "harvane: %s\n", failure.what());
    return harvane::kExitFileFailed;
  }
}
