#ifndef HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H
#define HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H

namespace support {

// What module_end_trap and the test that starts it agree on.
inline constexpr int kTrapStatus = 7;
inline constexpr char kTrapFile[] = "trap";      // stem of the log file
inline constexpr char kTrapEntry[] = "trapped";  // name of every row

}  // namespace support

#endif  // HARVANE_TESTS_HOST_MODULE_END_TRAPCONTRACT_H
