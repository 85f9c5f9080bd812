#include "tool/Presets.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "host/FileAccess.h"

namespace harvane {
namespace {

using Json = nlohmann::json;

constexpr double kDefaultToleranceLu = 0.5;
constexpr MeasuredValue kValues[] = {MeasuredValue::kIntegratedLoudness,
                                     MeasuredValue::kLoudnessRange, MeasuredValue::kMaxTruePeak,
                                     MeasuredValue::kMaxShortTerm, MeasuredValue::kMaxMomentary};

Rule Around(MeasuredValue value, double target, double tolerance) {
  return {value, target, tolerance, {}, {}};
}

Rule AtMost(MeasuredValue value, double most) { return {value, {}, 0.0, {}, most}; }

Rule Between(MeasuredValue value, double least, double most) {
  return {value, {}, 0.0, least, most};
}

// A preset with a programme loudness and a ceiling, and the rules that say so.
Preset Plain(const char* name, const char* title, const char* source, double loudness,
             double tolerance, double maxTruePeak) {
  Preset preset;
  preset.name = name;
  preset.title = title;
  preset.source = source;
  preset.loudness = loudness;
  preset.maxTruePeak = maxTruePeak;
  preset.rules = {Around(MeasuredValue::kIntegratedLoudness, loudness, tolerance),
                  AtMost(MeasuredValue::kMaxTruePeak, maxTruePeak)};
  return preset;
}

std::vector<Preset> MakePresets() {
  Preset shortForm = Plain("r128-s1", "EBU R 128 s1: short-form content (adverts, promos)",
                           "https://tech.ebu.ch/publications/r128s1", -23.0, 0.5, -1.0);
  shortForm.shortTermLoudness = -18.0;
  shortForm.rules.push_back(AtMost(MeasuredValue::kMaxShortTerm, -18.0));
  Preset streaming = Plain("r128-s2", "EBU R 128 s2: streaming",
                           "https://tech.ebu.ch/publications/r128s2", -18.0, 2.0, -1.0);
  streaming.rules.front() = Between(MeasuredValue::kIntegratedLoudness, -20.0, -16.0);
  return {
      Plain("r128", "EBU R 128 version 3.0 (June 2014)", "https://tech.ebu.ch/publications/r128",
            -23.0, 0.5, -1.0),
      Plain("r128-live", "EBU R 128 version 4.0 (August 2020): tolerance in production",
            "https://tech.ebu.ch/publications/r128", -23.0, 1.0, -1.0),
      shortForm,
      streaming,
      Plain("a85", "ATSC A/85:2013, of the whole programme", "https://www.atsc.org", -24.0, 2.0,
            -2.0),
      Plain("op59", "Free TV Australia Operational Practice OP-59", "https://www.freetv.com.au",
            -24.0, 1.0, -2.0),
      Plain("tr-b32", "ARIB TR-B32", "https://www.arib.or.jp", -24.0, 1.0, -1.0),
      Plain("apple-podcasts", "Apple Podcasts for Creators: audio requirements",
            "https://podcasters.apple.com", -16.0, 1.0, -1.0),
  };
}

class PresetReading {
 public:
  explicit PresetReading(const std::string& origin) : origin(origin) {}

  Preset Read(const Json& json) const {
    if (!json.is_object()) Fail("is no JSON object");
    Preset preset;
    preset.name = origin;
    bool isAimed = false;
    for (const auto& [key, value] : json.items()) {
      if (key == "name") {
        preset.name = Text(key, value);
      } else if (key == "title") {
        preset.title = Text(key, value);
      } else if (key == "source") {
        preset.source = Text(key, value);
      } else if (key == "mode") {
        preset.mode = Mode(value);
      } else if (key == "loudness") {
        preset.loudness = Target(key, value, kLowestLoudness, kHighestLoudness);
        isAimed = true;
      } else if (key == "shortTermLoudness") {
        preset.shortTermLoudness = Target(key, value, kLowestLoudness, kHighestLoudness);
      } else if (key == "maxTruePeak") {
        preset.maxTruePeak = Target(key, value, kLowestTruePeak, kHighestTruePeak);
        isAimed = true;
      } else if (key != "rules") {
        Fail(fmt::format("has an unknown key \"{}\"", key));
      }
    }
    if (json.contains("rules")) {
      if (!json["rules"].is_array()) Fail("has \"rules\" that are no list");
      for (const Json& rule : json["rules"]) preset.rules.push_back(ReadRule(rule));
    } else if (isAimed) {
      preset.rules = {
          Around(MeasuredValue::kIntegratedLoudness, preset.loudness, kDefaultToleranceLu),
          AtMost(MeasuredValue::kMaxTruePeak, preset.maxTruePeak)};
    }
    return preset;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::invalid_argument(fmt::format("the preset {} {}", origin, what));
  }

