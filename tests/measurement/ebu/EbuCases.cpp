#include "tests/measurement/ebu/EbuCases.h"

#include <algorithm>
#include <stdexcept>

namespace ebu {
namespace {

using CaseReadings = std::vector<CaseReading>;
using Reader = std::function<CaseReadings(const Meter& meter, int tones)>;

// ---- readers

void AddLowestAndHighest(const std::string& what, double published,
                         const std::vector<float>& windows, CaseReadings* readings) {
  if (windows.empty()) throw std::runtime_error("no whole window of " + what);
  readings->push_back({"lowest " + what, published, *std::ranges::min_element(windows)});
  readings->push_back({"highest " + what, published, *std::ranges::max_element(windows)});
}

// M, S and I of a steady tone.
Reader SteadyTone(double level) {
  return [=](const Meter& meter, int) {
    const Readings shown = meter(StereoTones({{20.0, level}}));
    CaseReadings readings = {{"I", level, shown.integrated}};
    AddLowestAndHighest("M", level, shown.momentary, &readings);
    AddLowestAndHighest("S", level, shown.shortTerm, &readings);
    return readings;
  };
}

Reader Integrated(double published, const std::function<Sound()>& make) {
  return [=](const Meter& meter, int) -> CaseReadings {
    return {{"I", published, meter(make()).integrated}};
  };
}

Reader Range(double published, const std::vector<Tone>& tones) {
  return [=](const Meter& meter, int) -> CaseReadings {
    return {{"LRA", published, meter(StereoTones(tones)).range}};
  };
}

Reader TruePeak(double published, const std::function<Sound()>& make) {
  return [=](const Meter& meter, int) -> CaseReadings {
    return {{"TP", published, meter(make()).truePeak}};
  };
}

enum class Window { kMomentary, kShortTerm };

// Two tones in turn, over and over: every window holds as much of each.
Reader Alternation(Window window, int times, Tone first, Tone second) {
  return [=](const Meter& meter, int) {
    std::vector<Tone> tones;
    for (int i = 0; i < times; ++i) tones.insert(tones.end(), {first, second});
    const Readings shown = meter(StereoTones(tones));
    const bool isMomentary = window == Window::kMomentary;
    CaseReadings readings;
    AddLowestAndHighest(isMomentary ? "M" : "S", -23.0,
                        isMomentary ? shown.momentary : shown.shortTerm, &readings);
    return readings;
  };
}

// Tones as long as a window, each `step` later against the windows than the one before.
struct LateTones {
  Window window;
  double seconds;
  double step;  // seconds

