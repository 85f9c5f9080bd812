#include "tool/results/ResultJson.h"

#include <fmt/format.h>
#include <utf8.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "tool/results/ResultNames.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

using Json = nlohmann::ordered_json;

// ---- writing -------------------------------------------------------------------------------

Json OrNull(const std::optional<double>& value) {
  return value && std::isfinite(*value) ? Json(*value) : Json();
}

double OrZero(double value) { return std::isfinite(value) ? value : 0.0; }

Json OrNull(const std::optional<PeakValue>& peak) {
  if (!peak || !std::isfinite(peak->value)) return {};
  return {{"value", peak->value}, {"seconds", OrZero(peak->seconds)}};
}

Json JsonOf(const TrackValues& values) {
  return {{"integratedLoudness", OrNull(values.integratedLoudness)},
          {"loudnessRange", OrNull(values.loudnessRange)},
          {"maxTruePeak", OrNull(values.maxTruePeak)},
          {"maxShortTerm", OrNull(values.maxShortTerm)},
          {"maxMomentary", OrNull(values.maxMomentary)}};
}

Json JsonOf(const std::vector<std::optional<float>>& values) {
  Json list = Json::array();
  for (const std::optional<float>& value : values) {
    list.push_back(value && std::isfinite(*value) ? Json(ShortestDouble(*value)) : Json());
  }
  return list;
}

Json JsonOf(const LoudnessSeries& series) {
  return {{"momentaryStep", OrZero(series.momentaryStep)},
          {"shortTermStep", OrZero(series.shortTermStep)},
          {"momentary", JsonOf(series.momentary)},
          {"shortTerm", JsonOf(series.shortTerm)}};
}

Json JsonOf(const Convergence& convergence) {
  return {{"jobs", convergence.jobs},
          {"reached", convergence.isReached},
          {"missedLu", OrZero(convergence.missedLu)},
          {"loudness", OrZero(convergence.loudness)},
          {"maxTruePeak", OrZero(convergence.maxTruePeak)}};
}

Json JsonOf(const RuleVerdict& rule) {
  return {{"rule", rule.rule},
          {"wanted", rule.wanted},
          {"value", OrNull(rule.value)},
          {"excess", OrNull(rule.excess)},
          {"verdict", NameOf(rule.verdict)}};
}

Json JsonOf(const TrackResult& track);
Json JsonOf(const FileResult& file);

template <class Record>
Json JsonOf(const std::optional<Record>& record) {
  return record ? JsonOf(*record) : Json();
}

template <class Record>
Json ListOf(const std::vector<Record>& records) {
  Json list = Json::array();
  for (const Record& record : records) list.push_back(JsonOf(record));
  return list;
}

Json JsonOf(const TrackResult& track) {
  return {{"firstChannel", track.firstChannel},
          {"lastChannel", track.lastChannel},
          {"channelOrder", track.channelOrder},
          {"layout", track.layout},
          {"action", NameOf(track.action)},
          {"before", JsonOf(track.before)},
          {"after", JsonOf(track.after)},
          {"gainDb", OrNull(track.gainDb)},
          {"limited", track.isLimited},
          {"delayFrames", track.delayFrames},
          {"convergence", JsonOf(track.convergence)},
          {"crossCheck", JsonOf(track.crossCheck)},
          {"verdicts", ListOf(track.verdicts)},
          {"seriesBefore", JsonOf(track.seriesBefore)},
          {"seriesAfter", JsonOf(track.seriesAfter)}};
}

std::string HexOf(const std::string& bytes) {
  std::string hex;
  for (const char byte : bytes) hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return hex;
}

void PutName(const std::string& key, const std::string& name, Json* object) {
  (*object)[key] = name;
  if (!utf8::is_valid(name.begin(), name.end())) (*object)[key + "Bytes"] = HexOf(name);
}

Json JsonOf(const FileResult& file) {
  Json object;
  PutName("input", file.input, &object);
  PutName("output", file.output, &object);
  object["status"] = NameOf(file.status);
  object["error"] = file.error;
  object["sampleRate"] = file.sampleRate;
  object["channels"] = file.channels;
  object["frames"] = file.frames;
  object["layout"] = file.layout;
  object["reduction"] = file.reduction;
  object["notes"] = file.notes;
  object["wallSeconds"] = OrZero(file.wallSeconds);
  object["verdict"] = HasVerdicts(file) ? Json(NameOf(VerdictOf(file))) : Json();
  object["tracks"] = ListOf(file.tracks);
  return object;
}