  std::string Text(const std::string& key, const Json& value) const {
    if (!value.is_string()) Fail(fmt::format("has a \"{}\" that is no text", key));
    return value.get<std::string>();
  }

  double Number(const std::string& key, const Json& value) const {
    if (!value.is_number()) Fail(fmt::format("has a \"{}\" that is no number", key));
    return value.get<double>();
  }

  double Target(const std::string& key, const Json& value, double low, double high) const {
    const double number = Number(key, value);
    if (!(number >= low && number <= high)) {
      Fail(fmt::format("has a \"{}\" of {}, which is not from {} to {}", key, number, low, high));
    }
    return number;
  }

  NormalisationMode Mode(const Json& value) const {
    const std::string text = Text("mode", value);
    if (text == "programme") return NormalisationMode::kProgrammeLoudness;
    if (text == "short-term") return NormalisationMode::kMaxShortTerm;
    Fail(fmt::format("has the mode \"{}\"; \"programme\" and \"short-term\" are", text));
  }

  Rule ReadRule(const Json& json) const {
    if (!json.is_object()) Fail("has a rule that is no object");
    Rule rule;
    bool hasValue = false;
    for (const auto& [key, value] : json.items()) {
      if (key == "value") {
        rule.value = Value(Text(key, value));
        hasValue = true;
      } else if (key == "target") {
        rule.target = Number(key, value);
      } else if (key == "tolerance") {
        rule.tolerance = Number(key, value);
      } else if (key == "atLeast") {
        rule.least = Number(key, value);
      } else if (key == "atMost") {
        rule.most = Number(key, value);
      } else {
        Fail(fmt::format("has a rule with an unknown key \"{}\"", key));
      }
    }
    if (!hasValue) Fail("has a rule without a \"value\"");
    if (rule.target ? (rule.least || rule.most || rule.tolerance < 0.0)
                    : (!rule.least && !rule.most)) {
      Fail(fmt::format("has a rule of {} that is neither a target with a tolerance nor a limit",
                       MeasuredValueName(rule.value)));
    }
    return rule;
  }

  MeasuredValue Value(const std::string& name) const {
    for (const MeasuredValue value : kValues) {
      if (name == MeasuredValueName(value)) return value;
    }
    Fail(fmt::format("has a rule of \"{}\", which is not measured", name));
  }

  const std::string& origin;
};

}  // namespace

const char* MeasuredValueName(MeasuredValue value) {
  switch (value) {
    case MeasuredValue::kIntegratedLoudness:
      return "integratedLoudness";
    case MeasuredValue::kLoudnessRange:
      return "loudnessRange";
    case MeasuredValue::kMaxTruePeak:
      return "maxTruePeak";
    case MeasuredValue::kMaxShortTerm:
      return "maxShortTerm";
    case MeasuredValue::kMaxMomentary:
      return "maxMomentary";
  }
  return "";
}

const char* MeasuredValueUnit(MeasuredValue value) {
  switch (value) {
    case MeasuredValue::kLoudnessRange:
      return "LU";
    case MeasuredValue::kMaxTruePeak:
      return "dBTP";
    case MeasuredValue::kIntegratedLoudness:
    case MeasuredValue::kMaxShortTerm:
    case MeasuredValue::kMaxMomentary:
      return "LUFS";
  }
  return "";
}

const std::vector<Preset>& BuiltInPresets() {
  static const std::vector<Preset> presets = MakePresets();
  return presets;
}

Preset PresetNamed(const std::string& nameOrPath) {
  std::string names;
  for (const Preset& preset : BuiltInPresets()) {
    if (preset.name == nameOrPath) return preset;
    names += (names.empty() ? "" : ", ") + preset.name;
  }
  std::ifstream file(PathOf(nameOrPath), std::ios::binary);
  if (!file) {
    throw std::invalid_argument(
        fmt::format("\"{}\" is neither a preset nor a file that can be read; the presets are {}",
                    nameOrPath, names));
  }
  return ParsePreset({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()},
                     nameOrPath);
}

Preset ParsePreset(const std::string& json, const std::string& origin) {
  Json document;
  try {
    document = Json::parse(json);
  } catch (const Json::exception&) {
    throw std::invalid_argument(fmt::format("the preset {} is not written in JSON", origin));
  }
  return PresetReading(origin).Read(document);
}

}  // namespace harvane
