#ifndef HARVANE_TESTS_SUPPORT_PROCESSUSE_H
#define HARVANE_TESTS_SUPPORT_PROCESSUSE_H

#include <cstdint>

namespace support {

// What this process holds of the system's.
struct ProcessUse {
  std::int64_t residentBytes;
  int handles;  // open files; on Windows the place of the first free handle of any kind
  int threads;
};
ProcessUse UseOfProcess();

// Processor time of the calling thread in seconds.
double ThreadSeconds();

// False where a sanitizer keeps what was freed, so that the resident bytes tell nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kResidentBytesTell = false;
#else
inline constexpr bool kResidentBytesTell = true;
#endif

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_PROCESSUSE_H
