#include "platform/LogFile.h"

namespace harvane {
namespace {

constexpr std::size_t kStreamBufferBytes = 256;

}  // namespace

LogFile::LogFile(const juce::File& file, const juce::String& welcome, juce::int64 maxBytes)
    : file(file) {
  if (welcome.isNotEmpty()) {
    const juce::FileLogger banner(file, welcome, maxBytes);
    return;
  }
  juce::FileLogger::trimFileSize(file, maxBytes);
  if (!file.exists()) file.create();
}

void LogFile::LogMessage(const juce::String& message) {
  juce::FileOutputStream out(file, kStreamBufferBytes);
  out << message << juce::newLine;
}

}  // namespace harvane
