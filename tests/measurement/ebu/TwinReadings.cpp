#include <algorithm>

#include "tests/measurement/ebu/Readings.h"
#include "tests/support/twin/Job.h"

namespace ebu {
namespace {

std::vector<float> ValuesOf(const std::vector<twin::MeterValue>& windows) {
  std::vector<float> values;
  for (const twin::MeterValue& window : windows) values.push_back(window.value);
  return values;
}

// Takes the windows that were finished within the first `frames` frames into the maximum, from the
// `*next`th on.
void TakeMaximumBy(std::size_t frames, const std::vector<twin::MeterValue>& windows,
                   std::size_t* next, float* maximum) {
  for (; *next < windows.size(); ++*next) {
    const twin::MeterValue& window = windows[*next];
    if (static_cast<std::size_t>(window.position) >= frames) return;
    *maximum = std::max(*maximum, window.value);
  }
}

Readings Measured(const Sound& sound, const twin::Departures& departures) {
  twin::JobSpec spec;
  spec.sampleRate = kRate;
  spec.channels = static_cast<int>(sound.channels);
  spec.formats[0] = sound.channels == 6 ? 6 : 2;
  spec.departures = departures;
  twin::Job job(spec);
  job.StartSequence();
  const twin::TrackReport report = job.RunPass(0, sound.frames).tracks.at(0);

  Readings readings;
  readings.integrated = report.values.integratedLoudness;
  readings.range = report.values.loudnessRange;
  readings.truePeak = report.values.maxTruePeak;
  readings.maxima = {report.values.maxMomentary, report.values.maxShortTerm};
  readings.momentary = ValuesOf(report.momentaryLooks);
  readings.shortTerm = ValuesOf(report.shortTermLooks);
  const twin::TrackValues unmeasured;
  Maxima soFar = {unmeasured.maxMomentary, unmeasured.maxShortTerm};
  std::size_t momentary = 0;
  std::size_t shortTerm = 0;
  for (std::size_t first = 0; first < sound.FrameCount(); first += kLookFrames) {
    const std::size_t frames = first + kLookFrames;
    TakeMaximumBy(frames, report.momentaryLooks, &momentary, &soFar.momentary);
    TakeMaximumBy(frames, report.shortTermLooks, &shortTerm, &soFar.shortTerm);
    readings.course.push_back(soFar);
  }
  return readings;
}

}  // namespace

Readings MeasuredByTwin(const Sound& sound) { return Measured(sound, twin::Departures()); }

Readings MeasuredByTwinWithCloseMaxima(const Sound& sound) {
  twin::Departures departures;
  departures.maximaOfSeriesOnly = false;
  return Measured(sound, departures);
}

}  // namespace ebu
