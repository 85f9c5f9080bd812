#include "logging/LogRow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <limits>
#include <locale>
#include <string>

#include "measurement/TrackMeasurement.h"
#include "tests/support/AnyFloat.h"
#include "tests/support/Bits.h"
#include "tests/support/TestMain.h"
#include "tests/support/twin/Kernels.h"

namespace harvane {
namespace {

constexpr int kRate = 48000;

TimeCode TimeOf(int position, int frameRate, int sampleRate = kRate) {
  TimeCode time{};
  SampleMath().SamplesToTimeCode(position, frameRate, sampleRate, &time);
  return time;
}

LogMeasurement Measurement(const twin::TrackValues& values, const char* pass, int startChannel,
                           int channelCount, int frameRate, int sampleRate = kRate) {
  return {pass,
          startChannel,
          startChannel + channelCount - 1,
          values.integratedLoudness,
          values.loudnessRange,
          values.maxTruePeak,
          TimeOf(values.maxTruePeakPosition, frameRate, sampleRate),
          values.maxShortTerm,
          TimeOf(values.maxShortTermPosition, frameRate, sampleRate),
          values.maxMomentary,
          TimeOf(values.maxMomentaryPosition, frameRate, sampleRate)};
}

twin::TrackValues ProgrammeValues() {
  twin::TrackValues values;
  values.integratedLoudness = -23.44F;
  values.loudnessRange = 6.2F;
  values.maxTruePeak = -1.83F;
  values.maxTruePeakPosition = 34722000;
  values.maxShortTerm = -18.9F;
  values.maxShortTermPosition = 34560000;
  values.maxMomentary = -14.25F;
  values.maxMomentaryPosition = 34700000;
  return values;
}

std::string RowOf(const std::string& name, const LogMeasurement& measurement, int frameRate) {
  return LogRow(name, measurement, frameRate).toStdString();
}

juce::Time LocalTime(int year, int month, int day, int hour, int minute, int second) {
  return {year, month - 1, day, hour, minute, second, 0, true};
}

// ---- header

// Whether a NaN shows its sign is the C library's.
std::string WithoutSignOfNaN(std::string text) {
  for (std::size_t at; (at = text.find("-nan")) != std::string::npos;) text.erase(at, 1);
  return text;
}

TEST(LogRow, HeaderHasABlankAfterEachCommaAndItsLineFeed) {
  EXPECT_EQ(
      "Name, Pass, StartingChannelIndex, EndChannelIndex, ChannelsFormat, Integrated Loudness, "
      "Loudness Range, Max True Peak, TC, Max ShortTerm Loudness, TC, Max Momentary Loudness, TC\n",
      LogHeader().toStdString());
}

// ---- rows

TEST(LogRow, StereoTrackWithVideoFrames) {
  EXPECT_EQ(
      "JobAt_5:4:9,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:09,-18.9,00:12:00:00,-14.2,"
      "00:12:02:22\n",
      RowOf("JobAt_5:4:9", Measurement(ProgrammeValues(), "Analysis", 0, 2, 25), 25));
}

TEST(LogRow, StereoTrackWithMilliseconds) {
  EXPECT_EQ(
      "JobAt_5:4:9,Analysis,0,1,Stereo,-23.4,6.2,-1.8,00:12:03:375,-18.9,00:12:00:000,-14.2,"
      "00:12:02:916\n",
      RowOf("JobAt_5:4:9", Measurement(ProgrammeValues(), "Analysis", 0, 2, 0), 0));
}

TEST(LogRow, MonoTrackBehindAStereoTrack) {
  EXPECT_EQ(0U, RowOf("Job", Measurement(ProgrammeValues(), "Process", 2, 1, 25), 25)
                    .find("Job,Process,2,2,Mono,-23.4,"));
}

TEST(LogRow, SurroundTrackEndsFiveChannelsBehindItsStart) {
  EXPECT_EQ(0U, RowOf("Job", Measurement(ProgrammeValues(), "Process", 2, 6, 25), 25)
                    .find("Job,Process,2,7,5.1,-23.4,"));
}

TEST(LogRow, TrackThatMeasuredNothingShowsTheResetValues) {
  EXPECT_EQ(
      "Job,Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:00,-70.0,00:00:00:00,-70.0,"
      "00:00:00:00\n",
      RowOf("Job", Measurement(twin::TrackValues(), "Analysis", 0, 2, 25), 25));
}

TEST(LogRow, TrackThatMeasuredNothingShowsTheResetValuesInMilliseconds) {
  EXPECT_EQ(
      "Job,Analysis,0,1,Stereo,-70.0,-70.0,-70.0,00:00:00:000,-70.0,00:00:00:000,-70.0,"
      "00:00:00:000\n",
      RowOf("Job", Measurement(twin::TrackValues(), "Analysis", 0, 2, 0), 0));
}

TEST(LogRow, CommaInTheNameMakesAFieldMore) {
  const std::string row =
      RowOf("One, two", Measurement(ProgrammeValues(), "Analysis", 0, 2, 25), 25);
  EXPECT_EQ(0U, row.find("One, two,Analysis,0,1,"));
  EXPECT_EQ(13, std::count(row.begin(), row.end(), ','));
}

TEST(LogRow, LineEndInTheNameStaysAsItIs) {
  const std::string row =
      RowOf("One\r\ntwo\n", Measurement(ProgrammeValues(), "Analysis", 0, 2, 25), 25);
  EXPECT_EQ(0U, row.find("One\r\ntwo\n,Analysis,0,1,"));
}

TEST(LogRow, QuotesInTheNameAreNotEscaped) {
  const std::string row =
      RowOf("\"a\" 'b' <c>&", Measurement(ProgrammeValues(), "Analysis", 0, 2, 25), 25);
  EXPECT_EQ(0U, row.find("\"a\" 'b' <c>&,Analysis,"));
}

TEST(LogRow, NameIsUtf8) {
  const std::string name = "M\xc3\xa4rz \xe6\x97\xa5 \xf0\x9f\x8e\xb5";
  EXPECT_EQ(0U, RowOf(name, Measurement(ProgrammeValues(), "Analysis", 0, 2, 25), 25)
                    .find(name + ",Analysis,"));
}

TEST(LogRow, AgreesWithTheTwin) {
  constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
  support::ForEachSeed(10000, [&](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto position = [&noise] { return static_cast<std::int32_t>(noise.NextBits() >> 1); };
    twin::TrackValues values;
    for (float* value : {&values.maxMomentary, &values.maxShortTerm, &values.integratedLoudness,
                         &values.loudnessRange, &values.maxTruePeak}) {
      *value = support::AnyFloat(&noise, 80.0F);
    }
    values.maxMomentaryPosition = position();
    values.maxShortTermPosition = position();
    values.maxTruePeakPosition = position();
    const int sampleRate = kRates[noise.NextBelow(6)];
    const auto frameRate = static_cast<int>(noise.NextBelow(3) * noise.NextBelow(61));
    const auto startChannel = static_cast<int>(noise.NextBelow(32));
    const auto channelCount = static_cast<int>(1 + noise.NextBelow(8));
    const char* const pass = noise.NextBelow(2) == 0 ? "Analysis" : "Process";
    const std::string row =
        RowOf("Name", Measurement(values, pass, startChannel, channelCount, frameRate, sampleRate),
              frameRate);
    ASSERT_EQ(WithoutSignOfNaN(twin::RowText("Name", pass, startChannel, channelCount, values,
                                             frameRate, sampleRate) +
                               "\n"),
              WithoutSignOfNaN(row))
        << "frame rate " << frameRate << ", sample rate " << sampleRate;
    ASSERT_EQ(12, std::count(row.begin(), row.end(), ','));
    ASSERT_EQ(std::string::npos, row.find(' '));
  });
}

// ---- channels

TEST(LogRow, FormatIsNamedByTheChannelCount) {
  EXPECT_STREQ("Mono", ChannelsFormat(1));
  EXPECT_STREQ("Stereo", ChannelsFormat(2));
  EXPECT_STREQ("5.1", ChannelsFormat(6));
}

TEST(LogRow, OtherChannelCountsAreUnspecified) {
  for (const int count : {-1, 0, 3, 4, 5, 7, 8, 32}) {
    EXPECT_STREQ("Unspecified", ChannelsFormat(count)) << count;
  }
}

// ---- default names

TEST(LogRow, DefaultEntryNameIsNotPadded) {
  EXPECT_EQ("JobAt_5:4:9", DefaultEntryName(LocalTime(2013, 3, 7, 17, 4, 9)));
}

TEST(LogRow, DefaultEntryNameCountsHoursFromOneToTwelve) {
  for (int hour = 0; hour < 24; ++hour) {
    const int shown = hour == 0 ? 12 : hour > 12 ? hour - 12 : hour;
    EXPECT_EQ("JobAt_" + std::to_string(shown) + ":59:10",
              DefaultEntryName(LocalTime(2013, 7, 7, hour, 59, 10)));
  }
}

TEST(LogRow, DefaultEntryNameAgreesWithTheTwinForEverySecondOfADay) {
  for (int second = 0; second < 24 * 3600; second += 7) {
    const int hour = second / 3600;
    const int minute = second / 60 % 60;
    ASSERT_EQ(twin::DefaultEntryName(hour, minute, second % 60),
              DefaultEntryName(LocalTime(2013, 7, 7, hour, minute, second % 60)));
  }
}

TEST(LogRow, FileStemHasDayMonthAndYear) {
  EXPECT_EQ("Log7_Mar_2013", DatedFileStem("Log", LocalTime(2013, 3, 7, 12, 0, 0)).toStdString());
}

TEST(LogRow, FileStemNamesEachMonthInThreeLetters) {
  const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int month = 1; month <= 12; ++month) {
    EXPECT_EQ("Log28_" + std::string(months[month - 1]) + "_1999",
              DatedFileStem("Log", LocalTime(1999, month, 28, 12, 0, 0)).toStdString());
    EXPECT_EQ(twin::DefaultFileName(3, month, 2031),
              (DatedFileStem("Log", LocalTime(2031, month, 3, 12, 0, 0)) + ".csv").toStdString());
  }
}

TEST(LogRow, FileStemIsInLocalTime) {
  EXPECT_EQ("Log31_Dec_2024",
            DatedFileStem("Log", LocalTime(2024, 12, 31, 23, 59, 59)).toStdString());
  EXPECT_EQ("Log1_Jan_2025", DatedFileStem("Log", LocalTime(2025, 1, 1, 0, 0, 0)).toStdString());
}

// ---- tenths

TEST(LogRow, TenthsHaveOneDecimalPlace) {
  EXPECT_EQ("0.5", Tenths(0.5F));
  EXPECT_EQ("23.4", Tenths(23.4F));
  EXPECT_EQ("-70.0", Tenths(-70.0F));
  EXPECT_EQ("6.2", Tenths(6.2F));
  EXPECT_EQ("100.0", Tenths(100.0F));
}

TEST(LogRow, TieGoesTowardsPlusInfinity) {
  EXPECT_EQ("-14.2", Tenths(-14.25F));
  EXPECT_EQ("14.3", Tenths(14.25F));
  EXPECT_EQ("-1.2", Tenths(-1.25F));
  EXPECT_EQ("0.1", Tenths(0.05F));
  EXPECT_EQ("-0.1", Tenths(-0.05F));  // in single precision just under the tie
}

TEST(LogRow, ValueThatRoundsToZeroHasNoSign) {
  for (const float value : {0.0F, -0.0F, 0.04F, -0.04F, 1e-40F, -1e-40F}) {
    EXPECT_EQ("0.0", Tenths(value)) << value;
  }
}

TEST(LogRow, SmallNegativeValueHasASignAndALeadingZero) {
  EXPECT_EQ("-0.1", Tenths(-0.06F));
  EXPECT_EQ("-0.9", Tenths(-0.9F));
}

TEST(LogRow, LargeValueInsideTheRangeIsWrittenInDigits) {
  EXPECT_EQ("16777216.0", Tenths(16777216.0F));
  EXPECT_EQ("-4194304.0", Tenths(-4194304.0F));
}

TEST(LogRow, ValueOutsideTheRangeIsWrittenInFull) {
  // 2^100, by hand.
  EXPECT_EQ("1267650600228229401496703205376.0", Tenths(0x1p100F));
  EXPECT_EQ("-1267650600228229401496703205376.0", Tenths(-0x1p100F));
}

TEST(LogRow, InfinityAndNoNumberAreWrittenByTheLibrary) {
  EXPECT_EQ("inf", Tenths(std::numeric_limits<float>::infinity()));
  EXPECT_EQ("-inf", Tenths(-std::numeric_limits<float>::infinity()));
  EXPECT_NE(std::string::npos, Tenths(std::numeric_limits<float>::quiet_NaN()).find("nan"));
}

TEST(LogRow, TenthsAgreeWithTheTwin) {
  support::ForEachSeed(20000, [](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const float value = support::AnyFloat(&noise, seed % 2 == 0 ? 80.0F : 1.0F);
    ASSERT_EQ(WithoutSignOfNaN(twin::TenthsText(value)), WithoutSignOfNaN(Tenths(value)))
        << support::Show(value);
  });
}

TEST(LogRow, TenthsAgreeWithTheTwinAtEveryHundredth) {
  for (int hundredths = -10000; hundredths <= 10000; ++hundredths) {
    const float value = static_cast<float>(hundredths) / 100.0F;
    ASSERT_EQ(WithoutSignOfNaN(twin::TenthsText(value)), WithoutSignOfNaN(Tenths(value)))
        << support::Show(value);
  }
}

// Groups digits and separates decimals as some hosts' locales do.
class CommaPunctuation : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

class LocaleGuard {
 public:
  LocaleGuard()
      : previous(std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation))) {}
  ~LocaleGuard() { std::locale::global(previous); }

 private:
  std::locale previous;
};

