#include <cstddef>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PassObserver.h"
#include "logging/LogMeasurement.h"
#include "tests/measurement/ebu/Readings.h"
#include "tests/support/LinkedJob.h"

namespace ebu {
namespace {

using harvane::LogMeasurement;

void TakeResults(const LogMeasurement& measurement, void* context) {
  Readings& readings = *static_cast<Readings*>(context);
  readings.integrated = measurement.integratedLoudness;
  readings.range = measurement.loudnessRange;
  readings.truePeak = measurement.maxTruePeak;
  readings.maxima = {measurement.maxMomentary, measurement.maxShortTerm};
}

std::vector<float> ValuesOf(const harvane::GatedSeries& series) {
  std::vector<float> values;
  for (const harvane::AcceptedLoudness& accepted : series.Accepted()) {
    values.push_back(accepted.value);
  }
  return values;
}

}  // namespace

Readings MeasuredByModule(const Sound& sound) {
  support::ParameterTexts texts;
  texts.formats[0] = sound.channels == 6 ? "6" : "2";
  support::LinkedJob job(texts, kRate, sound.channels);
  Readings readings;
  harvane::SetPassObserver(&job.Instance(), {TakeResults, &readings});

  job.Session().StartPass(0);
  std::vector<std::int16_t> nothing;  // the first of two passes gives nothing back
  for (std::size_t first = 0; first < sound.FrameCount(); first += kLookFrames) {
    const std::size_t rest = sound.FrameCount() - first;
    const std::size_t count = rest < kLookFrames ? rest : kLookFrames;
    job.Session().Deliver(sound.frames.data() + first * sound.channels,
                          static_cast<std::uint32_t>(count), &nothing);
    const harvane::TrackMeasurement& soFar = job.Instance().Results()[0];
    readings.course.push_back({soFar.maxMomentary, soFar.maxShortTerm});
  }
  const harvane::LoudnessMeter& meter = *job.Instance().Meters()[0];
  readings.momentary = ValuesOf(meter.IntegratedSeries());
  readings.shortTerm = ValuesOf(meter.RangeSeries());
  job.EndPass();
  return readings;
}

}  // namespace ebu
