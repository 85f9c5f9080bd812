#include "host/LogPlace.h"

#include "logging/LogRow.h"

namespace harvane {

std::string LogFileFor(const JobParameters& parameters, const juce::Time& now) {
  const juce::File folder = parameters.logPath.empty()
                                ? juce::File::getSpecialLocation(juce::File::userDocumentsDirectory)
                                      .getChildFile("HarvaneLogs")
                                : juce::File(juce::String::fromUTF8(parameters.logPath.c_str()));
  const juce::String stem = parameters.logFileName.empty()
                                ? DatedFileStem("Log", now)
                                : juce::String::fromUTF8(parameters.logFileName.c_str());
  return (folder.getFullPathName() + juce::File::getSeparatorString() + stem + ".csv")
      .toStdString();
}

}  // namespace harvane
