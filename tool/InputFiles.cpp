#include "tool/InputFiles.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <istream>
#include <map>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/FileError.h"
#include "tool/CommonOptions.h"

namespace harvane {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, Container> kContainers = {
    {"wav", Container::kWav},   {"rf64", Container::kRf64}, {"w64", Container::kW64},
    {"aiff", Container::kAiff}, {"caf", Container::kCaf},   {"flac", Container::kFlac}};

std::string CheckSuffix(const std::string& text) {
  return text.find('/') == std::string::npos ? "" : "is part of a name, without a folder";
}

bool TakeNumber(const char** start, const char* end, std::size_t* number) {
  const auto [stop, error] = std::from_chars(*start, end, *number);
  *start = stop;
  return error == std::errc();
}

std::optional<Shard> ParseShard(const std::string& text) {
  Shard shard;
  const char* place = text.data();
  const char* const end = place + text.size();
  const bool isNumber = TakeNumber(&place, end, &shard.number) && place != end && *place++ == '/' &&
                        TakeNumber(&place, end, &shard.count) && place == end;
  if (!isNumber || shard.number < 1 || shard.number > shard.count) return std::nullopt;
  return shard;
}

std::string CheckShard(const std::string& text) {
  return ParseShard(text) ? "" : text + " is no part of a whole, like 2/5";
}

// The same text for every way to write one place.
class Places {
 public:
  // Of a name in its folder; a link is a place of its own.
  std::string OfName(const fs::path& path) {
    return OfFolder(path.parent_path()) + "/" + path.filename().string();
  }
  // Of what a name leads to, or will be.
  std::string OfFile(const fs::path& path) {
    std::error_code failure;
    if (!fs::is_symlink(path, failure)) return OfName(path);
    const fs::path resolved = fs::weakly_canonical(path, failure);
    return failure ? OfName(path) : resolved.string();
  }
  const std::string& OfFolder(const fs::path& folder) {
    const auto [entry, isNew] = folders.try_emplace(folder.string());
    if (isNew) {
      std::error_code failure;
      const fs::path resolved = fs::weakly_canonical(folder.empty() ? "." : folder, failure);
      entry->second = failure ? fs::absolute(folder).lexically_normal().string()  //
                              : resolved.string();
    }
    return entry->second;
  }

 private:
  std::unordered_map<std::string, std::string> folders;
};

// A file of the list and the folder that its output keeps.
struct Found {
  InputFile file;
  fs::path relativeFolder;
};

bool Matches(const std::string& pattern, const fs::path& belowFolder) {
  const bool isName = pattern.find('/') == std::string::npos;
  const std::string text = isName ? belowFolder.filename().string() : belowFolder.string();
  return fnmatch(pattern.c_str(), text.c_str(), FNM_CASEFOLD) == 0;
}

bool MatchesAny(const std::vector<std::string>& patterns, const fs::path& belowFolder) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& pattern) { return Matches(pattern, belowFolder); });
}

// Gathers the files of a run.
class Gathering {
 public:
  Gathering(const InputOptions& options, Places* places) : options(options), places(places) {
    if (!options.outputFolder.empty()) outputFolder = places->OfFolder(options.outputFolder);
  }

  void Take(const std::string& name) {
    std::error_code failure;
    if (options.isRecursive && fs::is_directory(name, failure)) {
      Walk(name, {});
    } else {
      Add(name, {}, "");
    }
  }

  std::vector<Found> Finish() { return std::move(found); }

 private:
  void Walk(const fs::path& folder, const fs::path& below) {
    const fs::path here = below.empty() ? folder : folder / below;
    std::error_code failure;
    std::vector<fs::directory_entry> entries;
    fs::directory_iterator entry(here, failure);
    while (!failure && entry != fs::directory_iterator()) {
      entries.push_back(*entry);
      entry.increment(failure);
    }
    if (failure) {
      Add(here, below, here.string() + ": cannot be listed: " + failure.message());
      return;
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
      return a.path().filename().native() < b.path().filename().native();
    });
    for (const fs::directory_entry& each : entries) Visit(folder, below, each);
  }

  void Visit(const fs::path& folder, const fs::path& below, const fs::directory_entry& entry) {
    const fs::path name = entry.path().filename();
    const fs::path inner = below / name;
    if (name.native().front() == '.' || MatchesAny(options.exclude, inner)) return;
    std::error_code failure;
    if (entry.is_directory(failure)) {
      const bool isEntered =
          !entry.is_symlink(failure) && places->OfFolder(entry.path()) != outputFolder;
      if (isEntered) Walk(folder, inner);
      return;
    }
    const bool isIncluded = options.include.empty() ? ContainerOfName(name.string()).has_value()
                                                    : MatchesAny(options.include, inner);
    if (isIncluded) Add(folder / inner, below, "");
  }

  void Add(const fs::path& path, const fs::path& below, const std::string& error) {
    if (!taken.insert(places->OfName(path)).second) return;
    found.push_back({{path.string(), "", error}, below});
  }

  const InputOptions& options;
  Places* places;
  std::string outputFolder;
  std::unordered_set<std::string> taken;
  std::vector<Found> found;
};

