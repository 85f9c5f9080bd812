// harvane info, scheme and params: what a module says of itself, and what it is told.

#include <fmt/format.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <utf8.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>

#include "host/LayoutNames.h"
#include "host/ParameterDocument.h"
#include "tool/Commands.h"
#include "tool/CommonOptions.h"
#include "tool/FileResult.h"
#include "tool/validate/ModuleProber.h"

namespace harvane {
namespace {

ModuleDescription DescriptionOfModule(const std::string& path) {
  return path.empty() ? DescriptionOf(LinkedModuleExports()) : ModuleProber(path).Describe();
}

// The exit code of what `body` does; a failure becomes a line on standard error.
template <class Body>
int Guarded(Body body) {
  try {
    body();
    if (std::fflush(stdout) == 0) return kExitDone;
    fmt::print(stderr, "harvane: the results cannot be written to standard output\n");
  } catch (const std::exception& failure) {
    fmt::print(stderr, "harvane: {}\n", failure.what());
  }
  return kExitFileFailed;
}

void AddModuleOption(CLI::App* command, std::string* module) {
  command->add_option("-M,--module", *module, "Module file to ask in place of the one built in")
      ->type_name("PATH");
}

// ---- info

// A text of a record's field: up to its NUL, or all of the field.
template <std::size_t kSize>
std::string FieldText(const char (&field)[kSize]) {
  const std::string bytes(field, std::find(field, field + kSize, '\0'));
  std::string text;
  utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(text));
  return text;
}

std::string Hexadecimal(const std::uint8_t (&id)[16]) {
  std::string text;
  for (const std::uint8_t byte : id) text += fmt::format("{:02x}", byte);
  return text;
}

template <class Payload>
Payload PayloadAt(const std::vector<unsigned char>& blob, std::size_t offset) {
  Payload payload{};
  const std::size_t size = std::min(sizeof payload, blob.size() - offset);
  std::memcpy(&payload, blob.data() + offset, size);
  return payload;
}

void PrintFormats(const std::vector<unsigned char>& blob) {
  std::size_t at = 0;
  while (blob.size() - at >= sizeof(ChunkHeader)) {
    const auto header = PayloadAt<ChunkHeader>(blob, at);
    at += sizeof header;
    if (header.tag == HARVANE_TAG_LPCM) {
      const auto lpcm = PayloadAt<LpcmPayload>(blob, at);
      fmt::print("format       LPCM: {} Hz, {} channels, {} bits\n", lpcm.sampleRate,
                 lpcm.channels == 0 ? "any number of" : std::to_string(lpcm.channels),
                 lpcm.bitsPerSample);
    } else if (header.tag == HARVANE_TAG_VIDE) {
      const auto video = PayloadAt<VidePayload>(blob, at);
      fmt::print("format       VIDE: {}\n",
                 video.frameRateDenominator == 0
                     ? "any frame rate"
                     : fmt::format("{}/{} frames a second", video.frameRateNumerator,
                                   video.frameRateDenominator));
    } else {
      fmt::print("format       tag 0x{:08X}, {} bytes\n", header.tag, header.size);
    }
    at += std::min<std::size_t>(header.size, blob.size() - at);
  }
}

int PrintInfo(const std::string& module) {
  return Guarded([&] {
    const ModuleDescription description = DescriptionOfModule(module);
    fmt::print("module       {}\n", module.empty() ? "(built in)" : module);
    fmt::print("id           {}\n", Hexadecimal(description.information.id));
    fmt::print("name         {}\n", FieldText(description.information.name));
    fmt::print("description  {}\n", FieldText(description.information.description));
    PrintFormats(description.inputOffer);
  });
}

// ---- scheme

using XmlDocument = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

std::string TextOf(xmlNode* node) {
  const std::unique_ptr<xmlChar, void (*)(void*)> text(xmlNodeGetContent(node), xmlFree);
  return text ? reinterpret_cast<const char*>(text.get()) : "";
}

std::string AttributeOf(xmlNode* node, const char* name) {
  const std::unique_ptr<xmlChar, void (*)(void*)> text(
      xmlGetProp(node, reinterpret_cast<const xmlChar*>(name)), xmlFree);
  return text ? reinterpret_cast<const char*>(text.get()) : "";
}

bool IsNamed(xmlNode* node, const char* name) {
  return node->type == XML_ELEMENT_NODE &&
         xmlStrEqual(node->name, reinterpret_cast<const xmlChar*>(name)) != 0;
}

xmlNode* ChildOf(xmlNode* node, const char* name) {
  for (xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (IsNamed(child, name)) return child;
  }
  return nullptr;
}

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\n");
  return first == std::string::npos
             ? ""
             : text.substr(first, text.find_last_not_of(" \t\n") - first + 1);
}

