#ifndef HARVANE_TESTS_HOST_JOBRUNNER_H
#define HARVANE_TESTS_HOST_JOBRUNNER_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/ModuleExports.h"
#include "tests/support/CountedRecords.h"
#include "tests/support/twin/Job.h"

namespace hosttest {

// How a pass hands its audio over.
struct Delivery {
  std::vector<std::uint32_t> unitFrames = {1024};  // lengths of the units, in turn
  support::Arrangement arrangement = support::Arrangement::kInterleaved;
  int fetchEvery = 1;  // fetches after each so many units, and at the end
};

// What a module did against the rules of the boundary.
class RuleBroken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The parameter document of a job. An empty `logPath` leaves log folder and file to the module.
std::string DocumentFor(const twin::JobSpec& spec, const std::string& logPath,
                        const std::string& logFileName);

// The format blob of a job.
support::Blob BlobFor(const twin::JobSpec& spec);

// One instance of a module with a job set, through the sixteen exports only. Every call's result
// code and out-flag, and every record's releases, are checked: RuleBroken says what was wrong.
class JobRunner {
 public:
  // `exports` must outlive the runner.
  JobRunner(const harvane::ModuleExports& exports, const twin::JobSpec& spec,
            const std::string& logPath, const std::string& logFileName);
  // Closes the instance, without ending a sequence.
  ~JobRunner();
  JobRunner(const JobRunner&) = delete;
  JobRunner& operator=(const JobRunner&) = delete;

  void StartSequence();
  // Interleaved output of the whole pass; empty in the first pass of two.
  std::vector<std::int16_t> RunPass(std::uint32_t passNumber,
                                    const std::vector<std::int16_t>& interleaved,
                                    const Delivery& delivery);
  void EndSequence();

  // The parts of RunPass, for passes that run side by side.
  void StartPass(std::uint32_t passNumber);
  void Deliver(const std::int16_t* interleaved, std::uint32_t frames,
               support::Arrangement arrangement);
  void Fetch(std::vector<std::int16_t>* output);
  void EndPass();

  void* Handle() const { return handle; }

 private:
  const harvane::ModuleExports& exports;
  twin::JobSpec spec;
  void* handle = nullptr;
  std::uint32_t currentPass = 0;
};

// The rows of a log file that the module made, without their line ends. Throws RuleBroken where
// the file does not begin with a banner, or a row does not end as rows do.
std::vector<std::string> ReadRows(const std::string& path);

// Where the module puts the log `fileStem` of `folder`.
std::string LogFilePath(const std::string& folder, const std::string& fileStem);

// Queues at least `count` rows of no interest behind those that wait. The module's last drain
// writes the older half of its queue: with as many rows behind them, all that matter are written
// when the module is unloaded.
void QueueFillerRows(const harvane::ModuleExports& exports, const std::string& folder, int count);

// CRC-64/XZ.
std::uint64_t Crc64(const void* bytes, std::size_t size);
std::uint64_t Crc64(const std::vector<std::int16_t>& samples);
std::uint64_t Crc64(const std::vector<std::string>& rows);
std::string Hex(std::uint64_t value);

// Index of the first difference, or "lengths 3 and 4", or empty.
std::string Difference(const std::vector<std::int16_t>& wanted,
                       const std::vector<std::int16_t>& got);
std::string Difference(const std::vector<std::string>& wanted, const std::vector<std::string>& got);

}  // namespace hosttest

#endif  // HARVANE_TESTS_HOST_JOBRUNNER_H