// Without its files.
Json HeadOf(const RunResult& run) {
  return {{"command", run.command},
          {"preset", run.preset},
          {"version", run.version},
          {"targetLoudness", OrNull(run.targetLoudness)},
          {"toleranceLu", OrNull(run.toleranceLu)},
          {"maxTruePeak", OrNull(run.maxTruePeak)}};
}

std::string Compact(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool IsFlat(const Json& value) {
  for (const Json& element : value) {
    if (element.is_structured()) return false;
  }
  return true;
}

// Indented, with lists of plain values and small records on one line: a series has a million.
void AppendIndented(const Json& value, std::size_t depth, std::string* text) {
  constexpr std::size_t kIndent = 2;
  constexpr std::size_t kSmall = 2;
  const bool isObject = value.is_object();
  if (!value.is_structured() || value.empty() ||
      (IsFlat(value) && (!isObject || value.size() <= kSmall))) {
    *text += Compact(value);
    return;
  }
  *text += isObject ? '{' : '[';
  const char* separator = "\n";
  for (const auto& item : value.items()) {
    *text += separator;
    text->append((depth + 1) * kIndent, ' ');
    if (isObject) *text += Compact(item.key()) + ": ";
    AppendIndented(item.value(), depth + 1, text);
    separator = ",\n";
  }
  *text += '\n';
  text->append(depth * kIndent, ' ');
  *text += isObject ? '}' : ']';
}

// ---- reading -------------------------------------------------------------------------------

// A JSON object whose keys are asked for, with the way to it for the messages.
class Object {
 public:
  Object(const Json& value, std::string place) : value(value), place(std::move(place)) {
    if (!value.is_object()) throw ResultError(this->place + " is no object");
  }

  bool Has(const char* key) const { return value.contains(key); }
  std::string PlaceOf(const char* key) const { return place + "." + key; }

  const Json& At(const char* key) const {
    const auto found = value.find(key);
    if (found == value.end()) throw ResultError(fmt::format("{} has no \"{}\"", place, key));
    return *found;
  }

  std::string Text(const char* key) const {
    const Json& text = At(key);
    if (!text.is_string()) Refuse(key, "text");
    return text.get<std::string>();
  }

  bool Flag(const char* key) const {
    const Json& flag = At(key);
    if (!flag.is_boolean()) Refuse(key, "true or false");
    return flag.get<bool>();
  }

  double Number(const char* key) const {
    const Json& number = At(key);
    if (!number.is_number()) Refuse(key, "number");
    return number.get<double>();
  }

  std::optional<double> NumberOrNull(const char* key) const {
    if (At(key).is_null()) return std::nullopt;
    return Number(key);
  }

  template <class Integer>
  Integer Whole(const char* key) const {
    const Json& number = At(key);
    using Limits = std::numeric_limits<Integer>;
    const bool fits =
        number.is_number_unsigned()
            ? number.get<std::uint64_t>() <= std::uint64_t{Limits::max()}
            : number.is_number_integer() && number.get<std::int64_t>() >= Limits::min();
    if (!fits) Refuse(key, "whole number in its range");
    return number.get<Integer>();
  }

  template <class Name>
  Name Named(const char* key) const {
    Name name;
    if (!FromName(Text(key), &name)) Refuse(key, "known word");
    return name;
  }

  const Json& List(const char* key) const {
    const Json& list = At(key);
    if (!list.is_array()) Refuse(key, "list");
    return list;
  }

  [[noreturn]] void Refuse(const char* key, const char* wanted) const {
    throw ResultError(PlaceOf(key) + " is no " + wanted);
  }

 private:
  const Json& value;
  std::string place;
};

void Read(const Object& object, PeakValue* peak) {
  peak->value = object.Number("value");
  peak->seconds = object.Number("seconds");
}

template <class Record>
Record RecordAt(const Object& object, const char* key) {
  Record record{};
  Read(Object(object.At(key), object.PlaceOf(key)), &record);
  return record;
}

template <class Record>
std::optional<Record> RecordOrNull(const Object& object, const char* key) {
  if (object.At(key).is_null()) return std::nullopt;
  return RecordAt<Record>(object, key);
}

template <class Record>
std::vector<Record> Records(const Object& object, const char* key) {
  std::vector<Record> records;
  for (const Json& element : object.List(key)) {
    records.emplace_back();
    Read(Object(element, fmt::format("{}[{}]", object.PlaceOf(key), records.size() - 1)),
         &records.back());
  }
  return records;
}

void Read(const Object& object, TrackValues* values) {
  values->integratedLoudness = object.NumberOrNull("integratedLoudness");
  values->loudnessRange = object.NumberOrNull("loudnessRange");
  values->maxTruePeak = RecordOrNull<PeakValue>(object, "maxTruePeak");
  values->maxShortTerm = RecordOrNull<PeakValue>(object, "maxShortTerm");
  values->maxMomentary = RecordOrNull<PeakValue>(object, "maxMomentary");
}

std::vector<std::optional<float>> Values(const Object& object, const char* key) {
  std::vector<std::optional<float>> values;
  for (const Json& element : object.List(key)) {
    if (element.is_null()) {
      values.emplace_back();
      continue;
    }
    if (!element.is_number()) object.Refuse(key, "list of numbers");
    const double value = element.get<double>();
    if (std::abs(value) > std::numeric_limits<float>::max()) object.Refuse(key, "list of levels");
    values.emplace_back(static_cast<float>(value));
  }
  return values;
}

void Read(const Object& object, LoudnessSeries* series) {
  series->momentaryStep = object.Number("momentaryStep");
  series->shortTermStep = object.Number("shortTermStep");
  series->momentary = Values(object, "momentary");
  series->shortTerm = Values(object, "shortTerm");
}

void Read(const Object& object, Convergence* convergence) {
  convergence->jobs = object.Whole<int>("jobs");
  convergence->isReached = object.Flag("reached");
  convergence->missedLu = object.Number("missedLu");
  convergence->loudness = object.Number("loudness");
  convergence->maxTruePeak = object.Number("maxTruePeak");
}

void Read(const Object& object, RuleVerdict* rule) {
  rule->rule = object.Text("rule");
  rule->wanted = object.Text("wanted");
  rule->value = object.NumberOrNull("value");
  rule->excess = object.NumberOrNull("excess");
  rule->verdict = object.Named<Verdict>("verdict");
}

void Read(const Object& object, TrackResult* track) {
  track->firstChannel = object.Whole<int>("firstChannel");
  track->lastChannel = object.Whole<int>("lastChannel");
  for (const Json& channel : object.List("channelOrder")) {
    if (!channel.is_number_integer() || channel.get<std::int64_t>() < 1 ||
        channel.get<std::int64_t>() > std::numeric_limits<int>::max()) {
      object.Refuse("channelOrder", "list of channels");
    }
    track->channelOrder.push_back(channel.get<int>());
  }
  track->layout = object.Text("layout");
  track->action = object.Named<TrackAction>("action");
  track->before = RecordAt<TrackValues>(object, "before");
  track->after = RecordOrNull<TrackValues>(object, "after");
  track->gainDb = object.NumberOrNull("gainDb");
  track->isLimited = object.Flag("limited");
  track->delayFrames = object.Whole<int>("delayFrames");
  track->convergence = RecordOrNull<Convergence>(object, "convergence");
  track->crossCheck = RecordOrNull<TrackValues>(object, "crossCheck");
  track->verdicts = Records<RuleVerdict>(object, "verdicts");
  track->seriesBefore = RecordOrNull<LoudnessSeries>(object, "seriesBefore");
  track->seriesAfter = RecordOrNull<LoudnessSeries>(object, "seriesAfter");
}

std::string FileName(const Object& object, const char* key) {
  const std::string bytesKey = std::string(key) + "Bytes";
  if (!object.Has(bytesKey.c_str())) return object.Text(key);
  const std::string hex = object.Text(bytesKey.c_str());
  const std::string digits = "0123456789abcdef";
  if (hex.size() % 2 != 0 || hex.find_first_not_of(digits) != std::string::npos) {
    object.Refuse(bytesKey.c_str(), "text of bytes in hexadecimal");
  }
  std::string name;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    name += static_cast<char>(digits.find(hex[i]) * digits.size() + digits.find(hex[i + 1]));
  }
  return name;
}

