#ifndef HARVANE_TESTS_SUPPORT_TESTMAIN_H
#define HARVANE_TESTS_SUPPORT_TESTMAIN_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace support {

// Seeds of a property test: `normal` of them from 1 on, or what the test program's own options say:
//   --cases=N  N cases in place of each property's own number
//   --seed=S   the first seed
struct SeedRange {
  std::uint64_t first;
  std::uint64_t count;
};
SeedRange SeedsFor(std::uint64_t normal);

// Calls `run(seed)` for each seed, up to the first one that fails. A failure shows the options that
// repeat it alone.
template <class Case>
void ForEachSeed(std::uint64_t normal, Case run) {
  const SeedRange seeds = SeedsFor(normal);
  for (std::uint64_t seed = seeds.first; seed != seeds.first + seeds.count; ++seed) {
    SCOPED_TRACE("repeat with --cases=1 --seed=" + std::to_string(seed));
    run(seed);
    if (testing::Test::HasFailure()) return;
  }
}

// How long a test that runs by the clock takes: `normal` seconds, or what the option
//   --seconds=T  T seconds in place of each such test's own time
// says.
double SecondsFor(double normal);

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_TESTMAIN_H
