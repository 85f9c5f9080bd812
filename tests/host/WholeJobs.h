#ifndef HARVANE_TESTS_HOST_WHOLEJOBS_H
#define HARVANE_TESTS_HOST_WHOLEJOBS_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/ModuleExports.h"
#include "tests/host/JobRunner.h"

namespace hosttest {

// What one instance goes through: each sequence is a list of pass numbers over its own signal.
struct Sequence {
  std::vector<std::uint32_t> passes;
  std::uint64_t signalSeed = 0;
  std::size_t frames = 0;
};

struct WholeJob {
  std::string name;
  twin::JobSpec spec;
  Delivery delivery;
  std::vector<Sequence> sequences;
};

struct Outcome {
  std::vector<std::int16_t> output;  // of all passes of all sequences
  std::vector<std::string> rows;
};

// Everything about a job in a line, for messages.
std::string Describe(const WholeJob& job);

// The signal of one sequence, interleaved.
std::vector<std::int16_t> SignalOf(const WholeJob& job, const Sequence& sequence);

// The output of all passes of all sequences; the rows go to `logFile` of `folder`, once the module
// writes them. Throws RuleBroken.
std::vector<std::int16_t> RunModule(const harvane::ModuleExports& exports, const WholeJob& job,
                                    const std::string& folder, const std::string& logFile);

// What the slow twin makes of the job. Cuts the job's plan off where it would end the process.
Outcome RunTwin(WholeJob* job);

inline constexpr int kMatrixRates = 6;
inline constexpr int kMatrixVariants = 12;

inline constexpr int kFirstRateWithoutPhases = 4;  // where a limiter ends the process

// The fixed matrix: twelve jobs at each of the six rates.
WholeJob MatrixJob(int rateIndex, int variant);

// Any job that a host could ask for.
WholeJob RandomJob(std::uint64_t seed, int index);

}  // namespace hosttest

#endif  // HARVANE_TESTS_HOST_WHOLEJOBS_H