TEST(LogRow, HostsLocaleHasNoPartInTheNumbers) {
  const LocaleGuard guard;
  // The C library's as well, in each of these that the system has.
  for (const char* name : {"C", "de_DE.UTF-8", "de_DE", "fr_FR.UTF-8", "German_Germany"}) {
    std::setlocale(LC_NUMERIC, name);
    EXPECT_EQ("1234567", IntToText(1234567));
    EXPECT_EQ("-12345.5", Tenths(-12345.5F));
    EXPECT_EQ("1267650600228229401496703205376.0", Tenths(0x1p100F));
  }
  std::setlocale(LC_NUMERIC, "C");
}

// ---- time codes

TEST(LogRow, TimeCodeOfPositionZeroWithFrames) {
  EXPECT_EQ("00:00:00:00", TimeCodeText(TimeOf(0, 25), 25));
}

TEST(LogRow, TimeCodeOfPositionZeroWithMilliseconds) {
  EXPECT_EQ("00:00:00:000", TimeCodeText(TimeOf(0, 0), 0));
}

TEST(LogRow, TimeCodeFieldsArePaddedToTwoDigits) {
  EXPECT_EQ("01:01:01:07", TimeCodeText(TimeOf(48000 * 3661 + 1920 * 7, 25), 25));
}

