#ifndef HARVANE_TOOL_PRESETS_H
#define HARVANE_TOOL_PRESETS_H

#include <optional>
#include <string>
#include <vector>

#include "host/ParameterDocument.h"

namespace harvane {

// Values that rules are about; their names, in the JSON and in preset files, are
// integratedLoudness, loudnessRange, maxTruePeak, maxShortTerm and maxMomentary.
enum class MeasuredValue {
  kIntegratedLoudness,
  kLoudnessRange,
  kMaxTruePeak,
  kMaxShortTerm,
  kMaxMomentary
};

const char* MeasuredValueName(MeasuredValue value);
// "LUFS", "LU" or "dBTP".
const char* MeasuredValueUnit(MeasuredValue value);

// What one value has to be: `target` with at most `tolerance` beside it, or from `least` to
// `most`, either of which may be open.
struct Rule {
  MeasuredValue value = MeasuredValue::kIntegratedLoudness;
  std::optional<double> target;
  double tolerance = 0.0;
  std::optional<double> least;
  std::optional<double> most;
};

// Targets, and the rules by which results are judged.
struct Preset {
  std::string name;
  std::string title;   // the document that says so, with its version
  std::string source;  // where it is published
  NormalisationMode mode = NormalisationMode::kProgrammeLoudness;
  double loudness = -23.0;           // LUFS
  double shortTermLoudness = -20.0;  // LUFS, aimed at in the mode kMaxShortTerm
  double maxTruePeak = -1.0;         // dBTP
  std::vector<Rule> rules;
};

// The built-in ones, in the order of the help:
//
//   r128           -23 +/- 0.5 LUFS, true peak -1. EBU R 128 version 3.0 (June 2014); the page
//                  tech.ebu.ch/publications/r128 lists the tolerances by version.
//   r128-live      -23 +/- 1 LUFS, true peak -1: the tolerance in production of version 4.0
//                  (August 2020).
//   r128-s1        r128 with a maximum short-term loudness of -18 LUFS: EBU R 128 s1, short-form
//                  content, tech.ebu.ch/publications/r128s1.
//   r128-s2        -20 to -16 LUFS, true peak -1: EBU R 128 s2, streaming,
//                  tech.ebu.ch/publications/r128s2. Normalised to the middle, -18 LUFS.
//   a85            -24 +/- 2 LKFS, true peak -2: ATSC A/85:2013, www.atsc.org. Of the whole
//                  programme, as for short-form content: dialogue is not told from the rest.
//   op59           -24 +/- 1 LKFS, true peak -2: Free TV Australia Operational Practice OP-59.
//   tr-b32         -24 +/- 1 LKFS, true peak -1: ARIB TR-B32.
//   apple-podcasts -16 +/- 1 LUFS, true peak -1: Apple Podcasts for Creators, "Audio requirements".
//
// Constant data.
const std::vector<Preset>& BuiltInPresets();

// The built-in preset of that name, else the one that the JSON file of that path describes:
//
//   {"name": "house", "source": "our delivery sheet", "mode": "programme", "loudness": -23,
//    "shortTermLoudness": -20, "maxTruePeak": -2,
//    "rules": [{"value": "integratedLoudness", "target": -23, "tolerance": 0.5},
//              {"value": "maxTruePeak", "atMost": -2}, {"value": "loudnessRange", "atLeast": 3}]}
//
// What is left out has the default of Preset; "rules" may be left out where "loudness" or
// "maxTruePeak" is given, and then follow from them, +/- 0.5 LU. An unknown key is an error.
// Throws std::invalid_argument with one line.
Preset PresetNamed(const std::string& nameOrPath);

// The same from the text of a file. `origin` names it in errors.
Preset ParsePreset(const std::string& json, const std::string& origin);

}  // namespace harvane

#endif  // HARVANE_TOOL_PRESETS_H
