// Runs the fixed matrix of whole jobs through the linked module with each set of kernels that this
// processor has, and compares every output sample and every log row with those of the plain set.
//
//   kernel_matrix [--digest FILE]
//
// --digest writes what job_matrix writes: one line per job, "NAME OUTPUT ROWS".
// Exit status: 0 if everything is equal, 1 if anything differs, 2 for wrong arguments.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "delay_audio/PassObserver.h"
#include "measurement/ChunkKernels.h"
#include "tests/host/WholeJobs.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using hosttest::Outcome;
using hosttest::WholeJob;

Outcome RunWith(const harvane::ChunkKernels& kernels, const WholeJob& job) {
  const support::TemporaryFolder folder;
  Outcome outcome;
  harvane::ForceKernels(&kernels);
  outcome.output = hosttest::RunModule(harvane::LinkedModuleExports(), job, folder.Text(), "rows");
  harvane::ForceKernels(nullptr);
  harvane::WriteWaitingLogRows();
  outcome.rows = hosttest::ReadRows(hosttest::LogFilePath(folder.Text(), "rows"));
  return outcome;
}

// Counts what differs among the sets, and says it.
int Compare(const WholeJob& job, std::ostream* digest) {
  int count = 0;
  int problems = 0;
  const harvane::ChunkKernels* const* const sets = harvane::AvailableKernels(&count);
  const Outcome plain = RunWith(*sets[0], job);
  for (int k = 1; k < count; ++k) {
    const Outcome fast = RunWith(*sets[k], job);
    std::string problem = hosttest::Difference(plain.output, fast.output);
    if (problem.empty()) problem = hosttest::Difference(plain.rows, fast.rows);
    if (problem.empty()) continue;
    ++problems;
    std::printf("DIFFERS with %s: %s\n  %s\n", sets[k]->name, hosttest::Describe(job).c_str(),
                problem.c_str());
  }
  *digest << job.name << ' ' << hosttest::Hex(hosttest::Crc64(plain.output)) << ' '
          << hosttest::Hex(hosttest::Crc64(plain.rows)) << '\n';
  return problems;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 1 && (argc != 3 || std::strcmp(argv[1], "--digest") != 0)) {
    std::fprintf(stderr, "usage: kernel_matrix [--digest FILE]\n");
    return 2;
  }
  try {
    std::ofstream digest;
    if (argc == 3) digest.open(argv[2], std::ios::binary);
    int problems = 0;
    for (int rate = 0; rate < hosttest::kMatrixRates; ++rate) {
      for (int variant = 0; variant < hosttest::kMatrixVariants; ++variant) {
        WholeJob job = hosttest::MatrixJob(rate, variant);
        if (rate >= hosttest::kFirstRateWithoutPhases) hosttest::RunTwin(&job);
        problems += Compare(job, &digest);
      }
    }
    digest.close();
    if (argc == 3 && digest.fail()) {
      std::fprintf(stderr, "%s: cannot be written\n", argv[2]);
      return 1;
    }
    int count = 0;
    harvane::AvailableKernels(&count);
    std::printf("%d jobs with each of %d sets of kernels: %d differences\n",
                hosttest::kMatrixRates * hosttest::kMatrixVariants, count, problems);
    return problems == 0 && count > 1 ? 0 : 1;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
