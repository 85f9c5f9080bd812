#include "logging/LogRow.h"

#include <charconv>
#include <cmath>
#include <iterator>
#include <locale>
#include <sstream>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr double kPlainDigitsLimit = 1e20;
constexpr std::size_t kFixedTextBytes = 64;  // the largest float has 39 digits
constexpr std::size_t kClockDigits = 2;
constexpr std::size_t kMillisecondDigits = 3;

// As printf's "%.*f" in the C locale, whatever the host's.
std::string Fixed(double value, int decimals) {
  char text[kFixedTextBytes];
  const auto end =
      std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, decimals)
          .ptr;
  return {text, end};
}

juce::String FromUtf8(const std::string& text) { return juce::String::fromUTF8(text.c_str()); }

}  // namespace

juce::String LogHeader() {
  return "Name, Pass, StartingChannelIndex, EndChannelIndex, ChannelsFormat, Integrated Loudness, "
         "Loudness Range, Max True Peak, TC, Max ShortTerm Loudness, TC, Max Momentary Loudness, "
         "TC\n";
}

juce::String LogRow(const std::string& entryName, const LogMeasurement& m, int frameRate) {
  std::string row = entryName;
  for (const std::string& field :
       {m.pass.toStdString(), IntToText(m.startChannel), IntToText(m.endChannel),
        std::string(ChannelsFormat(m.endChannel - m.startChannel + 1)),
        Tenths(m.integratedLoudness), Tenths(m.loudnessRange), Tenths(m.maxTruePeak),
        TimeCodeText(m.maxTruePeakTime, frameRate), Tenths(m.maxShortTerm),
        TimeCodeText(m.maxShortTermTime, frameRate), Tenths(m.maxMomentary),
        TimeCodeText(m.maxMomentaryTime, frameRate)}) {
    row += ',';
    row += field;
  }
  row += '\n';
  return FromUtf8(row);
}

std::string DefaultEntryName(const juce::Time& now) {
  return "JobAt_" + IntToText(now.getHoursInAmPmFormat()) + ":" + IntToText(now.getMinutes()) +
         ":" + IntToText(now.getSeconds());
}

juce::String DatedFileStem(const juce::String& stem, const juce::Time& now) {
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return stem + juce::String(now.getDayOfMonth()) + "_" + kMonths[now.getMonth()] + "_" +
         juce::String(now.getYear());
}

std::string Tenths(float value) {
  const double n = SampleMath().RoundToTenth(value);
  if (!(n > -kPlainDigitsLimit && n < kPlainDigitsLimit)) return Fixed(n, 1);
  std::string digits = PadLeft(Fixed(std::floor(10.0 * std::fabs(n) + 0.5), 0), 2, '0');
  digits.insert(digits.size() - 1, ".");
  return n < 0.0 ? "-" + digits : digits;
}

std::string TimeCodeText(const TimeCode& time, int frameRate) {
  const std::size_t lastDigits = frameRate != 0 ? kClockDigits : kMillisecondDigits;
  return PadLeft(IntToText(time.hours), kClockDigits, '0') + ":" +
         PadLeft(IntToText(time.minutes), kClockDigits, '0') + ":" +
         PadLeft(IntToText(time.seconds), kClockDigits, '0') + ":" +
         PadLeft(IntToText(time.framesOrMilliseconds), lastDigits, '0');
}

const char* ChannelsFormat(int channelCount) {
  switch (channelCount) {
    case 1:
      return "Mono";
    case 2:
      return "Stereo";
    case 6:
      return "5.1";
    default:
      return "Unspecified";
  }
}

std::string PadLeft(std::string text, std::size_t width, char character) {
  if (text.size() < width) text.insert(0, width - text.size(), character);
  return text;
}

std::string IntToText(int value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << value;
  return text.str();
}

}  // namespace harvane
