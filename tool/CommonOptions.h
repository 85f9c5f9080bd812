#ifndef HARVANE_TOOL_COMMONOPTIONS_H
#define HARVANE_TOOL_COMMONOPTIONS_H

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "host/ParameterDocument.h"
#include "tool/results/ResultFormat.h"

namespace harvane {

// What the options of several commands have in common. Targets must outlive the command.

// Words on the command line and what they stand for.
const std::map<std::string, ResultFormat>& ResultFormats();
const std::map<std::string, NormalisationMode>& NormalisationModes();
// Deliberate: the scheme writes 59,94 with a comma, and the module reads 59 from it.
const std::map<std::string, std::string>& FrameRates();

// Empty where `text` is right; else what is wrong with it, for behind the option's name.
std::string CheckName(const std::string& text);  // a name, which is not empty
std::string CheckText(const std::string& text);  // what a parameter document can carry

// For numbers from `low` to `high`; neither takes what is not a number.
CLI::Validator Between(double low, double high);

// An option whose value is one of a few words, which must outlive the command.
template <class Value, class Target>
CLI::Option* AddWords(CLI::App* command, const std::string& names, Target* target,
                      const std::map<std::string, Value>& words, const std::string& help) {
  return command
      ->add_option_function<std::string>(
          names, [target, &words](const std::string& word) { *target = words.at(word); }, help)
      ->check(CLI::IsMember(words).description(""));
}

// -f,--format
template <class Target>
CLI::Option* AddFormat(CLI::App* command, Target* format, const std::string& help) {
  return AddWords(command, "-f,--format", format, ResultFormats(), help)->type_name("FORMAT");
}

// An option that names a file.
CLI::Option* AddFile(CLI::App* command, const std::string& names, std::string* file,
                     const std::string& help);

// -0,--null, for the names in what the option `list` names.
void AddNull(CLI::App* command, CLI::Option* list, bool* isNullSeparated);

// The video frame rate, with FrameRates.
void AddFrameRate(CLI::App* command, const std::string& names, std::string* frameRate);

}  // namespace harvane

#endif  // HARVANE_TOOL_COMMONOPTIONS_H