// "1 Analyze, 2 Analyze and process"; "-30.0 to -12.0"; "up to 260 characters".
std::string ValuesOf(xmlNode* parameter) {
  std::string values;
  for (xmlNode* child = parameter->children; child != nullptr; child = child->next) {
    if (IsNamed(child, "item")) {
      const std::string name = AttributeOf(child, "name");
      xmlNode* const label = ChildOf(child, "label");
      const std::string shown = label == nullptr ? "" : TextOf(label);
      values += fmt::format("{}{}", values.empty() ? "" : ", ", name);
      if (!shown.empty() && shown != name) values += fmt::format(" {}", shown);
    } else if (IsNamed(child, "range")) {
      values = fmt::format("{} to {}", AttributeOf(child, "min"), AttributeOf(child, "max"));
    } else if (IsNamed(child, "maxLength")) {
      values = fmt::format("up to {} characters", TextOf(child));
    }
  }
  return values;
}

std::string DefaultOf(xmlNode* parameter) {
  if (xmlNode* const element = ChildOf(parameter, "default")) return TextOf(element);
  if (xmlNode* const range = ChildOf(parameter, "range")) return AttributeOf(range, "default");
  return "-";
}

void PrintSchemeTable(const std::string& scheme) {
  const XmlDocument document(
      xmlReadMemory(scheme.data(), static_cast<int>(scheme.size()), "scheme", nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      xmlFreeDoc);
  xmlNode* const root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  xmlNode* const master = root == nullptr ? nullptr : ChildOf(root, "master");
  if (master == nullptr) throw ModuleError("the scheme is no XML of parameters");
  for (xmlNode* group = master->children; group != nullptr; group = group->next) {
    if (!IsNamed(group, "group")) continue;
    for (xmlNode* parameter = group->children; parameter != nullptr; parameter = parameter->next) {
      xmlNode* const label =
          parameter->type == XML_ELEMENT_NODE ? ChildOf(parameter, "label") : nullptr;
      if (label == nullptr) continue;
      fmt::print("{:<32} {:<7} {:<7} {:<31} {}\n",
                 AttributeOf(group, "name") + "/" + AttributeOf(parameter, "name"),
                 reinterpret_cast<const char*>(parameter->name), DefaultOf(parameter),
                 Trimmed(TextOf(label)), ValuesOf(parameter));
    }
  }
}

int PrintScheme(const std::string& module, const std::string& format) {
  return Guarded([&] {
    const ModuleDescription description = DescriptionOfModule(module);
    if (format == "xml") {
      std::fwrite(description.scheme.data(), 1, description.scheme.size(), stdout);
      return;
    }
    fmt::print("{:<32} {:<7} {:<7} {:<31} {}\n", "path", "kind", "default", "label", "values");
    PrintSchemeTable(description.scheme);
  });
}

// ---- params

std::string CheckLayout(const std::string& text) {
  try {
    ParseLayout(text);
    return "";
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
}

struct ParamsOptions {
  JobParameters parameters;
  std::string layout;
  std::string output;
};

int PrintParams(const ParamsOptions& options) {
  return Guarded([&] {
    JobParameters parameters = options.parameters;
    if (!options.layout.empty()) parameters.groupFormats = ParseLayout(options.layout);
    const std::string document = ParameterDocument(parameters);
    if (options.output.empty() || options.output == "-") {
      std::fwrite(document.data(), 1, document.size(), stdout);
      return;
    }
    std::ofstream file(options.output, std::ios::binary);
    if (!(file << document).flush()) {
      throw ModuleError(options.output + ": cannot be written");
    }
  });
}

void AddTargetOptions(CLI::App* command, JobParameters* parameters) {
  const auto level = [&](const char* names, double* value, double low, double high,
                         const std::string& what, const char* unit) {
    command->add_option(names, *value, fmt::format("{}, {} to {}", what, low, high))
        ->check(Between(low, high))
        ->type_name(unit)
        ->default_str(fmt::format("{}", *value));
  };
  level("-l,--loudness", &parameters->loudness, kLowestLoudness, kHighestLoudness,
        "Target of the mode programme in LUFS", "LUFS");
  level("-s,--short-term", &parameters->shortTermLoudness, kLowestLoudness, kHighestLoudness,
        "Target of the mode short-term in LUFS", "LUFS");
  level("-p,--true-peak", &parameters->maxTruePeak, kLowestTruePeak, kHighestTruePeak,
        "Maximum true peak in dBTP", "DBTP");
  command
      ->add_option("-m,--mode", parameters->mode,
                   "What is brought to its target: programme or short-term")
      ->transform(CLI::CheckedTransformer(NormalisationModes()).description(""))
      ->type_name("MODE");
}

void AddParamsCommand(CLI::App* app, Run* run) {
  const auto options = std::make_shared<ParamsOptions>();
  JobParameters& parameters = options->parameters;
  CLI::App* const command =
      app->add_subcommand("params", "Write a parameter document from options");
  command->add_option("-n,--passes", parameters.numberOfPasses, "1 measures, 2 processes, too")
      ->check(CLI::Range(1, 2).description(""))
      ->type_name("N")
      ->default_str("2");
  command->add_option("-c,--layout", options->layout, "How the channels form tracks")
      ->check(CheckLayout)
      ->type_name("LAYOUT")
      ->default_str("2");
  AddTargetOptions(command, &parameters);
  AddFrameRate(command, "-r,--frame-rate", &parameters.frameRate);
  const auto text = [&](const char* names, std::string* value, const char* what, const char* type) {
    command->add_option(names, *value, what)->check(CheckText)->type_name(type);
  };
  text("-L,--log-folder", &parameters.logPath, "Folder of the log, as the module sees it",
       "FOLDER");
  text("-N,--log-name", &parameters.logFileName, "Name of the log, without .csv", "NAME");
  text("-e,--entry-name", &parameters.logEntryName, "Name of the rows in the log", "NAME");
  command->add_option("-o,--output", options->output, "File to write; else standard output")
      ->type_name("FILE");
  command->footer(R"(
Examples:
  harvane params --loudness -24 --true-peak -2 -o a85.xml
  harvane params --passes 1 --layout 5.1+2 --frame-rate 25
)");
  command->callback([run, options] { *run = [options] { return PrintParams(*options); }; });
}

}  // namespace

void AddInfoCommands(CLI::App* app, Run* run) {
  const auto module = std::make_shared<std::string>();
  CLI::App* const info =
      app->add_subcommand("info", "Print what a module says of itself: identity, name, formats");
  AddModuleOption(info, module.get());
  info->footer(R"(
Examples:
  harvane info
  harvane info --module build/windows/Harvane.rpi
)");
  info->callback([run, module] { *run = [module] { return PrintInfo(*module); }; });

  const auto format = std::make_shared<std::string>("xml");
  CLI::App* const scheme = app->add_subcommand(
      "scheme", "Print a module's scheme of parameters, as it stands or a table");
  AddModuleOption(scheme, module.get());
  scheme->add_option("-f,--format", *format, "xml: as it stands, or text: a table")
      ->check(CLI::IsMember({"xml", "text"}).description(""))
      ->type_name("FORMAT")
      ->default_str("xml");
  scheme->footer(R"(
Examples:
  harvane scheme > scheme.xml
  harvane scheme -f text --module Harvane.rpi
)");
  scheme->callback(
      [run, module, format] { *run = [module, format] { return PrintScheme(*module, *format); }; });
  AddParamsCommand(app, run);
}

}  // namespace harvane
