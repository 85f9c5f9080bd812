#include "tests/support/TestMain.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::uint64_t casesWanted = 0;  // 0: each property's own number
std::uint64_t firstSeed = 1;
std::uint64_t secondsWanted = 0;  // 0: each test's own time

bool ReadOption(const char* argument, const char* name, std::uint64_t* value) {
  const std::size_t length = std::strlen(name);
  if (std::strncmp(argument, name, length) != 0) return false;
  char* end = nullptr;
  *value = std::strtoull(argument + length, &end, 10);
  return end != argument + length && *end == '\0';
}

}  // namespace

namespace support {

SeedRange SeedsFor(std::uint64_t normal) {
  return {firstSeed, casesWanted != 0 ? casesWanted : normal};
}

double SecondsFor(double normal) {
  return secondsWanted != 0 ? static_cast<double>(secondsWanted) : normal;
}

}  // namespace support

#ifdef __SANITIZE_THREAD__
// A node of Boost's lock-free queue that was given back is read once more by a thread that came
// too late for it, while another makes it anew; what was read is thrown away, because the tag
// beside the pointer has moved on.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:boost::lockfree::detail::freelist_stack\n";
}
#endif

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    if (ReadOption(argv[i], "--cases=", &casesWanted)) continue;
    if (ReadOption(argv[i], "--seed=", &firstSeed)) continue;
    if (ReadOption(argv[i], "--seconds=", &secondsWanted)) continue;
    std::fprintf(stderr, "unknown option %s; own options: --cases=N --seed=S --seconds=T\n",
                 argv[i]);
    return 2;
  }
  return RUN_ALL_TESTS();
}
