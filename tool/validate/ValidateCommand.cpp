// harvane validate: each test of a module in a process of its own.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "host/FileAccess.h"
#include "tool/Commands.h"
#include "tool/FileResult.h"
#include "tool/NamePattern.h"
#include "tool/validate/ModuleProber.h"
#include "tool/validate/Probe.h"
#include "tool/validate/ValidationReport.h"
#include "tool/validate/ValidationTest.h"

namespace harvane {
namespace {

constexpr const char* kExamples = R"(
Examples:
  harvane validate Harvane.rpi
  harvane validate Harvane.rpi --level 2 --seed 7 --junit report.xml
  harvane validate Harvane.rpi --filter 'Log.*' -f json
  harvane validate --list

Each test runs in a process of its own, with a limit of time of its own. On Linux a Windows module
runs under Wine. Levels: 1 seconds, 2 a minute, 3 minutes; each includes those below.
Exit codes: 0 all passed, 1 a module cannot be tested, 2 wrong usage, 3 a test failed, 5 a test crashed
or took too long.
)";

struct ValidateOptions {
  std::vector<std::string> modules;
  ValidationSettings settings;
  std::vector<std::string> filters;
  bool isList = false;
  std::string format = "text";
  std::string junit;
  int timeoutSeconds = 0;  // 0: the tests' own limits
};

std::vector<ValidationTest> PlanOf(const ValidateOptions& options) {
  std::vector<ValidationTest> plan;
  for (const ValidationTest& test : ValidationTests()) {
    const bool isWanted =
        options.filters.empty() ||
        std::any_of(options.filters.begin(), options.filters.end(), [&](const std::string& glob) {
          return MatchesPattern(glob, test.name, LetterCase::kMatters);
        });
    if (isWanted && test.level <= options.settings.level) plan.push_back(test);
  }
  return plan;
}

// What a test's process has reported (TestRun.h).
struct Reported {
  std::vector<std::string> failures;
  std::string death;  // the call that was announced to end it
  bool isDone = false;
};

Reported ReadReport(const std::string& path) {
  Reported reported;
  std::ifstream file(PathOf(path), std::ios::binary);
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("fail ", 0) == 0) reported.failures.push_back(line.substr(5));
    if (line.rfind("dies ", 0) == 0) reported.death = line.substr(5);
    if (line == "done") reported.isDone = true;
  }
  return reported;
}

std::string HowItEnded(const ProbeEnd& end, int limitSeconds) {
  std::string text = end.isTimedOut ? fmt::format("took longer than {} s", limitSeconds) : end.way;
  if (!end.errorText.empty()) text += ": " + end.errorText;
  return text;
}

TestOutcome RunOne(const ModuleProber& prober, const ValidationTest& test,
                   const ValidateOptions& options) {
  const int limitSeconds = options.timeoutSeconds > 0
                               ? std::min(options.timeoutSeconds, test.limitSeconds)
                               : test.limitSeconds;
  const ProbeFolder folder;
  const std::string work = folder.FileIn("work");
  const std::string report = folder.FileIn("report");
  std::filesystem::create_directory(PathOf(work));
  const ProbeEnd end =
      prober.Run({"test", prober.Module(), test.name, std::to_string(options.settings.seed),
                  prober.PathFor(work), prober.PathFor(report)},
                 folder, limitSeconds);
  const Reported reported = ReadReport(report);
  TestOutcome outcome = {test.name, test.level, TestResult::kPassed, end.seconds,
                         reported.failures};
  if (reported.isDone && !end.isTimedOut) {
    if (test.ending == Ending::kDies && outcome.reasons.empty()) {
      outcome.reasons.emplace_back("no call was announced to end the process");
    }
    if (!outcome.reasons.empty()) outcome.result = TestResult::kFailed;
  } else if (reported.death.empty() || end.isTimedOut || end.isStrayAccess) {
    // A stray read or write is no end at the module's own wish.
    outcome.result = TestResult::kCrashed;
    outcome.reasons.push_back(HowItEnded(end, limitSeconds));
  } else if (!outcome.reasons.empty()) {
    outcome.result = TestResult::kFailed;
  }
  return outcome;
}

