#ifndef HARVANE_TESTS_MEASUREMENT_FAILINGALLOCATIONS_H
#define HARVANE_TESTS_MEASUREMENT_FAILINGALLOCATIONS_H

#include <cstddef>
#include <new>

namespace measurement_tests {

// While one lives, operator new of this program succeeds `allowed` times and then throws
// std::bad_alloc. One at a time; no assertion of GoogleTest inside its life.
class FailingAllocations {
 public:
  explicit FailingAllocations(std::size_t allowed);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
};

// True if `work` came to its end with only `allowed` allocations, false if it threw std::bad_alloc.
template <class Work>
bool SucceedsWithAllocations(std::size_t allowed, Work work) {
  const FailingAllocations failing(allowed);
  try {
    work();
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// Runs `work(allowed)` with 0, 1, 2 ... until one succeeds: the number of failed runs.
template <class Work>
std::size_t FailuresUntilSuccess(Work work) {
  std::size_t allowed = 0;
  while (!work(allowed)) ++allowed;
  return allowed;
}

}  // namespace measurement_tests

#endif  // HARVANE_TESTS_MEASUREMENT_FAILINGALLOCATIONS_H
