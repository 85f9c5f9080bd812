// The main of a target where there is no libFuzzer: feeds it files, so that every input that was
// once a finding is tried in every build.
//
// usage: PROGRAM FILE|FOLDER...    a folder stands for the files in it, in the order of their names
//
// Each name goes to standard error before its file is fed: the last one is the one that failed.
// Status 0 when all were fed, 2 where there is nothing to feed.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using Paths = std::vector<std::filesystem::path>;

Paths InputsOf(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) return {path};
  Paths files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t fed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::filesystem::path& path : InputsOf(argv[i])) {
      std::fprintf(stderr, "%s\n", path.string().c_str());
      std::fflush(stderr);
      if (!std::filesystem::is_regular_file(path)) return 2;
      const std::string bytes = support::ReadBytes(path.string());
      // Exactly as large as the input, so that a read past its end shows.
      const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++fed;
    }
  }
  if (fed == 0) {
    std::fprintf(stderr, "usage: %s FILE|FOLDER...\n", argv[0]);
    return 2;
  }
  return 0;
}