ModuleOutcome Validate(const std::string& module, const std::vector<ValidationTest>& plan,
                       const ValidateOptions& options) {
  ModuleOutcome outcome;
  outcome.module = module;
  outcome.planned = plan.size();
  const bool isText = options.format == "text";
  if (isText) fmt::print("{}\n", module);
  try {
    const ModuleProber prober(module);
    outcome.isWindows = prober.IsWindows();
    for (const ValidationTest& test : plan) {
      outcome.tests.push_back(RunOne(prober, test, options));
      if (isText) {
        fmt::print("{}", TextOf(outcome.tests.back()));
        std::fflush(stdout);
      }
      const bool isLoading = test.name.rfind(kLoadingGroup, 0) == 0;
      if (isLoading && outcome.tests.back().result != TestResult::kPassed) break;
    }
  } catch (const std::exception& failure) {
    outcome.error = failure.what();
    fmt::print(stderr, "harvane: {}\n", failure.what());
  }
  return outcome;
}

int List(const ValidateOptions& options) {
  for (const ValidationTest& test : PlanOf(options)) fmt::print("{}  {}\n", test.level, test.name);
  return kExitDone;
}

int RunValidate(const ValidateOptions& options) {
  if (options.isList) return List(options);
  const std::vector<ValidationTest> plan = PlanOf(options);
  if (options.modules.empty() || plan.empty()) {
    fmt::print(stderr, "harvane: {}\n",
               plan.empty() ? "no test has such a name at this level" : "which module?");
    return kExitUsage;
  }
  std::vector<ModuleOutcome> modules;
  for (const std::string& module : options.modules) {
    modules.push_back(Validate(module, plan, options));
  }
  if (!options.junit.empty()) {
    std::ofstream file(PathOf(options.junit), std::ios::binary);
    if (!(file << JUnitOf(modules)).flush()) {
      fmt::print(stderr, "harvane: {}: cannot be written\n", options.junit);
      return kExitFileFailed;
    }
  }
  if (options.format == "json") {
    fmt::print("{}", JsonOf(modules, options.settings));
  } else {
    fmt::print("{}\n", ClosingLine(modules));
  }
  return std::fflush(stdout) == 0 ? ExitCodeOf(modules) : kExitFileFailed;
}

}  // namespace

void AddValidateCommand(CLI::App* app, Run* run) {
  const auto options = std::make_shared<ValidateOptions>();
  CLI::App* const command = app->add_subcommand(
      "validate", "Test any module file for conformance, through its sixteen exports");
  command->add_option("MODULE", options->modules, "Module files, of this platform or of Windows")
      ->type_name("");
  command->add_option("--level", options->settings.level, "How thoroughly: 1, 2 or 3")
      ->check(CLI::Range(1, 3).description(""))
      ->type_name("LEVEL")
      ->default_str("1");
  command->add_flag("--list", options->isList, "Print the tests' levels and names, run none");
  command->add_option("--filter", options->filters, "Only tests of such names; may be repeated")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  command->add_option("--seed", options->settings.seed, "What chance starts from")
      ->type_name("N")
      ->default_str("1");
  command->add_option("-f,--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}).description(""))
      ->type_name("FORMAT")
      ->default_str("text");
  command
      ->add_option("--timeout", options->timeoutSeconds,
                   "No test may take longer, in seconds; each has a limit of its own besides")
      ->check(CLI::PositiveNumber.description(""))
      ->type_name("S");
  command->add_option("--junit", options->junit, "Write the results as JUnit's XML, too")
      ->type_name("FILE");
  command->footer(kExamples);
  command->callback([run, options] { *run = [options] { return RunValidate(*options); }; });

  // What ModuleProber starts; not for people.
  const auto arguments = std::make_shared<std::vector<std::string>>();
  CLI::App* const probe = app->add_subcommand("probe", "")->group("");
  probe->add_option("ARGUMENT", *arguments);
  probe->callback([run, arguments] { *run = [arguments]() -> int { RunProbe(*arguments); }; });
}

}  // namespace harvane
