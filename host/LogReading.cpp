#include "host/LogReading.h"

#include <utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <new>
#include <optional>
#include <system_error>

#include "host/FileAccess.h"

namespace harvane {
namespace {

constexpr std::string_view kHeader =
    "Name, Pass, StartingChannelIndex, EndChannelIndex, ChannelsFormat, Integrated Loudness, "
    "Loudness Range, Max True Peak, TC, Max ShortTerm Loudness, TC, Max Momentary Loudness, TC";
constexpr std::string_view kStarted = "Log started: ";
constexpr std::size_t kAsterisks = 58;
constexpr std::size_t kMillisecondDigits = 3;
constexpr int kSixtieths = 60;
constexpr std::size_t kWholeFile = 0;

// The fields behind the name, in their order.
enum Field {
  kPass,
  kFirstChannel,
  kLastChannel,
  kFormat,
  kIntegratedLoudness,
  kLoudnessRange,
  kMaxTruePeak,
  kMaxTruePeakTime,
  kMaxShortTerm,
  kMaxShortTermTime,
  kMaxMomentary,
  kMaxMomentaryTime,
  kFieldCount
};
constexpr std::array<const char*, kFieldCount> kFieldNames = {"pass",
                                                              "first channel",
                                                              "last channel",
                                                              "channels' format",
                                                              "integrated loudness",
                                                              "loudness range",
                                                              "true peak",
                                                              "true peak's time",
                                                              "short-term loudness",
                                                              "short-term loudness' time",
                                                              "momentary loudness",
                                                              "momentary loudness' time"};
using Fields = std::array<std::string_view, kFieldCount>;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool AreDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

// All of `text`; a sign is taken, a blank or a plus is not.
template <class Number>
bool ReadNumber(std::string_view text, Number* value) {
  const auto read = std::from_chars(text.data(), text.data() + text.size(), *value);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

bool ReadPass(std::string_view text, LoggedPass* pass) {
  *pass = text == "Process" ? LoggedPass::kProcess : LoggedPass::kAnalysis;
  return text == "Process" || text == "Analysis";
}

// "-23.4", "inf", "nan": what the module makes of a float.
bool ReadLevel(std::string_view text, double* value) {
  const std::string_view magnitude = text.substr(text.starts_with('-') ? 1 : 0);
  if (magnitude == "inf" || magnitude == "nan") {
    *value = magnitude == "inf" ? std::numeric_limits<double>::infinity()
                                : std::numeric_limits<double>::quiet_NaN();
    if (text.size() != magnitude.size()) *value = -*value;
    return true;
  }
  const std::size_t point = magnitude.size() < 2 ? 0 : magnitude.size() - 2;
  return magnitude.size() > 2 && magnitude[point] == '.' && IsDigit(magnitude.back()) &&
         AreDigits(magnitude.substr(0, point)) && ReadNumber(text, value);
}

// One part of a time: padded in front, a sign included ("0-5").
bool ReadPart(std::string_view text, int* value) {
  if (text.empty()) return false;
  const std::size_t sign = text.find('-');
  if (sign != std::string_view::npos) {
    if (text.find_first_not_of('0') != sign) return false;
    text.remove_prefix(sign);
  }
  return AreDigits(text.substr(text.starts_with('-') ? 1 : 0)) && ReadNumber(text, value);
}

// `hasFrames` becomes true where the last part can't be milliseconds.
bool ReadTime(std::string_view text, LoggedTime* time, bool* hasFrames) {
  for (int* part : {&time->hours, &time->minutes, &time->seconds}) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !ReadPart(text.substr(0, colon), part)) return false;
    text.remove_prefix(colon + 1);
  }
  const auto isSixtieth = [](int part) { return part > -kSixtieths && part < kSixtieths; };
  if (text.size() != kMillisecondDigits) *hasFrames = true;
  return ReadPart(text, &time->framesOrMilliseconds) && isSixtieth(time->minutes) &&
         isSixtieth(time->seconds);
}

LoggedFormat FormatOf(int channelCount) {
  switch (channelCount) {
    case 1:
      return LoggedFormat::kMono;
    case 2:
      return LoggedFormat::kStereo;
    case 6:
      return LoggedFormat::kSurround;
    default:
      return LoggedFormat::kUnspecified;
  }
}

bool ReadFormat(std::string_view text, LoggedFormat* format) {
  constexpr std::array<std::string_view, 4> kTexts = {"Mono", "Stereo", "5.1", "Unspecified"};
  const auto* const found = std::find(kTexts.begin(), kTexts.end(), text);
  *format = static_cast<LoggedFormat>(found - kTexts.begin());
  return found != kTexts.end();
}

// The name and the fields behind it; false where there are too few.
bool Split(std::string_view line, std::string_view* name, Fields* fields) {
  for (std::size_t i = kFieldCount; i-- > 0;) {
    const std::size_t comma = line.rfind(',');
    if (comma == std::string_view::npos) return false;
    (*fields)[i] = line.substr(comma + 1);
    line = line.substr(0, comma);
  }
  *name = line;
  return true;
}

// The first field that is no value of its kind, or kFieldCount.
std::size_t ReadFields(const Fields& fields, LoggedTrack* track) {
  bool* const hasFrames = &track->hasFrames;
  const std::array<bool, kFieldCount> isRead = {
      ReadPass(fields[kPass], &track->pass),
      AreDigits(fields[kFirstChannel]) && ReadNumber(fields[kFirstChannel], &track->firstChannel),
      AreDigits(fields[kLastChannel]) && ReadNumber(fields[kLastChannel], &track->lastChannel),
      ReadFormat(fields[kFormat], &track->format),
      ReadLevel(fields[kIntegratedLoudness], &track->integratedLoudness),
      ReadLevel(fields[kLoudnessRange], &track->loudnessRange),
      ReadLevel(fields[kMaxTruePeak], &track->maxTruePeak),
      ReadTime(fields[kMaxTruePeakTime], &track->maxTruePeakTime, hasFrames),
      ReadLevel(fields[kMaxShortTerm], &track->maxShortTerm),
      ReadTime(fields[kMaxShortTermTime], &track->maxShortTermTime, hasFrames),
      ReadLevel(fields[kMaxMomentary], &track->maxMomentary),
      ReadTime(fields[kMaxMomentaryTime], &track->maxMomentaryTime, hasFrames)};
  return static_cast<std::size_t>(std::find(isRead.begin(), isRead.end(), false) - isRead.begin());
}

bool IsBanner(std::string_view line) {
  return line == kHeader || line.starts_with(kStarted) ||
         (line.size() == kAsterisks && line.find_first_not_of('*') == std::string_view::npos);
}

// What is wrong with a line that the module can't have written; empty if nothing is.
std::string WrongBytes(std::string_view line) {
  if (line.find('\0') != std::string_view::npos) return "it holds a NUL byte";
  if (!utf8::is_valid(line.begin(), line.end())) return "it is not UTF-8";
  return {};
}

// What is wrong with a row; empty and `track` whole if nothing is.
std::string ReadRow(std::string_view line, LoggedTrack* track) {
  std::string_view name;
  Fields fields;
  if (!Split(line, &name, &fields)) {
    return "it has " + std::to_string(std::count(line.begin(), line.end(), ',') + 1) +
           " fields, and a row has 13";
  }
  const std::size_t wrong = ReadFields(fields, track);
  if (wrong != kFieldCount) {
    return "its field for the " + std::string(kFieldNames[wrong]) + " is no such value";
  }
  if (track->lastChannel < track->firstChannel) return "its last channel stands before its first";
  const std::int64_t channels = std::int64_t{track->lastChannel} - track->firstChannel + 1;
  const auto few = static_cast<int>(std::min<std::int64_t>(channels, kFieldCount));
  if (track->format != FormatOf(few)) return "its format is not that of its channels";
  track->name = name;
  return {};
}

void AddProblem(LogReading* reading, std::size_t line, const std::string& reason) {
  ++reading->problemCount;
  if (reading->problems.size() < kMostLogProblems) reading->problems.push_back({line, reason});
}

void ReadLine(std::string_view line, std::size_t number, LogReading* reading) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.empty()) return;
  LoggedTrack track{};
  std::string wrong = WrongBytes(line);
  if (wrong.empty()) {
    wrong = ReadRow(line, &track);
    // After the row: a job may have any name.
    if (!wrong.empty() && IsBanner(line)) return;
  }
  if (!wrong.empty()) {
    AddProblem(reading, number, wrong);
    return;
  }
  track.line = number;
  reading->tracks.push_back(std::move(track));
}