std::vector<std::string> NamesIn(const std::string& list, std::istream& in, bool isNullSeparated) {
  const std::string shown = list == "-" ? "standard input" : list;
  std::vector<std::string> names;
  std::string name;
  while (std::getline(in, name, isNullSeparated ? '\0' : '\n')) {
    if (!isNullSeparated) {
      if (name.find('\0') != std::string::npos) {
        throw UsageError(shown + ": holds NUL characters; --null would be right");
      }
      // From a list that was written on Windows.
      if (!name.empty() && name.back() == '\r') name.pop_back();
    }
    if (!name.empty()) names.push_back(name);
  }
  if (in.bad()) throw UsageError(shown + ": cannot be read");
  return names;
}

fs::path FolderBelowBase(const InputOptions& options, const std::string& input, Places* places) {
  const fs::path base = places->OfFolder(options.baseFolder);
  const fs::path below = fs::path(places->OfFolder(fs::path(input).parent_path()))  //
                             .lexically_relative(base);
  if (below.empty() || *below.begin() == "..") {
    throw UsageError(fmt::format("{}: is not in {}, which --base names", input,  //
                                 options.baseFolder));
  }
  return below == "." ? fs::path() : below;
}

std::string OutputFor(const InputOptions& options, const Found& found, Places* places) {
  if (!options.output.empty()) return options.output;
  const fs::path name = fs::path(found.file.input).filename();
  const bool isKnownEnding = ContainerOfName(name.string()).has_value();
  // What is no ending of an audio file belongs to the name.
  std::string outputName = (isKnownEnding ? name.stem() : name).string() + options.suffix;
  if (options.container) {
    outputName += EndingOf(*options.container);
  } else {
    outputName += isKnownEnding ? name.extension().string() : EndingOf(Container::kWav);
  }
  const fs::path below = options.baseFolder.empty()
                             ? found.relativeFolder
                             : FolderBelowBase(options, found.file.input, places);
  return (fs::path(options.outputFolder) / below / outputName).string();
}

void NameOutputs(const InputOptions& options, std::vector<Found>* files, Places* places) {
  if (!options.output.empty() && files->size() > 1) {
    throw UsageError(fmt::format("{} files cannot all become {}; a folder, with -d, would be right",
                                 files->size(), options.output));
  }
  std::error_code failure;
  if (!options.outputFolder.empty() && fs::exists(options.outputFolder, failure) &&
      !fs::is_directory(options.outputFolder, failure)) {
    throw UsageError(options.outputFolder + ": is not a folder");
  }
  std::unordered_map<std::string, const InputFile*> inputs;
  for (const Found& found : *files) inputs.emplace(places->OfFile(found.file.input), &found.file);
  std::unordered_map<std::string, const InputFile*> outputs;
  for (Found& found : *files) {
    InputFile& file = found.file;
    file.output = OutputFor(options, found, places);
    const std::string place = places->OfFile(file.output);
    if (const auto same = inputs.find(place); same != inputs.end()) {
      throw UsageError(
          fmt::format("{} would be written over by what becomes of {}; a --suffix or "
                      "another place would be right",
                      same->second->input, file.input));
    }
    const auto [other, isNew] = outputs.emplace(place, &file);
    if (!isNew) {
      throw UsageError(fmt::format("{} and {} would both become {}", other->second->input,
                                   file.input, file.output));
    }
    if (!options.isOverwriting && file.error.empty() && fs::exists(file.output, failure)) {
      file.error = file.output + ": is there already; --overwrite would be right";
    }
  }
}

void KeepShard(const Shard& shard, std::vector<Found>* files) {
  std::sort(files->begin(), files->end(),
            [](const Found& a, const Found& b) { return a.file.input < b.file.input; });
  std::size_t kept = 0;
  for (std::size_t i = shard.number - 1; i < files->size(); i += shard.count) {
    std::swap((*files)[kept++], (*files)[i]);
  }
  files->resize(kept);
}

}  // namespace

