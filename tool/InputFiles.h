#ifndef HARVANE_TOOL_INPUTFILES_H
#define HARVANE_TOOL_INPUTFILES_H

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/AudioFile.h"

namespace CLI {
class App;
}

namespace harvane {

// What the user asked for cannot be begun: one line, without the program's name.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The part of a run that one of several machines does.
struct Shard {
  std::size_t number = 1;  // 1 to `count`
  std::size_t count = 1;
};

// Which files a run takes, and where it writes to, as the command line says.
struct InputOptions {
  std::vector<std::string> inputs;     // files and, with isRecursive, folders
  std::vector<std::string> filesFrom;  // files with names in them; "-" is standard input
  bool isNullSeparated = false;        // the names in those; else one a line
  bool isRecursive = false;
  std::vector<std::string> include;  // patterns for what folders hold; empty: audio by its ending
  std::vector<std::string> exclude;
  std::optional<Shard> shard;

  bool isWriting = false;              // set by AddOutputOptions; the rest counts only then
  std::string output;                  // -o: of the only file
  std::string outputFolder;            // -d: or a folder for any number
  std::string baseFolder;              // the outputs' folders repeat what the inputs' are below it
  std::string suffix;                  // between the name and its ending
  std::optional<Container> container;  // empty: the input's ending stays, or becomes .wav
  bool isOverwriting = false;
};

// Adds the options of every command that takes files: FILE..., -r, --include, --exclude,
// --files-from, -0, --shard. `options` must outlive `command`.
void AddInputOptions(CLI::App* command, InputOptions* options);

// And those of a command that writes: -o, -d, --base, --suffix, --container, --overwrite.
void AddOutputOptions(CLI::App* command, InputOptions* options);

// The names in `list`, or in `standardInput` where it is "-": one a line or, with
// `isNullSeparated`, one up to each NUL character. Empty ones do not count. Errors: UsageError.
std::vector<std::string> NamesFrom(const std::string& list, bool isNullSeparated,
                                   std::istream& standardInput);

// A program's arguments without its name, last one first, as CLI::App::parse takes them. What
// stands behind "--" is a file whatever its name begins with: "-x.wav" becomes "./-x.wav" and the
// mark itself goes, for CLI11 forgets it at the end of a command's positionals.
std::vector<std::string> ArgumentsForParsing(int argumentCount, const char* const* arguments);

// One file of a run.
struct InputFile {
  std::string input;   // as it was given, or the folder as it was given and what is below it
  std::string output;  // empty where nothing is written
  std::string error;   // why it cannot be worked on, where that is known already; else empty
};

// The files of the run, each once. What does not exist, is a folder without -r, or is a folder
// that cannot be listed stays in the list as a file that will fail: it costs no other its turn.
//
// Order      as given; what a folder holds by the bytes of its names, files and folders alike.
//            With a shard the whole list is sorted by the bytes of `input` first, and file i of
//            it, from 0, is of shard i mod count + 1: the same on every machine that sees the
//            same names, in whatever order a list has them.
// Twice      the same name in the same folder, however the folder is written; the first stays.
//            Links to one file are several.
// Folders    links to folders are not followed, hidden names and the output folder are passed
//            over. A pattern has *, ? and [...]; without a slash it stands for a name, else for
//            the path below the folder, where * also stands for slashes. The case of ASCII
//            letters does not matter. An excluded folder is not entered. Patterns do not touch
//            files that were named.
// Outputs    OUTDIR / folder below the given one (or below baseFolder) / name + suffix + ending.
//            One that exists is an error of its file, unless isOverwriting.
// Errors     UsageError: no file at all (an empty shard is fine), a list that cannot be read,
//            no output or several files for -o, two inputs with one output, an output that is
//            an input. These are looked for over all shards. Nothing is written or made.
// `standardInput` is what "-" reads.
std::vector<InputFile> FilesOf(const InputOptions& options, std::istream& standardInput);

// Makes the folders that `output` lies in, where they are missing. Throws FileError.
void MakeFolderFor(const std::string& output);

}  // namespace harvane

#endif  // HARVANE_TOOL_INPUTFILES_H
