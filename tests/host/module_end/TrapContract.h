#ifndef HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H
#define HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H

#include <string>

namespace support {

// What module_end_trap and the test that starts it agree on.
inline constexpr int kTrapStatus = 7;
inline constexpr char kTrapFile[] = "trap";      // stem of the log file
inline constexpr char kTrapEntry[] = "trapped";  // name of every row
inline constexpr int kTrapThreads = 10;

// The log of a storm goes over to the next file before any is trimmed: the stem of number `i`.
inline constexpr int kStormPassesPerFile = 100;
inline std::string StormFile(int i) { return kTrapFile + std::to_string(i); }

}  // namespace support

#endif  // HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H
