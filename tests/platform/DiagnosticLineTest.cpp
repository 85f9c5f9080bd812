#include "platform/DiagnosticLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/KeepsLines.h"

namespace harvane {
namespace {

TEST(DiagnosticLine, GoesToTheLogger) {
  support::KeepsLines logger;
  WriteDiagnosticLine("one");
  WriteDiagnosticLine(juce::String::fromUTF8("\xC3\xA4"));
  EXPECT_EQ(logger.lines, (std::vector<std::string>{"one", "\xC3\xA4"}));
}

TEST(DiagnosticLine, WithoutALoggerNothingReachesStandardError) {
  testing::internal::CaptureStderr();
  WriteDiagnosticLine("one");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace harvane
