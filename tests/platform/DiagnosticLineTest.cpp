#include "platform/DiagnosticLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace harvane {
namespace {

class KeepsLines : public juce::Logger {
 public:
  KeepsLines() { setCurrentLogger(this); }
  ~KeepsLines() override { setCurrentLogger(nullptr); }
  std::vector<std::string> lines;

 protected:
  void logMessage(const juce::String& message) override { lines.push_back(message.toStdString()); }
};

TEST(DiagnosticLine, GoesToTheLogger) {
  KeepsLines logger;
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
