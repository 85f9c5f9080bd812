#ifndef HARVANE_TOOL_JOBOPTIONS_H
#define HARVANE_TOOL_JOBOPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "host/AudioFile.h"
#include "host/ParameterDocument.h"
#include "tool/Presets.h"

namespace CLI {
class App;
}

namespace harvane {

enum class JobKind {
  kMeasure,    // one pass; nothing is written or judged
  kCheck,      // one pass, and verdicts
  kNormalise,  // two passes
};

// How one file is to be worked on: all but the names of its files. A plain value, that may be
// copied to another process or thread.
struct JobOptions {
  JobKind kind = JobKind::kMeasure;

  // As they were written; ResolveJobOptions reads them into what follows.
  std::string layoutText;      // "auto", empty for the same, or "5.1+2,2"
  std::string allocationText;  // "stereo+5.1"
  std::string mapText;         // "3,4,1,2"
  std::string presetText;      // a name or a file
  std::string parameterFile;   // of --param
  std::string logFolder;
  std::optional<NormalisationMode> mode;  // this and the next three where they were given
  std::optional<double> loudness;
  std::optional<double> shortTermLoudness;
  std::optional<double> maxTruePeak;

  std::vector<int> groupFormats;  // of any number of groups; empty: by the file
  // By channel of the tracks, one after the other: its channel in the file, from 1. Empty: in
  // the file's order. Channels of the file that are not named come out as they went in.
  std::vector<int> channelMap;
  JobParameters parameters;       // passes, formats and names of files are filled in by the run
  std::string parameterDocument;  // the text of --param, handed over as it stands; else empty
  std::string presetName;         // for reports; empty where there was none
  std::vector<Rule> rules;        // empty where nothing is judged

  bool isOnlyLowered = false;            // --lower-only
  std::optional<double> toleranceLu;     // --tolerance; of a check: that of the loudness rule
  bool areQuietTracksProcessed = false;  // --quiet-tracks process
  bool isConverged = false;              // --converge
  bool isCrossChecked = false;           // --cross-check
  bool isAligned = false;                // --align
  bool hasSeries = false;                // --series
  bool isOutputReplaced = false;         // an output that is there is written over
  BroadcastMode broadcastMode = BroadcastMode::kKeep;  // --bext

  std::string module;         // a module file; empty for the linked module
  bool isLogAwaited = false;  // keep a module file until its log is written
};

// Adds the options that are about tracks, targets, the log and the module, each where it makes
// sense for `kind`, and sets `options->kind`: --layout -c, --allocation, --map, --preset -p,
// --mode -m, --loudness -l, --short-term -s, --true-peak -t, --param, --lower-only, --tolerance,
// --quiet-tracks, --converge, --cross-check, --align, --bext, --series, --frame-rate,
// --log-folder -L, --log-name -N, --entry-name -e, --module -M, --wait-for-log -w. `options` must
// outlive `command`. Files, outputs, formats and running are others'.
void AddJobOptions(CLI::App* command, JobOptions* options, JobKind kind);

// After parsing: reads the texts and files that were named and joins preset and single values,
// of which the single ones win, also in the rules. A check without a preset takes r128.
// Throws std::invalid_argument with one line: wrong usage.
void ResolveJobOptions(JobOptions* options);

// `folder` as the module is told of it, which may have another working directory, or be one of
// Windows.
std::string LogPathFor(const JobOptions& options, const std::string& folder);

// What --converge promises for these targets: what it is judged by where no preset says more.
std::vector<Rule> ConvergenceRules(const JobParameters& parameters);

}  // namespace harvane

#endif  // HARVANE_TOOL_JOBOPTIONS_H
