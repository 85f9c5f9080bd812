#include "tests/host/ModuleUnderTest.h"

#include <cstdio>

namespace hosttest {
namespace {

std::string modulePath;

}  // namespace

const std::string& ModulePath() { return modulePath; }

}  // namespace hosttest

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // A process with threads cannot be copied: a deadly job runs in a new one.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) == "--module") hosttest::modulePath = argv[i + 1];
  }
  if (hosttest::modulePath.empty() && !GTEST_FLAG_GET(list_tests)) {
    std::fprintf(stderr, "usage: %s --module PATH [GoogleTest's options]\n", argv[0]);
    return 2;
  }
  return RUN_ALL_TESTS();
}