void Read(const Object& object, FileResult* file) {
  file->input = FileName(object, "input");
  file->output = FileName(object, "output");
  file->status = object.Named<FileStatus>("status");
  file->error = object.Text("error");
  file->sampleRate = object.Whole<int>("sampleRate");
  file->channels = object.Whole<int>("channels");
  file->frames = object.Whole<std::int64_t>("frames");
  file->layout = object.Text("layout");
  file->reduction = object.Text("reduction");
  for (const Json& note : object.List("notes")) {
    if (!note.is_string()) object.Refuse("notes", "list of texts");
    file->notes.push_back(note.get<std::string>());
  }
  file->wallSeconds = object.Number("wallSeconds");
  file->tracks = Records<TrackResult>(object, "tracks");
}

// All but the files.
void ReadHead(const Object& object, RunResult* run) {
  run->command = object.Text("command");
  run->preset = object.Text("preset");
  run->version = object.Text("version");
  run->targetLoudness = object.NumberOrNull("targetLoudness");
  run->toleranceLu = object.NumberOrNull("toleranceLu");
  run->maxTruePeak = object.NumberOrNull("maxTruePeak");
}

Json Parse(std::string_view text) {
  try {
    return Json::parse(text);
  } catch (const nlohmann::json::exception& failure) {
    // Without the number of the exception.
    const std::string message = failure.what();
    const std::size_t end = message.find("] ");
    throw ResultError(end == std::string::npos ? message : message.substr(end + 2));
  }
}

