// The man page and the completion of bash, made from the program's own commands and options, so
// that none is missing. Hidden: the build calls it.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <sstream>

#include "tool/Commands.h"
#include "tool/FileResult.h"

namespace harvane {
namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// "-o, --output"; empty for what has no name but its place.
std::string NamesOf(const CLI::Option& option) {
  std::string names;
  const auto add = [&names](const char* dashes, const std::string& name) {
    names += (names.empty() ? "" : ", ") + (dashes + name);
  };
  for (const std::string& name : option.get_snames()) add("-", name);
  for (const std::string& name : option.get_lnames()) add("--", name);
  return names;
}

// ---- man page

// As roff shows it: dashes that can be copied, no line taken for a request.
std::string Roff(const std::string& text) {
  std::string escaped;
  bool isLineStart = true;
  for (const char c : text) {
    if (isLineStart && (c == '.' || c == '\'')) escaped += "\\&";
    if (c == '-') {
      escaped += "\\-";
    } else if (c == '\\') {
      escaped += "\\e";
    } else {
      escaped += c;
    }
    isLineStart = c == '\n';
  }
  return escaped;
}

// Text as it stands, line for line.
std::string Verbatim(const std::string& text) {
  const std::size_t first = text.find_first_not_of('\n');
  if (first == std::string::npos) return "";
  const std::size_t last = text.find_last_not_of('\n');
  return ".PP\n.nf\n" + Roff(text.substr(first, last - first + 1)) + "\n.fi\n";
}

std::string OptionsAsRoff(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : OptionsOf(app)) {
    const std::string names = NamesOf(*option);
    const std::string head = names.empty() ? option->get_name(true) : names;
    const std::string type = names.empty() ? "" : option->get_type_name();
    text += fmt::format(".TP\n\\fB{}\\fR{}\n", Roff(head),
                        type.empty() ? "" : " \\fI" + Roff(type) + "\\fR");
    text += Roff(option->get_description());
    const std::string byDefault = option->get_default_str();
    if (!byDefault.empty()) text += Roff(" (default: " + byDefault + ")");
    text += "\n";
  }
  return text;
}

std::string ManualOf(const CLI::App& app) {
  std::string text = ".TH HARVANE 1 \"\" \"harvane\" \"User commands\"\n.SH NAME\nharvane \\- " +
                     Roff(app.get_description()) +
                     "\n.SH SYNOPSIS\n.B harvane\n\\fICOMMAND\\fR [\\fIOPTION\\fR]... "
                     "[\\fIFILE\\fR]...\n.SH OPTIONS\n" +
                     OptionsAsRoff(app) + ".SH COMMANDS\n";
  for (const CLI::App* command : CommandsOf(app)) {
    std::string names = command->get_name();
    for (const std::string& alias : command->get_aliases()) names += ", " + alias;
    text += ".SS " + Roff(names) + "\n" + Roff(command->get_description()) + "\n" +
            OptionsAsRoff(*command);
    if (command->get_footer() != app.get_footer()) text += Verbatim(command->get_footer());
  }
  return text + ".SH NOTES\n" + Verbatim(app.get_footer());
}

// ---- bash

std::string WordsOf(const CLI::App& app) {
  std::string words;
  for (const CLI::Option* option : OptionsOf(app)) {
    std::istringstream names(NamesOf(*option));
    for (std::string name; std::getline(names, name, ',');) {
      words += (words.empty() ? "" : " ") + name.substr(name.find_first_not_of(' '));
    }
  }
  return words;
}

constexpr const char* kCompletion = R"(# Completion of harvane for bash.

_harvane() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} command='' words='' word
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case $word in
      -*) ;;
      *)
        command=$word
        break
        ;;
    esac
  done
  case $command in
    '') words='{}' ;;
{}  esac
  if [[ $command == '' || $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames
  fi
}}

complete -F _harvane harvane
)";

std::string CompletionOf(const CLI::App& app) {
  std::string commands;
  std::string cases;
  for (const CLI::App* command : CommandsOf(app)) {
    std::string pattern = command->get_name();
    for (const std::string& alias : command->get_aliases()) pattern += " | " + alias;
    std::string names = pattern;
    for (std::size_t bar = 0; (bar = names.find("| ")) != std::string::npos;) names.erase(bar, 2);
    commands += names + " ";
    cases += fmt::format("    {}) words='{}' ;;\n", pattern, WordsOf(*command));
  }
  return fmt::format(kCompletion, commands + WordsOf(app), cases);
}

}  // namespace

void AddManualCommand(CLI::App* app, Run* run) {
  const auto kind = std::make_shared<std::string>();
  CLI::App* const command = app->add_subcommand("manual", "")->group("");
  command->add_option("KIND", *kind)->required()->check(CLI::IsMember({"man", "bash"}));
  command->callback([app, run, kind] {
    // Now: the program's commands are gone when it runs.
    const auto text =
        std::make_shared<std::string>(*kind == "man" ? ManualOf(*app) : CompletionOf(*app));
    *run = [text] {
      fmt::print("{}", *text);
      return std::fflush(stdout) == 0 ? kExitDone : kExitFileFailed;
    };
  });
}

}  // namespace harvane
