#ifndef HARVANE_TESTS_HOST_ENDURANCE_ENDURANCE_H
#define HARVANE_TESTS_HOST_ENDURANCE_ENDURANCE_H

#include <stdexcept>
#include <string>

// Long runs of the linked module through its sixteen exports. Each prints its figures; what is
// wrong is an EnduranceFailure.

namespace endurance {

class EnduranceFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void Require(bool isTrue, const std::string& what) {
  if (!isTrue) throw EnduranceFailure(what);
}

// Two passes over `minutes` >= 1 of stereo at 48000 Hz.
//
// Memory     grows by the lists of accepted blocks only: at most twice (8 bytes for each 400 ms
//            block and 12 for each 3 s block), as lists double.
// Results    those of the formulas worked out once over all blocks, to the bit; positions
//            beyond 2147483647 go on from -2147483648.
// Time       for a minute: reported, and at the end at most half more than at the start.
void RunProgramme(int minutes);

// `count` jobs one after another, every ninth closed without the end of its sequence: memory,
// handles and threads stay as they are after the first ones, but for the track objects of these.
void RunJobs(int count);

// `count` instances with jobs of `seconds` each: in turns unit by unit on one thread, then on
// eight threads. Each gives the samples and measurements that it gives alone.
void RunInstances(double seconds, int count);

}  // namespace endurance

#endif  // HARVANE_TESTS_HOST_ENDURANCE_ENDURANCE_H