TEST(LogRow, MillisecondsArePaddedToThreeDigits) {
  EXPECT_EQ("00:00:00:001", TimeCodeText(TimeOf(72, 0), 0));
  EXPECT_EQ("00:00:00:999", TimeCodeText(TimeOf(47999, 0), 0));
}

TEST(LogRow, HoursAboveNinetyNineHaveThreeDigits) {
  EXPECT_EQ("100:00:00:00", TimeCodeText({0, 0, 0, 100}, 25));
  EXPECT_EQ("100:00:00:000", TimeCodeText(TimeOf(360000 * 200, 0, 200), 0));
}

TEST(LogRow, FrameNumbersAboveNinetyNineStandInFull) {
  EXPECT_EQ("00:00:00:119", TimeCodeText(TimeOf(47999, 120), 120));
}

TEST(LogRow, TimeCodesAgreeWithTheTwin) {
  constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
  support::ForEachSeed(20000, [&](std::uint64_t seed) {
    support::NoiseSource noise(seed);
    const auto position = static_cast<std::int32_t>(noise.NextBits() >> (1 + noise.NextBelow(24)));
    const int sampleRate = kRates[noise.NextBelow(6)];
    const int rates[] = {0, 24, 25, 30, 60, static_cast<int>(noise.NextBelow(500))};
    const int frameRate = rates[noise.NextBelow(6)];
    ASSERT_EQ(twin::TimeCodeText(position, frameRate, sampleRate),
              TimeCodeText(TimeOf(position, frameRate, sampleRate), frameRate))
        << "position " << position << ", frame rate " << frameRate << ", sample rate "
        << sampleRate;
  });
}

// ---- helpers

TEST(LogRow, PadLeftFillsInFront) {
  EXPECT_EQ("007", PadLeft("7", 3, '0'));
  EXPECT_EQ("xx", PadLeft("", 2, 'x'));
}

TEST(LogRow, PadLeftLeavesALongerTextAlone) {
  EXPECT_EQ("1234", PadLeft("1234", 3, '0'));
  EXPECT_EQ("123", PadLeft("123", 3, '0'));
  EXPECT_EQ("", PadLeft("", 0, '0'));
}

TEST(LogRow, IntToTextGivesDecimalDigits) {
  EXPECT_EQ("0", IntToText(0));
  EXPECT_EQ("-5", IntToText(-5));
  EXPECT_EQ("2147483647", IntToText(std::numeric_limits<int>::max()));
  EXPECT_EQ("-2147483648", IntToText(std::numeric_limits<int>::min()));
}

}  // namespace
}  // namespace harvane
