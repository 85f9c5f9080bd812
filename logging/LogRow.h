#ifndef HARVANE_LOGGING_LOGROW_H
#define HARVANE_LOGGING_LOGROW_H

#include <string>

#include "logging/LogMeasurement.h"
#include "platform/JuceCore.h"

namespace harvane {

// Texts of the CSV log: no file, no thread. UTF-8. Nothing is quoted or
// escaped: a comma in an entry name makes one field more.
// Errors: std::bad_alloc. Thread: any.

// Header line of a new file, with its LF.
juce::String LogHeader();

// One row with its LF: thirteen fields joined by "," without blanks.
// `frameRate` in video frames per second; 0 shows milliseconds.
juce::String LogRow(const std::string& entryName, const LogMeasurement& measurement, int frameRate);

// "JobAt_5:4:9": local time on the 12-hour clock, nothing padded.
std::string DefaultEntryName(const juce::Time& now);

// "Log7_Mar_2013" for the stem "Log": a file's name without its extension, in
// local time.
juce::String DatedFileStem(const juce::String& stem, const juce::Time& now);

// One decimal place after SampleMath::RoundToTenth; a value that rounds to 0
// has no sign. Outside -1e20 to 1e20, and for NaN, as "%.1f" in
// the C locale.
std::string Tenths(float value);

// "00:12:03:09": hours in two digits or more; the last field in two digits for
// frames, in three for milliseconds.
std::string TimeCodeText(const TimeCode& time, int frameRate);

// "Mono", "Stereo", "5.1", or "Unspecified".
const char* ChannelsFormat(int channelCount);

// `character` in front until the text has `width` characters.
std::string PadLeft(std::string text, std::size_t width, char character);

// Decimal digits.
std::string IntToText(int value);

}  // namespace harvane

#endif  // HARVANE_LOGGING_LOGROW_H
