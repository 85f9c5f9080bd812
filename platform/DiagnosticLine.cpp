#include "platform/DiagnosticLine.h"

namespace harvane {

void WriteDiagnosticLine(const juce::String& line) {
#ifndef _WIN32
  if (juce::Logger::getCurrentLogger() == nullptr) return;
#endif
  juce::Logger::writeToLog(line);
}

}  // namespace harvane
