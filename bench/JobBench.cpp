// job_bench --input FILE --channels N --rate HZ [options]
// Runs one whole job on raw 16-bit samples in memory, through the sixteen exports, and prints the
// processor seconds of each pass.
//
//   --groups F,F..    format numbers of the groups (default 2: one stereo track)
//   --analysis        the first pass of two, and no second
//   --target LUFS     default -14: the limiter works
//   --unit FRAMES     default 4096
//   --repeat N        the input N times over in each pass
//   --kernels NAME    plain, SSE2, AVX2+FMA; default: the best of this processor
//   --module FILE     a module file in place of the linked one; then without --kernels
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/RawSamples.h"
#include "host/HostSession.h"
#include "measurement/ChunkKernels.h"
#include "tests/support/ParameterDocuments.h"
#ifdef _WIN32
#include <windows.h>
#endif

namespace bench {

// What callgrind is told to count: a job's passes and nothing around them.
__attribute__((noinline)) std::size_t RunPass(harvane::HostSession* session, unsigned pass,
                                              const std::vector<std::int16_t>& samples,
                                              std::size_t channels, std::size_t unitFrames,
                                              int repeat, std::vector<std::int16_t>* output) {
  const std::size_t frames = samples.size() / channels;
  std::size_t outputSamples = 0;
  session->StartPass(pass);
  for (int round = 0; round < repeat; ++round) {
    for (std::size_t first = 0; first < frames; first += unitFrames) {
      const std::size_t count = frames - first < unitFrames ? frames - first : unitFrames;
      output->clear();
      session->Deliver(samples.data() + first * channels, static_cast<std::uint32_t>(count),
                       output);
      outputSamples += output->size();
    }
  }
  session->EndPass();
  return outputSamples;
}

}  // namespace bench

namespace {

// Processor time of this thread in seconds.
double ThreadSeconds() {
#ifdef _WIN32
  FILETIME created;
  FILETIME ended;
  FILETIME kernel;
  FILETIME user;
  GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user);
  const auto ticks = [](const FILETIME& t) {
    return static_cast<double>((std::uint64_t{t.dwHighDateTime} << 32) | t.dwLowDateTime);
  };
  return 1e-7 * (ticks(kernel) + ticks(user));
#else
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
#endif
}

struct Options {
  std::string input;
  std::size_t channels = 2;
  unsigned rate = 48000;
  std::vector<std::string> groups = {"2"};
  std::string target = "-14";
  std::size_t unitFrames = 4096;
  int repeat = 1;
  bool isAnalysis = false;
  std::string kernels;
  std::string module;
};

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t comma = 0; comma != std::string::npos; start = comma + 1) {
    comma = text.find(',', start);
    parts.push_back(text.substr(start, comma - start));
  }
  return parts;
}

Options Read(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    if (name == "--analysis") {
      options.isAnalysis = true;
      continue;
    }
    if (i + 1 == argc) throw std::invalid_argument(name + " needs a value");
    const std::string value = argv[++i];
    if (name == "--input") {
      options.input = value;
    } else if (name == "--channels") {
      options.channels = std::stoul(value);
    } else if (name == "--rate") {
      options.rate = static_cast<unsigned>(std::stoul(value));
    } else if (name == "--groups") {
      options.groups = Split(value);
    } else if (name == "--target") {
      options.target = value;
    } else if (name == "--unit") {
      options.unitFrames = std::stoul(value);
    } else if (name == "--repeat") {
      options.repeat = std::stoi(value);
    } else if (name == "--kernels") {
      options.kernels = value;
    } else if (name == "--module") {
      options.module = value;
    } else {
      throw std::invalid_argument("unknown option " + name);
    }
  }
  if (options.input.empty()) throw std::invalid_argument("--input is missing");
  if (!options.kernels.empty() && !options.module.empty()) {
    throw std::invalid_argument("a module file chooses its kernels itself");
  }
  return options;
}

void Force(const std::string& name) {
  int count = 0;
  const harvane::ChunkKernels* const* const all = harvane::AvailableKernels(&count);
  for (int k = 0; k < count; ++k) {
    if (name == all[k]->name) return harvane::ForceKernels(all[k]);
  }
  throw std::invalid_argument("this processor has no kernels " + name);
}

std::string Document(const Options& options) {
  support::ParameterTexts texts;
  texts.numberOfGroups = std::to_string(options.groups.size());
  for (std::size_t g = 0; g < options.groups.size(); ++g) texts.formats[g] = options.groups[g];
  texts.Loudness = options.target;
  texts.logPath = ".";
  texts.logFileName = "job-bench";
  return support::ParameterDocument(texts);
}

int Run(const Options& options) {
  if (!options.kernels.empty()) Force(options.kernels);
  std::unique_ptr<harvane::LoadedModule> loaded;
  if (!options.module.empty()) loaded = std::make_unique<harvane::LoadedModule>(options.module);
  const std::vector<std::int16_t> samples = bench::ReadRawSamples(options.input);
  std::vector<std::int16_t> output;
  harvane::HostSession session(loaded ? loaded->Exports() : harvane::LinkedModuleExports());
  session.Configure(Document(options),
                    {options.rate, static_cast<std::uint32_t>(options.channels), {}});
  session.StartSequence();
  for (unsigned pass = 0; pass < (options.isAnalysis ? 1U : 2U); ++pass) {
    const double start = ThreadSeconds();
    bench::RunPass(&session, pass, samples, options.channels, options.unitFrames, options.repeat,
                   &output);
    std::printf("%s%.6f", pass == 0 ? "" : " ", ThreadSeconds() - start);
  }
  std::printf("\n");
  session.EndSequence();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(Read(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "job_bench: %s\n", error.what());
    return 2;
  }
}
