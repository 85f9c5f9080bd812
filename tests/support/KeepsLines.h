#ifndef HARVANE_TESTS_SUPPORT_KEEPSLINES_H
#define HARVANE_TESTS_SUPPORT_KEEPSLINES_H

#include <string>
#include <vector>

#include "platform/JuceCore.h"

namespace support {

// The juce::Logger of its lifetime: keeps all lines, in order. One at a time.
class KeepsLines : public juce::Logger {
 public:
  KeepsLines() { setCurrentLogger(this); }
  ~KeepsLines() override { setCurrentLogger(nullptr); }

  std::vector<std::string> lines;  // UTF-8

 protected:
  void logMessage(const juce::String& message) override { lines.push_back(message.toStdString()); }
};

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_KEEPSLINES_H