void AddInputOptions(CLI::App* command, InputOptions* options) {
  command->add_option("FILE", options->inputs, "Audio files, and folders with -r")
      ->check(CheckName)
      ->type_name("");
  command->add_flag("-r,--recursive", options->isRecursive,
                    "Take the audio files of folders and the folders in them");
  command
      ->add_option("--include", options->include,
                   "Take only these from folders: a pattern with *, ? and [...] for the name or, "
                   "with a slash, for the path below the folder")
      ->allow_extra_args(false)
      ->check(CheckName)
      ->type_name("PATTERN");
  command
      ->add_option("--exclude", options->exclude,
                   "Do not take these files and folders from folders")
      ->allow_extra_args(false)
      ->check(CheckName)
      ->type_name("PATTERN");
  CLI::Option* const list =
      command
          ->add_option("--files-from", options->filesFrom,
                       "Take the files that LIST names, one a line; - is standard input")
          ->allow_extra_args(false)
          ->check(CheckName)
          ->type_name("LIST");
  AddNull(command, list, &options->isNullSeparated);
  command
      ->add_option_function<std::string>(
          "--shard", [options](const std::string& text) { options->shard = ParseShard(text); },
          "Do part I of N of the sorted list: files I, I + N, I + 2N and so on")
      ->check(CheckShard)
      ->type_name("I/N");
}

void AddOutputOptions(CLI::App* command, InputOptions* options) {
  options->isWriting = true;
  CLI::Option* const file =
      command
          ->add_option("-o,--output", options->output,
                       "File to write; its kind by .wav, .rf64, .w64, .aif, .aiff, .caf or .flac, "
                       "else that of FILE")
          ->check(CheckName)
          ->type_name("OUT");
  CLI::Option* const folder =
      command
          ->add_option("-d,--output-folder", options->outputFolder,
                       "Folder to write to; what comes from folders keeps its place in them")
          ->check(CheckName)
          ->excludes(file)
          ->type_name("OUTDIR");
  command
      ->add_option("--base", options->baseFolder,
                   "With -d: keep the folders of all files as they are below BASE")
      ->check(CheckName)
      ->needs(folder)
      ->type_name("BASE");
  command->add_option("--suffix", options->suffix, "With -d: put between a name and its ending")
      ->check(CheckSuffix)
      ->needs(folder)
      ->type_name("TEXT");
  AddWords(command, "--container", &options->container, kContainers,
           "With -d: write wav, rf64, w64, aiff, caf or flac; else what FILE is")
      ->needs(folder)
      ->type_name("KIND");
  command->add_flag("--overwrite", options->isOverwriting, "Replace outputs that are there");
}

std::vector<std::string> NamesFrom(const std::string& list, bool isNullSeparated,
                                   std::istream& standardInput) {
  if (list == "-") return NamesIn(list, standardInput, isNullSeparated);
  std::ifstream file(list, std::ios::binary);
  if (!file) throw UsageError(list + ": cannot be opened");
  return NamesIn(list, file, isNullSeparated);
}

std::vector<std::string> ArgumentsForParsing(int argumentCount, const char* const* arguments) {
  std::vector<std::string> words;
  bool isBehindMark = false;
  for (int i = 1; i < argumentCount; ++i) {
    const std::string word = arguments[i];
    if (!isBehindMark && word == "--") {
      isBehindMark = true;
    } else {
      words.push_back(isBehindMark && word.starts_with('-') ? "./" + word : word);
    }
  }
  std::reverse(words.begin(), words.end());
  return words;
}

std::vector<InputFile> FilesOf(const InputOptions& options, std::istream& standardInput) {
  if (options.inputs.empty() && options.filesFrom.empty()) {
    throw UsageError("no file is named; FILE... or --files-from LIST would be right");
  }
  if (options.isWriting && options.output.empty() && options.outputFolder.empty()) {
    throw UsageError("no output is named; -o OUT or -d OUTDIR would be right");
  }
  Places places;
  Gathering gathering(options, &places);
  for (const std::string& name : options.inputs) gathering.Take(name);
  for (const std::string& list : options.filesFrom) {
    for (const std::string& name : NamesFrom(list, options.isNullSeparated, standardInput)) {
      gathering.Take(name);
    }
  }
  std::vector<Found> files = gathering.Finish();
  if (files.empty()) throw UsageError("there is no audio file in what was named");
  if (options.isWriting) NameOutputs(options, &files, &places);
  if (options.shard) KeepShard(*options.shard, &files);
  std::vector<InputFile> result;
  for (Found& found : files) result.push_back(std::move(found.file));
  return result;
}

void MakeFolderFor(const std::string& output) {
  const fs::path folder = fs::path(output).parent_path();
  if (folder.empty()) return;
  std::error_code failure;
  fs::create_directories(folder, failure);
  if (failure) throw FileError(folder.string(), "cannot be made: " + failure.message());
}

}  // namespace harvane