  std::string Of(int i) const {
    return (window == Window::kMomentary ? "max M of tone " : "max S of tone ") + std::to_string(i);
  }
  float ValueIn(const Maxima& maxima) const {
    return window == Window::kMomentary ? maxima.momentary : maxima.shortTerm;
  }
};

// Each tone by itself.
Reader SingleTones(const LateTones& late) {
  return [=](const Meter& meter, int tones) {
    constexpr double kLevel = -23.0;
    CaseReadings readings;
    for (int i = 0; i < tones; ++i) {
      const Sound sound =
          StereoTones({{i * late.step, kSilence}, {late.seconds, kLevel}, {1.0, kSilence}});
      readings.push_back({late.Of(i), kLevel, late.ValueIn(meter(sound).maxima)});
    }
    return readings;
  };
}

// One behind the other, each 1 dB louder; each is read when the next one begins.
Reader RisingTones(const LateTones& late) {
  return [=](const Meter& meter, int tones) {
    const auto levelOf = [](int i) { return -38.0 + i; };
    std::vector<Tone> sequence;
    for (int i = 0; i < tones; ++i) {
      sequence.push_back({i * late.step, kSilence});
      sequence.push_back({late.seconds, levelOf(i)});
      sequence.push_back({late.seconds - i * late.step, kSilence});
    }
    const Readings shown = meter(StereoTones(sequence));
    CaseReadings readings;
    for (int i = 0; i < tones; ++i) {
      const double nextBegins = (i + 1) * (2.0 * late.seconds + late.step);
      const auto looks = static_cast<std::size_t>(nextBegins * kRate / double(kLookFrames) + 0.5);
      const Maxima& maxima = shown.course.at(std::min(looks, shown.course.size()) - 1);
      readings.push_back({late.Of(i), levelOf(i), late.ValueIn(maxima)});
    }
    return readings;
  };
}

// ---- tables

constexpr double kLoudnessTolerance = 0.1;  // LU
constexpr double kRangeTolerance = 1.0;     // LU
constexpr double kPeakBelow = 0.4;          // dB
constexpr double kPeakAbove = 0.2;          // dB

EbuCase LoudnessCase(const std::string& name, const std::string& signal,
                     const std::string& published, const Reader& read) {
  return {name, signal, published, kLoudnessTolerance, kLoudnessTolerance, false, read};
}

EbuCase MissedCase(const std::string& name, const std::string& signal, const std::string& published,
                   const Reader& read) {
  return {name, signal, published, kLoudnessTolerance, kLoudnessTolerance, true, read};
}

EbuCase PeakCase(const std::string& name, const std::string& signal, const std::string& published,
                 const Reader& read) {
  return {name, signal, published, kPeakBelow, kPeakAbove, false, read};
}

EbuCase RangeCase(const std::string& name, const std::string& signal, const std::string& published,
                  const Reader& read) {
  return {name, signal, published, kRangeTolerance, kRangeTolerance, false, read};
}

std::vector<EbuCase> MakeCases() {
  const LateTones lateShortTerm = {Window::kShortTerm, 3.0, 0.15};
  const LateTones lateMomentary = {Window::kMomentary, 0.4, 0.02};
  const auto tones = [](const std::vector<Tone>& list) {
    return [=] { return StereoTones(list); };
  };
  return {
      LoudnessCase("3341-1", "20 s at -23 dBFS", "M, S, I = -23.0", SteadyTone(-23.0)),
      LoudnessCase("3341-2", "20 s at -33 dBFS", "M, S, I = -33.0", SteadyTone(-33.0)),
      LoudnessCase("3341-3", "10 s at -36, 60 s at -23, 10 s at -36 dBFS", "I = -23.0",
                   Integrated(-23.0, tones({{10.0, -36.0}, {60.0, -23.0}, {10.0, -36.0}}))),
      LoudnessCase(
          "3341-4", "10 s at -72, 10 s at -36, 60 s at -23, 10 s at -36, 10 s at -72 dBFS",
          "I = -23.0",
          Integrated(
              -23.0,
              tones({{10.0, -72.0}, {10.0, -36.0}, {60.0, -23.0}, {10.0, -36.0}, {10.0, -72.0}}))),
      LoudnessCase("3341-5", "20 s at -26, 20.1 s at -20, 20 s at -26 dBFS", "I = -23.0",
                   Integrated(-23.0, tones({{20.0, -26.0}, {20.1, -20.0}, {20.0, -26.0}}))),
      LoudnessCase("3341-6", "5.0 channels, 20 s: L, R at -28, C at -24, Ls, Rs at -30 dBFS",
                   "I = -23.0",
                   Integrated(-23.0, [] { return SurroundTone(20.0, -28.0, -24.0, -30.0); })),
      LoudnessCase("3341-9", "5 times 1.34 s at -20, 1.66 s at -30 dBFS",
                   "S = -23.0, constant after 3 s",
                   Alternation(Window::kShortTerm, 5, {1.34, -20.0}, {1.66, -30.0})),
      MissedCase("3341-10",
                 "20 files, i = 0 to 19: i * 0.15 s silence, 3 s at -23 dBFS, 1 s silence",
                 "max S = -23.0 of each", SingleTones(lateShortTerm)),
      MissedCase("3341-11",
                 "i = 0 to 19: i * 0.15 s silence, 3 s at -38 + i dBFS, 3 - i * 0.15 s silence",
                 "max S = -38.0, -37.0 ... -19.0, in turn", RisingTones(lateShortTerm)),
      LoudnessCase("3341-12", "25 times 0.18 s at -20, 0.22 s at -30 dBFS",
                   "M = -23.0, constant after 1 s",
                   Alternation(Window::kMomentary, 25, {0.18, -20.0}, {0.22, -30.0})),
      MissedCase("3341-13",
                 "20 files, i = 0 to 19: i * 20 ms silence, 0.4 s at -23 dBFS, 1 s silence",
                 "max M = -23.0 of each", SingleTones(lateMomentary)),
      MissedCase("3341-14",
                 "i = 0 to 19: i * 20 ms silence, 0.4 s at -38 + i dBFS, 0.4 s - i * 20 ms silence",
                 "max M = -38.0, -37.0 ... -19.0, in turn", RisingTones(lateMomentary)),
      PeakCase("3341-15", "fs/4 at 0.50 of full scale, 0 degrees", "TP = -6.0",
               TruePeak(-6.0, [] { return PeakTone(4, 0.50, 0.0); })),
      PeakCase("3341-16", "fs/4 at 0.50 of full scale, 45 degrees", "TP = -6.0",
               TruePeak(-6.0, [] { return PeakTone(4, 0.50, 45.0); })),
      PeakCase("3341-17", "fs/6 at 0.50 of full scale, 60 degrees", "TP = -6.0",
               TruePeak(-6.0, [] { return PeakTone(6, 0.50, 60.0); })),
      PeakCase("3341-18", "fs/8 at 0.50 of full scale, 67.5 degrees", "TP = -6.0",
               TruePeak(-6.0, [] { return PeakTone(8, 0.50, 67.5); })),
      PeakCase("3341-19", "fs/4 at 1.41 of full scale, 45 degrees", "TP = +3.0",
               TruePeak(3.0, [] { return PeakTone(4, 1.41, 45.0); })),
      PeakCase(
          "3341-20",
          "fs/6 at 0.50 with one period of fs/4 at 1.00 of full scale, made at 4 fs, low pass, "
          "to fs from sample 0 on",
          "TP = 0.0", TruePeak(0.0, [] { return PeakBurst(0); })),
      PeakCase("3341-21", "the same from sample 1 on", "TP = 0.0",
               TruePeak(0.0, [] { return PeakBurst(1); })),
      PeakCase("3341-22", "the same from sample 2 on", "TP = 0.0",
               TruePeak(0.0, [] { return PeakBurst(2); })),
      PeakCase("3341-23", "the same from sample 3 on", "TP = 0.0",
               TruePeak(0.0, [] { return PeakBurst(3); })),
      RangeCase("3342-1", "20 s at -20, 20 s at -30 dBFS", "LRA = 10",
                Range(10.0, {{20.0, -20.0}, {20.0, -30.0}})),
      RangeCase("3342-2", "20 s at -20, 20 s at -15 dBFS", "LRA = 5",
                Range(5.0, {{20.0, -20.0}, {20.0, -15.0}})),
      RangeCase("3342-3", "20 s at -40, 20 s at -20 dBFS", "LRA = 20",
                Range(20.0, {{20.0, -40.0}, {20.0, -20.0}})),
      RangeCase(
          "3342-4", "20 s each at -50, -35, -20, -35, -50 dBFS", "LRA = 15",
          Range(15.0, {{20.0, -50.0}, {20.0, -35.0}, {20.0, -20.0}, {20.0, -35.0}, {20.0, -50.0}})),
  };
}

}  // namespace

const std::vector<EbuCase>& EbuCases() {
  static const std::vector<EbuCase> cases = MakeCases();
  return cases;
}

const EbuCase& EbuCaseOf(const std::string& name) {
  for (const EbuCase& ebuCase : EbuCases()) {
    if (ebuCase.name == name) return ebuCase;
  }
  throw std::out_of_range("no case " + name);
}

bool IsWithin(const EbuCase& ebuCase, const CaseReading& reading) {
  const double value = double(reading.value);
  return value >= reading.published - ebuCase.below && value <= reading.published + ebuCase.above;
}

}  // namespace ebu
