#ifndef HARVANE_HOST_PARAMETERDOCUMENT_H
#define HARVANE_HOST_PARAMETERDOCUMENT_H

#include <string>
#include <vector>

namespace harvane {

// The values of `normalisationMode`.
enum class NormalisationMode { kProgrammeLoudness = 0, kMaxShortTerm = 1 };

// What one job is told, with the defaults of the parameter scheme.
struct JobParameters {
  int numberOfPasses = 2;            // 1: analyse; 2: analyse and process
  std::vector<int> groupFormats{2};  // format numbers 1 to 8, one per group, 1 to 4 of them
  NormalisationMode mode = NormalisationMode::kProgrammeLoudness;
  double loudness = -23.0;           // LUFS
  double shortTermLoudness = -20.0;  // LUFS
  double maxTruePeak = -1.0;         // dBTP
  std::string frameRate = "0";       // an item of the scheme; "0": unspecified
  std::string logPath;               // this and the next two: empty for the module's default
  std::string logFileName;
  std::string logEntryName;
  std::string sourceFileName;  // this and the next two: bytes of any kind
  std::string targetPath;
  std::string targetBaseName;
};

// As logPath: a folder that can nowhere be made, by nobody, for a log that none is to see. The rows
// are lost, and nothing is left behind even where the process is killed.
inline constexpr const char* kNoLogFolder = "/dev/null/harvane";

// The ranges of the scheme; the module itself takes any number.
inline constexpr double kLowestLoudness = -30.0;  // LUFS, both targets
inline constexpr double kHighestLoudness = -12.0;
inline constexpr double kLowestTruePeak = -12.0;  // dBTP
inline constexpr double kHighestTruePeak = 0.0;
inline constexpr int kLongestText = 260;  // characters

// The XML text in UTF-8 that xSetParameter takes. Numbers are the shortest text
// that reads back as the same double, with a point. Groups beyond those given
// carry format 2. What XML cannot hold of the source and target names becomes
// U+FFFD; the other texts must be such that IsDocumentText holds.
// Errors: std::bad_alloc. Thread: any.
std::string ParameterDocument(const JobParameters& parameters);

// True for UTF-8 of characters that an XML document can hold.
bool IsDocumentText(const std::string& text);

}  // namespace harvane

#endif  // HARVANE_HOST_PARAMETERDOCUMENT_H