FileResult FileFrom(const Json& json) {
  FileResult file;
  Read(Object(json, "the file"), &file);
  return file;
}

RunResult RunFrom(const Json& json) {
  const Object object(json, "the run");
  RunResult run;
  ReadHead(object, &run);
  run.files = Records<FileResult>(object, "files");
  return run;
}

void ReadLine(std::string_view line, RunResult* run) {
  const Json json = Parse(line);
  run->files.push_back(FileFrom(json));
  const auto head = json.find("run");
  if (head != json.end()) ReadHead(Object(*head, "the file.run"), run);
}

bool IsBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// As opposed to lines of files. A run that is cut is known by its first line.
bool IsWholeRun(std::string_view text) {
  const std::string_view first = text.substr(0, text.find('\n'));
  if (first == "{" || first == "{\r") return true;
  const Json json = Json::parse(text, nullptr, false);
  return json.is_object() && json.contains("files");
}

}  // namespace

std::string ToJson(const RunResult& run) {
  Json object = HeadOf(run);
  object["exitCode"] = ExitCodeOf(run.files);
  object["files"] = ListOf(run.files);
  std::string text;
  AppendIndented(object, 0, &text);
  return text + "\n";
}

std::string ToJsonLine(const FileResult& file) { return Compact(JsonOf(file)) + "\n"; }

std::string ToJsonLine(const FileResult& file, const RunResult& run) {
  Json object = JsonOf(file);
  object["run"] = HeadOf(run);
  return Compact(object) + "\n";
}

FileResult FileResultFromJson(std::string_view text) { return FileFrom(Parse(text)); }

RunResult RunResultFromJson(std::string_view text) { return RunFrom(Parse(text)); }

ReadResults ReadJsonOrLines(std::string_view text) {
  ReadResults results;
  if (IsWholeRun(text)) {
    try {
      results.run = RunResultFromJson(text);
    } catch (const ResultError& error) {
      results.problems.emplace_back(error.what());
    }
    return results;
  }
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    try {
      if (end == std::string_view::npos) throw ResultError("its end is missing");
      if (!IsBlank(line)) ReadLine(line, &results.run);
    } catch (const ResultError& error) {
      results.problems.push_back(fmt::format("line {}: {}", number, error.what()));
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return results;
}

}  // namespace harvane
