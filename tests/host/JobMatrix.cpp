// Runs whole jobs through the sixteen exports of a module and compares every output sample and
// every log row with the slow twin's.
//
//   job_matrix --module PATH [--digest FILE]           the fixed matrix of jobs
//   job_matrix --module PATH --random N [--seed S]     N random jobs
//
// --digest writes one line per job, "NAME OUTPUT ROWS", with checksums of both: two builds that
// give the same audio and the same rows write the same file.
// Exit status: 0 if everything is equal, 1 if anything differs, 2 for wrong arguments.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "tests/host/WholeJobs.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using hosttest::MatrixJob;
using hosttest::Outcome;
using hosttest::RandomJob;
using hosttest::RunModule;
using hosttest::RunTwin;
using hosttest::WholeJob;

// Loads the module for a number of jobs at a time: the rows are complete when it is unloaded.
class Comparison {
 public:
  Comparison(std::string modulePath, std::ostream* digest)
      : modulePath(std::move(modulePath)), digest(digest) {}

  // Each job is given once to Add; Finish ends the last batch.
  void Add(WholeJob job) {
    Outcome wanted = RunTwin(&job);
    if (module == nullptr) module = std::make_unique<harvane::LoadedModule>(modulePath);
    const std::string logFile = "job-" + std::to_string(jobs++);
    std::vector<std::int16_t> output;
    std::string problem;
    try {
      output = RunModule(module->Exports(), job, folder.Text(), logFile);
      problem = hosttest::Difference(wanted.output, output);
    } catch (const std::exception& failure) {
      problem = failure.what();
    }
    if (!problem.empty()) Report(job, problem);
    samples += output.size();
    rowsInBatch += wanted.rows.size();
    batch.push_back({std::move(job), std::move(wanted.rows), hosttest::Crc64(output), logFile});
    if (rowsInBatch >= kRowsPerBatch) Finish();
  }

  void Finish() {
    if (batch.empty()) return;
    hosttest::QueueFillerRows(module->Exports(), folder.Text(), static_cast<int>(rowsInBatch));
    module = nullptr;
    for (const Done& done : batch) {
      std::vector<std::string> rows;
      try {
        const std::string path = hosttest::LogFilePath(folder.Text(), done.logFile);
        if (!done.wantedRows.empty()) rows = hosttest::ReadRows(path);
        std::remove(path.c_str());
      } catch (const std::exception& failure) {
        Report(done.job, failure.what());
        continue;
      }
      const std::string problem = hosttest::Difference(done.wantedRows, rows);
      if (!problem.empty()) Report(done.job, problem);
      rowCount += rows.size();
      if (digest != nullptr) {
        *digest << done.job.name << ' ' << hosttest::Hex(done.output) << ' '
                << hosttest::Hex(hosttest::Crc64(rows)) << '\n';
      }
    }
    batch.clear();
    rowsInBatch = 0;
  }

  int Summary() const {
    std::printf("%d jobs, %llu output samples, %llu rows: %d differences\n", jobs,
                static_cast<unsigned long long>(samples), static_cast<unsigned long long>(rowCount),
                problems);
    return problems == 0 && jobs > 0 ? 0 : 1;
  }

 private:
  // A last drain has a second's time; under Wine a row takes milliseconds.
  static constexpr std::size_t kRowsPerBatch = 48;

  struct Done {
    WholeJob job;
    std::vector<std::string> wantedRows;
    std::uint64_t output;
    std::string logFile;
  };

  void Report(const WholeJob& job, const std::string& problem) {
    ++problems;
    std::printf("DIFFERS %s\n  %s\n", Describe(job).c_str(), problem.c_str());
    std::fflush(stdout);
  }

  std::string modulePath;
  std::ostream* digest;
  support::TemporaryFolder folder;
  std::unique_ptr<harvane::LoadedModule> module;
  std::vector<Done> batch;
  std::size_t rowsInBatch = 0;
  std::size_t samples = 0;
  std::size_t rowCount = 0;
  int jobs = 0;
  int problems = 0;
};

int Usage() {
  std::fprintf(stderr, "usage: job_matrix --module PATH [--digest FILE] [--random N [--seed S]]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string modulePath;
  std::string digestPath;
  int randomJobs = 0;
  std::uint64_t seed = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const char* const value = argv[i + 1];
    if (option == "--module") {
      modulePath = value;
    } else if (option == "--digest") {
      digestPath = value;
    } else if (option == "--random") {
      randomJobs = std::atoi(value);
    } else if (option == "--seed") {
      seed = std::strtoull(value, nullptr, 10);
    } else {
      return Usage();
    }
  }
  if (argc % 2 == 0 || modulePath.empty()) return Usage();

  try {
    std::ofstream digest;
    if (!digestPath.empty()) digest.open(digestPath, std::ios::binary);
    Comparison comparison(modulePath, digestPath.empty() ? nullptr : &digest);
    if (randomJobs > 0) {
      std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
      for (int i = 0; i < randomJobs; ++i) comparison.Add(RandomJob(seed, i));
    } else {
      for (int rate = 0; rate < hosttest::kMatrixRates; ++rate) {
        for (int variant = 0; variant < hosttest::kMatrixVariants; ++variant) {
          comparison.Add(MatrixJob(rate, variant));
        }
      }
    }
    comparison.Finish();
    digest.close();
    if (digest.fail() && !digestPath.empty()) {
      std::fprintf(stderr, "%s: cannot be written\n", digestPath.c_str());
      return 1;
    }
    return comparison.Summary();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
