#ifndef HARVANE_TESTS_SUPPORT_LIVEMEMORY_H
#define HARVANE_TESTS_SUPPORT_LIVEMEMORY_H

#include <cstdint>

namespace support {

// What operator new has given out in this program and operator delete has not taken back, on all
// threads. LiveMemory.cpp replaces both, so it goes into programs that ask for this alone.
struct LiveMemory {
  std::int64_t blocks;
  std::int64_t bytes;  // as asked for
  bool operator==(const LiveMemory&) const = default;
};
LiveMemory MemoryInUse();

// Throws std::logic_error where a block that comes and goes is not counted.
void CheckLiveMemory();

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_LIVEMEMORY_H
