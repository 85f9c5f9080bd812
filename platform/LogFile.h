#ifndef HARVANE_PLATFORM_LOGFILE_H
#define HARVANE_PLATFORM_LOGFILE_H

#include "platform/JuceCore.h"

namespace harvane {

// A log file that is trimmed, then appended to; opened and closed for each message.
//
// As juce::FileLogger, but with no banner where there is no welcome text: today's
// juce::FileLogger writes one whenever it is made, and rows would stand apart.
//
// Errors     none: where the file cannot be made, opened or written, nothing happens.
// Thread     one caller at a time.
class LogFile {
 public:
  // Trims `file` to `maxBytes` from its end, to a line border. Makes the file,
  // and the folders over it, if it does not exist. A `welcome` that is not
  // empty is written in a banner with the start time.
  LogFile(const juce::File& file, const juce::String& welcome, juce::int64 maxBytes);

  // Appends `message` and CR LF.
  void LogMessage(const juce::String& message);

 private:
  juce::File file;
};

}  // namespace harvane

#endif  // HARVANE_PLATFORM_LOGFILE_H