void ReadLines(std::string_view text, LogReading* reading) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
      if (text != "\r") AddProblem(reading, number, "the end of the line is missing");
      return;
    }
    ReadLine(text.substr(0, end), number, reading);
    text.remove_prefix(end + 1);
  }
}

// What `read` fills, as far as the memory goes.
template <class Read>
LogReading ReadGuarded(Read read) noexcept {
  LogReading reading;
  try {
    read(&reading);
  } catch (const std::bad_alloc&) {
    reading.isMemoryExhausted = true;
  }
  return reading;
}

// The file's bytes, as many as it has now; none with a reason where it cannot be read.
std::optional<std::string> ReadBytes(const std::filesystem::path& path, std::string* reason) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (error) {
    *reason = "cannot be opened: " + error.message();
    return {};
  }
  // A pipe would be waited for, and a device has no end.
  if (!std::filesystem::is_regular_file(status)) {
    *reason = "is not a regular file";
    return {};
  }
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  std::ifstream file(path, std::ios::binary);
  if (error || !file) {
    *reason = "cannot be opened";
    return {};
  }
  if (size > std::string().max_size()) throw std::bad_alloc();
  std::string bytes(static_cast<std::size_t>(size), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(size));
  if (file.bad()) {
    *reason = "cannot be read";
    return {};
  }
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

}  // namespace

LogReading ReadLog(std::string_view text) noexcept {
  return ReadGuarded([text](LogReading* reading) { ReadLines(text, reading); });
}

LogReading ReadLogFile(const std::string& path) noexcept {
  return ReadGuarded([&path](LogReading* reading) {
    std::string reason;
    const std::optional<std::string> bytes = ReadBytes(PathOf(path), &reason);
    if (bytes) {
      ReadLines(*bytes, reading);
    } else {
      AddProblem(reading, kWholeFile, reason);
    }
  });
}

}  // namespace harvane
