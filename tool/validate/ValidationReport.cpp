#include "tool/validate/ValidationReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tool/FileResult.h"

namespace harvane {
namespace {

const char* WordFor(TestResult result) {
  switch (result) {
    case TestResult::kPassed:
      return "passed";
    case TestResult::kFailed:
      return "failed";
    case TestResult::kCrashed:
      return "crashed";
  }
  return "";
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

nlohmann::ordered_json CountsAsJson(const ValidationCounts& counts) {
  return {{"planned", counts.planned},
          {"run", counts.run},
          {"passed", counts.passed},
          {"failed", counts.failed},
          {"crashed", counts.crashed}};
}

double SecondsOf(const ModuleOutcome& module) {
  double seconds = 0.0;
  for (const TestOutcome& test : module.tests) seconds += test.seconds;
  return seconds;
}

}  // namespace

ValidationCounts CountsOf(const std::vector<ModuleOutcome>& modules) {
  ValidationCounts counts;
  for (const ModuleOutcome& module : modules) {
    counts.planned += module.planned;
    counts.run += module.tests.size();
    for (const TestOutcome& test : module.tests) {
      if (test.result == TestResult::kPassed) ++counts.passed;
      if (test.result == TestResult::kFailed) ++counts.failed;
      if (test.result == TestResult::kCrashed) ++counts.crashed;
    }
  }
  return counts;
}

int ExitCodeOf(const std::vector<ModuleOutcome>& modules) {
  const ValidationCounts counts = CountsOf(modules);
  if (counts.crashed != 0) return kExitCrashed;
  const bool isAnyUntested =
      std::any_of(modules.begin(), modules.end(),
                  [](const ModuleOutcome& module) { return !module.error.empty(); });
  if (isAnyUntested) return kExitFileFailed;
  return counts.passed == counts.planned ? kExitDone : kExitVerdictFail;
}

std::string ClosingLine(const std::vector<ModuleOutcome>& modules) {
  const ValidationCounts counts = CountsOf(modules);
  return fmt::format("planned {}, run {}, passed {}, failed {}, crashed {}", counts.planned,
                     counts.run, counts.passed, counts.failed, counts.crashed);
}

std::string TextOf(const TestOutcome& test) {
  std::string text =
      fmt::format("{:<8} {:7.2f} s  {}\n", WordFor(test.result), test.seconds, test.name);
  for (const std::string& reason : test.reasons) text += fmt::format("    {}\n", reason);
  return text;
}

std::string JsonOf(const std::vector<ModuleOutcome>& modules, const ValidationSettings& settings) {
  nlohmann::ordered_json document = {{"level", settings.level}, {"seed", settings.seed}};
  document["modules"] = nlohmann::ordered_json::array();
  for (const ModuleOutcome& module : modules) {
    nlohmann::ordered_json entry = {{"module", module.module},
                                    {"platform", module.isWindows ? "windows" : "native"}};
    entry["error"] = nullptr;
    if (!module.error.empty()) entry["error"] = module.error;
    entry["counts"] = CountsAsJson(CountsOf({module}));
    entry["tests"] = nlohmann::ordered_json::array();
    for (const TestOutcome& test : module.tests) {
      entry["tests"].push_back({{"name", test.name},
                                {"level", test.level},
                                {"result", WordFor(test.result)},
                                {"seconds", test.seconds},
                                {"reasons", test.reasons}});
    }
    document["modules"].push_back(entry);
  }
  document["counts"] = CountsAsJson(CountsOf(modules));
  return document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string JUnitOf(const std::vector<ModuleOutcome>& modules) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  for (const ModuleOutcome& module : modules) {
    const ValidationCounts counts = CountsOf({module});
    const std::size_t errors = counts.crashed + (module.error.empty() ? 0 : 1);
    xml += fmt::format(
        "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" "
        "time=\"{:.3f}\">\n",
        Escaped(module.module), module.planned, counts.failed, errors, module.planned - counts.run,
        SecondsOf(module));
    if (!module.error.empty()) {
      xml += fmt::format("    <system-err>{}</system-err>\n", Escaped(module.error));
    }
    for (const TestOutcome& test : module.tests) {
      const std::size_t dot = test.name.find('.');
      xml += fmt::format("    <testcase classname=\"{}\" name=\"{}\" time=\"{:.3f}\"",
                         Escaped(test.name.substr(0, dot)), Escaped(test.name.substr(dot + 1)),
                         test.seconds);
      if (test.result == TestResult::kPassed) {
        xml += "/>\n";
        continue;
      }
      const char* const element = test.result == TestResult::kFailed ? "failure" : "error";
      xml += fmt::format(">\n      <{} message=\"{}\">", element,
                         Escaped(test.reasons.empty() ? "" : test.reasons[0]));
      for (const std::string& reason : test.reasons) xml += Escaped(reason) + "\n";
      xml += fmt::format("</{}>\n    </testcase>\n", element);
    }
    xml += "  </testsuite>\n";
  }
  return xml + "</testsuites>\n";
}

}  // namespace harvane
