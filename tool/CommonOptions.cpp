#include "tool/CommonOptions.h"

#include <fmt/format.h>
#include <utf8.h>

namespace harvane {

const std::map<std::string, ResultFormat>& ResultFormats() {
  static const std::map<std::string, ResultFormat> kFormats = {{"text", ResultFormat::kText},
                                                               {"json", ResultFormat::kJson},
                                                               {"jsonl", ResultFormat::kJsonLines},
                                                               {"csv", ResultFormat::kCsv}};
  return kFormats;
}

const std::map<std::string, NormalisationMode>& NormalisationModes() {
  static const std::map<std::string, NormalisationMode> kModes = {
      {"programme", NormalisationMode::kProgrammeLoudness},
      {"program", NormalisationMode::kProgrammeLoudness},
      {"short-term", NormalisationMode::kMaxShortTerm}};
  return kModes;
}

const std::map<std::string, std::string>& FrameRates() {
  static const std::map<std::string, std::string> kFrameRates = {
      {"unspecified", "0"}, {"0", "0"},         {"23.976", "23.976"}, {"24", "24"},
      {"25", "25"},         {"29.97", "29.97"}, {"30", "30"},         {"50", "50"},
      {"59.94", "59,94"},   {"59,94", "59,94"}, {"60", "60"}};
  return kFrameRates;
}

std::string CheckName(const std::string& text) { return text.empty() ? "is an empty name" : ""; }

std::string CheckText(const std::string& text) {
  if (!IsDocumentText(text)) return "holds characters that no parameter document can carry";
  if (utf8::distance(text.begin(), text.end()) > kLongestText) {
    return fmt::format("is longer than {} characters", kLongestText);
  }
  return "";
}

CLI::Validator Between(double low, double high) {
  return CLI::Validator(
      [low, high](const std::string& text) {
        double number = 0.0;
        const bool isNumber = CLI::detail::lexical_cast(text, number);
        if (isNumber && number >= low && number <= high) return std::string();
        return fmt::format("{} is no number from {} to {}", text, low, high);
      },
      "");
}

CLI::Option* AddFile(CLI::App* command, const std::string& names, std::string* file,
                     const std::string& help) {
  return command->add_option(names, *file, help)->check(CheckName)->type_name("FILE");
}

void AddNull(CLI::App* command, CLI::Option* list, bool* isNullSeparated) {
  command
      ->add_flag("-0,--null", *isNullSeparated, "The names in LIST are separated by NUL characters")
      ->needs(list);
}

void AddFrameRate(CLI::App* command, const std::string& names, std::string* frameRate) {
  command
      ->add_option(names, *frameRate,
                   "Video frame rate for the time codes of the log: 23.976, 24, 25, 29.97, 30, "
                   "50, 59.94, 60 or unspecified")
      ->transform(CLI::CheckedTransformer(FrameRates()).description(""))
      ->type_name("RATE");
}

}  // namespace harvane
